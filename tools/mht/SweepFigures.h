// What a row of mht sweep amounts to, over its runs: the figures that the table, the JSON
// and the chart all show, computed in one place so that the three agree.
#pragma once

#include <string>
#include <vector>

#include "SweepRunner.h"

namespace mht {

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

// A phase's rate over a row's runs without an error: the requests of all of them over the
// seconds of all of them, so that a run too short to time well weighs by its time, not as
// much as a long one; and beside it the least and the most of the runs' own rates.
struct Rate {
  std::size_t count = 0;  // runs
  U64 requests = 0;
  double seconds = 0;
  double perSecond = 0;  // requests / seconds; 0 when no time was measured
  double min = 0;        // of the runs' own rates
  double max = 0;
};
Rate rateOf(const SweepRow& row, PhaseFigures SweepRun::*phase);

// The mean of a figure over the runs without an error.
template <class Figure>
double meanOver(const SweepRow& row, Figure figure) {
  double sum = 0;
  std::size_t n = 0;
  for (const SweepRun& run : row.runs) {
    if (!run.error.empty()) continue;
    sum += figure(run);
    ++n;
  }
  return n ? sum / static_cast<double>(n) : 0;
}

// The message of the row's first run that failed, or nothing.
std::string firstError(const SweepRow& row);

// Whether the table's optima are an upper bound (multi-width) rather than exact.
bool upperBound(const SweepResult& result, std::size_t table);

// The seeds, joined by `separator`.
std::string seedList(const std::vector<U64>& seeds, const char* separator);

}  // namespace mht
