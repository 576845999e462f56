// The multi-width table: its banks and position maps, the link to its EntryIdHelper,
// the free-position search, removal and placement at a requested EntryId.
#include "MultiHashTable/multiwidth/MultiEntryTypeHashTable.h"

#include <string>
#include <string_view>
#include <utility>

#include "MultiHashTable/fwk/Assert.h"
#include "MultiHashTable/fwk/Error.h"
#include "MultiHashTable/fwk/Registry.h"
#include "MultiHashTable/fwk/Trace.h"
#include "MultiHashTable/internal/ConditionTexts.h"
#include "MultiHashTable/internal/Diagnostics.h"

namespace TesselCentral {

namespace {

// Each keyed collection of the table mixes its own constant into the process seed, so
// that posToKey, keyToPos and the bank collection spread their keys differently from
// each other and from config, status and hashTableEntry.
constexpr U32 posToKeySeed = 0x905D7E01u;
constexpr U32 keyToPosSeed = 0x6E1F0502u;
constexpr U32 multiWidthBankSeed = 0xBA2C0003u;

}  // namespace

MultiEntryTypeHashTable::MultiEntryTypeHashTable(U32 numBanks, U32 numBuckets, U32 numBucketEntries,
                                                 Ptr<const HashEntryConfig> hashEntryConfig,
                                                 Ptr<HashEntryStatus> hashEntryStatus, U32 maxRecursiveSteps)
    : MultiHashTableBase(numBanks, numBuckets, numBucketEntries, std::move(hashEntryConfig), std::move(hashEntryStatus),
                         maxRecursiveSteps),
      posToKey_(denseSlotCount(), posToKeySeed, PositionIndex{numBanks, numBuckets, numBucketEntries}),
      keyToPos_(keyToPosSeed),
      bank_(multiWidthBankSeed) {
  debugEnabled_ = false;
  entryIdHelper_ = nullptr;
  initialized_ = false;
  handleInitialized();
}

MultiEntryTypeHashTable::~MultiEntryTypeHashTable() {
  // No request may reach a table that is being taken apart.
  retireReactors();
  bankDelAll();
  entryIdHelper_ = nullptr;
  posToKey_.delAll();
  keyToPos_.delAll();
}

Ptr<MultiEntryTypeHashTable> MultiEntryTypeHashTable::MultiEntryTypeHashTableIs(
    U32 numBanks, U32 numBuckets, U32 numBucketEntries, Ptr<const HashEntryConfig> hashEntryConfig,
    Ptr<HashEntryStatus> hashEntryStatus, U32 maxRecursiveSteps) {
  auto table =
      Fwk::adoptTracked(new MultiEntryTypeHashTable(numBanks, numBuckets, numBucketEntries, std::move(hashEntryConfig),
                                                    std::move(hashEntryStatus), maxRecursiveSteps));
  table->hasNotificationActiveIs(true);
  return table;
}

Ptr<MultiEntryTypeHashTable> multiEntryTypeHashTableFactory(U32 numBanks, U32 numBuckets, U32 numBucketEntries,
                                                            Ptr<const HashEntryConfig> hashEntryConfig,
                                                            Ptr<HashEntryStatus> hashEntryStatus,
                                                            U32 maxRecursiveSteps) {
  return MultiEntryTypeHashTable::MultiEntryTypeHashTableIs(numBanks, numBuckets, numBucketEntries,
                                                            std::move(hashEntryConfig), std::move(hashEntryStatus),
                                                            maxRecursiveSteps);
}

void MultiEntryTypeHashTable::handleInitialized() {
  MHT_TRACE(1, "void TesselCentral::MultiEntryTypeHashTable::handleInitialized()");
}

void MultiEntryTypeHashTable::hasNotificationActiveIs(bool active) {
  if (active == notificationActive()) return;
  MultiHashTableBase::hasNotificationActiveIs(active);
}

Ptr<MultiEntryTypeBank> MultiEntryTypeHashTable::bankIs(HashEntryType baseEntryType, U32 bankId, U32 numBuckets,
                                                        U32 bucketSize, HashFunc hashFunc, U32 hashOffSet, U32 hashBits,
                                                        U32 hashMask, U32 phyBankId, bool doubleEntryTwoBucketMode) {
  if (const Ptr<MultiEntryTypeBank>* existing = bank_.find(bankId)) {
    const MultiEntryTypeBank& b = **existing;
    constexpr std::string_view type = "TesselCentral::MultiEntryTypeBank";
    b.requireSameArguments(type, baseEntryType, numBuckets, bucketSize, hashFunc, hashOffSet, hashBits, hashMask);
    Fwk::requireSameAttribute(type, "phyBankId", b.phyBankId(), phyBankId);
    Fwk::requireSameAttribute(type, "doubleEntryTwoBucketMode", b.doubleEntryTwoBucketMode(), doubleEntryTwoBucketMode);
    return *existing;
  }
  Ptr<MultiEntryTypeBank> created =
      multiEntryTypeBankFactory(baseEntryType, bankId, numBuckets, bucketSize, hashFunc, hashOffSet, hashBits, hashMask,
                                phyBankId, doubleEntryTwoBucketMode);
  bank_.is(bankId, created);
  if (bankId < bankIndex_.size()) bankIndex_[bankId] = created.ptr();
  return created;
}

Ptr<MultiEntryTypeBank> MultiEntryTypeHashTable::bankDel(U32 bankId) {
  if (bankId < bankIndex_.size()) bankIndex_[bankId] = nullptr;
  return bank_.del(bankId);
}

void MultiEntryTypeHashTable::bankDelAll() {
  bankIndex_.fill(nullptr);
  bank_.delAll();
}

void MultiEntryTypeHashTable::entryIdHelperIs(Ptr<EntryIdHelper> helper) {
  if (helper == entryIdHelper_) return;
  // The old helper may hold the last reference but one to this table: drop it last.
  Ptr<EntryIdHelper> old = std::exchange(entryIdHelper_, std::move(helper));
}

MultiEntryTypeBank& MultiEntryTypeHashTable::bankAt(U32 bankId) const {
  // Every logical bank below numBanks must exist before keys are placed.
  MultiEntryTypeBank* b = bankFind(bankId);
  MHT_ASSERT_TEXT(b, condition::bankExists);
  return *b;
}

EntryIdHelper& MultiEntryTypeHashTable::helper() const {
  // The owner hands the table its translator before the first placement.
  MHT_ASSERT_TEXT(entryIdHelper_, condition::tableHasHelper);
  return *entryIdHelper_;
}

void MultiEntryTypeHashTable::checkSanity() {
  for (U32 i = 0; i < numBanks(); ++i) {
    MultiEntryTypeBank* b = bankFind(i);
    MHT_ASSERT(b);
    // A lock left behind by a move would keep buckets out of every later search.
    MHT_ASSERT_TEXT(b->lockedBucketss() == 0, "b->lockedBucketss() == 0");
  }
}

namespace {

// The free-position walk as a check reads it.
struct ReadFreeRun {
  bool debugEnabled;
  U32 group(const MultiEntryTypeBank& b, const HashEntryKey& key, U32 step) const noexcept {
    return b.groupStart(b.bucketIdOf(key.crc16(), key.crc32(), debugEnabled, step), key.entryType());
  }
  U32 run(const MultiEntryTypeBank& b, const HashEntryKey& key, U32 bucketId) const noexcept {
    const MultiEntryTypeBank::SpaceSearch space = b.findSpace(key.entryType(), bucketId);
    return space.found ? packPosition(b.bankId(), space.bucket, space.slot) : INVALID_POSITION;
  }
};

}  // namespace

// The free-position walk as a placement takes it: traced, and reserving the run it finds.
struct MultiEntryTypeHashTable::ReserveFreeRun {
  MultiEntryTypeHashTable& table;
  U32 group(MultiEntryTypeBank& b, const HashEntryKey& key, U32 step) const {
    return b.calcBucketId(key.crc16(), key.crc32(), key.entryType(), table.debugEnabled(), step);
  }
  U32 run(MultiEntryTypeBank& b, const HashEntryKey& key, U32 bucketId) const {
    return table.reserveFreeRun(b, key, bucketId);
  }
};

template <class Search>
MultiEntryTypeHashTable::FreeRun MultiEntryTypeHashTable::walkFreeRuns(const HashEntryKey& key, U32 origBank, U32 step,
                                                                       Search& search) const {
  const HashEntryType type = key.entryType();
  for (U32 i = 0; i < numBanks(); ++i) {
    if (i == origBank) continue;
    // A missing bank has no room.
    MultiEntryTypeBank* b = bankFind(i);
    if (b == nullptr) continue;
    const U32 bucketId = search.group(*b, key, step);
    if (!debugEnabled_ && !b->selectsBuckets()) return FreeRun{FreeRun::noBucket, i, INVALID_POSITION};
    if (static_cast<U32>(type) < static_cast<U32>(b->baseEntryType())) {
      return FreeRun{FreeRun::narrower, i, INVALID_POSITION};
    }
    // An outer level of an insertion is emptying these buckets.
    if (b->bucketsLocked(bucketId, type)) continue;
    const U32 pos = search.run(*b, key, bucketId);
    if (pos != INVALID_POSITION) return FreeRun{FreeRun::found, i, pos};
  }
  return FreeRun{};
}

MultiEntryTypeHashTable::FreeRun MultiEntryTypeHashTable::freeRunOf(const HashEntryKey& key) const {
  ReadFreeRun read{debugEnabled_};
  return walkFreeRuns(key, noBankToAvoid, 0, read);
}

U32 MultiEntryTypeHashTable::findEmptyPosition(const HashEntryKey& key, U32 origBank, U32 step) {
  MHT_TRACE(1, "MultiEntryTypeHashTable::"
                   << "findEmptyPosition"
                   << " Key: " << key << " origBank " << origBank);
  ReserveFreeRun reserve{*this};
  return walkFreeRuns(key, origBank, step, reserve).pos;
}

CandidateList MultiEntryTypeHashTable::candidates(const HashEntryKey& key) const {
  CandidateList list;
  if (!entryIdHelper_) return list;
  forEachCandidateRun(key, 0, [&](const MultiEntryTypeBank&, const SlotRun& run) {
    list.add(Candidate{run.bank, run.bucket, run.slot, run.width, entryIdHelper_->entryIdOfPosition(run.position())});
    return false;
  });
  return list;
}

void MultiEntryTypeHashTable::removeEntry(const HashEntryKey& key) {
  MHT_TRACE(1, "MultiEntryTypeHashTable::"
                   << "removeEntry"
                   << " Key: " << key);
  const EntryId* status = hashEntryStatus()->statusFind(key);
  if (status == nullptr) {
    MHT_ASSERT_TEXT(!keyToPosHas(key), "!keyToPosHas( key )");
    return;
  }
  const EntryId eId = *status;
  if (eId.value() == EntryId::max) {
    // The key never got a place: only its status is to be cleared.
    MHT_TRACE(1, "removeEntry"
                     << " Invalid entryId found in status. "
                     << "Just clear status ");
    hashEntryStatus()->statusDelFound(key, status);
    return;
  }

  // Removal trusts keyToPos for the position and the status for the id. A key without a
  // position reads as position 0.
  U32 pos = 0;
  if (const U32* at = keyToPos_.find(key)) {
    pos = *at;
    MHT_ASSERT_TEXT(pos != INVALID_POSITION, "pos != INVALID_POSITION");
  }
  vacate(key, RunStart::at(pos), Vacate::leaving);
  MHT_TRACE(1, "removeEntry"
                   << " entryId: " << eId);

  hashTableEntryDel(eId);
  numDeletionsInc(1);
  hashEntryStatus()->statusDelFound(key, status);
}

void MultiEntryTypeHashTable::insertEntryWithId(const HashEntryKey& key, EntryId eId) {
  MHT_TRACE(2, "insertEntryWithId"
                   << " Insert key: " << key << " eId: " << eId);
  EntryIdHelper& translator = helper();
  MHT_ASSERT_TEXT(translator.checkEntryIdValidity(key, eId), condition::requestedIdInCandidateBucket);
  const U32 pos = translator.setEntryState(key, eId);
  MHT_ASSERT_TEXT(pos != INVALID_POSITION, "entryIdHelper()->setEntryState( key, eId ) != INVALID_POSITION");

  // An id still recorded for another key may only be taken over by a key with the same
  // hashes; the missing-entry key records nothing.
  if (claimBlockedBy(eId, key) != nullptr) MHT_ASSERT_TEXT(false, condition::requestedIdHeldByAnother);
  hashTableEntryIs(eId, key);
  numInsertionsInc(1);
  statisticsKept().placedAtRequestedId();
  // At the inclusive upper end of a bucket's range the key stands at a position whose own id
  // is another one.
  if (translator.entryIdOfPosition(pos) != eId) statisticsKept().failed(PlacementFailure::requestedIdNotHonoured);
  // The client gets back the id it asked for, as given.
  hashEntryStatus()->statusIs(key, eId);
}

}  // namespace TesselCentral
