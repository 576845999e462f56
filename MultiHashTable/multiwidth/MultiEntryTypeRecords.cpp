// The one writer of where keys stand in the multi-width table: posToKey, keyToPos and the
// banks' bucket states, which a placed key keeps in agreement (keyToPos[key] = pos,
// posToKey[pos] = key, the slots of its run marked with its type). Placement, the
// depth-first and the fewest-moves moves, removal and placement at a requested id are each
// a sequence of these operations and their own publication. None of them traces: the
// bucket state's own trace lines come from the bank, in the order the callers take the steps.
#include "MultiHashTable/multiwidth/MultiEntryTypeHashTable.h"

namespace TesselCentral {

void MultiEntryTypeHashTable::occupy(const HashEntryKey& key, const RunStart& run, OccupyStep step) {
  if (step != OccupyStep::record) {
    MultiEntryTypeBank& b = bankAt(run.bank);
    b.updateBucketState(key.entryType(), run.bucket, run.slot, true);
    statisticsKept().slotsTaken(run.bank, b.entrySize(key.entryType()));
  }
  if (step == OccupyStep::mark) return;
  const U32 pos = run.position();
  posToKey_.is(pos, key);
  // A moving key's member is overwritten where it stands in the map.
  keyToPos_.is(key, pos);
}

U32 MultiEntryTypeHashTable::reserveFreeRun(MultiEntryTypeBank& b, const HashEntryKey& key, U32 bucketId) {
  const U32 pos = b.checkBucketSpace(key.entryType(), bucketId, true);
  if (pos != INVALID_POSITION) statisticsKept().slotsTaken(positionBank(pos), b.entrySize(key.entryType()));
  return pos;
}

void MultiEntryTypeHashTable::vacate(const HashEntryKey& key, const RunStart& run, Vacate why) {
  MultiEntryTypeBank& b = bankAt(run.bank);
  b.updateBucketState(key.entryType(), run.bucket, run.slot, false);
  statisticsKept().slotsFreed(run.bank, b.entrySize(key.entryType()));
  if (why == Vacate::leaving) keyToPos_.del(key);
  posToKey_.erase(run.position());
}

}  // namespace TesselCentral
