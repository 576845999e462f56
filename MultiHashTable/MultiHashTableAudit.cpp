// Consistency audits: every invariant that the tables keep between operations, checked
// on demand. A switch engineer runs them from the tool; the fuzzers run them after every
// request. They read only, and report each violation as one line of text.
#include "MultiHashTable/MultiHashTable.h"

#include <sstream>

namespace TesselCentral {

namespace {

class Violations {
 public:
  template <class... Parts>
  void add(const Parts&... parts) {
    std::ostringstream os;
    (os << ... << parts);
    lines_.push_back(os.str());
  }
  std::vector<std::string> take() { return std::move(lines_); }

 private:
  std::vector<std::string> lines_;
};

}  // namespace

std::vector<std::string> MultiHashTableBase::audit() const { return {}; }

std::vector<std::string> MultiHashTable::audit() const {
  Violations v;
  const U32 capacity = tableCapacity();
  for (const auto& [id, key] : hashTableEntryCollection()) {
    if (id.value() >= capacity) v.add("hashTableEntry: id ", id, " is at or above the capacity ", capacity);
  }
  // A valid status names an id recorded for the key, or for a key with the same hashes
  // (the table treats those as one key).
  for (const auto& [key, id] : hashEntryStatus()->statusCollection()) {
    if (!id.isValid()) continue;
    const HashEntryKey* held = hashTableEntryFind(id);
    if (held == nullptr) {
      v.add("status: ", key, " names id ", id, ", which hashTableEntry does not record");
    } else if (!sameHashes(*held, key)) {
      v.add("status: ", key, " names id ", id, ", which hashTableEntry records for ", *held);
    }
  }
  // A key re-placed into a free slot before its own stays recorded at its old id as well,
  // and a requested id may be taken over by a key with the same hashes: the count of
  // recorded ids may stay below, never above, insertions less deletions.
  const U32 live = numInsertions() - numDeletions();
  if (hashTableEntryCollection().size() > live) {
    v.add("counters: ", hashTableEntryCollection().size(), " recorded ids but insertions - deletions is ", live);
  }
  return v.take();
}

namespace {

// keyToPos and posToKey are inverse to each other.
void auditPositionMaps(const MultiEntryTypeHashTable& t, Violations& v) {
  for (const auto& [key, pos] : t.keyToPosCollection()) {
    const HashEntryKey* at = t.posToKeyCollection().find(pos);
    if (at == nullptr || !(*at == key))
      v.add("keyToPos: ", key, " at 0x", std::hex, pos, std::dec, " has no matching posToKey");
  }
  for (const auto& [pos, key] : t.posToKeyCollection()) {
    const U32* at = t.keyToPosCollection().find(key);
    if (at == nullptr || *at != pos)
      v.add("posToKey: 0x", std::hex, pos, std::dec, " holds ", key, ", which keyToPos places elsewhere");
  }
}

// Each placed key's slots carry its type; every used slot belongs to a placed key; no
// bucket is left locked.
void auditBucketStates(const MultiEntryTypeHashTable& t, Violations& v) {
  // The state that the placed keys make, bucket by bucket, built as the bank builds it.
  std::vector<Fwk::HashMap<U32, BucketState>> expected;
  expected.reserve(t.numBanks());
  for (U32 b = 0; b < t.numBanks(); ++b) expected.emplace_back(b);
  for (const auto& [key, pos] : t.keyToPosCollection()) {
    const U32 bankId = positionBank(pos);
    const MultiEntryTypeBank* bank = bankId < t.numBanks() ? t.bankCollection().get(bankId).ptr() : nullptr;
    if (bank == nullptr) {
      v.add("keyToPos: ", key, " stands in bank ", bankId, ", which the table does not have");
      continue;
    }
    const U32 width = bank->entrySize(key.entryType());
    BucketState& e = *expected[bankId].findOrInsert(positionBucket(pos)).first;
    const U32 mask = bank->entryMask(key.entryType()) << (positionSlot(pos) & 31);
    e = e.with(key.entryType(), positionSlot(pos), mask, width);
  }
  for (U32 b = 0; b < t.numBanks(); ++b) {
    const MultiEntryTypeBank* bank = t.bankCollection().get(b).ptr();
    if (bank == nullptr) continue;
    for (const auto& [bucket, state] : bank->bucketCollection()) {
      const BucketState* e = expected[b].find(bucket);
      const U64 want = e ? e->word() : 0;
      if (state != want) {
        v.add("bank ", b, " bucket ", bucket, ": state 0x", std::hex, state, " but its keys make 0x", want, std::dec);
      }
    }
    for (const auto& [bucket, e] : expected[b]) {
      if (!bank->bucketHas(bucket)) {
        v.add("bank ", b, " bucket ", bucket, ": no state but its keys make 0x", std::hex, e.word(), std::dec);
      }
    }
    if (bank->lockedBucketss() != 0) v.add("bank ", b, ": ", bank->lockedBucketss(), " buckets left locked");
  }
}

// The status and hashTableEntry agree with the positions.
void auditResults(const MultiEntryTypeHashTable& t, Violations& v) {
  const HashEntryStatus& status = *t.hashEntryStatus();
  const HashEntryConfig* config = t.hashEntryConfig().ptr();
  for (const auto& [key, pos] : t.keyToPosCollection()) {
    const EntryId* id = status.statusFind(key);
    if (id == nullptr || !id->isValid()) {
      v.add("status: placed key ", key, " has no valid status");
      continue;
    }
    const bool requested = config != nullptr && config->config(key) == *id;
    if (t.entryIdHelper() && !requested && t.entryIdHelper()->entryIdOfPosition(pos) != *id) {
      v.add("status: ", key, " at 0x", std::hex, pos, std::dec, " has id ", *id, " but its position is id ",
            t.entryIdHelper()->entryIdOfPosition(pos));
    }
    const HashEntryKey* held = t.hashTableEntryFind(*id);
    if (held == nullptr || !(*held == key)) v.add("hashTableEntry: id ", *id, " does not record ", key);
  }
  for (const auto& [key, id] : status.statusCollection()) {
    if (id.isValid() && !t.keyToPosHas(key)) v.add("status: ", key, " has id ", id, " but no position");
  }
  for (const auto& [id, key] : t.hashTableEntryCollection()) {
    const EntryId* at = status.statusFind(key);
    if (at == nullptr || *at != id) v.add("hashTableEntry: id ", id, " records ", key, ", whose status differs");
  }
}

}  // namespace

std::vector<std::string> MultiEntryTypeHashTable::audit() const {
  Violations v;
  auditPositionMaps(*this, v);
  auditBucketStates(*this, v);
  auditResults(*this, v);
  const U32 live = numInsertions() - numDeletions();
  if (live != keyToPosCollection().size()) {
    v.add("counters: insertions - deletions is ", live, " but ", keyToPosCollection().size(), " keys are placed");
  }
  return v.take();
}

}  // namespace TesselCentral
