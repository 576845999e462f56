// EntryIdHelper: the multi-width table's translator between positions and EntryIds, the
// questions a client asks about an id, and the rule for a requested id.
#pragma once

#include "MultiHashTable/fwk/Entity.h"
#include "MultiHashTable/multiwidth/MultiEntryTypeHashTable.h"

namespace TesselCentral {

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
  // Occupies the position that eId stands for through the table's occupy (posToKey,
  // keyToPos and the bucket state); returns the position, or INVALID_POSITION when eId
  // fits nowhere.
  U32 setEntryState(const HashEntryKey& key, EntryId eId);
  // The position that setEntryState would occupy for eId, changing nothing;
  // INVALID_POSITION when eId fits nowhere.
  U32 candidatePosition(const HashEntryKey& key, EntryId eId);
  // The bucket whose range of ids holds eId: the first of the key's candidate buckets,
  // banks in ascending order, whose ids from its first slot to one past its last run of the
  // key's width hold eId. The walk ends early where a placement at eId stops the agent: at
  // a missing bank, a bank whose hash function selects no bucket or whose baseEntryType is
  // wider than the key, or a bank without an entry width for the key's type. Reads only,
  // traces nothing.
  struct IdBucket {
    enum End : U8 { notFound, found, missingBank, noBucket, narrower, noWidth } end = notFound;
    U32 bank = 0;
    U32 bucket = 0;
  };
  IdBucket candidateBucketOf(const HashEntryKey& key, EntryId eId) const;

  // The position that eId names in a bucket whose range holds it: the slot comes from the
  // id's low bits, so the id one past a bucket's range names slot 0 of that same bucket
  // (bucket sizes are powers of two).
  static U32 positionNamedBy(U32 bank, U32 bucket, U32 bucketSize, EntryId eId) noexcept {
    return packPosition(bank, bucket, slotNamedBy(bucketSize, eId));
  }
  // The slot of that position as the bucket state marks it: not reduced to the position's
  // 4 bits.
  static U32 slotNamedBy(U32 bucketSize, EntryId eId) noexcept { return eId.value() & (bucketSize - 1); }

  const Fwk::TypeInfo* fwkType() const noexcept override;

 private:
  struct Match {
    U32 bank;
    U32 bucket;
  };
  bool findCandidateBucket(const HashEntryKey& key, EntryId eId, Match& match);
  template <class Observer>
  IdBucket walkIdBuckets(const HashEntryKey& key, EntryId eId, Observer& observer) const;
  MultiEntryTypeBank& bankAt(U32 bankId) const;

  const Ptr<MultiEntryTypeHashTable> hashTable_;
};

Ptr<EntryIdHelper> entryIdHelperFactory(Ptr<MultiEntryTypeHashTable> hashTable);

}  // namespace TesselCentral
