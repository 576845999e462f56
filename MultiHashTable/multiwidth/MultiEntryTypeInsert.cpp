// Multi-width insertion. A key first takes a free place in one of its buckets; failing
// that, room is made cuckoo-fashion: in each other bank the key's candidate buckets are
// locked and the entries standing in the way are inserted again elsewhere, recursively,
// within the step budget. doAddOrMoveEntry commits every placement and every move.
#include "MultiHashTable/multiwidth/MultiEntryTypeHashTable.h"

#include "MultiHashTable/fwk/Assert.h"
#include "MultiHashTable/fwk/Trace.h"
#include "MultiHashTable/internal/ConditionTexts.h"
#include "MultiHashTable/internal/Diagnostics.h"

namespace TesselCentral {

namespace {

// Holds the buckets of one key's group in one bank locked for as long as the object lives:
// the victims' own insertions must not choose, or evict into, the buckets that this level
// of the recursion is emptying. Released whether or not room was made.
class BucketGroupLock {
 public:
  BucketGroupLock(MultiEntryTypeBank& bank, U32 bucketStart, U32 count)
      : bank_(bank), start_(bucketStart), count_(count) {
    MHT_TRACE_IN("insertEntry", 6, "Lock buckets bucketStart: " << start_ << " bucketEnd: " << start_ + count_ - 1);
    for (U32 j = 0; j < count_; ++j) bank_.lockedBucketsIs(start_ + j);
  }
  ~BucketGroupLock() {
    MHT_TRACE_IN("insertEntry", 6, "Unlock buckets bucketStart: " << start_ << " bucketEnd: " << start_ + count_ - 1);
    for (U32 j = 0; j < count_; ++j) bank_.lockedBucketsDel(start_ + j);
  }
  BucketGroupLock(const BucketGroupLock&) = delete;
  BucketGroupLock& operator=(const BucketGroupLock&) = delete;

 private:
  MultiEntryTypeBank& bank_;
  const U32 start_;
  const U32 count_;
};

}  // namespace

U32 MultiEntryTypeHashTable::insertEntry(const HashEntryKey& key, U32 origBankId, U32 recursionStep) {
  // The placement's own figures: the moves it made, its victims' included, and why it failed.
  const U64 movesBefore = statistics().moves();
  const U64 searchesCutShortBefore = statistics().searchesCutShort();
  const U32 pos = place(key, origBankId, recursionStep, __PRETTY_FUNCTION__);
  if (pos != INVALID_POSITION) {
    statisticsKept().placed(statistics().moves() - movesBefore);
  } else {
    statisticsKept().failed(statistics().searchesCutShort() != searchesCutShortBefore ? PlacementFailure::searchCutShort
                                                                                      : PlacementFailure::noRoom);
  }
  return pos;
}

U32 MultiEntryTypeHashTable::place(const HashEntryKey& key, U32 origBankId, U32 recursionStep, const char* function) {
  MHT_TRACE_IN("insertEntry", 2,
               "MultiEntryTypeHashTable::"
                   << "insertEntry"
                   << " Insert key: " << key << " origBankId " << origBankId << " recursionStep " << recursionStep
                   << ", debugEnabled: " << debugEnabled_);
  // 0 on the first attempt, one more at each level of recursion.
  const U32 step = maxRecursiveSteps() - recursionStep;

  const U32 pos = findEmptyPosition(key, origBankId, step);
  if (pos != INVALID_POSITION) {
    // The search has already marked the space in the bucket state.
    const bool move = keyToPosHas(key);
    MHT_ASSERT_TEXT_IN(function, !posToKeyHas(pos), condition::foundPositionUnclaimed);
    doAddOrMoveEntry(key, pos, move);
    return pos;
  }

  if (maxRecursiveSteps() == 0) {
    MHT_TRACE_IN("insertEntry", 2,
                 "MultiEntryTypeHashTable::"
                     << "insertEntry"
                     << " doesn't support "
                     << " recursion and failed to allocate entry for " << key);
    hashEntryStatus()->statusIs(key, EntryId());
    return INVALID_POSITION;
  }
  MHT_ASSERT_TEXT_IN(function, recursionStep <= maxRecursiveSteps(), "recursionStep <= maxRecursiveSteps()");
  if (recursionStep == 0) {
    // A victim that cannot go deeper stays where it is.
    MHT_TRACE_IN("insertEntry", 2,
                 "MultiEntryTypeHashTable::"
                     << "insertEntry"
                     << " end of recursion "
                     << " failed to allocate entry for " << key);
    return INVALID_POSITION;
  }
  // The fewest moves are searched for the key itself (the depth-first search's victims come
  // here with fewer steps left). When the search finds no plan within its runs, the
  // depth-first search has its turn, bounded in its own runs: its moves that stay made when
  // an eviction fails half-way spread entries over the banks in a way that a whole plan
  // never does, and that is what places many of the wide keys near full.
  const bool handedOver = moveSearch() == MoveSearch::breadthFirst && recursionStep == maxRecursiveSteps();
  if (handedOver) {
    const MultiWidthMovePlanner::Plan plan = movePlanner_.plan(*this, key);
    statisticsKept().runsExaminedAdd(plan.runsExamined);
    const U32 placed = placeByShortestMoves(key, plan);
    if (placed != INVALID_POSITION) return placed;
    if (plan.cutShort) statisticsKept().searchCutShort();
  }
  MHT_TRACE_IN("insertEntry", 2,
               "MultiEntryTypeHashTable::"
                   << "insertEntry"
                   << " no space found"
                   << " rehashing the key: " << key);

  if (!handedOver) return makeRoom(Eviction{key, recursionStep, step, function}, origBankId);
  return makeRoomWithin(Eviction{key, recursionStep, step, function}, origBankId);
}

U32 MultiEntryTypeHashTable::makeRoomWithin(const Eviction& e, U32 origBankId) {
  // Engaged for this placement only, whatever leaves it: the depth-first search's own
  // placements are never bounded.
  struct Engagement {
    HandOverBound& bound;
    explicit Engagement(HandOverBound& b) : bound(b) { bound = HandOverBound{true, false, maxHandedOverRuns}; }
    ~Engagement() { bound.engaged = false; }
    Engagement(const Engagement&) = delete;
    Engagement& operator=(const Engagement&) = delete;
  };
  const Engagement engagement(handOver_);
  const U32 pos = makeRoom(e, origBankId);
  if (handOver_.reached) {
    MHT_TRACE_IN("insertEntry", 2,
                 "insertEntry"
                     << " depth-first search: " << maxHandedOverRuns
                     << " runs examined, the bound, for key: " << e.key);
    statisticsKept().searchCutShort();
  }
  return pos;
}

U32 MultiEntryTypeHashTable::makeRoom(const Eviction& e, U32 origBankId) {
  const HashEntryKey& key = e.key;
  U32 freePos = INVALID_POSITION;
  bool found = false;
  for (U32 i = 0; i < numBanks() && !found; ++i) {
    if (i == origBankId) continue;
    MultiEntryTypeBank* b = bankFind(i);
    MHT_ASSERT_TEXT_IN(e.function, b, condition::bankExists);
    found = makeRoomInBank(e, i, *b, freePos);
  }

  MHT_TRACE_IN("insertEntry", 5, " foundFree: " << found << " freePos: 0x" << Fwk::hex << freePos << Fwk::dec);
  if (found) {
    const bool move = keyToPosHas(key);
    MHT_ASSERT_TEXT_IN(e.function, !posToKeyHas(freePos), "!posToKeyHas( freePos )");
    occupy(key, RunStart::at(freePos), OccupyStep::mark);
    doAddOrMoveEntry(key, freePos, move);
    return freePos;
  }

  // A victim that could not be moved keeps its old EntryId.
  if (hashEntryStatus()->statusHas(key)) return INVALID_POSITION;
  MHT_TRACE_IN("insertEntry", 5,
               " HashEntryStatus doesn't exist for key " << key << " foundFree " << found << " adding status entry ");
  hashEntryStatus()->statusIs(key, EntryId());
  return INVALID_POSITION;
}

bool MultiEntryTypeHashTable::makeRoomInBank(const Eviction& e, U32 i, MultiEntryTypeBank& b, U32& freePos) {
  const HashEntryType keyType = e.key.entryType();
  const U32 bucketStart = b.calcBucketId(e.key.crc16(), e.key.crc32(), keyType, debugEnabled_, e.step);
  const U32 n = b.numBucketsToCheck(keyType);
  const U32 entrySize = b.entrySize(keyType);
  if (b.bucketsLocked(bucketStart, keyType)) {
    // An outer level of the recursion is emptying these buckets: leave them alone.
    MHT_TRACE_IN("insertEntry", 6,
                 "Buckets are already locked bucketStart: " << bucketStart << " bucketEnd: " << bucketStart + n - 1);
    return false;
  }
  const BucketGroupLock lock(b, bucketStart, n);
  for (U32 kk = 0; kk < n; ++kk) {
    const U32 k = bucketStart + kk;
    MHT_TRACE_IN(
        "insertEntry", 5,
        " entrySize: " << entrySize << " bank: " << i << " bucketId: " << k << ", bucketSize: " << b.bucketSize());
    if (b.bucketSize() == 0) continue;
    const U32 numConsecutiveFreeEntriesRequired = entrySize;
    MHT_ASSERT_IN(e.function, numConsecutiveFreeEntriesRequired);
    if (makeRoomInBucket(e, i, b, k, entrySize, freePos)) return true;
  }
  freePos = INVALID_POSITION;
  return false;
}

bool MultiEntryTypeHashTable::makeRoomInBucket(const Eviction& e, U32 i, MultiEntryTypeBank& b, U32 k, U32 entrySize,
                                               U32& freePos) {
  U32 s = 0;
  while (s < b.bucketSize()) {
    if (b.isPositionZero(k, s)) {
      // Position 0 is never used.
      s = entrySize;
      MHT_TRACE_IN("insertEntry", 5,
                   "insertEntry"
                       << " skip position 0 ");
      continue;
    }
    // A search handed over from the breadth-first one stops at its bound; one of its own
    // never does.
    if (handOver_.engaged && !handOverRunTaken()) return false;
    freePos = packPosition(i, k, s);
    statisticsKept().runsExaminedAdd(1);
    const HashEntryType t = b.getEntryType(k, s);

    if (t == HashEntryType::empty && entrySize == 1) {
      MHT_TRACE_IN("insertEntry", 5, " current slot already free. entryPos: 0x" << Fwk::hex << freePos << Fwk::dec);
      return true;
    }
    if (t != HashEntryType::empty && entrySize <= b.entrySize(t)) {
      // One entry at least as wide as the key stands here.
      if (evictOne(e, i, b, k, s, entrySize, freePos)) return true;
      s += b.entrySize(t);
      continue;
    }
    // The key needs the entrySize slots from s, and whatever narrower entries stand there
    // must all go.
    if (evictRun(e, i, b, k, s, entrySize, freePos)) return true;
    // The victims already moved stay at their new places.
    MHT_TRACE_IN("insertEntry", 2,
                 "insertEntry"
                     << ", cannot move entry to bank: " << i << ", bucket: " << k << ", slot: " << s);
    s += entrySize;
  }
  return false;
}

bool MultiEntryTypeHashTable::evictOne(const Eviction& e, U32 i, MultiEntryTypeBank& b, U32 k, U32 s, U32 entrySize,
                                       U32 freePos) {
  const U32 occSize = b.entrySize(b.getEntryType(k, s));
  MHT_ASSERT_MSG_NAMED_IN(e.function, posToKeyHas(freePos), condition::entryStartsAtSlot,
                          "insertEntry"
                              << " entryPos: 0x" << Fwk::hex << freePos << Fwk::dec);
  const HashEntryKey victim = posToKey(freePos);
  const U32 r = place(victim, i, e.recursionStep - 1, e.function);
  MHT_TRACE_IN("insertEntry", 5,
               " entrySize: " << entrySize << " slotEntrySize: " << occSize << " recursion yields newPos: 0x"
                              << Fwk::hex << r << Fwk::dec);
  return r != INVALID_POSITION && b.getEntryType(k, s) == HashEntryType::empty;
}

bool MultiEntryTypeHashTable::evictRun(const Eviction& e, U32 i, MultiEntryTypeBank& b, U32 k, U32 s, U32 entrySize,
                                       U32 freePos) {
  U32 remaining = entrySize;
  U32 slotId = s;
  while (true) {
    MHT_ASSERT_TEXT_IN(e.function, slotId < b.bucketSize(), condition::runEndsInsideBucket);
    const HashEntryType u = b.getEntryType(k, slotId);
    if (u == HashEntryType::empty) {
      remaining -= 1;
      slotId += 1;
    } else {
      const U32 w = b.entrySize(u);
      const U32 entryPos = packPosition(i, k, slotId);
      MHT_ASSERT_MSG_NAMED_IN(e.function, posToKeyHas(entryPos), condition::entryStartsAtSlot,
                              "insertEntry"
                                  << " entryPos: 0x" << Fwk::hex << entryPos << Fwk::dec);
      const U32 r = place(posToKey(entryPos), i, e.recursionStep - 1, e.function);
      MHT_TRACE_IN("insertEntry", 5,
                   " entrySize: " << entrySize << " slotEntrySize: " << w << " recursion yields newPos: 0x" << Fwk::hex
                                  << r << Fwk::dec);
      if (r == INVALID_POSITION) return false;
      remaining -= w;
      slotId += w;
    }
    if (remaining == 0) {
      MHT_ASSERT_TEXT_IN(e.function, freePos != INVALID_POSITION, "numConsecutiveFreeEntriesRequired == entrySize");
      return true;
    }
  }
}

void MultiEntryTypeHashTable::doAddOrMoveEntry(const HashEntryKey& key, U32 newPos, bool move) {
  MHT_TRACE(2, "MultiEntryTypeHashTable::"
                   << "doAddOrMoveEntry"
                   << " key " << key << " newPos " << newPos << " move " << move);
  EntryIdHelper& translator = helper();
  if (move) {
    const U32* keyPos = keyToPos_.find(key);
    const U32 curPos = keyPos ? *keyPos : 0;
    if (keyPos != nullptr) MHT_ASSERT_TEXT(curPos != INVALID_POSITION, "curPos != INVALID_POSITION");
    MHT_ASSERT_TEXT(curPos != newPos, "curPos != newPos");
    MHT_ASSERT_TEXT(posToKey(curPos) == key, "posToKey( curPos ) == key");

    // The key's keyToPos member stays, for the record of newPos below to overwrite.
    vacate(key, RunStart::at(curPos), Vacate::moving);
    const EntryId oldEntryId = translator.posToEntryId(curPos);
    MHT_TRACE(2, "MultiEntryTypeHashTable::"
                     << "doAddOrMoveEntry"
                     << " oldPosition 0x" << Fwk::hex << curPos << Fwk::dec << " oldEntryId " << oldEntryId);
    hashTableEntryDel(oldEntryId);
    moveMade();
  } else {
    MHT_ASSERT_TEXT(!keyToPosHas(key), "!keyToPosHas( key )");
    MHT_ASSERT_TEXT(!posToKeyHas(newPos), "!posToKeyHas( newPos )");
    numInsertionsInc(1);
  }

  const EntryId newEntryId = translator.posToEntryId(newPos);
  MHT_TRACE(2, "MultiEntryTypeHashTable::"
                   << "doAddOrMoveEntry"
                   << " newPosition 0x" << Fwk::hex << newPos << Fwk::dec << " new entryId " << newEntryId);
  // The bucket state of newPos is the caller's to set: only the record is taken here.
  occupy(key, RunStart::at(newPos), OccupyStep::record);
  hashTableEntryIs(newEntryId, key);
  hashEntryStatus()->statusIs(key, newEntryId);
}

}  // namespace TesselCentral
