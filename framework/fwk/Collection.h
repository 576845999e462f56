// Keyed collections: an open-addressing hash map with a stable, meaningless order.
//
// Layout: one control byte per slot and a parallel array of {key, value} slots.
//
//     control byte   0x00 empty   0x01 deleted   0x80 | 7 hash bits   occupied
//
// Probing is linear, 16 control bytes at a time (one SSE2 compare where available), and
// a key is compared only when its 7 hash bits match. The load (occupied + deleted) stays
// at or below 7/8. Capacities double from 8 up to 2^16 slots, then step through 2^16,
// 1.5 * 2^16, 2^17, 1.5 * 2^17, ..., so that a large map wastes at most a third of its
// slots rather than half. A deletion only marks its slot deleted: nothing moves, so an
// iterator survives the deletion of the member it stands on and a walk may delete as it
// goes. An insertion may grow the table and invalidates iterators.
//
// Keys hash with the per-process seed XOR a constant that belongs to the collection, so
// that collections holding the same keys spread them differently. Numbers and
// enumerations hash to their own value; class keys provide hash(seed).
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <type_traits>
#include <utility>

#include "Hash.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Fwk {

namespace detail {

// An array of slots whose elements are read only after they have been written. Elements
// that are plain bytes are not initialised when the array is allocated (for a large map
// most of the cost of growing, and page faults all at once for a large array): the owner
// writes an element before it first reads it. Other elements are value-constructed and
// destroyed as usual.
template <class T>
class SlotArray {
 public:
  static constexpr bool plain = std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>;

  SlotArray() = default;
  explicit SlotArray(std::size_t count) : slots_(std::allocator<T>().allocate(count)), count_(count) {
    if constexpr (!plain) std::uninitialized_value_construct_n(slots_, count);
  }
  SlotArray(SlotArray&& other) noexcept
      : slots_(std::exchange(other.slots_, nullptr)), count_(std::exchange(other.count_, 0)) {}
  SlotArray& operator=(SlotArray&& other) noexcept {
    SlotArray taken(std::move(other));
    std::swap(slots_, taken.slots_);
    std::swap(count_, taken.count_);
    return *this;
  }
  SlotArray(const SlotArray&) = delete;
  SlotArray& operator=(const SlotArray&) = delete;
  ~SlotArray() {
    if (slots_ == nullptr) return;
    if constexpr (!plain) std::destroy_n(slots_, count_);
    std::allocator<T>().deallocate(slots_, count_);
  }

  std::size_t size() const noexcept { return count_; }
  bool empty() const noexcept { return count_ == 0; }
  T& operator[](std::size_t i) noexcept { return slots_[i]; }
  const T& operator[](std::size_t i) const noexcept { return slots_[i]; }
  T* data() noexcept { return slots_; }
  const T* data() const noexcept { return slots_; }

 private:
  T* slots_ = nullptr;
  std::size_t count_ = 0;
};

}  // namespace detail

template <class K>
struct KeyHash {
  static std::uint32_t hash(const K& key, std::uint32_t seed) noexcept {
    if constexpr (std::is_enum_v<K> || std::is_integral_v<K>) {
      return static_cast<std::uint32_t>(key) ^ seed;
    } else if constexpr (requires { key.hash(seed); }) {
      return key.hash(seed);
    } else {
      return key.hash() ^ seed;
    }
  }
};

template <class K, class V>
class HashMap {
 public:
  struct Entry {
    K key{};
    V value{};
  };

  class Iterator {
   public:
    using value_type = Entry;
    using difference_type = std::ptrdiff_t;

    Iterator() = default;
    const Entry& operator*() const noexcept { return map_->slots_[index_]; }
    const Entry* operator->() const noexcept { return &map_->slots_[index_]; }
    Iterator& operator++() noexcept {
      index_ = map_->nextOccupied(index_ + 1);
      return *this;
    }
    Iterator operator++(int) noexcept {
      Iterator before = *this;
      ++*this;
      return before;
    }
    friend bool operator==(const Iterator& a, const Iterator& b) noexcept { return a.index_ == b.index_; }

   private:
    friend class HashMap;
    Iterator(const HashMap* map, std::size_t index) noexcept : map_(map), index_(index) {}
    const HashMap* map_ = nullptr;
    std::size_t index_ = 0;
  };

  explicit HashMap(std::uint32_t collectionConstant = 0) noexcept : seed_(processHashSeed() ^ collectionConstant) {}
  HashMap(const HashMap&) = delete;
  HashMap& operator=(const HashMap&) = delete;
  // A moved-from map is empty and keeps its seed.
  HashMap(HashMap&& other) noexcept : seed_(other.seed_) { swap(other); }
  HashMap& operator=(HashMap&& other) noexcept {
    HashMap taken(std::move(other));
    swap(taken);
    return *this;
  }
  void swap(HashMap& other) noexcept {
    std::swap(control_, other.control_);
    std::swap(slots_, other.slots_);
    std::swap(capacity_, other.capacity_);
    std::swap(size_, other.size_);
    std::swap(deleted_, other.deleted_);
    std::swap(seed_, other.seed_);
  }

  std::size_t size() const noexcept { return size_; }
  bool empty() const noexcept { return size_ == 0; }
  std::size_t capacity() const noexcept { return capacity_; }
  std::uint32_t seed() const noexcept { return seed_; }

  // The raw lookup: the stored value, or null when the key is absent.
  const V* find(const K& key) const noexcept {
    const std::size_t i = findIndex(key);
    return i == npos ? nullptr : &slots_[i].value;
  }
  V* find(const K& key) noexcept {
    const std::size_t i = findIndex(key);
    return i == npos ? nullptr : &slots_[i].value;
  }
  bool has(const K& key) const noexcept { return findIndex(key) != npos; }

  // The stored value, or the value type's default when the key is absent.
  V get(const K& key) const {
    const V* v = find(key);
    return v ? *v : V{};
  }

  // Finds the key or adds it with a default value; the bool says whether it was added.
  std::pair<V*, bool> findOrInsert(const K& key) {
    Hashed h = hashOf(key);
    if (capacity_ != 0) {
      std::size_t firstDeleted = npos;
      for (std::size_t i = h.index;; i = advance(i)) {
        const Group g(&control_[i]);
        const unsigned empty = g.match(emptyControl);
        const unsigned before = beforeFirstEmpty(empty);
        if (const std::size_t j = slotOfKeyIn(g, i, before, h.fragment, key); j != npos) {
          return {&slots_[j].value, false};
        }
        if (firstDeleted == npos) {
          if (const unsigned d = g.match(deletedControl) & before) {
            firstDeleted = wrap(i + static_cast<unsigned>(std::countr_zero(d)));
          }
        }
        if (empty) break;
      }
      if (firstDeleted != npos) {
        --deleted_;
        return {occupy(firstDeleted, h.fragment, key), true};
      }
    }
    if (overloaded(size_ + deleted_ + 1, capacity_)) {
      rehash(size_ + 1);
      h = hashOf(key);
    }
    return {occupy(emptySlotFor(h), h.fragment, key), true};
  }

  // Inserts the key or overwrites its value.
  void is(const K& key, V value) { *findOrInsert(key).first = std::move(value); }

  // Removes the key; returns the removed value, or the default when it was absent.
  V del(const K& key) {
    V removed{};
    delInto(key, removed);
    return removed;
  }

  // Removes the key if present, handing its value to the caller; false when absent.
  bool delInto(const K& key, V& removed) {
    const std::size_t i = findIndex(key);
    if (i == npos) return false;
    removed = eraseAt(i);
    return true;
  }

  // Removes the member whose value a find() of this map returned, with no change to the
  // map since, without probing for its key again. Returns the removed value.
  V delFound(const V* found) {
    const auto offset =
        reinterpret_cast<std::uintptr_t>(found) - reinterpret_cast<std::uintptr_t>(&slots_.data()->value);
    return eraseAt(offset / sizeof(Entry));
  }

  void delAll() {
    if (capacity_ == 0) return;
    for (std::size_t i = 0; i < capacity_; ++i) {
      if (control_[i] & occupiedBit) slots_[i] = Entry{};
    }
    std::fill_n(control_.get(), capacity_ + groupWidth, emptyControl);
    size_ = 0;
    deleted_ = 0;
  }

  void reserve(std::size_t n) {
    if (overloaded(n, capacity_)) rehash(n);
  }

  Iterator begin() const noexcept { return Iterator(this, nextOccupied(0)); }
  Iterator end() const noexcept { return Iterator(this, capacity_); }

  std::size_t bytesAllocated() const noexcept { return capacity_ * (sizeof(Entry) + 1); }

 private:
  static constexpr std::size_t npos = ~std::size_t{0};
  static constexpr std::uint8_t emptyControl = 0x00;
  static constexpr std::uint8_t deletedControl = 0x01;
  static constexpr std::uint8_t occupiedBit = 0x80;

  struct Hashed {
    std::size_t index;
    std::uint8_t fragment;
  };

  static constexpr bool overloaded(std::size_t used, std::size_t capacity) noexcept { return used * 8 > capacity * 7; }

  // Control bytes are read 16 at a time from any slot on; the 16 bytes past the end
  // mirror the first 16, so a group that runs over the end reads the start again.
  static constexpr std::size_t groupWidth = 16;

  struct Group {
    explicit Group(const std::uint8_t* p) noexcept {
#if defined(__SSE2__)
      bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
#else
      std::memcpy(bytes, p, groupWidth);
#endif
    }
    // A bit per byte equal to c, lowest byte first.
    unsigned match(std::uint8_t c) const noexcept {
#if defined(__SSE2__)
      return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_set1_epi8(static_cast<char>(c)))));
#else
      unsigned m = 0;
      for (std::size_t i = 0; i < groupWidth; ++i) m |= unsigned{bytes[i] == c} << i;
      return m;
#endif
    }
    // A bit per empty or deleted byte.
    unsigned matchFree() const noexcept {
#if defined(__SSE2__)
      return static_cast<unsigned>(~_mm_movemask_epi8(bytes)) & 0xFFFFu;
#else
      unsigned m = 0;
      for (std::size_t i = 0; i < groupWidth; ++i) m |= unsigned{(bytes[i] & occupiedBit) == 0} << i;
      return m;
#endif
    }
#if defined(__SSE2__)
    __m128i bytes;
#else
    std::uint8_t bytes[groupWidth];
#endif
  };

  std::size_t wrap(std::size_t i) const noexcept { return i < capacity_ ? i : i % capacity_; }
  // The start of the next group; a capacity below the group width still probes whole.
  std::size_t advance(std::size_t i) const noexcept { return wrap(i + std::min(groupWidth, capacity_)); }

  void setControl(std::size_t i, std::uint8_t c) noexcept {
    control_[i] = c;
    if (i < groupWidth) {
      // Mirror into the bytes past the end; small tables repeat their bytes to fill them.
      for (std::size_t j = capacity_ + i; j < capacity_ + groupWidth; j += capacity_) control_[j] = c;
    }
  }

  Hashed hashOf(const K& key) const noexcept {
    // Fibonacci spreading, so that keys differing only in high bits (packed positions)
    // still land apart; the product's high half scaled to the capacity chooses the slot.
    const std::uint64_t m = std::uint64_t{KeyHash<K>::hash(key, seed_)} * 0x9E3779B97F4A7C15ull;
    return {static_cast<std::size_t>(((m >> 32) * capacity_) >> 32),
            static_cast<std::uint8_t>(occupiedBit | ((m >> 25) & 0x7F))};
  }

  V eraseAt(std::size_t i) {
    V removed = std::move(slots_[i].value);
    // A value that owns something (a counted pointer) lets go of it now; a plain one is
    // overwritten when its slot is occupied again.
    if constexpr (!detail::SlotArray<Entry>::plain) slots_[i].value = V{};
    --size_;
    if (control_[wrap(i + 1)] != emptyControl) {
      setControl(i, deletedControl);
      ++deleted_;
      return removed;
    }
    // No probe passes this slot to reach a later one: it becomes empty again, and so do
    // the deleted slots right before it, which keeps runs of deleted slots short.
    setControl(i, emptyControl);
    for (std::size_t p = i == 0 ? capacity_ - 1 : i - 1; control_[p] == deletedControl;
         p = p == 0 ? capacity_ - 1 : p - 1) {
      setControl(p, emptyControl);
      --deleted_;
    }
    return removed;
  }

  // Keys stand before the first empty slot of their probe sequence: the group's bits up to
  // its first empty slot (all of them when it has none).
  static unsigned beforeFirstEmpty(unsigned empty) noexcept { return empty ? (empty & (0u - empty)) - 1 : 0xFFFFu; }

  // The slot of the group starting at i that holds the key, among the `candidates` whose
  // control byte carries the key's hash fragment; npos when none does.
  std::size_t slotOfKeyIn(const Group& g, std::size_t i, unsigned candidates, std::uint8_t fragment,
                          const K& key) const noexcept {
    for (unsigned m = g.match(fragment) & candidates; m != 0; m &= m - 1) {
      const std::size_t j = wrap(i + static_cast<unsigned>(std::countr_zero(m)));
      if (slots_[j].key == key) return j;
    }
    return npos;
  }

  std::size_t findIndex(const K& key) const noexcept {
    if (size_ == 0) return npos;
    const Hashed h = hashOf(key);
    for (std::size_t i = h.index;; i = advance(i)) {
      const Group g(&control_[i]);
      const unsigned empty = g.match(emptyControl);
      if (const std::size_t j = slotOfKeyIn(g, i, beforeFirstEmpty(empty), h.fragment, key); j != npos) return j;
      if (empty) return npos;
    }
  }

  std::size_t emptySlotFor(const Hashed& h) const noexcept {
    for (std::size_t i = h.index;; i = advance(i)) {
      if (const unsigned free = Group(&control_[i]).matchFree())
        return wrap(i + static_cast<unsigned>(std::countr_zero(free)));
    }
  }

  V* occupy(std::size_t i, std::uint8_t fragment, const K& key) {
    setControl(i, fragment);
    slots_[i].key = key;
    if constexpr (detail::SlotArray<Entry>::plain) slots_[i].value = V{};
    ++size_;
    return &slots_[i].value;
  }

  std::size_t nextOccupied(std::size_t i) const noexcept {
    while (i < capacity_ && !(control_[i] & occupiedBit)) ++i;
    return i;
  }

  // A small map doubles: fewer rehashes while it fills, and what it leaves unused is little.
  // From doublingLimit slots on, capacities step by one and a half and four thirds, so that
  // a large map wastes at most a third of its slots rather than half.
  static constexpr std::size_t doublingLimit = std::size_t{1} << 16;
  static constexpr std::size_t nextCapacity(std::size_t capacity) noexcept {
    if (capacity < doublingLimit) return capacity * 2;
    return std::has_single_bit(capacity) ? capacity / 2 * 3 : capacity / 3 * 4;
  }

  void rehash(std::size_t wanted) {
    std::size_t newCapacity = 8;
    while (overloaded(wanted, newCapacity)) newCapacity = nextCapacity(newCapacity);
    auto oldControl = std::move(control_);
    auto oldSlots = std::move(slots_);
    const std::size_t oldCapacity = capacity_;
    control_ = std::make_unique<std::uint8_t[]>(newCapacity + groupWidth);
    slots_ = detail::SlotArray<Entry>(newCapacity);
    capacity_ = newCapacity;
    deleted_ = 0;
    for (std::size_t i = 0; i < oldCapacity; ++i) {
      if (!(oldControl[i] & occupiedBit)) continue;
      const Hashed h = hashOf(oldSlots[i].key);
      const std::size_t j = emptySlotFor(h);
      setControl(j, h.fragment);
      slots_[j] = std::move(oldSlots[i]);
    }
  }

  // A slot is written when it is occupied, and only occupied slots are read.
  std::unique_ptr<std::uint8_t[]> control_;
  detail::SlotArray<Entry> slots_;
  std::size_t capacity_ = 0;
  std::size_t size_ = 0;
  std::size_t deleted_ = 0;
  std::uint32_t seed_;
};

}  // namespace Fwk
