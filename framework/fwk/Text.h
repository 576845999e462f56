// The framework's value text form.
//
// A composite value prints as its qualified type name and its attributes in declaration
// order:
//
//     TesselCentral::HashEntryKey{crc16=4660, crc32=305419896, fapId=0, entryType=singleWide}
//
// Numbers print in decimal and parse from decimal or 0x-prefixed hexadecimal; enumerators
// print and parse as their names; blanks around punctuation are ignored when parsing.
// ValueReader reads that syntax piece by piece and reports what it expected where.
#pragma once

#include <cstdint>
#include <limits>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "Error.h"

namespace Fwk {

inline constexpr char valueOpen = '{';
inline constexpr char valueClose = '}';
inline constexpr char attributeAssign = '=';
inline constexpr std::string_view attributeSeparator = ", ";

// Parses a whole text as an unsigned number no larger than max. Bad syntax is a
// SyntaxError; a number above max is a RangeError naming the attribute.
std::uint64_t parseUnsigned(std::string_view text, std::string_view attribute, std::uint64_t max);

class ValueReader {
 public:
  explicit ValueReader(std::string_view text) noexcept : text_(text) {}

  void open(std::string_view typeName);   // "<typeName>{"
  void attribute(std::string_view name);  // "<name>="
  void separator();                       // ","
  void close();                           // "}"
  void finish();                          // nothing but blanks may follow

  std::uint64_t readUnsigned(std::string_view attribute, std::uint64_t max);
  std::string_view readName();  // letters, digits, '_' and ':'
  bool atEnd() noexcept;
  std::size_t offset() const noexcept { return pos_; }

 private:
  void skipBlanks() noexcept;
  void expect(std::string_view token);
  std::string_view readToken();

  std::string_view text_;
  std::size_t pos_ = 0;
};

// Enumerations registered with the framework print as their names.
struct EnumInfo {
  std::string_view typeName;
  std::span<const std::pair<std::uint64_t, std::string_view>> enumerators;
  // Other spellings a user may type for a value (a command line's "breadth-first" for
  // breadthFirst); parsed like the names, never printed.
  std::span<const std::pair<std::uint64_t, std::string_view>> aliases = {};

  // The name of a value; empty when the value has none.
  std::string_view name(std::uint64_t value) const noexcept;
  // The value of a name or alias; an unknown one is a RangeError naming the attribute.
  std::uint64_t value(std::string_view name, std::string_view attribute) const;
};

// Specialised for each registered enumeration: static const EnumInfo& info().
template <class E>
struct EnumTraits;

template <class E>
concept RegisteredEnum = std::is_enum_v<E> && requires {
  EnumTraits<E>::info();
};

// The enumerator's name; a value without a name prints as its decimal number.
template <RegisteredEnum E>
std::string stringValue(E e) {
  const auto v = static_cast<std::uint64_t>(e);
  const std::string_view n = EnumTraits<E>::info().name(v);
  return n.empty() ? std::to_string(v) : std::string(n);
}

template <RegisteredEnum E>
E sequenceToValue(std::string_view name, std::string_view attribute = {}) {
  const EnumInfo& info = EnumTraits<E>::info();
  return static_cast<E>(info.value(name, attribute.empty() ? info.typeName : attribute));
}

}  // namespace Fwk
