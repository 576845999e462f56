// Keyed collections: an open-addressing hash map with a stable, meaningless order.
//
// Layout: one control byte per slot and a parallel array of {key, value} slots.
//
//     control byte   0x00 empty   0x01 deleted   0x80 | 7 hash bits   occupied
//
// Probing is triangular over a power-of-two capacity, so it visits every slot. The load
// (occupied + deleted) stays at or below 7/8: the 7 hash bits in the control byte keep
// probes short at that load. A deletion only marks its slot deleted:
// nothing moves, so an iterator survives the deletion of the member it stands on and a
// walk may delete as it goes. An insertion may grow the table and invalidates iterators.
//
// Keys hash with the per-process seed XOR a constant that belongs to the collection, so
// that collections holding the same keys spread them differently. Numbers and
// enumerations hash to their own value; class keys provide hash(seed).
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>
#include <utility>

#include "fwk/Hash.h"

namespace Fwk {

template <class K>
struct KeyHash {
  static std::uint32_t hash(const K& key, std::uint32_t seed) noexcept {
    if constexpr (std::is_enum_v<K>) {
      return static_cast<std::uint32_t>(key) ^ seed;
    } else if constexpr (std::is_integral_v<K>) {
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

  explicit HashMap(std::uint32_t collectionConstant = 0) noexcept
      : seed_(processHashSeed() ^ collectionConstant) {}
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
    std::swap(mask_, other.mask_);
    std::swap(shift_, other.shift_);
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
      std::size_t i = h.index & mask_;
      for (std::size_t step = 1;; ++step) {
        const std::uint8_t c = control_[i];
        if (c == h.fragment && slots_[i].key == key) return {&slots_[i].value, false};
        if (c == emptyControl) break;
        if (c == deletedControl && firstDeleted == npos) firstDeleted = i;
        i = (i + step) & mask_;
      }
      if (firstDeleted != npos) {
        --deleted_;
        return {occupy(firstDeleted, h.fragment, key), true};
      }
    }
    if ((size_ + deleted_ + 1) * 8 > capacity_ * 7) {
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
    removed = std::exchange(slots_[i].value, V{});
    control_[i] = deletedControl;
    --size_;
    ++deleted_;
    return true;
  }

  void delAll() {
    for (std::size_t i = 0; i < capacity_; ++i) {
      if (control_[i] & occupiedBit) slots_[i] = Entry{};
      control_[i] = emptyControl;
    }
    size_ = 0;
    deleted_ = 0;
  }

  void reserve(std::size_t n) {
    if (n * 8 > capacity_ * 7) rehash(n);
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

  Hashed hashOf(const K& key) const noexcept {
    // Fibonacci spreading: the high bits of the product choose the slot, so keys that
    // differ only in high bits (packed positions) still land apart.
    const std::uint64_t m = std::uint64_t{KeyHash<K>::hash(key, seed_)} * 0x9E3779B97F4A7C15ull;
    return {static_cast<std::size_t>(m >> shift_),
            static_cast<std::uint8_t>(occupiedBit | ((m >> 32) & 0x7F))};
  }

  std::size_t findIndex(const K& key) const noexcept {
    if (size_ == 0) return npos;
    const Hashed h = hashOf(key);
    std::size_t i = h.index & mask_;
    for (std::size_t step = 1;; ++step) {
      const std::uint8_t c = control_[i];
      if (c == h.fragment && slots_[i].key == key) return i;
      if (c == emptyControl) return npos;
      i = (i + step) & mask_;
    }
  }

  std::size_t emptySlotFor(const Hashed& h) const noexcept {
    std::size_t i = h.index & mask_;
    for (std::size_t step = 1; control_[i] & occupiedBit; ++step) i = (i + step) & mask_;
    return i;
  }

  V* occupy(std::size_t i, std::uint8_t fragment, const K& key) {
    control_[i] = fragment;
    slots_[i].key = key;
    ++size_;
    return &slots_[i].value;
  }

  std::size_t nextOccupied(std::size_t i) const noexcept {
    while (i < capacity_ && !(control_[i] & occupiedBit)) ++i;
    return i;
  }

  void rehash(std::size_t wanted) {
    std::size_t newCapacity = 8;
    while (wanted * 8 > newCapacity * 7) newCapacity *= 2;
    auto oldControl = std::move(control_);
    auto oldSlots = std::move(slots_);
    const std::size_t oldCapacity = capacity_;
    control_ = std::make_unique<std::uint8_t[]>(newCapacity);
    slots_ = std::make_unique<Entry[]>(newCapacity);
    capacity_ = newCapacity;
    mask_ = newCapacity - 1;
    shift_ = 64 - static_cast<unsigned>(std::countr_zero(newCapacity));
    deleted_ = 0;
    for (std::size_t i = 0; i < oldCapacity; ++i) {
      if (!(oldControl[i] & occupiedBit)) continue;
      const Hashed h = hashOf(oldSlots[i].key);
      const std::size_t j = emptySlotFor(h);
      control_[j] = h.fragment;
      slots_[j] = std::move(oldSlots[i]);
    }
  }

  std::unique_ptr<std::uint8_t[]> control_;
  std::unique_ptr<Entry[]> slots_;
  std::size_t capacity_ = 0;
  std::size_t mask_ = 0;
  unsigned shift_ = 63;  // any valid count until the first allocation
  std::size_t size_ = 0;
  std::size_t deleted_ = 0;
  std::uint32_t seed_;
};

}  // namespace Fwk
