#include "BenchSupport.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <random>

#include "Simulation.h"

namespace bench {

using TesselCentral::EntryId;

TableSpec geometry(TableKind kind, U32 numBuckets) { return TableSpec{kind, 4, numBuckets, 4, 3, false}; }

std::unique_ptr<TableSession> newTable(const TableSpec& shape, bool doubleEntryTwoBucketMode) {
  auto session = std::make_unique<TableSession>(shape);
  for (const mht::BankSpec& b : mht::defaultBanks(shape, doubleEntryTwoBucketMode)) session->bankIs(b);
  return session;
}

std::vector<HashEntryKey> keysFor(TableKind kind, std::size_t n, U64 keySeed) {
  return keysFor(kind == TableKind::single ? mht::WidthMix{100, 0, 0} : mht::WidthMix{}, n, keySeed);
}

std::vector<HashEntryKey> keysFor(const mht::WidthMix& mix, std::size_t n, U64 keySeed) {
  mht::KeySource source(mht::KeySourceKind::random, keySeed, mix, {});
  std::vector<HashEntryKey> keys;
  keys.reserve(n);
  for (std::size_t i = 0; i < n; ++i) keys.push_back(source.next());
  return keys;
}

namespace {

// Requests keys from `next` on until the placed keys cover `targetSlots` or a key finds no
// room (its request stays); a placed key shows in the slots the table counts as used.
template <class OnPlaced>
void requestUntil(TableSession& t, const std::vector<HashEntryKey>& keys, std::size_t& next, U64 targetSlots,
                  OnPlaced onPlaced) {
  for (U64 used = t.slotsUsed(); used < targetSlots && next < keys.size();) {
    const HashEntryKey& k = keys[next++];
    t.config().configIs(k, EntryId());
    const U64 now = t.slotsUsed();
    if (now == used) break;  // no room for the key
    used = now;
    onPlaced(k);
  }
}

}  // namespace

std::vector<HashEntryKey> fillTo(TableSession& t, const std::vector<HashEntryKey>& keys, std::size_t& next,
                                 U64 targetSlots) {
  std::vector<HashEntryKey> placed;
  requestUntil(t, keys, next, targetSlots, [&](const HashEntryKey& k) { placed.push_back(k); });
  return placed;
}

std::size_t writeTo(TableSession& t, const std::vector<HashEntryKey>& keys, std::size_t& next, U64 targetSlots) {
  const std::size_t first = next;
  requestUntil(t, keys, next, targetSlots, [](const HashEntryKey&) {});
  return next - first;
}

std::int64_t bucketsFromEnvironment() {
  const char* text = std::getenv("MHT_BENCH_BUCKETS");
  if (text == nullptr || *text == '\0') return 16384;
  const long long buckets = std::atoll(text);
  return buckets > 0 ? buckets : 16384;
}

double placementTime(TableSession& t, const HashEntryKey& key) {
  const auto start = std::chrono::steady_clock::now();
  t.config().configIs(key, EntryId());
  const auto end = std::chrono::steady_clock::now();
  return std::chrono::duration<double, std::nano>(end - start).count();
}

PassTimes nearFullPass(const TableSpec& shape, bool doubleEntryTwoBucketMode, const std::vector<HashEntryKey>& keys,
                       const PassLimits& limits) {
  const auto passStart = std::chrono::steady_clock::now();
  const U64 capacity = U64{shape.numBanks} * shape.numBuckets * shape.numBucketEntries;
  auto t = newTable(shape, doubleEntryTwoBucketMode);
  std::size_t next = 0;
  PassTimes times;
  std::vector<HashEntryKey> placed;
  bool failedBefore = false;
  if (limits.timeEarlyFailure) {
    // fillTo's requests, each timed and the time of a failure kept.
    for (U64 used = t->slotsUsed(); used < capacity * 90 / 100 && next < keys.size();) {
      const HashEntryKey& k = keys[next++];
      const double took = placementTime(*t, k);
      if (!t->status().status(k).isValid()) {
        times.fill.push_back(took);
        failedBefore = true;
        break;
      }
      used += t->widthOf(k);
      placed.push_back(k);
    }
  } else {
    placed = fillTo(*t, keys, next, capacity * 90 / 100);
    failedBefore = next > 0 && !t->status().status(keys[next - 1]).isValid();
  }
  // A table whose first key without room comes before 90 % churns from there.
  if (failedBefore) t->config().configDel(keys[next - 1]);
  double timed = times.fill.empty() ? 0 : times.fill.back();
  const auto more = [&] { return times.requests() < limits.maxRequests && timed / 1e9 < limits.maxSeconds; };
  while (!failedBefore && next < keys.size() && more()) {
    const HashEntryKey& k = keys[next++];
    times.fill.push_back(placementTime(*t, k));
    timed += times.fill.back();
    if (!t->status().status(k).isValid()) {
      t->config().configDel(k);
      break;
    }
    placed.push_back(k);
  }
  std::mt19937_64 pick(seed);
  for (U64 i = 0; i < limits.churnRequests && next < keys.size() && !placed.empty() && more(); ++i) {
    churnOnce(*t, placed, pick, keys[next++], [&](const HashEntryKey& k) {
      times.churn.push_back(placementTime(*t, k));
      timed += times.churn.back();
    });
  }
  times.cut = timed / 1e9 >= limits.maxSeconds;
  times.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - passStart).count();
  return times;
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

double percentile(const std::vector<double>& sorted, double fraction) {
  if (sorted.empty()) return 0;
  const auto rank = static_cast<std::size_t>(std::ceil(fraction * static_cast<double>(sorted.size())));
  return sorted[std::clamp<std::size_t>(rank, 1, sorted.size()) - 1];
}

void reportTimes(benchmark::State& state, const std::string& phase, std::vector<double> times) {
  std::sort(times.begin(), times.end());
  const auto micro = [](double ns) { return ns / 1000; };
  state.counters[phase + "_requests"] = static_cast<double>(times.size());
  state.counters[phase + "_p50_us"] = micro(percentile(times, 0.5));
  state.counters[phase + "_p99_us"] = micro(percentile(times, 0.99));
  state.counters[phase + "_p999_us"] = micro(percentile(times, 0.999));
  state.counters[phase + "_max_us"] = micro(percentile(times, 1.0));
}

}  // namespace bench
