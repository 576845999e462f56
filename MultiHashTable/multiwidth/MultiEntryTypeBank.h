// MultiEntryTypeBank: a bank whose buckets hold entries one, two or four slots wide, with
// a state word per bucket, the free-space search and the bucket locks taken by moves.
#pragma once

#include "MultiHashTable/Bank.h"
#include "MultiHashTable/fwk/Collection.h"
#include "MultiHashTable/fwk/IndexedMap.h"
#include "MultiHashTable/multiwidth/BucketState.h"
#include "MultiHashTable/multiwidth/Position.h"

namespace TesselCentral {

// A bank whose buckets hold entries of several widths. Each bucket has a 64-bit state:
//
//   bits  0..15   occupancy: bit s set when slot s is covered by an entry
//   bits 16..31   4 bits per slot s at 16 + 4s: the HashEntryType covering slot s (0: free)
//   bits 32..63   always 0
//
// The type nibbles are computed in 32 bits, so a bucket serves at most 4 slots. A bucket
// whose state is 0 has no member in the bucket collection.
//
// Per entry type (never narrower than the bank's base type) the bank knows how many slots
// an entry covers (entrySize), its occupancy mask at slot 0 (entryMask), how many
// consecutive buckets are searched for it (numBucketsToCheck), and log2 of its bucket
// group (bucketShift): in doubleEntryTwoBucketMode a wider entry may stand in any bucket
// of an aligned group of 2 or 4 buckets.
class MultiEntryTypeBank : public Bank {
 public:
  using U32ByType = Fwk::IndexedMap<HashEntryType, U32>;
  using StateByBucket = Fwk::IndexedMap<U32, U64>;
  struct Locked {
    bool operator==(const Locked&) const = default;
  };
  using LockedBuckets = Fwk::HashMap<U32, Locked>;

  MultiEntryTypeBank(HashEntryType baseEntryType, U32 bankId, U32 numBuckets, U32 bucketSize, HashFunc hashFunc,
                     U32 hashOffSet, U32 hashBits, U32 hashMask, U32 phyBankId, bool doubleEntryTwoBucketMode);
  static Ptr<MultiEntryTypeBank> MultiEntryTypeBankIs(HashEntryType baseEntryType, U32 bankId, U32 numBuckets,
                                                      U32 bucketSize, HashFunc hashFunc, U32 hashOffSet, U32 hashBits,
                                                      U32 hashMask, U32 phyBankId, bool doubleEntryTwoBucketMode);

  U32 phyBankId() const noexcept { return phyBankId_; }
  bool doubleEntryTwoBucketMode() const noexcept { return doubleEntryTwoBucketMode_; }
  bool initialized() const noexcept { return initialized_; }
  void initializedIs(bool initialized) noexcept { initialized_ = initialized; }

  // Bucket states.
  U64 bucket(U32 bucketId) const noexcept { return bucket_.get(bucketId); }
  const U64* bucketFind(U32 bucketId) const noexcept { return bucket_.find(bucketId); }
  bool bucketHas(U32 bucketId) const noexcept { return bucket_.has(bucketId); }
  void bucketIs(U32 bucketId, U64 state) { bucket_.is(bucketId, state); }
  void bucketDel(U32 bucketId) { bucket_.del(bucketId); }
  void bucketDelAll() { bucket_.delAll(); }
  const StateByBucket& bucketCollection() const noexcept { return bucket_; }

  // Buckets locked by a move in progress.
  bool lockedBucketsHas(U32 bucketId) const noexcept { return lockedBuckets_.has(bucketId); }
  void lockedBucketsIs(U32 bucketId) { lockedBuckets_.is(bucketId, Locked{}); }
  void lockedBucketsDel(U32 bucketId) { lockedBuckets_.del(bucketId); }
  void lockedBucketsDelAll() { lockedBuckets_.delAll(); }
  // The number of locked buckets.
  U32 lockedBucketss() const noexcept { return static_cast<U32>(lockedBuckets_.size()); }
  const LockedBuckets& lockedBucketsCollection() const noexcept { return lockedBuckets_; }

  // The per-type geometry.
  U32 bucketShift(HashEntryType t) const noexcept { return bucketShift_.get(t); }
  const U32* bucketShiftFind(HashEntryType t) const noexcept { return bucketShift_.find(t); }
  void bucketShiftIs(HashEntryType t, U32 v) { bucketShift_.is(t, v); }
  void bucketShiftDel(HashEntryType t) { bucketShift_.del(t); }
  void bucketShiftDelAll() { bucketShift_.delAll(); }
  U32 entrySize(HashEntryType t) const noexcept { return entrySize_.get(t); }
  const U32* entrySizeFind(HashEntryType t) const noexcept { return entrySize_.find(t); }
  void entrySizeIs(HashEntryType t, U32 v) { entrySize_.is(t, v); }
  void entrySizeDel(HashEntryType t) { entrySize_.del(t); }
  void entrySizeDelAll() { entrySize_.delAll(); }
  U32 entryMask(HashEntryType t) const noexcept { return entryMask_.get(t); }
  const U32* entryMaskFind(HashEntryType t) const noexcept { return entryMask_.find(t); }
  void entryMaskIs(HashEntryType t, U32 v) { entryMask_.is(t, v); }
  void entryMaskDel(HashEntryType t) { entryMask_.del(t); }
  void entryMaskDelAll() { entryMask_.delAll(); }
  U32 numBucketsToCheck(HashEntryType t) const noexcept { return numBucketsToCheck_.get(t); }
  const U32* numBucketsToCheckFind(HashEntryType t) const noexcept { return numBucketsToCheck_.find(t); }
  void numBucketsToCheckIs(HashEntryType t, U32 v) { numBucketsToCheck_.is(t, v); }
  void numBucketsToCheckDel(HashEntryType t) { numBucketsToCheck_.del(t); }
  void numBucketsToCheckDelAll() { numBucketsToCheck_.delAll(); }
  const U32ByType& bucketShiftCollection() const noexcept { return bucketShift_; }
  const U32ByType& entrySizeCollection() const noexcept { return entrySize_; }
  const U32ByType& entryMaskCollection() const noexcept { return entryMask_; }
  const U32ByType& numBucketsToCheckCollection() const noexcept { return numBucketsToCheck_; }

  // The first bucket of the entry type's group that the key hashes to.
  U32 calcBucketId(U16 crc16, U32 crc32, HashEntryType entryType, bool debugEnabled, U32 debugCrcInc) override;

  // The first free run of slots for an entry of type eType, aligned to its size, in the
  // buckets bucketId .. bucketId + numBucketsToCheck - 1, as a packed position; 0xFFFFFFFF
  // when there is none. Slot 0 of bucket 0 of physical bank 0 is never handed out. With
  // update set the found slots are marked used at once.
  U32 checkBucketSpace(HashEntryType eType, U32 bucketId, bool update);
  // What checkBucketSpace finds, changing nothing and tracing nothing: the run found (or
  // not), and the state and mask of the last bucket examined.
  struct SpaceSearch {
    bool found = false;
    U32 bucket = 0;
    U32 slot = 0;
    U64 lastState = 0;
    U32 mask = 0;
  };
  SpaceSearch findSpace(HashEntryType eType, U32 bucketId) const noexcept;
  // The bucket index of calcBucketId's group alignment for a raw (hashed) bucket index.
  U32 groupStart(U32 rawBucketId, HashEntryType entryType) const noexcept;
  // The last bucket that any key of the type reaches: the group of the highest bucket a key
  // can select, to its end. calcBucketId masks the hashed index before it aligns it to the
  // group, so the group starts from the masked index, whose bits are those of the hash
  // window under hashMask.
  U32 lastBucketReached(HashEntryType entryType) const noexcept {
    const U32 buckets = numBucketsToCheck(entryType);
    return groupStart(highestSelectableBucket(), entryType) + (buckets == 0 ? 0 : buckets - 1);
  }
  // Whether a run starting at slotId of bucketId starts at position 0 (slot 0 of bucket 0
  // of physical bank 0), which no search hands out.
  bool isPositionZero(U32 bucketId, U32 slotId) const noexcept {
    return phyBankId_ == 0 && bucketId == 0 && slotId == 0;
  }
  // Whether an entry of type eType could be added at slotId without covering a used slot.
  bool slotsFree(HashEntryType eType, U32 bucketId, U32 slotId) const noexcept;
  // Whether any bucket of the entry type's group starting at bucketId is locked.
  bool bucketsLocked(U32 bucketId, HashEntryType entryType) const noexcept;
  // Records that an entry of type eType now starts (add) or no longer starts at slotId.
  void updateBucketState(HashEntryType eType, U32 bucketId, U32 slotId, bool add);
  // The type of the entry covering the slot; empty when the slot is free.
  HashEntryType getEntryType(U32 bucketId, U32 slotId) const noexcept;

  void handleInitialized();

  const Fwk::TypeInfo* fwkType() const noexcept override;

 private:
  const U32 phyBankId_;
  const bool doubleEntryTwoBucketMode_;
  StateByBucket bucket_;
  LockedBuckets lockedBuckets_;
  U32ByType bucketShift_;
  U32ByType entrySize_;
  U32ByType entryMask_;
  U32ByType numBucketsToCheck_;
  bool initialized_ = false;
};

Ptr<MultiEntryTypeBank> multiEntryTypeBankFactory(HashEntryType baseEntryType, U32 bankId, U32 numBuckets,
                                                  U32 bucketSize, HashFunc hashFunc, U32 hashOffSet, U32 hashBits,
                                                  U32 hashMask, U32 phyBankId, bool doubleEntryTwoBucketMode);

}  // namespace TesselCentral
