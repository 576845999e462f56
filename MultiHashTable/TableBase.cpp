// The table base: geometry, records and counters, and the config reaction that turns
// every changed request into a placement, a removal or nothing.
#include "MultiHashTable/TableBase.h"

#include <sstream>
#include <string>
#include <utility>

#include "MultiHashTable/fwk/Assert.h"
#include "MultiHashTable/fwk/TypeInfo.h"
#include "MultiHashTable/internal/ConditionTexts.h"
#include "MultiHashTable/internal/Diagnostics.h"

namespace TesselCentral {

namespace {

// Each keyed collection mixes its own constant into the process seed, so that
// collections holding the same keys spread them differently.
constexpr U32 hashTableEntrySeed = 0xE27E1D00u;

}  // namespace

MultiHashTableBase::MultiHashTableBase(U32 numBanks, U32 numBuckets, U32 numBucketEntries,
                                       Ptr<const HashEntryConfig> hashEntryConfig, Ptr<HashEntryStatus> hashEntryStatus,
                                       U32 maxRecursiveSteps)
    : numBanks_(numBanks),
      numBuckets_(numBuckets),
      numBucketEntries_(numBucketEntries),
      hashEntryConfig_(std::move(hashEntryConfig)),
      hashEntryStatus_(std::move(hashEntryStatus)),
      maxRecursiveSteps_(maxRecursiveSteps),
      statistics_(numBanks),
      hashTableEntry_(denseSlotCount(), hashTableEntrySeed) {
  if (hashEntryConfig_) hashEntryConfig_->publisher().subscriberIs(*this);
}

MultiHashTableBase::~MultiHashTableBase() {
  retireReactors();
  if (subscribed()) hashEntryConfig_->publisher().subscriberDel(*this);
  hashTableEntry_.delAll();
  hashEntryStatus_ = nullptr;
  hashEntryConfig_ = nullptr;
}

void MultiHashTableBase::retireReactors() {
  if (notificationActive()) MultiHashTableBase::hasNotificationActiveIs(false);
  reactorsRetiredIs(true);
}

bool MultiHashTableBase::subscribed() const noexcept {
  return hashEntryConfig_ && hashEntryConfig_->publisher().subscriberHas(*this);
}

Ptr<MultiHashTableBase> MultiHashTableBase::MultiHashTableBaseIs(U32 numBanks, U32 numBuckets, U32 numBucketEntries,
                                                                 Ptr<const HashEntryConfig> hashEntryConfig,
                                                                 Ptr<HashEntryStatus> hashEntryStatus,
                                                                 U32 maxRecursiveSteps) {
  return Fwk::adoptTracked(new MultiHashTableBase(numBanks, numBuckets, numBucketEntries, std::move(hashEntryConfig),
                                                  std::move(hashEntryStatus), maxRecursiveSteps));
}

Ptr<MultiHashTableBase> multiHashTableBaseFactory(U32 numBanks, U32 numBuckets, U32 numBucketEntries,
                                                  Ptr<const HashEntryConfig> hashEntryConfig,
                                                  Ptr<HashEntryStatus> hashEntryStatus, U32 maxRecursiveSteps) {
  return MultiHashTableBase::MultiHashTableBaseIs(numBanks, numBuckets, numBucketEntries, std::move(hashEntryConfig),
                                                  std::move(hashEntryStatus), maxRecursiveSteps);
}

void MultiHashTableBase::hasNotificationActiveIs(bool active) {
  if (active == notificationActive()) return;
  notificationActiveIs(active);
  if (!hashEntryConfig_) return;
  Fwk::Publisher& publisher = hashEntryConfig_->publisher();
  if (active) {
    if (!publisher.subscriberHas(*this)) publisher.subscriberIs(*this);
  } else {
    if (publisher.subscriberHas(*this)) publisher.subscriberDel(*this);
  }
}

void MultiHashTableBase::hashEntryConfigDispatch(const Fwk::Notification& n) noexcept {
  if (n.attribute != HashEntryConfig::configAttrId || reactorsRetired()) return;
  handleHashUpdate(*static_cast<const HashEntryKey*>(n.key));
}

namespace {

// Counts the reactions under way, so that a request written from inside a status
// notification can be told apart.
class ReactionScope {
 public:
  explicit ReactionScope(U32& depth) noexcept : depth_(depth) { ++depth_; }
  ~ReactionScope() { --depth_; }
  ReactionScope(const ReactionScope&) = delete;
  ReactionScope& operator=(const ReactionScope&) = delete;

 private:
  U32& depth_;
};

}  // namespace

void MultiHashTableBase::handleHashUpdate(const HashEntryKey& key) {
  MHT_TRACE(1, "MultiHashTableBase::"
                   << "handleHashUpdate"
                   << " key: " << key);
  const ReactionScope scope(reactionDepth_);
  const EntryId* requested = hashEntryConfig_->configFind(key);
  if (requested == nullptr) {
    MHT_ASSERT_TEXT(hashEntryStatus()->statusHas(key), condition::removedKeyWasHandled);
    removeEntry(key);
    return;
  }
  const EntryId wanted = *requested;
  if (wanted.isValid()) {
    if (hashEntryStatus_->status(key) == wanted) return;
    insertEntryWithId(key, wanted);
    return;
  }
  insertEntry(key, noBankToAvoid, maxRecursiveSteps_);
  checkSanity();
}

void MultiHashTableBase::handleHashUpdate() {
  MHT_TRACE(1, "handleHashUpdate");
  for (const auto& request : hashEntryConfig_->configCollection()) {
    const HashEntryKey key = request.key;
    handleHashUpdate(key);
  }
}

U32 MultiHashTableBase::insertEntry(const HashEntryKey&, U32, U32) {
  MHT_ASSERT_TEXT(false, condition::derivedTableNeeded);
  return 0;
}

bool MultiHashTableBase::checkEntryIdValidity(const HashEntryKey&, EntryId) {
  MHT_ASSERT_TEXT(false, condition::derivedTableNeeded);
  return false;
}

void MultiHashTableBase::insertEntryWithId(const HashEntryKey&, EntryId) {
  MHT_ASSERT_TEXT(false, condition::derivedTableNeeded);
}

void MultiHashTableBase::removeEntry(const HashEntryKey&) { MHT_ASSERT_TEXT(false, condition::derivedTableNeeded); }

CandidateList MultiHashTableBase::candidates(const HashEntryKey&) const { return {}; }

void MultiHashTableBase::checkSanity() {
  MHT_TRACE(1, "virtual void TesselCentral::MultiHashTableBase::checkSanity()");
}

// ---------------------------------------------------------------------------------------
// What a write would do, told before it is made, and the resyncs

using detail::idText;
using detail::keyText;

bool MultiHashTableBase::listening() const noexcept { return subscribed() && !reactorsRetired(); }

ConfigurationCheck MultiHashTableBase::configurationCheck() const {
  ConfigurationCheck check;
  detail::checkTableFigures(numBanks_, numBuckets_, numBucketEntries_, check);
  return check;
}

namespace {

// A request that reaches the table reaches its configuration too: the verdict keeps the
// worse of the two.
// A request written while the table reacts to another is reacted to in the middle of that
// placement, whose remaining moves and records do not know of it.
RequestCheck withinReaction(RequestCheck verdict, bool reacting) {
  if (!reacting || verdict.outcome() == RequestOutcome::unchanged) return verdict;
  verdict.worsen(RequestCheck::hazardous(
      "the table is placing another key: a write from inside its status notification is reacted to in the middle "
      "of that placement, whose remaining moves may overwrite what this one records, or stop the agent"));
  return verdict;
}

RequestCheck withConfiguration(RequestCheck verdict, const ConfigurationCheck& configuration) {
  if (configuration.passes() || verdict.outcome() == RequestOutcome::unchanged ||
      verdict.outcome() == RequestOutcome::noReaction) {
    return verdict;
  }
  verdict.worsen(configuration.requestVerdict());
  return verdict;
}

}  // namespace

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
  return withinReaction(withConfiguration(reactionCheck(key, id), configurationCheck()), reacting());
}

RequestCheck MultiHashTableBase::reactionCheck(const HashEntryKey& key, EntryId requested) const {
  if (!requested.isValid()) return checkPlacement(key);
  if (hashEntryStatus_->status(key) == requested) {
    return RequestCheck::noReaction("the key already stands at id " + idText(requested));
  }
  return checkPlacementAt(key, requested);
}

RequestCheck MultiHashTableBase::placementAtCheck(const HashEntryKey& key, EntryId id) const {
  return withConfiguration(checkPlacementAt(key, id), configurationCheck());
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
    return RequestCheck::stopsNow(condition::removedKeyWasHandled,
                                  "the table never handled this key (its request was written while the table did not "
                                  "listen, or before the table existed), so it has nothing to remove");
  }
  return withinReaction(withConfiguration(checkRemoval(key), configurationCheck()), reacting());
}

RequestCheck MultiHashTableBase::checkPlacementAt(const HashEntryKey&, EntryId) const {
  return RequestCheck::stopsNow(condition::derivedTableNeeded, "the table places nothing itself");
}

RequestCheck MultiHashTableBase::checkPlacement(const HashEntryKey&) const {
  return RequestCheck::stopsNow(condition::derivedTableNeeded, "the table places nothing itself");
}

RequestCheck MultiHashTableBase::checkRemoval(const HashEntryKey&) const {
  return RequestCheck::stopsNow(condition::derivedTableNeeded, "the table removes nothing itself");
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
  if (const ConfigurationCheck configuration = configurationCheck(); !configuration.passes()) {
    return configuration.requestVerdict();
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
  const ReactionScope scope(reactionDepth_);
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
    // A removal that leaves another id recorded for the key is made: the releases below
    // take that id too.
    if (RequestCheck verdict = checkRemoval(key); verdict.fatal()) {
      keep(key, EntryId(), "its request is gone, but " + verdict.problem());
      continue;
    }
    const EntryId result = hashEntryStatus_->status(key);
    MHT_TRACE_IN("reconcile", 2,
                 "MultiHashTableBase::"
                     << "reconcile"
                     << " removes the result of key: " << key << " id: " << result << " reason: its request is gone");
    removeEntry(key);
    report.removed(RemovedResult{key, result});
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
      if (requested.isValid()) statistics_.failed(PlacementFailure::requestedIdRefused);
      keep(key, requested, verdict.problem());
      continue;
    }
    handleHashUpdate(key);
    report.actedOn();
  }

  // Ids recorded for keys that no result places there, last: the removals above may leave
  // some behind.
  releaseUnplacedRecords(report);
  return report;
}

AuditReport MultiHashTableBase::auditReport() const {
  AuditReport report;
  for (std::string& line : audit()) report.add(AuditKind::corruption, std::move(line));
  auditHazards(report);
  return report;
}

void MultiHashTableBase::auditHazards(AuditReport& report) const {
  if (!hashEntryConfig_) return;
  for (const auto& result : hashEntryStatus_->statusCollection()) {
    if (hashEntryConfig_->configHas(result.key)) continue;
    std::ostringstream text;
    text << "key " << result.key << " has the result " << result.value << " but no request";
    report.add(AuditKind::resultWithoutRequest, text.str(), result.value);
  }
}

}  // namespace TesselCentral
