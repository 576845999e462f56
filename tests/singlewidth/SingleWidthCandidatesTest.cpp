// A key's candidate slots as the table tells them, and the slot that an id names: the
// order is the placement's own, and the id of each place is the one it publishes.
#include <gtest/gtest.h>

#include "MultiHashTable/fwk/Registry.h"
#include "MultiHashTable/fwk/Scope.h"
#include "SingleWidthSupport.h"

namespace TesselCentral::test {
namespace {

TEST(SingleWidthCandidates, AreTheKeysBucketInEachBankSlotBySlotInBankMajorIds) {
  Tables t = makeTable(2, 8, 2, 1);
  // bank 0 takes crc32 & 7 = 5, bank 1 crc16 & 7 = 3.
  const CandidateList list = t.table->candidates(key(3, 5));
  EXPECT_EQ(idsOf(list), (std::vector<U32>{10, 11, 22, 23}));
  EXPECT_EQ(list.places()[0], (Candidate{0, 5, 0, 1, EntryId(10)}));
  EXPECT_EQ(list.places()[3], (Candidate{1, 3, 1, 1, EntryId(23)}));
}

TEST(SingleWidthCandidates, FollowTheBucketMajorLayout) {
  Tables t = makeTable(2, 8, 2, 1, true);
  // (bucket * numBanks + bank) * slots + slot.
  EXPECT_EQ(idsOf(t.table->candidates(key(3, 5))), (std::vector<U32>{20, 21, 14, 15}));
}

TEST(SingleWidthCandidates, AreTheOrderOfTheFirstPass) {
  Tables t = makeTable(2, 8, 1, 0);
  const HashEntryKey k = key(3, 5);
  const std::vector<U32> ids = idsOf(t.table->candidates(k));
  ASSERT_EQ(ids.size(), 2u);
  t.request(key(4, 5));  // takes bank 0's slot, the first candidate of k as well
  t.request(k);
  EXPECT_EQ(t.at(key(4, 5)).value(), ids[0]);
  EXPECT_EQ(t.at(k).value(), ids[1]);
}

TEST(SingleWidthCandidates, EndAtABankThatSelectsNoBucket) {
  Tables t;
  t.table = multiHashTableFactory(3, 8, 1, t.config, t.status, 1, false);
  t.table->bankIs(HashEntryType::singleWide, 0, 8, 1, HashFunc::hashCrc32Lower, 0, 0, 7);
  t.table->bankIs(HashEntryType::singleWide, 1, 8, 1, HashFunc::hashLsb, 0, 0, 7);
  t.table->bankIs(HashEntryType::singleWide, 2, 8, 1, HashFunc::hashCrc16Lower, 0, 0, 7);
  EXPECT_EQ(idsOf(t.table->candidates(key(3, 5))), (std::vector<U32>{5}));
}

TEST(SingleWidthCandidates, KeepTheBucketABankSelectsPastTheTablesBuckets) {
  Tables t;
  t.table = multiHashTableFactory(2, 4, 1, t.config, t.status, 1, false);
  t.table->bankIs(HashEntryType::singleWide, 0, 8, 1, HashFunc::hashCrc32Lower, 0, 0, 7);
  t.table->bankIs(HashEntryType::singleWide, 1, 8, 1, HashFunc::hashCrc16Lower, 0, 0, 7);
  // Bank 0's bucket 6 has id 6, which is bank 1's bucket 2 in the table's own numbering.
  const CandidateList list = t.table->candidates(key(1, 6));
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list.places()[0], (Candidate{0, 6, 0, 1, EntryId(6)}));
  EXPECT_EQ(t.table->slotOfId(EntryId(6)).bank, 1u);
}

TEST(SingleWidthCandidates, AreEmptyWithoutBanks) {
  Tables t;
  t.table = multiHashTableFactory(2, 8, 1, t.config, t.status, 1, false);
  EXPECT_TRUE(t.table->candidates(key(3, 5)).empty());
}

TEST(SingleWidthCandidates, PrintOnePlaceAfterAnother) {
  Tables t = makeTable(2, 8, 1, 1);
  std::ostringstream os;
  os << t.table->candidates(key(3, 5));
  EXPECT_EQ(os.str(), "{bank 0 bucket 5 slot 0 width 1: id 5; bank 1 bucket 3 slot 0 width 1: id 11}");
}

TEST(SingleWidthCandidates, AndSlotOfIdAreCalledThroughTheRegistryByName) {
  Tables t = makeTable(2, 8, 1, 1);
  Fwk::Registry& registry = Fwk::Registry::instance();
  EXPECT_EQ(registry.call(*t.table, "candidates", {textOf(key(3, 5))}, Fwk::Scope()),
            "{bank 0 bucket 5 slot 0 width 1: id 5; bank 1 bucket 3 slot 0 width 1: id 11}");
  EXPECT_EQ(registry.call(*t.table, "slotOfId", {EntryId(11).text()}, Fwk::Scope()),
            "bank 1 bucket 3 slot 0 width 1: id 11");
}

TEST(SingleWidthSlotOfId, IsTheInverseOfCalcEntryIdInBothLayouts) {
  for (bool bucketSpanBanks : {false, true}) {
    Tables t = makeTable(3, 8, 4, 1, bucketSpanBanks);
    for (U32 b = 0; b < 3; ++b) {
      for (U32 k = 0; k < 8; ++k) {
        for (U32 s = 0; s < 4; ++s) {
          const EntryId id = t.table->entryIdOf(b, k, SlotId(static_cast<U8>(s)));
          EXPECT_EQ(t.table->slotOfId(id), (Candidate{b, k, s, 1, id})) << bucketSpanBanks << ' ' << id;
        }
      }
    }
  }
}

TEST(SingleWidthSlotOfId, NamesABankPastTheTableForAnIdPastItsCapacity) {
  Tables t = makeTable(2, 8, 2, 1);
  EXPECT_EQ(t.table->slotOfId(EntryId(32)).bank, 2u);
}

}  // namespace
}  // namespace TesselCentral::test
