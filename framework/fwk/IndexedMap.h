// A keyed collection for keys that are mostly small dense numbers (bucket ids, entry
// types): keys below the dense size live in plain arrays indexed by the key, any other
// key in a HashMap beside them. It keeps the keyed-collection contract of HashMap (a key
// stored with the default value is present; del returns the removed value or the
// default; an iterator survives the deletion of the member it stands on) and costs one
// indexed load per lookup of a dense key.
//
// Iteration visits the dense keys in ascending order, then the others in the HashMap's
// order.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "fwk/Collection.h"

namespace Fwk {

template <class K, class V>
class IndexedMap {
public:
  using Entry = typename HashMap<K, V>::Entry;

  class Iterator {
  public:
    using value_type = Entry;
    using difference_type = std::ptrdiff_t;

    Iterator() = default;
    const Entry& operator*() const noexcept { return index_ < map_->dense_.size() ? map_->dense_[index_] : *spill_; }
    const Entry* operator->() const noexcept { return &**this; }
    Iterator& operator++() noexcept {
      if (index_ < map_->dense_.size()) {
        index_ = map_->nextPresent(index_ + 1);
        if (index_ == map_->dense_.size()) spill_ = map_->spill_.begin();
      } else {
        ++spill_;
      }
      return *this;
    }
    bool operator==(const Iterator& b) const noexcept {
      return index_ == b.index_ && (index_ < map_->dense_.size() || spill_ == b.spill_);
    }

  private:
    friend class IndexedMap;
    Iterator(const IndexedMap* map, std::size_t index, typename HashMap<K, V>::Iterator spill) noexcept
        : map_(map), index_(index), spill_(spill) {}
    const IndexedMap* map_ = nullptr;
    std::size_t index_ = 0;
    typename HashMap<K, V>::Iterator spill_;
  };

  IndexedMap(std::size_t denseSize, std::uint32_t collectionConstant)
      : dense_(denseSize), present_(denseSize, 0), spill_(collectionConstant) {
    for (std::size_t i = 0; i < denseSize; ++i) dense_[i].key = static_cast<K>(i);
  }

  std::size_t size() const noexcept { return denseCount_ + spill_.size(); }
  bool empty() const noexcept { return size() == 0; }

  const V* find(const K& key) const noexcept {
    const auto i = index(key);
    if (i < dense_.size()) return present_[i] ? &dense_[i].value : nullptr;
    return spill_.find(key);
  }
  V* find(const K& key) noexcept { return const_cast<V*>(std::as_const(*this).find(key)); }
  bool has(const K& key) const noexcept { return find(key) != nullptr; }
  V get(const K& key) const {
    const V* v = find(key);
    return v ? *v : V{};
  }

  std::pair<V*, bool> findOrInsert(const K& key) {
    const auto i = index(key);
    if (i >= dense_.size()) return spill_.findOrInsert(key);
    if (present_[i]) return {&dense_[i].value, false};
    present_[i] = 1;
    ++denseCount_;
    return {&dense_[i].value, true};
  }

  void is(const K& key, V value) { *findOrInsert(key).first = std::move(value); }

  bool delInto(const K& key, V& removed) {
    const auto i = index(key);
    if (i >= dense_.size()) return spill_.delInto(key, removed);
    if (!present_[i]) return false;
    removed = std::exchange(dense_[i].value, V{});
    present_[i] = 0;
    --denseCount_;
    return true;
  }

  V del(const K& key) {
    V removed{};
    delInto(key, removed);
    return removed;
  }

  void delAll() {
    for (std::size_t i = 0; i < dense_.size(); ++i) {
      if (present_[i]) dense_[i].value = V{};
      present_[i] = 0;
    }
    denseCount_ = 0;
    spill_.delAll();
  }

  Iterator begin() const noexcept {
    const std::size_t first = nextPresent(0);
    return Iterator(this, first, first == dense_.size() ? spill_.begin() : spill_.end());
  }
  Iterator end() const noexcept { return Iterator(this, dense_.size(), spill_.end()); }

  std::size_t bytesAllocated() const noexcept {
    return dense_.size() * (sizeof(Entry) + 1) + spill_.bytesAllocated();
  }

private:
  static std::uint64_t index(const K& key) noexcept { return static_cast<std::uint64_t>(key); }

  std::size_t nextPresent(std::size_t i) const noexcept {
    while (i < dense_.size() && !present_[i]) ++i;
    return i;
  }

  std::vector<Entry> dense_;  // dense_[i].key == i, always
  std::vector<std::uint8_t> present_;
  std::size_t denseCount_ = 0;
  HashMap<K, V> spill_;
};

}  // namespace Fwk
