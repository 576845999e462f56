// Multi-width removal and placement at a requested EntryId.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "MultiWidthSupport.h"
#include "TestSupport.h"

namespace TesselCentral {
namespace {

using test::assertionFailure;
using test::BankArgs;
using test::dbl;
using test::invariantViolations;
using test::key;
using test::levelBit;
using test::MultiWidthTable;
using test::quad;
using test::single;
using test::TraceCapture;
using test::twoBanks;

std::string text(const HashEntryKey& k) {
  std::ostringstream os;
  os << k;
  return os.str();
}

// ---------------------------------------------------------------------------------------
// removeEntry

TEST(MultiEntryTypeRemove, RemovingAFailedKeyDeletesItsStatusAndLeavesNumDeletionsUnchanged) {
  MultiWidthTable t(1, 0, twoBanks(1));
  t.place(key(9, 3, single), 3);
  t.place(key(5, 8, single), 21);
  const HashEntryKey k = key(5, 3, single);
  t.request(k);
  ASSERT_EQ(t.statusOf(k), 0xFFFFFFFFu);
  TraceCapture trace(levelBit(1));
  t.config->configDel(k);
  EXPECT_FALSE(t.status->statusHas(k));
  EXPECT_EQ(t.table->numDeletions(), 0u);
  EXPECT_EQ(trace.texts(1),
            (std::vector<std::string>{"MultiHashTableBase::handleHashUpdate key: " + text(k),
                                      "MultiEntryTypeHashTable::removeEntry Key: " + text(k),
                                      "removeEntry Invalid entryId found in status. Just clear status "}));
  EXPECT_TRUE(invariantViolations(t).empty());
}

TEST(MultiEntryTypeRemove, RemovingAPlacedKeyClearsItsSlotsMapsIdAndStatusAndCountsOneDeletion) {
  MultiWidthTable t(4, 2, twoBanks(4));
  const HashEntryKey other = key(5, 3, single);
  const HashEntryKey k = key(5, 3, dbl);
  t.request(other);
  t.request(k);
  ASSERT_EQ(t.table->keyToPos(k), 0x32u);
  ASSERT_EQ(t.bank(0).bucket(3), 0x2201000Du);
  TraceCapture trace(levelBit(1));
  t.config->configDel(k);
  EXPECT_EQ(t.bank(0).bucket(3), 0x00010001u);
  EXPECT_FALSE(t.table->keyToPosHas(k));
  EXPECT_FALSE(t.table->posToKeyHas(0x32));
  EXPECT_FALSE(t.table->hashTableEntryHas(EntryId(14)));
  EXPECT_FALSE(t.status->statusHas(k));
  EXPECT_EQ(t.table->numDeletions(), 1u);
  EXPECT_EQ(trace.texts(1), (std::vector<std::string>{"MultiHashTableBase::handleHashUpdate key: " + text(k),
                                                      "MultiEntryTypeHashTable::removeEntry Key: " + text(k),
                                                      "removeEntry entryId: 14"}));
  EXPECT_TRUE(invariantViolations(t).empty());
}

TEST(MultiEntryTypeRemove, RemovingTheLastEntryOfABucketDeletesTheBucketsState) {
  MultiWidthTable t(4, 2, twoBanks(4));
  const HashEntryKey k = key(5, 3, quad);
  t.request(k);
  ASSERT_EQ(t.bank(0).bucket(3), 0x4444000Fu);
  t.config->configDel(k);
  EXPECT_FALSE(t.bank(0).bucketHas(3));
}

TEST(MultiEntryTypeRemove, RemovingAKeyWithoutStatusOrPositionDoesNothing) {
  MultiWidthTable t(4, 2, twoBanks(4));
  t.table->removeEntry(key(5, 3, single));
  EXPECT_EQ(t.table->numDeletions(), 0u);
}

TEST(MultiEntryTypeRemove, RemovingAKeyWithAValidStatusButNoPositionWorksOnPositionZero) {
  MultiWidthTable t(4, 2, twoBanks(4));
  const HashEntryKey z = key(7, 0x10, single);  // bank 0 bucket 0; physical bank 1, so slot 0 is ordinary
  const HashEntryKey k = key(5, 3, single);
  t.request(z);
  t.request(k);
  ASSERT_EQ(t.table->keyToPos(z), 0u);
  ASSERT_EQ(t.table->keyToPos(k), 0x30u);
  t.table->keyToPosDel(k);
  t.config->configDel(k);
  EXPECT_FALSE(t.table->posToKeyHas(0));
  EXPECT_FALSE(t.bank(0).bucketHas(0));
  EXPECT_EQ(t.table->numDeletions(), 1u);
  EXPECT_FALSE(t.status->statusHas(k));
  EXPECT_FALSE(t.table->hashTableEntryHas(EntryId(12)));
  // k's own slot was not touched, and z keeps its map entry and status.
  EXPECT_EQ(t.bank(0).bucket(3), 0x00010001u);
  EXPECT_EQ(t.table->posToKey(0x30), k);
  EXPECT_EQ(t.table->keyToPos(z), 0u);
  EXPECT_EQ(t.statusOf(z), 0u);
}

TEST(MultiEntryTypeRemoveDeathTest, RemovingAKeyFromKeyToPosThatHasNoStatusFails) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  MultiWidthTable t(4, 2, twoBanks(4));
  t.table->keyToPosIs(key(5, 3, single), 0x30);
  EXPECT_DEATH(t.table->removeEntry(key(5, 3, single)), assertionFailure("!keyToPosHas( key )"));
}

TEST(MultiEntryTypeRemoveDeathTest, RemovingAKeyWhosePositionIsInvalidFails) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  MultiWidthTable t(4, 2, twoBanks(4));
  const HashEntryKey k = key(5, 3, single);
  t.request(k);
  t.table->keyToPosIs(k, INVALID_POSITION);
  EXPECT_DEATH(t.config->configDel(k), assertionFailure("pos != INVALID_POSITION"));
}

TEST(MultiEntryTypeRemoveDeathTest, RemovingAKeyWhoseBankIsMissingFails) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  MultiWidthTable t(4, 2, twoBanks(4));
  const HashEntryKey k = key(5, 3, single);
  t.place(k, 64 + 20);
  t.table->bankDel(1);
  EXPECT_DEATH(t.config->configDel(k), assertionFailure("b"));
}

// ---------------------------------------------------------------------------------------
// insertEntryWithId

TEST(MultiEntryTypeRemove, InsertEntryWithIdPlacesTheKeyAndPublishesTheRequestedId) {
  MultiWidthTable t(4, 2, twoBanks(4));
  const HashEntryKey k = key(5, 3, dbl);
  TraceCapture trace(levelBit(2));
  t.place(k, 14);
  EXPECT_EQ(t.table->keyToPos(k), 0x32u);
  EXPECT_EQ(t.table->posToKey(0x32), k);
  EXPECT_EQ(t.bank(0).bucket(3), 0x2200000Cu);
  EXPECT_EQ(t.table->hashTableEntry(EntryId(14)), k);
  EXPECT_EQ(t.table->numInsertions(), 1u);
  EXPECT_EQ(t.statusOf(k), 14u);
  const auto lines = trace.texts(2);
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.front(), "insertEntryWithId Insert key: " + text(k) + " eId: 14");
  EXPECT_TRUE(invariantViolations(t).empty());
}

TEST(MultiEntryTypeRemove, InsertEntryWithIdForAKeyWhoseStatusIsInvalidPlacesItAndOverwritesTheStatus) {
  MultiWidthTable t(1, 0, twoBanks(1));
  t.place(key(9, 3, single), 3);
  t.place(key(5, 8, single), 21);
  const HashEntryKey k = key(5, 3, single);
  t.request(k);
  ASSERT_EQ(t.statusOf(k), 0xFFFFFFFFu);
  t.config->configDel(key(5, 8, single));
  t.place(k, 21);
  EXPECT_EQ(t.statusOf(k), 21u);
  EXPECT_EQ(t.table->keyToPos(k), 0x01000050u);
  EXPECT_TRUE(invariantViolations(t).empty());
}

TEST(MultiEntryTypeRemove, AnIdAtTheInclusiveUpperEndPlacesAtSlotZeroAndPublishesTheRequestedIdUnchanged) {
  MultiWidthTable t(4, 2, twoBanks(4));
  const HashEntryKey k = key(9, 5, single);  // bank 0 bucket 5: ids 20 to 24
  t.place(k, 24);
  EXPECT_EQ(t.table->keyToPos(k), 0x50u);
  EXPECT_EQ(t.statusOf(k), 24u);
  EXPECT_EQ(t.table->hashTableEntry(EntryId(24)), k);
  EXPECT_EQ(t.helper().posToEntryId(0x50), EntryId(20));
  EXPECT_FALSE(t.table->hashTableEntryHas(EntryId(20)));
  // Removal uses the published id, so nothing is left behind.
  t.config->configDel(k);
  EXPECT_TRUE(t.table->hashTableEntryCollection().empty());
  EXPECT_TRUE(t.bank(0).bucketCollection().empty());
}

TEST(MultiEntryTypeRemove, AStaleHashTableEntryWithTheSameHashesButAnotherFapIdIsSilentlyReplaced) {
  MultiWidthTable t(4, 2, twoBanks(4));
  const HashEntryKey k = key(9, 5, single, 1);
  t.table->hashTableEntryIs(EntryId(21), key(9, 5, dbl, 7));
  t.place(k, 21);
  EXPECT_EQ(t.table->hashTableEntry(EntryId(21)), k);
  EXPECT_EQ(t.statusOf(k), 21u);
}

TEST(MultiEntryTypeRemove, AMissingEntryKeyRecordedForTheIdIsReplacedWithoutComparison) {
  MultiWidthTable t(4, 2, twoBanks(4));
  t.table->hashTableEntryIs(EntryId(21), HashEntryKey());
  t.place(key(9, 5, single), 21);
  EXPECT_EQ(t.table->hashTableEntry(EntryId(21)), key(9, 5, single));
}

TEST(MultiEntryTypeRemoveDeathTest, AStaleHashTableEntryNamingAnotherKeyFails) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  MultiWidthTable t(4, 2, twoBanks(4));
  t.table->hashTableEntryIs(EntryId(21), key(9, 6, single));
  EXPECT_DEATH(t.place(key(9, 5, single), 21), assertionFailure("false"));
}

TEST(MultiEntryTypeRemoveDeathTest, InsertEntryWithIdOfAnAlreadyPlacedKeyFails) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  MultiWidthTable t(4, 2, twoBanks(4));
  const HashEntryKey k = key(9, 5, single);
  t.place(k, 21);
  EXPECT_DEATH(t.place(k, 22), assertionFailure("!hashTable()->keyToPosHas( key )"));
  EXPECT_DEATH(t.table->insertEntryWithId(k, EntryId(21)), assertionFailure("!hashTable()->posToKeyHas( pos )"));
}

TEST(MultiEntryTypeRemoveDeathTest, AnIdThatNoBucketOfTheKeyAdmitsFails) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  MultiWidthTable t(4, 2, twoBanks(4));
  EXPECT_DEATH(t.place(key(9, 5, single), 30), assertionFailure("entryIdHelper()->checkEntryIdValidity( key, eId )"));
}

}  // namespace
}  // namespace TesselCentral
