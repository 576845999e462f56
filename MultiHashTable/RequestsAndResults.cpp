// The request and result collections: every real change of a member is published to the
// collection's subscribers, with the key and its previous value.
#include "MultiHashTable/RequestsAndResults.h"

#include "MultiHashTable/fwk/TypeInfo.h"

namespace TesselCentral {

namespace {

// Each keyed collection mixes its own constant into the process seed, so that
// collections holding the same keys spread them differently.
constexpr U32 configSeed = 0xC0F16A11u;
constexpr U32 statusSeed = 0x57A7F5E5u;

}  // namespace

namespace detail {

void PublishedEntryIds::is(const HashEntryKey& key, EntryId id, const Fwk::Publisher& publisher) {
  auto [value, added] = members_.findOrInsert(key);
  if (added) {
    *value = id;
    publisher.publish(HashEntryConfig::configAttrId, &key, nullptr);
    return;
  }
  if (*value == id) return;
  const EntryId previous = *value;
  *value = id;
  publisher.publish(HashEntryConfig::configAttrId, &key, &previous);
}

EntryId PublishedEntryIds::del(const HashEntryKey& key, const Fwk::Publisher& publisher) {
  EntryId removed;
  if (!members_.delInto(key, removed)) return EntryId();
  publisher.publish(HashEntryConfig::configAttrId, &key, &removed);
  return removed;
}

void PublishedEntryIds::delFound(const HashEntryKey& key, const EntryId* found, const Fwk::Publisher& publisher) {
  const EntryId removed = members_.delFound(found);
  publisher.publish(HashEntryConfig::configAttrId, &key, &removed);
}

void PublishedEntryIds::delAll(const Fwk::Publisher& publisher) {
  if (publisher.subscribers() == 0) {
    members_.delAll();
    return;
  }
  // The iterator survives the deletion of the member it stands on.
  for (auto it = members_.begin(); it != members_.end(); ++it) {
    const HashEntryKey key = it->key;
    del(key, publisher);
  }
}

}  // namespace detail

HashEntryConfig::HashEntryConfig() : config_(configSeed) {}

HashEntryConfig::~HashEntryConfig() { notificationActiveIs(false); }

Ptr<HashEntryConfig> HashEntryConfig::HashEntryConfigIs() { return Fwk::adoptTracked(new HashEntryConfig()); }

Ptr<HashEntryConfig> hashEntryConfigFactory() { return HashEntryConfig::HashEntryConfigIs(); }

HashEntryStatus::HashEntryStatus() : status_(statusSeed) {}

HashEntryStatus::~HashEntryStatus() { notificationActiveIs(false); }

Ptr<HashEntryStatus> HashEntryStatus::HashEntryStatusIs() { return Fwk::adoptTracked(new HashEntryStatus()); }

Ptr<HashEntryStatus> hashEntryStatusFactory() { return HashEntryStatus::HashEntryStatusIs(); }

}  // namespace TesselCentral
