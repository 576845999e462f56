// What an audit of a table finds, each finding of its own kind: corruption (an invariant
// that the table keeps is broken), or a hazard that the table's own rules leave behind and
// that reconcile() repairs.
#pragma once

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "MultiHashTable/MultiHashTableTypes.h"

namespace TesselCentral {

enum class AuditKind : U8 {
  corruption,            // an invariant of the table is broken
  leakedId,              // an id recorded for a key whose result names another id
  recordWithoutRequest,  // an id recorded for a key that has neither a request nor a result there
  resultWithoutRequest,  // a result whose key has no request
};

std::string_view auditKindName(AuditKind kind) noexcept;

struct AuditFinding {
  AuditKind kind;
  std::string text;
  EntryId id;  // the id recorded or published; invalid for a corruption
};

class AuditReport {
 public:
  void add(AuditKind kind, std::string text, EntryId id = EntryId()) {
    findings_.push_back(AuditFinding{kind, std::move(text), id});
  }

  const std::vector<AuditFinding>& findings() const noexcept { return findings_; }
  // Nothing found at all.
  bool clean() const noexcept { return findings_.empty(); }
  std::size_t count(AuditKind kind) const noexcept;
  // Whether a finding of the kind concerns the id: what a request check's verdict says that
  // its write leaves behind is found here after the write.
  bool finds(AuditKind kind, EntryId id) const noexcept;
  // The texts of one kind's findings.
  std::vector<std::string> texts(AuditKind kind) const;

  static constexpr std::string_view typeName() { return "TesselCentral::AuditReport"; }
  // An answer of the table, never an argument: parsing one always fails.
  static AuditReport fromText(std::string_view text);

 private:
  std::vector<AuditFinding> findings_;
};

// "clean", or one line per finding: "<kind>: <text>".
std::ostream& operator<<(std::ostream& os, const AuditReport& report);

}  // namespace TesselCentral
