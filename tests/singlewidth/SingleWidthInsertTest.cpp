// Placement of requests without a wanted id in the single-width table: the free-slot pass,
// the key found in place, and the moves that make room.
//
// Unless said otherwise the tables below have 16 buckets per bank; bank 0 hashes the low
// bits of crc32 and bank 1 the low bits of crc16, so with one slot per bucket and the
// bank-major layout a key's candidates are crc32 & 15 in bank 0 and 16 + (crc16 & 15) in
// bank 1.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "MultiHashTable/MultiHashTable.h"
#include "SingleWidthSupport.h"
#include "TestSupport.h"

namespace TesselCentral {
namespace {

using test::ChangeRecorder;
using test::key;
using test::levelBit;
using test::makeTable;
using test::Tables;
using test::textOf;
using test::TraceCapture;

bool hasTextStartingWith(const std::vector<std::string>& texts, const std::string& prefix) {
  for (const auto& t : texts) {
    if (t.rfind(prefix, 0) == 0) return true;
  }
  return false;
}

// ---------------------------------------------------------------------------------------
// First pass

TEST(SingleWidthInsert, KeyTakesTheFirstFreeSlotOfBankZero) {
  Tables s = makeTable(2, 16, 4, 1);
  s.request(key(9, 3));
  // bank 0, bucket 3, slot 0.
  EXPECT_EQ(s.at(key(9, 3)), EntryId(12));
  EXPECT_EQ(s.table->hashTableEntry(EntryId(12)), key(9, 3));
  EXPECT_EQ(s.table->numInsertions(), 1u);
  EXPECT_EQ(s.table->numMoves(), 0u);
}

TEST(SingleWidthInsert, SlotsOfABucketFillInAscendingOrderBeforeTheNextBank) {
  Tables s = makeTable(2, 16, 2, 1);
  s.request(key(1, 3));
  s.request(key(2, 3));
  s.request(key(3, 3));
  EXPECT_EQ(s.at(key(1, 3)), EntryId(6));
  EXPECT_EQ(s.at(key(2, 3)), EntryId(7));
  // bank 1, bucket 3, slot 0: (16 + 3) * 2.
  EXPECT_EQ(s.at(key(3, 3)), EntryId(38));
}

TEST(SingleWidthInsert, PlacementLineIsReportedUnderInsertEntry) {
  Tables s = makeTable(2, 16, 1, 1);
  TraceCapture capture(levelBit(2));
  s.request(key(9, 3));
  EXPECT_EQ(capture.texts(2), (std::vector<std::string>{
                                  "insertEntry Insert key: " + textOf(key(9, 3)),
                                  "Bank::calcBucketId bucketId: 3",
                                  "calcEntryId Bank 0, Bucket 3, Slot 0, Pos 3",
                                  // A free slot shows the default key.
                                  "insertEntryhashTableEntry( 3 ) "
                                  "TesselCentral::HashEntryKey{crc16=0, crc32=0, fapId=0, entryType=singleWide}",
                                  "insertEntry Insert key: " + textOf(key(9, 3)) + " at eId: 3",
                              }));
  ASSERT_FALSE(capture.sink().lines().empty());
  const auto& last = capture.sink().lines().back();
  EXPECT_EQ(last.text, "insertEntry Insert key: " + textOf(key(9, 3)) + " at eId: 3");
  EXPECT_EQ(last.function, "insertEntry");
}

TEST(SingleWidthInsert, BucketMajorLayoutIsUsedForTheIds) {
  Tables s = makeTable(2, 16, 2, 1, true);
  s.request(key(5, 3));
  s.request(key(5, 19));  // same bank-0 bucket 3
  s.request(key(5, 35));
  EXPECT_EQ(s.at(key(5, 3)), EntryId(12));   // (3 * 2 + 0) * 2
  EXPECT_EQ(s.at(key(5, 19)), EntryId(13));  // slot 1
  EXPECT_EQ(s.at(key(5, 35)), EntryId(22));  // (5 * 2 + 1) * 2
}

TEST(SingleWidthInsert, InsertEntryAlwaysReturnsZero) {
  Tables s = makeTable(1, 4, 1, 0);
  EXPECT_EQ(s.table->insertEntry(key(1, 1), 128, 0), 0u);
  EXPECT_EQ(s.table->insertEntry(key(2, 1), 128, 0), 0u);  // no room
  EXPECT_EQ(s.at(key(2, 1)), EntryId());
  EXPECT_EQ(s.table->insertEntry(key(1, 1), 7, 3), 0u);  // already placed
}

TEST(SingleWidthInsert, OrigBankIdIsIgnored) {
  Tables s = makeTable(2, 16, 1, 1);
  s.table->insertEntry(key(9, 3), 0, 1);
  EXPECT_EQ(s.at(key(9, 3)), EntryId(3));
}

TEST(SingleWidthInsert, KeyWhoseStatusHoldsTheInvalidIdChangesNothingAndTracesOnlyTheOpeningLine) {
  Tables s = makeTable(1, 16, 1, 1);
  s.request(key(1, 3));
  s.request(key(2, 3));
  ASSERT_TRUE(s.status->statusHas(key(2, 3)));
  ASSERT_EQ(s.at(key(2, 3)), EntryId());
  // Even after room is made, the failed key is not tried again.
  s.config->configDel(key(1, 3));
  ChangeRecorder recorder(*s.status);
  const U32 insertions = s.table->numInsertions();

  TraceCapture capture(levelBit(2));
  EXPECT_EQ(s.table->insertEntry(key(2, 3), 128, 1), 0u);
  EXPECT_EQ(capture.texts(), std::vector<std::string>{"insertEntry Insert key: " + textOf(key(2, 3))});
  EXPECT_EQ(capture.sink().lines()[0].function, "insertEntry");
  EXPECT_TRUE(recorder.changes.empty());
  EXPECT_EQ(s.table->numInsertions(), insertions);
  EXPECT_FALSE(s.table->hashTableEntryHas(EntryId(3)));
  EXPECT_EQ(s.at(key(2, 3)), EntryId());
}

TEST(SingleWidthInsert, FailedKeyIsPlacedAgainAfterItsRequestIsDeletedAndAddedAnew) {
  Tables s = makeTable(1, 16, 1, 1);
  s.request(key(1, 3));
  s.request(key(2, 3));
  ASSERT_EQ(s.at(key(2, 3)), EntryId());
  s.config->configDel(key(1, 3));
  s.config->configDel(key(2, 3));
  EXPECT_FALSE(s.status->statusHas(key(2, 3)));
  s.request(key(2, 3));
  EXPECT_EQ(s.at(key(2, 3)), EntryId(3));
}

TEST(SingleWidthInsert, AlreadyPlacedKeyIsFoundInTheFirstPassWithoutPublicationOrCounting) {
  Tables s = makeTable(2, 16, 2, 1);
  s.request(key(7, 3));  // id 6
  s.request(key(8, 3));  // id 7
  ChangeRecorder recorder(*s.status);
  TraceCapture capture(levelBit(2));

  s.table->handleHashUpdate(key(8, 3));
  EXPECT_EQ(s.at(key(8, 3)), EntryId(7));
  EXPECT_TRUE(recorder.changes.empty());
  EXPECT_EQ(s.table->numInsertions(), 2u);
  EXPECT_EQ(s.table->numMoves(), 0u);
  EXPECT_EQ(s.table->hashTableEntryCollection().size(), 2u);
  EXPECT_EQ(capture.texts(2), (std::vector<std::string>{
                                  "insertEntry Insert key: " + textOf(key(8, 3)),
                                  "Bank::calcBucketId bucketId: 3",
                                  "calcEntryId Bank 0, Bucket 3, Slot 0, Pos 6",
                                  "insertEntryhashTableEntry( 6 ) " + textOf(key(7, 3)),
                                  "calcEntryId Bank 0, Bucket 3, Slot 1, Pos 7",
                                  "insertEntryhashTableEntry( 7 ) " + textOf(key(8, 3)),
                                  "insertEntry Found existing key: 7",
                              }));
}

TEST(SingleWidthInsert, AlreadyPlacedKeyTakesAFreeSlotThatComesBeforeItsOwn) {
  Tables s = makeTable(2, 16, 1, 1);
  const HashEntryKey blocker = key(1, 3);
  const HashEntryKey k = key(9, 3);
  s.request(blocker);  // id 3
  s.request(k);        // bank 0 taken: id 25
  ASSERT_EQ(s.at(k), EntryId(25));
  s.config->configDel(blocker);
  ASSERT_FALSE(s.table->hashTableEntryHas(EntryId(3)));

  ChangeRecorder recorder(*s.status);
  s.table->handleHashUpdate(k);
  EXPECT_EQ(s.at(k), EntryId(3));
  EXPECT_EQ(s.table->hashTableEntry(EntryId(3)), k);
  EXPECT_EQ(s.table->hashTableEntry(EntryId(25)), k);  // the old id stays recorded
  EXPECT_EQ(s.table->numInsertions(), 3u);
  EXPECT_EQ(s.table->numDeletions(), 1u);
  ASSERT_EQ(recorder.changes.size(), 1u);
  EXPECT_EQ(recorder.changes[0].previous, EntryId(25));
  EXPECT_EQ(recorder.changes[0].current, EntryId(3));
}

TEST(SingleWidthInsert, InvalidRequestAfterAPlacementById) {
  // The request changes from a valid id to "anywhere": the key is handed to insertEntry,
  // which finds it at its requested id when nothing free comes first.
  Tables s = makeTable(2, 16, 1, 1);
  const HashEntryKey k = key(9, 3);
  s.request(key(1, 3));  // id 3
  s.requestAt(k, 25);    // bank 1
  ChangeRecorder recorder(*s.status);
  s.request(k);
  EXPECT_EQ(s.at(k), EntryId(25));
  EXPECT_TRUE(recorder.changes.empty());
  EXPECT_EQ(s.table->numInsertions(), 2u);
}

TEST(SingleWidthInsert, KeyWithTheSameHashesAsAPlacedKeyIsReportedAtThatKeysId) {
  Tables s = makeTable(2, 16, 1, 1);
  const HashEntryKey first = key(9, 3, 1);
  const HashEntryKey second = key(9, 3, 2);
  s.request(first);
  ASSERT_EQ(s.at(first), EntryId(3));

  TraceCapture capture(levelBit(2));
  s.request(second);
  EXPECT_EQ(s.at(second), EntryId(3));
  EXPECT_EQ(s.table->hashTableEntry(EntryId(3)), first);
  EXPECT_EQ(s.table->numInsertions(), 1u);
  EXPECT_EQ(s.table->hashTableEntryCollection().size(), 1u);
  EXPECT_TRUE(hasTextStartingWith(capture.texts(2), "insertEntry Found existing key: 3"));
}

TEST(SingleWidthInsert, KeyWithTheSameHashesButAnotherEntryTypeIsAlsoReportedAtThatId) {
  Tables s = makeTable(2, 16, 1, 1);
  const HashEntryKey first = key(9, 3, 1);
  const HashEntryKey wide(9, 3, 1, HashEntryType::doubleWide);
  s.request(first);
  s.request(wide);
  EXPECT_EQ(s.at(wide), EntryId(3));
  EXPECT_EQ(s.table->hashTableEntry(EntryId(3)), first);
}

TEST(SingleWidthInsert, WithOneBankAndAFullBucketTheKeyFailsAtOnceWithoutAMove) {
  Tables s = makeTable(1, 16, 2, 3);
  s.request(key(1, 3));
  s.request(key(2, 3));
  TraceCapture capture(levelBit(2));
  ChangeRecorder recorder(*s.status);
  s.request(key(3, 3));
  EXPECT_EQ(s.at(key(3, 3)), EntryId());
  ASSERT_TRUE(s.status->statusHas(key(3, 3)));
  EXPECT_EQ(s.table->numMoves(), 0u);
  EXPECT_EQ(s.table->numInsertions(), 2u);
  EXPECT_FALSE(hasTextStartingWith(capture.texts(2), "rehashEntry"));
  EXPECT_EQ(capture.texts(2).back(), "insertEntryFailed to find empty slot for key: " + textOf(key(3, 3)));
  ASSERT_EQ(recorder.changes.size(), 1u);
  EXPECT_FALSE(recorder.changes[0].hadPrevious);
  EXPECT_TRUE(recorder.changes[0].present);
  EXPECT_EQ(recorder.changes[0].current, EntryId());
}

TEST(SingleWidthInsert, WithNoBanksEveryKeyFails) {
  Tables s = makeTable(0, 16, 2, 3);
  TraceCapture capture(levelBit(2));
  s.request(key(1, 3));
  EXPECT_EQ(s.at(key(1, 3)), EntryId());
  EXPECT_TRUE(s.status->statusHas(key(1, 3)));
  EXPECT_EQ(capture.texts(2), (std::vector<std::string>{
                                  "insertEntry Insert key: " + textOf(key(1, 3)),
                                  "insertEntryFailed to find empty slot for key: " + textOf(key(1, 3)),
                              }));
}

TEST(SingleWidthInsert, WithNoSlotsPerBucketEveryKeyFails) {
  Tables s = makeTable(2, 16, 0, 3);
  s.request(key(1, 3));
  EXPECT_EQ(s.at(key(1, 3)), EntryId());
  EXPECT_EQ(s.table->numInsertions(), 0u);
}

TEST(SingleWidthInsert, WithAStepBudgetOfZeroNoMoveEverHappens) {
  Tables s = makeTable(2, 16, 1, 0);
  const HashEntryKey a = key(5, 3);   // 3, or 21
  const HashEntryKey b = key(9, 11);  // 11, or 25
  const HashEntryKey k = key(9, 3);   // 3 or 25: both taken
  s.request(a);
  s.requestAt(b, 25);
  ChangeRecorder recorder(*s.status);
  s.request(k);
  EXPECT_EQ(s.at(k), EntryId());
  EXPECT_EQ(s.at(a), EntryId(3));
  EXPECT_EQ(s.at(b), EntryId(25));
  EXPECT_EQ(s.table->numMoves(), 0u);
  EXPECT_FALSE(s.table->hashTableEntryHas(EntryId(21)));
  ASSERT_EQ(recorder.changes.size(), 1u);
  EXPECT_EQ(recorder.changes[0].key, k);
}

TEST(SingleWidthInsert, ZeroBudgetFullTableFailsAtOnce) {
  Tables s = makeTable(2, 1, 1, 0);
  s.request(key(1, 1));
  s.request(key(2, 2));
  ASSERT_EQ(s.table->hashTableEntryCollection().size(), 2u);
  s.request(key(3, 3));
  EXPECT_EQ(s.at(key(3, 3)), EntryId());
  EXPECT_EQ(s.table->numMoves(), 0u);
}

// ---------------------------------------------------------------------------------------
// Second pass: moves

class SingleWidthRehash : public ::testing::Test {
 protected:
  // 2 banks, 1 slot per bucket, a step budget of 1.
  Tables s = makeTable(2, 16, 1, 1);
  const HashEntryKey a = key(5, 3, 2);   // candidates 3 and 21
  const HashEntryKey b = key(9, 11, 3);  // candidates 11 and 25
  const HashEntryKey k = key(9, 3, 4);   // candidates 3 and 25

  void SetUp() override {
    s.request(a);
    s.requestAt(b, 25);
    ASSERT_EQ(s.at(a), EntryId(3));
    ASSERT_EQ(s.at(b), EntryId(25));
  }
};

TEST_F(SingleWidthRehash, KeyWithBothCandidatesFullMovesTheBankZeroOccupantToItsFreeBankOneSlot) {
  ChangeRecorder recorder(*s.status);
  s.request(k);

  EXPECT_EQ(s.at(k), EntryId(3));
  EXPECT_EQ(s.at(a), EntryId(21));
  EXPECT_EQ(s.at(b), EntryId(25));
  EXPECT_EQ(s.table->hashTableEntry(EntryId(3)), k);
  EXPECT_EQ(s.table->hashTableEntry(EntryId(21)), a);
  EXPECT_EQ(s.table->hashTableEntry(EntryId(25)), b);
  EXPECT_EQ(s.table->hashTableEntryCollection().size(), 3u);
  EXPECT_EQ(s.table->numMoves(), 1u);
  EXPECT_EQ(s.table->numInsertions(), 3u);

  ASSERT_EQ(recorder.changes.size(), 2u);
  EXPECT_EQ(recorder.changes[0].key, a);
  EXPECT_TRUE(recorder.changes[0].hadPrevious);
  EXPECT_EQ(recorder.changes[0].previous, EntryId(3));
  EXPECT_EQ(recorder.changes[0].current, EntryId(21));
  EXPECT_EQ(recorder.changes[1].key, k);
  EXPECT_FALSE(recorder.changes[1].hadPrevious);
  EXPECT_EQ(recorder.changes[1].current, EntryId(3));
}

TEST_F(SingleWidthRehash, MoveIsTracedStepByStepAtLevelTwo) {
  TraceCapture capture(levelBit(2));
  s.request(k);
  const std::vector<std::string> expected{
      "insertEntry Insert key: TesselCentral::HashEntryKey{crc16=9, crc32=3, fapId=4, entryType=singleWide}",
      "Bank::calcBucketId bucketId: 3",
      "calcEntryId Bank 0, Bucket 3, Slot 0, Pos 3",
      "insertEntryhashTableEntry( 3 ) "
      "TesselCentral::HashEntryKey{crc16=5, crc32=3, fapId=2, entryType=singleWide}",
      "Bank::calcBucketId bucketId: 9",
      "calcEntryId Bank 1, Bucket 9, Slot 0, Pos 25",
      "insertEntryhashTableEntry( 25 ) "
      "TesselCentral::HashEntryKey{crc16=9, crc32=11, fapId=3, entryType=singleWide}",
      "Bank::calcBucketId bucketId: 3",
      "calcEntryId Bank 0, Bucket 3, Slot 0, Pos 3",
      "rehashEntry rehash eId: 3 to bank 1 with 1 steps remaining",
      "Bank::calcBucketId bucketId: 5",
      "calcEntryId Bank 1, Bucket 5, Slot 0, Pos 21",
      "rehashEntry Insert key: TesselCentral::HashEntryKey{crc16=5, crc32=3, fapId=2, entryType=singleWide} "
      "at eId: 21",
      "insertEntry Insert key: TesselCentral::HashEntryKey{crc16=9, crc32=3, fapId=4, entryType=singleWide} "
      "at eId: 3",
  };
  EXPECT_EQ(capture.texts(2), expected);
  EXPECT_EQ(capture.texts(), expected);  // nothing at other levels under this mask

  // Every line is reported under the short name of the function that writes it; the
  // closing "Insert key: ... at eId: " line belongs to insertEntry.
  const std::vector<std::string> functions{
      "insertEntry",  "calcBucketId", "calcEntryId", "insertEntry",  "calcBucketId", "calcEntryId", "insertEntry",
      "calcBucketId", "calcEntryId",  "rehashEntry", "calcBucketId", "calcEntryId",  "rehashEntry", "insertEntry"};
  std::vector<std::string> seen;
  for (const auto& line : capture.sink().lines()) {
    seen.push_back(line.function);
    EXPECT_EQ(line.file, "MultiHashTable");
    EXPECT_EQ(line.level, 2u);
  }
  EXPECT_EQ(seen, functions);
}

TEST_F(SingleWidthRehash, SameInsertionTracesTheReactionAndSanityCheckAtLevelOne) {
  TraceCapture capture(levelBit(1));
  s.request(k);
  EXPECT_EQ(capture.texts(1), (std::vector<std::string>{
                                  "MultiHashTableBase::handleHashUpdate key: " + textOf(k),
                                  "virtual void TesselCentral::MultiHashTableBase::checkSanity()",
                              }));
}

TEST_F(SingleWidthRehash, OccupantOfAnyBankOtherThanZeroIsPushedToBankZero) {
  // a cannot leave bank 0 (its bank-1 slot 21 is taken): the bank-1 occupant b moves to
  // its bank-0 slot 11 instead, and k takes 25.
  s.requestAt(key(5, 7, 9), 21);
  ChangeRecorder recorder(*s.status);
  s.request(k);
  EXPECT_EQ(s.at(k), EntryId(25));
  EXPECT_EQ(s.at(b), EntryId(11));
  EXPECT_EQ(s.at(a), EntryId(3));
  EXPECT_EQ(s.table->numMoves(), 1u);
  ASSERT_EQ(recorder.changes.size(), 2u);
  EXPECT_EQ(recorder.changes[0].key, b);
  EXPECT_EQ(recorder.changes[1].key, k);
}

TEST(SingleWidthRehashChain, BudgetOfTwoMovesTwoKeysDeepestFirst) {
  Tables s = makeTable(2, 16, 1, 2);
  const HashEntryKey a = key(3, 1);   // 1, or 19
  const HashEntryKey c = key(3, 4);   // 4, or 19
  const HashEntryKey b = key(2, 17);  // 1, or 18
  const HashEntryKey k = key(2, 1);   // 1, or 18
  s.request(a);
  s.requestAt(c, 19);
  s.requestAt(b, 18);
  ChangeRecorder recorder(*s.status);

  s.request(k);
  EXPECT_EQ(s.at(k), EntryId(1));
  EXPECT_EQ(s.at(a), EntryId(19));
  EXPECT_EQ(s.at(c), EntryId(4));
  EXPECT_EQ(s.at(b), EntryId(18));
  EXPECT_EQ(s.table->numMoves(), 2u);
  ASSERT_EQ(recorder.changes.size(), 3u);
  EXPECT_EQ(recorder.changes[0].key, c);
  EXPECT_EQ(recorder.changes[0].previous, EntryId(19));
  EXPECT_EQ(recorder.changes[0].current, EntryId(4));
  EXPECT_EQ(recorder.changes[1].key, a);
  EXPECT_EQ(recorder.changes[1].previous, EntryId(1));
  EXPECT_EQ(recorder.changes[1].current, EntryId(19));
  EXPECT_EQ(recorder.changes[2].key, k);
}

TEST(SingleWidthRehashChain, BudgetOfOneCannotAffordTheChainAndLeavesTheTableUnchanged) {
  Tables s = makeTable(2, 16, 1, 1);
  const HashEntryKey a = key(3, 1);
  const HashEntryKey c = key(3, 4);
  const HashEntryKey b = key(2, 17);
  const HashEntryKey k = key(2, 1);
  s.request(a);
  s.requestAt(c, 19);
  s.requestAt(b, 18);
  ChangeRecorder recorder(*s.status);
  TraceCapture capture(levelBit(2));

  s.request(k);
  EXPECT_EQ(s.at(k), EntryId());
  EXPECT_EQ(s.at(a), EntryId(1));
  EXPECT_EQ(s.at(c), EntryId(19));
  EXPECT_EQ(s.at(b), EntryId(18));
  EXPECT_EQ(s.table->numMoves(), 0u);
  EXPECT_EQ(s.table->numInsertions(), 3u);
  ASSERT_EQ(recorder.changes.size(), 1u);
  EXPECT_EQ(recorder.changes[0].key, k);

  std::vector<std::string> rehashes;
  for (const auto& t : capture.texts(2)) {
    if (t.rfind("rehashEntry", 0) == 0) rehashes.push_back(t);
  }
  EXPECT_EQ(rehashes, (std::vector<std::string>{
                          "rehashEntry rehash eId: 1 to bank 1 with 1 steps remaining",
                          "rehashEntry rehash eId: 19 to bank 0 with 0 steps remaining",
                          "rehashEntry rehash eId: 18 to bank 0 with 1 steps remaining",
                          "rehashEntry rehash eId: 1 to bank 1 with 0 steps remaining",
                      }));
}

TEST(SingleWidthRehashDirect, MovingAFreeIdSucceedsAtOnce) {
  Tables s = makeTable(2, 16, 1, 0);
  EXPECT_TRUE(s.table->rehashEntry(EntryId(5), 1, 0, HashEntryType::singleWide));
  EXPECT_EQ(s.table->numMoves(), 0u);
}

TEST(SingleWidthRehashDirect, EvenADirectMoveCostsOneStep) {
  Tables s = makeTable(2, 16, 1, 0);
  s.request(key(5, 3));
  EXPECT_FALSE(s.table->rehashEntry(EntryId(3), 1, 0, HashEntryType::singleWide));
  EXPECT_EQ(s.at(key(5, 3)), EntryId(3));
  EXPECT_TRUE(s.table->rehashEntry(EntryId(3), 1, 1, HashEntryType::singleWide));
  EXPECT_EQ(s.at(key(5, 3)), EntryId(21));
  EXPECT_EQ(s.table->numMoves(), 1u);
  EXPECT_FALSE(s.table->hashTableEntryHas(EntryId(3)));
}

TEST(SingleWidthRehashDirect, TargetSlotsAreSearchedInAscendingOrder) {
  Tables s = makeTable(2, 16, 2, 0);
  s.request(key(5, 3));        // bank 0 bucket 3 slot 0: 6
  s.requestAt(key(5, 7), 42);  // bank 1 bucket 5 slot 0: (16 + 5) * 2
  EXPECT_TRUE(s.table->rehashEntry(EntryId(6), 1, 1, HashEntryType::singleWide));
  EXPECT_EQ(s.at(key(5, 3)), EntryId(43));
}

TEST(SingleWidthRehashDirect, TheDefaultKeyMarkerIsNotFreeToAMove) {
  Tables s = makeTable(2, 16, 1, 1);
  const HashEntryKey zero;  // the empty marker, placed as a real request at 16
  s.requestAt(zero, 16);
  s.request(key(0, 3));  // 3, or 16
  ASSERT_EQ(s.at(key(0, 3)), EntryId(3));
  EXPECT_FALSE(s.table->rehashEntry(EntryId(3), 1, 1, HashEntryType::singleWide));
  EXPECT_EQ(s.at(key(0, 3)), EntryId(3));
}

// ---------------------------------------------------------------------------------------
// The empty marker and zero keys

TEST(SingleWidthInsertMarker, APlacedDefaultKeyLooksLikeAFreeSlotToTheNextKey) {
  Tables s = makeTable(1, 16, 1, 0);
  const HashEntryKey zero;
  s.request(zero);
  ASSERT_EQ(s.at(zero), EntryId(0));
  s.request(key(4, 16));  // bucket 0 as well
  EXPECT_EQ(s.at(key(4, 16)), EntryId(0));
  EXPECT_EQ(s.table->hashTableEntry(EntryId(0)), key(4, 16));
  EXPECT_EQ(s.table->numInsertions(), 2u);
}

TEST(SingleWidthInsertMarker, ZeroKeyMeetingAnotherZeroKeyAtIdOneTakesTheSlotOver) {
  Tables s = makeTable(1, 16, 2, 0);
  const HashEntryKey other = key(7, 16);  // bucket 0, id 0
  const HashEntryKey zero1 = key(0, 0, 1);
  const HashEntryKey zero2 = key(0, 0, 2);
  s.request(other);
  s.request(zero1);
  ASSERT_EQ(s.at(zero1), EntryId(1));

  TraceCapture capture(levelBit(2));
  s.request(zero2);
  EXPECT_EQ(s.at(zero2), EntryId(1));
  EXPECT_EQ(s.at(zero1), EntryId(1));
  EXPECT_EQ(s.table->hashTableEntry(EntryId(1)), zero2);
  EXPECT_EQ(s.table->numInsertions(), 3u);
  EXPECT_TRUE(hasTextStartingWith(capture.texts(2), "Special case of key being zero, hashing to key: 1"));
  EXPECT_FALSE(hasTextStartingWith(capture.texts(2), "insertEntry Found existing key"));
}

TEST(SingleWidthInsertMarker, ZeroKeyMeetingAnotherZeroKeyElsewhereSkipsTheRestOfThatBucket) {
  Tables s = makeTable(1, 16, 2, 0);
  const HashEntryKey zero1 = key(0, 0, 1);
  const HashEntryKey zero2 = key(0, 0, 2);
  s.request(zero1);
  ASSERT_EQ(s.at(zero1), EntryId(0));
  s.request(zero2);
  // Slot 1 of the bucket is free but not looked at; with one bank the key fails.
  EXPECT_EQ(s.at(zero2), EntryId());
  EXPECT_FALSE(s.table->hashTableEntryHas(EntryId(1)));
}

TEST(SingleWidthInsertMarker, ZeroKeySkippingBankZeroGoesOnWithTheNextBank) {
  Tables s = makeTable(2, 16, 2, 0);
  const HashEntryKey zero1 = key(0, 0, 1);
  const HashEntryKey zero2 = key(0, 0, 2);
  s.request(zero1);
  s.request(zero2);
  // bank 0 is left at its first slot; bank 1 bucket 0 starts at id 32 and holds no zero key.
  EXPECT_EQ(s.at(zero2), EntryId(32));
}

}  // namespace
}  // namespace TesselCentral
