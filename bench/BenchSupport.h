// What the benchmarks share: the tables they time, their keys from a fixed seed, and a
// fill to a given number of slots.
#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "KeySource.h"
#include "MultiHashTable/MultiHashTable.h"
#include "Tables.h"

namespace bench {

using mht::TableKind;
using mht::TableSession;
using mht::TableSpec;
using TesselCentral::HashEntryKey;
using TesselCentral::U32;
using TesselCentral::U64;

inline constexpr U64 seed = 20261122;

// 4 banks x numBuckets x 4 slots, maxRecursiveSteps 3, banks hashing their own windows.
TableSpec geometry(TableKind kind, U32 numBuckets);
// The table with the tool's default banks; doubleEntryTwoBucketMode for a multi-width table's
// wide entries in bucket groups.
std::unique_ptr<TableSession> newTable(const TableSpec& shape, bool doubleEntryTwoBucketMode = false);

// Random keys: single-wide for a single-width table, 70/20/10 for a multi-width one.
std::vector<HashEntryKey> keysFor(TableKind kind, std::size_t n, U64 keySeed = seed);
// Random keys of a multi-width mix (single/double/quad weights).
std::vector<HashEntryKey> keysFor(const mht::WidthMix& mix, std::size_t n, U64 keySeed = seed);

// Places keys from `next` on until `targetSlots` slots are used or a key finds no room.
// Returns the keys placed.
std::vector<HashEntryKey> fillTo(TableSession& t, const std::vector<HashEntryKey>& keys, std::size_t& next,
                                 U64 targetSlots);

// fillTo's requests and nothing else: the keys are not kept, so that a timed fill times the
// client's writes alone. Returns how many requests were written.
std::size_t writeTo(TableSession& t, const std::vector<HashEntryKey>& keys, std::size_t& next, U64 targetSlots);

// One step of churn near full: deletes a random placed key and requests `key` through
// `request` (a plain configIs, or one that times it). The new key takes the deleted one's
// place in `placed`; a key without room is withdrawn and `placed` shrinks.
template <class Request>
void churnOnce(TableSession& t, std::vector<HashEntryKey>& placed, std::mt19937_64& pick, const HashEntryKey& key,
               Request&& request) {
  const std::size_t victim = pick() % placed.size();
  t.config().configDel(placed[victim]);
  request(key);
  if (t.status().status(key).isValid()) {
    placed[victim] = key;
  } else {
    t.config().configDel(key);
    placed[victim] = placed.back();
    placed.pop_back();
  }
}

// 16384 buckets a bank; MHT_BENCH_BUCKETS=N makes it N, as the test suite's quick pass
// (bench_smoke) does to run every benchmark once on a small table.
std::int64_t bucketsFromEnvironment();

// Per-request placement times near full: from 90 % fill to the first key without room, then
// in churn at that load (delete a random placed key, request a new one). A table whose first
// key without room comes before 90 % churns from there.
//
// Each request's time is the minimum over several passes of the same sequence (the tables
// are deterministic, so every pass makes the same requests with the same outcomes): the
// machine's interruptions land in one pass, not in all of them, and what remains is the
// request's own work.

// The time of one configIs with the invalid id, in nanoseconds.
double placementTime(TableSession& t, const HashEntryKey& key);

// Per-request times in nanoseconds of one pass, by phase.
struct PassTimes {
  std::vector<double> fill;
  std::vector<double> churn;
  double seconds = 0;  // the whole pass, the untimed fill to 90 % included
  bool cut = false;    // stopped by PassLimits::maxSeconds

  std::size_t requests() const { return fill.size() + churn.size(); }
};

// How far one pass goes: `churnRequests` after the first failure, and no more than
// `maxRequests` timed requests in all or than `maxSeconds` of them (a limit that only a first
// pass sets: the passes after it make as many requests as it did).
struct PassLimits {
  U64 churnRequests = 0;
  std::size_t maxRequests = std::numeric_limits<std::size_t>::max();
  double maxSeconds = std::numeric_limits<double>::infinity();
  // The first key without room, when it comes before 90 %, timed too (in the fill phase's
  // times): it is the request that searches every chain the budget allows.
  bool timeEarlyFailure = false;
};

PassTimes nearFullPass(const TableSpec& shape, bool doubleEntryTwoBucketMode, const std::vector<HashEntryKey>& keys,
                       const PassLimits& limits);

// Keeps, request by request, the fastest of the passes so far.
void keepFastest(std::vector<double>& fastest, const std::vector<double>& pass, benchmark::State& state);

// The element below which `fraction` of the sorted times lie (the maximum for 1).
double percentile(const std::vector<double>& sorted, double fraction);

// The phase's request count and p50, p99, p99.9 and maximum in microseconds, as counters
// "<phase>_requests", "<phase>_p50_us" and so on.
void reportTimes(benchmark::State& state, const std::string& phase, std::vector<double> times);

}  // namespace bench
