// Removal, placement at a requested id and the id validity test of the single-width
// table.
//
// The tables have 16 buckets per bank; bank 0 hashes the low bits of crc32 and bank 1
// the low bits of crc16 (bank 2 crc32 again, bank 3 crc16 again).
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "MultiHashTable/MultiHashTable.h"
#include "SingleWidthSupport.h"
#include "TestSupport.h"

namespace TesselCentral {
namespace {

using test::assertionFailure;
using test::ChangeRecorder;
using test::key;
using test::levelBit;
using test::makeTable;
using test::Tables;
using test::textOf;
using test::TraceCapture;

// ---------------------------------------------------------------------------------------
// checkEntryIdValidity

TEST(SingleWidthValidity, IdEqualToTheCapacityIsNotValid) {
  Tables s = makeTable(3, 16, 2, 1);
  EXPECT_EQ(s.table->tableCapacity(), 96u);
  EXPECT_FALSE(s.table->checkEntryIdValidity(key(0, 0), EntryId(96)));
  EXPECT_FALSE(s.table->checkEntryIdValidity(key(0, 0), EntryId()));
}

TEST(SingleWidthValidity, SlotZeroOfTheKeysBucketInTheLastBankIsValid) {
  Tables s = makeTable(3, 16, 2, 1);
  // bank 2 hashes crc32: bucket 5, slot 0 is (2 * 16 + 5) * 2.
  EXPECT_TRUE(s.table->checkEntryIdValidity(key(9, 5), EntryId(74)));
  EXPECT_TRUE(s.table->checkEntryIdValidity(key(9, 5), EntryId(75)));
  EXPECT_FALSE(s.table->checkEntryIdValidity(key(9, 5), EntryId(76)));
}

TEST(SingleWidthValidity, EveryCandidateOfEveryBankIsValidAndNothingElse) {
  Tables s = makeTable(2, 16, 2, 1, true);
  const HashEntryKey k = key(9, 5);
  // bucket-major: bank 0 bucket 5 -> (5 * 2 + 0) * 2 = 20, 21; bank 1 bucket 9 -> (9 * 2 + 1) * 2 = 38, 39.
  for (U32 id = 0; id < s.table->tableCapacity(); ++id) {
    const bool expected = id == 20 || id == 21 || id == 38 || id == 39;
    EXPECT_EQ(s.table->checkEntryIdValidity(k, EntryId(id)), expected) << id;
  }
}

TEST(SingleWidthValidity, OccupiedCandidatesAreStillValid) {
  Tables s = makeTable(2, 16, 1, 1);
  s.request(key(1, 5));
  ASSERT_EQ(s.at(key(1, 5)), EntryId(5));
  EXPECT_TRUE(s.table->checkEntryIdValidity(key(9, 5), EntryId(5)));
}

TEST(SingleWidthValidity, NoIdIsValidWithoutBanks) {
  Tables s = makeTable(0, 16, 1, 1);
  EXPECT_FALSE(s.table->checkEntryIdValidity(key(0, 0), EntryId(0)));
}

// ---------------------------------------------------------------------------------------
// insertEntryWithId

TEST(SingleWidthInsertWithId, FreeCandidatePositionSetsTheStatusAndCountsOneInsertion) {
  Tables s = makeTable(2, 16, 1, 1);
  const HashEntryKey k = key(9, 5);
  ChangeRecorder recorder(*s.status);
  s.requestAt(k, 25);
  EXPECT_EQ(s.at(k), EntryId(25));
  EXPECT_EQ(s.table->hashTableEntry(EntryId(25)), k);
  EXPECT_EQ(s.table->numInsertions(), 1u);
  ASSERT_EQ(recorder.changes.size(), 1u);
  EXPECT_FALSE(recorder.changes[0].hadPrevious);
  EXPECT_EQ(recorder.changes[0].current, EntryId(25));
}

TEST(SingleWidthInsertWithId, PlacementByIdIsTracedAtLevelTwo) {
  Tables s = makeTable(2, 16, 1, 1);
  const HashEntryKey k = key(9, 5);
  TraceCapture capture(levelBit(2));
  s.table->insertEntryWithId(k, EntryId(25));
  ASSERT_FALSE(capture.texts(2).empty());
  EXPECT_EQ(capture.texts(2)[0], "insertEntryWithId Insert key: " + textOf(k) + " eId: 25");
  EXPECT_EQ(capture.sink().lines()[0].function, "insertEntryWithId");
}

TEST(SingleWidthInsertWithId, TwiceAtTheSameIdCountsTwoInsertionsAndPublishesOnce) {
  Tables s = makeTable(2, 16, 1, 1);
  const HashEntryKey k = key(9, 5);
  ChangeRecorder recorder(*s.status);
  s.table->insertEntryWithId(k, EntryId(5));
  s.table->insertEntryWithId(k, EntryId(5));
  EXPECT_EQ(s.table->numInsertions(), 2u);
  EXPECT_EQ(recorder.changes.size(), 1u);
  EXPECT_EQ(s.at(k), EntryId(5));
  EXPECT_EQ(s.table->hashTableEntryCollection().size(), 1u);
}

TEST(SingleWidthInsertWithId, KeyAlreadyPlacedElsewhereLeavesItsOldPositionOccupied) {
  Tables s = makeTable(2, 16, 1, 1);
  const HashEntryKey k = key(9, 5);
  s.request(k);
  ASSERT_EQ(s.at(k), EntryId(5));
  s.requestAt(k, 25);
  EXPECT_EQ(s.at(k), EntryId(25));
  EXPECT_EQ(s.table->hashTableEntry(EntryId(5)), k);
  EXPECT_EQ(s.table->hashTableEntry(EntryId(25)), k);
  EXPECT_EQ(s.table->numInsertions(), 2u);

  // Deleting the request frees only the position that the status names.
  s.config->configDel(k);
  EXPECT_FALSE(s.status->statusHas(k));
  EXPECT_FALSE(s.table->hashTableEntryHas(EntryId(25)));
  EXPECT_EQ(s.table->hashTableEntry(EntryId(5)), k);
  EXPECT_EQ(s.table->numDeletions(), 1u);
}

TEST(SingleWidthInsertWithId, IdHeldByAKeyWithTheSameHashesIsTakenOver) {
  Tables s = makeTable(2, 16, 1, 1);
  const HashEntryKey first = key(9, 5, 1);
  const HashEntryKey second = key(9, 5, 2);
  s.request(first);
  ASSERT_EQ(s.at(first), EntryId(5));
  s.requestAt(second, 5);
  EXPECT_EQ(s.at(second), EntryId(5));
  EXPECT_EQ(s.at(first), EntryId(5));
  EXPECT_EQ(s.table->hashTableEntry(EntryId(5)), second);
  EXPECT_EQ(s.table->numInsertions(), 2u);
}

TEST(SingleWidthInsertWithId, IdHeldByTheDefaultKeyMarkerCountsAsFree) {
  Tables s = makeTable(2, 16, 1, 1);
  s.request(HashEntryKey());  // stands at 0
  ASSERT_EQ(s.at(HashEntryKey()), EntryId(0));
  s.requestAt(key(3, 16), 0);
  EXPECT_EQ(s.table->hashTableEntry(EntryId(0)), key(3, 16));
}

TEST(SingleWidthInsertWithId, RequestForTheIdThatTheStatusHoldsChangesNothing) {
  Tables s = makeTable(2, 16, 1, 1);
  const HashEntryKey k = key(9, 5);
  s.request(k);
  ASSERT_EQ(s.at(k), EntryId(5));
  s.requestAt(k, 5);  // C = R
  EXPECT_EQ(s.table->numInsertions(), 1u);
  EXPECT_EQ(s.at(k), EntryId(5));
}

TEST(SingleWidthInsertWithIdDeathTest, IdThatIsNotACandidateFailsTheValidityAssertion) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  Tables s = makeTable(2, 16, 1, 1);
  EXPECT_DEATH(s.requestAt(key(9, 5), 6), assertionFailure("checkEntryIdValidity( key, eId )"));
}

TEST(SingleWidthInsertWithIdDeathTest, IdAtTheCapacityFailsTheValidityAssertion) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  Tables s = makeTable(2, 16, 1, 1);
  EXPECT_DEATH(s.table->insertEntryWithId(key(9, 5), EntryId(32)),
               assertionFailure("checkEntryIdValidity( key, eId )"));
}

TEST(SingleWidthInsertWithIdDeathTest, IdHeldByAKeyWithOtherHashesFailsTheAssertionFalse) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  Tables s = makeTable(2, 16, 1, 1);
  s.request(key(1, 5));
  ASSERT_EQ(s.at(key(1, 5)), EntryId(5));
  EXPECT_DEATH(s.requestAt(key(9, 5), 5), assertionFailure("false"));
}

TEST(SingleWidthInsertWithIdDeathTest, IdHeldByAKeyWithTheSameCrc16OnlyFailsTheAssertionFalse) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  Tables s = makeTable(2, 16, 1, 1);
  s.requestAt(key(9, 5), 25);
  // key(9, 21) hashes to bucket 5 of bank 0 and bucket 9 of bank 1 too.
  EXPECT_DEATH(s.requestAt(key(9, 21), 25), assertionFailure("false"));
}

// ---------------------------------------------------------------------------------------
// removeEntry

TEST(SingleWidthRemove, DeletingARequestFreesItsPositionAndRemovesItsStatus) {
  Tables s = makeTable(2, 16, 1, 1);
  const HashEntryKey k = key(9, 5);
  s.request(k);
  ChangeRecorder recorder(*s.status);
  s.config->configDel(k);
  EXPECT_FALSE(s.status->statusHas(k));
  EXPECT_FALSE(s.table->hashTableEntryHas(EntryId(5)));
  EXPECT_EQ(s.table->numDeletions(), 1u);
  EXPECT_EQ(s.table->numInsertions(), 1u);
  ASSERT_EQ(recorder.changes.size(), 1u);
  EXPECT_FALSE(recorder.changes[0].present);
  EXPECT_EQ(recorder.changes[0].previous, EntryId(5));
}

TEST(SingleWidthRemove, KeyWhoseStatusIsInvalidLosesItsStatusWithoutADeletion) {
  Tables s = makeTable(1, 16, 1, 1);
  s.request(key(1, 5));
  s.request(key(2, 5));
  ASSERT_EQ(s.at(key(2, 5)), EntryId());
  ChangeRecorder recorder(*s.status);
  TraceCapture capture(levelBit(1));
  s.config->configDel(key(2, 5));
  EXPECT_FALSE(s.status->statusHas(key(2, 5)));
  EXPECT_EQ(s.table->numDeletions(), 0u);
  EXPECT_EQ(s.table->hashTableEntry(EntryId(5)), key(1, 5));
  EXPECT_EQ(recorder.changes.size(), 1u);
  EXPECT_EQ(capture.texts(1), (std::vector<std::string>{
                                  "MultiHashTableBase::handleHashUpdate key: " + textOf(key(2, 5)),
                                  "removeEntry Key: " + textOf(key(2, 5)),
                                  "removeEntry entryId: 4294967295",
                              }));
}

TEST(SingleWidthRemove, FreedPositionIsFoundFreeByTheNextKeyThatHashesToIt) {
  Tables s = makeTable(1, 16, 1, 1);
  s.request(key(1, 5));
  s.config->configDel(key(1, 5));
  s.request(key(2, 21));  // bucket 5 too
  EXPECT_EQ(s.at(key(2, 21)), EntryId(5));
  EXPECT_EQ(s.table->hashTableEntry(EntryId(5)), key(2, 21));
  EXPECT_EQ(s.table->numInsertions(), 2u);
  EXPECT_EQ(s.table->numDeletions(), 1u);
}

TEST(SingleWidthRemove, RemovingAnUnknownKeyChangesNothing) {
  Tables s = makeTable(2, 16, 1, 1);
  s.request(key(1, 5));
  ChangeRecorder recorder(*s.status);
  s.table->removeEntry(key(7, 7));
  EXPECT_TRUE(recorder.changes.empty());
  EXPECT_EQ(s.table->numDeletions(), 0u);
  EXPECT_EQ(s.table->hashTableEntryCollection().size(), 1u);
}

TEST(SingleWidthRemove, PositionIsFreedWhoeverHoldsIt) {
  Tables s = makeTable(2, 16, 1, 1);
  const HashEntryKey first = key(9, 5, 1);
  const HashEntryKey second = key(9, 5, 2);
  s.request(first);
  s.request(second);  // reported at the first key's id
  ASSERT_EQ(s.at(second), EntryId(5));

  s.config->configDel(second);
  EXPECT_FALSE(s.table->hashTableEntryHas(EntryId(5)));
  EXPECT_EQ(s.table->numDeletions(), 1u);
  EXPECT_EQ(s.at(first), EntryId(5));  // the first key's status is not touched

  s.config->configDel(first);
  EXPECT_FALSE(s.status->statusHas(first));
  EXPECT_EQ(s.table->numDeletions(), 1u);  // nothing left to free at 5
}

TEST(SingleWidthRemove, DeletingAllRequestsFreesEveryPositionAndEveryStatus) {
  Tables s = makeTable(2, 16, 1, 1);
  s.request(key(1, 5));   // 5
  s.request(key(1, 21));  // 5 taken: 17
  s.request(key(1, 37));  // 5 and 17 taken, neither occupant can move: invalid status
  ASSERT_EQ(s.at(key(1, 21)), EntryId(17));
  ASSERT_EQ(s.at(key(1, 37)), EntryId());
  s.config->configDelAll();
  EXPECT_TRUE(s.config->configCollection().empty());
  EXPECT_TRUE(s.status->statusCollection().empty());
  EXPECT_TRUE(s.table->hashTableEntryCollection().empty());
  EXPECT_EQ(s.table->numDeletions(), 2u);
}

TEST(SingleWidthRemove, MovedKeyIsRemovedFromItsNewPosition) {
  Tables s = makeTable(2, 16, 1, 1);
  const HashEntryKey a = key(5, 3);
  const HashEntryKey b = key(9, 11);
  const HashEntryKey k = key(9, 3);
  s.request(a);
  s.requestAt(b, 25);
  s.request(k);
  ASSERT_EQ(s.at(a), EntryId(21));
  s.config->configDel(a);
  EXPECT_FALSE(s.table->hashTableEntryHas(EntryId(21)));
  EXPECT_EQ(s.table->hashTableEntry(EntryId(3)), k);
  EXPECT_EQ(s.table->numDeletions(), 1u);
}

}  // namespace
}  // namespace TesselCentral
