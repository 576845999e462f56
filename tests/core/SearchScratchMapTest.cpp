// The breadth-first searches' scratch map: keys and values of one search, forgotten all at
// once by the next, and a fixed capacity that refuses keys past the most it was made for.
#include "MultiHashTable/SearchScratchMap.h"

#include <gtest/gtest.h>

namespace TesselCentral {
namespace {

TEST(SearchScratchMap, AKeyInsertedOnceIsFoundAndNotInsertedAgain) {
  SearchScratchMap<U32> map(8);
  map.newSearch();
  EXPECT_EQ(map.find(42), nullptr);
  auto [value, inserted] = map.findOrInsert(42);
  ASSERT_NE(value, nullptr);
  EXPECT_TRUE(inserted);
  EXPECT_EQ(*value, 0u);
  *value = 7;
  auto [again, insertedAgain] = map.findOrInsert(42);
  EXPECT_FALSE(insertedAgain);
  EXPECT_EQ(again, value);
  ASSERT_NE(map.find(42), nullptr);
  EXPECT_EQ(*map.find(42), 7u);
}

TEST(SearchScratchMap, ANewSearchForgetsEveryKeyOfTheLastOne) {
  SearchScratchMap<U32> map(16);
  map.newSearch();
  for (U64 key = 1; key <= 16; ++key) *map.findOrInsert(key).first = static_cast<U32>(key);
  map.newSearch();
  for (U64 key = 1; key <= 16; ++key) EXPECT_EQ(map.find(key), nullptr) << key;
  // The forgotten keys are new again, with the default value, and the search may hold as
  // many keys as the last one did.
  for (U64 key = 1; key <= 16; ++key) {
    auto [value, inserted] = map.findOrInsert(key);
    ASSERT_NE(value, nullptr) << key;
    EXPECT_TRUE(inserted) << key;
    EXPECT_EQ(*value, 0u) << key;
  }
}

TEST(SearchScratchMap, AnInsertionPastTheMostKeysIsRefusedAndTheKeptOnesStay) {
  SearchScratchMap<bool> map(4);
  map.newSearch();
  for (U64 key = 10; key < 14; ++key) EXPECT_TRUE(map.findOrInsert(key).second) << key;
  const auto refused = map.findOrInsert(99);
  EXPECT_EQ(refused.first, nullptr);
  EXPECT_FALSE(refused.second);
  EXPECT_EQ(map.find(99), nullptr);
  for (U64 key = 10; key < 14; ++key) {
    const auto kept = map.findOrInsert(key);
    EXPECT_NE(kept.first, nullptr) << key;
    EXPECT_FALSE(kept.second) << key;
  }
}

TEST(SearchScratchMap, AFullSearchKeepsEveryKeyWithItsOwnValue) {
  // Twice the most keys in slots: probes collide and run on, and no key takes another's slot.
  constexpr U32 mostKeys = 1000;
  SearchScratchMap<U64> map(mostKeys);
  for (int search = 0; search < 3; ++search) {
    map.newSearch();
    for (U64 i = 0; i < mostKeys; ++i) {
      const U64 key = (i << 20) + static_cast<U64>(search);
      auto [value, inserted] = map.findOrInsert(key);
      ASSERT_NE(value, nullptr) << key;
      ASSERT_TRUE(inserted) << key;
      *value = key * 3;
    }
    for (U64 i = 0; i < mostKeys; ++i) {
      const U64 key = (i << 20) + static_cast<U64>(search);
      ASSERT_NE(map.find(key), nullptr) << key;
      EXPECT_EQ(*map.find(key), key * 3) << key;
    }
    EXPECT_EQ(map.findOrInsert(~U64{0}).first, nullptr);
  }
}

}  // namespace
}  // namespace TesselCentral
