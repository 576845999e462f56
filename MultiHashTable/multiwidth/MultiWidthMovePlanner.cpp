// The multi-width search for room by the fewest moves (moveSearch breadthFirst). When none
// of the key's candidate runs is free, one is emptied: each entry standing in it moves to
// one of its own candidate runs (in any bank, its own bucket included: moving a narrow
// entry to another slot of its bucket is often what frees an aligned run for a wide one),
// which is free or is emptied the same way first, with chains of displacement at most
// maxRecursiveSteps deep. The shortest single chain is found first, breadth first; plans of
// fewer moves that empty a run several entries stand in are then sought with at most 1, 2,
// 3... moves in all, candidates in order, each entry of a plan taking a free run of its own
// candidates before it tries to empty an occupied one. Every run read as a place to move to
// counts towards maxMoveSearchRuns, where the search stops; a search that finds no plan,
// at its bound or not, leaves the key to the table's bounded depth-first search. The search
// only reads the table: the table applies the plan.
#include "MultiHashTable/multiwidth/MultiWidthMovePlanner.h"

#include <cstddef>

#include "MultiHashTable/multiwidth/MultiEntryTypeHashTable.h"

namespace TesselCentral {

namespace {

U64 visitKey(const SlotRun& run) { return (U64{run.position()} << 8) | run.width; }

// Whether no entry stands in any slot of the run: its bucket's occupancy tells it.
bool runFree(const MultiEntryTypeBank& b, const SlotRun& run) noexcept {
  return !BucketState(b.bucket(run.bucket)).covers(run.mask());
}

}  // namespace

// A run is visited when it is enqueued, at most maxMoveSearchSlots times; a move fails after
// a run is examined, or on its way back from a search at its bound, a few times at each
// depth of that search.
MultiWidthMovePlanner::MultiWidthMovePlanner()
    : visitedRuns_(maxMoveSearchSlots), failedMoves_(2 * maxMoveSearchRuns) {}

MultiWidthMovePlanner::Occupants MultiWidthMovePlanner::occupantsOf(const Search& s, const MultiEntryTypeBank& b,
                                                                    const SlotRun& run) noexcept {
  Occupants found;
  const BucketState state(b.bucket(run.bucket));
  if (!state.covers(run.mask())) return found;
  for (U32 slot = run.slot; slot < run.slot + run.width; ++slot) {
    if ((state.occupancy() & (U32{1} << slot)) == 0) continue;
    // Entries stand aligned to their own width.
    const U32 width = b.entrySize(state.typeAt(slot));
    if (width == 0 || found.count == found.entries.size()) {
      found.movable = false;
      return found;
    }
    const U32 start = slot - slot % width;
    // A key placed already and asked for again is the one entry no plan moves.
    if (packPosition(run.bank, run.bucket, start) == s.pinned) {
      found.movable = false;
      return found;
    }
    found.entries[found.count++] = SlotRun{run.bank, run.bucket, start, width};
    slot = start + width - 1;
  }
  return found;
}

MultiWidthMovePlanner::Plan MultiWidthMovePlanner::plan(const MultiEntryTypeHashTable& table, const HashEntryKey& key) {
  Search s{table, table.keyToPosHas(key) ? table.keyToPos(key) : INVALID_POSITION};
  failedMoves_.newSearch();
  // The shortest chain from a candidate that one entry stands in is quickly found; only
  // plans of fewer moves, which empty a candidate that several stand in, are sought beyond it.
  SlotRun chainFreed;
  const bool chain = shortestChain(s, key, chainFreed);
  Plan result;
  result.found = fewestMovesPlan(s, key, result.freed, chain ? static_cast<U32>(chainPlan_.size()) : ~U32{0});
  if (!result.found && chain) {
    plan_.swap(chainPlan_);
    result.freed = chainFreed;
    result.found = true;
  }
  if (result.found) result.moves = plan_;
  result.runsExamined = s.runsExamined;
  result.cutShort = s.runsExamined >= maxMoveSearchRuns;
  return result;
}

bool MultiWidthMovePlanner::reservedOverlaps(const SlotRun& run) const noexcept {
  for (const SlotRun& r : reserved_) {
    if (r.overlaps(run)) return true;
  }
  return false;
}

bool MultiWidthMovePlanner::shortestChain(Search& s, const HashEntryKey& key, SlotRun& freed) {
  // Breadth first over runs that one entry stands in, each run enqueued once: the key's
  // candidates, then the runs their entries could move to, level by level. At most
  // maxMoveSearchSlots runs are enqueued, and the search stops at maxMoveSearchRuns runs
  // examined, which leaves nothing to the plans of fewer moves after it.
  //
  // The queue is taken at the first search: a table that never searches breadth first does
  // not hold it.
  if (chainNodes_.capacity() == 0) chainNodes_.reserve(maxMoveSearchSlots);
  chainNodes_.clear();
  chainPlan_.clear();
  visitedRuns_.newSearch();
  const auto enqueue = [this](const SlotRun& run, const SlotRun& occupant, U32 parent, U32 moves) {
    if (chainNodes_.size() >= maxMoveSearchSlots || !visitedRuns_.findOrInsert(visitKey(run)).second) return;
    chainNodes_.push_back(ChainNode{run, occupant, parent, moves});
  };
  s.table.forEachCandidateRun(key, 0, [&](const MultiEntryTypeBank& b, const SlotRun& run) {
    const Occupants occupants = occupantsOf(s, b, run);
    if (occupants.movable && occupants.count == 1) enqueue(run, occupants.entries[0], noParent, 1);
    return false;
  });
  for (U32 i = 0; i < chainNodes_.size() && s.runsExamined < maxMoveSearchRuns; ++i) {
    const ChainNode node = chainNodes_[i];
    SlotRun target;
    // Each run the entry could move to: a free one ends the chain, one that a single entry
    // stands in is a node of the next level.
    const auto examine = [&](const MultiEntryTypeBank& b, const SlotRun& run) {
      if (s.runsExamined >= maxMoveSearchRuns) return false;
      ++s.runsExamined;
      // Neither where the entry stands nor any slot that the chain empties.
      if (run == node.occupant || chainCrosses(i, run)) return false;
      if (node.moves == s.table.maxRecursiveSteps()) {
        // The last level enqueues nothing: only a free run ends the chain there, and the
        // bucket's occupancy tells it without reading who stands in the run.
        if (!runFree(b, run)) return false;
        target = run;
        return true;
      }
      const Occupants occupants = occupantsOf(s, b, run);
      if (!occupants.movable || occupants.count > 1) return false;
      if (occupants.count == 0) {
        target = run;
        return true;
      }
      if (!chainCrosses(i, occupants.entries[0])) enqueue(run, occupants.entries[0], i, node.moves + 1);
      return false;
    };
    const bool found = s.table.forEachCandidateRun(s.table.posToKey(node.occupant.position()), node.moves, examine);
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

bool MultiWidthMovePlanner::chainCrosses(U32 i, const SlotRun& run) const noexcept {
  for (; i != noParent; i = chainNodes_[i].parent) {
    if (chainNodes_[i].freed().overlaps(run)) return true;
  }
  return false;
}

bool MultiWidthMovePlanner::fewestMovesPlan(Search& s, const HashEntryKey& key, SlotRun& freed, U32 fewerThan) {
  // Plans of 2, 3... moves, each over the candidate runs in order, until one is whole, the
  // examined runs reach their bound, or no branch was cut short by the move count (a larger
  // count would find nothing more). What one move or two can do from a candidate that one
  // entry stands in is a chain, which the chain search has already looked for.
  for (U32 moves = 2; moves < fewerThan && s.runsExamined < maxMoveSearchRuns; ++moves) {
    bool cut = false;
    const bool found = s.table.forEachCandidateRun(key, 0, [&](const MultiEntryTypeBank& b, const SlotRun& run) {
      const Occupants occupants = occupantsOf(s, b, run);
      if (!occupants.movable) return false;
      if (occupants.count == 1 && moves < 3) {
        cut = true;
        return false;
      }
      plan_.clear();
      reserved_.clear();
      U32 budget = moves;
      const Outcome emptied = planEmptying(s, run, occupants, 1, budget);
      cut = cut || emptied.cut;
      if (!emptied.found) return false;
      freed = run;
      return true;
    });
    if (found) return true;
    if (!cut) break;
  }
  plan_.clear();
  return false;
}

MultiWidthMovePlanner::Outcome MultiWidthMovePlanner::planEmptying(Search& s, const SlotRun& run,
                                                                   const Occupants& occupants, U32 depth, U32& budget) {
  // Every entry takes a move at least.
  if (occupants.count > budget) return Outcome{false, true};
  // Nothing may move into the run, nor into what its entries leave behind.
  reserved_.push_back(run);
  for (U32 j = 0; j < occupants.count; ++j) reserved_.push_back(occupants.entries[j]);
  // A branch cut short on the way counts even when the occupants after it find no way out.
  bool cut = false;
  for (U32 j = 0; j < occupants.count; ++j) {
    const Outcome out = planMoveOut(s, occupants.entries[j], depth, budget);
    cut = cut || out.cut;
    if (!out.found) return Outcome{false, cut};
  }
  return Outcome{true, cut};
}

MultiWidthMovePlanner::Outcome MultiWidthMovePlanner::planMoveOut(Search& s, const SlotRun& entry, U32 depth,
                                                                  U32& budget) {
  if (depth > s.table.maxRecursiveSteps()) return Outcome{false, false};
  if (budget == 0) return Outcome{false, true};
  // An entry that found no way out at this depth with as many moves or more will not find
  // one now: the larger move counts retry only what a smaller count cut short.
  const U64 memo = (U64{entry.position()} << 5) | depth;
  if (const FailedMove* failed = failedMoves_.find(memo); failed != nullptr && failed->budget >= budget) {
    return Outcome{false, failed->cut};
  }
  // Whether a branch of this entry's own search was cut short, which is what a later search
  // with a larger count may finish: the memo records it.
  bool cut = false;
  const HashEntryKey moving = s.table.posToKey(entry.position());
  // A free run first, wherever it stands among the candidates: the move is then the entry's
  // only one, which leaves the most moves to the entries after it, and nothing below it is
  // searched. Reading a run's occupancy is all it takes to see that it is free.
  SlotRun free;
  const bool freeFound =
      s.table.forEachCandidateRun(moving, depth, [&](const MultiEntryTypeBank& b, const SlotRun& run) {
        if (s.runsExamined >= maxMoveSearchRuns) return false;
        ++s.runsExamined;
        if (!runFree(b, run) || reservedOverlaps(run)) return false;
        free = run;
        return true;
      });
  if (freeFound) {
    budget -= 1;
    reserved_.push_back(free);
    plan_.push_back(Move{entry, free});
    return Outcome{true, false};
  }
  const bool moved = s.table.forEachCandidateRun(moving, depth, [&](const MultiEntryTypeBank& b, const SlotRun& run) {
    if (s.runsExamined >= maxMoveSearchRuns) return false;
    ++s.runsExamined;
    if (run == entry || reservedOverlaps(run)) return false;
    const Occupants occupants = occupantsOf(s, b, run);
    // Free runs were all looked at above.
    if (!occupants.movable || occupants.count == 0) return false;
    const std::size_t planned = plan_.size();
    const std::size_t held = reserved_.size();
    const U32 left = budget;
    budget -= 1;
    const Outcome emptied = planEmptying(s, run, occupants, depth + 1, budget);
    cut = cut || emptied.cut;
    if (emptied.found) {
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
    // A failure that the memo has no room for is only searched again.
    if (FailedMove* failed = failedMoves_.findOrInsert(memo).first; failed != nullptr && budget >= failed->budget) {
      *failed = FailedMove{budget, cut};
    }
  }
  return Outcome{moved, cut};
}

}  // namespace TesselCentral
