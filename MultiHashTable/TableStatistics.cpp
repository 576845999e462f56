// A table's statistics: the sums over them, the reset and the text form.
#include "MultiHashTable/TableStatistics.h"

#include <numeric>
#include <ostream>

#include "MultiHashTable/fwk/Error.h"

namespace TesselCentral {

std::string_view placementFailureName(PlacementFailure failure) noexcept {
  switch (failure) {
    case PlacementFailure::noRoom:
      return "noRoom";
    case PlacementFailure::searchCutShort:
      return "searchCutShort";
    case PlacementFailure::requestedIdRefused:
      return "requestedIdRefused";
    case PlacementFailure::requestedIdNotHonoured:
      return "requestedIdNotHonoured";
  }
  return "noRoom";
}

U64 TableStatistics::placements() const noexcept {
  return std::accumulate(placementsByMoves_.begin(), placementsByMoves_.end(), U64{0});
}

U64 TableStatistics::failures() const noexcept {
  return failures(PlacementFailure::noRoom) + failures(PlacementFailure::searchCutShort) +
         failures(PlacementFailure::requestedIdRefused);
}

U64 TableStatistics::slotsUsedInAllBanks() const noexcept {
  return std::accumulate(slotsUsed_.begin(), slotsUsed_.end(), U64{0});
}

void TableStatistics::reset() noexcept {
  std::vector<U64> slotsUsed = std::move(slotsUsed_);
  *this = TableStatistics();
  slotsUsed_ = std::move(slotsUsed);
}

TableStatistics TableStatistics::fromText(std::string_view text) {
  throw Fwk::SyntaxError("nothing: a table's statistics are an answer of the table", text, 0);
}

std::ostream& operator<<(std::ostream& os, const TableStatistics& s) {
  os << TableStatistics::typeName() << "{placementsByMoves={";
  const char* sep = "";
  for (std::size_t m = 0; m < TableStatistics::movesHistogramSize; ++m) {
    if (s.placementsByMoves()[m] == 0) continue;
    os << sep << m << (m + 1 == TableStatistics::movesHistogramSize ? "+" : "") << ": " << s.placementsByMoves()[m];
    sep = ", ";
  }
  os << "}, placementMoves=" << s.placementMoves() << ", placementsAtRequestedId=" << s.placementsAtRequestedId()
     << ", failures={";
  sep = "";
  for (std::size_t f = 0; f < placementFailureKinds; ++f) {
    const auto reason = static_cast<PlacementFailure>(f);
    os << sep << placementFailureName(reason) << ": " << s.failures(reason);
    sep = ", ";
  }
  os << "}, moves=" << s.moves() << ", largestChain=" << s.largestChain() << ", slotsUsed={";
  sep = "";
  for (std::size_t b = 0; b < s.slotsUsed().size(); ++b) {
    os << sep << b << ": " << s.slotsUsed()[b];
    sep = ", ";
  }
  return os << "}, slotsExamined=" << s.slotsExamined() << ", runsExamined=" << s.runsExamined()
            << ", searchesCutShort=" << s.searchesCutShort() << '}';
}

}  // namespace TesselCentral
