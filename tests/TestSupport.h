// Shared helpers of the unit tests: trace capture, status recording, the one-key-per-id
// check of every publication, and death-test text.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "MultiHashTable/MultiHashTable.h"
#include "MultiHashTable/fwk/Notification.h"
#include "MultiHashTable/fwk/Trace.h"

namespace TesselCentral::test {

// The keys of the tests, hashes first in the key's own order (crc16, then crc32). A
// single-width key is usually told apart by its fapId (1 unless given); a multi-width key
// by its width (fapId 0 unless given).
inline HashEntryKey key(U16 crc16, U32 crc32, U32 fapId = 1) {
  return HashEntryKey(crc16, crc32, fapId, HashEntryType::singleWide);
}
inline HashEntryKey key(U16 crc16, U32 crc32, HashEntryType type, U32 fapId = 0) {
  return HashEntryKey(crc16, crc32, fapId, type);
}

// Captures the library's trace at the given level mask for the life of the object.
class TraceCapture {
 public:
  explicit TraceCapture(U32 levelMask) : previousMask_(multiHashTableTrace().levelMask()) {
    multiHashTableTrace().sinkIs(&sink_);
    multiHashTableTrace().levelMaskIs(levelMask);
  }
  ~TraceCapture() {
    multiHashTableTrace().levelMaskIs(previousMask_);
    multiHashTableTrace().sinkIs(nullptr);
  }
  TraceCapture(const TraceCapture&) = delete;
  TraceCapture& operator=(const TraceCapture&) = delete;

  const Fwk::MemoryTraceSink& sink() const noexcept { return sink_; }
  std::vector<std::string> texts(unsigned level) const { return sink_.texts(level); }
  std::vector<std::string> texts() const { return sink_.texts(); }
  void clear() noexcept { sink_.clear(); }

 private:
  Fwk::MemoryTraceSink sink_;
  U32 previousMask_;
};

// The ids of a key's candidates, first tried first.
inline std::vector<U32> idsOf(const CandidateList& list) {
  std::vector<U32> ids;
  for (const Candidate& c : list) ids.push_back(c.id.value());
  return ids;
}

inline constexpr U32 levelBit(unsigned level) noexcept { return U32{1} << level; }

// Records every publication of a HashEntryStatus (or HashEntryConfig): the key, the
// new value as the collection holds it after the change, and the previous value.
class ChangeRecorder : public Fwk::Reactor {
 public:
  struct Change {
    HashEntryKey key;
    bool hadPrevious;
    EntryId previous;
    bool present;  // whether the key is in the collection after the change
    EntryId current;
    Fwk::AttrId attribute;
  };

  explicit ChangeRecorder(const HashEntryStatus& status) : status_(&status) { status.publisher().subscriberIs(*this); }
  explicit ChangeRecorder(const HashEntryConfig& config) : config_(&config) { config.publisher().subscriberIs(*this); }

  void onNotification(const Fwk::Notification& n) override {
    const auto& key = *static_cast<const HashEntryKey*>(n.key);
    const EntryId* now = status_ ? status_->statusFind(key) : config_->configFind(key);
    changes.push_back(Change{key, n.previous != nullptr,
                             n.previous ? *static_cast<const EntryId*>(n.previous) : EntryId(), now != nullptr,
                             now ? *now : EntryId(), n.attribute});
  }

  std::vector<Change> changes;

 private:
  const HashEntryStatus* status_ = nullptr;
  const HashEntryConfig* config_ = nullptr;
};

// At every publication, no two keys' results name one id, and every valid result names an
// id that records its key.
class OneKeyPerId : public Fwk::Reactor {
 public:
  OneKeyPerId(const HashEntryStatus& status, const MultiHashTableBase& table) : status_(status), table_(table) {
    status.publisher().subscriberIs(*this);
  }
  void onNotification(const Fwk::Notification&) override {
    ++publications;
    std::map<U32, HashEntryKey> holder;
    for (const auto& [k, id] : status_.statusCollection()) {
      if (!id.isValid()) continue;
      const auto [at, added] = holder.emplace(id.value(), k);
      if (!added) violations.push_back("id " + std::to_string(id.value()) + " is published for two keys");
      if (!(table_.hashTableEntry(id) == k))
        violations.push_back("id " + std::to_string(id.value()) + " does not hold its key");
    }
  }
  int publications = 0;
  std::vector<std::string> violations;

 private:
  const HashEntryStatus& status_;
  const MultiHashTableBase& table_;
};

// One step of a random client: one time in four the deletion of a placed key, otherwise a
// request anywhere for a key with new hashes, withdrawn when it finds no room. makeKey(crc16,
// crc32) makes the key.
template <class MakeKey>
void randomRequestOrDeletion(std::mt19937& rng, HashEntryConfig& config, const HashEntryStatus& status,
                             std::vector<HashEntryKey>& placed, std::set<std::pair<U16, U32>>& used, MakeKey makeKey) {
  if (!placed.empty() && rng() % 4 == 0) {
    const std::size_t i = rng() % placed.size();
    config.configDel(placed[i]);
    placed[i] = placed.back();
    placed.pop_back();
    return;
  }
  const auto crc16 = static_cast<U16>(1 + rng() % 4000);
  const auto crc32 = static_cast<U32>(1 + rng());
  if (!used.insert({crc16, crc32}).second) return;
  const HashEntryKey k = makeKey(crc16, crc32);
  config.configIs(k, EntryId());
  if (status.status(k).isValid())
    placed.push_back(k);
  else
    config.configDel(k);
}

// Escapes a text so that a death test matches it literally.
inline std::string literal(std::string_view text) {
  std::string out;
  for (char c : text) {
    if (std::string_view("\\^$.|?*+()[]{}").find(c) != std::string_view::npos) out += '\\';
    out += c;
  }
  return out;
}

// The death-test pattern of a failed assertion with the given condition text.
inline std::string assertionFailure(std::string_view condition) {
  return "Assertion `" + literal(condition) + "' failed";
}

}  // namespace TesselCentral::test
