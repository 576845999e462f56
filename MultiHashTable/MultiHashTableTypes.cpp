#include "MultiHashTable/MultiHashTableTypes.h"

#include <array>
#include <sstream>
#include <utility>

#include "MultiHashTable/fwk/Hash.h"
#include "MultiHashTable/fwk/Registry.h"

namespace TesselCentral {

namespace {

constexpr std::array<std::pair<std::uint64_t, std::string_view>, 9> hashFuncNames{{
    {0, "hashInvalid"},
    {1, "hashCrc32Upper"},
    {2, "hashCrc32Lower"},
    {3, "hashLsb"},
    {4, "hashCrc16Lower"},
    {5, "hashCrc16Upper"},
    {6, "hashCrc64"},
    {7, "hashCount"},
    {8, "hashCrc32And16"},
}};

constexpr std::array<std::pair<std::uint64_t, std::string_view>, 4> hashEntryTypeNames{{
    {0, "empty"},
    {1, "singleWide"},
    {2, "doubleWide"},
    {4, "quadWide"},
}};

constexpr std::array<std::pair<std::uint64_t, std::string_view>, 2> moveSearchNames{{
    {0, "depthFirst"},
    {1, "breadthFirst"},
}};
// The spelling of a command line and of prose.
constexpr std::array<std::pair<std::uint64_t, std::string_view>, 2> moveSearchAliases{{
    {0, "depth-first"},
    {1, "breadth-first"},
}};

}  // namespace

std::string stringValue(MoveSearch m) { return Fwk::stringValue(m); }
std::ostream& operator<<(std::ostream& os, MoveSearch m) { return os << Fwk::stringValue(m); }

std::ostream& operator<<(std::ostream& os, SlotId slot) { return os << static_cast<unsigned>(slot.value()); }

SlotId SlotId::fromText(std::string_view text) {
  return SlotId(static_cast<U8>(Fwk::parseUnsigned(text, "SlotId", 0xFF)));
}

std::string stringValue(HashFunc f) { return Fwk::stringValue(f); }
std::string stringValue(HashEntryType t) { return Fwk::stringValue(t); }
std::ostream& operator<<(std::ostream& os, HashFunc f) { return os << Fwk::stringValue(f); }
std::ostream& operator<<(std::ostream& os, HashEntryType t) { return os << Fwk::stringValue(t); }

bool HashEntryKey::isEq(const void* a, const void* b) noexcept {
  if (a == b) return true;
  return *static_cast<const HashEntryKey*>(a) == *static_cast<const HashEntryKey*>(b);
}

HashEntryKey HashEntryKey::fromText(std::string_view text) {
  Fwk::ValueReader r(text);
  r.open(typeName());
  r.attribute("crc16");
  const auto crc16 = static_cast<U16>(r.readUnsigned("crc16", 0xFFFF));
  r.separator();
  r.attribute("crc32");
  const auto crc32 = static_cast<U32>(r.readUnsigned("crc32", 0xFFFFFFFF));
  r.separator();
  r.attribute("fapId");
  const auto fapId = static_cast<U32>(r.readUnsigned("fapId", 0xFFFFFFFF));
  r.separator();
  r.attribute("entryType");
  HashEntryType entryType;
  try {
    entryType = Fwk::sequenceToValue<HashEntryType>(r.readName(), "entryType");
  } catch (const Fwk::RangeError& e) {
    throw Fwk::AttributeDeserialisationError("entryType", e.what());
  }
  r.close();
  r.finish();
  return HashEntryKey(crc16, crc32, fapId, entryType);
}

std::ostream& operator<<(std::ostream& os, const HashEntryKey& key) {
  // The key may be streamed while hexadecimal output is on; its text form is decimal.
  const auto flags = os.flags();
  os << std::dec << HashEntryKey::typeName() << Fwk::valueOpen << "crc16" << Fwk::attributeAssign << key.crc16()
     << Fwk::attributeSeparator << "crc32" << Fwk::attributeAssign << key.crc32() << Fwk::attributeSeparator << "fapId"
     << Fwk::attributeAssign << key.fapId() << Fwk::attributeSeparator << "entryType" << Fwk::attributeAssign
     << key.entryType() << Fwk::valueClose;
  os.flags(flags);
  return os;
}

EntryId EntryId::fromText(std::string_view text) {
  Fwk::ValueReader r(text);
  r.open(typeName());
  r.attribute("value");
  const auto v = static_cast<U32>(r.readUnsigned("value", max));
  r.close();
  r.finish();
  return EntryId(v);
}

std::string EntryId::text() const {
  std::ostringstream os;
  os << typeName() << Fwk::valueOpen << "value" << Fwk::attributeAssign << value_ << Fwk::valueClose;
  return os.str();
}

std::ostream& operator<<(std::ostream& os, EntryId id) {
  const auto flags = os.flags();
  os << std::dec << id.value();
  os.flags(flags);
  return os;
}

namespace {

// The module's types, in their fixed order: HashFunc is type 0, HashEntryType type 1,
// MoveSearch, added later, the last.
[[maybe_unused]] const bool registered = [] {
  Fwk::Module& module = Fwk::Registry::instance().moduleIs("MultiHashTableTypes");
  Fwk::registerEnumType<HashFunc>(module);
  Fwk::registerEnumType<HashEntryType>(module);
  Fwk::TypeInfo& key = Fwk::registerValueType<HashEntryKey>(module, std::string(HashEntryKey::typeName()));
  key.attributeIs({Fwk::firstValueAttrId + 0, "crc16", "U16", Fwk::constructorSet, {}, {}, {}});
  key.attributeIs({Fwk::firstValueAttrId + 1, "crc32", "U32", Fwk::constructorSet, {}, {}, {}});
  key.attributeIs({Fwk::firstValueAttrId + 2, "fapId", "U32", Fwk::constructorSet, {}, {}, {}});
  key.attributeIs(
      {Fwk::firstValueAttrId + 3, "entryType", "TesselCentral::HashEntryType", Fwk::constructorSet, {}, {}, {}});
  Fwk::TypeInfo& id = Fwk::registerValueType<EntryId>(module, std::string(EntryId::typeName()));
  id.attributeIs({Fwk::firstValueAttrId + 0, "value", "U32", Fwk::mutableAttr, {}, {}, {}});
  Fwk::registerValueType<SlotId>(module, std::string(SlotId::typeName()));
  Fwk::registerEnumType<MoveSearch>(module);
  return true;
}();

}  // namespace

}  // namespace TesselCentral

namespace Fwk {

const EnumInfo& EnumTraits<TesselCentral::HashFunc>::info() noexcept {
  static const EnumInfo info{"TesselCentral::HashFunc", TesselCentral::hashFuncNames};
  return info;
}

const EnumInfo& EnumTraits<TesselCentral::HashEntryType>::info() noexcept {
  static const EnumInfo info{"TesselCentral::HashEntryType", TesselCentral::hashEntryTypeNames};
  return info;
}

const EnumInfo& EnumTraits<TesselCentral::MoveSearch>::info() noexcept {
  static const EnumInfo info{"TesselCentral::MoveSearch", TesselCentral::moveSearchNames,
                             TesselCentral::moveSearchAliases};
  return info;
}

}  // namespace Fwk
