// The grid of mht sweep: which tables, chain depths, searches and seeds it simulates, as
// the command line gives them, and the options of each of its simulations.
#pragma once

#include <string>
#include <vector>

#include "Simulation.h"

namespace mht {

struct SweepTable {
  TableKind kind = TableKind::single;
  U32 numBanks = 4;
  U32 numBuckets = 4096;
  U32 numBucketEntries = 4;
  std::vector<U32> steps;  // the chain depths (maxRecursiveSteps) swept on this table

  // "single 4x4096x4"
  std::string label() const;
  U64 capacity() const noexcept { return U64{numBanks} * numBuckets * numBucketEntries; }
};

struct SweepGrid {
  std::vector<SweepTable> tables;
  std::vector<TesselCentral::MoveSearch> searches{TesselCentral::MoveSearch::depthFirst,
                                                  TesselCentral::MoveSearch::breadthFirst};
  std::vector<U64> seeds{1, 2, 3};
  U64 churn = 5000;
  WidthMix mix;  // the multi-width tables' keys
};

// The chain depths a table is swept over unless --steps says otherwise.
std::vector<U32> defaultSweepSteps(TableKind kind);

// Single-width 4 x 4096 x 4 and 2 x 4096 x 4, multi-width 4 x 4096 x 4, their kinds' chain depths,
// both searches, seeds 1 to 3.
SweepGrid defaultSweepGrid();

// The parsers of the sweep's options. Each throws std::invalid_argument with a message that
// quotes the text and says what is wrong with it.
//
// "<single|multi>[:<banks>x<buckets>x<slots>]" (the shape defaults to 4x4096x4); the table's
// chain depths are its kind's defaults.
SweepTable parseSweepTable(const std::string& text);
// Comma-separated numbers and ranges "a-b", each within [low, high]; sorted, repeats dropped.
std::vector<U64> parseNumberList(const std::string& text, U64 low, U64 high);
// The items of a comma-separated list; an empty item is refused.
std::vector<std::string> splitList(const std::string& text);
// Comma-separated move searches, each as the library parses a MoveSearch (depthFirst or
// depth-first, breadthFirst or breadth-first).
std::vector<TesselCentral::MoveSearch> parseSearches(const std::string& text);

// The options of one simulation of the grid.
SimulationOptions sweepSimulation(const SweepGrid& grid, const SweepTable& table, U32 steps,
                                  TesselCentral::MoveSearch search, U64 seed);

}  // namespace mht
