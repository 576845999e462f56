// The multi-width bank: per-type geometry, bucket group alignment, the 64-bit bucket
// state words, the free-space search and the bucket locks taken by moves.
#include "MultiHashTable/multiwidth/MultiEntryTypeBank.h"

#include <cstdint>

#include <algorithm>

#include "MultiHashTable/fwk/Assert.h"
#include "MultiHashTable/fwk/Registry.h"
#include "MultiHashTable/fwk/Trace.h"
#include "MultiHashTable/internal/ConditionTexts.h"
#include "MultiHashTable/internal/Diagnostics.h"

namespace TesselCentral {

namespace {

// Each keyed collection of the bank mixes its own constant into the process seed.
constexpr U32 bucketStateSeed = 0xB5C7E001u;
constexpr U32 lockedBucketsSeed = 0x10C4ED02u;
constexpr U32 bucketShiftSeed = 0x5B1F7003u;
constexpr U32 entrySizeSeed = 0xE5123004u;
constexpr U32 entryMaskSeed = 0xE3A5C005u;
constexpr U32 numBucketsToCheckSeed = 0xC4EC6006u;

// Bucket states of the bank's own buckets and the geometry of every entry type sit in
// arrays indexed by bucket id and type: the searches read them on every placement. A
// bucket id past the bank's end, or a bank too large to hold its states in an array,
// falls back to the hash map beside the array.
constexpr U32 maxDenseBuckets = U32{1} << 22;
constexpr std::size_t denseEntryTypes = 16;

}  // namespace

MultiEntryTypeBank::MultiEntryTypeBank(HashEntryType baseEntryType, U32 bankId, U32 numBuckets, U32 bucketSize,
                                       HashFunc hashFunc, U32 hashOffSet, U32 hashBits, U32 hashMask, U32 phyBankId,
                                       bool doubleEntryTwoBucketMode)
    : Bank(baseEntryType, bankId, numBuckets, bucketSize, hashFunc, hashOffSet, hashBits, hashMask),
      phyBankId_(phyBankId),
      doubleEntryTwoBucketMode_(doubleEntryTwoBucketMode),
      bucket_(std::min<U32>(numBuckets, maxDenseBuckets), bucketStateSeed),
      lockedBuckets_(lockedBucketsSeed),
      bucketShift_(denseEntryTypes, bucketShiftSeed),
      entrySize_(denseEntryTypes, entrySizeSeed),
      entryMask_(denseEntryTypes, entryMaskSeed),
      numBucketsToCheck_(denseEntryTypes, numBucketsToCheckSeed) {
  initialized_ = false;
  handleInitialized();
}

Ptr<MultiEntryTypeBank> MultiEntryTypeBank::MultiEntryTypeBankIs(HashEntryType baseEntryType, U32 bankId,
                                                                 U32 numBuckets, U32 bucketSize, HashFunc hashFunc,
                                                                 U32 hashOffSet, U32 hashBits, U32 hashMask,
                                                                 U32 phyBankId, bool doubleEntryTwoBucketMode) {
  return Fwk::adoptTracked(new MultiEntryTypeBank(baseEntryType, bankId, numBuckets, bucketSize, hashFunc, hashOffSet,
                                                  hashBits, hashMask, phyBankId, doubleEntryTwoBucketMode));
}

Ptr<MultiEntryTypeBank> multiEntryTypeBankFactory(HashEntryType baseEntryType, U32 bankId, U32 numBuckets,
                                                  U32 bucketSize, HashFunc hashFunc, U32 hashOffSet, U32 hashBits,
                                                  U32 hashMask, U32 phyBankId, bool doubleEntryTwoBucketMode) {
  return MultiEntryTypeBank::MultiEntryTypeBankIs(baseEntryType, bankId, numBuckets, bucketSize, hashFunc, hashOffSet,
                                                  hashBits, hashMask, phyBankId, doubleEntryTwoBucketMode);
}

void MultiEntryTypeBank::handleInitialized() {
  MHT_TRACE(1, "void TesselCentral::MultiEntryTypeBank::handleInitialized()");
  initialized_ = true;
  // In doubleEntryTwoBucketMode an entry wider than the base may use any bucket of an
  // aligned group of 2 (one step wider) or 4 (two steps wider) buckets.
  const U32 d = doubleEntryTwoBucketMode_ ? 1 : 0;
  const auto row = [this](HashEntryType t, U32 shift, U32 toCheck, U32 size, U32 mask) {
    bucketShiftIs(t, shift);
    numBucketsToCheckIs(t, toCheck);
    entrySizeIs(t, size);
    entryMaskIs(t, mask);
  };
  switch (baseEntryType()) {
    case HashEntryType::singleWide:
      row(HashEntryType::singleWide, 0, 1, 1, 0x1);
      row(HashEntryType::doubleWide, d, d + 1, 2, 0x3);
      row(HashEntryType::quadWide, 2 * d, d ? 4 : 1, 4, 0xF);
      break;
    case HashEntryType::doubleWide:
      row(HashEntryType::doubleWide, 0, 1, 1, 0x1);
      row(HashEntryType::quadWide, d, d + 1, 2, 0x3);
      break;
    case HashEntryType::quadWide:
      row(HashEntryType::quadWide, 0, 1, 1, 0x1);
      break;
    case HashEntryType::empty:
    default:
      MHT_ASSERT_TEXT(false, "0 && \"BaseEntryType should be non empty\"");
      break;
  }
}

U32 MultiEntryTypeBank::groupStart(U32 rawBucketId, HashEntryType entryType) const noexcept {
  if (const U32* shift = bucketShiftFind(entryType)) {
    // Clearing the low bits makes the index the first bucket of the type's group, and
    // masking first keeps the whole group inside the bank.
    const U32 s = *shift & 31;
    return ((hashMask() >> s) & rawBucketId) << s;
  }
  return hashMask() & rawBucketId;
}

U32 MultiEntryTypeBank::calcBucketId(U16 crc16, U32 crc32, HashEntryType entryType, bool debugEnabled,
                                     U32 debugCrcInc) {
  const U32 raw = Bank::calcBucketId(crc16, crc32, entryType, debugEnabled, debugCrcInc);
  MHT_ASSERT_TEXT(static_cast<U32>(entryType) >= static_cast<U32>(baseEntryType()), condition::keyNotNarrowerThanBank);
  const U32 bucketId = groupStart(raw, entryType);
  MHT_TRACE(2, "MultiEntryTypeBank::"
                   << "calcBucketId"
                   << " bankId: " << bankId() << " bucketId: " << bucketId);
  return bucketId;
}

void MultiEntryTypeBank::updateBucketState(HashEntryType eType, U32 bucketId, U32 slotId, bool add) {
  MHT_TRACE(2, "MultiEntryTypeBank::"
                   << "updateBucketState"
                   << " bankId " << bankId() << " entryType: " << eType << " bucketId: " << bucketId
                   << " bucketState: 0x" << Fwk::hex << bucket(bucketId) << Fwk::dec << " slot: " << slotId
                   << " add: " << add);
  MHT_ASSERT_TEXT(static_cast<int>(eType) >= static_cast<int>(baseEntryType()),
                  condition::keyNotNarrowerThanBankSigned);
  const BucketState before(bucket(bucketId));
  const U32* typeMask = entryMaskFind(eType);
  const U32 mask = typeMask ? *typeMask << (slotId & 31) : 0;
  const U32* size = entrySizeFind(eType);
  const U32 width = size ? *size : 0;

  BucketState after;
  if (add) {
    const U64 bktState = before.word();
    MHT_ASSERT_MSG_NAMED(!(bktState & mask), condition::runSlotsFree,
                         "updateBucketState"
                             << " bktState: 0x" << Fwk::hex << bktState << Fwk::dec << " mask 0x" << Fwk::hex << mask
                             << Fwk::dec);
    // Every slot that the entry covers carries its type.
    after = before.with(eType, slotId, mask, width);
    const U64 bktStateAfter = after.word();
    MHT_ASSERT_TEXT(bktStateAfter, "bktState");
    bucket_.is(bucketId, after.word());
  } else {
    after = before.without(slotId, mask, width);
    // An empty bucket has no member, so the collection only holds buckets in use.
    if (after.empty()) {
      bucket_.del(bucketId);
    } else {
      bucket_.is(bucketId, after.word());
    }
  }
  const U64 bktState = after.word();
  MHT_TRACE(2, "MultiEntryTypeBank::"
                   << "updateBucketState"
                   << " entryType: " << eType << " bucketId: " << bucketId << " bucketState: 0x" << Fwk::hex << bktState
                   << Fwk::dec << " mask: 0x" << Fwk::hex << mask << Fwk::dec << " slot: " << slotId
                   << " add: " << add);
}

HashEntryType MultiEntryTypeBank::getEntryType(U32 bucketId, U32 slotId) const noexcept {
  const U64* state = bucketFind(bucketId);
  if (state == nullptr) return HashEntryType::empty;
  return BucketState(*state).typeAt(slotId);
}

MultiEntryTypeBank::SpaceSearch MultiEntryTypeBank::findSpace(HashEntryType eType, U32 bucketId) const noexcept {
  const U32 n = numBucketsToCheck(eType);
  const U32 size = entrySize(eType);
  const U32 typeMask = entryMask(eType);

  SpaceSearch r;
  r.mask = typeMask;
  // Position 0 is never handed out: the first run of bucket 0 of physical bank 0 is
  // skipped.
  if (isPositionZero(bucketId, 0)) {
    r.slot = size;
    r.mask = r.mask << (size & 31);
  }
  for (U32 i = 0; i < n && !r.found; ++i) {
    const U32 b = bucketId + i;
    if (const U64* state = bucketFind(b)) {
      r.lastState = *state;
      // Runs are aligned to the entry's own size; only the occupancy bits decide.
      while (r.slot < bucketSize()) {
        if ((r.mask & BucketState(r.lastState).occupancy()) == 0) {
          r.found = true;
          break;
        }
        r.slot += size;
        r.mask = r.mask << (size & 31);
      }
    } else {
      r.lastState = 0;
      r.found = r.slot < bucketSize();
    }
    if (r.found) {
      r.bucket = b;
    } else {
      r.slot = 0;
      r.mask = typeMask;
    }
  }
  return r;
}

U32 MultiEntryTypeBank::checkBucketSpace(HashEntryType eType, U32 bucketId, bool update) {
  MHT_ASSERT_TEXT(static_cast<int>(eType) >= static_cast<int>(baseEntryType()),
                  condition::keyNotNarrowerThanBankSigned);
  MHT_TRACE(9, "MultiEntryTypeBank::"
                   << "checkBucketSpace"
                   << " bankId " << bankId() << " numBucketToCheck: " << numBucketsToCheck(eType)
                   << " size: " << entrySize(eType) << " mask: " << entryMask(eType));
  const SpaceSearch r = findSpace(eType, bucketId);
  U32 pos = INVALID_POSITION;
  if (r.found) {
    if (update) updateBucketState(eType, r.bucket, r.slot, true);
    pos = packPosition(bankId(), r.bucket, r.slot);
  }
  MHT_TRACE(2, "MultiEntryTypeBank::"
                   << "checkBucketSpace"
                   << " bankId " << bankId() << " entryType: " << eType << " bucketId: " << r.bucket
                   << " bucketState: 0x" << Fwk::hex << r.lastState << " mask: 0x" << r.mask << Fwk::dec
                   << " slot: " << r.slot << " update: " << update << " found " << r.found);
  return pos;
}

bool MultiEntryTypeBank::slotsFree(HashEntryType eType, U32 bucketId, U32 slotId) const noexcept {
  const U32* typeMask = entryMaskFind(eType);
  const U32 mask = typeMask ? *typeMask << (slotId & 31) : 0;
  return (bucket(bucketId) & mask) == 0;
}

bool MultiEntryTypeBank::bucketsLocked(U32 bucketId, HashEntryType entryType) const noexcept {
  // A type without a row has no buckets to check, so nothing of it can be locked.
  const U32 n = numBucketsToCheck(entryType);
  // A group whose last bucket id wraps past 0xFFFFFFFF has no bucket to check either.
  const U32 last = bucketId + n - 1;
  if (n == 0 || bucketId > last) return false;
  for (U32 b = bucketId;; ++b) {
    if (lockedBucketsHas(b)) return true;
    if (b == last) return false;
  }
}

}  // namespace TesselCentral
