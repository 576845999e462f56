// The breadth-first search for room (moveSearch breadthFirst) of the single-width table:
// the shortest sequence of moves, applied from its free end backwards.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "../multiwidth/MultiWidthSupport.h"
#include "MultiHashTable/MultiHashTable.h"
#include "MultiHashTable/fwk/Error.h"
#include "SingleWidthSupport.h"
#include "TestSupport.h"

namespace TesselCentral::test {
namespace {

// Two banks of four one-slot buckets, step budget 2 (bank 0 takes crc32 & 3: ids 0-3;
// bank 1 crc16 & 3: ids 4-7). The new key's candidates are ids 0 and 5, both taken:
//  - A at 0 would go to bank 1's bucket 2 (id 6), where B stands; B could go to id 3;
//  - C at 5 can go straight to bank 0's bucket 1 (id 1), which is free.
// The depth-first search tries id 0 first and moves two keys (B to 3, A to 6); the
// breadth-first search finds the one move of C.
struct TwoWaysToMakeRoom {
  Tables t = makeTable(2, 4, 1, 2);
  HashEntryKey a = key(2, 0);
  HashEntryKey b = key(2, 3);
  HashEntryKey c = key(1, 1);
  HashEntryKey k = key(5, 4);

  explicit TwoWaysToMakeRoom(MoveSearch search) {
    t.table->moveSearchIs(search);
    t.requestAt(a, 0);
    t.requestAt(b, 6);
    t.requestAt(c, 5);
  }
};

TEST(BreadthFirst, TheDefaultSearchIsDepthFirst) {
  Tables t = makeTable(2, 4, 1, 2);
  EXPECT_EQ(t.table->moveSearch(), MoveSearch::depthFirst);
}

TEST(BreadthFirst, TheDepthFirstSearchMovesTwoKeysWhereOneMoveWouldDo) {
  TwoWaysToMakeRoom s(MoveSearch::depthFirst);
  s.t.request(s.k);
  EXPECT_EQ(s.t.at(s.k), EntryId(0));
  EXPECT_EQ(s.t.at(s.a), EntryId(6));
  EXPECT_EQ(s.t.at(s.b), EntryId(3));
  EXPECT_EQ(s.t.at(s.c), EntryId(5));
  EXPECT_EQ(s.t.table->numMoves(), 2u);
}

TEST(BreadthFirst, TheShortestSequenceOfMovesIsTaken) {
  TwoWaysToMakeRoom s(MoveSearch::breadthFirst);
  ChangeRecorder published(*s.t.status);
  s.t.request(s.k);
  EXPECT_EQ(s.t.at(s.k), EntryId(5));
  EXPECT_EQ(s.t.at(s.c), EntryId(1));
  EXPECT_EQ(s.t.at(s.a), EntryId(0));
  EXPECT_EQ(s.t.at(s.b), EntryId(6));
  EXPECT_EQ(s.t.table->numMoves(), 1u);
  EXPECT_EQ(s.t.table->numInsertions(), 4u);
  // The moved key is published at its new id before the key takes the slot it left.
  ASSERT_EQ(published.changes.size(), 2u);
  EXPECT_EQ(published.changes[0].key, s.c);
  EXPECT_EQ(published.changes[0].current, EntryId(1));
  EXPECT_EQ(published.changes[1].key, s.k);
  EXPECT_EQ(published.changes[1].current, EntryId(5));
  EXPECT_TRUE(s.t.table->audit().empty());
}

TEST(BreadthFirst, ALongerSequenceIsAppliedFromItsFreeEndBackwards) {
  // D takes C's only other slot (id 1), so no single move frees a candidate. Two sequences
  // of two moves exist (B to 3 then A to 6; D to 7 then C to 1); the one from the first
  // candidate in bank order wins, and is applied from its free end: B, then A, then the key.
  TwoWaysToMakeRoom s(MoveSearch::breadthFirst);
  const HashEntryKey d = key(3, 1);
  s.t.requestAt(d, 1);
  ChangeRecorder published(*s.t.status);
  s.t.request(s.k);
  EXPECT_EQ(s.t.at(s.k), EntryId(0));
  EXPECT_EQ(s.t.at(s.a), EntryId(6));
  EXPECT_EQ(s.t.at(s.b), EntryId(3));
  EXPECT_EQ(s.t.at(s.c), EntryId(5));
  EXPECT_EQ(s.t.at(d), EntryId(1));
  ASSERT_EQ(published.changes.size(), 3u);
  EXPECT_EQ(published.changes[0].key, s.b);
  EXPECT_EQ(published.changes[1].key, s.a);
  EXPECT_EQ(published.changes[2].key, s.k);
  EXPECT_EQ(s.t.table->numMoves(), 2u);
  EXPECT_TRUE(s.t.table->audit().empty());
}

TEST(BreadthFirst, NoMoveHappensBeyondTheStepBudget) {
  Tables t = makeTable(2, 4, 1, 0);
  t.table->moveSearchIs(MoveSearch::breadthFirst);
  t.requestAt(key(2, 0), 0);
  t.requestAt(key(1, 1), 5);
  t.request(key(5, 4));
  EXPECT_FALSE(t.at(key(5, 4)).isValid());
  EXPECT_EQ(t.table->numMoves(), 0u);
}

TEST(BreadthFirst, NoIdHoldsTwoKeysAtAnyPublicationAndTheAuditStaysClean) {
  std::mt19937 rng(3);
  for (U32 steps = 1; steps <= 8; ++steps) {
    for (U32 banks = 2; banks <= 4; ++banks) {
      Tables t = makeTable(banks, 8, 2, steps);
      t.table->moveSearchIs(MoveSearch::breadthFirst);
      OneKeyPerId check(*t.status, *t.table);
      std::vector<HashEntryKey> placed;
      std::set<std::pair<U16, U32>> used;
      for (int n = 0; n < 200; ++n) {
        randomRequestOrDeletion(rng, *t.config, *t.status, placed, used,
                                [](U16 crc16, U32 crc32) { return key(crc16, crc32); });
        const std::vector<std::string> audit = t.table->audit();
        ASSERT_TRUE(audit.empty()) << "steps " << steps << " banks " << banks << ": " << audit.front();
      }
      EXPECT_GT(check.publications, 200);
      EXPECT_EQ(check.violations, std::vector<std::string>{}) << "steps " << steps << " banks " << banks;
    }
  }
}

TEST(BreadthFirst, TheSameRequestsGiveTheSamePlacements) {
  const auto run = [] {
    Tables t = makeTable(4, 16, 4, 3);
    t.table->moveSearchIs(MoveSearch::breadthFirst);
    std::mt19937 rng(5);
    std::vector<std::pair<HashEntryKey, EntryId>> out;
    for (int n = 0; n < 300; ++n) {
      const HashEntryKey k = key(static_cast<U16>(1 + rng() % 60000), static_cast<U32>(rng()));
      t.request(k);
      out.emplace_back(k, t.at(k));
    }
    return std::make_pair(out, t.table->numMoves());
  };
  const auto first = run();
  EXPECT_EQ(first, run());
  EXPECT_GT(first.second, 0u);
}

}  // namespace
}  // namespace TesselCentral::test
