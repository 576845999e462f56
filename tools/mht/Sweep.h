// mht sweep: a grid of simulations (table shapes, move budgets, move searches, seeds), run
// on every core, summarised one row per table shape, budget and search.
//
// Each simulation is mht simulate's, with the default banks and random keys: it fills its
// own table until the first key finds no room, then churns. Simulations share no mutable
// state (each has its own table, collections and key source; the library's registry and
// trace handle are only read, the trace being off), so each runs on whichever thread takes
// it. The offline placer's first failure (Optimum.h) depends on the table shape and the
// seed only, so it is computed once per pair, as a task of its own.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "Simulation.h"

namespace mht {

struct SweepTable {
  TableKind kind = TableKind::single;
  U32 numBanks = 4;
  U32 numBuckets = 4096;
  U32 numBucketEntries = 4;
  std::vector<U32> steps;  // the move budgets swept on this table

  // "single 4x4096x4"
  std::string label() const;
  U64 capacity() const noexcept { return U64{numBanks} * numBuckets * numBucketEntries; }
};

struct SweepGrid {
  std::vector<SweepTable> tables;
  std::vector<MoveSearch> searches{MoveSearch::depthFirst, MoveSearch::breadthFirst};
  std::vector<U64> seeds{1, 2, 3};
  U64 churn = 5000;
  WidthMix mix;  // the multi-width tables' keys
};

// The move budgets a table is swept over unless --steps says otherwise.
std::vector<U32> defaultSweepSteps(TableKind kind);

// Single-width 4 x 4096 x 4 and 2 x 4096 x 4, multi-width 4 x 4096 x 4, their kinds' budgets,
// both searches, seeds 1 to 3.
SweepGrid defaultSweepGrid();

// The parsers of the sweep's options. Each throws std::invalid_argument with a message that
// quotes the text and says what is wrong with it.
//
// "<single|multi>[:<banks>x<buckets>x<slots>]" (the shape defaults to 4x4096x4); the table's
// budgets are its kind's defaults.
SweepTable parseSweepTable(const std::string& text);
// Comma-separated numbers and ranges "a-b", each within [low, high]; sorted, repeats dropped.
std::vector<U64> parseNumberList(const std::string& text, U64 low, U64 high);
// Comma-separated "depth-first" and "breadth-first".
std::vector<MoveSearch> parseSearches(const std::string& text);

// One simulation of a row: its seed and figures, or the message of what stopped it.
struct SweepRun {
  U64 seed = 0;
  std::string error;
  std::optional<U64> firstFailureRequest;
  std::optional<double> fillAtFirstFailure;
  double fillAtEnd = 0;
  double movesMean = 0;
  PhaseFigures fill;
  PhaseFigures churn;
};

struct SweepRow {
  std::size_t table = 0;  // index into the grid's tables
  U32 steps = 0;
  MoveSearch search = MoveSearch::depthFirst;
  std::vector<SweepRun> runs;  // one per seed, in the grid's order
};

struct SweepResult {
  std::vector<SweepRow> rows;
  // [table][seed index]: the offline placer's figures, or nothing with optimumNotes saying why.
  std::vector<std::vector<std::optional<OptimumFigures>>> optima;
  std::vector<std::vector<std::string>> optimumNotes;
  unsigned jobs = 1;
  double seconds = 0;  // wall time of the whole sweep
};

// The options of one simulation of the grid.
SimulationOptions sweepSimulation(const SweepGrid& grid, const SweepTable& table, U32 steps, MoveSearch search,
                                  U64 seed);

// Runs every simulation and optimum of the grid on `jobs` threads.
SweepResult runSweep(const SweepGrid& grid, unsigned jobs, bool progress);

// Over a row's runs that reached a first failure.
struct Spread {
  std::size_t count = 0;
  double mean = 0;
  double min = 0;
  double max = 0;
  double stddev = 0;  // population standard deviation
};
Spread fillSpread(const SweepRow& row);
// Over the table's seeds that have an optimum.
Spread optimumSpread(const SweepResult& result, std::size_t table);

void writeSweepText(const SweepGrid& grid, const SweepResult& result, std::ostream& out);
void writeSweepJson(const SweepGrid& grid, const SweepResult& result, std::ostream& out);
// Fill at the first failure against the move budget: one line per table and search, the
// optimum as a dashed level per table.
void writeSweepSvg(const SweepGrid& grid, const SweepResult& result, std::ostream& out);

}  // namespace mht
