// The single-width table's statistics, worked out by hand on tables small enough to follow
// every slot: placements by their moves, failures by reason, moves, slots used per bank,
// the largest chain and the searches' effort.
#include <gtest/gtest.h>

#include "MultiHashTable/MultiHashTable.h"
#include "MultiHashTable/fwk/Scope.h"
#include "MultiHashTable/fwk/TypeInfo.h"
#include "SingleWidthSupport.h"
#include "TestSupport.h"

namespace TesselCentral::test {
namespace {

// Two banks of four one-slot buckets (bank 0 takes crc32 & 3: ids 0-3; bank 1 crc16 & 3:
// ids 4-7). A stands at 0, B at 6, C at 5, each by a request for its id. The new key K's
// candidates are 0 (A) and 5 (C):
//  - depth first: A would go to 6, where B stands; B goes to 3, then A to 6: two moves,
//    after looking at the slots 0 and 6;
//  - breadth first: the slots 0 and 5, then 6 (where A would go), and C's free slot 1 in
//    bank 0 ends the search: one move, three slots examined.
struct TwoWaysToMakeRoom {
  Tables t = makeTable(2, 4, 1, 2);
  HashEntryKey a = key(2, 0);
  HashEntryKey b = key(2, 3);
  HashEntryKey c = key(1, 1);
  HashEntryKey f = key(3, 2);  // a free candidate at 2
  HashEntryKey k = key(5, 4);

  explicit TwoWaysToMakeRoom(MoveSearch search) {
    t.table->moveSearchIs(search);
    t.requestAt(a, 0);
    t.requestAt(b, 6);
    t.requestAt(c, 5);
  }
  const TableStatistics& statistics() const { return t.table->statistics(); }
};

TableStatistics slotsUsed(U64 bank0, U64 bank1) {
  TableStatistics s(2);
  s.slotsTaken(0, static_cast<U32>(bank0));
  s.slotsTaken(1, static_cast<U32>(bank1));
  return s;
}

TEST(SingleWidthStatistics, ANewTableHasCountedNothing) {
  Tables t = makeTable(2, 4, 1, 2);
  EXPECT_EQ(t.table->statistics(), slotsUsed(0, 0));
  EXPECT_EQ(t.table->statistics().slotsUsed().size(), 2u);
}

TEST(SingleWidthStatistics, RequestsForAnIdCountApartFromThePlacementsAnywhere) {
  TwoWaysToMakeRoom s(MoveSearch::depthFirst);
  EXPECT_EQ(s.statistics().placementsAtRequestedId(), 3u);
  EXPECT_EQ(s.statistics().placements(), 0u);
  EXPECT_EQ(s.statistics().slotsUsed(0), 1u);
  EXPECT_EQ(s.statistics().slotsUsed(1), 2u);
}

TEST(SingleWidthStatistics, DepthFirstPlacementsCountTheirMovesAndTheSlotsTheyLookedAt) {
  TwoWaysToMakeRoom s(MoveSearch::depthFirst);
  s.t.request(s.f);
  s.t.request(s.k);
  ASSERT_EQ(s.t.at(s.k), EntryId(0));
  ASSERT_EQ(s.t.at(s.a), EntryId(6));
  ASSERT_EQ(s.t.at(s.b), EntryId(3));

  const TableStatistics& st = s.statistics();
  EXPECT_EQ(st.placementsWithMoves(0), 1u);  // f, at its free slot 2
  EXPECT_EQ(st.placementsWithMoves(1), 0u);
  EXPECT_EQ(st.placementsWithMoves(2), 1u);  // k, after B and A moved
  EXPECT_EQ(st.placements(), 2u);
  EXPECT_EQ(st.placementMoves(), 2u);
  EXPECT_EQ(st.placementsAtRequestedId(), 3u);
  EXPECT_EQ(st.moves(), 2u);
  EXPECT_EQ(st.largestChain(), 2u);
  EXPECT_EQ(st.failures(), 0u);
  EXPECT_EQ(st.slotsUsed(0), 3u);  // k at 0, f at 2, B at 3
  EXPECT_EQ(st.slotsUsed(1), 2u);  // C at 5, A at 6
  EXPECT_EQ(st.slotsExamined(), 2u);
  EXPECT_EQ(st.runsExamined(), 0u);
  EXPECT_EQ(st.searchesCutShort(), 0u);
  // The described counter counts the same moves.
  EXPECT_EQ(s.t.table->numMoves(), 2u);
}

TEST(SingleWidthStatistics, BreadthFirstPlacementsCountTheSlotsTheirSearchExamined) {
  TwoWaysToMakeRoom s(MoveSearch::breadthFirst);
  s.t.request(s.k);
  ASSERT_EQ(s.t.at(s.k), EntryId(5));
  ASSERT_EQ(s.t.at(s.c), EntryId(1));

  const TableStatistics& st = s.statistics();
  EXPECT_EQ(st.placementsWithMoves(1), 1u);
  EXPECT_EQ(st.placements(), 1u);
  EXPECT_EQ(st.moves(), 1u);
  EXPECT_EQ(st.largestChain(), 1u);
  EXPECT_EQ(st.slotsUsed(0), 2u);  // A at 0, C at 1
  EXPECT_EQ(st.slotsUsed(1), 2u);  // k at 5, B at 6
  EXPECT_EQ(st.slotsExamined(), 3u);
  EXPECT_EQ(st.searchesCutShort(), 0u);
  EXPECT_EQ(st.failures(), 0u);
}

// As above with a budget of one move, and E at 1 and D at 3 besides: A could only go to 6,
// whose B could only go to 3; C could only go to 1, whose E could only go back to 5. No move
// is made; the slots 0, 6, 5 and 1 were looked at.
TEST(SingleWidthStatistics, APlacementWithNoRoomWithinTheChainDepthFailsForWantOfRoom) {
  Tables t = makeTable(2, 4, 1, 1);
  t.requestAt(key(2, 0), 0);
  t.requestAt(key(2, 3), 6);
  t.requestAt(key(2, 7), 3);
  t.requestAt(key(1, 1), 5);
  t.requestAt(key(1, 5), 1);
  const HashEntryKey k = key(5, 4);
  t.request(k);
  ASSERT_EQ(t.at(k), EntryId());

  const TableStatistics& st = t.table->statistics();
  EXPECT_EQ(st.failures(PlacementFailure::noRoom), 1u);
  EXPECT_EQ(st.failures(PlacementFailure::searchCutShort), 0u);
  EXPECT_EQ(st.failures(), 1u);
  EXPECT_EQ(st.placements(), 0u);
  EXPECT_EQ(st.moves(), 0u);
  EXPECT_EQ(st.largestChain(), 0u);
  EXPECT_EQ(st.slotsExamined(), 4u);
  EXPECT_EQ(st.slotsUsed(0), 3u);
  EXPECT_EQ(st.slotsUsed(1), 2u);

  // A key that failed is not tried again: the resync's request for it changes no figure.
  const TableStatistics before = st;
  t.table->handleHashUpdate();
  EXPECT_EQ(t.table->statistics(), before);
}

// Two banks of 64 buckets of 16 slots, every slot taken, and keys whose other buckets reach
// every bucket of the other bank: a breadth-first search from any key reaches all 2048 slots,
// maxMoveSearchSlots, and stops there.
TEST(SingleWidthStatistics, ABreadthFirstSearchThatReachesItsBoundFailsAsCutShort) {
  Tables t = makeTable(2, 64, 16, 8);
  for (U32 bucket = 0; bucket < 64; ++bucket) {
    for (U32 slot = 0; slot < 16; ++slot) {
      const U32 other = (bucket * 16 + slot) & 63;
      t.requestAt(key(static_cast<U16>(other + 64), bucket + 64), bucket * 16 + slot);
      t.requestAt(key(static_cast<U16>(bucket + 128), other + 128), (64 + bucket) * 16 + slot);
    }
  }
  ASSERT_EQ(t.table->statistics().slotsUsed(0), 1024u);
  ASSERT_EQ(t.table->statistics().slotsUsed(1), 1024u);
  t.table->moveSearchIs(MoveSearch::breadthFirst);
  const HashEntryKey k = key(192, 192);
  t.request(k);
  ASSERT_EQ(t.at(k), EntryId());

  const TableStatistics& st = t.table->statistics();
  EXPECT_EQ(st.failures(PlacementFailure::searchCutShort), 1u);
  EXPECT_EQ(st.failures(PlacementFailure::noRoom), 0u);
  EXPECT_EQ(st.searchesCutShort(), 1u);
  EXPECT_EQ(st.slotsExamined(), maxMoveSearchSlots);
  EXPECT_EQ(st.moves(), 0u);
  EXPECT_EQ(st.placementsAtRequestedId(), 2048u);
}

TEST(SingleWidthStatistics, ACheckedWriteThatRefusesARequestedIdCountsTheRefusal) {
  Tables t = makeTable(2, 4, 1, 2);
  const HashEntryKey a = key(2, 0);  // candidates 0 and 6
  const CheckedWrite refused = checkedConfigIs(*t.config, *t.table, a, EntryId(1));
  ASSERT_FALSE(refused.written);
  const CheckedWrite written = checkedConfigIs(*t.config, *t.table, a, EntryId(6));
  ASSERT_TRUE(written.written);

  const TableStatistics& st = t.table->statistics();
  EXPECT_EQ(st.failures(PlacementFailure::requestedIdRefused), 1u);
  EXPECT_EQ(st.failures(), 1u);
  EXPECT_EQ(st.placementsAtRequestedId(), 1u);
  EXPECT_EQ(st.slotsUsed(1), 1u);
}

TEST(SingleWidthStatistics, RemovalsChangeOnlyTheSlotsUsed) {
  TwoWaysToMakeRoom s(MoveSearch::depthFirst);
  s.t.request(s.f);
  s.t.request(s.k);
  TableStatistics expected = s.statistics();
  s.t.config->configDel(s.f);  // at 2, bank 0
  s.t.config->configDel(s.a);  // at 6, bank 1
  expected.slotsFreed(0, 1);
  expected.slotsFreed(1, 1);
  EXPECT_EQ(s.statistics(), expected);
  EXPECT_EQ(s.statistics().slotsUsed(0), 2u);
  EXPECT_EQ(s.statistics().slotsUsed(1), 1u);
}

TEST(SingleWidthStatistics, ResetZeroesEveryCountAndKeepsTheSlotsUsed) {
  TwoWaysToMakeRoom s(MoveSearch::depthFirst);
  s.t.request(s.f);
  s.t.request(s.k);
  s.t.table->statisticsReset();
  EXPECT_EQ(s.statistics(), slotsUsed(3, 2));
  EXPECT_EQ(s.statistics().placements(), 0u);
  EXPECT_EQ(s.statistics().moves(), 0u);
  EXPECT_EQ(s.statistics().largestChain(), 0u);
  EXPECT_EQ(s.statistics().slotsExamined(), 0u);
  // The described counters are not the statistics: a reset leaves them.
  EXPECT_EQ(s.t.table->numMoves(), 2u);
  EXPECT_EQ(s.t.table->numInsertions(), 5u);
}

TEST(SingleWidthStatistics, TheRegistryReadsTheStatisticsByNameAndResetsThem) {
  TwoWaysToMakeRoom s(MoveSearch::depthFirst);
  s.t.request(s.f);
  s.t.request(s.k);
  const Fwk::TypeInfo* type = s.t.table->fwkType();
  const Fwk::AttributeInfo* statistics = type->attribute("statistics");
  ASSERT_NE(statistics, nullptr);
  // After every attribute and operation that the table base registered before.
  EXPECT_EQ(statistics->id, Fwk::firstOwnAttrId + 32);
  EXPECT_EQ(statistics->typeName, "TesselCentral::TableStatistics");
  EXPECT_EQ(statistics->read(*s.t.table),
            "TesselCentral::TableStatistics{placementsByMoves={0: 1, 2: 1}, placementMoves=2, "
            "placementsAtRequestedId=3, failures={noRoom: 0, searchCutShort: 0, requestedIdRefused: 0, "
            "requestedIdNotHonoured: 0}, moves=2, largestChain=2, slotsUsed={0: 3, 1: 2}, slotsExamined=2, "
            "runsExamined=0, searchesCutShort=0}");

  const Fwk::AttributeInfo* reset = type->attribute("statisticsReset");
  ASSERT_NE(reset, nullptr);
  EXPECT_EQ(reset->id, Fwk::firstOwnAttrId + 33);
  EXPECT_EQ(reset->call(*s.t.table, {}, Fwk::Scope()), "");
  EXPECT_EQ(statistics->read(*s.t.table),
            "TesselCentral::TableStatistics{placementsByMoves={}, placementMoves=0, placementsAtRequestedId=0, "
            "failures={noRoom: 0, searchCutShort: 0, requestedIdRefused: 0, requestedIdNotHonoured: 0}, moves=0, "
            "largestChain=0, slotsUsed={0: 3, 1: 2}, slotsExamined=0, runsExamined=0, searchesCutShort=0}");
}

TEST(SingleWidthStatistics, APlacementOfManyMovesCountsInTheHistogramsLastBucket) {
  TableStatistics s(1);
  s.placed(TableStatistics::movesHistogramSize - 1);
  s.placed(1000);
  EXPECT_EQ(s.placementsWithMoves(TableStatistics::movesHistogramSize - 1), 2u);
  EXPECT_EQ(s.placementsWithMoves(5000), 2u);
  EXPECT_EQ(s.placementMoves(), TableStatistics::movesHistogramSize - 1 + 1000);
  EXPECT_EQ(s.largestChain(), 1000u);
}

}  // namespace
}  // namespace TesselCentral::test
