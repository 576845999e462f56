// A key's candidate runs as the multi-width table tells them: banks, buckets of the key's
// group and aligned slots in ascending order, the first run of physical bank 0 never among
// them, and each run's id the one a placement there publishes.
#include <gtest/gtest.h>

#include "MultiWidthSupport.h"

namespace TesselCentral::test {
namespace {

TEST(MultiWidthCandidates, AreTheAlignedRunsOfTheKeysBucketInEachBank) {
  MultiWidthTable t(4, 1, twoBanks(4));
  // bank 0 bucket crc32 & 15 = 5 (ids 20-23), bank 1 bucket crc16 & 15 = 3 (ids 64 + 12).
  EXPECT_EQ(idsOf(t.table->candidates(key(3, 5, single))), (std::vector<U32>{20, 21, 22, 23, 76, 77, 78, 79}));
  EXPECT_EQ(idsOf(t.table->candidates(key(3, 5, dbl))), (std::vector<U32>{20, 22, 76, 78}));
  const CandidateList quads = t.table->candidates(key(3, 5, quad));
  ASSERT_EQ(quads.size(), 2u);
  EXPECT_EQ(quads.places()[1], (Candidate{1, 3, 0, 4, EntryId(76)}));
}

TEST(MultiWidthCandidates, NeverIncludeTheFirstRunOfPhysicalBank0) {
  MultiWidthTable t(4, 1, twoBanks(4, 0, 1));
  EXPECT_EQ(idsOf(t.table->candidates(key(0, 0, dbl))), (std::vector<U32>{2, 64, 66}));
}

TEST(MultiWidthCandidates, CoverTheBucketsOfTheKeysGroupInTwoBucketMode) {
  std::vector<BankArgs> banks = twoBanks(4);
  for (BankArgs& b : banks) b.twoBucketMode = true;
  MultiWidthTable t(4, 1, banks);
  const CandidateList list = t.table->candidates(key(3, 5, quad));
  std::vector<U32> buckets;
  for (const Candidate& c : list) buckets.push_back(c.bucket);
  const U32 n0 = t.bank(0).numBucketsToCheck(quad);
  const U32 n1 = t.bank(1).numBucketsToCheck(quad);
  ASSERT_EQ(list.size(), n0 + n1);
  EXPECT_EQ(buckets.front(), t.bank(0).groupStart(5, quad));
}

TEST(MultiWidthCandidates, AreThePlacesTheFreeRunSearchTakesFirst) {
  MultiWidthTable t(4, 1, twoBanks(4));
  const HashEntryKey k = key(3, 5, dbl);
  const std::vector<U32> ids = idsOf(t.table->candidates(k));
  t.request(k);
  EXPECT_EQ(t.statusOf(k), ids[0]);
  const HashEntryKey next = key(3, 5 + 16, dbl);  // same buckets, another key
  t.request(next);
  EXPECT_EQ(t.statusOf(next), ids[1]);
}

TEST(MultiWidthCandidates, AreEmptyForAKeyNarrowerThanEveryBank) {
  std::vector<BankArgs> banks = twoBanks(4);
  for (BankArgs& b : banks) b.base = dbl;
  MultiWidthTable t(4, 1, banks);
  EXPECT_TRUE(t.table->candidates(key(3, 5, single)).empty());
}

}  // namespace
}  // namespace TesselCentral::test
