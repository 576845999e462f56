// A chain of moves that comes back to an entry whose key an outer call of the same
// placement is already moving: the move at that entry is refused, so that every key on a
// successful chain moves by exactly one position and no key loses its record.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "MultiHashTable/MultiHashTable.h"
#include "SingleWidthSupport.h"
#include "TestSupport.h"

namespace TesselCentral::test {
namespace {

constexpr const char* refusedMoveText = "is already being moved further up the chain; not moved";

// Two banks of two buckets of three slots, step budget 4: the geometry in which a fuzzer
// found a chain returning to its first entry.
struct ReturningChain {
  Ptr<HashEntryConfig> config = hashEntryConfigFactory();
  Ptr<HashEntryStatus> status = hashEntryStatusFactory();
  Ptr<MultiHashTable> table = multiHashTableFactory(2, 2, 3, config, status, 4, false);

  ReturningChain() {
    table->bankIs(HashEntryType::singleWide, 0, 2, 3, HashFunc::hashCrc32Upper, 54, 12, 1);
    table->bankIs(HashEntryType::singleWide, 1, 2, 3, HashFunc::hashCrc64, 34, 28, 0);
  }

  // Every request but the last, which starts the returning chain.
  void prepare() {
    config->configIs(HashEntryKey(109, 24608, 78, HashEntryType::singleWide), EntryId());
    config->configIs(HashEntryKey(32610, 7143424, 32, HashEntryType::singleWide), EntryId());
    config->configIs(HashEntryKey(19968, 2137182251, 0, HashEntryType::singleWide), EntryId());
    config->configIs(HashEntryKey(19968, 1650642987, 127, HashEntryType::singleWide), EntryId());
    config->configIs(HashEntryKey(109, 2492569121, 78, HashEntryType::singleWide), EntryId(7));
    config->configIs(HashEntryKey(127, 1308622848, 43, HashEntryType::singleWide), EntryId());
  }
  void placeLast() { config->configIs(HashEntryKey(0, 1, 0, HashEntryType::singleWide), EntryId()); }
};

TEST(ChainGuard, AChainReturningToItsFirstEntryLeavesEveryKeyRecordedWhereItsStatusSays) {
  ReturningChain t;
  t.prepare();
  ASSERT_TRUE(t.table->audit().empty());
  t.placeLast();

  EXPECT_EQ(t.table->audit(), std::vector<std::string>{});
  const std::vector<std::pair<HashEntryKey, U32>> expected = {
      {HashEntryKey(0, 1, 0, HashEntryType::singleWide), 0},
      {HashEntryKey(109, 24608, 78, HashEntryType::singleWide), 6},
      {HashEntryKey(109, 2492569121, 78, HashEntryType::singleWide), 3},
      {HashEntryKey(127, 1308622848, 43, HashEntryType::singleWide), 8},
      {HashEntryKey(19968, 1650642987, 127, HashEntryType::singleWide), 1},
      {HashEntryKey(19968, 2137182251, 0, HashEntryType::singleWide), 2},
      {HashEntryKey(32610, 7143424, 32, HashEntryType::singleWide), 7},
  };
  for (const auto& [k, id] : expected) {
    EXPECT_EQ(t.status->status(k), EntryId(id)) << k;
    EXPECT_EQ(t.table->hashTableEntry(EntryId(id)), k) << "id " << id;
  }
  EXPECT_EQ(t.table->hashTableEntryCollection().size(), expected.size());
  EXPECT_EQ(t.table->numInsertions(), 7u);
  EXPECT_EQ(t.table->numMoves(), 4u);
}

TEST(ChainGuard, TheRefusedMoveIsTracedAtLevelTwoAfterTheCallsOwnOpeningLine) {
  ReturningChain t;
  t.prepare();
  TraceCapture capture(levelBit(2));
  t.placeLast();

  const std::vector<std::string> lines = capture.texts(2);
  const auto refused = std::find_if(lines.begin(), lines.end(), [](const std::string& line) {
    return line.find(refusedMoveText) != std::string::npos;
  });
  ASSERT_NE(refused, lines.end());
  // The refusal names the entry of the call that refuses, which opened with its own line.
  const std::string eIdText = refused->substr(0, refused->find(refusedMoveText));
  ASSERT_EQ(eIdText.rfind("rehashEntry eId: ", 0), 0u) << *refused;
  const std::string eId = eIdText.substr(std::string("rehashEntry eId: ").size());
  const auto opening = std::find_if(std::make_reverse_iterator(refused), lines.rend(), [&](const std::string& line) {
    return line.rfind("rehashEntry rehash eId: " + eId + "to bank ", 0) == 0;
  });
  EXPECT_NE(opening, lines.rend()) << "no opening line for eId " << eId;
}

TEST(ChainGuard, WithABudgetOfThreeOrLessNoMoveIsEverRefused) {
  for (U32 steps = 0; steps <= 3; ++steps) {
    Tables t = makeTable(2, 4, 2, steps);
    TraceCapture capture(levelBit(2));
    std::mt19937 rng(steps + 1);
    for (int i = 0; i < 40; ++i) {
      t.config->configIs(
          HashEntryKey(static_cast<U16>(1 + rng() % 997), static_cast<U32>(rng()), 1, HashEntryType::singleWide),
          EntryId());
    }
    for (const std::string& line : capture.texts(2)) {
      EXPECT_EQ(line.find(refusedMoveText), std::string::npos) << "steps " << steps << ": " << line;
    }
  }
}

// A plain fill of 2 banks x 256 buckets x 4 slots with random keys, the table audited after
// every request, at the step budgets where a chain can come back to its start.
class ChainGuardFill : public ::testing::TestWithParam<U32> {};

TEST_P(ChainGuardFill, StaysAuditCleanAfterEveryRequestUpToAFullTable) {
  const U32 steps = GetParam();
  for (unsigned seed = 1; seed <= 3; ++seed) {
    Ptr<HashEntryConfig> config = hashEntryConfigFactory();
    Ptr<HashEntryStatus> status = hashEntryStatusFactory();
    Ptr<MultiHashTable> table = multiHashTableFactory(2, 256, 4, config, status, steps, false);
    table->bankIs(HashEntryType::singleWide, 0, 256, 4, HashFunc::hashCrc32Lower, 0, 0, 255);
    table->bankIs(HashEntryType::singleWide, 1, 256, 4, HashFunc::hashCrc32Upper, 0, 8, 255);
    std::mt19937 rng(seed);
    std::set<std::pair<U16, U32>> used;
    U32 failures = 0;
    // Requests until the table has refused a few keys: the last points of fill are where
    // chains grow long enough to come back.
    for (U32 n = 0; n < table->tableCapacity() && failures < 8; ++n) {
      const auto crc16 = static_cast<U16>(rng());
      const auto crc32 = static_cast<U32>(rng());
      if ((crc16 == 0 && crc32 == 0) || !used.insert({crc16, crc32}).second) continue;
      const HashEntryKey k(crc16, crc32, 0, HashEntryType::singleWide);
      config->configIs(k, EntryId());
      if (!status->status(k).isValid()) ++failures;
      const std::vector<std::string> violations = table->audit();
      ASSERT_TRUE(violations.empty()) << "steps " << steps << " seed " << seed << " request " << n << ": "
                                      << violations.front();
    }
    EXPECT_EQ(failures, 8u) << "the fill never reached the table's limit";
  }
}

INSTANTIATE_TEST_SUITE_P(BudgetsFiveToEight, ChainGuardFill, ::testing::Values(5u, 6u, 7u, 8u),
                         [](const ::testing::TestParamInfo<U32>& budget) {
                           return std::to_string(budget.param) + "steps";
                         });

}  // namespace
}  // namespace TesselCentral::test
