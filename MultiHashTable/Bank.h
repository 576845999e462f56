// Bank: one bank's geometry and how a key's crc16 and crc32 select its bucket.
#pragma once

#include <string_view>

#include "MultiHashTable/MultiHashTableTypes.h"
#include "MultiHashTable/fwk/Entity.h"

namespace TesselCentral {

using Fwk::Ptr;

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
  // The bank's slots: the ids it takes in a multi-width table's flat numbering.
  U32 numSlots() const noexcept { return numBuckets_ * bucketSize_; }

  // The key's bucket: the hash function's raw index AND hashMask. With debugEnabled the
  // bucket is not hashed but taken from debugCrcInc (plus the bit that the 64-bit hash
  // word's top bit lands on after the hashOffSet shift), masked.
  virtual U32 calcBucketId(U16 crc16, U32 crc32, HashEntryType entryType, bool debugEnabled, U32 debugCrcInc);
  // Whether the hash function selects buckets at all (hashLsb does not: calcBucketId stops).
  bool selectsBuckets() const noexcept { return hashFunc_ != HashFunc::hashLsb; }
  // How many low bits of the raw index the hash function can set, after its shifts (0
  // for a function that gives every key index 0).
  U32 hashWindowBits() const noexcept;
  // The highest bucket that a key can select: the hash window's bits under hashMask.
  U32 highestSelectableBucket() const noexcept {
    const U32 window = hashWindowBits();
    return hashMask_ & (window >= 32 ? ~U32{0} : (U32{1} << window) - 1);
  }
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

}  // namespace TesselCentral
