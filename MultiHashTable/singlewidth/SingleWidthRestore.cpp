// The single-width table's part of a restore: a saved id is one of the key's candidate
// slots, and the key is recorded there as a placement records it (its id only).
#include "MultiHashTable/singlewidth/SingleWidthTable.h"

namespace TesselCentral {

bool MultiHashTable::restoredRun(const HashEntryKey& key, EntryId id, Candidate& run, RestoreCheck& check) const {
  const CandidateWalk walk = findCandidate(key, id);
  if (walk.end == CandidateWalk::stopped) {
    run = slotOfId(id);
    return true;
  }
  check.add(RestoreRule::notCandidate,
            "key " + detail::keyText(key) + " at id " + std::to_string(id.value()) +
                ": the id is not one of the key's candidate slots",
            key, id);
  return false;
}

void MultiHashTable::restoreRun(const HashEntryKey& key, EntryId id, const Candidate&) { recordAt(id, key); }

}  // namespace TesselCentral
