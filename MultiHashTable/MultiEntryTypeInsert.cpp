// Multi-width insertion. A key first takes a free place in one of its buckets; failing
// that, room is made cuckoo-fashion: in each other bank the key's candidate buckets are
// locked and the entries standing in the way are inserted again elsewhere, recursively,
// within the step budget. doAddOrMoveEntry commits every placement and every move.
#include <tuple>

#include "MultiHashTable.h"
#include "fwk/Assert.h"
#include "fwk/Trace.h"

namespace TesselCentral {

U32 MultiEntryTypeHashTable::insertEntry(const HashEntryKey& key, U32 origBankId, U32 recursionStep) {
  MHT_TRACE(2, "MultiEntryTypeHashTable::" << "insertEntry" << " Insert key: " << key << " origBankId " << origBankId
                                           << " recursionStep " << recursionStep
                                           << ", debugEnabled: " << debugEnabled_);
  // 0 on the first attempt, one more at each level of recursion.
  const U32 step = maxRecursiveSteps() - recursionStep;

  const U32 pos = findEmptyPosition(key, origBankId, step);
  if (pos != INVALID_POSITION) {
    // The search has already marked the space in the bucket state.
    const bool move = keyToPosHas(key);
    MHT_ASSERT_TEXT(!posToKeyHas(pos), "!posToKeyHas( pos )");
    doAddOrMoveEntry(key, pos, move);
    return pos;
  }

  if (maxRecursiveSteps() == 0) {
    MHT_TRACE(2, "MultiEntryTypeHashTable::" << "insertEntry" << " doesn't support "
                                             << " recursion and failed to allocate entry for " << key);
    hashEntryStatus()->statusIs(key, EntryId());
    return INVALID_POSITION;
  }
  MHT_ASSERT_TEXT(recursionStep <= maxRecursiveSteps(), "recursionStep <= maxRecursiveSteps()");
  if (recursionStep == 0) {
    // A victim that cannot go deeper stays where it is.
    MHT_TRACE(2, "MultiEntryTypeHashTable::" << "insertEntry" << " end of recursion "
                                             << " failed to allocate entry for " << key);
    return INVALID_POSITION;
  }
  MHT_TRACE(2, "MultiEntryTypeHashTable::" << "insertEntry" << " no space found" << " rehashing the key: " << key);

  const HashEntryType keyType = key.entryType();
  U32 freePos = INVALID_POSITION;
  bool found = false;
  for (U32 i = 0; i < numBanks() && !found; ++i) {
    if (i == origBankId) continue;
    MultiEntryTypeBank* b = bankFind(i);
    MHT_ASSERT(b);

    const U32 bucketStart = b->calcBucketId(key.crc16(), key.crc32(), keyType, debugEnabled_, step);
    const U32 n = b->numBucketsToCheck(keyType);
    const U32 entrySize = b->entrySize(keyType);
    const U32 bucketEnd = bucketStart + n - 1;
    const U32 bucketSize = b->bucketSize();

    if (b->bucketsLocked(bucketStart, keyType)) {
      // An outer level of the recursion is emptying these buckets: leave them alone.
      MHT_TRACE(6, "Buckets are already locked bucketStart: " << bucketStart << " bucketEnd: " << bucketEnd);
      continue;
    }
    // The lock keeps the victims' own insertions from choosing, or evicting into, the
    // buckets that this level is emptying.
    MHT_TRACE(6, "Lock buckets bucketStart: " << bucketStart << " bucketEnd: " << bucketEnd);
    for (U32 j = 0; j < n; ++j) b->lockedBucketsIs(bucketStart + j);

    for (U32 kk = 0; kk < n && !found; ++kk) {
      const U32 k = bucketStart + kk;
      MHT_TRACE(5, " entrySize: " << entrySize << " bank: " << i << " bucketId: " << k
                                  << ", bucketSize: " << bucketSize);
      if (bucketSize == 0) continue;
      const U32 numConsecutiveFreeEntriesRequired = entrySize;
      MHT_ASSERT(numConsecutiveFreeEntriesRequired);

      U32 s = 0;
      while (s < bucketSize && !found) {
        if (b->phyBankId() == 0 && k == 0 && s == 0) {
          // Position 0 is never used.
          s = entrySize;
          MHT_TRACE(5, "insertEntry" << " skip position 0 ");
          continue;
        }
        freePos = packPosition(i, k, s);
        const HashEntryType t = b->getEntryType(k, s);

        if (t == HashEntryType::empty && entrySize == 1) {
          MHT_TRACE(5, " current slot already free. entryPos: 0x" << Fwk::hex << freePos << Fwk::dec);
          found = true;
          break;
        }

        if (t != HashEntryType::empty && entrySize <= b->entrySize(t)) {
          // Single eviction: one entry at least as wide as the key stands here.
          const U32 occSize = b->entrySize(t);
          MHT_ASSERT_MSG(posToKeyHas(freePos), "posToKeyHas( entryPos )",
                         "insertEntry" << " entryPos: 0x" << Fwk::hex << freePos << Fwk::dec);
          const HashEntryKey victim = posToKey(freePos);
          const U32 r = insertEntry(victim, i, recursionStep - 1);
          MHT_TRACE(5, " entrySize: " << entrySize << " slotEntrySize: " << occSize << " recursion yields newPos: 0x"
                                      << Fwk::hex << r << Fwk::dec);
          if (r != INVALID_POSITION && b->getEntryType(k, s) == HashEntryType::empty) {
            found = true;
            break;
          }
          s += occSize;
          continue;
        }

        // Multiple eviction: the key needs the entrySize slots from s, and whatever
        // narrower entries stand there must all go.
        U32 remaining = entrySize;
        U32 slotId = s;
        bool failed = false;
        while (true) {
          MHT_ASSERT_TEXT(slotId < bucketSize, "slotId < b->bucketSize()");
          const HashEntryType u = b->getEntryType(k, slotId);
          if (u == HashEntryType::empty) {
            remaining -= 1;
            slotId += 1;
          } else {
            const U32 w = b->entrySize(u);
            const U32 entryPos = packPosition(i, k, slotId);
            MHT_ASSERT_MSG(posToKeyHas(entryPos), "posToKeyHas( entryPos )",
                           "insertEntry" << " entryPos: 0x" << Fwk::hex << entryPos << Fwk::dec);
            const U32 r = insertEntry(posToKey(entryPos), i, recursionStep - 1);
            MHT_TRACE(5, " entrySize: " << entrySize << " slotEntrySize: " << w << " recursion yields newPos: 0x"
                                        << Fwk::hex << r << Fwk::dec);
            if (r == INVALID_POSITION) {
              failed = true;
              break;
            }
            remaining -= w;
            slotId += w;
          }
          if (remaining == 0) {
            MHT_ASSERT_TEXT(freePos != INVALID_POSITION, "numConsecutiveFreeEntriesRequired == entrySize");
            found = true;
            break;
          }
        }
        if (failed) {
          // The victims already moved stay at their new places.
          MHT_TRACE(2, "insertEntry" << ", cannot move entry to bank: " << i << ", bucket: " << k << ", slot: " << s);
          s += entrySize;
        }
      }
    }
    if (!found) freePos = INVALID_POSITION;

    // Released whether or not room was made, before the next bank is tried.
    MHT_TRACE(6, "Unlock buckets bucketStart: " << bucketStart << " bucketEnd: " << bucketEnd);
    for (U32 j = 0; j < n; ++j) b->lockedBucketsDel(bucketStart + j);
  }

  MHT_TRACE(5, " foundFree: " << found << " freePos: 0x" << Fwk::hex << freePos << Fwk::dec);
  if (found) {
    const bool move = keyToPosHas(key);
    MHT_ASSERT_TEXT(!posToKeyHas(freePos), "!posToKeyHas( freePos )");
    bankAt(positionBank(freePos)).updateBucketState(keyType, positionBucket(freePos), positionSlot(freePos), true);
    doAddOrMoveEntry(key, freePos, move);
    return freePos;
  }

  // A victim that could not be moved keeps its old EntryId.
  if (hashEntryStatus()->statusHas(key)) return INVALID_POSITION;
  MHT_TRACE(5, " HashEntryStatus doesn't exist for key " << key << " foundFree " << found << " adding status entry ");
  hashEntryStatus()->statusIs(key, EntryId());
  return INVALID_POSITION;
}

void MultiEntryTypeHashTable::doAddOrMoveEntry(const HashEntryKey& key, U32 newPos, bool move) {
  MHT_TRACE(2, "MultiEntryTypeHashTable::" << "doAddOrMoveEntry" << " key " << key << " newPos " << newPos << " move "
                                           << move);
  EntryIdHelper& translator = helper();
  // The key's keyToPos value, looked up once and written last.
  U32* keyPos = nullptr;
  if (move) {
    keyPos = keyToPos_.find(key);
    const U32 curPos = keyPos ? *keyPos : 0;
    if (keyPos != nullptr) MHT_ASSERT_TEXT(curPos != INVALID_POSITION, "curPos != INVALID_POSITION");
    MHT_ASSERT_TEXT(curPos != newPos, "curPos != newPos");
    MHT_ASSERT_TEXT(posToKey(curPos) == key, "posToKey( curPos ) == key");

    bankAt(positionBank(curPos))
        .updateBucketState(key.entryType(), positionBucket(curPos), positionSlot(curPos), false);
    posToKey_.erase(curPos);
    const EntryId oldEntryId = translator.posToEntryId(curPos);
    MHT_TRACE(2, "MultiEntryTypeHashTable::" << "doAddOrMoveEntry" << " oldPosition 0x" << Fwk::hex << curPos
                                             << Fwk::dec << " oldEntryId " << oldEntryId);
    hashTableEntryDel(oldEntryId);
    numMovesInc(1);
  } else {
    bool added = false;
    std::tie(keyPos, added) = keyToPos_.findOrInsert(key);
    MHT_ASSERT_TEXT(added, "!keyToPosHas( key )");
    MHT_ASSERT_TEXT(!posToKeyHas(newPos), "!posToKeyHas( newPos )");
    // The bucket state of newPos is the caller's to set.
    numInsertionsInc(1);
  }

  const EntryId newEntryId = translator.posToEntryId(newPos);
  MHT_TRACE(2, "MultiEntryTypeHashTable::" << "doAddOrMoveEntry" << " newPosition 0x" << Fwk::hex << newPos
                                           << Fwk::dec << " new entryId " << newEntryId);
  if (keyPos != nullptr) {
    *keyPos = newPos;
  } else {
    keyToPosIs(key, newPos);
  }
  posToKeyIs(newPos, key);
  hashTableEntryIs(newEntryId, key);
  hashEntryStatus()->statusIs(key, newEntryId);
}

}  // namespace TesselCentral
