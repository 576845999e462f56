// Randomised requests against single-width tables of many shapes. After every request the
// status, the occupancy record and the counters must agree with each other.
#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "MultiHashTable/MultiHashTable.h"

namespace TesselCentral {
namespace {

struct Geometry {
  U32 banks;
  U32 slots;
  bool bucketSpanBanks;
  U32 steps;
};

constexpr U32 numBuckets = 8;  // a power of two: the banks mask with numBuckets - 1
constexpr int requestsPerTable = 1200;

std::string nameOf(const ::testing::TestParamInfo<Geometry>& info) {
  const Geometry& g = info.param;
  return std::to_string(g.banks) + "banks_" + std::to_string(g.slots) + "slots_" +
         (g.bucketSpanBanks ? "bucketMajor" : "bankMajor") + "_" + std::to_string(g.steps) + "steps";
}

std::vector<Geometry> allGeometries() {
  std::vector<Geometry> out;
  for (U32 banks = 1; banks <= 4; ++banks) {
    for (U32 slots = 1; slots <= 4; ++slots) {
      for (bool span : {false, true}) {
        for (U32 steps = 0; steps <= 3; ++steps) out.push_back(Geometry{banks, slots, span, steps});
      }
    }
  }
  return out;
}

// Keys with pairwise different (crc16, crc32), never both 0: neither the empty marker nor a
// zero key, and no two keys that the table would take for one another.
std::vector<HashEntryKey> makeKeys(std::mt19937& rng, std::size_t count) {
  std::set<std::pair<U16, U32>> used;
  std::vector<HashEntryKey> keys;
  while (keys.size() < count) {
    const auto crc16 = static_cast<U16>(rng() & 0xFFFF);
    const auto crc32 = static_cast<U32>(rng());
    if (crc16 == 0 && crc32 == 0) continue;
    if (!used.insert({crc16, crc32}).second) continue;
    keys.emplace_back(crc16, crc32, static_cast<U32>(rng() % 4), HashEntryType::singleWide);
  }
  return keys;
}

::testing::AssertionResult consistent(MultiHashTable& table, const HashEntryConfig& config,
                                      const HashEntryStatus& status) {
  const U32 capacity = table.tableCapacity();
  if (config.configCollection().size() != status.statusCollection().size()) {
    return ::testing::AssertionFailure() << config.configCollection().size() << " requests but "
                                         << status.statusCollection().size() << " results";
  }
  for (const auto& request : config.configCollection()) {
    if (!status.statusHas(request.key)) return ::testing::AssertionFailure() << "no result for " << request.key;
  }
  std::size_t placed = 0;
  for (const auto& result : status.statusCollection()) {
    if (!result.value.isValid()) continue;
    ++placed;
    if (result.value.value() >= capacity) {
      return ::testing::AssertionFailure() << result.key << " at " << result.value << ", capacity " << capacity;
    }
    const HashEntryKey* held = table.hashTableEntryFind(result.value);
    if (held == nullptr || !(*held == result.key)) {
      return ::testing::AssertionFailure()
             << result.key << " is at " << result.value << " but the entry holds " << (held ? *held : HashEntryKey());
    }
    if (!table.checkEntryIdValidity(result.key, result.value)) {
      return ::testing::AssertionFailure()
             << result.key << " stands at " << result.value << ", which is not one of its candidates";
    }
  }
  for (const auto& entry : table.hashTableEntryCollection()) {
    if (entry.key.value() >= capacity) {
      return ::testing::AssertionFailure() << "entry " << entry.key << " beyond capacity " << capacity;
    }
    if (status.status(entry.value) != entry.key) {
      return ::testing::AssertionFailure()
             << "entry " << entry.key << " holds " << entry.value << " whose status is " << status.status(entry.value);
    }
  }
  const U32 occupied = table.numInsertions() - table.numDeletions();
  if (occupied != table.hashTableEntryCollection().size()) {
    return ::testing::AssertionFailure() << "numInsertions " << table.numInsertions() << " - numDeletions "
                                         << table.numDeletions() << " != " << table.hashTableEntryCollection().size()
                                         << " entries";
  }
  if (placed != table.hashTableEntryCollection().size()) {
    return ::testing::AssertionFailure() << placed << " placed keys but " << table.hashTableEntryCollection().size()
                                         << " entries";
  }
  return ::testing::AssertionSuccess();
}

class SingleWidthRandom : public ::testing::TestWithParam<Geometry> {};

TEST_P(SingleWidthRandom, StatusEntriesAndCountersStayConsistentUnderRandomRequests) {
  const Geometry g = GetParam();
  auto config = hashEntryConfigFactory();
  auto status = hashEntryStatusFactory();
  auto table = multiHashTableFactory(g.banks, numBuckets, g.slots, config, status, g.steps, g.bucketSpanBanks);
  for (U32 b = 0; b < g.banks; ++b) {
    table->bankIs(HashEntryType::singleWide, b, numBuckets, g.slots,
                  b % 2 == 0 ? HashFunc::hashCrc32Lower : HashFunc::hashCrc16Lower, 0, 0, numBuckets - 1);
  }

  std::mt19937 rng(1000 * g.banks + 100 * g.slots + 10 * (g.bucketSpanBanks ? 1 : 0) + g.steps);
  const std::vector<HashEntryKey> keys = makeKeys(rng, table->tableCapacity() * 3 / 2 + 4);
  std::size_t failures = 0;

  for (int i = 0; i < requestsPerTable; ++i) {
    const HashEntryKey& k = keys[rng() % keys.size()];
    if (!config->configHas(k)) {
      config->configIs(k, EntryId());
      if (!status->status(k).isValid()) ++failures;
    } else if (rng() % 2 == 0) {
      config->configDel(k);
      ASSERT_FALSE(status->statusHas(k));
    } else {
      config->configDel(k);
      config->configIs(k, EntryId());
      if (!status->status(k).isValid()) ++failures;
    }
    ASSERT_TRUE(consistent(*table, *config, *status)) << "after request " << i;
  }

  // Every request deleted: the table is empty again.
  while (!config->configCollection().empty()) config->configDel(config->configCollection().begin()->key);
  EXPECT_TRUE(status->statusCollection().empty());
  EXPECT_TRUE(table->hashTableEntryCollection().empty());
  EXPECT_EQ(table->numInsertions(), table->numDeletions());

  // The key pool is large enough to fill the table, so the search is really exercised.
  EXPECT_GT(failures, 0u);
  if (g.banks >= 2 && g.steps >= 1) {
    EXPECT_GT(table->numMoves(), 0u);
  }
  if (g.steps == 0) {
    EXPECT_EQ(table->numMoves(), 0u);
  }
}

INSTANTIATE_TEST_SUITE_P(Geometries, SingleWidthRandom, ::testing::ValuesIn(allGeometries()), nameOf);

}  // namespace
}  // namespace TesselCentral
