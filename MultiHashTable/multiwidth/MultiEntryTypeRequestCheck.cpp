// What the multi-width table's placement, placement by id and removal would do with a
// request: the same walks as insertEntry's free-space search, the EntryIdHelper's bank walk
// and setEntryState, in the same order, without tracing or changing anything.
#include "MultiHashTable/multiwidth/MultiEntryTypeHashTable.h"

#include <string>

#include "MultiHashTable/internal/ConditionTexts.h"

namespace TesselCentral {

using detail::bankText;
using detail::idText;
using detail::keyText;
using detail::noBucketSelected;

namespace {

bool narrower(HashEntryType type, const MultiEntryTypeBank& bank) noexcept {
  return static_cast<U32>(type) < static_cast<U32>(bank.baseEntryType());
}
bool narrowerSigned(HashEntryType type, const MultiEntryTypeBank& bank) noexcept {
  return static_cast<int>(type) < static_cast<int>(bank.baseEntryType());
}

std::string narrowerReason(HashEntryType type, U32 b, const MultiEntryTypeBank& bank) {
  return "a " + stringValue(type) + " key is narrower than " + bankText(b) + "'s baseEntryType " +
         stringValue(bank.baseEntryType());
}

}  // namespace

RequestCheck MultiEntryTypeHashTable::missingPart() const {
  if (!entryIdHelper_) {
    return RequestCheck::stopsNow(condition::tableHasHelper,
                                  "the table has no EntryIdHelper: set one with entryIdHelperIs "
                                  "before the first request");
  }
  for (U32 b = 0; b < numBanks(); ++b) {
    if (bankFind(b) == nullptr) {
      return RequestCheck::stopsNow(
          condition::bankExists,
          bankText(b) + " is missing: every bank below numBanks must exist before a " + "key is placed");
    }
  }
  return RequestCheck::accepted();
}

// What the key's width leaves for later placements and moves in every bank.
RequestCheck MultiEntryTypeHashTable::keyGeometry(const HashEntryKey& key) const {
  RequestCheck verdict = RequestCheck::accepted();
  const HashEntryType type = key.entryType();
  for (U32 i = 0; i < numBanks(); ++i) {
    const MultiEntryTypeBank& b = *bankFind(i);
    if (narrower(type, b)) {
      verdict.worsen(RequestCheck::stopsLater(condition::keyNotNarrowerThanBank,
                                              narrowerReason(type, i, b) +
                                                  ": a placement or move of the key that reaches "
                                                  "the bank stops"));
      continue;
    }
    if (!debugEnabled_ && !b.selectsBuckets()) {
      verdict.worsen(RequestCheck::stopsLater(
          condition::bankSelectsNoBucket,
          bankText(i) + "'s hash function hashLsb selects no bucket: a " + "placement that reaches the bank stops"));
      continue;
    }
    const U32* width = b.entrySizeFind(type);
    if (width != nullptr && *width != 0 && b.bucketSize() % *width != 0) {
      verdict.worsen(RequestCheck::stopsLater(condition::runEndsInsideBucket,
                                              "a " + stringValue(type) + " entry takes " + std::to_string(*width) +
                                                  " slots, which do not divide " + bankText(i) + "'s bucketSize " +
                                                  std::to_string(b.bucketSize()) +
                                                  ": a run may hang over the bucket's end, where a later walk stops"));
    }
  }
  return verdict;
}

RequestCheck MultiEntryTypeHashTable::checkPlacementAt(const HashEntryKey& key, EntryId eId) const {
  if (RequestCheck missing = missingPart(); !missing.passes()) return missing;
  Claim claim;
  if (RequestCheck walk = candidateBucketOf(key, eId, claim); !walk.passes()) return walk;
  if (RequestCheck taken = claimCheck(key, eId, claim); !taken.passes()) return taken;
  RequestCheck verdict = RequestCheck::accepted("the key is placed at id " + idText(eId)).publishing(eId);
  verdict.worsen(claimHazards(key, eId, claim));
  verdict.worsen(keyGeometry(key));
  return verdict;
}

RequestCheck MultiEntryTypeHashTable::candidateBucketOf(const HashEntryKey& key, EntryId eId, Claim& claim) const {
  const HashEntryType type = key.entryType();
  // The EntryIdHelper's bank walk: the first bank and bucket whose range holds eId.
  const EntryIdHelper::IdBucket walk = entryIdHelper_->candidateBucketOf(key, eId);
  switch (walk.end) {
    case EntryIdHelper::IdBucket::found:
      break;
    case EntryIdHelper::IdBucket::missingBank:
      return RequestCheck::stopsNow(condition::bankExists, bankText(walk.bank) + " is missing");
    case EntryIdHelper::IdBucket::noBucket:
      return noBucketSelected(walk.bank);
    case EntryIdHelper::IdBucket::narrower:
      return RequestCheck::stopsNow(condition::keyNotNarrowerThanBank,
                                    narrowerReason(type, walk.bank, *bankFind(walk.bank)));
    case EntryIdHelper::IdBucket::noWidth:
      return RequestCheck::stopsNow(condition::typeHasWidth,
                                    bankText(walk.bank) + " has no entry width for " + stringValue(type));
    case EntryIdHelper::IdBucket::notFound:
      return RequestCheck::stopsNow(condition::requestedIdInCandidateBucket,
                                    "id " + idText(eId) + " is not in one of the key's candidate buckets");
  }
  claim.bank = walk.bank;
  claim.bucket = walk.bucket;

  const U32 bucketSize = bankFind(claim.bank)->bucketSize();
  claim.pos = EntryIdHelper::positionNamedBy(claim.bank, claim.bucket, bucketSize, eId);
  claim.slot = EntryIdHelper::slotNamedBy(bucketSize, eId);
  return RequestCheck::accepted();
}

RequestCheck MultiEntryTypeHashTable::claimCheck(const HashEntryKey& key, EntryId eId, const Claim& claim) const {
  const HashEntryType type = key.entryType();
  // setEntryState: the position that the id names, which neither another key nor the key
  // itself may hold, and whose slots must be free.
  const MultiEntryTypeBank& b = *bankFind(claim.bank);
  if (posToKeyHas(claim.pos)) {
    const HashEntryKey holder = posToKey(claim.pos);
    return RequestCheck::stopsNow(condition::requestedPositionFree,
                                  holder == key ? "the key already stands at id " + idText(eId) +
                                                      "'s position; delete its request before asking for an id"
                                                : "id " + idText(eId) + "'s position holds key " + keyText(holder));
  }
  if (keyToPosHas(key)) {
    return RequestCheck::stopsNow(condition::requestingKeyNotPlaced,
                                  "the key already stands at id " + idText(hashEntryStatus()->status(key)) +
                                      "; delete its request before asking for another id");
  }
  if (narrowerSigned(type, b))
    return RequestCheck::stopsNow(condition::keyNotNarrowerThanBankSigned, narrowerReason(type, claim.bank, b));
  if (!b.slotsFree(type, claim.bucket, claim.slot)) {
    return RequestCheck::stopsNow(condition::runSlotsFree, "the slots of id " + idText(eId) + " overlap another entry");
  }
  if (const HashEntryKey* blocker = claimBlockedBy(eId, key)) {
    return RequestCheck::stopsNow(condition::requestedIdHeldByAnother,
                                  "id " + idText(eId) + " is recorded for key " + keyText(*blocker));
  }

  return RequestCheck::accepted();
}

RequestCheck MultiEntryTypeHashTable::claimHazards(const HashEntryKey& key, EntryId eId, const Claim& claim) const {
  const MultiEntryTypeBank& b = *bankFind(claim.bank);
  const U32 slot = claim.slot;
  RequestCheck verdict = RequestCheck::accepted();
  const U32 width = b.entrySize(key.entryType());
  if (width > 1 && slot % width != 0) {
    verdict.worsen(RequestCheck::stopsLater(condition::entryStartsAtSlot,
                                            "id " + idText(eId) + " names slot " + std::to_string(slot) +
                                                ", where no entry " + std::to_string(width) +
                                                " slots wide may start: a later walk of the bucket "
                                                "reaches a slot where no entry starts"));
  }
  if (width > 1 && b.isPositionZero(claim.bucket, slot)) {
    verdict.worsen(
        RequestCheck::stopsLater(condition::entryStartsAtSlot, "id " + idText(eId) +
                                                                   " names the first slot of physical bank 0, where a "
                                                                   "later walk of the bucket starts one slot in, "
                                                                   "inside this entry"));
  }
  if (const EntryId standsAt = entryIdHelper_->entryIdOfPosition(claim.pos); standsAt != eId) {
    verdict.worsen(RequestCheck::hazardous("the key is published at id " + idText(eId) + " but stands at id " +
                                           idText(standsAt) + "'s position: another key may be published at id " +
                                           idText(eId)));
  }
  if (claim.bucket >= b.numBuckets()) {
    verdict.worsen(RequestCheck::hazardous("id " + idText(eId) + " lies past the end of " + bankText(claim.bank) +
                                           ": its position is bucket " + std::to_string(claim.bucket) +
                                           " of that bank, whose ids are the next bank's"));
  }
  if (const HashEntryKey* held = otherKeyRecordedAt(eId, key)) {
    verdict.worsen(RequestCheck::hazardous("id " + idText(eId) + " is recorded for key " + keyText(*held) +
                                           ", which has the same crc16 and crc32: that record is replaced"));
  }
  return verdict;
}

RequestCheck MultiEntryTypeHashTable::checkPlacement(const HashEntryKey& key) const {
  if (RequestCheck missing = missingPart(); !missing.passes()) return missing;
  const HashEntryType type = key.entryType();

  // findEmptyPosition, as the reaction's first call makes it.
  const FreeRun free = freeRunOf(key);
  if (free.end == FreeRun::noBucket) return noBucketSelected(free.bank);
  if (free.end == FreeRun::narrower) {
    return RequestCheck::stopsNow(condition::keyNotNarrowerThanBank,
                                  narrowerReason(type, free.bank, *bankFind(free.bank)));
  }
  RequestCheck verdict;
  const bool found = free.end == FreeRun::found;
  if (found) {
    const EntryId at = entryIdHelper_->entryIdOfPosition(free.pos);
    const std::string where = "id " + idText(at);
    verdict = RequestCheck::accepted(keyToPosHas(key) ? "the key moves to " + where : "the key is placed at " + where)
                  .publishing(at);
  }
  if (!found) {
    if (maxRecursiveSteps() == 0 && keyToPosHas(key)) {
      verdict = RequestCheck::hazardous(
          "with no step budget the key's result becomes the invalid id while it keeps "
          "its slots at id " +
          idText(hashEntryStatus()->status(key)) + ": the chip still holds it");
    } else {
      verdict = RequestCheck::accepted("no free place: occupants are moved to make room, or the key gets no room");
    }
  }
  verdict.worsen(keyGeometry(key));
  return verdict;
}

RequestCheck MultiEntryTypeHashTable::checkRemoval(const HashEntryKey& key) const {
  const EntryId id = hashEntryStatus()->status(key);
  if (!id.isValid()) return RequestCheck::accepted("the key has no place: only its result is removed");
  if (!keyToPosHas(key)) {
    return RequestCheck::hazardous("the key's result names id " + idText(id) +
                                   " but the table holds no position for it: the removal clears position 0, "
                                   "whichever key starts there");
  }
  if (bankFind(positionBank(keyToPos(key))) == nullptr) {
    return RequestCheck::stopsNow(condition::bankExists,
                                  bankText(positionBank(keyToPos(key))) + ", where the key stands, is missing");
  }
  return RequestCheck::accepted("the key's slots are freed and its result removed");
}

Ptr<MultiHashTableBase> MultiEntryTypeHashTable::scratchCopy(const Ptr<const HashEntryConfig>& config,
                                                             const Ptr<HashEntryStatus>& status) const {
  Ptr<MultiEntryTypeHashTable> copy =
      multiEntryTypeHashTableFactory(numBanks(), numBuckets(), numBucketEntries(), config, status, maxRecursiveSteps());
  copy->debugEnabledIs(debugEnabled_);
  for (const auto& member : bank_) {
    const MultiEntryTypeBank& b = *member.value;
    Ptr<MultiEntryTypeBank> twin =
        copy->bankIs(b.baseEntryType(), member.key, b.numBuckets(), b.bucketSize(), b.hashFunc(), b.hashOffSet(),
                     b.hashBits(), b.hashMask(), b.phyBankId(), b.doubleEntryTwoBucketMode());
    // The geometry rows are attributes a client may change after creation: copy them as they are.
    twin->bucketShiftDelAll();
    twin->entrySizeDelAll();
    twin->entryMaskDelAll();
    twin->numBucketsToCheckDelAll();
    for (const auto& row : b.bucketShiftCollection()) twin->bucketShiftIs(row.key, row.value);
    for (const auto& row : b.entrySizeCollection()) twin->entrySizeIs(row.key, row.value);
    for (const auto& row : b.entryMaskCollection()) twin->entryMaskIs(row.key, row.value);
    for (const auto& row : b.numBucketsToCheckCollection()) twin->numBucketsToCheckIs(row.key, row.value);
    for (const auto& state : b.bucketCollection()) twin->bucketIs(state.key, state.value);
    for (const auto& locked : b.lockedBucketsCollection()) twin->lockedBucketsIs(locked.key);
  }
  for (const auto& record : posToKey_) copy->posToKeyIs(record.key, record.value);
  for (const auto& record : keyToPos_) copy->keyToPosIs(record.key, record.value);
  for (const auto& record : hashTableEntryCollection()) copy->hashTableEntryIs(record.key, record.value);
  copy->numInsertionsInc(numInsertions());
  copy->numDeletionsInc(numDeletions());
  copy->numMovesInc(numMoves());
  copy->statisticsKept() = statistics();
  copy->entryIdHelperIs(entryIdHelperFactory(copy));
  return copy;
}

}  // namespace TesselCentral
