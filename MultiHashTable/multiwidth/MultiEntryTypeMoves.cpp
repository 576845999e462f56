// Multi-width room by the fewest moves (moveSearch breadthFirst), the table's side: the
// search (MultiWidthMovePlanner) reads the table and hands back a whole plan, or none;
// nothing moves until a plan is whole. The table traces the search's outcome and applies
// the plan from its free ends backwards, each entry recorded and published at its new
// place before the place it leaves is taken by the next; the key then takes the run that
// the moves have freed.
#include "MultiHashTable/multiwidth/MultiEntryTypeHashTable.h"

#include "MultiHashTable/fwk/Assert.h"
#include "MultiHashTable/fwk/Trace.h"
#include "MultiHashTable/internal/Diagnostics.h"

namespace TesselCentral {

U32 MultiEntryTypeHashTable::placeByShortestMoves(const HashEntryKey& key, const MultiWidthMovePlanner::Plan& plan) {
  U32 pos = INVALID_POSITION;
  if (!plan.found && plan.cutShort) {
    MHT_TRACE_IN("insertEntry", 2,
                 "insertEntry"
                     << " breadth-first search: " << plan.runsExamined
                     << " runs examined, the bound: the depth-first search takes over for key: " << key);
  } else if (!plan.found) {
    MHT_TRACE_IN("insertEntry", 2,
                 "insertEntry"
                     << " breadth-first search: " << plan.runsExamined << " runs examined, no plan within "
                     << maxRecursiveSteps() << " moves deep: the depth-first search takes over for key: " << key);
  } else {
    MHT_TRACE_IN("insertEntry", 2,
                 "insertEntry"
                     << " breadth-first search: " << plan.runsExamined << " runs examined, " << plan.moves.size()
                     << " moves free pos: 0x" << Fwk::hex << plan.freed.position() << Fwk::dec);
    for (const MultiWidthMovePlanner::Move& m : plan.moves) relocate(posToKey(m.from.position()), m.from, m.to);
    pos = plan.freed.position();
  }
  // A freed run whose packed position reads as INVALID_POSITION (the last slot of the last
  // bucket of a 256th bank) is no room to the callers either; the depth-first search that
  // takes the key over publishes its failure.
  if (pos == INVALID_POSITION) return INVALID_POSITION;
  occupy(key, RunStart::at(pos), OccupyStep::mark);
  doAddOrMoveEntry(key, pos, keyToPosHas(key));
  return pos;
}

void MultiEntryTypeHashTable::relocate(const HashEntryKey& key, const SlotRun& from, const SlotRun& to) {
  // Recorded and published at the new place first, so that no id ever holds two keys and
  // no status names a place that its key has left; only then is the old place freed.
  EntryIdHelper& translator = helper();
  const U32 fromPos = from.position();
  const U32 toPos = to.position();
  MHT_ASSERT_TEXT(!posToKeyHas(toPos), "!posToKeyHas( freePos )");
  occupy(key, RunStart::of(to), OccupyStep::markAndRecord);
  const EntryId newEntryId = translator.posToEntryId(toPos);
  hashTableEntryIs(newEntryId, key);
  hashEntryStatus()->statusIs(key, newEntryId);

  vacate(key, RunStart::of(from), Vacate::moving);
  const EntryId oldEntryId = translator.posToEntryId(fromPos);
  hashTableEntryDel(oldEntryId);
  moveMade();
  MHT_TRACE_IN("insertEntry", 2,
               "insertEntry"
                   << " breadth-first move key: " << key << " from eId: " << oldEntryId << " to eId: " << newEntryId);
}

}  // namespace TesselCentral
