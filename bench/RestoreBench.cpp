// The cost of a restart: a restore of a saved placement into a fresh multi-width table of 4
// banks, against placing the same keys anywhere from empty, both per entry. The placement is
// 2^20 entries (70/20/10 single/double/quad) in 4 banks x 2^18 buckets x 4 slots, about 40 %
// of the slots; MHT_BENCH_BUCKETS=N (the test suite's quick pass) makes it 16 * N buckets a
// bank and 4 entries a bucket of one bank.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>
#include <vector>

#include "KeySource.h"
#include "Simulation.h"
#include "Tables.h"

namespace {

using namespace mht;
using namespace TesselCentral;

constexpr U64 restoreSeed = 20261124;

U32 restoreBuckets() {
  const char* text = std::getenv("MHT_BENCH_BUCKETS");
  const long long buckets = text != nullptr && *text != '\0' ? std::atoll(text) : 16384;
  return static_cast<U32>((buckets > 0 ? buckets : 16384) * 16);
}

TableSpec restoreGeometry() { return TableSpec{TableKind::multi, 4, restoreBuckets(), 4, 3, false}; }

std::unique_ptr<TableSession> freshTable() {
  const TableSpec shape = restoreGeometry();
  auto session = std::make_unique<TableSession>(shape);
  for (const BankSpec& b : defaultBanks(shape, false)) session->bankIs(b);
  return session;
}

// The keys and the placement that a table of the geometry gives them, made once.
struct SavedTable {
  std::vector<HashEntryKey> keys;
  SavedPlacement saved;
};

const SavedTable& savedTable() {
  static const SavedTable table = [] {
    SavedTable t;
    KeySource source(KeySourceKind::random, restoreSeed, WidthMix{}, {});
    const std::size_t entries = std::size_t{restoreBuckets()} * 4;
    auto session = freshTable();
    while (t.keys.size() < entries) {
      const HashEntryKey k = source.next();
      if (session->status().statusHas(k)) continue;
      session->config().configIs(k, EntryId());
      if (!session->status().status(k).isValid()) {
        session->config().configDel(k);
        continue;
      }
      t.keys.push_back(k);
    }
    t.saved = savedPlacementOf(session->status());
    return t;
  }();
  return table;
}

void perEntry(benchmark::State& state, U64 entries) {
  state.counters["time_per_entry"] =
      benchmark::Counter(static_cast<double>(entries), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.SetItemsProcessed(static_cast<int64_t>(entries));
  state.SetLabel(std::to_string(savedTable().saved.size()) + " entries");
}

// restore(saved): the check of the whole placement, then each key recorded and published.
// The requests are written before, with the clock paused, as the restart sequence does.
void BM_Restore(benchmark::State& state) {
  const SavedTable& saved = savedTable();
  U64 entries = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto t = freshTable();
    t->table().hasNotificationActiveIs(false);
    for (const HashEntryKey& k : saved.keys) t->config().configIs(k, EntryId());
    state.ResumeTiming();
    const RestoreCheck check = t->table().restore(saved.saved);
    state.PauseTiming();
    if (!check.passes()) state.SkipWithError(check.text().c_str());
    entries += saved.saved.size();
    t.reset();
    state.ResumeTiming();
  }
  perEntry(state, entries);
}

// The same keys placed anywhere from empty, in the order the table first placed them.
void BM_PlaceForRestore(benchmark::State& state) {
  const SavedTable& saved = savedTable();
  U64 entries = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto t = freshTable();
    state.ResumeTiming();
    for (const HashEntryKey& k : saved.keys) t->config().configIs(k, EntryId());
    state.PauseTiming();
    entries += saved.keys.size();
    t.reset();
    state.ResumeTiming();
  }
  perEntry(state, entries);
}

}  // namespace

BENCHMARK(BM_Restore)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_PlaceForRestore)->Unit(benchmark::kMillisecond)->Iterations(3);
