// The scratch map of the breadth-first searches for room.
#pragma once

#include <utility>
#include <vector>

#include "MultiHashTable/MultiHashTableTypes.h"

namespace TesselCentral {

// A breadth-first search's keyed scratch: what one search has visited or ruled out, by a
// 64-bit key (a slot's id, a run's position). Emptied for each search by moving its search
// number on, not by clearing its slots, so that a search costs what it looks at and not
// what the largest search before it left behind. Its capacity is fixed at the first
// search, twice the most keys one search can insert, which the searches' bounds give; an
// insertion past that is refused.
template <class V>
class SearchScratchMap {
 public:
  explicit SearchScratchMap(U32 mostKeys) noexcept : mostKeys_(mostKeys) {}

  void newSearch() {
    if (slots_.empty()) {
      U32 capacity = 16;
      while (capacity < 2 * mostKeys_) capacity *= 2;
      slots_.resize(capacity);
      mask_ = capacity - 1;
    }
    size_ = 0;
    if (++search_ == 0) {
      // Once in four billion searches the numbers start again from slots all unused.
      for (Slot& slot : slots_) slot.search = 0;
      search_ = 1;
    }
  }
  const V* find(U64 key) const noexcept {
    for (U64 i = indexOf(key);; i = (i + 1) & mask_) {
      const Slot& slot = slots_[i];
      if (slot.search != search_) return nullptr;
      if (slot.key == key) return &slot.value;
    }
  }
  // The key's value and whether it was inserted now; null when the map holds mostKeys
  // already and the key is not among them.
  std::pair<V*, bool> findOrInsert(U64 key) noexcept {
    for (U64 i = indexOf(key);; i = (i + 1) & mask_) {
      Slot& slot = slots_[i];
      if (slot.search != search_) {
        if (size_ >= mostKeys_) return {nullptr, false};
        ++size_;
        slot = Slot{key, search_, V{}};
        return {&slot.value, true};
      }
      if (slot.key == key) return {&slot.value, false};
    }
  }

 private:
  struct Slot {
    U64 key = 0;
    U32 search = 0;
    V value{};
  };
  U64 indexOf(U64 key) const noexcept { return ((key * 0x9E3779B97F4A7C15ull) >> 32) & mask_; }

  std::vector<Slot> slots_;
  U64 mask_ = 0;
  U32 mostKeys_;
  U32 size_ = 0;
  U32 search_ = 0;
};

}  // namespace TesselCentral
