// Multi-width insertion: the free-position path, single and multiple evictions, the
// skip of position 0, bucket locks, the step budget, and doAddOrMoveEntry.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

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
using test::literal;
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

std::vector<std::string> containing(const std::vector<std::string>& lines, const std::string& part) {
  std::vector<std::string> out;
  std::copy_if(lines.begin(), lines.end(), std::back_inserter(out),
               [&](const std::string& l) { return l.find(part) != std::string::npos; });
  return out;
}

// ---------------------------------------------------------------------------------------
// Without eviction

TEST(MultiEntryTypeInsert, AFreePlaceInAnotherBankIsTakenWithoutEviction) {
  MultiWidthTable t(1, 2, twoBanks(1));
  const HashEntryKey a = key(9, 3, single);
  const HashEntryKey k = key(5, 3, single);
  t.place(a, 3);
  t.request(k);
  EXPECT_EQ(t.statusOf(k), 16u + 5u);
  EXPECT_EQ(t.table->keyToPos(k), 0x01000050u);
  EXPECT_EQ(t.table->hashTableEntry(EntryId(21)), k);
  EXPECT_EQ(t.bank(1).bucket(5), 0x00010001u);
  EXPECT_EQ(t.table->numInsertions(), 2u);
  EXPECT_EQ(t.table->numMoves(), 0u);
  EXPECT_EQ(t.statusOf(a), 3u);
  EXPECT_TRUE(invariantViolations(t).empty());
}

TEST(MultiEntryTypeInsert, InsertEntryReturnsThePositionOfTheKey) {
  MultiWidthTable t(4, 2, twoBanks(4));
  EXPECT_EQ(t.table->insertEntry(key(5, 3, dbl), 128, 2), 0x00000030u);
  EXPECT_EQ(t.table->insertEntry(key(5, 0x13, dbl), 128, 2), 0x00000032u);
  EXPECT_EQ(t.statusOf(key(5, 0x13, dbl)), 14u);
}

TEST(MultiEntryTypeInsert, ReRequestingAPlacedKeyAnywhereMovesItToTheFirstFreePosition) {
  MultiWidthTable t(4, 2, twoBanks(4));
  const HashEntryKey k = key(5, 3, single);
  t.place(k, 64 + 21);
  ASSERT_EQ(t.table->keyToPos(k), 0x01000051u);
  t.request(k);
  EXPECT_EQ(t.table->keyToPos(k), 0x00000030u);
  EXPECT_EQ(t.statusOf(k), 12u);
  EXPECT_EQ(t.table->numMoves(), 1u);
  EXPECT_FALSE(t.bank(1).bucketHas(5));
  EXPECT_TRUE(invariantViolations(t).empty());
}

// ---------------------------------------------------------------------------------------
// The step budget

TEST(MultiEntryTypeInsert, WithMaxRecursiveStepsZeroAFullTableGivesTheInvalidIdAndTheDoesntSupportTrace) {
  MultiWidthTable t(1, 0, twoBanks(1));
  t.place(key(9, 3, single), 3);
  t.place(key(5, 8, single), 21);
  const HashEntryKey k = key(5, 3, single);
  TraceCapture trace(levelBit(2));
  t.request(k);
  EXPECT_TRUE(t.status->statusHas(k));
  EXPECT_EQ(t.statusOf(k), 0xFFFFFFFFu);
  EXPECT_FALSE(t.table->keyToPosHas(k));
  EXPECT_EQ(containing(trace.texts(2), "doesn't support"),
            std::vector<std::string>{"MultiEntryTypeHashTable::insertEntry doesn't support  recursion and failed to "
                                     "allocate entry for " +
                                     text(k)});
  EXPECT_EQ(t.table->insertEntry(k, 128, 0), INVALID_POSITION);
  EXPECT_EQ(t.table->numInsertions(), 2u);
}

TEST(MultiEntryTypeInsert, WithMaxRecursiveStepsZeroAnExistingStatusIsOverwrittenWithTheInvalidId) {
  MultiWidthTable t(1, 0, twoBanks(1));
  const HashEntryKey a = key(9, 3, single);
  t.place(a, 3);
  t.place(key(9, 8, single), 16 + 9);
  t.request(a);  // no other place for a: its own slot is taken by itself
  EXPECT_EQ(t.statusOf(a), 0xFFFFFFFFu);
  EXPECT_EQ(t.table->keyToPos(a), 0x30u);
}

TEST(MultiEntryTypeInsert, AVictimReachedWithRecursionStepZeroStaysAndTheCallerTriesTheNextSlot) {
  MultiWidthTable t(2, 1, twoBanks(2));
  const HashEntryKey a = key(5, 0x13, single);  // bank 1 bucket 5 is full: a cannot move
  const HashEntryKey b = key(6, 0x23, single);  // bank 1 bucket 6 is free
  t.place(a, 6);
  t.place(b, 7);
  t.place(key(0x13, 8, single), 38);
  t.place(key(0x23, 9, single), 39);
  t.place(key(0x15, 0xA, single), 42);
  t.place(key(0x25, 0xB, single), 43);
  const HashEntryKey k = key(3, 3, single);
  TraceCapture trace(levelBit(2));
  t.request(k);
  EXPECT_EQ(containing(trace.texts(2), "end of recursion"),
            std::vector<std::string>{"MultiEntryTypeHashTable::insertEntry end of recursion  failed to allocate "
                                     "entry for " +
                                     text(a)});
  EXPECT_EQ(t.statusOf(a), 6u);
  EXPECT_EQ(t.table->keyToPos(a), 0x30u);
  EXPECT_EQ(t.statusOf(b), 32u + 12u);
  EXPECT_EQ(t.statusOf(k), 7u);
  EXPECT_EQ(t.table->keyToPos(k), 0x31u);
  EXPECT_EQ(t.table->numMoves(), 1u);
  EXPECT_TRUE(invariantViolations(t).empty());
}

// ---------------------------------------------------------------------------------------
// Evictions

TEST(MultiEntryTypeInsert, PhysicalBank0Bucket0Slot0IsNeverChosenTheWalkStartsAtSlotEntrySize) {
  MultiWidthTable t(2, 2, twoBanks(2, 0, 2));
  const HashEntryKey x = key(7, 0x20, single);
  t.place(x, 1);
  t.place(key(0x13, 5, single), 38);
  t.place(key(0x23, 6, single), 39);
  const HashEntryKey k = key(3, 0x10, single);
  TraceCapture trace(levelBit(5));
  t.request(k);
  EXPECT_EQ(t.table->keyToPos(k), 0x00000001u);
  EXPECT_EQ(t.statusOf(k), 1u);
  EXPECT_EQ(t.statusOf(x), 32u + 14u);
  EXPECT_EQ(t.bank(0).bucket(0), 0x00100002u);
  EXPECT_EQ(t.bank(0).getEntryType(0, 0), HashEntryType::empty);
  const auto lines = trace.texts(5);
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[0], " entrySize: 1 bank: 0 bucketId: 0, bucketSize: 2");
  EXPECT_EQ(lines[1], "insertEntry skip position 0 ");
  EXPECT_TRUE(invariantViolations(t).empty());
}

TEST(MultiEntryTypeInsert, AQuadKeyOverFourSinglesWhoseThirdEvictionFailsKeepsTheFirstTwoMovedAndGoesOn) {
  MultiWidthTable t(4, 1, twoBanks(4));
  const HashEntryKey s0 = key(8, 0x13, single);   // bank 1 bucket 8: free
  const HashEntryKey s1 = key(9, 0x23, single);   // bank 1 bucket 9: free
  const HashEntryKey s2 = key(10, 0x33, single);  // bank 1 bucket 10: full
  const HashEntryKey s3 = key(11, 0x43, single);
  t.place(s0, 12);
  t.place(s1, 13);
  t.place(s2, 14);
  t.place(s3, 15);
  t.place(key(0x1A, 4, single), 104);
  t.place(key(0x2A, 5, single), 105);
  t.place(key(0x3A, 6, single), 106);
  t.place(key(0x4A, 0xE, single), 107);
  const HashEntryKey u = key(0x17, 0xC, single);  // in the quad key's bank-1 bucket; bank 0 bucket 12 is free
  t.place(u, 92);
  const HashEntryKey q = key(7, 3, quad);
  TraceCapture trace(levelBit(2) | levelBit(5) | levelBit(6));
  t.request(q);

  EXPECT_EQ(containing(trace.texts(5), "recursion yields"),
            (std::vector<std::string>{" entrySize: 4 slotEntrySize: 1 recursion yields newPos: 0x1000080",
                                      " entrySize: 4 slotEntrySize: 1 recursion yields newPos: 0x1000090",
                                      " entrySize: 4 slotEntrySize: 1 recursion yields newPos: 0xffffffff",
                                      " entrySize: 4 slotEntrySize: 1 recursion yields newPos: 0xc0"}));
  // After the failure the walk goes on at slot 0 + 4, past the bucket's end: the next
  // step is to release bank 0's lock and try bank 1.
  const auto lines = trace.texts();
  const auto failure =
      std::find(lines.begin(), lines.end(), "insertEntry, cannot move entry to bank: 0, bucket: 3, slot: 0");
  ASSERT_NE(failure, lines.end());
  EXPECT_EQ(*(failure + 1), "Unlock buckets bucketStart: 3 bucketEnd: 3");

  EXPECT_EQ(t.statusOf(s0), 64u + 32u);
  EXPECT_EQ(t.statusOf(s1), 64u + 36u);
  EXPECT_EQ(t.statusOf(s2), 14u);
  EXPECT_EQ(t.statusOf(s3), 15u);
  EXPECT_EQ(t.bank(0).bucket(3), 0x1100000Cu);
  EXPECT_EQ(t.statusOf(u), 48u);
  EXPECT_EQ(t.statusOf(q), 64u + 28u);
  EXPECT_EQ(t.bank(1).bucket(7), 0x4444000Fu);
  EXPECT_EQ(t.table->numMoves(), 3u);
  EXPECT_TRUE(invariantViolations(t).empty());
}

TEST(MultiEntryTypeInsert, ASingleKeyAtASlotFreedByAnInnerMoveTakesItAtOnceWithTheAlreadyFreeTrace) {
  MultiWidthTable t(4, 2, twoBanks(4));
  const HashEntryKey q = key(0x15, 0x13, quad);  // bank 0 bucket 3 slot 0; bank 1 bucket 5
  t.place(q, 12);
  const HashEntryKey s0 = key(0x25, 7, single);  // bank 0 bucket 7: free
  const HashEntryKey s1 = key(0x35, 8, single);  // bank 0 bucket 8: full
  t.place(s0, 84);
  t.place(s1, 85);
  t.place(key(0x45, 9, single), 86);
  t.place(key(0x55, 0xA, single), 87);
  for (U32 i = 0; i < 4; ++i) t.place(key(0x0B, 0x18 + 0x10 * i, single), 32 + i);
  const HashEntryKey k = key(5, 3, single);
  TraceCapture trace(levelBit(2) | levelBit(5));
  t.request(k);
  // q could not leave: its eviction of s0 in bank 1 succeeded, that of s1 failed, and
  // s0 stays moved, which frees slot 0 of k's bank-1 bucket.
  EXPECT_EQ(containing(trace.texts(2), "cannot move"),
            std::vector<std::string>{"insertEntry, cannot move entry to bank: 1, bucket: 5, slot: 0"});
  EXPECT_EQ(containing(trace.texts(5), "already free"),
            std::vector<std::string>{" current slot already free. entryPos: 0x1000050"});
  EXPECT_EQ(t.statusOf(k), 64u + 20u);
  EXPECT_EQ(t.statusOf(s0), 28u);
  EXPECT_EQ(t.statusOf(q), 12u);
  EXPECT_EQ(t.statusOf(s1), 85u);
  EXPECT_EQ(t.table->numMoves(), 1u);
  EXPECT_TRUE(invariantViolations(t).empty());
}

TEST(MultiEntryTypeInsert, AVictimInBank1MayOnlyGoToBank0AndOnlyToBucketsNotLockedThere) {
  MultiWidthTable t(1, 3, twoBanks(1));
  const HashEntryKey a = key(6, 0x13, single);
  const HashEntryKey b = key(0x14, 9, single);
  const HashEntryKey v = key(0x16, 0x23, single);  // its bank-0 bucket is k's, locked while a is moved
  t.place(a, 3);
  t.place(b, 20);
  t.place(v, 22);
  const HashEntryKey k = key(4, 3, single);
  TraceCapture trace(levelBit(6));
  t.request(k);
  EXPECT_EQ(trace.texts(6),
            (std::vector<std::string>{
                "Lock buckets bucketStart: 3 bucketEnd: 3", "Lock buckets bucketStart: 6 bucketEnd: 6",
                "Buckets are already locked bucketStart: 3 bucketEnd: 3", "Unlock buckets bucketStart: 6 bucketEnd: 6",
                "Unlock buckets bucketStart: 3 bucketEnd: 3", "Lock buckets bucketStart: 4 bucketEnd: 4",
                "Unlock buckets bucketStart: 4 bucketEnd: 4"}));
  EXPECT_EQ(t.statusOf(a), 3u);
  EXPECT_EQ(t.statusOf(v), 22u);
  EXPECT_EQ(t.statusOf(b), 9u);
  EXPECT_EQ(t.statusOf(k), 20u);
  EXPECT_EQ(t.table->numMoves(), 1u);
  EXPECT_TRUE(invariantViolations(t).empty());
}

TEST(MultiEntryTypeInsert, AKeyThatFindsNoRoomGetsTheInvalidIdAndAVictimThatFindsNoneKeepsItsId) {
  MultiWidthTable t(1, 2, twoBanks(1));
  const HashEntryKey a = key(3, 0x23, single);  // bank 0 bucket 3, bank 1 bucket 3
  const HashEntryKey b = key(0x23, 3, single);  // the same two buckets
  t.place(a, 3);
  t.place(b, 19);
  const HashEntryKey k = key(0x13, 0x13, single);  // both of its buckets hold keys that can only swap
  TraceCapture trace(levelBit(5));
  t.request(k);
  EXPECT_EQ(t.statusOf(k), 0xFFFFFFFFu);
  EXPECT_EQ(t.statusOf(a), 3u);
  EXPECT_EQ(t.statusOf(b), 19u);
  const auto lines = trace.texts(5);
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back(),
            " HashEntryStatus doesn't exist for key " + text(k) + " foundFree false adding status entry ");
  EXPECT_TRUE(invariantViolations(t).empty());
}

// One insertion that evicts, traced at levels 2, 5 and 6. Bank 0 selects crc32 & 3, bank 1
// crc16 & 3, one slot per bucket: k wants bank 0 bucket 1 (held by a) or bank 1 bucket 2
// (held by b); a can go to bank 1 bucket 3.
TEST(MultiEntryTypeInsert, AnInsertionWithOneEvictionTracesEveryStepAtLevels2To6InOrder) {
  BankArgs b0;
  b0.numBuckets = 4;
  b0.bucketSize = 1;
  b0.phyBankId = 1;
  BankArgs b1 = b0;
  b1.hashFunc = HashFunc::hashCrc16Lower;
  b1.phyBankId = 2;
  MultiWidthTable t(1, 2, {b0, b1});
  const HashEntryKey a = key(3, 5, single);
  const HashEntryKey b = key(6, 2, single);
  t.place(a, 1);
  t.place(b, 6);
  const HashEntryKey k = key(2, 1, single);
  const std::string K = text(k);
  const std::string A = text(a);

  TraceCapture trace(levelBit(2) | levelBit(5) | levelBit(6));
  t.request(k);
  const std::vector<std::string> expected = {
      "MultiEntryTypeHashTable::insertEntry Insert key: " + K + " origBankId 128 recursionStep 2, debugEnabled: false",
      // The free-position search: both buckets are full.
      "Bank::calcBucketId bucketId: 1",
      "MultiEntryTypeBank::calcBucketId bankId: 0 bucketId: 1",
      "MultiEntryTypeBank::checkBucketSpace bankId 0 entryType: singleWide bucketId: 0 bucketState: 0x10001 mask: "
      "0x1 slot: 0 update: true found false",
      "Bank::calcBucketId bucketId: 2",
      "MultiEntryTypeBank::calcBucketId bankId: 1 bucketId: 2",
      "MultiEntryTypeBank::checkBucketSpace bankId 1 entryType: singleWide bucketId: 0 bucketState: 0x10001 mask: "
      "0x1 slot: 0 update: true found false",
      "MultiEntryTypeHashTable::insertEntry no space found rehashing the key: " + K,
      // Bank 0: lock k's bucket and evict a.
      "Bank::calcBucketId bucketId: 1",
      "MultiEntryTypeBank::calcBucketId bankId: 0 bucketId: 1",
      "Lock buckets bucketStart: 1 bucketEnd: 1",
      " entrySize: 1 bank: 0 bucketId: 1, bucketSize: 1",
      "MultiEntryTypeHashTable::insertEntry Insert key: " + A + " origBankId 0 recursionStep 1, debugEnabled: false",
      "Bank::calcBucketId bucketId: 3",
      "MultiEntryTypeBank::calcBucketId bankId: 1 bucketId: 3",
      "MultiEntryTypeBank::updateBucketState bankId 1 entryType: singleWide bucketId: 3 bucketState: 0x0 slot: 0 "
      "add: true",
      "MultiEntryTypeBank::updateBucketState entryType: singleWide bucketId: 3 bucketState: 0x10001 mask: 0x1 slot: "
      "0 add: true",
      "MultiEntryTypeBank::checkBucketSpace bankId 1 entryType: singleWide bucketId: 3 bucketState: 0x0 mask: 0x1 "
      "slot: 0 update: true found true",
      "MultiEntryTypeHashTable::doAddOrMoveEntry key " + A + " newPos 16777264 move true",
      "MultiEntryTypeBank::updateBucketState bankId 0 entryType: singleWide bucketId: 1 bucketState: 0x10001 slot: 0 "
      "add: false",
      "MultiEntryTypeBank::updateBucketState entryType: singleWide bucketId: 1 bucketState: 0x0 mask: 0x1 slot: 0 "
      "add: false",
      "posToEntryId Bank 0, Bucket 1, Slot 0, EntryId 1",
      "MultiEntryTypeHashTable::doAddOrMoveEntry oldPosition 0x10 oldEntryId 1",
      "posToEntryId Bank 1, Bucket 3, Slot 0, EntryId 7",
      "MultiEntryTypeHashTable::doAddOrMoveEntry newPosition 0x1000030 new entryId 7",
      " entrySize: 1 slotEntrySize: 1 recursion yields newPos: 0x1000030",
      "Unlock buckets bucketStart: 1 bucketEnd: 1",
      // Commit k in the freed slot.
      " foundFree: true freePos: 0x10",
      "MultiEntryTypeBank::updateBucketState bankId 0 entryType: singleWide bucketId: 1 bucketState: 0x0 slot: 0 "
      "add: true",
      "MultiEntryTypeBank::updateBucketState entryType: singleWide bucketId: 1 bucketState: 0x10001 mask: 0x1 slot: "
      "0 add: true",
      "MultiEntryTypeHashTable::doAddOrMoveEntry key " + K + " newPos 16 move false",
      "posToEntryId Bank 0, Bucket 1, Slot 0, EntryId 1",
      "MultiEntryTypeHashTable::doAddOrMoveEntry newPosition 0x10 new entryId 1",
  };
  EXPECT_EQ(trace.texts(), expected);
  EXPECT_EQ(t.statusOf(k), 1u);
  EXPECT_EQ(t.statusOf(a), 7u);
  EXPECT_TRUE(invariantViolations(t).empty());
}

// ---------------------------------------------------------------------------------------
// doAddOrMoveEntry

TEST(MultiEntryTypeInsert, DoAddOrMoveEntryCommitsANewKeyToEveryCollectionButNotTheBucketState) {
  MultiWidthTable t(4, 2, twoBanks(4));
  const HashEntryKey k = key(5, 3, single);
  test::ChangeRecorder recorder(*t.status);
  t.table->doAddOrMoveEntry(k, 0x01000052, false);
  EXPECT_EQ(t.table->keyToPos(k), 0x01000052u);
  EXPECT_EQ(t.table->posToKey(0x01000052), k);
  EXPECT_EQ(t.table->hashTableEntry(EntryId(86)), k);
  EXPECT_EQ(t.statusOf(k), 86u);
  EXPECT_EQ(t.table->numInsertions(), 1u);
  EXPECT_FALSE(t.bank(1).bucketHas(5));
  ASSERT_EQ(recorder.changes.size(), 1u);
  EXPECT_EQ(recorder.changes[0].current, EntryId(86));
}

TEST(MultiEntryTypeInsert, DoAddOrMoveEntryMovesAKeyClearingItsOldSlotsAndId) {
  MultiWidthTable t(4, 2, twoBanks(4));
  const HashEntryKey k = key(5, 3, dbl);
  t.request(k);
  ASSERT_EQ(t.table->keyToPos(k), 0x30u);
  t.bank(1).updateBucketState(dbl, 5, 2, true);
  t.table->doAddOrMoveEntry(k, 0x01000052, true);
  EXPECT_FALSE(t.bank(0).bucketHas(3));
  EXPECT_FALSE(t.table->posToKeyHas(0x30));
  EXPECT_FALSE(t.table->hashTableEntryHas(EntryId(12)));
  EXPECT_EQ(t.statusOf(k), 86u);
  EXPECT_EQ(t.table->numMoves(), 1u);
  EXPECT_EQ(t.table->numInsertions(), 1u);
  EXPECT_TRUE(invariantViolations(t).empty());
}

// ---------------------------------------------------------------------------------------
// Broken invariants

class MultiEntryTypeInsertDeathTest : public ::testing::Test {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(MultiEntryTypeInsertDeathTest, AFreeSlotThatPosToKeyStillNamesFailsNotPosToKeyHasPos) {
  MultiWidthTable t(4, 2, twoBanks(4));
  t.table->posToKeyIs(0x30, key(99, 99, single));
  EXPECT_DEATH(t.request(key(5, 3, single)), assertionFailure("!posToKeyHas( pos )"));
}

TEST_F(MultiEntryTypeInsertDeathTest, ARecursionStepAboveTheBudgetFails) {
  MultiWidthTable t(1, 1, twoBanks(1));
  t.place(key(9, 3, single), 3);
  t.place(key(5, 8, single), 21);
  EXPECT_DEATH(t.table->insertEntry(key(5, 3, single), 128, 2),
               assertionFailure("recursionStep <= maxRecursiveSteps()"));
}

TEST_F(MultiEntryTypeInsertDeathTest, AnOccupiedSlotWithoutAKeyFailsWithTheEntryPosMessage) {
  BankArgs only;
  only.bucketSize = 1;
  only.phyBankId = 1;
  MultiWidthTable t(1, 1, {only});
  t.bank(0).bucketIs(3, 0x10001);
  EXPECT_DEATH(t.request(key(3, 3, single)), assertionFailure("\"posToKeyHas( entryPos )\" == nullptr"));
  EXPECT_DEATH(t.request(key(3, 3, single)), literal("insertEntry entryPos: 0x30"));
}

TEST_F(MultiEntryTypeInsertDeathTest, AMultipleEvictionRunningPastTheBucketsEndFails) {
  MultiWidthTable t(3, 1, twoBanks(3));
  t.place(key(8, 0x13, single), 9);     // bank 0 bucket 3 slot 0; bank 1 bucket 8 is free
  t.place(key(0x17, 0xC, single), 69);  // bank 1 bucket 7 slot 0
  EXPECT_DEATH(t.request(key(7, 3, quad)), assertionFailure("slotId < b->bucketSize()"));
}

TEST_F(MultiEntryTypeInsertDeathTest, AFoundRunThatPosToKeyStillNamesFailsNotPosToKeyHasFreePos) {
  BankArgs only;
  only.phyBankId = 1;
  MultiWidthTable t(4, 1, {only});
  t.bank(0).bucketIs(3, 0xF);  // occupancy bits without types: the walk sees free slots
  t.table->posToKeyIs(0x30, key(99, 99, single));
  EXPECT_DEATH(t.request(key(3, 3, dbl)), assertionFailure("!posToKeyHas( freePos )"));
}

TEST_F(MultiEntryTypeInsertDeathTest, AMissingBankBelowNumBanksFailsTheWalk) {
  MultiWidthTable t(1, 2, twoBanks(1));
  t.place(key(9, 3, single), 3);
  t.table->bankDel(1);
  EXPECT_DEATH(t.request(key(5, 3, single)), assertionFailure("b"));
}

TEST_F(MultiEntryTypeInsertDeathTest, ATableWithoutItsHelperCannotCommit) {
  MultiWidthTable t(4, 2, twoBanks(4));
  t.table->entryIdHelperIs(nullptr);
  EXPECT_DEATH(t.request(key(5, 3, single)), assertionFailure("entryIdHelper()"));
}

TEST_F(MultiEntryTypeInsertDeathTest, DoAddOrMoveEntryChecksTheKeysCurrentPosition) {
  MultiWidthTable t(4, 2, twoBanks(4));
  const HashEntryKey k = key(5, 3, single);
  EXPECT_DEATH(t.table->doAddOrMoveEntry(k, 0, true), assertionFailure("curPos != newPos"));
  EXPECT_DEATH(t.table->doAddOrMoveEntry(k, 0x51, true), assertionFailure("posToKey( curPos ) == key"));
  t.table->keyToPosIs(k, INVALID_POSITION);
  EXPECT_DEATH(t.table->doAddOrMoveEntry(k, 0x51, true), assertionFailure("curPos != INVALID_POSITION"));
}

TEST_F(MultiEntryTypeInsertDeathTest, DoAddOrMoveEntryOfANewKeyChecksThatKeyAndPositionAreUnused) {
  MultiWidthTable t(4, 2, twoBanks(4));
  const HashEntryKey k = key(5, 3, single);
  t.request(k);
  EXPECT_DEATH(t.table->doAddOrMoveEntry(k, 0x51, false), assertionFailure("!keyToPosHas( key )"));
  EXPECT_DEATH(t.table->doAddOrMoveEntry(key(6, 3, single), 0x30, false), assertionFailure("!posToKeyHas( newPos )"));
}

}  // namespace
}  // namespace TesselCentral
