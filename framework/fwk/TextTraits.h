// How each type prints and parses in the generic text form of the type registry.
#pragma once

#include <concepts>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>

#include "Entity.h"
#include "Error.h"
#include "Scope.h"
#include "Text.h"

namespace Fwk {

// How a type prints and parses in text. Specialised below for numbers, bool, registered
// enumerations, value types (T::fromText and operator<<) and entity pointers.
template <class T>
struct TextTraits;

template <std::unsigned_integral T>
requires(!std::same_as<T, bool>) struct TextTraits<T> {
  static constexpr std::string_view typeName() {
    if constexpr (sizeof(T) == 1)
      return "U8";
    else if constexpr (sizeof(T) == 2)
      return "U16";
    else if constexpr (sizeof(T) == 4)
      return "U32";
    else
      return "U64";
  }
  static void print(std::ostream& os, T v) { os << static_cast<std::uint64_t>(v); }
  static T parse(std::string_view text, const ParseContext& c) {
    return static_cast<T>(parseUnsigned(text, c.attribute, std::numeric_limits<T>::max()));
  }
};

template <>
struct TextTraits<bool> {
  static constexpr std::string_view typeName() { return "bool"; }
  static void print(std::ostream& os, bool v) { os << (v ? "true" : "false"); }
  static bool parse(std::string_view text, const ParseContext& c);
};

// Text answers of operations (a check's verdict) print as they are.
template <>
struct TextTraits<std::string> {
  static constexpr std::string_view typeName() { return "string"; }
  static void print(std::ostream& os, const std::string& v) { os << v; }
  static std::string parse(std::string_view text, const ParseContext&) { return std::string(text); }
};

template <RegisteredEnum E>
struct TextTraits<E> {
  static std::string_view typeName() { return EnumTraits<E>::info().typeName; }
  static void print(std::ostream& os, E v) { os << stringValue(v); }
  static E parse(std::string_view text, const ParseContext& c) { return sequenceToValue<E>(text, c.attribute); }
};

template <class T>
concept TextValue = requires(std::string_view s, std::ostream& os, const T& v) {
  { T::fromText(s) } -> std::same_as<T>;
  { T::typeName() } -> std::convertible_to<std::string_view>;
  os << v;
};

// A value whose operator<< is a short form of its own (EntryId prints a bare number)
// offers text() for the generic form, which is what parse reads back.
template <TextValue T>
struct TextTraits<T> {
  static std::string_view typeName() { return T::typeName(); }
  static void print(std::ostream& os, const T& v) {
    if constexpr (requires {
                    { v.text() } -> std::convertible_to<std::string_view>;
                  }) {
      os << v.text();
    } else {
      os << v;
    }
  }
  static T parse(std::string_view text, const ParseContext&) { return T::fromText(text); }
};

// Entity references print as the name under which the scope knows them (or as the
// entity's type name) and parse as a scope name.
std::string entityTypeName(const Entity* e);

template <class T>
requires std::derived_from<std::remove_const_t<T>, Entity>
struct TextTraits<Ptr<T>> {
  static std::string_view typeName() { return "Ptr"; }
  static void print(std::ostream& os, const Ptr<T>& p) { os << (p ? entityTypeName(p.ptr()) : "null"); }
  static Ptr<T> parse(std::string_view text, const ParseContext& c) {
    if (text == "null") return {};
    if (c.scope == nullptr) throw UnknownNameError("object", text);
    Ptr<Entity> e = c.scope->object(text);
    auto* t = dynamic_cast<T*>(e.ptr());
    if (t == nullptr) {
      throw RangeError(c.attribute, text, "is a " + entityTypeName(e.ptr()) + ", not the type the argument needs");
    }
    return Ptr<T>(t);
  }
};

template <class T>
std::string toText(const T& v) {
  std::ostringstream os;
  TextTraits<std::remove_cvref_t<T>>::print(os, v);
  return os.str();
}

}  // namespace Fwk
