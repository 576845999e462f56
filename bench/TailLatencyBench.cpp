// The slowest placements, where an agent stops answering everything else: per-request times
// from 90 % fill to the first key without room, then in churn at that load, for both tables
// and both move searches (BenchSupport.h: nearFullPass, each request's time the minimum over
// several passes of the same sequence). The counters are percentiles of those times in
// microseconds.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <string>
#include <vector>

#include "BenchSupport.h"

namespace {

using namespace bench;
using TesselCentral::MoveSearch;

constexpr int passes = 5;

// `steps`: the step budget, 3 unless a benchmark names another.
void BM_Tail(benchmark::State& state, TableKind kind, MoveSearch search, U32 steps = 3) {
  const U32 buckets = static_cast<U32>(state.range(0));
  TableSpec shape = geometry(kind, buckets);
  shape.moveSearch = search;
  shape.maxRecursiveSteps = steps;
  const U64 capacity = U64{shape.numBanks} * buckets * shape.numBucketEntries;
  PassLimits limits;
  limits.churnRequests = capacity / 4;
  const auto keys = keysFor(kind, capacity * 2);
  std::vector<double> fill;
  std::vector<double> churn;
  for (auto _ : state) {
    for (int p = 0; p < passes; ++p) {
      const PassTimes times = nearFullPass(shape, false, keys, limits);
      keepFastest(fill, times.fill, state);
      keepFastest(churn, times.churn, state);
    }
  }
  reportTimes(state, "fill", fill);
  reportTimes(state, "churn", churn);
  state.SetLabel("90% to first failure, then churn; min of " + std::to_string(passes) + " passes");
}

// 4 banks x 4096 buckets x 4 slots (a quarter of the placement benchmarks' banks: the
// passes repeat the whole sequence).
const int64_t tailBuckets = std::max<int64_t>(bucketsFromEnvironment() / 4, 64);

}  // namespace

BENCHMARK_CAPTURE(BM_Tail, single_depth_first, TableKind::single, MoveSearch::depthFirst)
    ->Arg(tailBuckets)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Tail, single_breadth_first, TableKind::single, MoveSearch::breadthFirst)
    ->Arg(tailBuckets)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Tail, multi_depth_first, TableKind::multi, MoveSearch::depthFirst)
    ->Arg(tailBuckets)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Tail, multi_breadth_first, TableKind::multi, MoveSearch::breadthFirst)
    ->Arg(tailBuckets)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
// The multi-width searches at a step budget of 5, where a depth-first search that fails
// examines its whole tree and the breadth-first one stops at its bound.
BENCHMARK_CAPTURE(BM_Tail, multi_depth_first_steps5, TableKind::multi, MoveSearch::depthFirst, 5u)
    ->Arg(tailBuckets)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Tail, multi_breadth_first_steps5, TableKind::multi, MoveSearch::breadthFirst, 5u)
    ->Arg(tailBuckets)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
