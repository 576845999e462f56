// The text form of a key's places: one "bank b bucket k slot s width w: id n" per place.
#include "MultiHashTable/Candidates.h"

#include <algorithm>
#include <ostream>

#include "MultiHashTable/fwk/Error.h"

namespace TesselCentral {

std::ostream& operator<<(std::ostream& os, const Candidate& c) {
  return os << "bank " << c.bank << " bucket " << c.bucket << " slot " << c.slot << " width " << c.width << ": id "
            << c.id;
}

Candidate Candidate::fromText(std::string_view text) {
  throw Fwk::SyntaxError("nothing: a key's place is an answer of the table", text, 0);
}

bool CandidateList::hasId(EntryId id) const noexcept {
  return std::any_of(places_.begin(), places_.end(), [id](const Candidate& c) { return c.id == id; });
}

CandidateList CandidateList::fromText(std::string_view text) {
  throw Fwk::SyntaxError("nothing: a key's candidates are an answer of the table", text, 0);
}

std::ostream& operator<<(std::ostream& os, const CandidateList& list) {
  os << '{';
  const char* separator = "";
  for (const Candidate& c : list) {
    os << separator << c;
    separator = "; ";
  }
  return os << '}';
}

}  // namespace TesselCentral
