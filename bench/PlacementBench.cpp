// The cost of a placement as the agent pays it: one configIs (or configDel) with the
// table's reaction and the status publication inside it, against a plain hash map of the
// same keys measured in the same run.
//
// Every scenario takes its keys from a fixed seed. Each benchmark iteration builds a fresh
// table with the clock paused, brings it to the starting fill, then times a phase of many
// operations; the counter time_per_op is the time of one operation.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <optional>
#include <random>
#include <unordered_map>
#include <vector>

#include "BenchSupport.h"
#include "CountingAllocator.h"
#include "Simulation.h"
#include "Tables.h"

namespace {

using namespace mht;
using namespace TesselCentral;
using namespace bench;

struct KeyHasher {
  std::size_t operator()(const HashEntryKey& k) const noexcept { return k.hash(0); }
};
using Baseline = std::unordered_map<HashEntryKey, EntryId, KeyHasher>;

void perOperation(benchmark::State& state, U64 operations) {
  state.counters["time_per_op"] =
      benchmark::Counter(static_cast<double>(operations), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.SetItemsProcessed(static_cast<int64_t>(operations));
}

// Placement (configIs with the invalid id) while filling from `from` to `to` of capacity.
void BM_Place(benchmark::State& state, TableKind kind, double from, double to,
              MoveSearch search = MoveSearch::depthFirst) {
  const U32 buckets = static_cast<U32>(state.range(0));
  TableSpec shape = geometry(kind, buckets);
  shape.moveSearch = search;
  const U64 capacity = U64{shape.numBanks} * buckets * shape.numBucketEntries;
  const auto keys = keysFor(kind, capacity);
  U64 operations = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto t = newTable(shape);
    std::size_t next = 0;
    fillTo(*t, keys, next, static_cast<U64>(from * static_cast<double>(capacity)));
    state.ResumeTiming();
    operations += writeTo(*t, keys, next, static_cast<U64>(to * static_cast<double>(capacity)));
    state.PauseTiming();
    t.reset();
    state.ResumeTiming();
  }
  perOperation(state, operations);
  state.SetLabel("fill " + std::to_string(static_cast<int>(from * 100)) + "-" +
                 std::to_string(static_cast<int>(to * 100)) + "%");
}

// Removal (configDel) of every key of a table at 50 % fill.
void BM_Remove(benchmark::State& state, TableKind kind) {
  const U32 buckets = static_cast<U32>(state.range(0));
  const TableSpec shape = geometry(kind, buckets);
  const U64 capacity = U64{shape.numBanks} * buckets * shape.numBucketEntries;
  const auto keys = keysFor(kind, capacity);
  U64 operations = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto t = newTable(shape);
    std::size_t next = 0;
    const auto placed = fillTo(*t, keys, next, capacity / 2);
    state.ResumeTiming();
    for (const HashEntryKey& k : placed) t->config().configDel(k);
    state.PauseTiming();
    operations += placed.size();
    t.reset();
    state.ResumeTiming();
  }
  perOperation(state, operations);
}

// A status lookup of a placed key at 50 % fill.
void BM_Lookup(benchmark::State& state, TableKind kind) {
  const U32 buckets = static_cast<U32>(state.range(0));
  const TableSpec shape = geometry(kind, buckets);
  const U64 capacity = U64{shape.numBanks} * buckets * shape.numBucketEntries;
  const auto keys = keysFor(kind, capacity);
  auto t = newTable(shape);
  std::size_t next = 0;
  const auto placed = fillTo(*t, keys, next, capacity / 2);
  U64 operations = 0;
  for (auto _ : state) {
    U32 sum = 0;
    for (const HashEntryKey& k : placed) sum += t->status().status(k).value();
    benchmark::DoNotOptimize(sum);
    operations += placed.size();
  }
  perOperation(state, operations);
}

// Placement at a requested id: the ids that placement anywhere chose for the same keys.
void BM_PlaceAtId(benchmark::State& state) {
  const U32 buckets = static_cast<U32>(state.range(0));
  const TableSpec shape = geometry(TableKind::multi, buckets);
  const U64 capacity = U64{shape.numBanks} * buckets * shape.numBucketEntries;
  const auto keys = keysFor(TableKind::multi, capacity);
  std::vector<std::pair<HashEntryKey, EntryId>> requests;
  {
    auto scratch = newTable(shape);
    std::size_t next = 0;
    for (const HashEntryKey& k : fillTo(*scratch, keys, next, capacity / 2)) {
      requests.emplace_back(k, scratch->status().status(k));
    }
  }
  U64 operations = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto t = newTable(shape);
    state.ResumeTiming();
    for (const auto& [k, id] : requests) t->config().configIs(k, id);
    state.PauseTiming();
    operations += requests.size();
    t.reset();
    state.ResumeTiming();
  }
  perOperation(state, operations);
  state.SetLabel("fill 0-50%");
}

// At 85 % fill: delete a random placed key, request a new one.
void BM_Churn(benchmark::State& state, TableKind kind, MoveSearch search = MoveSearch::depthFirst) {
  const U32 buckets = static_cast<U32>(state.range(0));
  TableSpec shape = geometry(kind, buckets);
  shape.moveSearch = search;
  const U64 capacity = U64{shape.numBanks} * buckets * shape.numBucketEntries;
  const auto keys = keysFor(kind, capacity * 3);
  constexpr U64 pairs = 20000;
  U64 operations = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto t = newTable(shape);
    std::size_t next = 0;
    auto placed = fillTo(*t, keys, next, capacity * 85 / 100);
    std::mt19937_64 pick(seed);
    state.ResumeTiming();
    for (U64 i = 0; i < pairs && next < keys.size(); ++i) {
      churnOnce(*t, placed, pick, keys[next++], [&](const HashEntryKey& k) { t->config().configIs(k, EntryId()); });
    }
    state.PauseTiming();
    operations += pairs;
    t.reset();
    state.ResumeTiming();
  }
  perOperation(state, operations);
  state.SetLabel("fill 85%, delete+add pairs");
}

// The baseline: a plain hash map of the same keys, insert_or_assign and find.
void BM_BaselineInsert(benchmark::State& state) {
  const U32 buckets = static_cast<U32>(state.range(0));
  const U64 capacity = U64{4} * buckets * 4;
  const auto keys = keysFor(TableKind::single, capacity / 2);
  U64 operations = 0;
  for (auto _ : state) {
    Baseline map;
    U32 id = 0;
    for (const HashEntryKey& k : keys) map.insert_or_assign(k, EntryId(id++));
    benchmark::DoNotOptimize(map);
    state.PauseTiming();
    operations += keys.size();
    map = Baseline();
    state.ResumeTiming();
  }
  perOperation(state, operations);
}

void BM_BaselineErase(benchmark::State& state) {
  const U32 buckets = static_cast<U32>(state.range(0));
  const auto keys = keysFor(TableKind::single, U64{4} * buckets * 4 / 2);
  U64 operations = 0;
  for (auto _ : state) {
    state.PauseTiming();
    Baseline map;
    U32 id = 0;
    for (const HashEntryKey& k : keys) map.insert_or_assign(k, EntryId(id++));
    state.ResumeTiming();
    for (const HashEntryKey& k : keys) map.erase(k);
    operations += keys.size();
  }
  perOperation(state, operations);
}

void BM_BaselineFind(benchmark::State& state) {
  const U32 buckets = static_cast<U32>(state.range(0));
  const auto keys = keysFor(TableKind::single, U64{4} * buckets * 4 / 2);
  Baseline map;
  U32 id = 0;
  for (const HashEntryKey& k : keys) map.insert_or_assign(k, EntryId(id++));
  U64 operations = 0;
  for (auto _ : state) {
    U32 sum = 0;
    for (const HashEntryKey& k : keys) sum += map.find(k)->second.value();
    benchmark::DoNotOptimize(sum);
    operations += keys.size();
  }
  perOperation(state, operations);
}

// Bytes per placed entry at 90 % fill (or the first failure), every collection included.
void BM_Memory(benchmark::State& state, TableKind kind) {
  const U32 buckets = static_cast<U32>(state.range(0));
  const TableSpec shape = geometry(kind, buckets);
  const U64 capacity = U64{shape.numBanks} * buckets * shape.numBucketEntries;
  const auto keys = keysFor(kind, capacity);
  double perEntry = 0;
  double fill = 0;
  // Operator new's bytes and the collections' control bytes, which come from calloc.
  const auto held = [] { return bench::liveBytes() + Fwk::collectionControlBytes(); };
  for (auto _ : state) {
    const std::size_t before = held();
    auto t = newTable(shape);
    std::size_t next = 0;
    const auto placed = fillTo(*t, keys, next, capacity * 90 / 100);
    // The benchmark's own list of placed keys is not the library's.
    const std::size_t after = held() - placed.capacity() * sizeof(HashEntryKey);
    perEntry = static_cast<double>(after - before) / static_cast<double>(placed.size());
    fill = static_cast<double>(t->slotsUsed()) / static_cast<double>(capacity);
    t.reset();
  }
  state.counters["bytes_per_entry"] = perEntry;
  state.counters["fill"] = fill;
}

void BM_BaselineMemory(benchmark::State& state) {
  const U32 buckets = static_cast<U32>(state.range(0));
  const auto keys = keysFor(TableKind::single, U64{4} * buckets * 4 * 90 / 100);
  double perEntry = 0;
  for (auto _ : state) {
    const std::size_t before = bench::liveBytes();
    Baseline map;
    U32 id = 0;
    for (const HashEntryKey& k : keys) map.insert_or_assign(k, EntryId(id++));
    perEntry = static_cast<double>(bench::liveBytes() - before) / static_cast<double>(keys.size());
  }
  state.counters["bytes_per_entry"] = perEntry;
}

// The fill ratio at which the first key finds no room: the placement rules decide it, so
// it is recorded here, where a change would show.
void BM_FirstFailure(benchmark::State& state, TableKind kind) {
  const U32 buckets = static_cast<U32>(state.range(0));
  const TableSpec shape = geometry(kind, buckets);
  const U64 capacity = U64{shape.numBanks} * buckets * shape.numBucketEntries;
  const auto keys = keysFor(kind, capacity);
  double fill = 0;
  for (auto _ : state) {
    auto t = newTable(shape);
    std::size_t next = 0;
    fillTo(*t, keys, next, capacity);
    fill = static_cast<double>(t->slotsUsed()) / static_cast<double>(capacity);
  }
  state.counters["fill"] = fill;
}

const int64_t defaultBuckets = bucketsFromEnvironment();

void scaling(benchmark::internal::Benchmark* b) {
  // Capacities 2^12 .. 2^22 slots: 4 banks x 4 slots x 2^(k-4) buckets.
  for (int k = 12; k <= 22; k += 2) b->Arg(int64_t{1} << (k - 4));
}

}  // namespace

BENCHMARK_CAPTURE(BM_Place, single_0_50, TableKind::single, 0.0, 0.5)
    ->Arg(defaultBuckets)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Place, single_50_90, TableKind::single, 0.5, 0.9)
    ->Arg(defaultBuckets)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Remove, single, TableKind::single)->Arg(defaultBuckets)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Lookup, single, TableKind::single)->Arg(defaultBuckets)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Place, multi_0_50, TableKind::multi, 0.0, 0.5)->Arg(defaultBuckets)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Place, multi_50_90, TableKind::multi, 0.5, 0.9)
    ->Arg(defaultBuckets)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Remove, multi, TableKind::multi)->Arg(defaultBuckets)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Lookup, multi, TableKind::multi)->Arg(defaultBuckets)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlaceAtId)->Arg(defaultBuckets)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Churn, single, TableKind::single)->Arg(defaultBuckets)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Churn, multi, TableKind::multi)->Arg(defaultBuckets)->Unit(benchmark::kMillisecond);
// The single-width table with the breadth-first search for room.
BENCHMARK_CAPTURE(BM_Place, single_breadth_first_0_50, TableKind::single, 0.0, 0.5, MoveSearch::breadthFirst)
    ->Arg(defaultBuckets)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Place, single_breadth_first_50_90, TableKind::single, 0.5, 0.9, MoveSearch::breadthFirst)
    ->Arg(defaultBuckets)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Churn, single_breadth_first, TableKind::single, MoveSearch::breadthFirst)
    ->Arg(defaultBuckets)
    ->Unit(benchmark::kMillisecond);
// The multi-width table with the search for the fewest moves.
BENCHMARK_CAPTURE(BM_Place, multi_breadth_first_0_50, TableKind::multi, 0.0, 0.5, MoveSearch::breadthFirst)
    ->Arg(defaultBuckets)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Place, multi_breadth_first_50_90, TableKind::multi, 0.5, 0.9, MoveSearch::breadthFirst)
    ->Arg(defaultBuckets)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Churn, multi_breadth_first, TableKind::multi, MoveSearch::breadthFirst)
    ->Arg(defaultBuckets)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BaselineInsert)->Apply(scaling)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BaselineErase)->Arg(defaultBuckets)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BaselineFind)->Arg(defaultBuckets)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Place, single_scaling_0_50, TableKind::single, 0.0, 0.5)
    ->Apply(scaling)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Place, multi_scaling_0_50, TableKind::multi, 0.0, 0.5)
    ->Apply(scaling)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Memory, single, TableKind::single)->Arg(defaultBuckets)->Iterations(1);
BENCHMARK_CAPTURE(BM_Memory, multi, TableKind::multi)->Arg(defaultBuckets)->Iterations(1);
BENCHMARK(BM_BaselineMemory)->Arg(defaultBuckets)->Iterations(1);
BENCHMARK_CAPTURE(BM_FirstFailure, single, TableKind::single)->Arg(defaultBuckets)->Iterations(1);
BENCHMARK_CAPTURE(BM_FirstFailure, multi, TableKind::multi)->Arg(defaultBuckets)->Iterations(1);

BENCHMARK_MAIN();
