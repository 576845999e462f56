// Shared set-up of the multi-width table tests: a table wired to its requests, results
// and EntryIdHelper, keys whose buckets are known, and the table's invariants.
#pragma once

#include <gtest/gtest.h>

#include <bit>
#include <string>
#include <vector>

#include "MultiHashTable/MultiHashTable.h"
#include "TestSupport.h"

namespace TesselCentral::test {

inline constexpr HashEntryType single = HashEntryType::singleWide;
inline constexpr HashEntryType dbl = HashEntryType::doubleWide;
inline constexpr HashEntryType quad = HashEntryType::quadWide;

// Keys: test::key(crc16, crc32, type, fapId) (TestSupport.h). In the banks below, a key's
// bucket is crc32 & mask in a bank hashing hashCrc32Lower and crc16 & mask in a bank
// hashing hashCrc16Lower.

// One bank's arguments to MultiEntryTypeHashTable::bankIs.
struct BankArgs {
  HashEntryType base = single;
  U32 numBuckets = 16;
  U32 bucketSize = 4;
  HashFunc hashFunc = HashFunc::hashCrc32Lower;
  U32 hashOffSet = 0;
  U32 hashBits = 0;
  U32 phyBankId = 0;
  bool twoBucketMode = false;
};

// Config, status and a multi-width table with its banks and helper, torn down the way a
// client does: the helper first, so that the table and the helper free each other.
class MultiWidthTable {
 public:
  MultiWidthTable(U32 numBucketEntries, U32 maxRecursiveSteps, const std::vector<BankArgs>& banks)
      : config(hashEntryConfigFactory()), status(hashEntryStatusFactory()) {
    table = multiEntryTypeHashTableFactory(static_cast<U32>(banks.size()), banks.empty() ? 0 : banks[0].numBuckets,
                                           numBucketEntries, config, status, maxRecursiveSteps);
    for (U32 i = 0; i < banks.size(); ++i) {
      const BankArgs& b = banks[i];
      table->bankIs(b.base, i, b.numBuckets, b.bucketSize, b.hashFunc, b.hashOffSet, b.hashBits, b.numBuckets - 1,
                    b.phyBankId, b.twoBucketMode);
    }
    table->entryIdHelperIs(entryIdHelperFactory(table));
  }
  ~MultiWidthTable() {
    if (table) table->entryIdHelperIs(nullptr);
  }
  MultiWidthTable(const MultiWidthTable&) = delete;
  MultiWidthTable& operator=(const MultiWidthTable&) = delete;

  MultiEntryTypeBank& bank(U32 i) const { return *table->bank(i); }
  EntryIdHelper& helper() const { return *table->entryIdHelper(); }

  // Places a key at a requested id through the config, as a client does.
  void place(const HashEntryKey& k, U32 id) { config->configIs(k, EntryId(id)); }
  // Requests a key anywhere.
  void request(const HashEntryKey& k) { config->configIs(k, EntryId()); }

  U32 statusOf(const HashEntryKey& k) const { return status->status(k).value(); }

  Ptr<HashEntryConfig> config;
  Ptr<HashEntryStatus> status;
  Ptr<MultiEntryTypeHashTable> table;
};

// The two-bank geometry most tests use: bank 0 selects crc32 & 15, bank 1 crc16 & 15,
// 16 buckets each; physical ids 1 and 2 so that position 0 is an ordinary slot.
inline std::vector<BankArgs> twoBanks(U32 bucketSize, U32 phy0 = 1, U32 phy1 = 2) {
  BankArgs b0;
  b0.bucketSize = bucketSize;
  b0.phyBankId = phy0;
  BankArgs b1 = b0;
  b1.hashFunc = HashFunc::hashCrc16Lower;
  b1.phyBankId = phy1;
  return {b0, b1};
}

// Checks every invariant that the table keeps between requests; returns the failures.
inline std::vector<std::string> invariantViolations(const MultiWidthTable& t) {
  std::vector<std::string> out;
  const MultiEntryTypeHashTable& table = *t.table;
  const auto fail = [&out](const std::string& s) { out.push_back(s); };

  if (table.keyToPosCollection().size() != table.posToKeyCollection().size()) fail("map sizes differ");
  U32 slotsInUse = 0;
  for (const auto& entry : table.keyToPosCollection()) {
    const HashEntryKey& k = entry.key;
    const U32 pos = entry.value;
    if (!table.posToKeyHas(pos) || !(table.posToKey(pos) == k)) fail("posToKey does not invert keyToPos");
    MultiEntryTypeBank& b = *table.bank(positionBank(pos));
    const U32 width = b.entrySize(k.entryType());
    slotsInUse += width;
    for (U32 i = 0; i < width; ++i) {
      const U32 slot = positionSlot(pos) + i;
      if (b.getEntryType(positionBucket(pos), slot) != k.entryType()) fail("type nibble differs");
      if (((b.bucket(positionBucket(pos)) >> slot) & 1) == 0) fail("occupancy bit clear");
    }
    const EntryId id = table.entryIdHelper()->posToEntryId(pos);
    if (!(t.status->status(k) == id)) fail("status differs from the position's id");
    if (!(table.hashTableEntry(id) == k)) fail("hashTableEntry differs from the position's key");
  }
  U32 occupied = 0;
  for (const auto& entry : table.bankCollection()) {
    const MultiEntryTypeBank& b = *entry.value;
    if (b.lockedBucketss() != 0) fail("a bucket is locked");
    for (const auto& state : b.bucketCollection()) {
      occupied += static_cast<U32>(std::popcount(state.value & 0xFFFF));
    }
  }
  if (occupied != slotsInUse) fail("occupancy bits do not add up to the placed widths");
  if (table.hashTableEntryCollection().size() != table.keyToPosCollection().size()) fail("hashTableEntry size");
  if (table.numInsertions() - table.numDeletions() != table.keyToPosCollection().size()) fail("counters");
  for (const auto& entry : t.status->statusCollection()) {
    if (entry.value.isValid() != table.keyToPosHas(entry.key)) fail("valid status without position or back");
  }
  return out;
}

}  // namespace TesselCentral::test
