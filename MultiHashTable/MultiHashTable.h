// The hash-table placement library.
//
// A switch chip's hash table is split into banks; a bank is an array of buckets; a bucket
// holds a few slots. A key may only stand in the bucket that each bank's hash function
// selects for it:
//
//            bucket 0      bucket 1      ...   bucket numBuckets-1
//   bank 0 [s0 s1 s2 s3] [s0 s1 s2 s3]   ...   [s0 s1 s2 s3]
//   bank 1 [s0 s1 s2 s3] [s0 s1 s2 s3]   ...   [s0 s1 s2 s3]
//
// When every candidate slot is taken, an occupant is moved to its own bucket in another
// bank, recursively, within a step budget.
//
// The client and the library meet in two collections:
//
//   client --configIs(key, id)--> HashEntryConfig --publish(130)--> table reaction
//        <--status(key)---------- HashEntryStatus <--statusIs------ placement, moves
//
// The client writes a request (key -> wanted EntryId, or the invalid one for "anywhere");
// inside that very write the table places, moves or removes entries and publishes every
// result in HashEntryStatus (key -> EntryId, or the invalid one when there was no room).
//
// Two tables share MultiHashTableBase:
//  - MultiHashTable, single width: each entry takes one slot; EntryId =
//      bank-major   (bankId * numBuckets + bucketId) * numBucketEntries + slot, or
//      bucket-major (bucketId * numBanks + bankId) * numBucketEntries + slot.
//  - MultiEntryTypeHashTable, multi width: entries take 1, 2 or 4 aligned slots. Inside
//    the table an entry is addressed by a packed position
//
//      bits 31..24 bank | bits 23..4 bucket | bits 3..0 first slot     (0xFFFFFFFF: none)
//
//    and its EntryIdHelper translates positions to the client's EntryIds (a flat slot
//    number over all banks) and back.
//
// Expected failures (no room) are results: the invalid EntryId in the status. Broken
// invariants and client errors that the rules forbid (a requested id that is not one of
// the key's candidates, a removal of a key the table never saw) are fatal assertions.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "BucketState.h"
#include "MultiHashTableTypes.h"
#include "Position.h"
#include "RequestCheck.h"
#include "fwk/Collection.h"
#include "fwk/IndexedMap.h"
#include "fwk/Entity.h"
#include "fwk/Notification.h"

namespace TesselCentral {

using Fwk::Ptr;

class Bank;
class MultiEntryTypeBank;
class MultiHashTable;
class MultiEntryTypeHashTable;
class EntryIdHelper;

using EntryIdByKey = Fwk::HashMap<HashEntryKey, EntryId>;

// The most ids (or positions) that a table records in an array; the ids of a larger
// table above it go to a hash map. A chip's table is filled, so an array as large as the
// table costs less than a hash map of the same ids once the table is about three quarters
// full, and it is allocated by the first placement, not by the table's creation.
inline constexpr U32 maxDenseTableSlots = U32{1} << 22;

// ---------------------------------------------------------------------------------------
// Requests and results

namespace detail {

// A key -> EntryId collection whose every real change is published on the owner's
// publisher as attribute 130, with the key and the previous value (null when new).
class PublishedEntryIds {
public:
  explicit PublishedEntryIds(U32 collectionConstant) : members_(collectionConstant) {}

  const EntryIdByKey& members() const noexcept { return members_; }
  const EntryId* find(const HashEntryKey& key) const noexcept { return members_.find(key); }

  void is(const HashEntryKey& key, EntryId id, const Fwk::Publisher& publisher);
  EntryId del(const HashEntryKey& key, const Fwk::Publisher& publisher);
  // Removes the member whose value find() returned, with no change since.
  void delFound(const HashEntryKey& key, const EntryId* found, const Fwk::Publisher& publisher);
  void delAll(const Fwk::Publisher& publisher);
  void clearSilently() { members_.delAll(); }

private:
  EntryIdByKey members_;
};

}  // namespace detail

// The client's requests: for each key, the EntryId it wants, or the invalid EntryId for
// "anywhere". Writing the same request twice is silent.
class HashEntryConfig : public Fwk::Entity {
public:
  static constexpr Fwk::AttrId configAttrId = Fwk::firstOwnAttrId;

  static Ptr<HashEntryConfig> HashEntryConfigIs();

  // The requested id, or the invalid one when the key has no request.
  EntryId config(const HashEntryKey& key) const noexcept {
    const EntryId* id = config_.find(key);
    return id ? *id : EntryId();
  }
  // The raw lookup: null when the key has no request.
  const EntryId* configFind(const HashEntryKey& key) const noexcept { return config_.find(key); }
  bool configHas(const HashEntryKey& key) const noexcept { return config_.find(key) != nullptr; }
  const EntryIdByKey& configCollection() const noexcept { return config_.members(); }

  // Adds or changes a request; publishes only a real change.
  void configIs(const HashEntryKey& key, EntryId id) { config_.is(key, id, publisher_); }
  // Removes a request; returns it, or the invalid EntryId (and publishes nothing) if absent.
  EntryId configDel(const HashEntryKey& key) { return config_.del(key, publisher_); }
  // Removes every request: one publication per key, or none when nobody listens.
  void configDelAll() { config_.delAll(publisher_); }

  Fwk::Publisher& publisher() const noexcept { return publisher_; }
  const Fwk::TypeInfo* fwkType() const noexcept override;

  ~HashEntryConfig() override;

private:
  HashEntryConfig();
  detail::PublishedEntryIds config_;
  mutable Fwk::Publisher publisher_;  // declared last: torn down before the collection
};

// The library's results: for each key the table handled, the EntryId where it stands,
// or the invalid EntryId when it found no room. Only the table writes it.
class HashEntryStatus : public Fwk::Entity {
public:
  static constexpr Fwk::AttrId statusAttrId = Fwk::firstOwnAttrId;

  static Ptr<HashEntryStatus> HashEntryStatusIs();

  EntryId status(const HashEntryKey& key) const noexcept {
    const EntryId* id = status_.find(key);
    return id ? *id : EntryId();
  }
  // The raw lookup: tells a key stored with the invalid EntryId from an absent key.
  const EntryId* statusFind(const HashEntryKey& key) const noexcept { return status_.find(key); }
  bool statusHas(const HashEntryKey& key) const noexcept { return status_.find(key) != nullptr; }
  const EntryIdByKey& statusCollection() const noexcept { return status_.members(); }

  void statusIs(const HashEntryKey& key, EntryId id) { status_.is(key, id, publisher_); }
  EntryId statusDel(const HashEntryKey& key) { return status_.del(key, publisher_); }
  // statusDel of a key whose lookup the caller holds: `found` is what statusFind(key)
  // returned, with no status change since. Saves probing for the key a second time.
  void statusDelFound(const HashEntryKey& key, const EntryId* found) { status_.delFound(key, found, publisher_); }
  void statusDelAll() { status_.delAll(publisher_); }

  Fwk::Publisher& publisher() const noexcept { return publisher_; }
  const Fwk::TypeInfo* fwkType() const noexcept override;

  ~HashEntryStatus() override;

private:
  HashEntryStatus();
  detail::PublishedEntryIds status_;
  mutable Fwk::Publisher publisher_;
};

Ptr<HashEntryConfig> hashEntryConfigFactory();
Ptr<HashEntryStatus> hashEntryStatusFactory();

// ---------------------------------------------------------------------------------------
// Table base and the config reaction

class MultiHashTableBase : public Fwk::Entity, private Fwk::Reactor {
public:
  // Ids below the table's capacity index an array; the rare id beyond it (a bank whose
  // mask reaches past the table's buckets) lives in a hash map beside it.
  using KeyByEntryId = Fwk::IndexedMap<EntryId, HashEntryKey>;

  // The origBankId of every placement that a request starts: no bank to avoid.
  static constexpr U32 noBankToAvoid = 128;

  static Ptr<MultiHashTableBase> MultiHashTableBaseIs(U32 numBanks, U32 numBuckets, U32 numBucketEntries,
                                                      Ptr<const HashEntryConfig> hashEntryConfig,
                                                      Ptr<HashEntryStatus> hashEntryStatus, U32 maxRecursiveSteps);

  U32 numBanks() const noexcept { return numBanks_; }
  U32 numBuckets() const noexcept { return numBuckets_; }
  U32 numBucketEntries() const noexcept { return numBucketEntries_; }
  const Ptr<const HashEntryConfig>& hashEntryConfig() const noexcept { return hashEntryConfig_; }
  const Ptr<HashEntryStatus>& hashEntryStatus() const noexcept { return hashEntryStatus_; }
  U32 maxRecursiveSteps() const noexcept { return maxRecursiveSteps_; }
  SlotId fapId() const noexcept { return fapId_; }
  void fapIdIs(SlotId fapId) noexcept { fapId_ = fapId; }

  U32 numInsertions() const noexcept { return numInsertions_; }
  U32 numDeletions() const noexcept { return numDeletions_; }
  U32 numMoves() const noexcept { return numMoves_; }
  U32 numInsertionsInc(U32 n) noexcept { return numInsertions_ += n; }
  U32 numDeletionsInc(U32 n) noexcept { return numDeletions_ += n; }
  U32 numMovesInc(U32 n) noexcept { return numMoves_ += n; }

  // Which key occupies each used EntryId. Changing it publishes nothing.
  HashEntryKey hashTableEntry(EntryId eId) const noexcept {
    const HashEntryKey* key = hashTableEntry_.find(eId);
    return key ? *key : HashEntryKey();
  }
  const HashEntryKey* hashTableEntryFind(EntryId eId) const noexcept { return hashTableEntry_.find(eId); }
  bool hashTableEntryHas(EntryId eId) const noexcept { return hashTableEntry_.has(eId); }
  void hashTableEntryIs(EntryId eId, const HashEntryKey& key) { hashTableEntry_.is(eId, key); }
  // Frees the id; false when no key held it.
  bool hashTableEntryDel(EntryId eId) { return hashTableEntry_.erase(eId); }
  void hashTableEntryDelAll() { hashTableEntry_.delAll(); }
  const KeyByEntryId& hashTableEntryCollection() const noexcept { return hashTableEntry_; }

  // numBanks * numBuckets * numBucketEntries, wrapping in 32 bits.
  U32 tableCapacity() const noexcept { return numBanks_ * numBuckets_ * numBucketEntries_; }

  // Subscribes to (true) or unsubscribes from (false) the requests.
  virtual void hasNotificationActiveIs(bool active);

  // The subscriber callback: reacts to changes of the config collection (attribute 130)
  // unless the table is being destroyed. An exception escaping the reaction terminates.
  void hashEntryConfigDispatch(const Fwk::Notification& n) noexcept;
  // The reaction to one changed request.
  void handleHashUpdate(const HashEntryKey& key);
  // Full resync: reacts to every current request; never removes anything.
  void handleHashUpdate();

  // Placement, implemented by the derived tables; the base's versions assert.
  virtual U32 insertEntry(const HashEntryKey& key, U32 origBankId, U32 recursionStep);
  virtual bool checkEntryIdValidity(const HashEntryKey& key, EntryId eId);
  virtual void insertEntryWithId(const HashEntryKey& key, EntryId eId);
  virtual void removeEntry(const HashEntryKey& key);
  virtual void checkSanity();

  // Checks every invariant that the table keeps between operations; one line of text per
  // violation, none when the table is consistent. Reads only.
  virtual std::vector<std::string> audit() const;

  // What configIs(key, id) on the table's requests would do, told before the write:
  // nothing, the placement, a fatal assertion now or in a later request, or a published id
  // that another key may be published at. Changes nothing and traces nothing; costs about
  // what the first pass of a placement costs.
  RequestCheck requestCheck(const HashEntryKey& key, EntryId id) const;
  // The request check's problem in one line; empty when the write is safe to make.
  std::string requestProblem(const HashEntryKey& key, EntryId id) const { return requestCheck(key, id).problem(); }
  // What configDel(key) would do.
  RequestCheck removalCheck(const HashEntryKey& key) const;
  std::string removalProblem(const HashEntryKey& key) const { return removalCheck(key).problem(); }
  // Whether the full resync, handleHashUpdate(), would stop the agent. It runs the resync
  // on a scratch copy of the table, so it costs a copy of the table and the resync itself.
  RequestCheck resyncCheck() const;
  std::string resyncProblem() const { return resyncCheck().problem(); }

  // Brings the results in line with the requests without ever stopping the agent: a key
  // whose result is not what its request asks gets what the request's reaction would do,
  // when the request check passes; a key that a move took away from its requested id stays
  // where it stands; a result whose request is gone is removed. Every key it leaves as it
  // stands is in the report with the reason, and traced at level 2.
  ReconcileReport reconcile();

  // What the reaction to a request R for the key would do, the request being written.
  RequestCheck reactionCheck(const HashEntryKey& key, EntryId requested) const;

  // Drops what a scratch copy of a table holds of itself, before the copy is dropped.
  virtual void scratchRelease() {}

  const Fwk::TypeInfo* fwkType() const noexcept override;

protected:
  // How many ids or positions the table records in arrays: all its slots, up to
  // maxDenseTableSlots.
  std::size_t denseSlotCount() const noexcept {
    return static_cast<std::size_t>(
        std::min(std::uint64_t{numBanks_} * numBuckets_ * numBucketEntries_, std::uint64_t{maxDenseTableSlots}));
  }

  MultiHashTableBase(U32 numBanks, U32 numBuckets, U32 numBucketEntries, Ptr<const HashEntryConfig> hashEntryConfig,
                     Ptr<HashEntryStatus> hashEntryStatus, U32 maxRecursiveSteps);
  ~MultiHashTableBase() override;

  // The first step of every table's destruction: no notification reaches it afterwards.
  void retireReactors();

  // Whether the table reacts to its requests now.
  bool listening() const noexcept;

  // The derived tables' parts of the checks: what insertEntryWithId(key, id), insertEntry
  // of the key and removeEntry(key) would do, in that table's terms.
  virtual RequestCheck checkPlacementAt(const HashEntryKey& key, EntryId id) const;
  virtual RequestCheck checkPlacement(const HashEntryKey& key) const;
  virtual RequestCheck checkRemoval(const HashEntryKey& key) const;
  // A table of the same kind and geometry, with the same banks, records and results, that
  // reacts to `config`: the ground for a dry run.
  virtual Ptr<MultiHashTableBase> scratchCopy(Ptr<const HashEntryConfig> config, Ptr<HashEntryStatus> status) const;

private:
  void onNotification(const Fwk::Notification& n) override { hashEntryConfigDispatch(n); }
  bool subscribed() const noexcept;

  const U32 numBanks_;
  const U32 numBuckets_;
  const U32 numBucketEntries_;
  Ptr<const HashEntryConfig> hashEntryConfig_;
  Ptr<HashEntryStatus> hashEntryStatus_;
  const U32 maxRecursiveSteps_;
  SlotId fapId_{127};
  U32 numInsertions_ = 0;
  U32 numDeletions_ = 0;
  U32 numMoves_ = 0;
  KeyByEntryId hashTableEntry_;
};

Ptr<MultiHashTableBase> multiHashTableBaseFactory(U32 numBanks, U32 numBuckets, U32 numBucketEntries,
                                                  Ptr<const HashEntryConfig> hashEntryConfig,
                                                  Ptr<HashEntryStatus> hashEntryStatus, U32 maxRecursiveSteps);

// ---------------------------------------------------------------------------------------
// Banks

// One bank: its geometry and how a key's crc16 and crc32 select a bucket.
class Bank : public Fwk::Entity {
public:
  Bank(HashEntryType baseEntryType, U32 bankId, U32 numBuckets, U32 bucketSize, HashFunc hashFunc, U32 hashOffSet,
       U32 hashBits, U32 hashMask);
  static Ptr<Bank> BankIs(HashEntryType baseEntryType, U32 bankId, U32 numBuckets, U32 bucketSize, HashFunc hashFunc,
                          U32 hashOffSet, U32 hashBits, U32 hashMask);

  HashEntryType baseEntryType() const noexcept { return baseEntryType_; }
  U32 bankId() const noexcept { return bankId_; }
  U32 numBuckets() const noexcept { return numBuckets_; }
  U32 bucketSize() const noexcept { return bucketSize_; }
  HashFunc hashFunc() const noexcept { return hashFunc_; }
  U32 hashOffSet() const noexcept { return hashOffSet_; }
  U32 hashBits() const noexcept { return hashBits_; }
  U32 hashMask() const noexcept { return hashMask_; }

  // The key's bucket: the hash function's raw index AND hashMask. With debugEnabled the
  // bucket is not hashed but taken from debugCrcInc (plus the bit that the 64-bit hash
  // word's top bit lands on after the hashOffSet shift), masked.
  virtual U32 calcBucketId(U16 crc16, U32 crc32, HashEntryType entryType, bool debugEnabled, U32 debugCrcInc);
  // Whether the hash function selects buckets at all (hashLsb does not: calcBucketId stops).
  bool selectsBuckets() const noexcept { return hashFunc_ != HashFunc::hashLsb; }
  // calcBucketId's answer without its trace, for the checks that must not change the
  // trace; for a bank that selects no bucket it is 0.
  U32 bucketIdOf(U16 crc16, U32 crc32, bool debugEnabled, U32 debugCrcInc) const noexcept {
    return debugEnabled ? debugBucketId(debugCrcInc) : hashedBucketId(crc16, crc32);
  }

  // For a table's create-or-get: throws Fwk::ReinstantiationError naming the first of
  // baseEntryType, numBuckets, bucketSize, hashFunc, hashOffSet, hashBits, hashMask that
  // differs from the bank's own (bankId is the lookup key and is not compared).
  void requireSameArguments(std::string_view typeName, HashEntryType baseEntryType, U32 numBuckets, U32 bucketSize,
                            HashFunc hashFunc, U32 hashOffSet, U32 hashBits, U32 hashMask) const;

  const Fwk::TypeInfo* fwkType() const noexcept override;

protected:
  U32 debugBucketId(U32 debugCrcInc) const noexcept;
  U32 hashedBucketId(U16 crc16, U32 crc32) const noexcept;

private:
  const HashEntryType baseEntryType_;
  const U32 bankId_;
  const U32 numBuckets_;
  const U32 bucketSize_;
  const HashFunc hashFunc_;
  const U32 hashOffSet_;
  const U32 hashBits_;
  const U32 hashMask_;
};

Ptr<Bank> bankFactory(HashEntryType baseEntryType, U32 bankId, U32 numBuckets, U32 bucketSize, HashFunc hashFunc,
                      U32 hashOffSet, U32 hashBits, U32 hashMask);

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

// ---------------------------------------------------------------------------------------
// Single-width table

class MultiHashTable : public MultiHashTableBase {
public:
  using BankById = Fwk::HashMap<U32, Ptr<Bank>>;

  // Creates the table and subscribes it to the requests.
  static Ptr<MultiHashTable> MultiHashTableIs(U32 numBanks, U32 numBuckets, U32 numBucketEntries,
                                              Ptr<const HashEntryConfig> hashEntryConfig,
                                              Ptr<HashEntryStatus> hashEntryStatus, U32 maxRecursiveSteps,
                                              bool bucketSpanBanks);

  bool bucketSpanBanks() const noexcept { return bucketSpanBanks_; }
  bool initialized() const noexcept { return initialized_; }
  void initializedIs(bool initialized) noexcept { initialized_ = initialized; }

  // Create-or-get by bankId: an existing bank is returned when every argument matches it,
  // otherwise Fwk::ReinstantiationError names the first differing attribute.
  Ptr<Bank> bankIs(HashEntryType baseEntryType, U32 bankId, U32 numBuckets, U32 bucketSize, HashFunc hashFunc,
                   U32 hashOffSet, U32 hashBits, U32 hashMask);
  Ptr<Bank> bankDel(U32 bankId);
  void bankDelAll();
  Ptr<Bank> bank(U32 bankId) const noexcept { return bank_.get(bankId); }
  // The bank with an id, or null, without taking a reference.
  Bank* bankFind(U32 bankId) const noexcept {
    if (bankId < bankIndex_.size()) return bankIndex_[bankId];
    const Ptr<Bank>* found = bank_.find(bankId);
    return found ? found->ptr() : nullptr;
  }
  const BankById& bankCollection() const noexcept { return bank_; }

  // The EntryId of a slot, in the layout that bucketSpanBanks chooses.
  EntryId calcEntryId(U32 bankId, U32 bucketId, SlotId slot) const;
  // calcEntryId without its trace.
  EntryId entryIdOf(U32 bankId, U32 bucketId, SlotId slot) const noexcept {
    return EntryId(bucketSpanBanks_ ? (bucketId * numBanks() + bankId) * numBucketEntries() + slot.value()
                                    : (bankId * numBuckets() + bucketId) * numBucketEntries() + slot.value());
  }

  void hasNotificationActiveIs(bool active) override;

  // Places the key in a free candidate slot, else makes room by moving occupants
  // (bank 0 <-> bank 1) up to recursionStep deep. Always returns 0; the outcome is in
  // the status.
  U32 insertEntry(const HashEntryKey& key, U32 origBankId, U32 recursionStep) override;
  // Whether eId is one of the key's candidate slots, free or not.
  bool checkEntryIdValidity(const HashEntryKey& key, EntryId eId) override;
  // Places the key at the requested id, which must be one of its candidates and free (or
  // held by a key with the same crc16 and crc32). The key's previous position is kept.
  void insertEntryWithId(const HashEntryKey& key, EntryId eId) override;
  // Frees the position that the key's status names and removes the status.
  void removeEntry(const HashEntryKey& key) override;

  // Moves the key at eId into its bucket in targetBank, making room there recursively
  // with up to stepsRemaining moves; true when eId is free afterwards.
  bool rehashEntry(EntryId eId, U32 targetBank, U32 stepsRemaining, HashEntryType entryType);

  // Every valid status names an id recorded for the key (or a key with the same hashes),
  // every id is below the capacity, and the counters cover the recorded ids.
  std::vector<std::string> audit() const override;

protected:
  RequestCheck checkPlacementAt(const HashEntryKey& key, EntryId id) const override;
  RequestCheck checkPlacement(const HashEntryKey& key) const override;
  RequestCheck checkRemoval(const HashEntryKey& key) const override;
  Ptr<MultiHashTableBase> scratchCopy(Ptr<const HashEntryConfig> config, Ptr<HashEntryStatus> status) const override;

public:
  void handleInitialized();

  const Fwk::TypeInfo* fwkType() const noexcept override;

  ~MultiHashTable() override;

private:
  MultiHashTable(U32 numBanks, U32 numBuckets, U32 numBucketEntries, Ptr<const HashEntryConfig> hashEntryConfig,
                 Ptr<HashEntryStatus> hashEntryStatus, U32 maxRecursiveSteps, bool bucketSpanBanks);

  Bank& bankAt(U32 bankId) const noexcept;
  U32 bucketOf(const HashEntryKey& key, U32 bankId) const;

  // The entries whose keys the running rehashEntry calls of one placement are moving,
  // outermost first. A link lasts as long as its call.
  class ChainLink {
  public:
    ChainLink(std::vector<EntryId>& chain, EntryId eId) : chain_(chain) { chain_.push_back(eId); }
    ~ChainLink() { chain_.pop_back(); }
    ChainLink(const ChainLink&) = delete;
    ChainLink& operator=(const ChainLink&) = delete;

  private:
    std::vector<EntryId>& chain_;
  };
  // Whether a call further up the chain than the newest one is moving the key at eId.
  bool isMovingFurtherUp(EntryId eId) const noexcept;

  // The check's view of the banks: a missing bank, or one whose hash function selects no
  // bucket, and where the key's buckets lie against the table's geometry.
  RequestCheck missingBank() const;
  RequestCheck keyGeometry(const HashEntryKey& key) const;

  const bool bucketSpanBanks_;
  std::vector<EntryId> rehashChain_;
  BankById bank_;
  // The first banks by id, the placement loops' fast path; the collection holds the references.
  std::array<Bank*, 256> bankIndex_{};
  bool initialized_ = false;
};

Ptr<MultiHashTable> multiHashTableFactory(U32 numBanks, U32 numBuckets, U32 numBucketEntries,
                                          Ptr<const HashEntryConfig> hashEntryConfig,
                                          Ptr<HashEntryStatus> hashEntryStatus, U32 maxRecursiveSteps,
                                          bool bucketSpanBanks);

// ---------------------------------------------------------------------------------------
// Multi-width table

// Where a position is recorded in the table's array of positions: bank by bank, bucket by
// bucket, slot by slot. A position outside the table's geometry has no place there and
// goes to the hash map beside it.
struct PositionIndex {
  U32 numBanks = 0;
  U32 numBuckets = 0;
  U32 numBucketEntries = 0;

  std::uint64_t operator()(U32 pos) const noexcept {
    const U32 bank = positionBank(pos);
    const U32 bucket = positionBucket(pos);
    const U32 slot = positionSlot(pos);
    if (bank >= numBanks || bucket >= numBuckets || slot >= numBucketEntries) return ~std::uint64_t{0};
    return (std::uint64_t{bank} * numBuckets + bucket) * numBucketEntries + slot;
  }
  U32 key(std::uint64_t index) const noexcept {
    const auto slot = static_cast<U32>(index % numBucketEntries);
    const std::uint64_t bucketOfTable = index / numBucketEntries;
    return packPosition(static_cast<U32>(bucketOfTable / numBuckets), static_cast<U32>(bucketOfTable % numBuckets), slot);
  }
};

class MultiEntryTypeHashTable : public MultiHashTableBase {
public:
  using KeyByPosition = Fwk::IndexedMap<U32, HashEntryKey, PositionIndex>;
  using PositionByKey = Fwk::HashMap<HashEntryKey, U32>;
  using BankById = Fwk::HashMap<U32, Ptr<MultiEntryTypeBank>>;

  static Ptr<MultiEntryTypeHashTable> MultiEntryTypeHashTableIs(U32 numBanks, U32 numBuckets, U32 numBucketEntries,
                                                                Ptr<const HashEntryConfig> hashEntryConfig,
                                                                Ptr<HashEntryStatus> hashEntryStatus,
                                                                U32 maxRecursiveSteps);

  // Which key starts at a position, and where a key stands: always inverse to each other.
  HashEntryKey posToKey(U32 pos) const noexcept { return posToKey_.get(pos); }
  bool posToKeyHas(U32 pos) const noexcept { return posToKey_.has(pos); }
  void posToKeyIs(U32 pos, const HashEntryKey& key) { posToKey_.is(pos, key); }
  HashEntryKey posToKeyDel(U32 pos) { return posToKey_.del(pos); }
  void posToKeyDelAll() { posToKey_.delAll(); }
  const KeyByPosition& posToKeyCollection() const noexcept { return posToKey_; }
  U32 keyToPos(const HashEntryKey& key) const noexcept { return keyToPos_.get(key); }
  bool keyToPosHas(const HashEntryKey& key) const noexcept { return keyToPos_.has(key); }
  void keyToPosIs(const HashEntryKey& key, U32 pos) { keyToPos_.is(key, pos); }
  U32 keyToPosDel(const HashEntryKey& key) { return keyToPos_.del(key); }
  void keyToPosDelAll() { keyToPos_.delAll(); }
  const PositionByKey& keyToPosCollection() const noexcept { return keyToPos_; }

  // Create-or-get by bankId, as MultiHashTable::bankIs, with the MultiEntryTypeBank's
  // ten arguments.
  Ptr<MultiEntryTypeBank> bankIs(HashEntryType baseEntryType, U32 bankId, U32 numBuckets, U32 bucketSize,
                                 HashFunc hashFunc, U32 hashOffSet, U32 hashBits, U32 hashMask, U32 phyBankId,
                                 bool doubleEntryTwoBucketMode);
  Ptr<MultiEntryTypeBank> bankDel(U32 bankId);
  void bankDelAll();
  Ptr<MultiEntryTypeBank> bank(U32 bankId) const noexcept { return bank_.get(bankId); }
  // The bank with a logical id, or null, without taking a reference.
  MultiEntryTypeBank* bankFind(U32 bankId) const noexcept {
    if (bankId < bankIndex_.size()) return bankIndex_[bankId];
    const Ptr<MultiEntryTypeBank>* found = bank_.find(bankId);
    return found ? found->ptr() : nullptr;
  }
  const BankById& bankCollection() const noexcept { return bank_; }

  bool debugEnabled() const noexcept { return debugEnabled_; }
  void debugEnabledIs(bool debugEnabled) noexcept { debugEnabled_ = debugEnabled; }
  bool initialized() const noexcept { return initialized_; }
  void initializedIs(bool initialized) noexcept { initialized_ = initialized; }

  // The translator between positions and EntryIds. The table and its helper hold each
  // other: before dropping its last pointer to the table, a client calls
  // entryIdHelperIs(nullptr) to break the cycle.
  const Ptr<EntryIdHelper>& entryIdHelper() const noexcept { return entryIdHelper_; }
  void entryIdHelperIs(Ptr<EntryIdHelper> helper);

  void hasNotificationActiveIs(bool active) override;

  // The first free position for the key in its buckets, banks in ascending order, skipping
  // origBank and banks whose candidate buckets are locked; reserved in the bucket state.
  U32 findEmptyPosition(const HashEntryKey& key, U32 origBank, U32 step);

  // Places the key, evicting occupants recursively when its buckets are full. Returns the
  // key's position, or INVALID_POSITION.
  U32 insertEntry(const HashEntryKey& key, U32 origBankId, U32 recursionStep) override;
  void insertEntryWithId(const HashEntryKey& key, EntryId eId) override;
  void removeEntry(const HashEntryKey& key) override;
  // Asserts that no bucket of any bank is left locked.
  void checkSanity() override;
  // keyToPos and posToKey inverse, bucket states equal to the placed keys' widths and
  // types, status and hashTableEntry agreeing with the positions, no bucket locked,
  // insertions less deletions equal to the placed keys.
  std::vector<std::string> audit() const override;

  // Commits a placement (move false: a new key) or a move to every collection and the status.
  void doAddOrMoveEntry(const HashEntryKey& key, U32 newPos, bool move);

  void scratchRelease() override { entryIdHelperIs(nullptr); }

protected:
  RequestCheck checkPlacementAt(const HashEntryKey& key, EntryId id) const override;
  RequestCheck checkPlacement(const HashEntryKey& key) const override;
  RequestCheck checkRemoval(const HashEntryKey& key) const override;
  Ptr<MultiHashTableBase> scratchCopy(Ptr<const HashEntryConfig> config, Ptr<HashEntryStatus> status) const override;

public:
  void handleInitialized();

  const Fwk::TypeInfo* fwkType() const noexcept override;

  ~MultiEntryTypeHashTable() override;

private:
  MultiEntryTypeHashTable(U32 numBanks, U32 numBuckets, U32 numBucketEntries,
                          Ptr<const HashEntryConfig> hashEntryConfig, Ptr<HashEntryStatus> hashEntryStatus,
                          U32 maxRecursiveSteps);

  MultiEntryTypeBank& bankAt(U32 bankId) const;
  // The translator, which must be set before anything is placed.
  EntryIdHelper& helper() const;

  // The steps of making room for a key that found no free place: in one bank, its group of
  // buckets locked; in one bucket, slot by slot; one victim at least as wide as the key; the
  // run of narrower victims that the key's slots cover. Each says whether room was made at
  // freePos.
  struct Eviction {
    const HashEntryKey& key;
    U32 recursionStep;
    U32 step;              // maxRecursiveSteps - recursionStep: calcBucketId's last argument
    const char* function;  // insertEntry's signature, which the steps' assertions report
  };
  bool makeRoomInBank(const Eviction& e, U32 i, MultiEntryTypeBank& b, U32& freePos);
  bool makeRoomInBucket(const Eviction& e, U32 i, MultiEntryTypeBank& b, U32 k, U32 entrySize, U32& freePos);
  bool evictOne(const Eviction& e, U32 i, MultiEntryTypeBank& b, U32 k, U32 s, U32 entrySize, U32 freePos);
  bool evictRun(const Eviction& e, U32 i, MultiEntryTypeBank& b, U32 k, U32 s, U32 entrySize, U32 freePos);

  // The check's view of the banks and the helper, and of the key's width against every bank.
  RequestCheck missingPart() const;
  RequestCheck keyGeometry(const HashEntryKey& key) const;

  KeyByPosition posToKey_;
  PositionByKey keyToPos_;
  BankById bank_;
  // The banks whose ids fit a position's 8 bank bits, by id: the searches' fast path. The
  // bank collection holds the references.
  std::array<MultiEntryTypeBank*, 256> bankIndex_{};
  bool debugEnabled_ = false;
  Ptr<EntryIdHelper> entryIdHelper_;
  bool initialized_ = false;
};

Ptr<MultiEntryTypeHashTable> multiEntryTypeHashTableFactory(U32 numBanks, U32 numBuckets, U32 numBucketEntries,
                                                            Ptr<const HashEntryConfig> hashEntryConfig,
                                                            Ptr<HashEntryStatus> hashEntryStatus,
                                                            U32 maxRecursiveSteps);

// ---------------------------------------------------------------------------------------
// Entry id translation for the multi-width table
//
// EntryId = base(bank) + bucket * table.numBucketEntries + slot, where base(bank) is the
// number of slots (numBuckets * bucketSize) of all lower logical banks. The hardware
// position of an id is its position with the logical bank replaced by the physical one.

class EntryIdHelper : public Fwk::Entity {
public:
  explicit EntryIdHelper(Ptr<MultiEntryTypeHashTable> hashTable);
  static Ptr<EntryIdHelper> EntryIdHelperIs(Ptr<MultiEntryTypeHashTable> hashTable);

  const Ptr<MultiEntryTypeHashTable>& hashTable() const noexcept { return hashTable_; }

  // The position of the key that holds the id; 0 (not INVALID_POSITION) when no key does.
  virtual U32 entryIdToPos(EntryId id);
  // The position with the physical bank id in bits 31..24.
  virtual U32 getHwPosition(EntryId id);
  HashEntryKey getHashEntryKey(EntryId id);
  U32 getLogicalBankId(EntryId id);
  U32 getPhysicalBankId(EntryId id);
  U32 getBucketId(EntryId id);
  U64 getBucketState(EntryId id);
  // Pure arithmetic: any position translates, occupied or not.
  EntryId posToEntryId(U32 pos);
  // posToEntryId without its trace; every bank below the position's must exist.
  EntryId entryIdOfPosition(U32 pos) const;

  // Whether eId lies in one of the key's candidate buckets in some bank (both bounds of a
  // bucket's range inclusive).
  bool checkEntryIdValidity(const HashEntryKey& key, EntryId eId);
  // Occupies the position that eId stands for: maps and bucket state; returns the
  // position, or INVALID_POSITION when eId fits nowhere.
  U32 setEntryState(const HashEntryKey& key, EntryId eId);
  // The position that setEntryState would occupy for eId, changing nothing;
  // INVALID_POSITION when eId fits nowhere.
  U32 candidatePosition(const HashEntryKey& key, EntryId eId);

  const Fwk::TypeInfo* fwkType() const noexcept override;

private:
  struct Match {
    U32 bank;
    U32 bucket;
  };
  bool findCandidateBucket(const HashEntryKey& key, EntryId eId, Match& match);
  MultiEntryTypeBank& bankAt(U32 bankId) const;

  const Ptr<MultiEntryTypeHashTable> hashTable_;
};

Ptr<EntryIdHelper> entryIdHelperFactory(Ptr<MultiEntryTypeHashTable> hashTable);

}  // namespace TesselCentral
