// Randomised requests against the multi-width table, over several geometries and width
// mixes, checking every invariant after every request.
#include <gtest/gtest.h>

#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "MultiWidthSupport.h"
#include "TestSupport.h"

namespace TesselCentral {
namespace {

using test::BankArgs;
using test::dbl;
using test::invariantViolations;
using test::MultiWidthTable;
using test::quad;
using test::single;

struct Geometry {
  std::string name;
  U32 numBucketEntries;
  U32 maxRecursiveSteps;
  std::vector<BankArgs> banks;
  std::vector<HashEntryType> widths;
  unsigned seed;
};

// Test names and ctest show a geometry by its name.
void PrintTo(const Geometry& g, std::ostream* os) { *os << g.name; }

BankArgs bankArgs(HashEntryType base, U32 numBuckets, U32 bucketSize, HashFunc f, U32 phy, bool twoBucketMode,
                  U32 hashBits = 0) {
  BankArgs b;
  b.base = base;
  b.numBuckets = numBuckets;
  b.bucketSize = bucketSize;
  b.hashFunc = f;
  b.hashBits = hashBits;
  b.phyBankId = phy;
  b.twoBucketMode = twoBucketMode;
  return b;
}

std::vector<Geometry> geometries() {
  const auto lower32 = HashFunc::hashCrc32Lower;
  const auto lower16 = HashFunc::hashCrc16Lower;
  const auto upper32 = HashFunc::hashCrc32Upper;
  return {
      {"twoSingleBanksMixedWidths",
       4,
       3,
       {bankArgs(single, 16, 4, lower32, 0, false), bankArgs(single, 16, 4, lower16, 1, false)},
       {single, single, dbl, quad},
       11},
      {"twoSingleBanksTwoBucketMode",
       4,
       4,
       {bankArgs(single, 16, 4, lower32, 0, true), bankArgs(single, 16, 4, lower16, 1, true)},
       {single, dbl, dbl, quad},
       12},
      {"threeBanksOfDifferentSizesSomeInTwoBucketMode",
       4,
       2,
       {bankArgs(single, 16, 4, lower32, 0, false), bankArgs(single, 8, 4, lower16, 3, true),
        bankArgs(single, 16, 4, upper32, 5, true, 4)},
       {single, single, dbl, quad},
       13},
      {"doubleBaseBanks",
       2,
       3,
       {bankArgs(dbl, 16, 2, lower32, 0, true), bankArgs(dbl, 16, 2, lower16, 1, false)},
       {dbl, dbl, quad},
       14},
      {"singleAndDoubleBaseBanks",
       4,
       3,
       {bankArgs(single, 16, 4, lower32, 0, false), bankArgs(dbl, 8, 4, lower16, 1, true)},
       {dbl, quad},
       15},
      {"oneSlotBucketsDeepRecursion",
       1,
       6,
       {bankArgs(single, 16, 1, lower32, 0, false), bankArgs(single, 16, 1, lower16, 1, false),
        bankArgs(single, 8, 1, upper32, 2, false, 3)},
       {single},
       16},
      {"noRecursion",
       4,
       0,
       {bankArgs(single, 8, 4, lower32, 0, false), bankArgs(single, 8, 4, lower16, 1, true)},
       {single, dbl, quad},
       17},
  };
}

// The bank and bucket that EntryIdHelper's bank walk picks for an id, or false.
bool firstCandidate(const MultiWidthTable& t, const HashEntryKey& k, U32 id, U32& bank, U32& bucket) {
  U32 base = 0;
  for (U32 i = 0; i < t.table->numBanks(); ++i) {
    MultiEntryTypeBank& b = t.bank(i);
    if (i > 0) base += t.bank(i - 1).numBuckets() * t.bank(i - 1).bucketSize();
    const U32 h = b.calcBucketId(k.crc16(), k.crc32(), k.entryType(), false, 0);
    for (U32 j = 0; j < b.numBucketsToCheck(k.entryType()); ++j) {
      const U32 start = (h + j) * b.bucketSize() + base;
      if (start <= id && id <= start + b.bucketSize() / b.entrySize(k.entryType())) {
        bank = i;
        bucket = h + j;
        return true;
      }
    }
  }
  return false;
}

// An id in one of the key's candidate buckets whose aligned run is free and that the
// table will map back to that very run; false when the random choice does not qualify.
bool freeRequestedId(MultiWidthTable& t, const HashEntryKey& k, std::mt19937& rng, U32& id) {
  const U32 i = rng() % t.table->numBanks();
  MultiEntryTypeBank& b = t.bank(i);
  const U32 width = b.entrySize(k.entryType());
  const U32 h = b.calcBucketId(k.crc16(), k.crc32(), k.entryType(), false, 0);
  const U32 bucket = h + rng() % b.numBucketsToCheck(k.entryType());
  const U32 slot = (rng() % (b.bucketSize() / width)) * width;
  // The table itself never uses position 0 of physical bank 0; a wide entry placed there
  // would stand where a narrower key's walk starts.
  if (b.phyBankId() == 0 && bucket == 0 && slot == 0) return false;
  const U32 runMask = ((1u << width) - 1) << slot;
  if ((b.bucket(bucket) & runMask) != 0) return false;
  const U32 pos = packPosition(i, bucket, slot);
  if (t.table->posToKeyHas(pos)) return false;
  id = t.helper().posToEntryId(pos).value();
  U32 foundBank = 0;
  U32 foundBucket = 0;
  if (!firstCandidate(t, k, id, foundBank, foundBucket)) return false;
  return foundBank == i && foundBucket == bucket && (id & (b.bucketSize() - 1)) == slot;
}

class MultiEntryTypeRandom : public ::testing::TestWithParam<Geometry> {};

TEST_P(MultiEntryTypeRandom, EveryRequestKeepsMapsBucketStatesIdsLocksAndCountersConsistent) {
  const Geometry& g = GetParam();
  MultiWidthTable t(g.numBucketEntries, g.maxRecursiveSteps, g.banks);
  std::mt19937 rng(g.seed);
  std::vector<HashEntryKey> requested;
  U32 nextFapId = 1;
  U32 failures = 0;
  U32 byId = 0;
  U32 slots = 0;
  for (const BankArgs& b : g.banks) slots += b.numBuckets * b.bucketSize;

  for (int step = 0; step < 2500; ++step) {
    const U32 choice = rng() % 100;
    // Keep the table around full: more deletions once there are more requests than slots.
    const U32 deleteBelow = requested.size() > slots ? 45 : 20;
    std::string what;
    if (choice < deleteBelow && !requested.empty()) {
      const U32 at = rng() % requested.size();
      what = "delete";
      t.config->configDel(requested[at]);
      requested[at] = requested.back();
      requested.pop_back();
    } else if (choice < deleteBelow + 8 && !requested.empty() && g.maxRecursiveSteps > 0) {
      // A key placed at a requested id, asked for again anywhere, is placed again.
      const HashEntryKey& k = requested[rng() % requested.size()];
      if (!t.config->config(k).isValid()) continue;
      what = "re-request";
      t.config->configIs(k, EntryId());
    } else {
      const HashEntryKey k(static_cast<U16>(rng()), static_cast<U32>(rng()), nextFapId++,
                           g.widths[rng() % g.widths.size()]);
      U32 id = 0;
      if (choice < deleteBelow + 25 && freeRequestedId(t, k, rng, id)) {
        what = "request at id " + std::to_string(id);
        ++byId;
        t.place(k, id);
      } else {
        what = "request anywhere";
        t.request(k);
      }
      requested.push_back(k);
      if (!t.status->status(k).isValid()) ++failures;
    }
    const auto violations = invariantViolations(t);
    ASSERT_TRUE(violations.empty()) << g.name << " step " << step << " (" << what << "): " << violations.front();
    ASSERT_EQ(t.status->statusCollection().size(), requested.size()) << g.name << " step " << step;
    for (const HashEntryKey& k : requested) ASSERT_TRUE(t.status->statusHas(k)) << g.name << " step " << step;
  }
  // The run exercised what it is meant to: evictions, failures and requested ids.
  if (g.maxRecursiveSteps > 0) {
    EXPECT_GT(t.table->numMoves(), 0u) << g.name;
  }
  EXPECT_GT(failures, 0u) << g.name;
  EXPECT_GT(byId, 0u) << g.name;
  EXPECT_GT(t.table->numDeletions(), 0u) << g.name;
}

INSTANTIATE_TEST_SUITE_P(Geometries, MultiEntryTypeRandom, ::testing::ValuesIn(geometries()),
                         [](const ::testing::TestParamInfo<Geometry>& param) { return param.param.name; });

}  // namespace
}  // namespace TesselCentral
