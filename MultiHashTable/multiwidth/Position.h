// Where an entry stands in a multi-width table: one word packing the bank, the bucket and
// the first slot that the entry covers.
//
//   bits 31..24 bank | bits 23..4 bucket | bits 3..0 first slot        0xFFFFFFFF: nowhere
//
// A position is not an EntryId: the table's EntryIdHelper translates one into the other.
// A hardware position has the same layout with the physical bank in the top byte.
#pragma once

#include "MultiHashTable/MultiHashTableTypes.h"

namespace TesselCentral {

inline constexpr U32 INVALID_POSITION = 0xFFFFFFFF;

namespace position {
inline constexpr U32 bankShift = 24;
inline constexpr U32 bucketShift = 4;
inline constexpr U32 bucketBits = 0xFFFFF;  // 20 bits of bucket
inline constexpr U32 slotBits = 0xF;        // 4 bits of slot
inline constexpr U32 belowBank = 0xFFFFFF;  // bucket and slot together
}  // namespace position

constexpr U32 packPosition(U32 bank, U32 bucket, U32 slot) noexcept {
  return (bank << position::bankShift) | ((bucket << position::bucketShift) & (position::bucketBits << 4)) |
         (slot & position::slotBits);
}
constexpr U32 positionBank(U32 pos) noexcept { return pos >> position::bankShift; }
constexpr U32 positionBucket(U32 pos) noexcept { return (pos >> position::bucketShift) & position::bucketBits; }
constexpr U32 positionSlot(U32 pos) noexcept { return pos & position::slotBits; }
// The same bucket and slot under another bank id: the hardware position names the physical bank.
constexpr U32 positionInBank(U32 pos, U32 bank) noexcept {
  return (bank << position::bankShift) | (pos & position::belowBank);
}

static_assert(position::bankShift == position::bucketShift + 20, "the bucket field is 20 bits wide");
static_assert(packPosition(3, 0xABCDE, 7) == 0x03ABCDE7);
static_assert(positionBank(0x03ABCDE7) == 3 && positionBucket(0x03ABCDE7) == 0xABCDE && positionSlot(0x03ABCDE7) == 7);
static_assert(packPosition(0, 0x1FFFFF, 0x1F) == 0x00FFFFFF, "bucket and slot keep their low bits only");
static_assert(positionInBank(0x03ABCDE7, 6) == 0x06ABCDE7);

// The aligned slots that an entry of one width covers, or would cover, in one bucket of a
// multi-width bank: entries of width w start at a multiple of w.
struct SlotRun {
  U32 bank = 0;
  U32 bucket = 0;
  U32 slot = 0;
  U32 width = 0;

  constexpr U32 mask() const noexcept { return ((U32{1} << width) - 1) << slot; }
  constexpr U32 position() const noexcept { return packPosition(bank, bucket, slot); }
  constexpr bool overlaps(const SlotRun& other) const noexcept {
    return bank == other.bank && bucket == other.bucket && (mask() & other.mask()) != 0;
  }
  constexpr bool operator==(const SlotRun&) const noexcept = default;
};

static_assert(SlotRun{1, 7, 2, 2}.mask() == 0xC && SlotRun{1, 7, 2, 2}.position() == 0x01000072);
static_assert(SlotRun{1, 7, 0, 4}.overlaps(SlotRun{1, 7, 3, 1}) && !SlotRun{1, 7, 0, 2}.overlaps(SlotRun{1, 7, 2, 2}));
static_assert(!SlotRun{1, 7, 0, 4}.overlaps(SlotRun{2, 7, 0, 4}) && !SlotRun{1, 7, 0, 4}.overlaps(SlotRun{1, 8, 0, 4}));

}  // namespace TesselCentral
