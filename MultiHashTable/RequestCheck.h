// What a client's write would do, told before the client makes it.
//
// A table reacts to every request inside the client's write, and some requests stop the
// agent by design: a requested id that is not one of the key's candidates, an id that
// another key holds, the removal of a key that the table never handled. Others are
// accepted but leave the table where a later placement stops (a wide key at a slot where
// the bucket walk cannot find its start), or publish an id at which another key may be
// published too. A RequestCheck names which, with the assertion's condition text and the
// reason in the client's terms, so that an agent can refuse such a write, or log it,
// instead of finding out from a core file.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "MultiHashTable/AuditReport.h"
#include "MultiHashTable/MultiHashTableTypes.h"

namespace TesselCentral {

enum class RequestOutcome : U8 {
  unchanged,   // the request collection already holds that value: nothing is published
  noReaction,  // published, but the table changes nothing
  accepted,    // the table places, moves or removes as the request asks
  hazardous,   // accepted, but the published id is one at which another key may be published
  stopsLater,  // accepted, but a later placement may stop the agent on an assertion
  stopsNow,    // the write stops the agent on an assertion
  unserved,    // accepted, but the table's configuration gives the key less room than its shape promises
};

std::string_view outcomeName(RequestOutcome outcome) noexcept;

class RequestCheck {
 public:
  RequestCheck() = default;
  RequestCheck(RequestOutcome outcome, std::string condition, std::string reason)
      : outcome_(outcome), condition_(std::move(condition)), reason_(std::move(reason)) {}

  static RequestCheck unchanged(std::string reason) { return {RequestOutcome::unchanged, {}, std::move(reason)}; }
  static RequestCheck noReaction(std::string reason) { return {RequestOutcome::noReaction, {}, std::move(reason)}; }
  static RequestCheck accepted(std::string reason = {}) { return {RequestOutcome::accepted, {}, std::move(reason)}; }
  static RequestCheck hazardous(std::string reason) { return {RequestOutcome::hazardous, {}, std::move(reason)}; }
  static RequestCheck unserved(std::string reason) { return {RequestOutcome::unserved, {}, std::move(reason)}; }
  static RequestCheck stopsLater(std::string condition, std::string reason) {
    return {RequestOutcome::stopsLater, std::move(condition), std::move(reason)};
  }
  static RequestCheck stopsNow(std::string condition, std::string reason) {
    return {RequestOutcome::stopsNow, std::move(condition), std::move(reason)};
  }

  RequestOutcome outcome() const noexcept { return outcome_; }
  // The condition text of the assertion that stops the agent (now or later); empty otherwise.
  const std::string& condition() const noexcept { return condition_; }
  const std::string& reason() const noexcept { return reason_; }

  // The write, or a later one, stops the agent.
  bool fatal() const noexcept { return outcome_ == RequestOutcome::stopsNow || outcome_ == RequestOutcome::stopsLater; }
  // The write is accepted but publishes an id that another key may be published at.
  bool hazard() const noexcept { return outcome_ == RequestOutcome::hazardous; }
  // The write is accepted, but the table's configuration leaves the key short of room.
  bool unserved() const noexcept { return outcome_ == RequestOutcome::unserved; }
  // Nothing to report: the write does what it asks, or nothing at all.
  bool passes() const noexcept { return !fatal() && !hazard() && !unserved(); }

  // The hazard that the write leaves behind for the audit to find, by its kind (a leaked
  // id, a record or a result without a request) and the id it concerns; none for a write
  // that leaves nothing of the kind.
  std::optional<AuditKind> leaves() const noexcept { return leaves_; }
  EntryId leftAt() const noexcept { return leftAt_; }
  RequestCheck leaving(AuditKind kind, EntryId id) && {
    leaves_ = kind;
    leftAt_ = id;
    return std::move(*this);
  }

  // The id at which the write publishes the key, when the check knows it without a search
  // for room: a free candidate slot, the requested id, the key's own.
  std::optional<EntryId> publishes() const noexcept { return publishes_; }
  RequestCheck publishing(EntryId id) && {
    publishes_ = id;
    return std::move(*this);
  }

  // "" when the check passes; otherwise one line: what happens, the condition, the reason.
  std::string problem() const;
  // The whole verdict, also for a passing check ("accepted", "unchanged: ...").
  std::string text() const;

  static constexpr std::string_view typeName() { return "TesselCentral::RequestCheck"; }
  // A verdict is an answer, not an input: parsing one always fails.
  static RequestCheck fromText(std::string_view text);

  // The outcome keeps the more severe of this and other (the first one found on a tie); two
  // hazards name what they leave behind only when both do.
  void worsen(RequestCheck other);

 private:
  RequestOutcome outcome_ = RequestOutcome::accepted;
  std::string condition_;
  std::string reason_;
  std::optional<AuditKind> leaves_;
  EntryId leftAt_;
  std::optional<EntryId> publishes_;
};

std::ostream& operator<<(std::ostream& os, const RequestCheck& check);

// Whether an audit made after the write finds what the verdict said the write leaves behind
// (always, for a verdict that leaves nothing). A leaked id whose key has since lost its
// request is found as a record without one.
bool foundAfterWrite(const RequestCheck& verdict, const AuditReport& after) noexcept;

// A request that reconcile() left as it stands, and why.
struct KeptRequest {
  HashEntryKey key;
  EntryId requested;
  std::string reason;
};

// A result whose request was gone, which reconcile() removed.
struct RemovedResult {
  HashEntryKey key;
  EntryId id;
};

// An id recorded for a key that no result placed there, which reconcile() released.
struct ReleasedId {
  EntryId id;
  HashEntryKey key;
  std::string reason;
};

// What reconcile() did: how many keys it acted on (the removed results among them), the
// keys it left as they stand, and the ids it released.
class ReconcileReport {
 public:
  void actedOn() noexcept { ++acted_; }
  void kept(KeptRequest request) { kept_.push_back(std::move(request)); }
  void removed(RemovedResult result) {
    ++acted_;
    removed_.push_back(result);
  }
  void released(ReleasedId id) { released_.push_back(std::move(id)); }

  U32 acted() const noexcept { return acted_; }
  const std::vector<KeptRequest>& kept() const noexcept { return kept_; }
  const std::vector<RemovedResult>& removed() const noexcept { return removed_; }
  const std::vector<ReleasedId>& released() const noexcept { return released_; }

  static constexpr std::string_view typeName() { return "TesselCentral::ReconcileReport"; }
  static ReconcileReport fromText(std::string_view text);

 private:
  U32 acted_ = 0;
  std::vector<KeptRequest> kept_;
  std::vector<RemovedResult> removed_;
  std::vector<ReleasedId> released_;
};

std::ostream& operator<<(std::ostream& os, const ReconcileReport& report);

namespace detail {
// An id as the checks' reasons write it: its number, or "any" for the invalid one.
std::string idText(EntryId id);
// A key in its text form.
std::string keyText(const HashEntryKey& key);
// "bank <n>".
std::string bankText(U32 bank);
// The verdict on a placement that reaches a bank whose hash function (hashLsb) selects no
// bucket: calcBucketId stops on it.
RequestCheck noBucketSelected(U32 bank);
}  // namespace detail

}  // namespace TesselCentral
