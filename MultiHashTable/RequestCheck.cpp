// The request check, the resync check and reconcile: the table base's part. The derived
// tables say what a placement or a removal would do (checkPlacementAt, checkPlacement,
// checkRemoval); the base applies the config reaction's decision table around them.
#include "RequestCheck.h"
#include "internal/Diagnostics.h"

#include <ostream>
#include <sstream>
#include <utility>

#include "MultiHashTable.h"
#include "fwk/Assert.h"
#include "fwk/Error.h"
#include "fwk/Trace.h"

namespace TesselCentral {

std::string_view outcomeName(RequestOutcome outcome) noexcept {
  switch (outcome) {
    case RequestOutcome::unchanged:
      return "unchanged";
    case RequestOutcome::noReaction:
      return "no reaction";
    case RequestOutcome::accepted:
      return "accepted";
    case RequestOutcome::hazardous:
      return "hazardous";
    case RequestOutcome::stopsLater:
      return "stops a later request";
    case RequestOutcome::stopsNow:
      return "stops the agent";
  }
  return "accepted";
}

namespace {

// How bad an outcome is, for keeping the worst of several findings.
int severity(RequestOutcome outcome) noexcept {
  switch (outcome) {
    case RequestOutcome::stopsNow:
      return 3;
    case RequestOutcome::stopsLater:
      return 2;
    case RequestOutcome::hazardous:
      return 1;
    default:
      return 0;
  }
}

}  // namespace

void RequestCheck::worsen(RequestCheck other) {
  if (severity(other.outcome_) > severity(outcome_)) *this = std::move(other);
}

std::string RequestCheck::problem() const { return passes() ? std::string() : text(); }

std::string RequestCheck::text() const {
  std::string s(outcomeName(outcome_));
  if (!condition_.empty()) s += ": assertion \"" + condition_ + "\"";
  if (!reason_.empty()) s += (condition_.empty() ? ": " : ", because ") + reason_;
  return s;
}

RequestCheck RequestCheck::fromText(std::string_view text) {
  // An answer of the table, never an argument: no text is one.
  throw Fwk::SyntaxError("nothing: a request check is an answer of the table", text, 0);
}

std::ostream& operator<<(std::ostream& os, const RequestCheck& check) { return os << check.text(); }

ReconcileReport ReconcileReport::fromText(std::string_view text) {
  throw Fwk::SyntaxError("nothing: a reconcile report is an answer of the table", text, 0);
}

std::ostream& operator<<(std::ostream& os, const ReconcileReport& report) {
  os << "acted on " << report.acted() << " key(s), kept " << report.kept().size();
  for (const KeptRequest& k : report.kept()) os << "\n  " << k.key << " requested " << k.requested << ": " << k.reason;
  return os;
}

// ---------------------------------------------------------------------------------------
// The base's part of the checks

namespace detail {

std::string idText(EntryId id) { return id.isValid() ? std::to_string(id.value()) : std::string("any"); }

std::string keyText(const HashEntryKey& key) {
  std::ostringstream os;
  os << key;
  return os.str();
}

std::string bankText(U32 bank) { return "bank " + std::to_string(bank); }

RequestCheck noBucketSelected(U32 bank) {
  return RequestCheck::stopsNow("0", bankText(bank) + "'s hash function hashLsb selects no bucket");
}

}  // namespace detail

using detail::idText;
using detail::keyText;

bool MultiHashTableBase::listening() const noexcept { return subscribed() && !reactorsRetired(); }

RequestCheck MultiHashTableBase::requestCheck(const HashEntryKey& key, EntryId id) const {
  if (!hashEntryConfig_) return RequestCheck::noReaction("the table has no request collection");
  if (const EntryId* current = hashEntryConfig_->configFind(key); current != nullptr && *current == id) {
    return RequestCheck::unchanged("the request collection already holds " + idText(id) + " for the key");
  }
  if (!listening()) {
    return RequestCheck::noReaction(
        "the table does not listen to its requests: the request waits for a resync or a "
        "reconcile");
  }
  return reactionCheck(key, id);
}

RequestCheck MultiHashTableBase::reactionCheck(const HashEntryKey& key, EntryId requested) const {
  if (!requested.isValid()) return checkPlacement(key);
  if (hashEntryStatus_->status(key) == requested) {
    return RequestCheck::noReaction("the key already stands at id " + idText(requested));
  }
  return checkPlacementAt(key, requested);
}

RequestCheck MultiHashTableBase::removalCheck(const HashEntryKey& key) const {
  if (!hashEntryConfig_) return RequestCheck::noReaction("the table has no request collection");
  if (!hashEntryConfig_->configHas(key)) return RequestCheck::unchanged("the key has no request: nothing is published");
  if (!listening()) {
    return RequestCheck::noReaction(
        "the table does not listen to its requests: the key keeps its place until a "
        "reconcile");
  }
  if (!hashEntryStatus_->statusHas(key)) {
    return RequestCheck::stopsNow("hashEntryStatus()->statusHas( key )",
                                  "the table never handled this key (its request was written while the table did not "
                                  "listen, or before the table existed), so it has nothing to remove");
  }
  return checkRemoval(key);
}

RequestCheck MultiHashTableBase::checkPlacementAt(const HashEntryKey&, EntryId) const {
  return RequestCheck::stopsNow("0 && \"Derived class needs to implement this\"", "the table places nothing itself");
}

RequestCheck MultiHashTableBase::checkPlacement(const HashEntryKey&) const {
  return RequestCheck::stopsNow("0 && \"Derived class needs to implement this\"", "the table places nothing itself");
}

RequestCheck MultiHashTableBase::checkRemoval(const HashEntryKey&) const {
  return RequestCheck::stopsNow("0 && \"Derived class needs to implement this\"", "the table removes nothing itself");
}

Ptr<MultiHashTableBase> MultiHashTableBase::scratchCopy(const Ptr<const HashEntryConfig>&,
                                                        const Ptr<HashEntryStatus>&) const {
  return {};
}

namespace {

// Silences the library's trace for a dry run, so that a check leaves no trace of its own.
class TraceSilence {
 public:
  TraceSilence() noexcept : previous_(multiHashTableTrace().levelMask()) { multiHashTableTrace().levelMaskIs(0); }
  ~TraceSilence() { multiHashTableTrace().levelMaskIs(previous_); }
  TraceSilence(const TraceSilence&) = delete;
  TraceSilence& operator=(const TraceSilence&) = delete;

 private:
  U32 previous_;
};

// Drops a scratch copy's links to itself (a multi-width table and its helper hold each
// other) on every way out of a dry run.
class ScratchRelease {
 public:
  explicit ScratchRelease(MultiHashTableBase& table) noexcept : table_(table) {}
  ~ScratchRelease() { table_.scratchRelease(); }
  ScratchRelease(const ScratchRelease&) = delete;
  ScratchRelease& operator=(const ScratchRelease&) = delete;

 private:
  MultiHashTableBase& table_;
};

}  // namespace

RequestCheck MultiHashTableBase::resyncCheck() const {
  if (!hashEntryConfig_) {
    return RequestCheck::stopsNow("hashEntryConfig()", "the table has no request collection to resync from");
  }
  // The resync runs on a scratch copy: its placements may move keys, and whether a later
  // key stops depends on what the earlier ones did.
  const TraceSilence silence;
  Ptr<HashEntryConfig> config = hashEntryConfigFactory();
  for (const auto& request : hashEntryConfig_->configCollection()) config->configIs(request.key, request.value);
  Ptr<HashEntryStatus> status = hashEntryStatusFactory();
  for (const auto& result : hashEntryStatus_->statusCollection()) status->statusIs(result.key, result.value);
  Ptr<MultiHashTableBase> copy = scratchCopy(config, status);
  if (!copy) return checkPlacement(HashEntryKey());
  const ScratchRelease release(*copy);
  // The copy makes room the way this table does, or its placements would not be this one's.
  copy->moveSearchIs(moveSearch());

  // Keys in the order of the resync's own walk, which is the order of this collection.
  RequestCheck worst = RequestCheck::accepted("every request is placed again without stopping");
  for (const auto& request : hashEntryConfig_->configCollection()) {
    const HashEntryKey key = request.key;
    RequestCheck verdict = copy->reactionCheck(key, request.value);
    if (!verdict.passes()) {
      RequestCheck atKey(verdict.outcome(), verdict.condition(),
                         "at key " + keyText(key) + " requested " + idText(request.value) + ": " + verdict.reason());
      if (verdict.outcome() == RequestOutcome::stopsNow) return atKey;
      worst.worsen(std::move(atKey));
    }
    const Fwk::AssertionTrap trap;
    try {
      copy->handleHashUpdate(key);
    } catch (const Fwk::AssertionStopped& stop) {
      return RequestCheck::stopsNow(stop.condition, "at key " + keyText(key) + " requested " + idText(request.value) +
                                                        ": the placement stops on an entry left by an earlier request");
    }
  }
  return worst;
}

ReconcileReport MultiHashTableBase::reconcile() {
  MHT_TRACE(1, "MultiHashTableBase::"
                   << "reconcile");
  ReconcileReport report;
  if (!hashEntryConfig_) return report;
  const auto keep =
      [&](const HashEntryKey& key, EntryId requested, std::string reason) {
        MHT_TRACE_IN("reconcile", 2,
                     "MultiHashTableBase::"
                         << "reconcile"
                         << " keeps key: " << key << " requested: " << requested << " reason: " << reason);
        report.kept(KeptRequest{key, requested, std::move(reason)});
      };

  // Results whose request is gone: what the request's deletion would have done.
  std::vector<HashEntryKey> withoutRequest;
  for (const auto& result : hashEntryStatus_->statusCollection()) {
    if (!hashEntryConfig_->configHas(result.key)) withoutRequest.push_back(result.key);
  }
  for (const HashEntryKey& key : withoutRequest) {
    if (RequestCheck verdict = checkRemoval(key); !verdict.passes()) {
      keep(key, EntryId(), "its request is gone, but " + verdict.problem());
      continue;
    }
    removeEntry(key);
    report.actedOn();
  }

  // Requests whose result is not in line with them.
  for (const auto& request : hashEntryConfig_->configCollection()) {
    const HashEntryKey key = request.key;
    const EntryId requested = request.value;
    const EntryId* result = hashEntryStatus_->statusFind(key);
    if (result != nullptr && (!requested.isValid() || *result == requested)) continue;
    if (result != nullptr && result->isValid()) {
      keep(key, requested,
           "it stands at id " + idText(*result) + ", where a move took it from its requested id; it stays there");
      continue;
    }
    if (RequestCheck verdict = reactionCheck(key, requested); !verdict.passes()) {
      keep(key, requested, verdict.problem());
      continue;
    }
    handleHashUpdate(key);
    report.actedOn();
  }
  return report;
}

}  // namespace TesselCentral
