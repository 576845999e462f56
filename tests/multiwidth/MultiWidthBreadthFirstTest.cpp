// Room by few moves in the multi-width table (moveSearch breadthFirst): whole plans, short
// ones first, entries free to move within their own bucket, applied from the free end.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "MultiHashTable/MultiHashTable.h"
#include "MultiWidthSupport.h"
#include "TestSupport.h"

namespace TesselCentral::test {
namespace {

// Two banks of 16 four-slot buckets (bank 0: crc32 & 15, bank 1: crc16 & 15).
struct Table : MultiWidthTable {
  Table(U32 steps, MoveSearch search) : MultiWidthTable(4, steps, twoBanks(4)) { table->moveSearchIs(search); }

  U32 idAt(U32 bank, U32 bucket, U32 slot) const {
    return helper().posToEntryId(packPosition(bank, bucket, slot)).value();
  }
  void placeAt(const HashEntryKey& k, U32 bank, U32 bucket, U32 slot) { place(k, idAt(bank, bucket, slot)); }
  // Four singles in a bucket, each of which could go to bucket `otherBucket` of the other bank.
  void fillWithSingles(U32 bank, U32 bucket, U32 otherBucket, U32 tag) {
    for (U32 s = 0; s < 4; ++s) {
      const U32 crc32 = bank == 0 ? bucket + 16 * (tag + s) : otherBucket + 16 * (tag + s);
      const auto crc16 = static_cast<U16>(bank == 0 ? otherBucket + 16 * (tag + s) : bucket + 16 * (tag + s));
      placeAt(key(crc16, crc32, single), bank, bucket, s);
    }
  }
};

// A double key's buckets: bank 0's bucket 1 holds singles at slots 0 and 2, whose buckets in
// bank 1 are full; bank 1's bucket 2 holds two doubles, which bank 0's buckets 13 and 14
// could take.
struct FragmentedBucket : Table {
  HashEntryKey a = key(3, 1, single);
  HashEntryKey b = key(4, 17, single);
  HashEntryKey e = key(2, 13, dbl);
  HashEntryKey f = key(18, 14, dbl);
  HashEntryKey d = key(2, 1, dbl);

  FragmentedBucket(U32 steps, MoveSearch search) : Table(steps, search) {
    placeAt(a, 0, 1, 0);
    placeAt(b, 0, 1, 2);
    fillWithSingles(1, 3, 5, 1);
    fillWithSingles(1, 4, 6, 1);
    placeAt(e, 1, 2, 0);
    placeAt(f, 1, 2, 2);
  }
};

TEST(MultiWidthBreadthFirst, ANarrowEntryMovesWithinItsBucketToFreeAnAlignedRunForAWideOne) {
  FragmentedBucket t(1, MoveSearch::breadthFirst);
  t.request(t.d);
  EXPECT_EQ(t.statusOf(t.d), t.idAt(0, 1, 0));
  EXPECT_EQ(t.statusOf(t.a), t.idAt(0, 1, 3));
  EXPECT_EQ(t.statusOf(t.e), t.idAt(1, 2, 0));
  EXPECT_EQ(t.table->numMoves(), 1u);
  EXPECT_EQ(invariantViolations(t), std::vector<std::string>{});
}

TEST(MultiWidthBreadthFirst, TheDepthFirstSearchMovesAnEntryToAnotherBankInstead) {
  FragmentedBucket t(1, MoveSearch::depthFirst);
  t.request(t.d);
  EXPECT_EQ(t.statusOf(t.d), t.idAt(1, 2, 0));
  EXPECT_EQ(t.statusOf(t.e), t.idAt(0, 13, 0));
  EXPECT_EQ(t.statusOf(t.a), t.idAt(0, 1, 0));
  EXPECT_EQ(t.table->numMoves(), 1u);
}

// A single key's buckets are both full. Emptying a slot of bank 0's bucket 1 takes two
// moves (its singles' buckets in bank 1 are full of singles that bank 0's bucket 11 could
// take); a slot of bank 1's bucket 2 takes one (its singles could go to bank 0's bucket 7).
struct OneMoveOrTwo : Table {
  HashEntryKey k = key(2, 1, single);

  explicit OneMoveOrTwo(MoveSearch search, U32 steps = 2) : Table(steps, search) {
    fillWithSingles(0, 1, 3, 1);
    fillWithSingles(1, 3, 11, 10);
    fillWithSingles(1, 2, 7, 1);
  }
};

TEST(MultiWidthBreadthFirst, TheFewestMovesWinOverTheFirstBank) {
  OneMoveOrTwo t(MoveSearch::breadthFirst);
  t.request(t.k);
  EXPECT_EQ(t.statusOf(t.k), t.idAt(1, 2, 0));
  EXPECT_EQ(t.statusOf(key(18, 23, single)), t.idAt(0, 7, 0));
  EXPECT_EQ(t.table->numMoves(), 1u);
  EXPECT_EQ(invariantViolations(t), std::vector<std::string>{});
}

TEST(MultiWidthBreadthFirst, TheDepthFirstSearchTakesTwoMovesInTheFirstBank) {
  OneMoveOrTwo t(MoveSearch::depthFirst);
  t.request(t.k);
  EXPECT_EQ(t.statusOf(t.k), t.idAt(0, 1, 0));
  EXPECT_EQ(t.statusOf(key(3 + 16, 1 + 16, single)), t.idAt(1, 3, 0));
  EXPECT_EQ(t.statusOf(key(3 + 160, 11 + 160, single)), t.idAt(0, 11, 0));
  EXPECT_EQ(t.table->numMoves(), 2u);
}

// A quad key over four singles: each single moves to its bucket in bank 1, in slot order,
// and the quad takes the whole bucket.
TEST(MultiWidthBreadthFirst, EveryEntryOfAWideRunIsMovedBeforeTheKeyTakesIt) {
  Table t(1, MoveSearch::breadthFirst);
  t.fillWithSingles(0, 1, 5, 1);
  t.fillWithSingles(1, 2, 9, 1);
  ChangeRecorder recorder(*t.status);

  const HashEntryKey q = key(2, 1, quad);
  t.request(q);
  ASSERT_EQ(recorder.changes.size(), 5u);
  for (U32 s = 0; s < 4; ++s) {
    const HashEntryKey moved = key(static_cast<U16>(5 + 16 * (1 + s)), 1 + 16 * (1 + s), single);
    EXPECT_EQ(recorder.changes[s].key, moved) << s;
    EXPECT_EQ(recorder.changes[s].previous.value(), t.idAt(0, 1, s)) << s;
    EXPECT_EQ(recorder.changes[s].current.value(), t.idAt(1, 5, s)) << s;
  }
  EXPECT_EQ(recorder.changes[4].key, q);
  EXPECT_EQ(recorder.changes[4].current.value(), t.idAt(0, 1, 0));
  EXPECT_EQ(t.table->numMoves(), 4u);
  EXPECT_EQ(invariantViolations(t), std::vector<std::string>{});
}

TEST(MultiWidthBreadthFirst, NothingMovesWhenNoWholePlanFitsTheStepBudget) {
  // With bank 0's bucket 7 full as well, every plan needs chains two moves deep: at a step
  // budget of 1 the key gets no room, and no entry has moved.
  OneMoveOrTwo t(MoveSearch::breadthFirst, 1);
  t.fillWithSingles(0, 7, 15, 20);
  t.request(t.k);
  EXPECT_FALSE(t.status->status(t.k).isValid());
  EXPECT_EQ(t.table->numMoves(), 0u);
  EXPECT_EQ(invariantViolations(t), std::vector<std::string>{});
}

TEST(MultiWidthBreadthFirst, AStepBudgetOfZeroMovesNothing) {
  FragmentedBucket t(0, MoveSearch::breadthFirst);
  t.request(t.d);
  EXPECT_FALSE(t.status->status(t.d).isValid());
  EXPECT_EQ(t.table->numMoves(), 0u);
}

TEST(MultiWidthBreadthFirst, TheSearchAndItsMovesAreTracedAtLevelTwo) {
  FragmentedBucket t(1, MoveSearch::breadthFirst);
  const TraceCapture capture(levelBit(2));
  t.request(t.d);
  std::string out;
  for (const std::string& line : capture.texts(2)) out += line + "\n";
  EXPECT_NE(out.find("insertEntry breadth-first search: "), std::string::npos) << out;
  EXPECT_NE(out.find(" runs examined, 1 moves free pos: 0x10"), std::string::npos) << out;
  EXPECT_NE(out.find("insertEntry breadth-first move key: "), std::string::npos) << out;
}

HashEntryType randomWidth(std::mt19937& rng) {
  const U32 r = rng() % 10;
  return r < 7 ? single : r < 9 ? dbl : quad;
}

TEST(MultiWidthBreadthFirst, NoIdHoldsTwoKeysAtAnyPublicationAndTheAuditStaysClean) {
  std::mt19937 rng(11);
  for (U32 steps = 1; steps <= 5; ++steps) {
    Table t(steps, MoveSearch::breadthFirst);
    OneKeyPerId check(*t.status, *t.table);
    std::vector<HashEntryKey> placed;
    std::set<std::pair<U16, U32>> used;
    for (int n = 0; n < 400; ++n) {
      randomRequestOrDeletion(rng, *t.config, *t.status, placed, used,
                              [&](U16 crc16, U32 crc32) { return key(crc16, crc32, randomWidth(rng)); });
      const std::vector<std::string> audit = t.table->audit();
      ASSERT_TRUE(audit.empty()) << "steps " << steps << ": " << audit.front();
      ASSERT_EQ(invariantViolations(t), std::vector<std::string>{}) << "steps " << steps;
    }
    EXPECT_GT(t.table->numMoves(), 0u) << "steps " << steps;
    EXPECT_GT(check.publications, 200) << "steps " << steps;
    EXPECT_EQ(check.violations, std::vector<std::string>{}) << "steps " << steps;
  }
}

TEST(MultiWidthBreadthFirst, ASearchCutShortLeavesTheKeyToTheDepthFirstSearchAndTheAuditStaysClean) {
  // Four banks of 32 buckets filled to their first failures at a step budget of 5: the
  // searches for the widest keys run past maxMoveSearchRuns, and the depth-first search
  // takes each of those keys up.
  std::vector<BankArgs> banks(4);
  for (U32 i = 0; i < banks.size(); ++i) {
    banks[i].numBuckets = 32;
    banks[i].hashFunc = HashFunc::hashCrc32And16;
    banks[i].hashOffSet = 5 * i;
    banks[i].hashBits = 5;
    banks[i].phyBankId = i + 1;
  }
  MultiWidthTable t(4, 5, banks);
  t.table->moveSearchIs(MoveSearch::breadthFirst);
  const TraceCapture capture(levelBit(2));
  std::mt19937 rng(7);
  U32 failures = 0;
  for (int n = 0; n < 1000 && failures < 5; ++n) {
    const HashEntryKey k = key(static_cast<U16>(rng()), static_cast<U32>(rng()), randomWidth(rng));
    t.request(k);
    if (!t.status->status(k).isValid()) {
      ++failures;
      t.config->configDel(k);
    }
    ASSERT_EQ(invariantViolations(t), std::vector<std::string>{}) << "request " << n;
  }
  U32 handedOver = 0, placedAfter = 0;
  const std::vector<std::string> lines = capture.texts(2);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].find("the depth-first search takes over") == std::string::npos) continue;
    ++handedOver;
    // The depth-first search's own steps follow the hand-over.
    if (i + 1 < lines.size() && lines[i + 1].find(" no space found rehashing the key: ") != std::string::npos) {
      ++placedAfter;
    }
  }
  EXPECT_GT(handedOver, 0u);
  EXPECT_EQ(placedAfter, handedOver);
  EXPECT_EQ(t.table->audit(), std::vector<std::string>{});
}

TEST(MultiWidthBreadthFirst, TheSameRequestsGiveTheSamePlacements) {
  const auto run = [] {
    Table t(3, MoveSearch::breadthFirst);
    std::mt19937 rng(5);
    std::vector<std::pair<HashEntryKey, U32>> out;
    for (int n = 0; n < 200; ++n) {
      const HashEntryKey k = key(static_cast<U16>(1 + rng() % 60000), static_cast<U32>(rng()), randomWidth(rng));
      t.request(k);
      out.emplace_back(k, t.status->status(k).value());
    }
    return std::make_pair(out, t.table->numMoves());
  };
  const auto first = run();
  EXPECT_EQ(first, run());
  EXPECT_GT(first.second, 0u);
}

TEST(MultiWidthBreadthFirst, TheSearchTakesEffectFromTheNextPlacement) {
  FragmentedBucket t(1, MoveSearch::depthFirst);
  EXPECT_EQ(t.table->moveSearch(), MoveSearch::depthFirst);
  t.table->moveSearchIs(MoveSearch::breadthFirst);
  EXPECT_EQ(t.table->moveSearch(), MoveSearch::breadthFirst);
  t.request(t.d);
  EXPECT_EQ(t.statusOf(t.d), t.idAt(0, 1, 0));
}

}  // namespace
}  // namespace TesselCentral::test
