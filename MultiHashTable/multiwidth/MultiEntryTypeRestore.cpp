// The multi-width table's part of a restore: a saved id is the id of one of the key's
// candidate runs, the run that a placement anywhere publishes under that id, and the key
// takes that run in posToKey, keyToPos and its bucket's state, as a placement does.
#include "MultiHashTable/multiwidth/MultiEntryTypeHashTable.h"

namespace TesselCentral {

bool MultiEntryTypeHashTable::restoredRun(const HashEntryKey& key, EntryId id, Candidate& run,
                                          RestoreCheck& check) const {
  const EntryIdHelper& translator = *entryIdHelper_;
  const bool found = forEachCandidateRun(key, 0, [&](const MultiEntryTypeBank&, const SlotRun& place) {
    if (translator.entryIdOfPosition(place.position()) != id) return false;
    run = Candidate{place.bank, place.bucket, place.slot, place.width, id};
    return true;
  });
  if (found) return true;

  // Why not: the bucket whose range of ids holds it, as a request at the id finds it.
  const std::string at = "key " + detail::keyText(key) + " at id " + std::to_string(id.value());
  const EntryIdHelper::IdBucket named = translator.candidateBucketOf(key, id);
  const MultiEntryTypeBank* b = named.end == EntryIdHelper::IdBucket::found ? bankFind(named.bank) : nullptr;
  const U32* width = b != nullptr ? b->entrySizeFind(key.entryType()) : nullptr;
  if (width != nullptr && *width != 0) {
    const U32 slot = EntryIdHelper::slotNamedBy(b->bucketSize(), id);
    const std::string where = "slot " + std::to_string(slot) + " of bucket " + std::to_string(named.bucket) +
                              " of bank " + std::to_string(named.bank);
    if (b->isPositionZero(named.bucket, slot)) {
      check.add(RestoreRule::reservedId,
                at + ": the id names " + where + ", the first slot of physical bank 0, which the table never hands out",
                key, id);
      return false;
    }
    if (slot % *width != 0) {
      check.add(RestoreRule::notAligned,
                at + ": the id names " + where + ", where no entry " + std::to_string(*width) + " slots wide starts",
                key, id);
      return false;
    }
    check.add(RestoreRule::notCandidate,
              at + ": the id lies past the last run of the key's width in bucket " + std::to_string(named.bucket) +
                  " of bank " + std::to_string(named.bank) + ": only a request at that id publishes it",
              key, id);
    return false;
  }
  check.add(RestoreRule::notCandidate, at + ": the id lies in none of the key's candidate buckets", key, id);
  return false;
}

void MultiEntryTypeHashTable::restoreRun(const HashEntryKey& key, EntryId id, const Candidate& run) {
  occupy(key, RunStart{run.bank, run.bucket, run.slot}, OccupyStep::markAndRecord);
  hashTableEntryIs(id, key);
}

}  // namespace TesselCentral
