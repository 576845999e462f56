// Taking over a saved placement: after a restart of the agent, the chip still holds every
// entry where the table had placed it. A restore records each key at its saved id as if the
// table had placed it there, and publishes each key's result once: nothing moves and no id
// is written to the chip anew. The check names every reason why a placement cannot be
// taken over, and a refused restore changes nothing.
#pragma once

#include <iosfwd>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "MultiHashTable/MultiHashTableTypes.h"

namespace TesselCentral {

// A saved placement: each key with the id where it stood, or the invalid id for a key the
// table had handled without finding it a place. Taken over in this order.
using SavedPlacement = std::vector<std::pair<HashEntryKey, EntryId>>;

// Why a saved placement cannot be taken over.
enum class RestoreRule : U8 {
  configuration,   // the table's configuration check does not pass
  tableNotEmpty,   // the table already holds results or records
  savedTwice,      // a key appears twice in the placement
  noRequest,       // a saved key has no request
  notCandidate,    // the id is not one the table would place the key at
  notAligned,      // a wide key's id names a slot where no run of its width starts
  reservedId,      // the id names the run at position 0, which the table never hands out
  sharedId,        // two keys saved at one id
  overlappingRun,  // a wide key's slots overlap another key's
};

std::string_view restoreRuleName(RestoreRule rule) noexcept;

struct RestoreProblem {
  RestoreRule rule;
  HashEntryKey key;  // the saved key at fault; the default key for a problem of the table
  EntryId id;        // its saved id
  std::string text;  // what is wrong, in the agent's terms
};

class RestoreCheck {
 public:
  void add(RestoreRule rule, std::string text, const HashEntryKey& key = HashEntryKey(), EntryId id = EntryId()) {
    problems_.push_back(RestoreProblem{rule, key, id, std::move(text)});
  }

  bool passes() const noexcept { return problems_.empty(); }
  const std::vector<RestoreProblem>& problems() const noexcept { return problems_; }
  bool has(RestoreRule rule) const noexcept;
  // How many keys the restore takes over (or would, when the check passes).
  U32 keys() const noexcept { return keys_; }
  void keysIs(U32 keys) noexcept { keys_ = keys; }

  // "restores <n> key(s)" when the check passes; otherwise one line per problem,
  // "<rule>: <text>".
  std::string text() const;
  // "" when the check passes; otherwise text().
  std::string problem() const { return passes() ? std::string() : text(); }

  static constexpr std::string_view typeName() { return "TesselCentral::RestoreCheck"; }
  // An answer of the table, never an argument: parsing one always fails.
  static RestoreCheck fromText(std::string_view text);

 private:
  std::vector<RestoreProblem> problems_;
  U32 keys_ = 0;
};

// text().
std::ostream& operator<<(std::ostream& os, const RestoreCheck& check);

class HashEntryStatus;
// A result collection as a saved placement, keys in ascending order.
SavedPlacement savedPlacementOf(const HashEntryStatus& status);

}  // namespace TesselCentral
