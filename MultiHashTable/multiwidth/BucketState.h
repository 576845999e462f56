// The state word of one bucket of a multi-width bank.
//
//   bits  0..15  occupancy: bit s is set when slot s is covered by an entry
//   bits 16..31  the HashEntryType of the entry covering slot s, in the nibble at 16 + 4 s
//   bits 32..63  unused, always 0
//
// The nibbles are built in 32-bit arithmetic, so their shift counts wrap modulo 32 and the
// word serves buckets of at most four slots; the free-space search reads only the low 32
// bits. A state of 0 is an empty bucket, which its bank keeps no word for.
#pragma once

#include "MultiHashTable/MultiHashTableTypes.h"

namespace TesselCentral {

class BucketState {
 public:
  constexpr BucketState() noexcept = default;
  constexpr explicit BucketState(U64 word) noexcept : word_(word) {}

  constexpr U64 word() const noexcept { return word_; }
  constexpr bool operator==(const BucketState&) const noexcept = default;
  constexpr bool empty() const noexcept { return word_ == 0; }
  // The bits the free-space search decides by.
  constexpr U32 occupancy() const noexcept { return static_cast<U32>(word_); }
  // Whether any slot of an occupancy mask is covered.
  constexpr bool covers(U32 mask) const noexcept { return (word_ & mask) != 0; }
  // The type of the entry that covers a slot; empty when the slot is free.
  constexpr HashEntryType typeAt(U32 slot) const noexcept {
    return static_cast<HashEntryType>((word_ >> ((4 * slot + 16) & 63)) & 0xF);
  }

  // With an entry of `type` starting at `slot`: `mask` is its occupancy bits already
  // shifted to the slot, `width` the number of slots whose nibble carries the type.
  constexpr BucketState with(HashEntryType type, U32 slot, U32 mask, U32 width) const noexcept {
    U64 w = word_ | mask;
    for (U32 i = 0; i < width; ++i) w |= U64{static_cast<U32>(type) << nibbleShift(slot, i)};
    return BucketState(w);
  }
  // Without the entry of that shape at `slot`. The occupancy's 32-bit complement widens
  // without sign, which also clears the unused upper half; the nibbles' complements widen
  // with their sign, so the upper half is left as it is there.
  constexpr BucketState without(U32 slot, U32 mask, U32 width) const noexcept {
    U64 w = word_ & U64{static_cast<U32>(~mask)};
    for (U32 i = 0; i < width; ++i) {
      const U32 keep = ~(U32{0xF} << nibbleShift(slot, i));
      w &= static_cast<U64>(static_cast<std::int64_t>(static_cast<std::int32_t>(keep)));
    }
    return BucketState(w);
  }

  // The bit at which the type nibble of slot + i starts, wrapping like a 32-bit shift.
  static constexpr U32 nibbleShift(U32 slot, U32 i) noexcept { return (16 + 4 * slot + 4 * i) & 31; }

 private:
  U64 word_ = 0;
};

static_assert(BucketState().with(HashEntryType::quadWide, 0, 0xF, 4).word() == 0x4444000F);
static_assert(BucketState().with(HashEntryType::doubleWide, 2, 0xC, 2).word() == 0x2200000C);
static_assert(BucketState(0x2200000C).with(HashEntryType::singleWide, 0, 0x1, 1).word() == 0x2201000D);
static_assert(BucketState(0x2201000D).typeAt(3) == HashEntryType::doubleWide);
static_assert(BucketState(0x2201000D).without(2, 0xC, 2).word() == 0x10001);
static_assert(BucketState(0x10001).without(0, 0x1, 1).empty());

}  // namespace TesselCentral
