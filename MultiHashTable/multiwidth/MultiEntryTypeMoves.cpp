// Multi-width room by the fewest moves (moveSearch breadthFirst). When none of the key's
// candidate runs is free, one is emptied: each entry standing in it moves to one of its own
// candidate runs (in any bank, its own bucket included: moving a narrow entry to another
// slot of its bucket is often what frees an aligned run for a wide one), which is free or
// is emptied the same way first, with chains of displacement at most maxRecursiveSteps
// deep. The shortest single chain is found first, breadth first; plans of fewer moves that
// empty a run several entries stand in are then sought with at most 1, 2, 3... moves in
// all, candidates in order. Nothing moves until a plan is whole. It is then applied from
// its free ends backwards, each entry recorded and published at its new place before the
// place it leaves is taken by the next. A search that examines maxMoveSearchRuns runs
// without a plan leaves the key to the depth-first search.
#include "multiwidth/MultiEntryTypeHashTable.h"

#include <cstddef>

#include "fwk/Assert.h"
#include "fwk/Trace.h"
#include "internal/Diagnostics.h"

namespace TesselCentral {

namespace {

// Calls visit(bank, run) for each run that an entry of the key's type could take, banks,
// buckets of its group and slots in ascending order, until visit answers true. Banks that
// select no bucket or hold no entry of the type are passed over; the run that position 0
// would start is never handed out. `depth` is the hash's debug increment, as for a key
// reached at that depth of the depth-first search.
template <class Visit>
bool forEachCandidateRun(const MultiEntryTypeHashTable& table, const HashEntryKey& key, U32 depth, Visit&& visit) {
  const HashEntryType type = key.entryType();
  for (U32 i = 0; i < table.numBanks(); ++i) {
    const MultiEntryTypeBank* b = table.bankFind(i);
    if (b == nullptr || (!table.debugEnabled() && !b->selectsBuckets())) continue;
    const U32* width = b->entrySizeFind(type);
    const U32* count = b->numBucketsToCheckFind(type);
    if (width == nullptr || *width == 0 || count == nullptr) continue;
    const U32 first = b->groupStart(b->bucketIdOf(key.crc16(), key.crc32(), table.debugEnabled(), depth), type);
    for (U32 k = 0; k < *count; ++k) {
      const U32 bucket = first + k;
      for (U32 s = 0; s + *width <= b->bucketSize(); s += *width) {
        if (b->phyBankId() == 0 && bucket == 0 && s == 0) continue;
        if (visit(*b, SlotRun{i, bucket, s, *width})) return true;
      }
    }
  }
  return false;
}

U64 visitKey(const SlotRun& run) { return (U64{run.position()} << 8) | run.width; }

}  // namespace

MultiEntryTypeHashTable::Occupants MultiEntryTypeHashTable::occupantsOf(const MultiEntryTypeBank& b,
                                                                        const SlotRun& run) const noexcept {
  Occupants found;
  const BucketState state(b.bucket(run.bucket));
  if (!state.covers(run.mask())) return found;
  for (U32 s = run.slot; s < run.slot + run.width; ++s) {
    if ((state.occupancy() & (U32{1} << s)) == 0) continue;
    // Entries stand aligned to their own width.
    const U32 width = b.entrySize(state.typeAt(s));
    if (width == 0 || found.count == found.entries.size()) {
      found.movable = false;
      return found;
    }
    const U32 start = s - s % width;
    // A key placed already and asked for again is the one entry no plan moves.
    if (packPosition(run.bank, run.bucket, start) == pinned_) {
      found.movable = false;
      return found;
    }
    found.entries[found.count++] = SlotRun{run.bank, run.bucket, start, width};
    s = start + width - 1;
  }
  return found;
}

U32 MultiEntryTypeHashTable::placeByShortestMoves(const HashEntryKey& key) {
  const U32 pos = shortestMoves(key);
  if (pos == INVALID_POSITION) {
    if (!moveSearchCutShort() && !hashEntryStatus()->statusHas(key)) hashEntryStatus()->statusIs(key, EntryId());
    return INVALID_POSITION;
  }
  bankAt(positionBank(pos)).updateBucketState(key.entryType(), positionBucket(pos), positionSlot(pos), true);
  doAddOrMoveEntry(key, pos, keyToPosHas(key));
  return pos;
}

U32 MultiEntryTypeHashTable::shortestMoves(const HashEntryKey& key) {
  runsExamined_ = 0;
  pinned_ = keyToPosHas(key) ? keyToPos(key) : INVALID_POSITION;
  failedMoves_.delAll();
  // The shortest chain from a candidate that one entry stands in is quickly found; only
  // plans of fewer moves, which empty a candidate that several stand in, are sought beyond it.
  SlotRun chainFreed;
  const bool chain = shortestChain(key, chainFreed);
  SlotRun freed;
  bool found = fewestMovesPlan(key, freed, chain ? static_cast<U32>(chainPlan_.size()) : ~U32{0});
  if (!found && chain) {
    plan_.swap(chainPlan_);
    freed = chainFreed;
    found = true;
  }
  if (!found && moveSearchCutShort()) {
    MHT_TRACE_IN("insertEntry", 2,
                 "insertEntry"
                     << " breadth-first search: " << runsExamined_
                     << " runs examined, the bound: the depth-first search takes over for key: " << key);
    return INVALID_POSITION;
  }
  if (!found) {
    MHT_TRACE_IN("insertEntry", 2,
                 "insertEntry"
                     << " breadth-first search: " << runsExamined_ << " runs examined, no room within "
                     << maxRecursiveSteps() << " moves deep for key: " << key);
    return INVALID_POSITION;
  }
  MHT_TRACE_IN("insertEntry", 2,
               "insertEntry"
                   << " breadth-first search: " << runsExamined_ << " runs examined, " << plan_.size()
                   << " moves free pos: 0x" << Fwk::hex << freed.position() << Fwk::dec);
  for (const Move& m : plan_) relocate(posToKey(m.from.position()), m.from, m.to);
  return freed.position();
}

bool MultiEntryTypeHashTable::reservedOverlaps(const SlotRun& run) const noexcept {
  for (const SlotRun& r : reserved_) {
    if (r.overlaps(run)) return true;
  }
  return false;
}

bool MultiEntryTypeHashTable::shortestChain(const HashEntryKey& key, SlotRun& freed) {
  // Breadth first over runs that one entry stands in, each run enqueued once: the key's
  // candidates, then the runs their entries could move to, level by level. At most
  // maxMoveSearchSlots runs are enqueued.
  chainNodes_.clear();
  chainPlan_.clear();
  visitedRuns_.delAll();
  const auto enqueue = [this](const SlotRun& run, const SlotRun& occupant, U32 parent, U32 moves) {
    if (chainNodes_.size() >= maxMoveSearchSlots || !visitedRuns_.findOrInsert(visitKey(run)).second) return;
    chainNodes_.push_back(ChainNode{run, occupant, parent, moves});
  };
  forEachCandidateRun(*this, key, 0, [&](const MultiEntryTypeBank& b, const SlotRun& run) {
    const Occupants occupants = occupantsOf(b, run);
    if (occupants.movable && occupants.count == 1) enqueue(run, occupants.entries[0], noParent, 1);
    return false;
  });
  for (U32 i = 0; i < chainNodes_.size(); ++i) {
    const ChainNode node = chainNodes_[i];
    SlotRun target;
    const bool found = forEachCandidateRun(
        *this, posToKey(node.occupant.position()), node.moves, [&](const MultiEntryTypeBank& b, const SlotRun& run) {
          ++runsExamined_;
          // Neither where the entry stands nor any slot that the chain empties.
          if (run == node.occupant || chainCrosses(i, run)) return false;
          const Occupants occupants = occupantsOf(b, run);
          if (!occupants.movable || occupants.count > 1) return false;
          if (occupants.count == 0) {
            target = run;
            return true;
          }
          if (node.moves < maxRecursiveSteps() && !chainCrosses(i, occupants.entries[0])) {
            enqueue(run, occupants.entries[0], i, node.moves + 1);
          }
          return false;
        });
    if (!found) continue;
    // From the free end backwards: each entry into the run that the next one leaves.
    for (U32 j = i; j != noParent; j = chainNodes_[j].parent) {
      chainPlan_.push_back(Move{chainNodes_[j].occupant, target});
      target = chainNodes_[j].run;
    }
    freed = target;
    return true;
  }
  return false;
}

bool MultiEntryTypeHashTable::chainCrosses(U32 i, const SlotRun& run) const noexcept {
  for (; i != noParent; i = chainNodes_[i].parent) {
    if (chainNodes_[i].freed().overlaps(run)) return true;
  }
  return false;
}

bool MultiEntryTypeHashTable::fewestMovesPlan(const HashEntryKey& key, SlotRun& freed, U32 fewerThan) {
  // Plans of 2, 3... moves, each over the candidate runs in order, until one is whole, the
  // examined runs reach their bound, or no branch was cut short by the move count (a larger
  // count would find nothing more). What one move or two can do from a candidate that one
  // entry stands in is a chain, which the chain search has already looked for.
  for (U32 moves = 2; moves < fewerThan && runsExamined_ < maxMoveSearchRuns; ++moves) {
    budgetCut_ = false;
    const bool found = forEachCandidateRun(*this, key, 0, [&](const MultiEntryTypeBank& b, const SlotRun& run) {
      const Occupants occupants = occupantsOf(b, run);
      if (!occupants.movable) return false;
      if (occupants.count == 1 && moves < 3) {
        budgetCut_ = true;
        return false;
      }
      plan_.clear();
      reserved_.clear();
      U32 budget = moves;
      if (!planEmptying(run, occupants, 1, budget)) return false;
      freed = run;
      return true;
    });
    if (found) return true;
    if (!budgetCut_) break;
  }
  plan_.clear();
  return false;
}

bool MultiEntryTypeHashTable::planEmptying(const SlotRun& run, const Occupants& occupants, U32 depth, U32& budget) {
  // Every entry takes a move at least.
  if (occupants.count > budget) {
    budgetCut_ = true;
    return false;
  }
  // Nothing may move into the run, nor into what its entries leave behind.
  reserved_.push_back(run);
  for (U32 j = 0; j < occupants.count; ++j) reserved_.push_back(occupants.entries[j]);
  for (U32 j = 0; j < occupants.count; ++j) {
    if (!planMoveOut(occupants.entries[j], depth, budget)) return false;
  }
  return true;
}

bool MultiEntryTypeHashTable::planMoveOut(const SlotRun& entry, U32 depth, U32& budget) {
  if (depth > maxRecursiveSteps()) return false;
  if (budget == 0) {
    budgetCut_ = true;
    return false;
  }
  // An entry that found no way out at this depth with as many moves or more will not find
  // one now: the larger move counts retry only what a smaller count cut short.
  const U64 memo = (U64{entry.position()} << 5) | depth;
  if (const FailedMove* failed = failedMoves_.find(memo); failed != nullptr && failed->budget >= budget) {
    budgetCut_ = budgetCut_ || failed->cut;
    return false;
  }
  const bool cutBefore = budgetCut_;
  budgetCut_ = false;
  const HashEntryKey moving = posToKey(entry.position());
  const bool moved = forEachCandidateRun(*this, moving, depth, [&](const MultiEntryTypeBank& b, const SlotRun& run) {
    if (runsExamined_ >= maxMoveSearchRuns) return false;
    ++runsExamined_;
    if (run == entry || reservedOverlaps(run)) return false;
    const Occupants occupants = occupantsOf(b, run);
    if (!occupants.movable) return false;
    const std::size_t planned = plan_.size();
    const std::size_t held = reserved_.size();
    const U32 left = budget;
    budget -= 1;
    if (planEmptying(run, occupants, depth + 1, budget)) {
      // Applied after the moves that empty the run.
      plan_.push_back(Move{entry, run});
      return true;
    }
    plan_.resize(planned);
    reserved_.resize(held);
    budget = left;
    return false;
  });
  if (!moved) {
    FailedMove& failed = *failedMoves_.findOrInsert(memo).first;
    if (budget >= failed.budget) failed = FailedMove{budget, budgetCut_};
  }
  budgetCut_ = budgetCut_ || cutBefore;
  return moved;
}

void MultiEntryTypeHashTable::relocate(const HashEntryKey& key, const SlotRun& from, const SlotRun& to) {
  // Recorded and published at the new place first, so that no id ever holds two keys and
  // no status names a place that its key has left; only then is the old place freed.
  EntryIdHelper& translator = helper();
  const U32 fromPos = from.position();
  const U32 toPos = to.position();
  MHT_ASSERT_TEXT(!posToKeyHas(toPos), "!posToKeyHas( freePos )");
  bankAt(to.bank).updateBucketState(key.entryType(), to.bucket, to.slot, true);
  const EntryId newEntryId = translator.posToEntryId(toPos);
  posToKeyIs(toPos, key);
  keyToPosIs(key, toPos);
  hashTableEntryIs(newEntryId, key);
  hashEntryStatus()->statusIs(key, newEntryId);

  bankAt(from.bank).updateBucketState(key.entryType(), from.bucket, from.slot, false);
  posToKey_.erase(fromPos);
  const EntryId oldEntryId = translator.posToEntryId(fromPos);
  hashTableEntryDel(oldEntryId);
  numMovesInc(1);
  MHT_TRACE_IN("insertEntry", 2,
               "insertEntry"
                   << " breadth-first move key: " << key << " from eId: " << oldEntryId << " to eId: " << newEntryId);
}

}  // namespace TesselCentral
