// A table filled by random requests, saved, and taken over by a fresh table: the same
// placement without a move and with one publication per key, and then the same answers to
// 10,000 further requests, request by request.
#include <gtest/gtest.h>

#include <set>

#include "../multiwidth/MultiWidthSupport.h"
#include "RandomClient.h"
#include "RestoreSupport.h"

namespace TesselCentral {
namespace {

using test::placementOf;
using test::RandomClient;
using test::RandomWrite;

constexpr int fillWrites = 1500;
constexpr int furtherWrites = 10000;

struct Side {
  MultiHashTableBase& table;
  HashEntryConfig& config;
  HashEntryStatus& status;
};

void takeOverAndContinue(const Side& original, const Side& restored, RandomClient& client) {
  for (int i = 0; i < fillWrites; ++i) {
    const RandomWrite w = client.next(original.table);
    if (client.apply(original.config, original.table, w).written) client.written(w, original.config);
  }
  ASSERT_GT(original.table.numMoves(), 0u);
  ASSERT_GT(original.table.numDeletions(), 0u);
  // The ids that a single-width table's own rules leave recorded without a result are
  // released first: a saved placement is the results, and holds no such id.
  if (!original.table.auditReport().clean()) original.table.reconcile();
  ASSERT_TRUE(original.table.auditReport().clean()) << original.table.auditReport();

  const U32 movesAtSave = original.table.numMoves();
  const U32 deletionsAtSave = original.table.numDeletions();
  const auto requests = test::sortedPairs(original.config.configCollection());
  const SavedPlacement saved = savedPlacementOf(original.status);
  std::size_t placed = 0;
  for (const auto& entry : saved) placed += entry.second.isValid() ? 1 : 0;
  ASSERT_GT(placed, 100u);
  ASSERT_LT(placed, saved.size()) << "some keys found no room";

  test::ChangeRecorder publications(restored.status);
  const RestoreCheck check = test::restartFrom(restored.table, restored.config, requests, saved);
  ASSERT_TRUE(check.passes()) << check.text();
  EXPECT_EQ(check.keys(), saved.size());

  EXPECT_EQ(placementOf(restored.table), placementOf(original.table));
  // The slots used are a figure of the placement, the same however the keys came there.
  EXPECT_EQ(restored.table.statistics().slotsUsed(), original.table.statistics().slotsUsed());
  EXPECT_EQ(restored.table.numMoves(), 0u);
  EXPECT_EQ(restored.table.numInsertions(), placed);
  EXPECT_EQ(restored.table.numDeletions(), 0u);
  EXPECT_TRUE(restored.table.auditReport().clean()) << restored.table.auditReport();
  // One publication per key, in the placement's order, each the key's first.
  ASSERT_EQ(publications.changes.size(), saved.size());
  for (std::size_t i = 0; i < saved.size(); ++i) {
    EXPECT_EQ(publications.changes[i].key, saved[i].first);
    EXPECT_FALSE(publications.changes[i].hadPrevious);
    EXPECT_EQ(publications.changes[i].current, saved[i].second);
  }

  for (int i = 0; i < furtherWrites; ++i) {
    const RandomWrite w = client.next(original.table);
    const CheckedWrite there = client.apply(original.config, original.table, w);
    const CheckedWrite here = client.apply(restored.config, restored.table, w);
    ASSERT_EQ(here.written, there.written) << "write " << i << ": " << here.verdict.text();
    ASSERT_EQ(restored.status.statusFind(w.key) != nullptr, original.status.statusFind(w.key) != nullptr)
        << "write " << i;
    ASSERT_EQ(restored.status.status(w.key), original.status.status(w.key)) << "write " << i;
    if (there.written) client.written(w, original.config);
  }
  EXPECT_EQ(placementOf(restored.table), placementOf(original.table));
  EXPECT_EQ(restored.table.statistics().slotsUsed(), original.table.statistics().slotsUsed());
  // From the restore on, the two tables count alike.
  EXPECT_EQ(restored.table.numMoves(), original.table.numMoves() - movesAtSave);
  EXPECT_EQ(restored.table.numDeletions(), original.table.numDeletions() - deletionsAtSave);
}

Ptr<MultiHashTable> singleWidthTable(const Ptr<HashEntryConfig>& config, const Ptr<HashEntryStatus>& status) {
  auto table = multiHashTableFactory(4, 32, 2, config, status, 3, false);
  table->bankIs(HashEntryType::singleWide, 0, 32, 2, HashFunc::hashCrc32Lower, 0, 0, 31);
  table->bankIs(HashEntryType::singleWide, 1, 32, 2, HashFunc::hashCrc16Lower, 0, 0, 31);
  table->bankIs(HashEntryType::singleWide, 2, 32, 2, HashFunc::hashCrc32Lower, 8, 0, 31);
  table->bankIs(HashEntryType::singleWide, 3, 32, 2, HashFunc::hashCrc16Lower, 8, 0, 31);
  return table;
}

TEST(RestoreTakeOver, SingleWidthTableTakesOverARandomPlacementAndAnswersLikeTheOriginal) {
  auto config = hashEntryConfigFactory();
  auto status = hashEntryStatusFactory();
  auto original = singleWidthTable(config, status);
  ASSERT_EQ(original->configurationProblem(), "");
  auto restoredConfig = hashEntryConfigFactory();
  auto restoredStatus = hashEntryStatusFactory();
  auto restored = singleWidthTable(restoredConfig, restoredStatus);

  RandomClient client(2024, {HashEntryType::singleWide}, WriteRefusal::fatal);
  takeOverAndContinue(Side{*original, *config, *status}, Side{*restored, *restoredConfig, *restoredStatus}, client);
}

std::vector<test::BankArgs> fourMultiWidthBanks() {
  std::vector<test::BankArgs> banks(4);
  for (U32 i = 0; i < 4; ++i) {
    banks[i].numBuckets = 16;
    banks[i].bucketSize = 4;
    banks[i].hashFunc = i % 2 == 0 ? HashFunc::hashCrc32Lower : HashFunc::hashCrc16Lower;
    banks[i].hashOffSet = i < 2 ? 0 : 8;
    banks[i].phyBankId = i;  // bank 0 holds position 0, which no placement hands out
  }
  return banks;
}

TEST(RestoreTakeOver, MultiWidthTableTakesOverARandomPlacementAndAnswersLikeTheOriginal) {
  test::MultiWidthTable original(4, 3, fourMultiWidthBanks());
  ASSERT_EQ(original.table->configurationProblem(), "");
  test::MultiWidthTable restored(4, 3, fourMultiWidthBanks());

  RandomClient client(7, {HashEntryType::singleWide, HashEntryType::doubleWide, HashEntryType::quadWide},
                      WriteRefusal::fatalOrHazard);
  takeOverAndContinue(Side{*original.table, *original.config, *original.status},
                      Side{*restored.table, *restored.config, *restored.status}, client);
  EXPECT_TRUE(test::invariantViolations(restored).empty());
}

}  // namespace
}  // namespace TesselCentral
