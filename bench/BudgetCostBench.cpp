// What a step budget (maxRecursiveSteps) costs a placement near full: the worst and the
// p99.9 per-request time by budget, for both tables and both move searches, at the tool's
// default geometry and at the geometry that makes them worst (BM_BudgetCostShapes compares
// the candidates at the largest budget). Each request's time is the minimum over passes of the
// same sequence (BenchSupport.h: nearFullPass), from 90 % fill to the first failure, then
// churn at that load; a first failure before 90 % is timed as well, since it is the request
// that searches every chain the budget allows.
//
// A budget whose requests take long is sampled: the first pass stops its timed requests after
// passSeconds of them, the passes after it make as many, and there are fewer passes, so that
// no benchmark runs much longer than benchSeconds. The counters say how many requests were
// timed (all_requests), over how many passes, and whether the first pass was cut short
// (sampled 1).
//
//   mht_bench --benchmark_filter=BudgetCost   (bench/run.sh --budget-cost prints the tables)
#include <benchmark/benchmark.h>

#include <algorithm>
#include <exception>
#include <limits>
#include <string>
#include <vector>

#include "BenchSupport.h"

namespace {

using namespace bench;
using TesselCentral::MoveSearch;

constexpr int maxPasses = 5;
constexpr double passSeconds = 2.0;   // timed requests of the first pass, at most
constexpr double benchSeconds = 4.0;  // all passes of one benchmark, about
constexpr U64 churnRequests = 4096;

struct Shape {
  const char* name;
  U32 banks;
  U32 buckets;
  U32 slots;
  bool twoBucketMode;  // multi-width: doubleEntryTwoBucketMode
  mht::WidthMix mix;   // multi-width
};

constexpr mht::WidthMix defaultMix{70, 20, 10};
constexpr mht::WidthMix wideMix{50, 25, 25};

// The tool's default: 4 banks x 4096 buckets x 4 slots, 70/20/10.
const Shape defaultShape{"4x4096x4", 4, 4096, 4, false, defaultMix};

// The geometries that make the budget's cost worst among the tables of 4 slots a bucket and
// at most 4 banks, found with BM_BudgetCostShapes below. More slots or more banks widen every
// step of the search and cost far more again (docs/capacity.md, "What a budget costs").
const Shape worstSingle{"4x32x4", 4, 32, 4, false, defaultMix};
const Shape worstMulti{"4x64x4_two_bucket_50_25_25", 4, 64, 4, true, wideMix};

// The candidates for the worst geometry: small tables (failures come often, and a failure
// searches every chain the budget allows), two banks, bucket groups for the wide entries,
// wider mixes.
const std::vector<Shape> singleCandidates{
    {"4x16x4", 4, 16, 4, false, defaultMix},     {"4x32x4", 4, 32, 4, false, defaultMix},
    {"4x64x4", 4, 64, 4, false, defaultMix},     {"2x32x4", 2, 32, 4, false, defaultMix},
    {"2x4096x4", 2, 4096, 4, false, defaultMix},
};
const std::vector<Shape> multiCandidates{
    {"4x32x4_50_25_25", 4, 32, 4, false, wideMix},
    {"4x32x4_two_bucket", 4, 32, 4, true, defaultMix},
    {"4x32x4_two_bucket_50_25_25", 4, 32, 4, true, wideMix},
    {"4x64x4_two_bucket_50_25_25", 4, 64, 4, true, wideMix},
    {"2x32x4_two_bucket_50_25_25", 2, 32, 4, true, wideMix},
    {"2x4096x4_50_25_25", 2, 4096, 4, false, wideMix},
    {"4x4096x4_two_bucket_50_25_25", 4, 4096, 4, true, wideMix},
};

constexpr U32 singleBudgets = 8;
constexpr U32 multiBudgets = 6;

void BM_BudgetCost(benchmark::State& state, TableKind kind, MoveSearch search, Shape s) {
  const TableSpec shape{kind, s.banks, s.buckets, s.slots, static_cast<U32>(state.range(0)), false, search};
  const U64 capacity = U64{s.banks} * s.buckets * s.slots;
  const auto keys = keysFor(kind == TableKind::single ? mht::WidthMix{100, 0, 0} : s.mix, capacity * 2 + churnRequests);
  std::vector<double> fill;
  std::vector<double> churn;
  int passes = 0;
  bool sampled = false;
  try {
    for (auto _ : state) {
      PassLimits limits;
      limits.churnRequests = churnRequests;
      limits.maxSeconds = passSeconds;
      limits.timeEarlyFailure = true;
      const PassTimes first = nearFullPass(shape, s.twoBucketMode, keys, limits);
      sampled = first.cut;
      keepFastest(fill, first.fill, state);
      keepFastest(churn, first.churn, state);
      passes = std::clamp(static_cast<int>(benchSeconds / std::max(first.seconds, 1e-9)), 1, maxPasses);
      limits.maxSeconds = std::numeric_limits<double>::infinity();
      limits.maxRequests = first.requests();
      for (int p = 1; p < passes; ++p) {
        const PassTimes times = nearFullPass(shape, s.twoBucketMode, keys, limits);
        keepFastest(fill, times.fill, state);
        keepFastest(churn, times.churn, state);
      }
    }
  } catch (const std::exception& e) {
    state.SkipWithError(e.what());
    return;
  }
  std::vector<double> all = fill;
  all.insert(all.end(), churn.begin(), churn.end());
  reportTimes(state, "fill", fill);
  reportTimes(state, "churn", churn);
  reportTimes(state, "all", all);
  state.counters["passes"] = passes;
  state.counters["sampled"] = sampled ? 1 : 0;
  state.SetLabel(std::string(s.name) + (sampled ? ", sampled" : "") + "; min of " + std::to_string(passes) +
                 (passes == 1 ? " pass" : " passes"));
}

const char* tableName(TableKind kind) { return kind == TableKind::single ? "single" : "multi"; }
const char* searchName(MoveSearch search) { return search == MoveSearch::depthFirst ? "depth_first" : "breadth_first"; }

void registerBudgets(const char* family, TableKind kind, MoveSearch search, const Shape& s, U32 lowest, U32 highest) {
  const std::string name = std::string(family) + "/" + tableName(kind) + "_" + searchName(search) + "_" + s.name;
  benchmark::RegisterBenchmark(name.c_str(), BM_BudgetCost, kind, search, s)
      ->DenseRange(lowest, highest)
      ->Iterations(1)
      ->Unit(benchmark::kMillisecond);
}

[[maybe_unused]] const bool registered = [] {
  for (const MoveSearch search : {MoveSearch::depthFirst, MoveSearch::breadthFirst}) {
    registerBudgets("BM_BudgetCost", TableKind::single, search, defaultShape, 0, singleBudgets);
    registerBudgets("BM_BudgetCost", TableKind::multi, search, defaultShape, 0, multiBudgets);
    registerBudgets("BM_BudgetCost", TableKind::single, search, worstSingle, 0, singleBudgets);
    registerBudgets("BM_BudgetCost", TableKind::multi, search, worstMulti, 0, multiBudgets);
  }
  for (const MoveSearch search : {MoveSearch::depthFirst, MoveSearch::breadthFirst}) {
    for (const Shape& s : singleCandidates) {
      registerBudgets("BM_BudgetCostShapes", TableKind::single, search, s, singleBudgets, singleBudgets);
    }
    for (const Shape& s : multiCandidates) {
      registerBudgets("BM_BudgetCostShapes", TableKind::multi, search, s, multiBudgets, multiBudgets);
    }
  }
  return true;
}();

}  // namespace
