// What a table has done since it was made or since its statistics were last reset: its
// placements by the moves each took, its failures by reason, its moves, how hard its
// searches for room worked, and the slots that its records cover in each bank. The tables
// count as they go, with plain increments; nothing here allocates after construction.
#pragma once

#include <array>
#include <cstddef>
#include <iosfwd>
#include <string_view>
#include <vector>

#include "MultiHashTable/MultiHashTableTypes.h"

namespace TesselCentral {

// Why a request left its key without the place it asked for.
enum class PlacementFailure : U8 {
  noRoom,                  // no free place, and none that moves within the chain depth could make
  searchCutShort,          // the breadth-first search reached its bound of slots or runs first
  requestedIdRefused,      // a checked write refused a request for an id that would stop the agent
  requestedIdNotHonoured,  // placed at the requested id's bucket, but at a position whose own id is another
};
inline constexpr std::size_t placementFailureKinds = 4;

std::string_view placementFailureName(PlacementFailure failure) noexcept;

class TableStatistics {
 public:
  // Placements of 0 to movesHistogramSize - 2 moves have a count each; the last count
  // holds every placement of more.
  static constexpr std::size_t movesHistogramSize = 64;
  using MovesHistogram = std::array<U64, movesHistogramSize>;

  // The most banks whose slots used are counted: a table's shape may name billions, which
  // no chip has.
  static constexpr U32 maxCountedBanks = 1024;

  TableStatistics() = default;
  explicit TableStatistics(U32 numBanks) : slotsUsed_(numBanks < maxCountedBanks ? numBanks : maxCountedBanks, 0) {}

  // Placements anywhere that put their key in a place, by the moves each made: index m
  // counts those of m moves (the last index: of that many or more).
  const MovesHistogram& placementsByMoves() const noexcept { return placementsByMoves_; }
  U64 placementsWithMoves(std::size_t moves) const noexcept {
    return placementsByMoves_[moves < movesHistogramSize ? moves : movesHistogramSize - 1];
  }
  // Every placement anywhere that put its key in a place.
  U64 placements() const noexcept;
  // The moves that those placements made, the long tail included.
  U64 placementMoves() const noexcept { return placementMoves_; }
  // Requests for an id that put their key at it.
  U64 placementsAtRequestedId() const noexcept { return placementsAtRequestedId_; }

  U64 failures(PlacementFailure reason) const noexcept { return failures_[static_cast<std::size_t>(reason)]; }
  // Failures of every reason but requestedIdNotHonoured, whose key did get a place.
  U64 failures() const noexcept;

  // Every key moved from one place to another, by any placement, failed ones included.
  U64 moves() const noexcept { return moves_; }
  // The most moves that one placement made.
  U64 largestChain() const noexcept { return largestChain_; }

  // The slots that the table's records cover in each bank, as they stand: a figure of the
  // table, which a reset leaves alone.
  const std::vector<U64>& slotsUsed() const noexcept { return slotsUsed_; }
  U64 slotsUsed(U32 bank) const noexcept { return bank < slotsUsed_.size() ? slotsUsed_[bank] : 0; }
  U64 slotsUsedInAllBanks() const noexcept;

  // The searches' effort: slots whose occupant a single-width search looked at moving,
  // runs that a multi-width search looked at, and breadth-first searches that reached their
  // bound.
  U64 slotsExamined() const noexcept { return slotsExamined_; }
  U64 runsExamined() const noexcept { return runsExamined_; }
  U64 searchesCutShort() const noexcept { return searchesCutShort_; }

  // What the tables report as they go.
  void placed(U64 moves) noexcept {
    ++placementsByMoves_[moves < movesHistogramSize ? moves : movesHistogramSize - 1];
    placementMoves_ += moves;
    if (moves > largestChain_) largestChain_ = moves;
  }
  void placedAtRequestedId() noexcept { ++placementsAtRequestedId_; }
  void failed(PlacementFailure reason) noexcept { ++failures_[static_cast<std::size_t>(reason)]; }
  void moved() noexcept { ++moves_; }
  void slotsTaken(U32 bank, U32 slots) noexcept {
    if (bank < slotsUsed_.size()) slotsUsed_[bank] += slots;
  }
  void slotsFreed(U32 bank, U32 slots) noexcept {
    if (bank < slotsUsed_.size()) slotsUsed_[bank] -= slots;
  }
  void slotsExaminedAdd(U64 n) noexcept { slotsExamined_ += n; }
  void runsExaminedAdd(U64 n) noexcept { runsExamined_ += n; }
  void searchCutShort() noexcept { ++searchesCutShort_; }

  // Every count back to 0; the slots used stay, being the table's as it stands.
  void reset() noexcept;

  bool operator==(const TableStatistics&) const = default;

  static constexpr std::string_view typeName() { return "TesselCentral::TableStatistics"; }
  // An answer of the table, never an argument: parsing one always fails.
  static TableStatistics fromText(std::string_view text);

 private:
  MovesHistogram placementsByMoves_{};
  U64 placementMoves_ = 0;
  U64 placementsAtRequestedId_ = 0;
  std::array<U64, placementFailureKinds> failures_{};
  U64 moves_ = 0;
  U64 largestChain_ = 0;
  std::vector<U64> slotsUsed_;
  U64 slotsExamined_ = 0;
  U64 runsExamined_ = 0;
  U64 searchesCutShort_ = 0;
};

// The generic text form: every figure by name; the histogram as {moves: placements} without
// its empty counts ("63+" for its last), the failures by reason and the slots used by bank.
std::ostream& operator<<(std::ostream& os, const TableStatistics& statistics);

}  // namespace TesselCentral
