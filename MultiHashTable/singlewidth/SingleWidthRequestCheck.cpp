// What the single-width table's placement, placement at a requested id and removal would
// do with a request: the verdicts on what the table's own walks find.
#include "MultiHashTable/singlewidth/SingleWidthRequestCheck.h"

#include <algorithm>
#include <string>

#include "MultiHashTable/internal/ConditionTexts.h"
#include "MultiHashTable/singlewidth/SingleWidthTable.h"

namespace TesselCentral {

using detail::bankText;
using detail::idText;
using detail::keyText;
using detail::noBucketSelected;

namespace {

// A walk of the key's candidates that reaches a missing bank is where the placement reads a
// bank that is not there; a walk that stops before it never reads it.
RequestCheck missingBank(const MultiHashTable::CandidateWalk& walk) {
  if (walk.end != MultiHashTable::CandidateWalk::missingBank) return RequestCheck::accepted();
  return RequestCheck::stopsNow("", bankText(walk.bank) +
                                        " is missing: every bank below numBanks must exist before a key is placed, "
                                        "or the placement reads a bank that is not there");
}

// What the key's buckets leave for later: a bank that selects no bucket stops the first
// placement that reaches it, and a bucket at or past the table's numBuckets has the ids of
// another bank's slots.
RequestCheck keyGeometry(const MultiHashTable& table, const HashEntryKey& key) {
  RequestCheck verdict = RequestCheck::accepted();
  if (key.crc16() == 0 && key.crc32() == 0) {
    verdict.worsen(
        RequestCheck::hazardous("a key whose crc16 and crc32 are both 0 is taken for the empty-slot marker: "
                                "other keys may be placed over it"));
  }
  for (U32 b = 0; b < table.numBanks(); ++b) {
    const Bank* found = table.bankFind(b);
    if (found == nullptr) continue;  // the configuration check names it
    const Bank& bank = *found;
    if (!bank.selectsBuckets()) {
      verdict.worsen(RequestCheck::stopsLater(condition::bankSelectsNoBucket,
                                              bankText(b) + "'s hash function hashLsb selects no bucket: the " +
                                                  "first placement of the key that reaches it stops"));
      continue;
    }
    const U32 bucket = bank.bucketIdOf(key.crc16(), key.crc32(), false, 0);
    if (bucket >= table.numBuckets()) {
      verdict.worsen(RequestCheck::hazardous("the key's bucket " + std::to_string(bucket) + " in " + bankText(b) +
                                             " lies at or past the table's numBuckets " +
                                             std::to_string(table.numBuckets()) +
                                             ": its ids are another bank's slots"));
    }
  }
  return verdict;
}

// A key placed anew while it stands elsewhere stays recorded at its old id: the id leaks,
// held for a key that no result names there, until a reconcile releases it.
RequestCheck leakOf(const MultiHashTable& table, const HashEntryKey& key, EntryId placedAt) {
  const EntryId* current = table.hashEntryStatus()->statusFind(key);
  if (current == nullptr || !current->isValid() || *current == placedAt) return RequestCheck::accepted();
  return RequestCheck::hazardous("the key stands at id " + idText(*current) + ", which stays recorded for it when " +
                                 "it is published at id " + idText(placedAt) + ": id " + idText(*current) +
                                 " leaks until a reconcile releases it")
      .leaving(AuditKind::leakedId, *current);
}

// The moves a placement makes publish each moved key at its new id. A key moved from an id
// that its result does not name (a leaked id) is published there instead of where it
// stands, which leaks another of its ids in turn; a key without a request gets a result
// again. A key may move more than once, so what the moves leave is read from where they
// end: each moved key's last result, and the ids still recorded for it.
RequestCheck movesOf(const MultiHashTable& table, const HashEntryKey& key) {
  const MultiHashTable::MovePrediction prediction = table.predictMoves(key);
  if (prediction.moves.empty()) return RequestCheck::accepted();
  const HashEntryConfig* config = table.hashEntryConfig().ptr();
  const auto& moves = prediction.moves;
  // Records and results as the moves leave them: the latest change of each wins.
  const auto recordedAt = [&](EntryId id) -> const HashEntryKey* {
    for (auto m = moves.rbegin(); m != moves.rend(); ++m) {
      if (m->to == id) return &m->key;
      if (m->from == id) return nullptr;
    }
    return table.hashTableEntryFind(id);
  };
  const auto resultOf = [&](const HashEntryKey& moved) {
    for (auto m = moves.rbegin(); m != moves.rend(); ++m) {
      if (m->key == moved) return m->to;
    }
    return table.hashEntryStatus()->status(moved);
  };
  RequestCheck verdict = RequestCheck::accepted();
  for (std::size_t i = 0; i < moves.size(); ++i) {
    const HashEntryKey& moved = moves[i].key;
    // Each moved key once, at its first move.
    if (std::any_of(moves.begin(), moves.begin() + static_cast<std::ptrdiff_t>(i),
                    [&](const MultiHashTable::PlannedMove& m) { return m.key == moved; })) {
      continue;
    }
    const EntryId result = resultOf(moved);
    const std::string moving = "the placement moves key " + keyText(moved) + " from id " + idText(moves[i].from) +
                               " and publishes it at id " + idText(result);
    if (config != nullptr && !config->configHas(moved)) {
      verdict.worsen(RequestCheck::hazardous(moving + ", though it has no request")
                         .leaving(AuditKind::resultWithoutRequest, result));
      continue;
    }
    // The ids the key may be left recorded at: where it stood, and every id it moves through.
    std::vector<EntryId> ids{table.hashEntryStatus()->status(moved)};
    for (const MultiHashTable::PlannedMove& m : moves) {
      if (m.key == moved) ids.push_back(m.to);
    }
    for (const EntryId id : ids) {
      const HashEntryKey* held = id.isValid() ? recordedAt(id) : nullptr;
      if (id == result || held == nullptr || !(*held == moved)) continue;
      verdict.worsen(RequestCheck::hazardous(moving + ", while id " + idText(id) + " stays recorded for it: id " +
                                             idText(id) + " leaks")
                         .leaving(AuditKind::leakedId, id));
      break;
    }
  }
  return verdict;
}

}  // namespace

namespace singleWidthCheck {

RequestCheck placementAt(const MultiHashTable& table, const HashEntryKey& key, EntryId eId) {
  const MultiHashTable::CandidateWalk walk = table.findCandidate(key, eId);
  if (RequestCheck missing = missingBank(walk); !missing.passes()) return missing;
  if (walk.end == MultiHashTable::CandidateWalk::noBucket) return noBucketSelected(walk.bank);
  if (walk.end != MultiHashTable::CandidateWalk::stopped) {
    return RequestCheck::stopsNow(condition::requestedIdIsCandidate,
                                  "id " + idText(eId) + " is not one of the key's candidate slots");
  }
  if (const HashEntryKey* blocker = table.claimBlockedBy(eId, key)) {
    return RequestCheck::stopsNow(condition::requestedIdHeldByAnother,
                                  "id " + idText(eId) + " holds key " + keyText(*blocker) +
                                      ": a request never takes a position from another key");
  }

  RequestCheck verdict = RequestCheck::accepted("the key is placed at id " + idText(eId)).publishing(eId);
  if (const HashEntryKey* held = table.otherKeyRecordedAt(eId, key)) {
    verdict.worsen(RequestCheck::hazardous("id " + idText(eId) + " holds key " + keyText(*held) +
                                           ", which has the same crc16 and crc32: both keys are published at id " +
                                           idText(eId)));
  }
  verdict.worsen(leakOf(table, key, eId));
  verdict.worsen(keyGeometry(table, key));
  return verdict;
}

RequestCheck placement(const MultiHashTable& table, const HashEntryKey& key) {
  if (const EntryId* current = table.hashEntryStatus()->statusFind(key); current != nullptr && !current->isValid()) {
    return RequestCheck::noReaction(
        "the key found no room before: it is tried again only after its request is "
        "deleted and written anew");
  }
  const MultiHashTable::FirstPass first = table.firstPass(key);
  if (RequestCheck missing = missingBank(first.walk); !missing.passes()) return missing;
  if (first.walk.end == MultiHashTable::CandidateWalk::noBucket) return noBucketSelected(first.walk.bank);
  RequestCheck verdict;
  switch (first.found) {
    case MultiHashTable::FirstPass::freeSlot:
      verdict = RequestCheck::accepted("the key is placed at id " + idText(first.eId)).publishing(first.eId);
      verdict.worsen(leakOf(table, key, first.eId));
      break;
    case MultiHashTable::FirstPass::zeroKeyAtOne:
      verdict =
          RequestCheck::hazardous("the zero key takes over id 1 from key " + keyText(table.hashTableEntry(first.eId)));
      break;
    case MultiHashTable::FirstPass::existing: {
      const HashEntryKey stored = table.hashTableEntry(first.eId);
      verdict = stored == key ? RequestCheck::accepted("the key stands at id " + idText(first.eId))
                              : RequestCheck::hazardous("id " + idText(first.eId) + " holds key " + keyText(stored) +
                                                        ", which has the same crc16 and crc32: the key is published "
                                                        "there too");
      verdict = std::move(verdict).publishing(first.eId);
      break;
    }
    case MultiHashTable::FirstPass::none:
      verdict = RequestCheck::accepted(
          "no candidate slot is free: occupants are moved to make room, or the key gets "
          "no room");
      verdict.worsen(movesOf(table, key));
      break;
  }
  verdict.worsen(keyGeometry(table, key));
  return verdict;
}

RequestCheck removal(const MultiHashTable& table, const HashEntryKey& key) {
  RequestCheck verdict = RequestCheck::accepted("the key's position is freed and its result removed");
  // The removal frees the id that the result names; any other id recorded for the key (it
  // lies among the key's candidates, where every placement records) stays recorded.
  const EntryId result = table.hashEntryStatus()->status(key);
  for (const Candidate& place : table.candidates(key)) {
    const HashEntryKey* held = table.hashTableEntryFind(place.id);
    if (place.id == result || held == nullptr || !(*held == key)) continue;
    verdict.worsen(RequestCheck::hazardous("the removal frees id " + idText(result) + " only: id " + idText(place.id) +
                                           " stays recorded for the key, which then has no "
                                           "request, and a later move may publish it again")
                       .leaving(AuditKind::recordWithoutRequest, place.id));
  }
  return verdict;
}

}  // namespace singleWidthCheck

}  // namespace TesselCentral
