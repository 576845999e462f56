// The slowest placements, where an agent stops answering everything else: per-request times
// from 90 % fill to the first key without room, then in churn at that load (delete a random
// placed key, request a new one), for both tables and both move searches. A table that fails
// before 90 % (single-width, depth-first) has no fill phase and churns at its first failure.
//
// Each request's time is the minimum over several passes of the same sequence (the tables
// are deterministic, so every pass makes the same requests with the same outcomes): the
// machine's interruptions land in one pass, not in all of them, and what remains is the
// request's own work. The counters are percentiles of those times in microseconds.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "BenchSupport.h"

namespace {

using namespace bench;
using TesselCentral::EntryId;
using TesselCentral::MoveSearch;

constexpr int passes = 5;

// Per-request times in nanoseconds of one pass, by phase.
struct PassTimes {
  std::vector<double> fill;
  std::vector<double> churn;
};

double placementTime(TableSession& t, const HashEntryKey& key) {
  const auto start = std::chrono::steady_clock::now();
  t.config().configIs(key, EntryId());
  const auto end = std::chrono::steady_clock::now();
  return std::chrono::duration<double, std::nano>(end - start).count();
}

PassTimes onePass(const TableSpec& shape, const std::vector<HashEntryKey>& keys, U64 churnRequests) {
  const U64 capacity = U64{shape.numBanks} * shape.numBuckets * shape.numBucketEntries;
  auto t = newTable(shape);
  std::size_t next = 0;
  auto placed = fillTo(*t, keys, next, capacity * 90 / 100);
  // A table whose first key without room comes before 90 % churns from there.
  const bool failedBefore = next > 0 && !t->status().status(keys[next - 1]).isValid();
  if (failedBefore) t->config().configDel(keys[next - 1]);
  PassTimes times;
  while (!failedBefore && next < keys.size()) {
    const HashEntryKey& k = keys[next++];
    times.fill.push_back(placementTime(*t, k));
    if (!t->status().status(k).isValid()) {
      t->config().configDel(k);
      break;
    }
    placed.push_back(k);
  }
  std::mt19937_64 pick(seed);
  for (U64 i = 0; i < churnRequests && next < keys.size() && !placed.empty(); ++i) {
    const std::size_t victim = pick() % placed.size();
    t->config().configDel(placed[victim]);
    const HashEntryKey& k = keys[next++];
    times.churn.push_back(placementTime(*t, k));
    if (t->status().status(k).isValid()) {
      placed[victim] = k;
    } else {
      t->config().configDel(k);
      placed[victim] = placed.back();
      placed.pop_back();
    }
  }
  return times;
}

// The element below which `fraction` of the sorted times lie (the maximum for 1).
double percentile(const std::vector<double>& sorted, double fraction) {
  if (sorted.empty()) return 0;
  const auto rank = static_cast<std::size_t>(std::ceil(fraction * static_cast<double>(sorted.size())));
  return sorted[std::clamp<std::size_t>(rank, 1, sorted.size()) - 1];
}

void report(benchmark::State& state, const std::string& phase, std::vector<double> times) {
  std::sort(times.begin(), times.end());
  const auto micro = [](double ns) { return ns / 1000; };
  state.counters[phase + "_requests"] = static_cast<double>(times.size());
  state.counters[phase + "_p50_us"] = micro(percentile(times, 0.5));
  state.counters[phase + "_p99_us"] = micro(percentile(times, 0.99));
  state.counters[phase + "_p999_us"] = micro(percentile(times, 0.999));
  state.counters[phase + "_max_us"] = micro(percentile(times, 1.0));
}

void keepFastest(std::vector<double>& fastest, const std::vector<double>& pass, benchmark::State& state) {
  if (fastest.empty()) {
    fastest = pass;
  } else if (fastest.size() != pass.size()) {
    state.SkipWithError("two passes of the same sequence made different requests");
  } else {
    for (std::size_t i = 0; i < pass.size(); ++i) fastest[i] = std::min(fastest[i], pass[i]);
  }
}

// `steps`: the step budget, 3 unless a benchmark names another.
void BM_Tail(benchmark::State& state, TableKind kind, MoveSearch search, U32 steps = 3) {
  const U32 buckets = static_cast<U32>(state.range(0));
  TableSpec shape = geometry(kind, buckets);
  shape.moveSearch = search;
  shape.maxRecursiveSteps = steps;
  const U64 capacity = U64{shape.numBanks} * buckets * shape.numBucketEntries;
  const U64 churnRequests = capacity / 4;
  const auto keys = keysFor(kind, capacity * 2);
  std::vector<double> fill;
  std::vector<double> churn;
  for (auto _ : state) {
    for (int p = 0; p < passes; ++p) {
      const PassTimes times = onePass(shape, keys, churnRequests);
      keepFastest(fill, times.fill, state);
      keepFastest(churn, times.churn, state);
    }
  }
  report(state, "fill", fill);
  report(state, "churn", churn);
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
