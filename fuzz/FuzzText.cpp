// Fuzzes the value text forms: the key, the entry id, the slot number, the two
// enumerations, the framework's numbers and the registry's normalise on arbitrary text.
// Bad text may only raise the framework's exceptions (Fwk::Exception); anything else that
// escapes, a crash or a sanitizer report is a finding. Text that parses must print back to
// a text that parses to the same value.
//
// Input: the first byte chooses the parser, the rest is the text.
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "FuzzInput.h"
#include "MultiHashTable/MultiHashTableTypes.h"
#include "MultiHashTable/fwk/Error.h"
#include "MultiHashTable/fwk/Registry.h"
#include "MultiHashTable/fwk/Text.h"

namespace {

using namespace TesselCentral;

[[noreturn]] void roundTripFailed(std::string_view what, std::string_view text, std::string_view printed) {
  std::cerr << what << ": text '" << text << "' parsed, printed as '" << printed << "', which does not read back"
            << std::endl;
  std::abort();
}

template <class T>
std::string printed(const T& value) {
  std::ostringstream os;
  os << value;
  return os.str();
}

// The registered types that parse text: value types and enumerations.
const std::vector<std::string>& textTypes() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> all;
    for (const Fwk::TypeInfo* t : Fwk::Registry::instance().allTypes()) {
      if (t->normalise) all.push_back(t->name());
    }
    return all;
  }();
  return names;
}

void parseKey(std::string_view text) {
  const HashEntryKey key = HashEntryKey::fromText(text);
  const std::string out = printed(key);
  if (!(HashEntryKey::fromText(out) == key)) roundTripFailed("HashEntryKey", text, out);
}

void parseEntryId(std::string_view text) {
  const EntryId id = EntryId::fromText(text);
  const std::string out = id.text();
  if (EntryId::fromText(out) != id) roundTripFailed("EntryId", text, out);
  if (printed(id) != std::to_string(id.value())) roundTripFailed("EntryId (bare)", text, printed(id));
}

void parseSlot(std::string_view text) {
  const SlotId slot = SlotId::fromText(text);
  const std::string out = printed(slot);
  if (SlotId::fromText(out).value() != slot.value()) roundTripFailed("SlotId", text, out);
}

template <class E>
void parseEnum(std::string_view text) {
  const E value = Fwk::sequenceToValue<E>(text);
  const std::string out = Fwk::stringValue(value);
  if (out != text) roundTripFailed(Fwk::EnumTraits<E>::info().typeName, text, out);
}

void parseNumber(std::string_view text, std::uint64_t max) {
  const std::uint64_t v = Fwk::parseUnsigned(text, "number", max);
  if (v > max) roundTripFailed("parseUnsigned above its maximum", text, std::to_string(v));
  if (Fwk::parseUnsigned(std::to_string(v), "number", max) != v)
    roundTripFailed("parseUnsigned", text, std::to_string(v));
}

void normalise(std::string_view typeName, std::string_view text) {
  const Fwk::Registry& registry = Fwk::Registry::instance();
  const std::string once = registry.normalise(typeName, text);
  const std::string twice = registry.normalise(typeName, once);
  if (twice != once) roundTripFailed(std::string("normalise of ") + std::string(typeName), text, once);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  mht::fuzz::FuzzInput in(data, size);
  const std::uint8_t choice = in.byte();
  const std::uint8_t extra = in.byte();
  const std::string_view text = in.rest();
  try {
    switch (choice % 8) {
      case 0:
        parseKey(text);
        break;
      case 1:
        parseEntryId(text);
        break;
      case 2:
        parseSlot(text);
        break;
      case 3:
        parseEnum<HashFunc>(text);
        break;
      case 4:
        parseEnum<HashEntryType>(text);
        break;
      case 5:
        parseNumber(text, extra < 64 ? (std::uint64_t{1} << extra) - 1 : ~std::uint64_t{0});
        break;
      case 6: {
        const std::vector<std::string>& types = textTypes();
        if (!types.empty()) normalise(types[extra % types.size()], text);
        break;
      }
      default: {
        // A type name of the input's own: the registry must refuse unknown ones cleanly.
        const std::size_t cut = text.find('\n');
        if (cut == std::string_view::npos)
          normalise(text, {});
        else
          normalise(text.substr(0, cut), text.substr(cut + 1));
        break;
      }
    }
  } catch (const Fwk::Exception&) {
    // Bad text, reported as the framework reports it.
  }
  return 0;
}
