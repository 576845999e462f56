// MultiWidthMovePlanner: room by the fewest moves in a multi-width table (moveSearch
// breadthFirst), planned apart from the table. The planner reads the table and changes
// nothing in it; the table applies the plan it is handed.
#pragma once

#include <array>
#include <span>
#include <utility>
#include <vector>

#include "MultiHashTable/MultiHashTableTypes.h"
#include "MultiHashTable/SearchScratchMap.h"
#include "MultiHashTable/multiwidth/Position.h"

namespace TesselCentral {

class MultiEntryTypeBank;
class MultiEntryTypeHashTable;

// A candidate run of the key is emptied by moving each entry that stands in it to one of
// its own candidate runs, which is free or is emptied the same way first, with chains of
// displacement at most maxRecursiveSteps deep: the shortest single chain, or a plan of
// fewer moves that empties a run that several entries stand in. Nothing moves until a plan
// is whole. The search examines at most maxMoveSearchRuns runs; when it finds no plan
// within them, cut short or not, the table hands the key to the depth-first search, which
// it bounds in turn (maxHandedOverRuns).
//
// The planner keeps its search's nodes, visited runs and plans between placements, so that
// a table that holds one planner allocates nothing to search once it is warm, and empties
// them for the next search in constant time.
class MultiWidthMovePlanner {
 public:
  struct Move {
    SlotRun from;
    SlotRun to;
  };
  // What one search found.
  struct Plan {
    // The moves in the order to apply them, from the free ends backwards: each entry moves
    // into a free run or one that the moves before it have emptied. Valid until the next
    // search.
    std::span<const Move> moves;
    // The key's candidate run that the moves free; meaningful only when found.
    SlotRun freed;
    bool found = false;
    // Whether the search ran out of runs to examine (maxMoveSearchRuns) before it ran out
    // of plans, which the table counts as a search cut short.
    bool cutShort = false;
    U32 runsExamined = 0;
  };

  MultiWidthMovePlanner();
  MultiWidthMovePlanner(const MultiWidthMovePlanner&) = delete;
  MultiWidthMovePlanner& operator=(const MultiWidthMovePlanner&) = delete;

  // The plan of the fewest moves that frees one of the key's candidate runs in the table,
  // or none. A key that stands in the table already is the one entry no plan moves.
  Plan plan(const MultiEntryTypeHashTable& table, const HashEntryKey& key);

 private:
  // What one search reads and counts, for as long as it runs.
  struct Search {
    const MultiEntryTypeHashTable& table;
    U32 pinned;  // where the key being placed stands already, if it does
    U32 runsExamined = 0;
  };
  struct Occupants {
    std::array<SlotRun, 4> entries{};
    U32 count = 0;
    bool movable = true;  // false when an entry may not move (see occupantsOf)
  };
  static Occupants occupantsOf(const Search& s, const MultiEntryTypeBank& b, const SlotRun& run) noexcept;

  // The shortest chain from a candidate that one entry stands in, each entry into the run
  // that the next one leaves, the last into a free run: breadth first over runs that one
  // entry stands in, into chainPlan_.
  bool shortestChain(Search& s, const HashEntryKey& key, SlotRun& freed);
  // A node of that search: the run to empty, its one entry, the node whose entry would move
  // into the run (noParent for the key's candidates), and the moves up to this one.
  static constexpr U32 noParent = 0xFFFFFFFF;
  struct ChainNode {
    SlotRun run;
    SlotRun occupant;
    U32 parent;
    U32 moves;

    // The slots that the entry's move frees: the wider of the two runs, which holds the other.
    const SlotRun& freed() const noexcept { return occupant.width >= run.width ? occupant : run; }
  };
  // Whether a run overlaps the slots that the chain ending at node i empties.
  bool chainCrosses(U32 i, const SlotRun& run) const noexcept;

  // The first plan, candidates in order, of the fewest moves below `fewerThan`, into plan_.
  bool fewestMovesPlan(Search& s, const HashEntryKey& key, SlotRun& freed, U32 fewerThan);
  // How a branch of that search ended: whether it found its moves, and whether the move
  // count, rather than the depth or the runs, ended it or any branch below it. A search
  // that nothing cut short would find nothing more with a larger count.
  struct Outcome {
    bool found = false;
    bool cut = false;
  };
  // Adds to plan_ the moves that empty a run of the given occupants within `budget` moves
  // (what is left is written back), each occupant's move at chain depth `depth`.
  Outcome planEmptying(Search& s, const SlotRun& run, const Occupants& occupants, U32 depth, U32& budget);
  Outcome planMoveOut(Search& s, const SlotRun& entry, U32 depth, U32& budget);
  // Whether a run overlaps one that the plan empties or fills.
  bool reservedOverlaps(const SlotRun& run) const noexcept;

  // The chain search's nodes and visited runs, the chain and the plan being built, the runs
  // the plan holds (emptied or filled) and what failed so far.
  std::vector<ChainNode> chainNodes_;
  SearchScratchMap<bool> visitedRuns_;
  std::vector<Move> chainPlan_;
  std::vector<Move> plan_;
  std::vector<SlotRun> reserved_;
  struct FailedMove {
    U32 budget = 0;
    bool cut = false;
  };
  SearchScratchMap<FailedMove> failedMoves_;  // by entry position and depth, per placement
};

}  // namespace TesselCentral
