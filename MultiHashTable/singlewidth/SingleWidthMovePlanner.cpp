#include "MultiHashTable/singlewidth/SingleWidthMovePlanner.h"

#include "MultiHashTable/TableBase.h"
#include "MultiHashTable/singlewidth/SingleWidthTable.h"

namespace TesselCentral {

// Each slot the search visits is examined, so it visits at most maxMoveSearchSlots.
SingleWidthMovePlanner::SingleWidthMovePlanner() : visited_(maxMoveSearchSlots) {}

void SingleWidthMovePlanner::visit(EntryId eId, U32 bank, U32 parent, U32 moves) {
  if (nodes_.size() >= maxMoveSearchSlots) {
    cutShort_ = true;
    return;
  }
  if (!visited_.findOrInsert(eId.value()).second) return;
  nodes_.push_back(Node{eId, bank, parent, moves});
}

bool SingleWidthMovePlanner::plan(const MultiHashTable& table, const HashEntryKey& key, U32 maxMoves) {
  nodes_.clear();
  visited_.newSearch();
  chain_.clear();
  cutShort_ = false;
  const U32 slots = table.numBucketEntries();
  for (U32 b = 0; b < table.numBanks(); ++b) {
    const U32 bucket = table.bucketOf(key, b);
    for (U32 s = 0; s < slots; ++s) visit(table.entryIdOf(b, bucket, SlotId(static_cast<U8>(s))), b, noParent, 0);
  }
  for (U32 i = 0; i < nodes_.size(); ++i) {
    const Node node = nodes_[i];
    if (node.moves + 1 > maxMoves) continue;
    const HashEntryKey* occupant = table.hashTableEntryFind(node.eId);
    if (occupant == nullptr) continue;  // freed meanwhile: nothing of this search moves
    const HashEntryKey moving = *occupant;
    for (U32 t = 0; t < table.numBanks(); ++t) {
      if (t == node.bank) continue;
      const U32 bucket = table.bucketOf(moving, t);
      for (U32 s = 0; s < slots; ++s) {
        const EntryId target = table.entryIdOf(t, bucket, SlotId(static_cast<U8>(s)));
        // As for the depth-first search, only a slot that no key holds is free.
        if (!table.hashTableEntryHas(target)) {
          keepChain(i, target);
          return true;
        }
        visit(target, t, i, node.moves + 1);
      }
    }
  }
  return false;
}

void SingleWidthMovePlanner::keepChain(U32 last, EntryId freeSlot) {
  chain_.push_back(freeSlot);
  for (U32 i = last; i != noParent; i = nodes_[i].parent) chain_.push_back(nodes_[i].eId);
}

}  // namespace TesselCentral
