#include "MultiHashTable/fwk/IndexedMap.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <utility>
#include <vector>

#include "MultiHashTable/MultiHashTable.h"
#include "MultiHashTable/fwk/Entity.h"
#include "framework/Counted.h"

namespace {

using TesselCentral::EntryId;
using TesselCentral::HashEntryKey;
using TesselCentral::HashEntryType;
using TesselCentral::packPosition;
using TesselCentral::PositionIndex;
using TesselCentral::U32;

using Numbers = Fwk::IndexedMap<U32, U32>;

template <class Map>
std::vector<std::pair<U32, U32>> members(const Map& map) {
  std::vector<std::pair<U32, U32>> out;
  for (const auto& e : map) out.emplace_back(e.key, e.value);
  return out;
}

TEST(IndexedMap, NothingIsAllocatedBeforeTheFirstDenseKey) {
  Numbers map(1024, 1);
  EXPECT_EQ(map.bytesAllocated(), 0u);
  EXPECT_EQ(map.find(3), nullptr);
  map.is(3, 30);
  EXPECT_EQ(map.bytesAllocated(), 1024 * sizeof(U32) + 16 * sizeof(std::uint64_t));
}

TEST(IndexedMap, DenseAndSpilledKeysKeepTheCollectionContract) {
  Numbers map(8, 1);
  map.is(2, 0);    // dense, stored with the default value
  map.is(100, 0);  // spilled, stored with the default value
  map.is(7, 70);
  ASSERT_NE(map.find(2), nullptr);
  EXPECT_EQ(*map.find(2), 0u);
  ASSERT_NE(map.find(100), nullptr);
  EXPECT_EQ(map.size(), 3u);
  EXPECT_EQ(map.del(7), 70u);
  EXPECT_EQ(map.del(7), 0u);
  EXPECT_FALSE(map.has(7));
  U32 removed = 5;
  EXPECT_FALSE(map.delInto(9, removed));
  EXPECT_EQ(removed, 5u);
  EXPECT_TRUE(map.delInto(100, removed));
  EXPECT_EQ(removed, 0u);
  EXPECT_EQ(map.size(), 1u);
}

TEST(IndexedMap, EraseSaysWhetherTheKeyWasThereAndAReinsertedKeyStartsFromTheDefault) {
  Numbers map(8, 1);
  map.is(4, 44);
  map.is(50, 55);
  EXPECT_TRUE(map.erase(4));
  EXPECT_FALSE(map.erase(4));
  EXPECT_TRUE(map.erase(50));
  EXPECT_FALSE(map.erase(50));
  EXPECT_TRUE(map.empty());
  auto [value, added] = map.findOrInsert(4);
  EXPECT_TRUE(added);
  EXPECT_EQ(*value, 0u);
}

TEST(IndexedMap, IterationVisitsDenseKeysAscendingThenTheSpilledOnes) {
  Numbers map(200, 1);
  for (U32 k : {150u, 3u, 999u, 64u, 0u, 63u}) map.is(k, k + 1);
  const auto seen = members(map);
  ASSERT_EQ(seen.size(), 6u);
  const std::vector<std::pair<U32, U32>> dense(seen.begin(), seen.begin() + 5);
  EXPECT_EQ(dense, (std::vector<std::pair<U32, U32>>{{0, 1}, {3, 4}, {63, 64}, {64, 65}, {150, 151}}));
  EXPECT_EQ(seen[5], (std::pair<U32, U32>{999, 1000}));
}

TEST(IndexedMap, WalkDeletingEveryMemberItStandsOnVisitsEachOnceAndEmptiesTheMap) {
  Numbers map(100, 1);
  for (U32 k = 0; k < 300; k += 7) map.is(k, k);
  const std::size_t before = map.size();
  std::size_t visited = 0;
  for (auto it = map.begin(); it != map.end(); ++it) {
    ++visited;
    map.del(it->key);
  }
  EXPECT_EQ(visited, before);
  EXPECT_TRUE(map.empty());
  EXPECT_EQ(map.begin(), map.end());
}

TEST(IndexedMap, DelAllEmptiesBothParts) {
  Numbers map(16, 1);
  for (U32 k = 0; k < 40; ++k) map.is(k, k);
  map.delAll();
  EXPECT_TRUE(map.empty());
  EXPECT_FALSE(map.has(5));
  EXPECT_FALSE(map.has(35));
  EXPECT_EQ(map.begin(), map.end());
}

TEST(IndexedMap, EntryIdKeysIndexByTheirValue) {
  Fwk::IndexedMap<EntryId, HashEntryKey> map(16, 1);
  const HashEntryKey k(1, 2, 3, HashEntryType::doubleWide);
  map.is(EntryId(5), k);
  map.is(EntryId(), k);  // the invalid id is far past the dense part
  EXPECT_EQ(map.get(EntryId(5)), k);
  EXPECT_EQ(map.get(EntryId()), k);
  std::vector<U32> ids;
  for (const auto& e : map) ids.push_back(e.key.value());
  EXPECT_EQ(ids, (std::vector<U32>{5, 0xFFFFFFFF}));
}

using fwktest::Counted;

TEST(IndexedMap, CountedPointerValuesAreDroppedByEraseDelAndDelAll) {
  int destroyed = 0;
  Fwk::IndexedMap<U32, Fwk::Ptr<Counted>> map(8, 1);
  for (U32 k = 0; k < 12; ++k) map.is(k, Fwk::makeEntity<Counted>(&destroyed));
  EXPECT_TRUE(map.erase(1));
  EXPECT_EQ(destroyed, 1);
  map.del(10);
  EXPECT_EQ(destroyed, 2);
  map.delAll();
  EXPECT_EQ(destroyed, 12);
}

TEST(PositionIndex, PositionsInsideTheGeometryAreNumberedBankBucketSlot) {
  const PositionIndex index{2, 8, 4};
  EXPECT_EQ(index(packPosition(0, 0, 0)), 0u);
  EXPECT_EQ(index(packPosition(0, 0, 3)), 3u);
  EXPECT_EQ(index(packPosition(0, 1, 0)), 4u);
  EXPECT_EQ(index(packPosition(1, 0, 0)), 32u);
  EXPECT_EQ(index(packPosition(1, 7, 3)), 63u);
  for (std::uint64_t i = 0; i < 64; ++i) EXPECT_EQ(index(index.key(i)), i);
}

TEST(PositionIndex, PositionsOutsideTheGeometryGoToTheHashMap) {
  const PositionIndex index{2, 8, 4};
  EXPECT_EQ(index(packPosition(2, 0, 0)), ~std::uint64_t{0});
  EXPECT_EQ(index(packPosition(0, 8, 0)), ~std::uint64_t{0});
  EXPECT_EQ(index(packPosition(0, 0, 4)), ~std::uint64_t{0});

  Fwk::IndexedMap<U32, HashEntryKey, PositionIndex> map(64, 1, index);
  const HashEntryKey k(1, 2, 3, HashEntryType::singleWide);
  map.is(packPosition(1, 2, 3), k);
  map.is(packPosition(0, 9, 1), k);
  std::vector<U32> positions;
  for (const auto& e : map) positions.push_back(e.key);
  EXPECT_EQ(positions, (std::vector<U32>{packPosition(1, 2, 3), packPosition(0, 9, 1)}));
}

}  // namespace
