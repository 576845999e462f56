// The single-width table's breadth-first search for room (moveSearch breadthFirst): the
// shortest sequence of moves that frees one of a key's candidate slots. It plans only; the
// table applies the plan.
#pragma once

#include <vector>

#include "MultiHashTable/MultiHashTableTypes.h"
#include "MultiHashTable/SearchScratchMap.h"

namespace TesselCentral {

class MultiHashTable;

class SingleWidthMovePlanner {
 public:
  SingleWidthMovePlanner();

  // Breadth first over the slots whose occupants would move: the key's candidates first,
  // then the slots of their occupants' buckets in the other banks, level by level, banks
  // and slots in ascending order. The first free slot reached ends the shortest sequence
  // of at most maxMoves moves; among sequences of one length the first in that order
  // wins. At most maxMoveSearchSlots slots are examined. True when a sequence was found.
  bool plan(const MultiHashTable& table, const HashEntryKey& key, U32 maxMoves);

  // The found sequence from its free end: the free slot, then each slot whose occupant
  // moves into the one before it; the last is the key's candidate that the moves free.
  const std::vector<EntryId>& slotsFromFreeEnd() const noexcept { return chain_; }
  // The moves of the found sequence.
  U32 moves() const noexcept { return static_cast<U32>(chain_.empty() ? 0 : chain_.size() - 1); }
  // How many slots the last search examined.
  U32 slotsExamined() const noexcept { return static_cast<U32>(nodes_.size()); }
  // Whether the last search reached maxMoveSearchSlots and passed over slots it would have
  // examined: one that found nothing may have missed a sequence.
  bool cutShort() const noexcept { return cutShort_; }

 private:
  // A slot of the search: its id and bank, the slot whose occupant would move into it
  // (noParent for the key's own candidates), and the moves that free it.
  static constexpr U32 noParent = 0xFFFFFFFF;
  struct Node {
    EntryId eId;
    U32 bank;
    U32 parent;
    U32 moves;
  };
  void visit(EntryId eId, U32 bank, U32 parent, U32 moves);
  void keepChain(U32 last, EntryId freeSlot);

  // Kept between searches, so that a search allocates only while they grow to their largest.
  std::vector<Node> nodes_;
  SearchScratchMap<bool> visited_;  // by slot id, per search
  std::vector<EntryId> chain_;
  bool cutShort_ = false;
};

}  // namespace TesselCentral
