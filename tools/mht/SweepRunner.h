// The runner of mht sweep: every simulation and optimum of a grid, on a pool of threads,
// and what each of them found.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "SweepGrid.h"

namespace mht {

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
  std::optional<SlowestRequest> slowest;
};

struct SweepRow {
  std::size_t table = 0;  // index into the grid's tables
  U32 steps = 0;
  TesselCentral::MoveSearch search = TesselCentral::MoveSearch::depthFirst;
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

// Runs every simulation and optimum of the grid on `jobs` threads. A table of the grid
// that fails the library's configuration check, with the banks its simulations give it,
// refuses the whole sweep before any run: ConfigurationRefused, naming the table.
SweepResult runSweep(const SweepGrid& grid, unsigned jobs, bool progress);

}  // namespace mht
