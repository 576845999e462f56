// Value types of the hash-table placement library: the key that the client computes for
// an entry, the EntryId that the library hands back, and the two enumerations that
// describe bucket hashing and entry widths.
#pragma once

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "MultiHashTable/fwk/Hash.h"
#include "MultiHashTable/fwk/Text.h"
#include "MultiHashTable/fwk/Trace.h"

// The platform's fixed-width names. They live in the global namespace, as the platform's
// do, so that an assertion report's function signature reads "U32", not
// "TesselCentral::U32"; the library names them through the using-declarations below.
using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;

namespace TesselCentral {

using ::U16;
using ::U32;
using ::U64;
using ::U8;

// The platform's slot number: eight bits that print as a decimal number, not a character.
class SlotId {
 public:
  constexpr SlotId() noexcept = default;
  constexpr SlotId(U8 value) noexcept : value_(value) {}
  static SlotId fromText(std::string_view text);
  static constexpr std::string_view typeName() noexcept { return "TesselCentral::SlotId"; }
  constexpr U8 value() const noexcept { return value_; }
  constexpr operator U8() const noexcept { return value_; }

 private:
  U8 value_ = 0;
};
std::ostream& operator<<(std::ostream& os, SlotId slot);

// How a bank turns a key's crc16 and crc32 into a bucket index. The numbering is fixed
// by the hardware interface: it is neither alphabetical nor ordered by use, and the
// count marker hashCount deliberately stands before the last function.
enum class HashFunc : U8 {
  hashInvalid = 0,
  hashCrc32Upper = 1,
  hashCrc32Lower = 2,
  hashLsb = 3,
  hashCrc16Lower = 4,
  hashCrc16Upper = 5,
  hashCrc64 = 6,
  hashCount = 7,
  hashCrc32And16 = 8,
};

// The width of an entry in slots; the value is the width, so it serves directly as a slot
// count and as a bucket-state nibble. Value 3 has no name.
enum class HashEntryType : U32 {
  empty = 0,
  singleWide = 1,
  doubleWide = 2,
  quadWide = 4,
};

// How a table searches for room when every candidate slot of a key is taken.
//  - depthFirst: the table's own search, slot order first, each level within the step
//    budget (the default);
//  - breadthFirst: the shortest sequence of moves that ends at a free slot, applied from
//    its free end backwards.
enum class MoveSearch : U8 {
  depthFirst = 0,
  breadthFirst = 1,
};

std::ostream& operator<<(std::ostream& os, HashFunc f);
std::ostream& operator<<(std::ostream& os, HashEntryType t);
std::ostream& operator<<(std::ostream& os, MoveSearch m);
std::string stringValue(HashFunc f);
std::string stringValue(HashEntryType t);
std::string stringValue(MoveSearch m);

// What the client knows of an entry: its precomputed hashes, its chip instance and its
// width. Immutable; copied by value everywhere. The default key {0, 0, 0, singleWide}
// doubles as the empty-slot marker of the tables.
class HashEntryKey {
 public:
  constexpr HashEntryKey() noexcept = default;
  constexpr HashEntryKey(U16 crc16, U32 crc32, U32 fapId, HashEntryType entryType) noexcept
      : crc16_(crc16), crc32_(crc32), fapId_(fapId), entryType_(entryType) {}

  // Parses the text form; throws the framework's errors (a bad entryType name is an
  // AttributeDeserialisationError naming "entryType").
  static HashEntryKey fromText(std::string_view text);
  static constexpr std::string_view typeName() noexcept { return "TesselCentral::HashEntryKey"; }

  constexpr U16 crc16() const noexcept { return crc16_; }
  constexpr U32 crc32() const noexcept { return crc32_; }
  constexpr U32 fapId() const noexcept { return fapId_; }
  constexpr HashEntryType entryType() const noexcept { return entryType_; }

  // Node key equality of keyed collections, on untyped pointers.
  static bool isEq(const void* a, const void* b) noexcept;

  constexpr bool operator==(const HashEntryKey& o) const noexcept {
    return crc16_ == o.crc16_ && crc32_ == o.crc32_ && fapId_ == o.fapId_ && entryType_ == o.entryType_;
  }
  constexpr std::strong_ordering operator<=>(const HashEntryKey& o) const noexcept {
    if (this == &o) return std::strong_ordering::equal;
    if (auto c = crc16_ <=> o.crc16_; c != 0) return c;
    if (auto c = crc32_ <=> o.crc32_; c != 0) return c;
    if (auto c = fapId_ <=> o.fapId_; c != 0) return c;
    return static_cast<U32>(entryType_) <=> static_cast<U32>(o.entryType_);
  }

  // Mixes crc16 as 2 bytes, then crc32, fapId and entryType as 4 bytes each, into a
  // hash state started from the seed. Inline: every keyed collection of the tables hashes
  // on each lookup.
  constexpr U32 hash(U32 seed) const noexcept {
    Fwk::HashState state(seed, 0, 0);
    state.mix16(crc16_);
    state.mix32(crc32_);
    state.mix32(fapId_);
    state.mix32(static_cast<U32>(entryType_));
    return state.value();
  }

 private:
  U16 crc16_ = 0;
  U32 crc32_ = 0;
  U32 fapId_ = 0;
  HashEntryType entryType_ = HashEntryType::singleWide;
};

// Prints the framework's text form of the key.
std::ostream& operator<<(std::ostream& os, const HashEntryKey& key);

// The tables compare only the two hashes when they look for a key where it may stand: two
// keys with the same crc16 and crc32 are taken for one another.
inline bool sameHashes(const HashEntryKey& a, const HashEntryKey& b) noexcept {
  return a.crc16() == b.crc16() && a.crc32() == b.crc32();
}

// The default key marks a free slot in the occupancy record: a real key equal to it is
// indistinguishable from an empty slot.
inline bool isEmptyMarker(const HashEntryKey& key) noexcept { return key == HashEntryKey(); }

// The number of an entry position, as the client programs it into the hardware. The
// default, 0xFFFFFFFF, is the invalid id: "anywhere" in a request, "no room" in a result.
class EntryId {
 public:
  static constexpr U32 min = 0;
  static constexpr U32 max = 0xFFFFFFFF;

  constexpr EntryId() noexcept = default;
  constexpr explicit EntryId(U32 value) noexcept : value_(value) {}

  // Parses the framework's text form "TesselCentral::EntryId{value=<n>}".
  static EntryId fromText(std::string_view text);
  static constexpr std::string_view typeName() noexcept { return "TesselCentral::EntryId"; }

  constexpr U32 value() const noexcept { return value_; }
  constexpr EntryId& valueIs(U32 v) noexcept {
    if (v != value_) value_ = v;
    return *this;
  }
  constexpr bool isValid() const noexcept { return value_ < max; }
  // The id is its own hash; collections mix their seed in themselves.
  constexpr U32 hash() const noexcept { return value_; }

  constexpr bool operator==(const EntryId&) const noexcept = default;
  constexpr bool operator<(const EntryId& o) const noexcept { return value_ < o.value_; }

  // The framework's generic text form, as opposed to operator<<'s bare number.
  std::string text() const;

 private:
  U32 value_ = max;
};

inline constexpr EntryId invalidEntryId{};

// Prints the bare decimal value.
std::ostream& operator<<(std::ostream& os, EntryId id);

// The library's trace handle "MultiHashTable", shared by all its types. Its constructor is
// constant, so the handle is initialised once, before any thread can race for it, and a
// trace statement whose level is off costs one load and one test.
inline Fwk::TraceHandle& multiHashTableTrace() noexcept {
  constinit static Fwk::TraceHandle handle("MultiHashTable");
  return handle;
}

}  // namespace TesselCentral

namespace Fwk {
template <>
struct EnumTraits<TesselCentral::HashFunc> {
  static const EnumInfo& info() noexcept;
};
template <>
struct EnumTraits<TesselCentral::HashEntryType> {
  static const EnumInfo& info() noexcept;
};
template <>
struct EnumTraits<TesselCentral::MoveSearch> {
  static const EnumInfo& info() noexcept;
};
}  // namespace Fwk
