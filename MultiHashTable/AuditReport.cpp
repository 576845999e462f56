// An audit's findings and their text.
#include "MultiHashTable/AuditReport.h"

#include <algorithm>
#include <ostream>

#include "MultiHashTable/fwk/Error.h"

namespace TesselCentral {

std::string_view auditKindName(AuditKind kind) noexcept {
  switch (kind) {
    case AuditKind::corruption:
      return "corruption";
    case AuditKind::leakedId:
      return "leaked id";
    case AuditKind::recordWithoutRequest:
      return "record without a request";
    case AuditKind::resultWithoutRequest:
      return "result without a request";
  }
  return "corruption";
}

std::size_t AuditReport::count(AuditKind kind) const noexcept {
  return static_cast<std::size_t>(
      std::count_if(findings_.begin(), findings_.end(), [kind](const AuditFinding& f) { return f.kind == kind; }));
}

bool AuditReport::finds(AuditKind kind, EntryId id) const noexcept {
  return std::any_of(findings_.begin(), findings_.end(),
                     [&](const AuditFinding& f) { return f.kind == kind && f.id == id; });
}

std::vector<std::string> AuditReport::texts(AuditKind kind) const {
  std::vector<std::string> out;
  for (const AuditFinding& f : findings_) {
    if (f.kind == kind) out.push_back(f.text);
  }
  return out;
}

AuditReport AuditReport::fromText(std::string_view text) {
  throw Fwk::SyntaxError("nothing: an audit report is an answer of the table", text, 0);
}

std::ostream& operator<<(std::ostream& os, const AuditReport& report) {
  if (report.clean()) return os << "clean";
  bool first = true;
  for (const AuditFinding& f : report.findings()) {
    if (!first) os << '\n';
    first = false;
    os << auditKindName(f.kind) << ": " << f.text;
  }
  return os;
}

}  // namespace TesselCentral
