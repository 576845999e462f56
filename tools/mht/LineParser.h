// Splits one line of a request script into fields and reads them, naming the field in
// every error ("crc16: '70000' is above the maximum 65535").
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "EnumNames.h"
#include "MultiHashTable/MultiHashTableTypes.h"
#include "MultiHashTable/fwk/Registry.h"

namespace mht {

// A bad line: what was wrong, without the file and line (the caller adds them).
class LineError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Splits at blanks; '#' starts a comment that runs to the end of the line. Text inside
// braces stays one field, so a value's text form may contain blanks.
std::vector<std::string> splitFields(std::string_view line);

class LineParser {
 public:
  explicit LineParser(std::vector<std::string> fields) : fields_(std::move(fields)) {}

  bool atEnd() const noexcept { return next_ == fields_.size(); }
  std::size_t remaining() const noexcept { return fields_.size() - next_; }
  const std::string& word(std::string_view field);
  U32 u32(std::string_view field);
  U16 u16(std::string_view field);
  // A number, or the one word that stands for none ("any" for an id): nothing then.
  std::optional<U32> u32Or(std::string_view field, std::string_view word);
  bool boolean(std::string_view field);
  // An id: a number, or `any` for the invalid id (the key placed anywhere). The invalid id
  // typed as a number is refused, naming `any`.
  TesselCentral::EntryId entryId(std::string_view field);
  // A key's four fields, as the tool's text lines write them: crc16 crc32 fapId entryType.
  TesselCentral::HashEntryKey key();

  template <Fwk::RegisteredEnum E>
  E name(std::string_view field) {
    const std::string& text = word(field);
    try {
      return Fwk::sequenceToValue<E>(text, field);
    } catch (const Fwk::RangeError&) {
      throw LineError(std::string(field) + ": " + notANameText<E>(text));
    }
  }

  // Fails when fields are left after the last one read.
  void end(std::string_view lastField);

 private:
  std::uint64_t number(std::string_view field, std::uint64_t max, std::string_view orWord = {});

  std::vector<std::string> fields_;
  std::size_t next_ = 0;
};

// While a script runs, a fatal assertion of the library that the tool's own checks did
// not foresee is reported as FILE:LINE: ... with exit code 1 instead of an abort.
class ScriptPosition {
 public:
  ScriptPosition(std::string file, std::ostream& err);
  ~ScriptPosition();
  ScriptPosition(const ScriptPosition&) = delete;
  ScriptPosition& operator=(const ScriptPosition&) = delete;

  void next() noexcept { ++line_; }
  std::size_t line() const noexcept { return line_; }

 private:
  std::string file_;
  std::size_t line_ = 0;
  std::ostream& err_;
};

}  // namespace mht
