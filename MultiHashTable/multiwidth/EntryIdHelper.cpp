// Translation between the multi-width table's positions and the client's EntryIds, the
// questions a client asks about an id, and the rule for a requested id.
//
// An EntryId is a flat slot number over all banks in logical-bank order:
//   base(bank) + bucket * table.numBucketEntries + slot,
// base(bank) being the slot count (numBuckets * bucketSize) of every lower logical bank.
// Position to id is arithmetic; id to position goes through hashTableEntry and keyToPos,
// so only an id that a key holds has a position.
#include "MultiHashTable/multiwidth/EntryIdHelper.h"

#include <utility>

#include "MultiHashTable/fwk/Assert.h"
#include "MultiHashTable/fwk/Registry.h"
#include "MultiHashTable/fwk/Trace.h"
#include "MultiHashTable/internal/ConditionTexts.h"
#include "MultiHashTable/internal/Diagnostics.h"

namespace TesselCentral {

EntryIdHelper::EntryIdHelper(Ptr<MultiEntryTypeHashTable> hashTable) : hashTable_(std::move(hashTable)) {}

Ptr<EntryIdHelper> EntryIdHelper::EntryIdHelperIs(Ptr<MultiEntryTypeHashTable> hashTable) {
  // Every entity type of the library counts its allocations under its registered type.
  return Fwk::adoptTracked(new EntryIdHelper(std::move(hashTable)));
}

Ptr<EntryIdHelper> entryIdHelperFactory(Ptr<MultiEntryTypeHashTable> hashTable) {
  return EntryIdHelper::EntryIdHelperIs(std::move(hashTable));
}

MultiEntryTypeBank& EntryIdHelper::bankAt(U32 bankId) const {
  // The owner keeps every logical bank below numBanks present.
  MultiEntryTypeBank* b = hashTable_->bankFind(bankId);
  MHT_ASSERT_TEXT(b, condition::bankExists);
  return *b;
}

U32 EntryIdHelper::entryIdToPos(EntryId id) {
  MHT_TRACE(2, "entryIdToPos"
                   << ", entryId: " << id);
  // An id that no key holds reads as the missing-entry key, whose position reads as 0:
  // callers must know that the id is in use.
  const HashEntryKey key = hashTable_->hashTableEntry(id);
  return hashTable_->keyToPos(key);
}

HashEntryKey EntryIdHelper::getHashEntryKey(EntryId id) {
  MHT_TRACE(2, "getHashEntryKey"
                   << ", entryId: " << id);
  return hashTable_->hashTableEntry(id);
}

U32 EntryIdHelper::getLogicalBankId(EntryId id) {
  MHT_TRACE(2, "getLogicalBankId"
                   << ", entryId: " << id);
  return positionBank(entryIdToPos(id));
}

U32 EntryIdHelper::getPhysicalBankId(EntryId id) {
  MHT_TRACE(2, "getPhysicalBankId"
                   << ", entryId: " << id);
  const U32 b = getLogicalBankId(id);
  return bankAt(b).phyBankId();
}

U32 EntryIdHelper::getHwPosition(EntryId id) {
  MHT_TRACE(2, "getHwPosition"
                   << ", entryId: " << id);
  const U32 pos = entryIdToPos(id);
  const U32 phyBankId = getPhysicalBankId(id);
  return positionInBank(pos, phyBankId);
}

U32 EntryIdHelper::getBucketId(EntryId id) {
  MHT_TRACE(2, "getBucketId"
                   << ", entryId: " << id);
  return positionBucket(entryIdToPos(id));
}

U64 EntryIdHelper::getBucketState(EntryId id) {
  MHT_TRACE(2, "getBucketState"
                   << ", entryId: " << id);
  const U32 bucket = getBucketId(id);
  const U32 b = getLogicalBankId(id);
  return bankAt(b).bucket(bucket);
}

EntryId EntryIdHelper::entryIdOfPosition(U32 pos) const {
  U32 base = 0;
  for (U32 j = 0; j < positionBank(pos); ++j) base += bankAt(j).numSlots();
  // The bucket term counts the table's slots per bucket, the base each bank's own.
  return EntryId(base + positionSlot(pos) + positionBucket(pos) * hashTable_->numBucketEntries());
}

EntryId EntryIdHelper::posToEntryId(U32 pos) {
  const U32 slot = positionSlot(pos);
  const U32 bucket = positionBucket(pos);
  const U32 bank = positionBank(pos);
  const U32 value = entryIdOfPosition(pos).value();
  MHT_TRACE(2, "posToEntryId"
                   << " Bank " << bank << ", Bucket " << bucket << ", Slot " << slot << ", EntryId " << value);
  return EntryId(value);
}

namespace {

// How the walk of the id's buckets computes the first bucket of the key's group in a bank:
// trace-free for a check; for a placement as calcBucketId computes and traces it, stopping
// the agent where the bank selects no bucket or the key is narrower than its base type.
struct Unobserved {
  U32 group(const MultiEntryTypeBank& b, const HashEntryKey& key) const noexcept {
    return b.groupStart(b.bucketIdOf(key.crc16(), key.crc32(), false, 0), key.entryType());
  }
};
struct Traced {
  U32 group(MultiEntryTypeBank& b, const HashEntryKey& key) const {
    return b.calcBucketId(key.crc16(), key.crc32(), key.entryType(), false, 0);
  }
};

}  // namespace

template <class Observer>
EntryIdHelper::IdBucket EntryIdHelper::walkIdBuckets(const HashEntryKey& key, EntryId eId, Observer& observer) const {
  const HashEntryType type = key.entryType();
  U32 base = 0;
  for (U32 i = 0; i < hashTable_->numBanks(); ++i) {
    MultiEntryTypeBank* b = hashTable_->bankFind(i);
    if (b == nullptr) return IdBucket{IdBucket::missingBank, i, 0};
    if (i > 0) base += hashTable_->bankFind(i - 1)->numSlots();
    const U32 h = observer.group(*b, key);
    if (!b->selectsBuckets()) return IdBucket{IdBucket::noBucket, i, 0};
    if (static_cast<U32>(type) < static_cast<U32>(b->baseEntryType())) return IdBucket{IdBucket::narrower, i, 0};
    const U32* count = b->numBucketsToCheckFind(type);
    if (count == nullptr || *count == 0) continue;
    for (U32 k = 0; k < *count; ++k) {
      // No wrap at the bank's end: a bucket past it names ids of the next bank, and the
      // lower bank, walked first, wins them.
      const U32 bucket = h + k;
      const U32 size = b->bucketSize();
      const U32* width = b->entrySizeFind(type);
      if (width == nullptr || *width == 0) return IdBucket{IdBucket::noWidth, i, bucket};
      const U32 start = bucket * size + base;
      const U32 end = start + size / *width;
      // Both bounds are inclusive: the range reaches one id past the last full-width run.
      if (start <= eId.value() && eId.value() <= end) return IdBucket{IdBucket::found, i, bucket};
    }
  }
  return IdBucket{};
}

EntryIdHelper::IdBucket EntryIdHelper::candidateBucketOf(const HashEntryKey& key, EntryId eId) const {
  Unobserved silent;
  return walkIdBuckets(key, eId, silent);
}

bool EntryIdHelper::findCandidateBucket(const HashEntryKey& key, EntryId eId, Match& match) {
  Traced traced;
  const IdBucket walk = walkIdBuckets(key, eId, traced);
  // The walk's ends where the agent stops: a missing bank here, the others in calcBucketId.
  if (walk.end == IdBucket::missingBank) bankAt(walk.bank);
  MHT_ASSERT_TEXT(walk.end != IdBucket::noWidth, condition::typeHasWidth);
  if (walk.end != IdBucket::found) return false;
  match = Match{walk.bank, walk.bucket};
  return true;
}

bool EntryIdHelper::checkEntryIdValidity(const HashEntryKey& key, EntryId eId) {
  Match match{};
  return findCandidateBucket(key, eId, match);
}

U32 EntryIdHelper::candidatePosition(const HashEntryKey& key, EntryId eId) {
  Match match{};
  if (!findCandidateBucket(key, eId, match)) return INVALID_POSITION;
  return positionNamedBy(match.bank, match.bucket, bankAt(match.bank).bucketSize(), eId);
}

U32 EntryIdHelper::setEntryState(const HashEntryKey& key, EntryId eId) {
  Match match{};
  if (!findCandidateBucket(key, eId, match)) return INVALID_POSITION;
  MultiEntryTypeBank& b = bankAt(match.bank);
  const U32 slot = slotNamedBy(b.bucketSize(), eId);
  const U32 pos = positionNamedBy(match.bank, match.bucket, b.bucketSize(), eId);
  MHT_ASSERT_TEXT(!hashTable_->posToKeyHas(pos), condition::requestedPositionFree);
  MHT_ASSERT_TEXT(!hashTable_->keyToPosHas(key), condition::requestingKeyNotPlaced);
  hashTable_->occupy(key, MultiEntryTypeHashTable::RunStart{match.bank, match.bucket, slot},
                     MultiEntryTypeHashTable::OccupyStep::markAndRecord);
  return pos;
}

}  // namespace TesselCentral
