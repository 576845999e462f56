// What the single-width table's placement, placement at a requested id and removal would
// do with a request: the verdicts on what the table's own walks find.
#include "singlewidth/SingleWidthRequestCheck.h"

#include <string>

#include "internal/ConditionTexts.h"
#include "singlewidth/SingleWidthTable.h"

namespace TesselCentral {

using detail::bankText;
using detail::idText;
using detail::keyText;
using detail::noBucketSelected;

namespace {

RequestCheck missingBank(const MultiHashTable& table) {
  for (U32 b = 0; b < table.numBanks(); ++b) {
    if (table.bankFind(b) == nullptr) {
      return RequestCheck::stopsNow("", bankText(b) +
                                            " is missing: every bank below numBanks must exist before a key " +
                                            "is placed, or the placement reads a bank that is not there");
    }
  }
  return RequestCheck::accepted();
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
    const Bank& bank = *table.bankFind(b);
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
                                 " leaks until a reconcile releases it");
}

// The moves a placement makes publish each moved key at its new id. A key moved from an id
// that its result does not name (a leaked id) is published there instead of where it
// stands, which leaks its old id in turn; a key without a request gets a result again.
RequestCheck movesOf(const MultiHashTable& table, const HashEntryKey& key) {
  const MultiHashTable::MovePrediction prediction = table.predictMoves(key);
  RequestCheck verdict = RequestCheck::accepted();
  const HashEntryConfig* config = table.hashEntryConfig().ptr();
  // The results as the moves before each one leave them: a key may move more than once.
  std::vector<std::pair<HashEntryKey, EntryId>> published;
  const auto resultOf = [&](const HashEntryKey& moved) {
    for (auto p = published.rbegin(); p != published.rend(); ++p) {
      if (p->first == moved) return p->second;
    }
    return table.hashEntryStatus()->status(moved);
  };
  for (const MultiHashTable::PlannedMove& move : prediction.moves) {
    const EntryId result = resultOf(move.key);
    published.emplace_back(move.key, move.to);
    const std::string moving =
        "the placement moves key " + keyText(move.key) + " from id " + idText(move.from) + " to id " + idText(move.to);
    if (config != nullptr && !config->configHas(move.key)) {
      verdict.worsen(RequestCheck::hazardous(moving + " and publishes that id for it, though it has no request"));
      continue;
    }
    if (result != move.from) {
      verdict.worsen(RequestCheck::hazardous(moving + ", an id that its result (" + idText(result) +
                                             ") does not name: it is published at id " + idText(move.to) + " and id " +
                                             idText(result) + " leaks"));
    }
  }
  return verdict;
}

}  // namespace

namespace singleWidthCheck {

RequestCheck placementAt(const MultiHashTable& table, const HashEntryKey& key, EntryId eId) {
  if (RequestCheck missing = missingBank(table); !missing.passes()) return missing;

  const MultiHashTable::CandidateWalk walk = table.findCandidate(key, eId);
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

  RequestCheck verdict = RequestCheck::accepted("the key is placed at id " + idText(eId));
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
  if (RequestCheck missing = missingBank(table); !missing.passes()) return missing;

  const MultiHashTable::FirstPass first = table.firstPass(key);
  if (first.walk.end == MultiHashTable::CandidateWalk::noBucket) return noBucketSelected(first.walk.bank);
  RequestCheck verdict;
  switch (first.found) {
    case MultiHashTable::FirstPass::freeSlot:
      verdict = RequestCheck::accepted("the key is placed at id " + idText(first.eId));
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
                                           "request, and a later move may publish it again"));
  }
  return verdict;
}

}  // namespace singleWidthCheck

}  // namespace TesselCentral
