#include "MultiHashTable/fwk/Collection.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "MultiHashTable/MultiHashTableTypes.h"
#include "MultiHashTable/fwk/Entity.h"
#include "MultiHashTable/fwk/Hash.h"
#include "framework/Counted.h"

namespace {

using TesselCentral::EntryId;
using TesselCentral::HashEntryKey;
using TesselCentral::HashEntryType;
using TesselCentral::U32;

using KeyToId = Fwk::HashMap<HashEntryKey, EntryId>;
using IdToKey = Fwk::HashMap<EntryId, HashEntryKey>;
using Numbers = Fwk::HashMap<U32, U32>;

HashEntryKey keyNumber(U32 i) {
  return HashEntryKey(static_cast<std::uint16_t>(i * 7919u), i * 2654435761u, i % 3,
                      (i % 2) ? HashEntryType::singleWide : HashEntryType::doubleWide);
}

template <class K, class V>
std::vector<K> keysInOrder(const Fwk::HashMap<K, V>& map) {
  std::vector<K> keys;
  for (const auto& e : map) keys.push_back(e.key);
  return keys;
}

using fwktest::Counted;

TEST(HashMap, NewMapIsEmpty) {
  const KeyToId map(1);
  EXPECT_TRUE(map.empty());
  EXPECT_EQ(map.size(), 0u);
  EXPECT_EQ(map.begin(), map.end());
  EXPECT_FALSE(map.has(HashEntryKey()));
  EXPECT_EQ(map.find(HashEntryKey()), nullptr);
}

TEST(HashMap, IsInsertsAndOverwrites) {
  KeyToId map(1);
  const HashEntryKey key(1, 2, 3, HashEntryType::singleWide);
  map.is(key, EntryId(10));
  EXPECT_EQ(map.size(), 1u);
  EXPECT_EQ(map.get(key), EntryId(10));
  map.is(key, EntryId(11));
  EXPECT_EQ(map.size(), 1u);
  EXPECT_EQ(map.get(key), EntryId(11));
}

TEST(HashMap, GetOfAbsentKeyGivesTheValueTypesDefault) {
  const KeyToId ids(1);
  EXPECT_EQ(ids.get(HashEntryKey(1, 2, 3, HashEntryType::singleWide)), EntryId());
  EXPECT_FALSE(ids.get(HashEntryKey()).isValid());

  const Numbers numbers(2);
  EXPECT_EQ(numbers.get(5), 0u);

  const IdToKey keys(3);
  EXPECT_EQ(keys.get(EntryId(5)), HashEntryKey(0, 0, 0, HashEntryType::singleWide));
}

TEST(HashMap, FindIsTheRawLookup) {
  KeyToId map(1);
  const HashEntryKey key(1, 2, 3, HashEntryType::singleWide);
  EXPECT_EQ(map.find(key), nullptr);
  map.is(key, EntryId());
  ASSERT_NE(map.find(key), nullptr);
  EXPECT_EQ(*map.find(key), EntryId());
  *map.find(key) = EntryId(4);
  EXPECT_EQ(map.get(key), EntryId(4));
  const KeyToId& constMap = map;
  ASSERT_NE(constMap.find(key), nullptr);
  EXPECT_EQ(*constMap.find(key), EntryId(4));
}

TEST(HashMap, KeyStoredWithTheDefaultValueIsPresent) {
  KeyToId map(1);
  const HashEntryKey key(9, 9, 9, HashEntryType::quadWide);
  map.is(key, EntryId());
  EXPECT_TRUE(map.has(key));
  EXPECT_EQ(map.get(key), map.get(HashEntryKey(8, 8, 8, HashEntryType::quadWide)));
}

TEST(HashMap, DelReturnsTheRemovedValue) {
  KeyToId map(1);
  const HashEntryKey key(1, 2, 3, HashEntryType::singleWide);
  map.is(key, EntryId(10));
  EXPECT_EQ(map.del(key), EntryId(10));
  EXPECT_FALSE(map.has(key));
  EXPECT_TRUE(map.empty());
}

TEST(HashMap, DelOfAbsentKeyReturnsTheValueTypesDefault) {
  KeyToId ids(1);
  ids.is(HashEntryKey(1, 1, 1, HashEntryType::singleWide), EntryId(1));
  EXPECT_EQ(ids.del(HashEntryKey(2, 2, 2, HashEntryType::singleWide)), EntryId(0xFFFFFFFF));
  EXPECT_EQ(ids.size(), 1u);

  Numbers numbers(2);
  numbers.is(1, 100);
  EXPECT_EQ(numbers.del(2), 0u);
  EXPECT_EQ(numbers.del(1), 100u);
  EXPECT_EQ(numbers.del(1), 0u);

  IdToKey keys(3);
  EXPECT_EQ(keys.del(EntryId(7)), HashEntryKey());
  keys.is(EntryId(7), HashEntryKey(5, 5, 5, HashEntryType::quadWide));
  EXPECT_EQ(keys.del(EntryId(7)), HashEntryKey(5, 5, 5, HashEntryType::quadWide));
}

TEST(HashMap, DelIntoHandsOverTheValueAndSaysWhetherTheKeyWasThere) {
  Numbers map(1);
  map.is(4, 40);
  U32 removed = 123;
  EXPECT_FALSE(map.delInto(5, removed));
  EXPECT_EQ(removed, 123u);
  EXPECT_TRUE(map.delInto(4, removed));
  EXPECT_EQ(removed, 40u);
  EXPECT_FALSE(map.has(4));
}

TEST(HashMap, DelFoundRemovesTheMemberThatFindReturnedAndLeavesTheOthers) {
  Numbers map(3);
  for (U32 i = 0; i < 100; ++i) map.is(i, i * 10);
  const U32* found = map.find(42);
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(map.delFound(found), 420u);
  EXPECT_FALSE(map.has(42));
  EXPECT_EQ(map.size(), 99u);
  for (U32 i = 0; i < 100; ++i) {
    if (i == 42) continue;
    EXPECT_EQ(map.get(i), i * 10) << i;
  }
}

TEST(HashMap, KeyAddedAfterItsSlotWasFreedStartsFromTheDefaultValue) {
  Numbers map(3);
  map.is(7, 77);
  map.del(7);
  auto [value, added] = map.findOrInsert(7);
  EXPECT_TRUE(added);
  EXPECT_EQ(*value, 0u);
}

TEST(HashMap, DelAllRemovesEveryMember) {
  Numbers map(1);
  for (U32 i = 0; i < 100; ++i) map.is(i, i + 1);
  map.delAll();
  EXPECT_TRUE(map.empty());
  EXPECT_EQ(map.begin(), map.end());
  for (U32 i = 0; i < 100; ++i) EXPECT_FALSE(map.has(i));
  map.is(7, 8);
  EXPECT_EQ(map.get(7), 8u);
  EXPECT_EQ(map.size(), 1u);
}

TEST(HashMap, FindOrInsertAddsTheDefaultOnceAndSaysWhetherItAdded) {
  KeyToId map(1);
  const HashEntryKey key(1, 2, 3, HashEntryType::singleWide);
  auto [value, added] = map.findOrInsert(key);
  EXPECT_TRUE(added);
  EXPECT_EQ(*value, EntryId());
  *value = EntryId(5);
  auto [again, addedAgain] = map.findOrInsert(key);
  EXPECT_FALSE(addedAgain);
  EXPECT_EQ(*again, EntryId(5));
  EXPECT_EQ(map.size(), 1u);
}

TEST(HashMap, GrowsOverThousandsOfKeys) {
  KeyToId map(0x1234);
  constexpr U32 n = 20000;
  for (U32 i = 0; i < n; ++i) map.is(keyNumber(i), EntryId(i));
  EXPECT_EQ(map.size(), n);
  // A power of two, or one and a half times one, no more than seven eighths full.
  const std::size_t c = map.capacity();
  EXPECT_TRUE((c & (c - 1)) == 0 || ((c / 3) & (c / 3 - 1)) == 0) << c;
  EXPECT_LE(map.size() * 8, map.capacity() * 7);
  for (U32 i = 0; i < n; ++i) {
    ASSERT_TRUE(map.has(keyNumber(i))) << i;
    ASSERT_EQ(map.get(keyNumber(i)), EntryId(i)) << i;
  }
  EXPECT_FALSE(map.has(keyNumber(n)));
  std::size_t walked = 0;
  for (const auto& e : map) {
    EXPECT_EQ(e.key, keyNumber(e.value.value()));
    ++walked;
  }
  EXPECT_EQ(walked, n);
}

// 4096 slots hold 3584 members; the 3585th starts the move into 8192 slots.
constexpr U32 membersThatFill4096Slots = 3584;

TEST(HashMap, LargeMapGrowsAFewMembersAtEachInsertionNotAllAtOnce) {
  KeyToId map(0x51);
  for (U32 i = 0; i < membersThatFill4096Slots; ++i) map.is(keyNumber(i), EntryId(i));
  EXPECT_EQ(map.capacity(), 4096u);
  EXPECT_FALSE(map.resizing());

  map.is(keyNumber(membersThatFill4096Slots), EntryId(membersThatFill4096Slots));
  EXPECT_EQ(map.capacity(), 8192u);
  EXPECT_TRUE(map.resizing());
  EXPECT_EQ(map.bytesAllocated(), (4096u + 8192u) * (sizeof(KeyToId::Entry) + 1));

  // 8 old slots move on at each insertion: the growth's own insertion and 511 more drain
  // the 4096 old slots.
  U32 next = membersThatFill4096Slots + 1;
  U32 insertionsWhileResizing = 1;
  while (map.resizing()) {
    // Every member stays visible wherever it stands meanwhile.
    for (U32 i = 0; i < next; i += 97) ASSERT_EQ(map.get(keyNumber(i)), EntryId(i)) << i;
    map.is(keyNumber(next), EntryId(next));
    ++next;
    ++insertionsWhileResizing;
  }
  EXPECT_EQ(insertionsWhileResizing, 512u);
  EXPECT_EQ(map.bytesAllocated(), 8192u * (sizeof(KeyToId::Entry) + 1));
  EXPECT_EQ(map.size(), next);
  for (U32 i = 0; i < next; ++i) ASSERT_EQ(map.get(keyNumber(i)), EntryId(i)) << i;
}

TEST(HashMap, MapWhileResizingFindsUpdatesAndDeletesMembersOfBothTables) {
  Numbers map(0x52);
  for (U32 i = 0; i <= membersThatFill4096Slots; ++i) map.is(i, i);
  ASSERT_TRUE(map.resizing());
  // An existing key is found, wherever it stands, and not added twice.
  for (U32 i = 0; i <= membersThatFill4096Slots; ++i) {
    const auto [value, added] = map.findOrInsert(i);
    ASSERT_FALSE(added) << i;
    ASSERT_EQ(*value, i);
    *value = i + 1;
  }
  ASSERT_TRUE(map.resizing());
  for (U32 i = 0; i <= membersThatFill4096Slots; i += 2) {
    U32 removed = 0;
    ASSERT_TRUE(map.delInto(i, removed)) << i;
    EXPECT_EQ(removed, i + 1);
  }
  const U32* found = map.find(1);
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(map.delFound(found), 2u);
  EXPECT_FALSE(map.has(1));
  EXPECT_EQ(map.size(), membersThatFill4096Slots / 2 - 1);
  for (U32 i = 3; i <= membersThatFill4096Slots; i += 2) ASSERT_EQ(map.get(i), i + 1) << i;
  for (U32 i = 0; i <= membersThatFill4096Slots; i += 2) ASSERT_FALSE(map.has(i)) << i;
}

TEST(HashMap, WalkWhileResizingVisitsEachMemberOnceAndMayDeleteAsItGoes) {
  Numbers map(0x53);
  constexpr U32 n = membersThatFill4096Slots + 40;
  for (U32 i = 0; i < n; ++i) map.is(i, i * 3);
  ASSERT_TRUE(map.resizing());
  std::set<U32> seen;
  for (auto it = map.begin(); it != map.end(); ++it) {
    EXPECT_TRUE(seen.insert(it->key).second) << it->key;
    EXPECT_EQ(it->value, it->key * 3);
    if (it->key % 3 == 0) map.del(it->key);
  }
  EXPECT_EQ(seen.size(), n);
  EXPECT_EQ(map.size(), n - (n + 2) / 3);
  EXPECT_TRUE(map.resizing());
}

TEST(HashMap, ChurnAtASteadySizeClearsItsDeletedSlotsAFewAtATime) {
  // 5000 members in 8192 slots: deleting one and adding another leaves deleted slots that
  // fill the table; they are cleared by draining into a fresh table of the same size.
  Numbers map(0x54);
  constexpr U32 members = 5000;
  for (U32 i = 0; i < members; ++i) map.is(i, i);
  ASSERT_EQ(map.capacity(), 8192u);
  U32 resizes = 0;
  U32 longestResize = 0;
  U32 current = 0;
  for (U32 i = members; i < members + 100000; ++i) {
    ASSERT_EQ(map.del(i - members), i - members);
    map.is(i, i);
    if (map.resizing()) {
      if (current++ == 0) ++resizes;
      longestResize = std::max(longestResize, current);
    } else {
      current = 0;
    }
    ASSERT_EQ(map.size(), members);
    ASSERT_EQ(map.capacity(), 8192u);
  }
  EXPECT_GT(resizes, 0u);
  // Each resize drains 8192 old slots, 8 at each insertion: it is still draining after 1023
  // insertions, and the 1024th empties the old table.
  EXPECT_EQ(longestResize, 8192u / 8 - 1);
  for (U32 i = 100000; i < members + 100000; ++i) ASSERT_EQ(map.get(i), i) << i;
  EXPECT_FALSE(map.has(99999));
}

TEST(HashMap, ReserveWhileResizingFinishesTheResizeFirst) {
  Numbers map(0x55);
  for (U32 i = 0; i <= membersThatFill4096Slots; ++i) map.is(i, i);
  ASSERT_TRUE(map.resizing());
  map.reserve(20000);
  EXPECT_FALSE(map.resizing());
  EXPECT_EQ(map.bytesAllocated(), map.capacity() * (sizeof(Numbers::Entry) + 1));
  for (U32 i = 0; i <= membersThatFill4096Slots; ++i) ASSERT_EQ(map.get(i), i) << i;
}

TEST(HashMap, CountedPointerValuesSurviveAResizeAndAreDroppedByDelAll) {
  int destroyed = 0;
  Fwk::HashMap<U32, Fwk::Ptr<Counted>> map(0x56);
  for (U32 i = 0; i <= membersThatFill4096Slots; ++i) map.is(i, Fwk::makeEntity<Counted>(&destroyed));
  ASSERT_TRUE(map.resizing());
  EXPECT_EQ(map.get(0)->references(), 2u);  // the map's and the temporary copy's
  map.del(0);
  EXPECT_EQ(destroyed, 1);
  map.delAll();
  EXPECT_FALSE(map.resizing());
  EXPECT_EQ(destroyed, static_cast<int>(membersThatFill4096Slots) + 1);
}

TEST(HashMap, ReserveMakesRoomWithoutLosingMembers) {
  Numbers map(1);
  map.is(1, 2);
  map.reserve(1000);
  EXPECT_GE(map.capacity() * 3, 1000u * 4);
  const std::size_t capacity = map.capacity();
  for (U32 i = 0; i < 1000; ++i) map.is(i + 10, i);
  EXPECT_EQ(map.capacity(), capacity);
  EXPECT_EQ(map.get(1), 2u);
}

TEST(HashMap, WalkDeletingEveryMemberItStandsOnVisitsEachOnceAndEmptiesTheMap) {
  KeyToId map(77);
  constexpr U32 n = 3000;
  for (U32 i = 0; i < n; ++i) map.is(keyNumber(i), EntryId(i));

  std::map<HashEntryKey, int> visits;
  for (auto it = map.begin(); it != map.end(); ++it) {
    const HashEntryKey key = it->key;
    const EntryId value = it->value;
    ++visits[key];
    EXPECT_EQ(key, keyNumber(value.value()));
    EXPECT_EQ(map.del(key), value);
  }
  EXPECT_TRUE(map.empty());
  EXPECT_EQ(map.begin(), map.end());
  ASSERT_EQ(visits.size(), n);
  for (const auto& [key, count] : visits) EXPECT_EQ(count, 1);
}

TEST(HashMap, WalkThatStepsBeforeDeletingVisitsEachMemberOnce) {
  Numbers map(5);
  for (U32 i = 0; i < 500; ++i) map.is(i, i * 2);
  std::set<U32> seen;
  for (auto it = map.begin(); it != map.end();) {
    const U32 key = (it++)->key;
    EXPECT_TRUE(seen.insert(key).second);
    EXPECT_EQ(map.del(key), key * 2);
  }
  EXPECT_EQ(seen.size(), 500u);
  EXPECT_TRUE(map.empty());
}

TEST(HashMap, ReinsertionAfterDeletionsFindsEveryKey) {
  KeyToId map(9);
  constexpr U32 n = 2000;
  for (U32 i = 0; i < n; ++i) map.is(keyNumber(i), EntryId(i));
  for (U32 i = 0; i < n; i += 2) EXPECT_EQ(map.del(keyNumber(i)), EntryId(i));
  EXPECT_EQ(map.size(), n / 2);
  for (U32 i = 0; i < n; i += 2) EXPECT_FALSE(map.has(keyNumber(i)));
  for (U32 i = 0; i < n; i += 2) map.is(keyNumber(i), EntryId(i + n));
  EXPECT_EQ(map.size(), n);
  for (U32 i = 0; i < n; ++i) {
    ASSERT_EQ(map.get(keyNumber(i)), EntryId(i % 2 ? i : i + n)) << i;
  }
}

TEST(HashMap, RepeatedDeleteAndReinsertOfTheSameKeysDoesNotGrowTheTable) {
  Numbers map(3);
  for (U32 i = 0; i < 48; ++i) map.is(i, i);
  const std::size_t capacity = map.capacity();
  for (int round = 0; round < 200; ++round) {
    for (U32 i = 0; i < 48; ++i) map.del(i);
    for (U32 i = 0; i < 48; ++i) map.is(i, i + 1);
  }
  EXPECT_LE(map.capacity(), capacity * 2);
  EXPECT_EQ(map.size(), 48u);
  for (U32 i = 0; i < 48; ++i) EXPECT_EQ(map.get(i), i + 1);
}

TEST(HashMap, SameKeysWithDifferentCollectionConstantsIterateInDifferentOrders) {
  KeyToId a(0x11111111);
  KeyToId b(0x22222222);
  for (U32 i = 0; i < 200; ++i) {
    a.is(keyNumber(i), EntryId(i));
    b.is(keyNumber(i), EntryId(i));
  }
  EXPECT_NE(a.seed(), b.seed());
  EXPECT_NE(keysInOrder(a), keysInOrder(b));
}

TEST(HashMap, SameKeysWithTheSameCollectionConstantIterateInTheSameOrder) {
  // The same operations on two maps with the same constant, in two runs of a program or
  // side by side, give the same walk.
  KeyToId a(0x11111111);
  KeyToId b(0x11111111);
  for (KeyToId* map : {&a, &b}) {
    for (U32 i = 0; i < 200; ++i) map->is(keyNumber(i), EntryId(i));
    for (U32 i = 0; i < 200; i += 3) map->del(keyNumber(i));
    for (U32 i = 200; i < 260; ++i) map->is(keyNumber(i), EntryId(i));
  }
  EXPECT_EQ(keysInOrder(a), keysInOrder(b));
  EXPECT_EQ(a.capacity(), b.capacity());
  EXPECT_EQ(a.size(), b.size());
}

TEST(HashMap, ProcessHashSeedHasItsFixedDefault) {
  EXPECT_EQ(Fwk::defaultProcessHashSeed, 0x5EED1DEAu);
  EXPECT_EQ(Fwk::processHashSeed(), Fwk::defaultProcessHashSeed);
  const Numbers map(0x0000FFFF);
  EXPECT_EQ(map.seed(), 0x5EED1DEAu ^ 0x0000FFFFu);
  const Numbers plain;
  EXPECT_EQ(plain.seed(), Fwk::processHashSeed());
}

TEST(HashMap, NumbersAndEnumerationsHashToTheirValueXorTheSeed) {
  EXPECT_EQ(Fwk::KeyHash<U32>::hash(5, 0), 5u);
  EXPECT_EQ(Fwk::KeyHash<U32>::hash(5, 3), 6u);
  EXPECT_EQ(Fwk::KeyHash<HashEntryType>::hash(HashEntryType::quadWide, 1), 5u);
}

TEST(HashMap, EnumerationKeysWork) {
  Fwk::HashMap<HashEntryType, U32> map(4);
  map.is(HashEntryType::singleWide, 1);
  map.is(HashEntryType::quadWide, 4);
  EXPECT_EQ(map.get(HashEntryType::quadWide), 4u);
  EXPECT_EQ(map.get(HashEntryType::doubleWide), 0u);
}

TEST(HashMap, IterationShowsEveryKeyWithItsValue) {
  IdToKey map(8);
  std::map<U32, HashEntryKey> expected;
  for (U32 i = 0; i < 64; ++i) {
    map.is(EntryId(i * 16), keyNumber(i));
    expected[i * 16] = keyNumber(i);
  }
  std::map<U32, HashEntryKey> walked;
  for (const auto& e : map) walked[e.key.value()] = e.value;
  EXPECT_EQ(walked, expected);
}

TEST(HashMap, CountedPointerValuesAreDroppedByDelAndDelAll) {
  int destroyed = 0;
  Fwk::HashMap<U32, Fwk::Ptr<Counted>> map(6);
  for (U32 i = 0; i < 10; ++i) map.is(i, Fwk::makeEntity<Counted>(&destroyed));
  EXPECT_EQ(map.get(3)->references(), 2u);  // the map's and the temporary copy's

  Fwk::Ptr<Counted> kept = map.del(3);
  EXPECT_EQ(kept->references(), 1u);
  EXPECT_EQ(destroyed, 0);
  EXPECT_EQ(map.del(3), nullptr);

  Fwk::Ptr<Counted> removed;
  EXPECT_TRUE(map.delInto(4, removed));
  removed = nullptr;
  EXPECT_EQ(destroyed, 1);

  map.delAll();
  EXPECT_EQ(destroyed, 9);
  kept = nullptr;
  EXPECT_EQ(destroyed, 10);
}

TEST(HashMap, CountedPointerValuesAreDroppedWhenTheMapIsDestroyed) {
  int destroyed = 0;
  {
    Fwk::HashMap<U32, Fwk::Ptr<Counted>> map(6);
    for (U32 i = 0; i < 20; ++i) map.is(i, Fwk::makeEntity<Counted>(&destroyed));
    for (auto it = map.begin(); it != map.end(); ++it) {
      if (it->key % 2 == 0) map.del(it->key);
    }
    EXPECT_EQ(destroyed, 10);
  }
  EXPECT_EQ(destroyed, 20);
}

// Control arrays do not come from operator new; the count of their bytes is what a memory
// measurement adds to it. Each table has one control byte per slot and 16 mirrored ones.
TEST(HashMap, ControlBytesAreCountedWhileTheMapHoldsThem) {
  const std::size_t before = Fwk::collectionControlBytes();
  {
    Fwk::HashMap<U32, U32> map(7);
    EXPECT_EQ(Fwk::collectionControlBytes(), before);
    for (U32 i = 0; i < 100; ++i) map.is(i, i);
    ASSERT_FALSE(map.resizing());
    EXPECT_EQ(Fwk::collectionControlBytes(), before + map.capacity() + 16);
    // A large map while it drains holds both tables' control bytes.
    std::size_t oldCapacity = map.capacity();
    for (U32 i = 100; !map.resizing(); ++i) {
      oldCapacity = map.capacity();
      map.is(i, i);
    }
    ASSERT_GT(map.capacity(), oldCapacity);
    EXPECT_EQ(Fwk::collectionControlBytes(), before + oldCapacity + 16 + map.capacity() + 16);
    map.reserve(map.size());
    EXPECT_EQ(Fwk::collectionControlBytes(), before + map.capacity() + 16);
    map.delAll();
    EXPECT_EQ(Fwk::collectionControlBytes(), before + map.capacity() + 16);
  }
  EXPECT_EQ(Fwk::collectionControlBytes(), before);
}

}  // namespace
