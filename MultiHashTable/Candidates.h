// The places a key may take in a table, in the order in which its placement tries them.
// A client asks for them to choose a requested id, to explain a placement, or to build an
// offline model of the table; the library's own placement walks the same places.
#pragma once

#include <iosfwd>
#include <string_view>
#include <vector>

#include "MultiHashTable/MultiHashTableTypes.h"

namespace TesselCentral {

// One place: the run of `width` slots from `slot` in bucket `bucket` of bank `bank`, and
// the id under which the client sees it.
struct Candidate {
  U32 bank = 0;
  U32 bucket = 0;
  U32 slot = 0;
  U32 width = 1;
  EntryId id;

  bool operator==(const Candidate&) const = default;

  static constexpr std::string_view typeName() { return "TesselCentral::Candidate"; }
  // An answer of the table, not an argument: parsing one always fails.
  static Candidate fromText(std::string_view text);
};

std::ostream& operator<<(std::ostream& os, const Candidate& candidate);

// A key's places, first tried first.
class CandidateList {
 public:
  CandidateList() = default;
  explicit CandidateList(std::vector<Candidate> places) : places_(std::move(places)) {}

  const std::vector<Candidate>& places() const noexcept { return places_; }
  void add(const Candidate& place) { places_.push_back(place); }
  std::size_t size() const noexcept { return places_.size(); }
  bool empty() const noexcept { return places_.empty(); }
  auto begin() const noexcept { return places_.begin(); }
  auto end() const noexcept { return places_.end(); }
  // Whether one of the places has this id.
  bool hasId(EntryId id) const noexcept;

  static constexpr std::string_view typeName() { return "TesselCentral::CandidateList"; }
  // An answer of the table, not an argument: parsing one always fails.
  static CandidateList fromText(std::string_view text);

 private:
  std::vector<Candidate> places_;
};

std::ostream& operator<<(std::ostream& os, const CandidateList& list);

}  // namespace TesselCentral
