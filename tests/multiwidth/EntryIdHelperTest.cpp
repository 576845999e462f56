// EntryIdHelper: translation between positions and EntryIds, the questions about an id,
// the rule for a requested id and the claiming of its position.
#include <gtest/gtest.h>

#include "MultiHashTable/fwk/Registry.h"
#include "MultiWidthSupport.h"
#include "TestSupport.h"

namespace TesselCentral {
namespace {

using test::assertionFailure;
using test::BankArgs;
using test::dbl;
using test::key;
using test::levelBit;
using test::MultiWidthTable;
using test::quad;
using test::single;
using test::TraceCapture;
using test::twoBanks;

// Two banks of 16 buckets of 8 slots, bank 0 hashing crc32 and bank 1 crc16.
MultiWidthTable eightSlotTable() { return MultiWidthTable(8, 2, twoBanks(8)); }

std::vector<U32> validIds(EntryIdHelper& helper, const HashEntryKey& k, U32 upTo) {
  std::vector<U32> ids;
  for (U32 id = 0; id <= upTo; ++id) {
    if (helper.checkEntryIdValidity(k, EntryId(id))) ids.push_back(id);
  }
  return ids;
}

std::vector<U32> range(U32 first, U32 last) {
  std::vector<U32> ids;
  for (U32 id = first; id <= last; ++id) ids.push_back(id);
  return ids;
}

std::vector<U32> concat(std::vector<U32> a, const std::vector<U32>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// ---------------------------------------------------------------------------------------
// Creation

TEST(EntryIdHelper, TheHelperHoldsItsTableAndStartsWithOneReference) {
  MultiWidthTable t(4, 2, twoBanks(4));
  auto helper = EntryIdHelper::EntryIdHelperIs(t.table);
  EXPECT_EQ(helper->hashTable(), t.table);
  EXPECT_EQ(helper->references(), 1u);
  EXPECT_EQ(t.table->references(), 3u);  // the test, the table's own helper, this helper
}

TEST(EntryIdHelper, TheFactoryRecordsItsAllocationUnderTheHelpersType) {
  MultiWidthTable t(4, 2, twoBanks(4));
  const Fwk::TypeInfo* type = EntryIdHelper::EntryIdHelperIs(t.table)->fwkType();
  ASSERT_NE(type, nullptr);
  EXPECT_EQ(type->name(), "TesselCentral::EntryIdHelper");
  const std::uint64_t before = type->allocations();
  auto first = entryIdHelperFactory(t.table);
  auto second = EntryIdHelper::EntryIdHelperIs(t.table);
  EXPECT_EQ(type->allocations(), before + 2);
}

// ---------------------------------------------------------------------------------------
// posToEntryId

TEST(EntryIdHelper, PosToEntryIdInBankZeroIsBucketTimesNumBucketEntriesPlusSlot) {
  MultiWidthTable t(4, 2, twoBanks(4));
  EXPECT_EQ(t.helper().posToEntryId(packPosition(0, 5, 3)), EntryId(23));
  EXPECT_EQ(t.helper().posToEntryId(packPosition(0, 0, 0)), EntryId(0));
}

TEST(EntryIdHelper, PosToEntryIdInBankTwoAddsTheSlotCountsOfBanksZeroAndOne) {
  std::vector<BankArgs> banks = twoBanks(4);
  banks[1].numBuckets = 8;
  banks.push_back(banks[0]);
  MultiWidthTable t(4, 2, banks);
  // Bank 0 has 16 x 4 slots, bank 1 has 8 x 4: bank 2 starts at 96.
  EXPECT_EQ(t.helper().posToEntryId(packPosition(2, 3, 1)), EntryId(96 + 12 + 1));
}

TEST(EntryIdHelper, Bank1Bucket3Slot5Of16By8BanksIsId157) {
  MultiWidthTable t = eightSlotTable();
  TraceCapture trace(levelBit(2));
  EXPECT_EQ(t.helper().posToEntryId(packPosition(1, 3, 5)), EntryId(157));
  EXPECT_EQ(trace.texts(2), std::vector<std::string>{"posToEntryId Bank 1, Bucket 3, Slot 5, EntryId 157"});
}

TEST(EntryIdHelper, TheBucketTermUsesTheTablesNumBucketEntriesAndTheBaseEachBanksOwnSize) {
  MultiWidthTable t(4, 2, twoBanks(2));
  // Bank 0 has 16 x 2 slots; the bucket term counts 4 per bucket.
  EXPECT_EQ(t.helper().posToEntryId(packPosition(1, 3, 1)), EntryId(32 + 12 + 1));
}

TEST(EntryIdHelperDeathTest, PosToEntryIdOfTheInvalidPositionIsFatalUnlessBanks0To254AllExist) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  MultiWidthTable t(4, 2, twoBanks(4));
  EXPECT_DEATH(t.helper().posToEntryId(INVALID_POSITION), assertionFailure("b"));
}

TEST(EntryIdHelper, PosToEntryIdOfTheInvalidPositionWalksBanks0To254) {
  std::vector<BankArgs> banks(255);
  for (U32 i = 0; i < 255; ++i) {
    banks[i].numBuckets = 1;
    banks[i].bucketSize = 1;
  }
  MultiWidthTable t(1, 2, banks);
  // 255 banks of one slot, slot 15, bucket 0xFFFFF of one entry each.
  EXPECT_EQ(t.helper().posToEntryId(INVALID_POSITION), EntryId(255 + 15 + 0xFFFFF));
}

// ---------------------------------------------------------------------------------------
// Queries

TEST(EntryIdHelper, AnIdThatNoKeyHoldsTranslatesToPositionZero) {
  MultiWidthTable t(4, 2, twoBanks(4));
  EXPECT_EQ(t.helper().entryIdToPos(EntryId(77)), 0u);
  EXPECT_EQ(t.helper().getLogicalBankId(EntryId(77)), 0u);
  EXPECT_EQ(t.helper().getBucketId(EntryId(77)), 0u);
  EXPECT_EQ(t.helper().getHashEntryKey(EntryId(77)), HashEntryKey());
}

TEST(EntryIdHelper, QueriesOfAPlacedIdReadTheTable) {
  MultiWidthTable t(4, 2, twoBanks(4, 1, 6));
  const HashEntryKey k = key(5, 3, dbl);
  t.place(k, 64 + 22);  // bank 1, bucket 5, slot 2
  ASSERT_EQ(t.statusOf(k), 86u);
  EntryIdHelper& h = t.helper();
  EXPECT_EQ(h.entryIdToPos(EntryId(86)), 0x01000052u);
  EXPECT_EQ(h.getHashEntryKey(EntryId(86)), k);
  EXPECT_EQ(h.getLogicalBankId(EntryId(86)), 1u);
  EXPECT_EQ(h.getPhysicalBankId(EntryId(86)), 6u);
  EXPECT_EQ(h.getBucketId(EntryId(86)), 5u);
  EXPECT_EQ(h.getBucketState(EntryId(86)), 0x2200000Cu);
}

TEST(EntryIdHelper, TheHardwarePositionOfAnIdInLogicalBank1WithPhysicalBank6Has6InItsTopByte) {
  MultiWidthTable t(4, 2, twoBanks(4, 1, 6));
  const HashEntryKey k = key(5, 3, single);
  t.place(k, 64 + 21);
  const U32 pos = t.helper().entryIdToPos(EntryId(85));
  ASSERT_EQ(pos, 0x01000051u);
  EXPECT_EQ(t.helper().getHwPosition(EntryId(85)), 0x06000051u);
  EXPECT_EQ(t.helper().getHwPosition(EntryId(85)) & 0xFFFFFF, pos & 0xFFFFFF);
}

TEST(EntryIdHelper, GetBucketIdOf42TracesItselfThenEntryIdToPos) {
  MultiWidthTable t(4, 2, twoBanks(4));
  TraceCapture trace(levelBit(2));
  t.helper().getBucketId(EntryId(42));
  EXPECT_EQ(trace.texts(2), (std::vector<std::string>{"getBucketId, entryId: 42", "entryIdToPos, entryId: 42"}));
}

TEST(EntryIdHelper, GetHwPositionReadsThePositionFirstThenThePhysicalBank) {
  MultiWidthTable t(4, 2, twoBanks(4));
  TraceCapture trace(levelBit(2));
  t.helper().getHwPosition(EntryId(9));
  EXPECT_EQ(trace.texts(2), (std::vector<std::string>{"getHwPosition, entryId: 9", "entryIdToPos, entryId: 9",
                                                      "getPhysicalBankId, entryId: 9", "getLogicalBankId, entryId: 9",
                                                      "entryIdToPos, entryId: 9"}));
}

TEST(EntryIdHelper, GetBucketStateReadsTheBucketFirstThenTheLogicalBank) {
  MultiWidthTable t(4, 2, twoBanks(4));
  TraceCapture trace(levelBit(2));
  EXPECT_EQ(t.helper().getBucketState(EntryId(9)), 0u);
  EXPECT_EQ(trace.texts(2), (std::vector<std::string>{"getBucketState, entryId: 9", "getBucketId, entryId: 9",
                                                      "entryIdToPos, entryId: 9", "getLogicalBankId, entryId: 9",
                                                      "entryIdToPos, entryId: 9"}));
}

TEST(EntryIdHelper, GetHashEntryKeyTracesItsId) {
  MultiWidthTable t(4, 2, twoBanks(4));
  TraceCapture trace(levelBit(2));
  t.helper().getHashEntryKey(EntryId(4294967295u));
  EXPECT_EQ(trace.texts(2), std::vector<std::string>{"getHashEntryKey, entryId: 4294967295"});
}

class FixedPositionHelper : public EntryIdHelper {
 public:
  using EntryIdHelper::EntryIdHelper;
  U32 entryIdToPos(EntryId) override { return packPosition(1, 0x21, 3); }
};

TEST(EntryIdHelper, ADerivedEntryIdToPosChangesTheLogicalBankAndTheBucket) {
  MultiWidthTable t(4, 2, twoBanks(4, 1, 6));
  auto helper = Fwk::makeEntity<FixedPositionHelper>(t.table);
  EXPECT_EQ(helper->getLogicalBankId(EntryId(0)), 1u);
  EXPECT_EQ(helper->getBucketId(EntryId(0)), 0x21u);
  EXPECT_EQ(helper->getHwPosition(EntryId(0)), 0x06000213u);
}

TEST(EntryIdHelperDeathTest, GetPhysicalBankIdOfAMissingBankIsFatal) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  MultiWidthTable t(4, 2, twoBanks(4));
  t.table->bankDel(0);
  EXPECT_DEATH(t.helper().getPhysicalBankId(EntryId(5)), assertionFailure("b"));
  EXPECT_DEATH(t.helper().getBucketState(EntryId(5)), assertionFailure("b"));
}

// ---------------------------------------------------------------------------------------
// checkEntryIdValidity and setEntryState

TEST(EntryIdHelper, AKeyHashingToBucket5OfBank0Accepts40To48AndId48LandsOnTheSlotOfId40) {
  MultiWidthTable t = eightSlotTable();
  const HashEntryKey k = key(9, 5, single);  // bank 1: bucket 9, ids 200 to 208
  EXPECT_EQ(validIds(t.helper(), k, 300), concat(range(40, 48), range(200, 208)));
  EXPECT_EQ(t.helper().setEntryState(k, EntryId(48)), 0x00000050u);
  EXPECT_EQ(t.table->posToKey(0x50), k);
  EXPECT_EQ(t.table->keyToPos(k), 0x50u);
  EXPECT_EQ(t.bank(0).bucket(5), 0x00010001u);
  // setEntryState leaves the id's records to its caller.
  EXPECT_FALSE(t.table->hashTableEntryHas(EntryId(48)));
  EXPECT_FALSE(t.status->statusHas(k));
}

TEST(EntryIdHelper, TheSameKeyHashingToBucket5OfBank1Accepts168To176) {
  MultiWidthTable t = eightSlotTable();
  const HashEntryKey k = key(5, 5, single);
  EXPECT_EQ(validIds(t.helper(), k, 300), concat(range(40, 48), range(168, 176)));
  EXPECT_EQ(t.helper().setEntryState(k, EntryId(176)), 0x01000050u);
  EXPECT_EQ(t.bank(1).bucket(5), 0x00010001u);
}

TEST(EntryIdHelper, QuadWideKeysAcceptTheFirstThreeIdsOfTheBucketEvenUnaligned) {
  MultiWidthTable t = eightSlotTable();
  const HashEntryKey k = key(9, 5, quad);
  EXPECT_EQ(validIds(t.helper(), k, 300), concat(range(40, 42), range(200, 202)));
}

TEST(EntryIdHelper, ABucketPastTheBanksEndTakesTheNextBanksFirstIdsForTheLowerBank) {
  MultiWidthTable t = eightSlotTable();
  t.bank(0).numBucketsToCheckIs(single, 2);
  const HashEntryKey k = key(0, 15, single);  // bank 0: buckets 15 and 16; bank 1: bucket 0 (ids 128 to 136)
  EXPECT_EQ(validIds(t.helper(), k, 300), range(120, 136));
  // Id 130 is bucket 0 of bank 1 too; bank 0 comes first and names its bucket 16.
  EXPECT_EQ(t.helper().setEntryState(k, EntryId(130)), 0x00000102u);
  EXPECT_EQ(t.bank(0).bucket(16), 0x01000004u);
  EXPECT_FALSE(t.bank(1).bucketHas(0));
}

TEST(EntryIdHelper, CandidatePositionNamesWhatSetEntryStateWouldTakeAndChangesNothing) {
  MultiWidthTable t = eightSlotTable();
  const HashEntryKey k = key(9, 5, single);
  EXPECT_EQ(t.helper().candidatePosition(k, EntryId(48)), 0x00000050u);
  EXPECT_EQ(t.helper().candidatePosition(k, EntryId(203)), 0x01000093u);
  EXPECT_EQ(t.helper().candidatePosition(k, EntryId(49)), INVALID_POSITION);
  EXPECT_TRUE(t.table->posToKeyCollection().empty());
  EXPECT_TRUE(t.bank(0).bucketCollection().empty());
  EXPECT_EQ(t.helper().setEntryState(k, EntryId(203)), 0x01000093u);
}

TEST(EntryIdHelper, AKeyWhoseTypeHasNoNumBucketsToCheckRowIsNeverValid) {
  MultiWidthTable t = eightSlotTable();
  const HashEntryKey k = key(5, 5, static_cast<HashEntryType>(3));
  EXPECT_TRUE(validIds(t.helper(), k, 300).empty());
  EXPECT_EQ(t.helper().setEntryState(k, EntryId(40)), INVALID_POSITION);
}

TEST(EntryIdHelper, WithNoBanksEveryIdIsInvalidAndSetEntryStateReturnsTheInvalidPosition) {
  MultiWidthTable t(8, 2, {});
  EXPECT_TRUE(validIds(t.helper(), key(5, 5, single), 300).empty());
  EXPECT_EQ(t.helper().setEntryState(key(5, 5, single), EntryId(0)), 0xFFFFFFFFu);
  EXPECT_TRUE(t.table->posToKeyCollection().empty());
}

TEST(EntryIdHelper, CheckEntryIdValidityChangesNothing) {
  MultiWidthTable t = eightSlotTable();
  EXPECT_TRUE(t.helper().checkEntryIdValidity(key(5, 5, single), EntryId(41)));
  EXPECT_TRUE(t.table->posToKeyCollection().empty());
  EXPECT_TRUE(t.bank(0).bucketCollection().empty());
}

TEST(EntryIdHelper, CheckEntryIdValidityLooksNeitherAtOccupancyNorAtAlignment) {
  MultiWidthTable t = eightSlotTable();
  ASSERT_EQ(t.helper().setEntryState(key(9, 5, single), EntryId(41)), 0x51u);
  EXPECT_TRUE(t.helper().checkEntryIdValidity(key(7, 5, single), EntryId(41)));
  EXPECT_TRUE(t.helper().checkEntryIdValidity(key(7, 5, dbl), EntryId(41)));
}

TEST(EntryIdHelperDeathTest, SetEntryStateForAPlacedKeyFailsEvenWithItsCurrentId) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  MultiWidthTable t = eightSlotTable();
  const HashEntryKey k = key(9, 5, single);
  ASSERT_EQ(t.helper().setEntryState(k, EntryId(41)), 0x51u);
  EXPECT_DEATH(t.helper().setEntryState(k, EntryId(41)), assertionFailure("!hashTable()->posToKeyHas( pos )"));
  EXPECT_DEATH(t.helper().setEntryState(k, EntryId(42)), assertionFailure("!hashTable()->keyToPosHas( key )"));
}

TEST(EntryIdHelperDeathTest, SetEntryStateOfAnotherKeyAtAnOccupiedPositionFails) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  MultiWidthTable t = eightSlotTable();
  ASSERT_EQ(t.helper().setEntryState(key(9, 5, single), EntryId(48)), 0x50u);
  EXPECT_DEATH(t.helper().setEntryState(key(7, 5, single), EntryId(40)),
               assertionFailure("!hashTable()->posToKeyHas( pos )"));
}

TEST(EntryIdHelperDeathTest, SetEntryStateOfAWideEntryOverlappingAnotherFailsInTheBank) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  MultiWidthTable t(4, 2, twoBanks(4));
  ASSERT_EQ(t.helper().setEntryState(key(9, 5, dbl), EntryId(20)), 0x50u);
  EXPECT_DEATH(t.helper().setEntryState(key(7, 5, single), EntryId(21)),
               assertionFailure("\"!( bktState & mask )\" == nullptr"));
}

TEST(EntryIdHelperDeathTest, AMissingEntrySizeIsFatal) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  MultiWidthTable t = eightSlotTable();
  t.bank(0).entrySizeDel(single);
  EXPECT_DEATH(t.helper().checkEntryIdValidity(key(5, 5, single), EntryId(40)), assertionFailure("width"));
}

}  // namespace
}  // namespace TesselCentral
