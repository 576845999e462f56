// What the single-width table's placement, placement by id and removal would do with a
// request, found by walking the same candidates in the same order as they do, without
// tracing or changing anything.
#include "singlewidth/SingleWidthTable.h"

#include <string>

namespace TesselCentral {

using detail::bankText;
using detail::idText;
using detail::keyText;
using detail::noBucketSelected;

RequestCheck MultiHashTable::missingBank() const {
  for (U32 b = 0; b < numBanks(); ++b) {
    if (bankFind(b) == nullptr) {
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
RequestCheck MultiHashTable::keyGeometry(const HashEntryKey& key) const {
  RequestCheck verdict = RequestCheck::accepted();
  if (key.crc16() == 0 && key.crc32() == 0) {
    verdict.worsen(
        RequestCheck::hazardous("a key whose crc16 and crc32 are both 0 is taken for the empty-slot marker: "
                                "other keys may be placed over it"));
  }
  for (U32 b = 0; b < numBanks(); ++b) {
    const Bank& bank = *bankFind(b);
    if (!bank.selectsBuckets()) {
      verdict.worsen(RequestCheck::stopsLater("0", bankText(b) + "'s hash function hashLsb selects no bucket: the " +
                                                       "first placement of the key that reaches it stops"));
      continue;
    }
    const U32 bucket = bank.bucketIdOf(key.crc16(), key.crc32(), false, 0);
    if (bucket >= numBuckets()) {
      verdict.worsen(RequestCheck::hazardous("the key's bucket " + std::to_string(bucket) + " in " + bankText(b) +
                                             " lies at or past the table's numBuckets " + std::to_string(numBuckets()) +
                                             ": its ids are another bank's slots"));
    }
  }
  return verdict;
}

RequestCheck MultiHashTable::checkPlacementAt(const HashEntryKey& key, EntryId eId) const {
  if (RequestCheck missing = missingBank(); !missing.passes()) return missing;

  // checkEntryIdValidity: the candidates, bank by bank, until one is eId.
  bool valid = false;
  for (U32 b = 0; b < numBanks() && !valid; ++b) {
    const Bank& bank = *bankFind(b);
    if (!bank.selectsBuckets()) return noBucketSelected(b);
    const U32 bucket = bank.bucketIdOf(key.crc16(), key.crc32(), false, 0);
    for (U32 s = 0; s < numBucketEntries() && !valid; ++s)
      valid = entryIdOf(b, bucket, SlotId(static_cast<U8>(s))) == eId;
  }
  if (!valid) {
    return RequestCheck::stopsNow("checkEntryIdValidity( key, eId )",
                                  "id " + idText(eId) + " is not one of the key's candidate slots");
  }

  const HashEntryKey* held = otherKeyRecordedAt(eId, key);
  if (held != nullptr && !sameHashes(*held, key)) {
    return RequestCheck::stopsNow("false", "id " + idText(eId) + " holds key " + keyText(*held) +
                                               ": a request never takes a position from another key");
  }

  RequestCheck verdict = RequestCheck::accepted("the key is placed at id " + idText(eId));
  if (held != nullptr) {
    verdict.worsen(RequestCheck::hazardous("id " + idText(eId) + " holds key " + keyText(*held) +
                                           ", which has the same crc16 and crc32: both keys are published at id " +
                                           idText(eId)));
  }
  if (const EntryId* current = hashEntryStatus()->statusFind(key); current != nullptr && current->isValid()) {
    verdict.worsen(RequestCheck::hazardous("the key stands at id " + idText(*current) +
                                           ", which stays recorded for it after it is published at id " + idText(eId) +
                                           ": that slot is lost until another key's removal frees it"));
  }
  verdict.worsen(keyGeometry(key));
  return verdict;
}

RequestCheck MultiHashTable::checkPlacement(const HashEntryKey& key) const {
  if (const EntryId* current = hashEntryStatus()->statusFind(key); current != nullptr && !current->isValid()) {
    return RequestCheck::noReaction(
        "the key found no room before: it is tried again only after its request is "
        "deleted and written anew");
  }
  if (RequestCheck missing = missingBank(); !missing.passes()) return missing;

  // The first pass: a free slot, or the key itself (by its two hashes), slot by slot.
  RequestCheck verdict;
  bool decided = false;
  for (U32 b = 0; b < numBanks() && !decided; ++b) {
    const Bank& bank = *bankFind(b);
    if (!bank.selectsBuckets()) return noBucketSelected(b);
    const U32 bucket = bank.bucketIdOf(key.crc16(), key.crc32(), false, 0);
    for (U32 s = 0; s < numBucketEntries(); ++s) {
      const EntryId e = entryIdOf(b, bucket, SlotId(static_cast<U8>(s)));
      const HashEntryKey* stored = hashTableEntryFind(e);
      if (stored == nullptr || isEmptyMarker(*stored)) {
        verdict = RequestCheck::accepted("the key is placed at id " + idText(e));
        decided = true;
        break;
      }
      if (!sameHashes(*stored, key)) continue;
      if (key.crc16() == 0 && key.crc32() == 0) {
        if (e.value() == 1) {
          verdict = RequestCheck::hazardous("the zero key takes over id 1 from key " + keyText(*stored));
          decided = true;
        }
        break;
      }
      verdict = *stored == key
                    ? RequestCheck::accepted("the key stands at id " + idText(e))
                    : RequestCheck::hazardous("id " + idText(e) + " holds key " + keyText(*stored) +
                                              ", which has the same crc16 and crc32: the key is published there too");
      decided = true;
      break;
    }
  }
  if (!decided) {
    verdict = RequestCheck::accepted(
        "no candidate slot is free: occupants are moved to make room, or the key gets "
        "no room");
  }
  verdict.worsen(keyGeometry(key));
  return verdict;
}

RequestCheck MultiHashTable::checkRemoval(const HashEntryKey&) const {
  return RequestCheck::accepted("the key's position is freed and its result removed");
}

Ptr<MultiHashTableBase> MultiHashTable::scratchCopy(const Ptr<const HashEntryConfig>& config,
                                                    const Ptr<HashEntryStatus>& status) const {
  Ptr<MultiHashTable> copy = multiHashTableFactory(numBanks(), numBuckets(), numBucketEntries(), config, status,
                                                   maxRecursiveSteps(), bucketSpanBanks_);
  // A bank holds only its geometry, so the copy shares the banks themselves.
  for (const auto& member : bank_) {
    copy->bank_.is(member.key, member.value);
    if (member.key < copy->bankIndex_.size()) copy->bankIndex_[member.key] = member.value.ptr();
  }
  for (const auto& record : hashTableEntryCollection()) copy->hashTableEntryIs(record.key, record.value);
  copy->numInsertionsInc(numInsertions());
  copy->numDeletionsInc(numDeletions());
  copy->numMovesInc(numMoves());
  return copy;
}

}  // namespace TesselCentral
