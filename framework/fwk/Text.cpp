#include "Text.h"

#include <cctype>

namespace Fwk {

namespace {

bool isNameChar(char c) noexcept { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == ':'; }

// Parses digits of a decimal or 0x-hexadecimal number; nullopt-like false on bad syntax.
bool parseDigits(std::string_view text, std::uint64_t max, std::uint64_t& value, bool& overflow) {
  unsigned base = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    base = 16;
    text.remove_prefix(2);
  }
  if (text.empty()) return false;
  value = 0;
  overflow = false;
  for (char c : text) {
    unsigned digit;
    if (c >= '0' && c <= '9')
      digit = static_cast<unsigned>(c - '0');
    else if (base == 16 && c >= 'a' && c <= 'f')
      digit = static_cast<unsigned>(c - 'a' + 10);
    else if (base == 16 && c >= 'A' && c <= 'F')
      digit = static_cast<unsigned>(c - 'A' + 10);
    else
      return false;
    if (digit > max || value > (max - digit) / base) overflow = true;
    if (!overflow) value = value * base + digit;
  }
  return true;
}

}  // namespace

std::uint64_t parseUnsigned(std::string_view text, std::string_view attribute, std::uint64_t max) {
  std::uint64_t value = 0;
  bool overflow = false;
  if (!parseDigits(text, max, value, overflow)) {
    throw SyntaxError("an unsigned number for '" + std::string(attribute) + "'", text, 0);
  }
  if (overflow) throw RangeError(attribute, text, "is above the maximum " + std::to_string(max));
  return value;
}

void ValueReader::skipBlanks() noexcept {
  while (pos_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[pos_])) != 0) ++pos_;
}

void ValueReader::expect(std::string_view token) {
  skipBlanks();
  if (text_.substr(pos_, token.size()) != token) {
    throw SyntaxError("'" + std::string(token) + "'", text_, pos_);
  }
  pos_ += token.size();
}

std::string_view ValueReader::readToken() {
  skipBlanks();
  const std::size_t start = pos_;
  while (pos_ < text_.size() && isNameChar(text_[pos_])) ++pos_;
  return text_.substr(start, pos_ - start);
}

void ValueReader::open(std::string_view typeName) {
  expect(typeName);
  expect(std::string_view(&valueOpen, 1));
}

void ValueReader::attribute(std::string_view name) {
  const std::size_t at = (skipBlanks(), pos_);
  if (readToken() != name) throw SyntaxError("attribute '" + std::string(name) + "'", text_, at);
  expect(std::string_view(&attributeAssign, 1));
}

void ValueReader::separator() { expect(","); }

void ValueReader::close() { expect(std::string_view(&valueClose, 1)); }

bool ValueReader::atEnd() noexcept {
  skipBlanks();
  return pos_ == text_.size();
}

void ValueReader::finish() {
  if (!atEnd()) throw NotAllDataConsumedError(text_.substr(pos_), pos_);
}

std::uint64_t ValueReader::readUnsigned(std::string_view attribute, std::uint64_t max) {
  const std::size_t at = (skipBlanks(), pos_);
  const std::string_view token = readToken();
  if (token.empty()) throw SyntaxError("an unsigned number for '" + std::string(attribute) + "'", text_, at);
  return parseUnsigned(token, attribute, max);
}

std::string_view ValueReader::readName() {
  const std::size_t at = (skipBlanks(), pos_);
  const std::string_view token = readToken();
  if (token.empty()) throw SyntaxError("a name", text_, at);
  return token;
}

std::string_view EnumInfo::name(std::uint64_t v) const noexcept {
  for (const auto& [value, name] : enumerators) {
    if (value == v) return name;
  }
  return {};
}

std::uint64_t EnumInfo::value(std::string_view n, std::string_view attribute) const {
  for (const auto& [value, name] : enumerators) {
    if (name == n) return value;
  }
  for (const auto& [value, alias] : aliases) {
    if (alias == n) return value;
  }
  throw RangeError(attribute, n, "is not a name of " + std::string(typeName));
}

}  // namespace Fwk
