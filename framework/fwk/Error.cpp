#include "Error.h"

namespace Fwk {

namespace {
// Built by appending: GCC 12 at -O3 warns falsely (-Wrestrict) on "'" + std::string(s).
std::string quoted(std::string_view s) {
  std::string q;
  q.reserve(s.size() + 2);
  q += '\'';
  q += s;
  q += '\'';
  return q;
}
}  // namespace

SyntaxError::SyntaxError(std::string_view expected, std::string_view text, std::size_t offset)
    : Exception("syntax error at offset " + std::to_string(offset) + ": expected " + std::string(expected) + " in " +
                quoted(text)),
      offset_(offset) {}

RangeError::RangeError(std::string_view attribute, std::string_view value, std::string_view why)
    : Exception("range error: attribute " + quoted(attribute) + ": value " + quoted(value) + " " + std::string(why)),
      attribute_(attribute) {}

AttributeDeserialisationError::AttributeDeserialisationError(std::string_view attribute, std::string_view cause)
    : Exception("cannot deserialise attribute " + quoted(attribute) + ": " + std::string(cause)),
      attribute_(attribute) {}

NotAllDataConsumedError::NotAllDataConsumedError(std::string_view leftover, std::size_t offset)
    : Exception("not all data consumed: " + quoted(leftover) + " left at offset " + std::to_string(offset)) {}

ReinstantiationError::ReinstantiationError(std::string_view typeName, std::string_view attribute,
                                           std::string_view existing, std::string_view requested)
    : Exception("cannot re-instantiate " + std::string(typeName) + ": attribute " + quoted(attribute) + " is " +
                std::string(existing) + ", requested " + std::string(requested)),
      attribute_(attribute) {}

UnknownNameError::UnknownNameError(std::string_view kind, std::string_view name)
    : Exception("unknown " + std::string(kind) + " " + quoted(name)) {}

ArgumentCountError::ArgumentCountError(std::string_view operation, std::size_t expected, std::size_t given)
    : Exception(std::string(operation) + " takes " + std::to_string(expected) + " argument" +
                (expected == 1 ? "" : "s") + ", " + std::to_string(given) + " given") {}

}  // namespace Fwk
