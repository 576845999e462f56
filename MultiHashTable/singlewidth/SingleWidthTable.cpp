// The single-width table: its banks, its ids, placement with its two passes and the
// depth-first chain of moves, placement at a requested id, and removal.
#include "singlewidth/SingleWidthTable.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "fwk/Error.h"
#include "fwk/TypeInfo.h"
#include "internal/Diagnostics.h"

namespace TesselCentral {

namespace {

// Each keyed collection mixes its own constant into the process seed, so that
// collections holding the same keys spread them differently.
constexpr U32 singleWideBankSeed = 0xBA2C0001u;
constexpr U32 moveSearchVisitedSeed = 0x5EA2C4EDu;

}  // namespace

MultiHashTable::MultiHashTable(U32 numBanks, U32 numBuckets, U32 numBucketEntries,
                               Ptr<const HashEntryConfig> hashEntryConfig, Ptr<HashEntryStatus> hashEntryStatus,
                               U32 maxRecursiveSteps, bool bucketSpanBanks)
    : MultiHashTableBase(numBanks, numBuckets, numBucketEntries, std::move(hashEntryConfig), std::move(hashEntryStatus),
                         maxRecursiveSteps),
      bucketSpanBanks_(bucketSpanBanks),
      bank_(singleWideBankSeed),
      visited_(moveSearchVisitedSeed) {
  // A chain holds one link per step and one more; reserved once so that no placement allocates.
  rehashChain_.reserve(std::size_t{std::min<U32>(maxRecursiveSteps, 63)} + 1);
  handleInitialized();
}

MultiHashTable::~MultiHashTable() {
  retireReactors();
  bankDelAll();
}

Ptr<MultiHashTable> MultiHashTable::MultiHashTableIs(U32 numBanks, U32 numBuckets, U32 numBucketEntries,
                                                     Ptr<const HashEntryConfig> hashEntryConfig,
                                                     Ptr<HashEntryStatus> hashEntryStatus, U32 maxRecursiveSteps,
                                                     bool bucketSpanBanks) {
  auto table = Fwk::adoptTracked(new MultiHashTable(numBanks, numBuckets, numBucketEntries, std::move(hashEntryConfig),
                                                    std::move(hashEntryStatus), maxRecursiveSteps, bucketSpanBanks));
  table->hasNotificationActiveIs(true);
  return table;
}

Ptr<MultiHashTable> multiHashTableFactory(U32 numBanks, U32 numBuckets, U32 numBucketEntries,
                                          Ptr<const HashEntryConfig> hashEntryConfig,
                                          Ptr<HashEntryStatus> hashEntryStatus, U32 maxRecursiveSteps,
                                          bool bucketSpanBanks) {
  return MultiHashTable::MultiHashTableIs(numBanks, numBuckets, numBucketEntries, std::move(hashEntryConfig),
                                          std::move(hashEntryStatus), maxRecursiveSteps, bucketSpanBanks);
}

void MultiHashTable::handleInitialized() { MHT_TRACE(1, "void TesselCentral::MultiHashTable::handleInitialized()"); }

void MultiHashTable::hasNotificationActiveIs(bool active) {
  if (active == notificationActive()) return;
  MultiHashTableBase::hasNotificationActiveIs(active);
}

Ptr<Bank> MultiHashTable::bankIs(HashEntryType baseEntryType, U32 bankId, U32 numBuckets, U32 bucketSize,
                                 HashFunc hashFunc, U32 hashOffSet, U32 hashBits, U32 hashMask) {
  if (const Ptr<Bank>* existing = bank_.find(bankId)) {
    (*existing)->requireSameArguments("TesselCentral::Bank", baseEntryType, numBuckets, bucketSize, hashFunc,
                                      hashOffSet, hashBits, hashMask);
    return *existing;
  }
  Ptr<Bank> created =
      bankFactory(baseEntryType, bankId, numBuckets, bucketSize, hashFunc, hashOffSet, hashBits, hashMask);
  bank_.is(bankId, created);
  if (bankId < bankIndex_.size()) bankIndex_[bankId] = created.ptr();
  return created;
}

Ptr<Bank> MultiHashTable::bankDel(U32 bankId) {
  if (bankId < bankIndex_.size()) bankIndex_[bankId] = nullptr;
  return bank_.del(bankId);
}

void MultiHashTable::bankDelAll() {
  bankIndex_.fill(nullptr);
  bank_.delAll();
}

EntryId MultiHashTable::calcEntryId(U32 bankId, U32 bucketId, SlotId slot) const {
  const EntryId eId = entryIdOf(bankId, bucketId, slot);
  MHT_TRACE(2, "calcEntryId"
                   << " Bank " << bankId << ", Bucket " << bucketId << ", Slot " << slot << ", Pos " << eId);
  return eId;
}

Bank& MultiHashTable::bankAt(U32 bankId) const noexcept {
  // Every index below numBanks must hold a bank before keys are placed.
  return *bankFind(bankId);
}

U32 MultiHashTable::bucketOf(const HashEntryKey& key, U32 bankId) const {
  return bankAt(bankId).calcBucketId(key.crc16(), key.crc32(), key.entryType(), false, 0);
}

U32 MultiHashTable::insertEntry(const HashEntryKey& key, U32, U32 recursionStep) {
  MHT_TRACE(2, "insertEntry"
                   << " Insert key: " << key);
  HashEntryStatus& status = *hashEntryStatus();
  // A key that failed once is tried again only after its request is deleted and re-added.
  if (const EntryId* current = status.statusFind(key); current != nullptr && !current->isValid()) return 0;

  std::optional<EntryId> chosen;
  const FirstPass first = firstPass(key);
  if (first.found == FirstPass::existing) {
    MHT_TRACE(2, "insertEntry"
                     << " Found existing key: " << first.eId);
    status.statusIs(key, first.eId);
    return 0;
  }
  if (first.found == FirstPass::freeSlot) chosen = first.eId;
  if (!chosen && numBanks() >= 2) {
    chosen = moveSearch() == MoveSearch::breadthFirst ? shortestMoves(key, recursionStep)
                                                      : secondPass(key, recursionStep, __PRETTY_FUNCTION__);
  }

  if (!chosen) {
    MHT_TRACE(2, "insertEntry"
                     << "Failed to find empty slot for key: " << key);
    status.statusIs(key, EntryId());
    return 0;
  }
  hashTableEntryIs(*chosen, key);
  numInsertionsInc(1);
  MHT_TRACE(2, "insertEntry"
                   << " Insert key: " << key << " at eId: " << *chosen);
  status.statusIs(key, *chosen);
  return 0;
}

MultiHashTable::FirstPass MultiHashTable::firstPass(const HashEntryKey& key) const {
  // A free slot, or the key itself, slot by slot. The free test comes first, so a key
  // already placed moves into a free slot that precedes its own.
  for (U32 b = 0; b < numBanks(); ++b) {
    const U32 bucket = bucketOf(key, b);
    for (U32 s = 0; s < numBucketEntries(); ++s) {
      const EntryId e = calcEntryId(b, bucket, SlotId(static_cast<U8>(s)));
      const HashEntryKey* stored = hashTableEntryFind(e);
      MHT_TRACE_IN("insertEntry", 2,
                   "insertEntry"
                       << "hashTableEntry( " << e << " ) " << (stored ? *stored : HashEntryKey()));
      if (stored == nullptr || isEmptyMarker(*stored)) return FirstPass{FirstPass::freeSlot, e};
      if (!sameHashes(*stored, key)) continue;
      if (key.crc16() == 0 && key.crc32() == 0) {
        if (e.value() == 1) {
          MHT_TRACE_IN("insertEntry", 2, "Special case of key being zero, hashing to key: " << e);
          return FirstPass{FirstPass::freeSlot, e};
        }
        break;
      }
      // Only crc16 and crc32 are compared: a key with the same hashes counts as this one.
      return FirstPass{FirstPass::existing, e};
    }
  }
  return FirstPass{};
}

std::optional<EntryId> MultiHashTable::secondPass(const HashEntryKey& key, U32 recursionStep, const char* caller) {
  // Make room by moving an occupant, bank 0 to bank 1 and any other bank to 0.
  for (U32 b = 0; b < numBanks(); ++b) {
    const U32 bucket = bucketOf(key, b);
    for (U32 s = 0; s < numBucketEntries(); ++s) {
      const EntryId eId = calcEntryId(b, bucket, SlotId(static_cast<U8>(s)));
      if (!rehashEntry(eId, b == 0 ? 1 : 0, recursionStep, key.entryType())) continue;
      MHT_ASSERT_TEXT_IN(caller, !hashTableEntryHas(eId), "! hashTableEntryHas( eId )");
      return eId;
    }
  }
  return std::nullopt;
}

std::optional<EntryId> MultiHashTable::shortestMoves(const HashEntryKey& key, U32 maxMoves) {
  // Breadth first over the slots whose occupants would move: the key's candidates first,
  // then the slots of their occupants' buckets in the other banks, level by level, banks and
  // slots in ascending order. The first free slot reached ends the shortest sequence of
  // moves; among sequences of one length the first in that order wins.
  moveNodes_.clear();
  visited_.delAll();
  const auto visit = [this](EntryId e, U32 bank, U32 parent, U32 moves) {
    if (moveNodes_.size() >= maxMoveSearchSlots || !visited_.findOrInsert(e).second) return;
    moveNodes_.push_back(MoveNode{e, bank, parent, moves});
  };
  for (U32 b = 0; b < numBanks(); ++b) {
    const U32 bucket = bucketOf(key, b);
    for (U32 s = 0; s < numBucketEntries(); ++s)
      visit(entryIdOf(b, bucket, SlotId(static_cast<U8>(s))), b, noParent, 0);
  }
  for (U32 i = 0; i < moveNodes_.size(); ++i) {
    const MoveNode node = moveNodes_[i];
    if (node.moves + 1 > maxMoves) continue;
    const HashEntryKey* occupant = hashTableEntryFind(node.eId);
    if (occupant == nullptr) continue;  // freed meanwhile: nothing of this search moves
    const HashEntryKey moving = *occupant;
    for (U32 t = 0; t < numBanks(); ++t) {
      if (t == node.bank) continue;
      const U32 bucket = bucketOf(moving, t);
      for (U32 s = 0; s < numBucketEntries(); ++s) {
        const EntryId target = entryIdOf(t, bucket, SlotId(static_cast<U8>(s)));
        // As for the depth-first search, only a slot that no key holds is free.
        if (!hashTableEntryHas(target)) {
          MHT_TRACE_IN("insertEntry", 2,
                       "insertEntry"
                           << " breadth-first search: " << moveNodes_.size() << " slots examined, " << node.moves + 1
                           << " moves to eId: " << target);
          return applyMoves(i, target);
        }
        visit(target, t, i, node.moves + 1);
      }
    }
  }
  MHT_TRACE_IN("insertEntry", 2,
               "insertEntry"
                   << " breadth-first search: " << moveNodes_.size() << " slots examined, no free slot within "
                   << maxMoves << " moves");
  return std::nullopt;
}

EntryId MultiHashTable::applyMoves(U32 last, EntryId freeSlot) {
  // From the free end backwards: each occupant is recorded and published at its new id
  // before the slot it leaves is freed for the next one, so that no id ever holds two keys
  // and no status names a slot that its key does not hold.
  EntryId target = freeSlot;
  for (U32 i = last; i != noParent; i = moveNodes_[i].parent) {
    const EntryId from = moveNodes_[i].eId;
    const HashEntryKey moving = hashTableEntry(from);
    hashTableEntryIs(target, moving);
    hashEntryStatus()->statusIs(moving, target);
    hashTableEntryDel(from);
    numMovesInc(1);
    MHT_TRACE_IN("insertEntry", 2,
                 "insertEntry"
                     << " breadth-first move key: " << moving << " from eId: " << from << " to eId: " << target);
    target = from;
  }
  // The last slot left is the key's own candidate at the head of the sequence.
  return target;
}

bool MultiHashTable::rehashEntry(EntryId eId, U32 targetBank, U32 stepsRemaining, HashEntryType entryType) {
  MHT_TRACE(2, "rehashEntry"
                   << " rehash eId: " << eId << " to bank " << targetBank << " with " << stepsRemaining
                   << " steps remaining");
  const HashEntryKey* occupant = hashTableEntryFind(eId);
  if (occupant == nullptr) return true;
  const HashEntryKey moving = *occupant;
  const U32 bucket = bucketOf(moving, targetBank);
  const ChainLink link(rehashChain_, eId);

  // Here only an absent entry is free; the default-key marker does not count.
  bool found = false;
  EntryId target;
  for (U32 s = 0; s < numBucketEntries() && !found; ++s) {
    const EntryId t = calcEntryId(targetBank, bucket, SlotId(static_cast<U8>(s)));
    if (!hashTableEntryHas(t)) {
      target = t;
      found = true;
    }
  }
  if (stepsRemaining == 0) return false;  // even a direct move costs a step
  if (!found) {
    if (numBucketEntries() == 0) return false;
    const U32 nextBank = targetBank == 0 ? 1 : 0;
    for (U32 s = 0; s < numBucketEntries() && !found; ++s) {
      const EntryId t = calcEntryId(targetBank, bucket, SlotId(static_cast<U8>(s)));
      if (rehashEntry(t, nextBank, stepsRemaining - 1, entryType)) {
        target = t;
        found = true;
      }
    }
    if (!found) return false;
  }

  // A chain that came back to an entry whose key an outer call is already moving must not
  // move that key again: the outer call would then take the record of whichever key was
  // moved into the entry meanwhile. The deeper moves made for this call stay done.
  if (isMovingFurtherUp(eId)) {
    MHT_TRACE(2, "rehashEntry"
                     << " eId: " << eId << " is already being moved further up the chain; not moved");
    return false;
  }
  hashTableEntryDel(eId);
  hashTableEntryIs(target, moving);
  hashEntryStatus()->statusIs(moving, target);
  numMovesInc(1);
  MHT_TRACE(2, "rehashEntry"
                   << " Insert key: " << moving << " at eId: " << target);
  return true;
}

bool MultiHashTable::isMovingFurtherUp(EntryId eId) const noexcept {
  // The last link is the asking call's own.
  return std::find(rehashChain_.begin(), rehashChain_.end() - 1, eId) != rehashChain_.end() - 1;
}

bool MultiHashTable::checkEntryIdValidity(const HashEntryKey& key, EntryId eId) {
  for (U32 b = 0; b < numBanks(); ++b) {
    const U32 bucket = bucketOf(key, b);
    for (U32 s = 0; s < numBucketEntries(); ++s) {
      if (calcEntryId(b, bucket, SlotId(static_cast<U8>(s))) == eId) return true;
    }
  }
  return false;
}

void MultiHashTable::insertEntryWithId(const HashEntryKey& key, EntryId eId) {
  MHT_TRACE(2, "insertEntryWithId"
                   << " Insert key: " << key << " eId: " << eId);
  MHT_ASSERT_TEXT(checkEntryIdValidity(key, eId), "checkEntryIdValidity( key, eId )");
  // A position held by another key is never taken over by a request.
  if (const HashEntryKey* held = hashTableEntryFind(eId); held != nullptr && !isEmptyMarker(*held)) {
    if (!sameHashes(*held, key)) MHT_ASSERT_TEXT(false, "false");
  }
  hashTableEntryIs(eId, key);
  numInsertionsInc(1);
  // The key's previous position, if any, stays recorded until its request is deleted.
  hashEntryStatus()->statusIs(key, eId);
}

void MultiHashTable::removeEntry(const HashEntryKey& key) {
  MHT_TRACE(1, "removeEntry"
                   << " Key: " << key);
  const EntryId* status = hashEntryStatus()->statusFind(key);
  if (status == nullptr) return;
  const EntryId e = *status;
  MHT_TRACE(1, "removeEntry"
                   << " entryId: " << e);
  // The position is freed whoever holds it.
  if (hashTableEntryDel(e)) numDeletionsInc(1);
  hashEntryStatus()->statusDelFound(key, status);
}

}  // namespace TesselCentral
