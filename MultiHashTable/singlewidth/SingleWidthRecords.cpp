// The single-width records that no result places: the ids that the table's own rules leave
// recorded behind a key, found by the audit and released by reconcile.
//
// A key placed anew while it stands elsewhere (a request at an id, or a placement that finds
// a free slot before its own) stays recorded at its old id, and its removal frees only the
// id its result names. Such an id holds a slot that the chip does not use, and a later move
// takes its record along and publishes the key again, with or without a request.
#include <sstream>

#include "MultiHashTable/internal/Diagnostics.h"
#include "MultiHashTable/singlewidth/SingleWidthTable.h"

namespace TesselCentral {

std::vector<MultiHashTable::UnplacedRecord> MultiHashTable::unplacedRecords() const {
  // An id that some result names is placed, whoever is recorded there: a key with the same
  // hashes as the recorded one is published at it too.
  Fwk::HashMap<EntryId, bool> named;
  for (const auto& result : hashEntryStatus()->statusCollection()) {
    if (result.value.isValid()) named.is(result.value, true);
  }
  const HashEntryConfig* config = hashEntryConfig().ptr();
  std::vector<UnplacedRecord> unplaced;
  for (const auto& [id, key] : hashTableEntryCollection()) {
    if (isEmptyMarker(key) || named.has(id)) continue;
    const bool requested = config == nullptr || config->configHas(key);
    unplaced.push_back(UnplacedRecord{id, key, requested, hashEntryStatus()->status(key)});
  }
  return unplaced;
}

void MultiHashTable::auditHazards(AuditReport& report) const {
  MultiHashTableBase::auditHazards(report);
  for (const UnplacedRecord& r : unplacedRecords()) {
    std::ostringstream text;
    text << "id " << r.id << " is recorded for key " << r.key;
    if (r.requested) {
      text << ", whose result is " << r.result << ": the id leaks";
      report.add(AuditKind::leakedId, text.str(), r.id);
    } else {
      text << ", which has no request and no result there";
      report.add(AuditKind::recordWithoutRequest, text.str(), r.id);
    }
  }
}

void MultiHashTable::releaseUnplacedRecords(ReconcileReport& report) {
  for (const UnplacedRecord& r : unplacedRecords()) {
    std::string reason = r.requested ? "its result is another id" : "it has no request";
    MHT_TRACE_IN("reconcile", 2,
                 "MultiHashTableBase::"
                     << "reconcile"
                     << " releases eId: " << r.id << " key: " << r.key << " reason: " << reason);
    releaseRecord(r.id);
    numDeletionsInc(1);
    report.released(ReleasedId{r.id, r.key, std::move(reason)});
  }
}

}  // namespace TesselCentral
