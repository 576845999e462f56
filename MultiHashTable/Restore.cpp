// Taking over a saved placement: the check shared by both tables, its result and its text.
#include "MultiHashTable/Restore.h"

#include <algorithm>
#include <limits>
#include <ostream>
#include <sstream>
#include <unordered_map>

#include "MultiHashTable/TableBase.h"
#include "MultiHashTable/fwk/Error.h"
#include "MultiHashTable/internal/Diagnostics.h"

namespace TesselCentral {

std::string_view restoreRuleName(RestoreRule rule) noexcept {
  switch (rule) {
    case RestoreRule::configuration:
      return "configuration";
    case RestoreRule::tableNotEmpty:
      return "table not empty";
    case RestoreRule::savedTwice:
      return "saved twice";
    case RestoreRule::noRequest:
      return "no request";
    case RestoreRule::notCandidate:
      return "not a candidate";
    case RestoreRule::notAligned:
      return "not aligned";
    case RestoreRule::reservedId:
      return "reserved id";
    case RestoreRule::sharedId:
      return "shared id";
    case RestoreRule::overlappingRun:
      return "overlapping run";
  }
  return "configuration";
}

bool RestoreCheck::has(RestoreRule rule) const noexcept {
  return std::any_of(problems_.begin(), problems_.end(), [rule](const RestoreProblem& p) { return p.rule == rule; });
}

std::string RestoreCheck::text() const {
  if (passes()) return "restores " + std::to_string(keys_) + " key(s)";
  std::string out;
  for (const RestoreProblem& p : problems_) {
    if (!out.empty()) out += '\n';
    out += std::string(restoreRuleName(p.rule)) + ": " + p.text;
  }
  return out;
}

RestoreCheck RestoreCheck::fromText(std::string_view text) {
  throw Fwk::SyntaxError("nothing: a restore check is an answer of the table", text, 0);
}

std::ostream& operator<<(std::ostream& os, const RestoreCheck& check) { return os << check.text(); }

SavedPlacement savedPlacementOf(const HashEntryStatus& status) {
  SavedPlacement saved;
  saved.reserve(status.statusCollection().size());
  for (const auto& [key, id] : status.statusCollection()) saved.emplace_back(key, id);
  std::sort(saved.begin(), saved.end());
  return saved;
}

namespace {

std::string keyAt(const HashEntryKey& key, EntryId id) {
  return "key " + detail::keyText(key) + " at id " + std::to_string(id.value());
}

// Which saved key covers each slot id, by the key's index in the placement: an array for
// the table's ids, a map for the rare id past them.
class SlotOwners {
 public:
  static constexpr std::size_t none = std::numeric_limits<std::size_t>::max();

  explicit SlotOwners(std::size_t denseSlots) : dense_(denseSlots, none) {}

  // The key that already covers the slot, or none after taking it for `owner`.
  std::size_t take(U32 slot, std::size_t owner) {
    std::size_t& held = slot < dense_.size() ? dense_[slot] : spill_.try_emplace(slot, none).first->second;
    if (held != none) return held;
    held = owner;
    return none;
  }

 private:
  std::vector<std::size_t> dense_;
  std::unordered_map<U32, std::size_t> spill_;
};

}  // namespace

RestoreCheck MultiHashTableBase::checkRestore(const SavedPlacement& saved, std::vector<Candidate>* runs) const {
  RestoreCheck check;
  // A table that cannot serve its requests gives no key a place to take over.
  const ConfigurationCheck configuration = configurationCheck();
  for (const ConfigurationProblem& problem : configuration.problems()) {
    check.add(RestoreRule::configuration, problem.text());
  }
  if (!configuration.passes()) return check;

  const std::size_t results = hashEntryStatus() ? hashEntryStatus()->statusCollection().size() : 0;
  const std::size_t records = hashTableEntryCollection().size();
  if (results != 0 || records != 0) {
    check.add(RestoreRule::tableNotEmpty, "the table holds " + std::to_string(results) + " result(s) and " +
                                              std::to_string(records) +
                                              " recorded id(s): a restore takes over an empty table");
  }

  if (runs != nullptr) runs->assign(saved.size(), Candidate{});
  Fwk::HashMap<HashEntryKey, std::size_t> seen;
  seen.reserve(saved.size());
  SlotOwners owners(denseSlotCount());
  for (std::size_t i = 0; i < saved.size(); ++i) {
    const auto& [key, id] = saved[i];
    if (const std::size_t* first = seen.find(key)) {
      check.add(RestoreRule::savedTwice,
                "key " + detail::keyText(key) + " is saved at id " + detail::idText(saved[*first].second) +
                    " and again at id " + detail::idText(id),
                key, id);
      continue;
    }
    seen.is(key, i);
    if (!hashEntryConfig() || !hashEntryConfig()->configHas(key)) {
      check.add(RestoreRule::noRequest,
                "key " + detail::keyText(key) + " saved at id " + detail::idText(id) +
                    " has no request: write every saved key's request before the restore",
                key, id);
    }
    if (!id.isValid()) continue;
    Candidate run;
    if (!restoredRun(key, id, run, check)) continue;
    if (runs != nullptr) (*runs)[i] = run;
    for (U32 slot = 0; slot < run.width; ++slot) {
      const std::size_t other = owners.take(id.value() + slot, i);
      if (other == SlotOwners::none) continue;
      const auto& [otherKey, otherId] = saved[other];
      if (otherId == id) {
        check.add(RestoreRule::sharedId,
                  keyAt(key, id) + ": key " + detail::keyText(otherKey) + " is saved at the same id", key, id);
      } else {
        check.add(
            RestoreRule::overlappingRun,
            keyAt(key, id) + " covers id " + std::to_string(id.value() + slot) + " of " + keyAt(otherKey, otherId), key,
            id);
      }
      break;
    }
  }
  if (check.passes()) check.keysIs(static_cast<U32>(saved.size()));
  return check;
}

RestoreCheck MultiHashTableBase::restoreCheck(const SavedPlacement& saved) const {
  return checkRestore(saved, nullptr);
}

RestoreCheck MultiHashTableBase::restoreCheck(Ptr<HashEntryStatus> saved) const {
  return restoreCheck(saved ? savedPlacementOf(*saved) : SavedPlacement());
}

RestoreCheck MultiHashTableBase::restore(const SavedPlacement& saved) {
  std::vector<Candidate> runs;
  RestoreCheck check = checkRestore(saved, &runs);
  MHT_TRACE(1, "MultiHashTableBase::"
                   << "restore"
                   << " keys: " << saved.size() << " refused: " << check.problems().size());
  if (!check.passes()) return check;
  HashEntryStatus& status = *hashEntryStatus();
  for (std::size_t i = 0; i < saved.size(); ++i) {
    const auto& [key, id] = saved[i];
    if (id.isValid()) {
      restoreRun(key, id, runs[i]);
      numInsertionsInc(1);
    }
    status.statusIs(key, id);
  }
  return check;
}

RestoreCheck MultiHashTableBase::restore(Ptr<HashEntryStatus> saved) {
  return restore(saved ? savedPlacementOf(*saved) : SavedPlacement());
}

bool MultiHashTableBase::restoredRun(const HashEntryKey& key, EntryId id, Candidate& run, RestoreCheck& check) const {
  for (const Candidate& place : candidates(key)) {
    if (place.id != id) continue;
    run = place;
    return true;
  }
  check.add(RestoreRule::notCandidate, keyAt(key, id) + ": the table never places the key at that id", key, id);
  return false;
}

void MultiHashTableBase::restoreRun(const HashEntryKey& key, EntryId id, const Candidate&) {
  hashTableEntryIs(id, key);
}

}  // namespace TesselCentral
