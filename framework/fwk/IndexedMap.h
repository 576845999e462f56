// A keyed collection for keys that are mostly small dense numbers (bucket ids, entry
// types, EntryIds and packed positions of a table): a key whose index falls below the
// dense size lives in a plain array of values at that index, with one presence bit, any
// other key in a HashMap beside it. It keeps the keyed-collection contract of HashMap (a
// key stored with the default value is present; del returns the removed value or the
// default; an iterator survives the deletion of the member it stands on) and costs a bit
// test and one indexed load per lookup of a dense key; erase() of a dense key only clears
// its bit. The array is allocated by the first insertion of a dense key, so a collection
// that is never written costs nothing.
//
// The Index policy maps a key to its index and an index back to its key:
//
//   struct Index {
//     std::uint64_t operator()(const K& key) const noexcept;  // any value: >= denseSize spills
//     K key(std::uint64_t index) const noexcept;               // for every index below denseSize
//   };
//
// The default, ValueIndex, indexes numbers and enumerations by their value and a class
// key by its value().
//
// Iteration visits the dense keys in ascending index order, then the others in the
// HashMap's order.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <type_traits>
#include <utility>
#include <vector>

#include "Collection.h"

namespace Fwk {

template <class K>
struct ValueIndex {
  std::uint64_t operator()(const K& key) const noexcept {
    if constexpr (std::is_integral_v<K> || std::is_enum_v<K>) {
      return static_cast<std::uint64_t>(key);
    } else {
      return static_cast<std::uint64_t>(key.value());
    }
  }
  K key(std::uint64_t index) const noexcept {
    if constexpr (std::is_integral_v<K> || std::is_enum_v<K>) {
      return static_cast<K>(index);
    } else {
      return K(static_cast<decltype(std::declval<const K&>().value())>(index));
    }
  }
};

template <class K, class V, class Index = ValueIndex<K>>
class IndexedMap {
 public:
  using Entry = typename HashMap<K, V>::Entry;

  // Dense members are read out as {key, value} pairs held by the iterator itself.
  class Iterator {
   public:
    using value_type = Entry;
    using difference_type = std::ptrdiff_t;

    Iterator() = default;
    const Entry& operator*() const noexcept { return inDense() ? current_ : *spill_; }
    const Entry* operator->() const noexcept { return &**this; }
    Iterator& operator++() noexcept {
      if (inDense()) {
        moveTo(map_->nextPresent(index_ + 1));
        if (!inDense()) spill_ = map_->spill_.begin();
      } else {
        ++spill_;
      }
      return *this;
    }
    bool operator==(const Iterator& b) const noexcept {
      return index_ == b.index_ && (inDense() || spill_ == b.spill_);
    }

   private:
    friend class IndexedMap;
    Iterator(const IndexedMap* map, std::size_t index, typename HashMap<K, V>::Iterator spill) noexcept
        : map_(map), spill_(spill) {
      moveTo(index);
    }
    bool inDense() const noexcept { return index_ < map_->values_.size(); }
    void moveTo(std::size_t index) noexcept {
      index_ = index;
      if (inDense()) {
        current_.key = map_->index_.key(index);
        current_.value = map_->values_[index];
      }
    }
    const IndexedMap* map_ = nullptr;
    std::size_t index_ = 0;
    Entry current_{};
    typename HashMap<K, V>::Iterator spill_;
  };

  IndexedMap(std::size_t denseSize, std::uint32_t collectionConstant, Index index = Index{})
      : index_(std::move(index)), denseSize_(denseSize), spill_(collectionConstant) {}

  std::size_t size() const noexcept { return denseCount_ + spill_.size(); }
  bool empty() const noexcept { return size() == 0; }

  const V* find(const K& key) const noexcept {
    const std::uint64_t i = index_(key);
    if (i < denseSize_) return present(i) ? &values_[i] : nullptr;
    return spill_.find(key);
  }
  V* find(const K& key) noexcept { return const_cast<V*>(std::as_const(*this).find(key)); }
  bool has(const K& key) const noexcept { return find(key) != nullptr; }
  V get(const K& key) const {
    const V* v = find(key);
    return v ? *v : V{};
  }

  std::pair<V*, bool> findOrInsert(const K& key) {
    const std::uint64_t i = index_(key);
    if (i >= denseSize_) return spill_.findOrInsert(key);
    if (values_.empty()) allocateDense();
    if (present(i)) return {&values_[i], false};
    present_[i / 64] |= bit(i);
    ++denseCount_;
    values_[i] = V{};  // erase() leaves the old value behind
    return {&values_[i], true};
  }

  void is(const K& key, V value) { *findOrInsert(key).first = std::move(value); }

  bool delInto(const K& key, V& removed) {
    const std::uint64_t i = index_(key);
    if (i >= denseSize_) return spill_.delInto(key, removed);
    if (!present(i)) return false;
    removed = std::move(values_[i]);
    clear(i);
    return true;
  }

  V del(const K& key) {
    V removed{};
    delInto(key, removed);
    return removed;
  }

  // del without the removed value: a dense key only loses its presence bit, and its value
  // is not read. False when the key was absent.
  bool erase(const K& key) {
    const std::uint64_t i = index_(key);
    if (i >= denseSize_) {
      V removed;
      return spill_.delInto(key, removed);
    }
    if (!present(i)) return false;
    clear(i);
    return true;
  }

  void delAll() {
    if constexpr (!detail::SlotArray<V>::plain) {
      for (std::size_t i = nextPresent(0); i < values_.size(); i = nextPresent(i + 1)) values_[i] = V{};
    }
    std::fill(present_.begin(), present_.end(), 0);
    denseCount_ = 0;
    spill_.delAll();
  }

  Iterator begin() const noexcept {
    const std::size_t first = nextPresent(0);
    return Iterator(this, first, first == values_.size() ? spill_.begin() : spill_.end());
  }
  Iterator end() const noexcept { return Iterator(this, values_.size(), spill_.end()); }

  std::size_t bytesAllocated() const noexcept {
    return values_.size() * sizeof(V) + present_.size() * sizeof(std::uint64_t) + spill_.bytesAllocated();
  }

 private:
  static std::uint64_t bit(std::uint64_t i) noexcept { return std::uint64_t{1} << (i % 64); }
  bool present(std::uint64_t i) const noexcept { return i < values_.size() && (present_[i / 64] & bit(i)) != 0; }
  void clear(std::uint64_t i) noexcept {
    // A value that owns something (a counted pointer) lets go of it now.
    if constexpr (!detail::SlotArray<V>::plain) values_[i] = V{};
    present_[i / 64] &= ~bit(i);
    --denseCount_;
  }

  void allocateDense() {
    values_ = detail::SlotArray<V>(denseSize_);
    present_.assign((denseSize_ + 63) / 64, 0);
  }

  // The first present dense index at or after i, or values_.size().
  std::size_t nextPresent(std::size_t i) const noexcept {
    const std::size_t n = values_.size();
    while (i < n) {
      const std::uint64_t word = present_[i / 64] >> (i % 64);
      if (word != 0) return std::min(n, i + static_cast<std::size_t>(std::countr_zero(word)));
      i = (i / 64 + 1) * 64;
    }
    return n;
  }

  Index index_;
  std::size_t denseSize_;
  detail::SlotArray<V> values_;         // empty until the first dense key; written before read
  std::vector<std::uint64_t> present_;  // a bit per dense index
  std::size_t denseCount_ = 0;
  HashMap<K, V> spill_;
};

}  // namespace Fwk
