// The client's requests (HashEntryConfig) and the library's results (HashEntryStatus):
// the two collections through which an agent and a table meet.
#pragma once

#include "MultiHashTable/MultiHashTableTypes.h"
#include "MultiHashTable/fwk/Collection.h"
#include "MultiHashTable/fwk/Entity.h"
#include "MultiHashTable/fwk/Notification.h"

namespace TesselCentral {

using Fwk::Ptr;

using EntryIdByKey = Fwk::HashMap<HashEntryKey, EntryId>;

// Requests and results

namespace detail {

// A key -> EntryId collection whose every real change is published on the owner's
// publisher as attribute 130, with the key and the previous value (null when new).
class PublishedEntryIds {
 public:
  explicit PublishedEntryIds(U32 collectionConstant) : members_(collectionConstant) {}

  const EntryIdByKey& members() const noexcept { return members_; }
  const EntryId* find(const HashEntryKey& key) const noexcept { return members_.find(key); }

  void is(const HashEntryKey& key, EntryId id, const Fwk::Publisher& publisher);
  EntryId del(const HashEntryKey& key, const Fwk::Publisher& publisher);
  // Removes the member whose value find() returned, with no change since.
  void delFound(const HashEntryKey& key, const EntryId* found, const Fwk::Publisher& publisher);
  void delAll(const Fwk::Publisher& publisher);
  void clearSilently() { members_.delAll(); }

 private:
  EntryIdByKey members_;
};

}  // namespace detail

// The client's requests: for each key, the EntryId it wants, or the invalid EntryId for
// "anywhere". Writing the same request twice is silent.
class HashEntryConfig : public Fwk::Entity {
 public:
  static constexpr Fwk::AttrId configAttrId = Fwk::firstOwnAttrId;

  static Ptr<HashEntryConfig> HashEntryConfigIs();

  // The requested id, or the invalid one when the key has no request.
  EntryId config(const HashEntryKey& key) const noexcept {
    const EntryId* id = config_.find(key);
    return id ? *id : EntryId();
  }
  // The raw lookup: null when the key has no request.
  const EntryId* configFind(const HashEntryKey& key) const noexcept { return config_.find(key); }
  bool configHas(const HashEntryKey& key) const noexcept { return config_.find(key) != nullptr; }
  const EntryIdByKey& configCollection() const noexcept { return config_.members(); }

  // Adds or changes a request; publishes only a real change.
  void configIs(const HashEntryKey& key, EntryId id) { config_.is(key, id, publisher_); }
  // Removes a request; returns it, or the invalid EntryId (and publishes nothing) if absent.
  EntryId configDel(const HashEntryKey& key) { return config_.del(key, publisher_); }
  // Removes every request: one publication per key, or none when nobody listens.
  void configDelAll() { config_.delAll(publisher_); }

  Fwk::Publisher& publisher() const noexcept { return publisher_; }
  const Fwk::TypeInfo* fwkType() const noexcept override;

  ~HashEntryConfig() override;

 private:
  HashEntryConfig();
  detail::PublishedEntryIds config_;
  mutable Fwk::Publisher publisher_;  // declared last: torn down before the collection
};

// The library's results: for each key the table handled, the EntryId where it stands,
// or the invalid EntryId when it found no room. Only the table writes it.
class HashEntryStatus : public Fwk::Entity {
 public:
  static constexpr Fwk::AttrId statusAttrId = Fwk::firstOwnAttrId;

  static Ptr<HashEntryStatus> HashEntryStatusIs();

  EntryId status(const HashEntryKey& key) const noexcept {
    const EntryId* id = status_.find(key);
    return id ? *id : EntryId();
  }
  // The raw lookup: tells a key stored with the invalid EntryId from an absent key.
  const EntryId* statusFind(const HashEntryKey& key) const noexcept { return status_.find(key); }
  bool statusHas(const HashEntryKey& key) const noexcept { return status_.find(key) != nullptr; }
  const EntryIdByKey& statusCollection() const noexcept { return status_.members(); }

  void statusIs(const HashEntryKey& key, EntryId id) { status_.is(key, id, publisher_); }
  EntryId statusDel(const HashEntryKey& key) { return status_.del(key, publisher_); }
  // statusDel of a key whose lookup the caller holds: `found` is what statusFind(key)
  // returned, with no status change since. Saves probing for the key a second time.
  void statusDelFound(const HashEntryKey& key, const EntryId* found) { status_.delFound(key, found, publisher_); }
  void statusDelAll() { status_.delAll(publisher_); }

  Fwk::Publisher& publisher() const noexcept { return publisher_; }
  const Fwk::TypeInfo* fwkType() const noexcept override;

  ~HashEntryStatus() override;

 private:
  HashEntryStatus();
  detail::PublishedEntryIds status_;
  mutable Fwk::Publisher publisher_;
};

Ptr<HashEntryConfig> hashEntryConfigFactory();
Ptr<HashEntryStatus> hashEntryStatusFactory();

}  // namespace TesselCentral
