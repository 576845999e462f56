// The multi-width table's statistics, worked out by hand on two banks of 16 buckets of 4
// slots (bank 0 takes crc32 & 15, ids 0-63; bank 1 crc16 & 15, ids 64-127): placements by
// their moves, failures by reason, moves, slots used per bank, the largest chain and the
// runs the searches examined.
#include <gtest/gtest.h>

#include "MultiHashTable/MultiHashTable.h"
#include "MultiHashTable/fwk/TypeInfo.h"
#include "MultiWidthSupport.h"
#include "TestSupport.h"

namespace TesselCentral::test {
namespace {

// Quad keys, each filling a bucket: Q1 takes bank 0's bucket 1 and Q2, whose bucket in
// bank 0 is the same, bank 1's bucket 3. Q3 has the same two buckets: room is made by
// moving Q1 to its bucket 2 in bank 1.
struct QuadsInTheWay {
  MultiWidthTable t;
  HashEntryKey q1 = key(2, 1, quad);
  HashEntryKey q2 = key(3, 1, quad);
  HashEntryKey q3 = key(3, 1, quad, 1);
  HashEntryKey q4 = key(3, 1, quad, 2);

  explicit QuadsInTheWay(MoveSearch search, U32 steps = 1) : t(4, steps, twoBanks(4)) {
    t.table->moveSearchIs(search);
    t.request(q1);
    t.request(q2);
  }
  const TableStatistics& statistics() const { return t.table->statistics(); }
};

TEST(MultiWidthStatistics, PlacementsInAFreeRunTakeNoMoveAndCountTheirWidth) {
  QuadsInTheWay s(MoveSearch::depthFirst);
  ASSERT_EQ(s.t.statusOf(s.q1), 4u);
  ASSERT_EQ(s.t.statusOf(s.q2), 76u);
  const TableStatistics& st = s.statistics();
  EXPECT_EQ(st.placementsWithMoves(0), 2u);
  EXPECT_EQ(st.placements(), 2u);
  EXPECT_EQ(st.moves(), 0u);
  EXPECT_EQ(st.slotsUsed(0), 4u);
  EXPECT_EQ(st.slotsUsed(1), 4u);
  EXPECT_EQ(st.runsExamined(), 0u);
}

TEST(MultiWidthStatistics, AnEvictionCountsItsMovesAndTheRunsItLookedAt) {
  QuadsInTheWay s(MoveSearch::depthFirst);
  s.t.request(s.q3);
  ASSERT_EQ(s.t.statusOf(s.q3), 4u);
  ASSERT_EQ(s.t.statusOf(s.q1), 72u);

  const TableStatistics& st = s.statistics();
  EXPECT_EQ(st.placementsWithMoves(0), 2u);
  EXPECT_EQ(st.placementsWithMoves(1), 1u);  // the victim's own placement is not one
  EXPECT_EQ(st.placements(), 3u);
  EXPECT_EQ(st.placementMoves(), 1u);
  EXPECT_EQ(st.moves(), 1u);
  EXPECT_EQ(st.largestChain(), 1u);
  EXPECT_EQ(st.slotsUsed(0), 4u);  // Q3
  EXPECT_EQ(st.slotsUsed(1), 8u);  // Q2, Q1
  EXPECT_EQ(st.runsExamined(), 1u);
  EXPECT_EQ(st.failures(), 0u);
  EXPECT_EQ(s.t.table->numMoves(), 1u);
}

// Q4 has Q3's buckets, and neither Q3 nor Q2 can go anywhere one move deep: the slot 0 of
// each bucket was looked at, once in each bank.
TEST(MultiWidthStatistics, AnEvictionWithNoRoomWithinTheChainDepthFailsForWantOfRoom) {
  QuadsInTheWay s(MoveSearch::depthFirst);
  s.t.request(s.q3);
  s.t.request(s.q4);
  ASSERT_EQ(s.t.status->status(s.q4), EntryId());

  const TableStatistics& st = s.statistics();
  EXPECT_EQ(st.failures(PlacementFailure::noRoom), 1u);
  EXPECT_EQ(st.failures(PlacementFailure::searchCutShort), 0u);
  EXPECT_EQ(st.failures(), 1u);
  EXPECT_EQ(st.placements(), 3u);
  EXPECT_EQ(st.moves(), 1u);
  EXPECT_EQ(st.runsExamined(), 3u);
  EXPECT_EQ(st.slotsUsed(0), 4u);
  EXPECT_EQ(st.slotsUsed(1), 8u);
}

// Breadth first: Q1's run is one candidate, and its own candidate runs are looked at, the one
// it stands in (bank 0, bucket 1) and then its free bucket 2 in bank 1.
TEST(MultiWidthStatistics, TheFewestMovesSearchCountsTheRunsItExamined) {
  QuadsInTheWay s(MoveSearch::breadthFirst);
  s.t.request(s.q3);
  ASSERT_EQ(s.t.statusOf(s.q3), 4u);
  ASSERT_EQ(s.t.statusOf(s.q1), 72u);

  const TableStatistics& st = s.statistics();
  EXPECT_EQ(st.placementsWithMoves(1), 1u);
  EXPECT_EQ(st.moves(), 1u);
  EXPECT_EQ(st.largestChain(), 1u);
  EXPECT_EQ(st.runsExamined(), 2u);
  EXPECT_EQ(st.searchesCutShort(), 0u);
  EXPECT_EQ(st.slotsUsed(0), 4u);
  EXPECT_EQ(st.slotsUsed(1), 8u);
}

// A single-wide key hashing to bucket 5 of bank 0 accepts the ids 20 to 24: 24, the first id
// of bucket 6, puts it at bucket 5's slot 0, whose own id is 20.
TEST(MultiWidthStatistics, AnIdAtTheUpperEndOfItsBucketsRangeIsPlacedButNotHonoured) {
  MultiWidthTable t(4, 1, twoBanks(4));
  const HashEntryKey a = key(7, 5, single);
  const HashEntryKey b = key(8, 5, single);
  t.place(a, 21);
  t.place(b, 24);
  ASSERT_EQ(t.statusOf(b), 24u);
  ASSERT_EQ(positionSlot(t.table->keyToPos(b)), 0u);

  const TableStatistics& st = t.table->statistics();
  EXPECT_EQ(st.placementsAtRequestedId(), 2u);
  EXPECT_EQ(st.failures(PlacementFailure::requestedIdNotHonoured), 1u);
  // The key has its place: not a failure of the kind that leaves a key without one.
  EXPECT_EQ(st.failures(), 0u);
  EXPECT_EQ(st.placements(), 0u);
  EXPECT_EQ(st.slotsUsed(0), 2u);
}

TEST(MultiWidthStatistics, RemovalsChangeOnlyTheSlotsUsed) {
  QuadsInTheWay s(MoveSearch::depthFirst);
  s.t.request(s.q3);
  const HashEntryKey d = key(9, 9, dbl);
  s.t.request(d);  // bank 0, bucket 9
  TableStatistics expected = s.statistics();
  s.t.config->configDel(s.q1);  // 4 slots of bank 1
  s.t.config->configDel(d);     // 2 slots of bank 0
  expected.slotsFreed(1, 4);
  expected.slotsFreed(0, 2);
  EXPECT_EQ(s.statistics(), expected);
  EXPECT_EQ(s.statistics().slotsUsed(0), 4u);
  EXPECT_EQ(s.statistics().slotsUsed(1), 4u);
  EXPECT_TRUE(invariantViolations(s.t).empty());
}

TEST(MultiWidthStatistics, ResetZeroesEveryCountAndKeepsTheSlotsUsed) {
  QuadsInTheWay s(MoveSearch::depthFirst);
  s.t.request(s.q3);
  s.t.request(s.q4);
  s.t.table->statisticsReset();
  TableStatistics expected(2);
  expected.slotsTaken(0, 4);
  expected.slotsTaken(1, 8);
  EXPECT_EQ(s.statistics(), expected);
  EXPECT_EQ(s.statistics().failures(), 0u);
  EXPECT_EQ(s.statistics().runsExamined(), 0u);
  EXPECT_EQ(s.t.table->numMoves(), 1u);
}

TEST(MultiWidthStatistics, TheRegistryReadsTheStatisticsByName) {
  QuadsInTheWay s(MoveSearch::depthFirst);
  s.t.request(s.q3);
  s.t.request(s.q4);
  const Fwk::AttributeInfo* statistics = s.t.table->fwkType()->attribute("statistics");
  ASSERT_NE(statistics, nullptr);
  EXPECT_EQ(statistics->read(*s.t.table),
            "TesselCentral::TableStatistics{placementsByMoves={0: 2, 1: 1}, placementMoves=1, "
            "placementsAtRequestedId=0, failures={noRoom: 1, searchCutShort: 0, requestedIdRefused: 0, "
            "requestedIdNotHonoured: 0}, moves=1, largestChain=1, slotsUsed={0: 4, 1: 8}, slotsExamined=0, "
            "runsExamined=3, searchesCutShort=0}");
}

}  // namespace
}  // namespace TesselCentral::test
