#include "LineParser.h"

#include <cctype>
#include <cstdlib>
#include <ostream>

#include "MultiHashTable/fwk/Assert.h"

namespace mht {

std::vector<std::string> splitFields(std::string_view line) {
  std::vector<std::string> fields;
  std::string current;
  int depth = 0;
  for (char c : line) {
    if (c == '#' && depth == 0) break;
    if (c == '{') ++depth;
    if (c == '}' && depth > 0) --depth;
    if (depth == 0 && std::isspace(static_cast<unsigned char>(c)) != 0) {
      if (!current.empty()) fields.push_back(std::move(current));
      current.clear();
      continue;
    }
    current += c;
  }
  if (!current.empty()) fields.push_back(std::move(current));
  return fields;
}

const std::string& LineParser::word(std::string_view field) {
  if (atEnd()) throw LineError("missing " + std::string(field));
  return fields_[next_++];
}

std::uint64_t LineParser::number(std::string_view field, std::uint64_t max, std::string_view orWord) {
  const std::string& text = fields_[next_ - 1];
  try {
    return Fwk::parseUnsigned(text, field, max);
  } catch (const Fwk::RangeError&) {
    throw LineError(std::string(field) + ": '" + text + "' is above the maximum " + std::to_string(max));
  } catch (const Fwk::SyntaxError&) {
    if (!orWord.empty()) {
      throw LineError(std::string(field) + ": '" + text + "' is neither an unsigned number (decimal or 0x-hex) nor " +
                      std::string(orWord));
    }
    throw LineError(std::string(field) + ": '" + text + "' is not an unsigned number (decimal or 0x-hex)");
  }
}

U32 LineParser::u32(std::string_view field) {
  word(field);
  return static_cast<U32>(number(field, 0xFFFFFFFFu));
}

U16 LineParser::u16(std::string_view field) {
  word(field);
  return static_cast<U16>(number(field, 0xFFFFu));
}

std::optional<U32> LineParser::u32Or(std::string_view field, std::string_view orWord) {
  if (word(std::string(field) + " (a number or " + std::string(orWord) + ")") == orWord) return std::nullopt;
  return static_cast<U32>(number(field, 0xFFFFFFFFu, orWord));
}

bool LineParser::boolean(std::string_view field) {
  const std::string& text = word(field);
  if (text == "true") return true;
  if (text == "false") return false;
  throw LineError(std::string(field) + ": '" + text + "' is neither true nor false");
}

TesselCentral::EntryId LineParser::entryId(std::string_view field) {
  const std::optional<U32> number = u32Or(field, "any");
  if (!number) return TesselCentral::EntryId();
  const TesselCentral::EntryId id(*number);
  if (!id.isValid()) {
    throw LineError(std::string(field) + ": 4294967295 is the invalid id; write 'any' to place the key anywhere");
  }
  return id;
}

void LineParser::end(std::string_view lastField) {
  if (!atEnd()) throw LineError("unexpected '" + fields_[next_] + "' after " + std::string(lastField));
}

namespace {

std::string activeFile;
std::ostream* activeErr = nullptr;
const std::size_t* activeLine = nullptr;

[[noreturn]] void reportAssertion(const Fwk::AssertionReport& r) {
  if (activeErr != nullptr) {
    *activeErr << activeFile << ':' << *activeLine << ": the library rejected this request: assertion '" << r.condition
               << "' failed in " << r.function << std::endl;
  }
  std::_Exit(1);
}

}  // namespace

ScriptPosition::ScriptPosition(std::string file, std::ostream& err) : file_(std::move(file)), err_(err) {
  activeFile = file_;
  activeErr = &err_;
  activeLine = &line_;
  Fwk::assertionHandlerIs(&reportAssertion);
}

ScriptPosition::~ScriptPosition() {
  Fwk::assertionHandlerIs(nullptr);
  activeErr = nullptr;
  activeLine = nullptr;
}

TesselCentral::HashEntryKey LineParser::key() {
  const U16 crc16 = u16("crc16");
  const U32 crc32 = u32("crc32");
  const U32 fapId = u32("fapId");
  const auto entryType = name<TesselCentral::HashEntryType>("entryType");
  return TesselCentral::HashEntryKey(crc16, crc32, fapId, entryType);
}

}  // namespace mht
