// A request check's verdict and its text, the reconcile report, and the texts that the
// checks' reasons share.
#include "MultiHashTable/RequestCheck.h"

#include <ostream>
#include <sstream>
#include <utility>

#include "MultiHashTable/fwk/Error.h"
#include "MultiHashTable/internal/ConditionTexts.h"

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
    case RequestOutcome::unserved:
      return "unserved";
  }
  return "accepted";
}

namespace {

// How bad an outcome is, for keeping the worst of several findings.
int severity(RequestOutcome outcome) noexcept {
  switch (outcome) {
    case RequestOutcome::stopsNow:
      return 4;
    case RequestOutcome::stopsLater:
      return 3;
    case RequestOutcome::hazardous:
      return 2;
    case RequestOutcome::unserved:
      return 1;
    default:
      return 0;
  }
}

}  // namespace

void RequestCheck::worsen(RequestCheck other) {
  if (severity(other.outcome_) > severity(outcome_)) {
    // Where the key is published does not depend on how bad the write is.
    if (!other.publishes_) other.publishes_ = publishes_;
    *this = std::move(other);
    return;
  }
  // A verdict names what it leaves for the audit only when every hazard it holds is of that
  // kind: another hazard that the audit cannot see makes the whole unnamed.
  if (outcome_ == RequestOutcome::hazardous && other.outcome_ == RequestOutcome::hazardous && !other.leaves_) {
    leaves_.reset();
  }
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

bool foundAfterWrite(const RequestCheck& verdict, const AuditReport& after) noexcept {
  if (!verdict.leaves()) return true;
  const EntryId id = verdict.leftAt();
  if (*verdict.leaves() == AuditKind::resultWithoutRequest) return after.finds(AuditKind::resultWithoutRequest, id);
  return after.finds(AuditKind::leakedId, id) || after.finds(AuditKind::recordWithoutRequest, id);
}

ReconcileReport ReconcileReport::fromText(std::string_view text) {
  throw Fwk::SyntaxError("nothing: a reconcile report is an answer of the table", text, 0);
}

std::ostream& operator<<(std::ostream& os, const ReconcileReport& report) {
  os << "acted on " << report.acted() << " key(s), kept " << report.kept().size();
  for (const KeptRequest& k : report.kept()) os << "\n  " << k.key << " requested " << k.requested << ": " << k.reason;
  for (const RemovedResult& r : report.removed()) {
    os << "\n  removed the result " << r.id << " of " << r.key << ": its request is gone";
  }
  for (const ReleasedId& r : report.released()) os << "\n  released id " << r.id << " of " << r.key << ": " << r.reason;
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
  return RequestCheck::stopsNow(condition::bankSelectsNoBucket,
                                bankText(bank) + "'s hash function hashLsb selects no bucket");
}

}  // namespace detail

}  // namespace TesselCentral
