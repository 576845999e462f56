// The optimum beside a simulated fill: how far an offline placer gets on the same key
// stream. The offline placer sees the keys in the order the simulation requests them and may
// re-place every key already placed whenever it likes; its first failure is the shortest
// prefix of the stream that no placement holds whole.
//
// For a single-width table that is exact: a prefix is placeable when a maximum matching of
// its keys to their candidate slots (the slots of the bucket that each bank's hash selects)
// covers every key. Slots of one bucket are interchangeable, so the matching is computed as
// a maximum flow source -> key (1) -> candidate bucket (1) -> sink (the bucket's slots).
//
// For a multi-width table it is an upper bound only: each key asks for its width in slots,
// which the flow may spread over its candidate buckets (the buckets of its group in every
// bank), and the alignment of wide entries within a bucket is ignored. Every placement the
// table can make is such a flow, so no placer fails later than this relaxation does.
//
// Whether a prefix is placeable is monotone in its length (a placement of a prefix places
// every shorter one), so the first failure is found by a binary search, one flow per probe.
#pragma once

#include <memory>
#include <optional>
#include <stdexcept>
#include <vector>

#include "Simulation.h"

namespace mht {

// Keys in stream order, each with the buckets it may use and the slots it takes.
struct PlacementProblem {
  std::vector<U32> bucketSlots;              // slots of every bucket, the banks' buckets numbered one after another
  std::vector<std::vector<U32>> candidates;  // per key: the buckets it may take slots in
  std::vector<U32> demand;                   // per key: the slots it takes
};

// The keys' candidate buckets on the table the banks describe (each bank below numBanks
// once, selecting buckets within the table's), bank by bank: for a single-width table the
// buckets of the table's own candidates(), for a multi-width table the buckets of the
// key's group as each MultiEntryTypeBank computes it (bucketIdOf, groupStart), every one
// of them whether or not an aligned run of the key's width fits there.
PlacementProblem placementProblem(const TableSpec& table, const std::vector<BankSpec>& banks,
                                  const std::vector<TesselCentral::HashEntryKey>& keys);

// A flow network over every key of a problem, built once; each question about a prefix
// lets only the prefix's keys draw from the source.
class PrefixPlacement {
 public:
  explicit PrefixPlacement(const PlacementProblem& problem);
  ~PrefixPlacement();
  PrefixPlacement(const PrefixPlacement&) = delete;
  PrefixPlacement& operator=(const PrefixPlacement&) = delete;

  U64 keys() const noexcept;
  // The slots that the first n keys ask for together.
  U64 demandOf(U64 n) const noexcept;
  // The most of those slots that one placement of the first n keys gives them.
  U64 placedSlots(U64 n);
  bool placeable(U64 n) { return placedSlots(n) == demandOf(n); }

 private:
  struct Network;
  std::unique_ptr<Network> network_;
  std::vector<U64> demandBefore_;  // [n]: slots the first n keys ask for
};

// The length of the shortest unplaceable prefix, given a placeable prefix length and a
// longer unplaceable one.
U64 firstUnplaceablePrefix(PrefixPlacement& placement, U64 placeable, U64 unplaceable);

// The most arcs (reverse arcs not counted) of a network offlineOptimum builds: some 100
// bytes each while the flow runs. A single-width table of 4 banks takes 5 per slot.
inline constexpr U64 maxOptimumArcs = U64{1} << 22;

// Thrown by offlineOptimum when the table is too large for the network.
class OptimumUnavailable : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The offline placer's first failure on a key stream; the keys before knownPlaceable are
// known to be placeable together. When the whole stream can be placed, request is empty.
OptimumFigures optimumOf(const TableSpec& table, const std::vector<BankSpec>& banks,
                         const std::vector<TesselCentral::HashEntryKey>& stream, U64 knownPlaceable = 0);

// The offline placer's first failure on the simulation's key stream (its fill phase: the
// same source, seed and widths). knownPlaceable is a prefix length already known placeable,
// such as the keys the simulation placed before its own first failure.
OptimumFigures offlineOptimum(const SimulationOptions& options, U64 knownPlaceable = 0);

}  // namespace mht
