// A bank's geometry and the selection of a key's bucket by the bank's hash function.
#include "MultiHashTable/Bank.h"

#include <algorithm>

#include "MultiHashTable/fwk/EntityType.h"
#include "MultiHashTable/fwk/Error.h"
#include "MultiHashTable/fwk/TypeInfo.h"
#include "MultiHashTable/internal/ConditionTexts.h"
#include "MultiHashTable/internal/Diagnostics.h"

namespace TesselCentral {

Bank::Bank(HashEntryType baseEntryType, U32 bankId, U32 numBuckets, U32 bucketSize, HashFunc hashFunc, U32 hashOffSet,
           U32 hashBits, U32 hashMask)
    : baseEntryType_(baseEntryType),
      bankId_(bankId),
      numBuckets_(numBuckets),
      bucketSize_(bucketSize),
      hashFunc_(hashFunc),
      hashOffSet_(hashOffSet),
      hashBits_(hashBits),
      hashMask_(hashMask) {}

Ptr<Bank> Bank::BankIs(HashEntryType baseEntryType, U32 bankId, U32 numBuckets, U32 bucketSize, HashFunc hashFunc,
                       U32 hashOffSet, U32 hashBits, U32 hashMask) {
  return Fwk::adoptTracked(
      new Bank(baseEntryType, bankId, numBuckets, bucketSize, hashFunc, hashOffSet, hashBits, hashMask));
}

Ptr<Bank> bankFactory(HashEntryType baseEntryType, U32 bankId, U32 numBuckets, U32 bucketSize, HashFunc hashFunc,
                      U32 hashOffSet, U32 hashBits, U32 hashMask) {
  return Bank::BankIs(baseEntryType, bankId, numBuckets, bucketSize, hashFunc, hashOffSet, hashBits, hashMask);
}

void Bank::requireSameArguments(std::string_view typeName, HashEntryType baseEntryType, U32 numBuckets, U32 bucketSize,
                                HashFunc hashFunc, U32 hashOffSet, U32 hashBits, U32 hashMask) const {
  Fwk::requireSameAttribute(typeName, "baseEntryType", baseEntryType_, baseEntryType);
  Fwk::requireSameAttribute(typeName, "numBuckets", numBuckets_, numBuckets);
  Fwk::requireSameAttribute(typeName, "bucketSize", bucketSize_, bucketSize);
  Fwk::requireSameAttribute(typeName, "hashFunc", hashFunc_, hashFunc);
  Fwk::requireSameAttribute(typeName, "hashOffSet", hashOffSet_, hashOffSet);
  Fwk::requireSameAttribute(typeName, "hashBits", hashBits_, hashBits);
  Fwk::requireSameAttribute(typeName, "hashMask", hashMask_, hashMask);
}

U32 Bank::debugBucketId(U32 debugCrcInc) const noexcept {
  // The index bit on which the 64-bit hash word's top bit lands after the shift.
  const auto topBit = static_cast<U32>((U64{1} << 63) >> (hashOffSet_ & 63));
  return (debugCrcInc | topBit) & hashMask_;
}

U32 Bank::hashWindowBits() const noexcept {
  // The same shifts as hashedBucketId, counted rather than applied.
  const auto below = [](U32 width, U32 shift) { return shift >= width ? U32{0} : width - shift; };
  switch (hashFunc_) {
    case HashFunc::hashCrc32Upper:
      return below(32, (32 - hashBits_) & 31);
    case HashFunc::hashCrc32Lower:
      return 32;
    case HashFunc::hashCrc16Lower:
      return 16;
    case HashFunc::hashCrc16Upper:
      return below(16, (16 - hashBits_) & 31);
    case HashFunc::hashCrc64:
      return std::min<U32>(32, below(64, hashOffSet_ & 63));
    case HashFunc::hashCrc32And16:
      // crc16 fills bits 32..47 of the word; bits 48..63 are always 0.
      return std::min<U32>(32, below(48, hashOffSet_ & 63));
    default:
      return 0;
  }
}

U32 Bank::hashedBucketId(U16 crc16, U32 crc32) const noexcept {
  // Shift counts wrap like the hardware's: 32-bit shifts modulo 32, 64-bit modulo 64.
  U32 raw = 0;
  switch (hashFunc_) {
    case HashFunc::hashCrc32Upper:
      raw = crc32 >> ((32 - hashBits_) & 31);
      break;
    case HashFunc::hashCrc32Lower:
      raw = crc32;
      break;
    case HashFunc::hashCrc16Lower:
      raw = crc16;
      break;
    case HashFunc::hashCrc16Upper:
      raw = U32{crc16} >> ((16 - hashBits_) & 31);
      break;
    case HashFunc::hashCrc64:
      raw = static_cast<U32>(((U64{crc32} << 32) | crc32) >> (hashOffSet_ & 63));
      break;
    case HashFunc::hashCrc32And16:
      raw = static_cast<U32>(((U64{crc16} << 32) | crc32) >> (hashOffSet_ & 63));
      break;
    case HashFunc::hashLsb:  // selects no bucket: calcBucketId stops on it
    case HashFunc::hashInvalid:
    case HashFunc::hashCount:
    default:
      raw = 0;
      break;
  }
  return raw & hashMask_;
}

U32 Bank::calcBucketId(U16 crc16, U32 crc32, HashEntryType, bool debugEnabled, U32 debugCrcInc) {
  if (debugEnabled) return debugBucketId(debugCrcInc);
  if (!selectsBuckets()) MHT_ASSERT_TEXT(false, condition::bankSelectsNoBucket);
  const U32 bucketId = hashedBucketId(crc16, crc32);
  MHT_TRACE(2, "Bank::"
                   << "calcBucketId"
                   << " bucketId: " << bucketId);
  return bucketId;
}

}  // namespace TesselCentral
