// The framework's exceptions. Broken invariants are not exceptions (see Assert.h); these
// report bad input to a parse, a registry lookup or a create-or-get.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace Fwk {

class Exception : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Text that does not follow the value syntax.
class SyntaxError : public Exception {
 public:
  SyntaxError(std::string_view expected, std::string_view text, std::size_t offset);
  std::size_t offset() const noexcept { return offset_; }

 private:
  std::size_t offset_;
};

// A value out of range for its attribute (a number too large, an unknown enumerator name).
class RangeError : public Exception {
 public:
  RangeError(std::string_view attribute, std::string_view value, std::string_view why);
  const std::string& attribute() const noexcept { return attribute_; }

 private:
  std::string attribute_;
};

// A range error met while reading one attribute of a composite value.
class AttributeDeserialisationError : public Exception {
 public:
  AttributeDeserialisationError(std::string_view attribute, std::string_view cause);
  const std::string& attribute() const noexcept { return attribute_; }

 private:
  std::string attribute_;
};

// Text left over after a complete value.
class NotAllDataConsumedError : public Exception {
 public:
  NotAllDataConsumedError(std::string_view leftover, std::size_t offset);
};

// Create-or-get of a collection member that exists with other constructor arguments.
class ReinstantiationError : public Exception {
 public:
  ReinstantiationError(std::string_view typeName, std::string_view attribute, std::string_view existing,
                       std::string_view requested);
  const std::string& attribute() const noexcept { return attribute_; }

 private:
  std::string attribute_;
};

// A name that the type registry does not know (type, attribute, operation, object).
class UnknownNameError : public Exception {
 public:
  UnknownNameError(std::string_view kind, std::string_view name);
};

// The wrong number of arguments for a registered operation or factory.
class ArgumentCountError : public Exception {
 public:
  ArgumentCountError(std::string_view operation, std::size_t expected, std::size_t given);
};

}  // namespace Fwk
