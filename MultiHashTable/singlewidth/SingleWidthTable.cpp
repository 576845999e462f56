// The single-width table: its banks, its ids, placement with its two passes and the
// depth-first chain of moves, placement at a requested id, and removal.
#include "MultiHashTable/singlewidth/SingleWidthTable.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "MultiHashTable/fwk/Error.h"
#include "MultiHashTable/fwk/TypeInfo.h"
#include "MultiHashTable/internal/ConditionTexts.h"
#include "MultiHashTable/internal/Diagnostics.h"
#include "MultiHashTable/singlewidth/SingleWidthRequestCheck.h"

namespace TesselCentral {

namespace {

// Each keyed collection mixes its own constant into the process seed, so that
// collections holding the same keys spread them differently.
constexpr U32 singleWideBankSeed = 0xBA2C0001u;

}  // namespace

MultiHashTable::MultiHashTable(U32 numBanks, U32 numBuckets, U32 numBucketEntries,
                               Ptr<const HashEntryConfig> hashEntryConfig, Ptr<HashEntryStatus> hashEntryStatus,
                               U32 maxRecursiveSteps, bool bucketSpanBanks)
    : MultiHashTableBase(numBanks, numBuckets, numBucketEntries, std::move(hashEntryConfig), std::move(hashEntryStatus),
                         maxRecursiveSteps),
      bucketSpanBanks_(bucketSpanBanks),
      bank_(singleWideBankSeed) {
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

void MultiHashTable::recordAt(EntryId eId, const HashEntryKey& key) {
  if (hashTableEntryAdded(eId, key)) statisticsKept().slotsTaken(slotOfId(eId).bank, 1);
}

bool MultiHashTable::releaseRecord(EntryId eId) {
  if (!hashTableEntryDel(eId)) return false;
  statisticsKept().slotsFreed(slotOfId(eId).bank, 1);
  return true;
}

Candidate MultiHashTable::slotOfId(EntryId eId) const noexcept {
  const U32 slots = numBucketEntries();
  const U32 lines = bucketSpanBanks_ ? numBanks() : numBuckets();  // the inner of bank and bucket
  if (slots == 0 || lines == 0) return Candidate{numBanks(), 0, 0, 1, eId};
  const U32 slot = eId.value() % slots;
  const U32 line = eId.value() / slots;
  if (bucketSpanBanks_) return Candidate{line % lines, line / lines, slot, 1, eId};
  return Candidate{line / lines, line % lines, slot, 1, eId};
}

namespace {

// What a walk of the candidates shows as it goes. A check sees nothing; a placement traces
// each bank's bucket and each slot's id, and stops the agent on a bank that selects no
// bucket, where the bucket computation asserts.
struct Unobserved {
  U32 bucket(const MultiHashTable& table, const HashEntryKey& key, U32 bank) const noexcept {
    return table.bankFind(bank)->bucketIdOf(key.crc16(), key.crc32(), false, 0);
  }
  EntryId slot(const MultiHashTable& table, U32 bank, U32 bucket, U32 slot) const noexcept {
    return table.entryIdOf(bank, bucket, SlotId(static_cast<U8>(slot)));
  }
  void stored(EntryId, const HashEntryKey*) const noexcept {}
  void zeroKeyAtOne(EntryId) const noexcept {}
};

struct Traced {
  U32 bucket(const MultiHashTable& table, const HashEntryKey& key, U32 bank) const { return table.bucketOf(key, bank); }
  EntryId slot(const MultiHashTable& table, U32 bank, U32 bucket, U32 slot) const {
    return table.calcEntryId(bank, bucket, SlotId(static_cast<U8>(slot)));
  }
  void stored(EntryId, const HashEntryKey*) const noexcept {}
  void zeroKeyAtOne(EntryId) const noexcept {}
};

// The first pass of a placement also traces what each slot holds.
struct TracedFirstPass : Traced {
  void stored(EntryId e, const HashEntryKey* key) const {
    MHT_TRACE_IN("insertEntry", 2,
                 "insertEntry"
                     << "hashTableEntry( " << e << " ) " << (key ? *key : HashEntryKey()));
  }
  void zeroKeyAtOne(EntryId e) const {
    MHT_TRACE_IN("insertEntry", 2, "Special case of key being zero, hashing to key: " << e);
  }
};

}  // namespace

template <class Observer, class Visit>
MultiHashTable::CandidateWalk MultiHashTable::walkCandidates(const HashEntryKey& key, Observer& observer,
                                                             Visit&& visit) const {
  for (U32 b = 0; b < numBanks(); ++b) {
    const Bank* bank = bankFind(b);
    if (bank == nullptr) return CandidateWalk{CandidateWalk::missingBank, b, EntryId()};
    // The placement's observer stops the agent here on a bank that selects no bucket.
    const U32 bucket = observer.bucket(*this, key, b);
    if (!bank->selectsBuckets()) return CandidateWalk{CandidateWalk::noBucket, b, EntryId()};
    for (U32 s = 0; s < numBucketEntries(); ++s) {
      const CandidateSlot place{b, bucket, s, observer.slot(*this, b, bucket, s)};
      const WalkStep step = visit(place);
      if (step == WalkStep::stop) return CandidateWalk{CandidateWalk::stopped, b, place.eId};
      if (step == WalkStep::nextBank) break;
    }
  }
  return CandidateWalk{};
}

template <class Observer>
MultiHashTable::FirstPass MultiHashTable::firstPass(const HashEntryKey& key, Observer& observer) const {
  // A free slot, or the key itself, slot by slot. The free test comes first, so a key
  // already placed moves into a free slot that precedes its own.
  FirstPass pass;
  const bool zeroKey = key.crc16() == 0 && key.crc32() == 0;
  pass.walk = walkCandidates(key, observer, [&](const CandidateSlot& place) {
    const EntryId e = place.eId;
    const HashEntryKey* stored = hashTableEntryFind(e);
    observer.stored(e, stored);
    if (stored == nullptr || isEmptyMarker(*stored)) {
      pass.found = FirstPass::freeSlot;
    } else if (!sameHashes(*stored, key)) {
      return WalkStep::next;
    } else if (zeroKey) {
      // The zero key looks like the empty marker: it takes id 1, or nothing of this bucket.
      if (e.value() != 1) return WalkStep::nextBank;
      observer.zeroKeyAtOne(e);
      pass.found = FirstPass::zeroKeyAtOne;
    } else {
      // Only crc16 and crc32 are compared: a key with the same hashes counts as this one.
      pass.found = FirstPass::existing;
    }
    pass.eId = e;
    return WalkStep::stop;
  });
  return pass;
}

MultiHashTable::FirstPass MultiHashTable::firstPass(const HashEntryKey& key) const {
  Unobserved silent;
  return firstPass(key, silent);
}

template <class Observer>
MultiHashTable::CandidateWalk MultiHashTable::findCandidate(const HashEntryKey& key, EntryId eId,
                                                            Observer& observer) const {
  return walkCandidates(
      key, observer, [eId](const CandidateSlot& place) { return place.eId == eId ? WalkStep::stop : WalkStep::next; });
}

MultiHashTable::CandidateWalk MultiHashTable::findCandidate(const HashEntryKey& key, EntryId eId) const {
  Unobserved silent;
  return findCandidate(key, eId, silent);
}

CandidateList MultiHashTable::candidates(const HashEntryKey& key) const {
  CandidateList list;
  Unobserved silent;
  walkCandidates(key, silent, [&](const CandidateSlot& place) {
    // Bank, bucket and slot as walked: a bucket at or past numBuckets has the id of another
    // bank's slot, which the id alone would name.
    list.add(Candidate{place.bank, place.bucket, place.slot, 1, place.eId});
    return WalkStep::next;
  });
  return list;
}

U32 MultiHashTable::insertEntry(const HashEntryKey& key, U32, U32 recursionStep) {
  MHT_TRACE(2, "insertEntry"
                   << " Insert key: " << key);
  HashEntryStatus& status = *hashEntryStatus();
  // A key that failed once is tried again only after its request is deleted and re-added.
  if (const EntryId* current = status.statusFind(key); current != nullptr && !current->isValid()) return 0;

  const U64 movesBefore = statistics().moves();
  const U64 searchesCutShortBefore = statistics().searchesCutShort();
  std::optional<EntryId> chosen;
  TracedFirstPass traced;
  const FirstPass first = firstPass(key, traced);
  // A missing bank stops the placement where it reads it.
  if (first.walk.end == CandidateWalk::missingBank) bucketOf(key, first.walk.bank);
  if (first.found == FirstPass::existing) {
    MHT_TRACE(2, "insertEntry"
                     << " Found existing key: " << first.eId);
    status.statusIs(key, first.eId);
    return 0;
  }
  if (first.found != FirstPass::none) chosen = first.eId;
  if (!chosen && numBanks() >= 2) {
    chosen = moveSearch() == MoveSearch::breadthFirst ? shortestMoves(key, recursionStep)
                                                      : secondPass(key, recursionStep, __PRETTY_FUNCTION__);
  }

  if (!chosen) {
    MHT_TRACE(2, "insertEntry"
                     << "Failed to find empty slot for key: " << key);
    statisticsKept().failed(statistics().searchesCutShort() != searchesCutShortBefore ? PlacementFailure::searchCutShort
                                                                                      : PlacementFailure::noRoom);
    status.statusIs(key, EntryId());
    return 0;
  }
  recordAt(*chosen, key);
  numInsertionsInc(1);
  statisticsKept().placed(statistics().moves() - movesBefore);
  MHT_TRACE(2, "insertEntry"
                   << " Insert key: " << key << " at eId: " << *chosen);
  status.statusIs(key, *chosen);
  return 0;
}

// The table's own records: read, changed, traced and published as the chain goes.
class MultiHashTable::LiveMoves {
 public:
  explicit LiveMoves(MultiHashTable& table) noexcept : table_(table) {}

  const HashEntryKey* occupant(EntryId eId) const noexcept { return table_.hashTableEntryFind(eId); }
  bool occupied(EntryId eId) const noexcept { return table_.hashTableEntryHas(eId); }
  U32 bucket(const HashEntryKey& key, U32 bank) const { return table_.bucketOf(key, bank); }
  EntryId slot(U32 bank, U32 bucket, U32 slot) const {
    return table_.calcEntryId(bank, bucket, SlotId(static_cast<U8>(slot)));
  }
  static constexpr bool stopped() noexcept { return false; }
  std::vector<EntryId>& chain() noexcept { return table_.rehashChain_; }

  void entering(EntryId eId, U32 targetBank, U32 stepsRemaining) const {
    table_.statisticsKept().slotsExaminedAdd(1);
    MHT_TRACE_IN("rehashEntry", 2,
                 "rehashEntry"
                     << " rehash eId: " << eId << " to bank " << targetBank << " with " << stepsRemaining
                     << " steps remaining");
  }
  void notMoved(EntryId eId) const {
    MHT_TRACE_IN("rehashEntry", 2,
                 "rehashEntry"
                     << " eId: " << eId << " is already being moved further up the chain; not moved");
  }
  void move(EntryId from, EntryId to, const HashEntryKey& key) {
    table_.releaseRecord(from);
    table_.recordAt(to, key);
    table_.hashEntryStatus()->statusIs(key, to);
    table_.moveMade();
    MHT_TRACE_IN("rehashEntry", 2,
                 "rehashEntry"
                     << " Insert key: " << key << " at eId: " << to);
  }

 private:
  MultiHashTable& table_;
};

// A check's view: the table's records under the moves made so far, which it keeps apart
// (the latest change of an id wins) and lists, and a bank that would stop the agent noted
// instead of reached.
class MultiHashTable::DryMoves {
 public:
  DryMoves(const MultiHashTable& table, MovePrediction& prediction) noexcept : table_(table), prediction_(prediction) {}

  const HashEntryKey* occupant(EntryId eId) const noexcept {
    for (auto change = changes_.rbegin(); change != changes_.rend(); ++change) {
      if (change->first == eId) return change->second ? &*change->second : nullptr;
    }
    return table_.hashTableEntryFind(eId);
  }
  bool occupied(EntryId eId) const noexcept { return occupant(eId) != nullptr; }
  U32 bucket(const HashEntryKey& key, U32 bank) {
    const Bank* b = table_.bankFind(bank);
    if (b == nullptr || !b->selectsBuckets()) {
      prediction_.stops = true;
      return 0;
    }
    return b->bucketIdOf(key.crc16(), key.crc32(), false, 0);
  }
  EntryId slot(U32 bank, U32 bucket, U32 slot) const noexcept {
    return table_.entryIdOf(bank, bucket, SlotId(static_cast<U8>(slot)));
  }
  bool stopped() const noexcept { return prediction_.stops; }
  std::vector<EntryId>& chain() noexcept { return chain_; }

  void entering(EntryId, U32, U32) const noexcept {}
  void notMoved(EntryId) const noexcept {}
  void move(EntryId from, EntryId to, const HashEntryKey& key) {
    changes_.emplace_back(from, std::nullopt);
    changes_.emplace_back(to, key);
    prediction_.moves.push_back(PlannedMove{from, to, key});
  }

 private:
  const MultiHashTable& table_;
  MovePrediction& prediction_;
  std::vector<std::pair<EntryId, std::optional<HashEntryKey>>> changes_;
  std::vector<EntryId> chain_;
};

std::optional<EntryId> MultiHashTable::secondPass(const HashEntryKey& key, U32 recursionStep, const char* caller) {
  LiveMoves live(*this);
  Traced traced;
  const CandidateWalk walk = secondPassIn(live, traced, key, recursionStep);
  if (walk.end != CandidateWalk::stopped) return std::nullopt;
  MHT_ASSERT_TEXT_IN(caller, !hashTableEntryHas(walk.eId), "! hashTableEntryHas( eId )");
  return walk.eId;
}

template <class Moves, class Observer>
MultiHashTable::CandidateWalk MultiHashTable::secondPassIn(Moves& moves, Observer& observer, const HashEntryKey& key,
                                                           U32 recursionStep) const {
  // Make room by moving an occupant, bank 0 to bank 1 and any other bank to 0.
  return walkCandidates(key, observer, [&](const CandidateSlot& place) {
    if (moves.stopped()) return WalkStep::stop;
    return rehashIn(moves, place.eId, place.bank == 0 ? 1 : 0, recursionStep, key.entryType()) ? WalkStep::stop
                                                                                               : WalkStep::next;
  });
}

std::optional<EntryId> MultiHashTable::shortestMoves(const HashEntryKey& key, U32 maxMoves) {
  SingleWidthMovePlanner& planner = movePlanner_;
  const bool found = planner.plan(*this, key, maxMoves);
  statisticsKept().slotsExaminedAdd(planner.slotsExamined());
  if (!found) {
    if (planner.cutShort()) statisticsKept().searchCutShort();
    MHT_TRACE_IN("insertEntry", 2,
                 "insertEntry"
                     << " breadth-first search: " << planner.slotsExamined() << " slots examined, no free slot within "
                     << maxMoves << " moves");
    return std::nullopt;
  }
  const std::vector<EntryId>& slots = planner.slotsFromFreeEnd();
  MHT_TRACE_IN("insertEntry", 2,
               "insertEntry"
                   << " breadth-first search: " << planner.slotsExamined() << " slots examined, " << planner.moves()
                   << " moves to eId: " << slots.front());
  // From the free end backwards: each occupant is recorded and published at its new id
  // before the slot it leaves is freed for the next one, so that no id ever holds two keys
  // and no status names a slot that its key does not hold.
  for (std::size_t i = 1; i < slots.size(); ++i) {
    const EntryId from = slots[i];
    const EntryId target = slots[i - 1];
    const HashEntryKey moving = hashTableEntry(from);
    recordAt(target, moving);
    hashEntryStatus()->statusIs(moving, target);
    releaseRecord(from);
    moveMade();
    MHT_TRACE_IN("insertEntry", 2,
                 "insertEntry"
                     << " breadth-first move key: " << moving << " from eId: " << from << " to eId: " << target);
  }
  // The last slot left is the key's own candidate at the head of the sequence.
  return slots.back();
}

bool MultiHashTable::rehashEntry(EntryId eId, U32 targetBank, U32 stepsRemaining, HashEntryType entryType) {
  LiveMoves live(*this);
  return rehashIn(live, eId, targetBank, stepsRemaining, entryType);
}

template <class Moves>
bool MultiHashTable::rehashIn(Moves& moves, EntryId eId, U32 targetBank, U32 stepsRemaining,
                              HashEntryType entryType) const {
  moves.entering(eId, targetBank, stepsRemaining);
  const HashEntryKey* occupant = moves.occupant(eId);
  if (occupant == nullptr) return true;
  const HashEntryKey moving = *occupant;
  const U32 bucket = moves.bucket(moving, targetBank);
  if (moves.stopped()) return false;
  const ChainLink link(moves.chain(), eId);

  // Here only an absent entry is free; the default-key marker does not count.
  bool found = false;
  EntryId target;
  for (U32 s = 0; s < numBucketEntries() && !found; ++s) {
    const EntryId t = moves.slot(targetBank, bucket, s);
    if (!moves.occupied(t)) {
      target = t;
      found = true;
    }
  }
  if (stepsRemaining == 0) return false;  // even a direct move costs a step
  if (!found) {
    if (numBucketEntries() == 0) return false;
    const U32 nextBank = targetBank == 0 ? 1 : 0;
    for (U32 s = 0; s < numBucketEntries() && !found && !moves.stopped(); ++s) {
      const EntryId t = moves.slot(targetBank, bucket, s);
      if (rehashIn(moves, t, nextBank, stepsRemaining - 1, entryType)) {
        target = t;
        found = true;
      }
    }
    if (!found) return false;
  }

  // A chain that came back to an entry whose key an outer call is already moving must not
  // move that key again: the outer call would then take the record of whichever key was
  // moved into the entry meanwhile. The deeper moves made for this call stay done.
  if (isMovingFurtherUp(moves.chain(), eId)) {
    moves.notMoved(eId);
    return false;
  }
  moves.move(eId, target, moving);
  return true;
}

bool MultiHashTable::isMovingFurtherUp(const std::vector<EntryId>& chain, EntryId eId) noexcept {
  // The last link is the asking call's own.
  return std::find(chain.begin(), chain.end() - 1, eId) != chain.end() - 1;
}

MultiHashTable::MovePrediction MultiHashTable::predictMoves(const HashEntryKey& key) const {
  MovePrediction prediction;
  if (numBanks() < 2) return prediction;
  if (moveSearch() == MoveSearch::breadthFirst) {
    SingleWidthMovePlanner planner;
    if (!planner.plan(*this, key, maxRecursiveSteps())) return prediction;
    const std::vector<EntryId>& slots = planner.slotsFromFreeEnd();
    for (std::size_t i = 1; i < slots.size(); ++i) {
      prediction.moves.push_back(PlannedMove{slots[i], slots[i - 1], hashTableEntry(slots[i])});
    }
    prediction.freed = slots.back();
    return prediction;
  }
  DryMoves dry(*this, prediction);
  Unobserved silent;
  const CandidateWalk walk = secondPassIn(dry, silent, key, maxRecursiveSteps());
  if (walk.end == CandidateWalk::stopped && !prediction.stops) {
    // The placement stops when the slot it freed is taken after all.
    if (dry.occupied(walk.eId)) {
      prediction.stops = true;
    } else {
      prediction.freed = walk.eId;
    }
  }
  return prediction;
}

bool MultiHashTable::checkEntryIdValidity(const HashEntryKey& key, EntryId eId) {
  Traced traced;
  const CandidateWalk walk = findCandidate(key, eId, traced);
  if (walk.end == CandidateWalk::missingBank) bucketOf(key, walk.bank);
  return walk.end == CandidateWalk::stopped;
}

void MultiHashTable::insertEntryWithId(const HashEntryKey& key, EntryId eId) {
  MHT_TRACE(2, "insertEntryWithId"
                   << " Insert key: " << key << " eId: " << eId);
  MHT_ASSERT_TEXT(checkEntryIdValidity(key, eId), condition::requestedIdIsCandidate);
  // A position held by another key is never taken over by a request.
  if (claimBlockedBy(eId, key) != nullptr) MHT_ASSERT_TEXT(false, condition::requestedIdHeldByAnother);
  recordAt(eId, key);
  numInsertionsInc(1);
  statisticsKept().placedAtRequestedId();
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
  if (releaseRecord(e)) numDeletionsInc(1);
  hashEntryStatus()->statusDelFound(key, status);
}

RequestCheck MultiHashTable::checkPlacementAt(const HashEntryKey& key, EntryId id) const {
  return singleWidthCheck::placementAt(*this, key, id);
}

RequestCheck MultiHashTable::checkPlacement(const HashEntryKey& key) const {
  return singleWidthCheck::placement(*this, key);
}

RequestCheck MultiHashTable::checkRemoval(const HashEntryKey& key) const {
  return singleWidthCheck::removal(*this, key);
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
  copy->statisticsKept() = statistics();
  return copy;
}

}  // namespace TesselCentral
