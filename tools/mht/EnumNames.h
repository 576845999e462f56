// The names a user may type for a registered enumeration, listed wherever one is refused.
#pragma once

#include <string>
#include <string_view>

#include "MultiHashTable/fwk/Text.h"

namespace mht {

// "hashCrc32Upper, hashCrc32Lower, ...": the enumerators' names, then the other spellings
// the enumeration parses ("depthFirst, breadthFirst, depth-first, breadth-first").
// (Strings are built by appending: GCC 12 at -O3 warns falsely, -Wrestrict, on "'" + text.)
template <Fwk::RegisteredEnum E>
std::string enumNames() {
  const Fwk::EnumInfo& info = Fwk::EnumTraits<E>::info();
  std::string all;
  const auto add = [&all](std::string_view name) {
    if (!all.empty()) all += ", ";
    all += name;
  };
  for (const auto& [value, name] : info.enumerators) add(name);
  for (const auto& [value, alias] : info.aliases) add(alias);
  return all;
}

// "'hashFoo' is not a TesselCentral::HashFunc name (hashCrc32Upper, ...)".
template <Fwk::RegisteredEnum E>
std::string notANameText(std::string_view text) {
  std::string refusal;
  refusal += '\'';
  refusal += text;
  refusal += "' is not a ";
  refusal += Fwk::EnumTraits<E>::info().typeName;
  refusal += " name (";
  refusal += enumNames<E>();
  refusal += ')';
  return refusal;
}

}  // namespace mht
