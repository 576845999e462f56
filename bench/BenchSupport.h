// What the benchmarks share: the tables they time, their keys from a fixed seed, and a
// fill to a given number of slots.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

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
std::unique_ptr<TableSession> newTable(const TableSpec& shape);

// Random keys: single-wide for a single-width table, 70/20/10 for a multi-width one.
std::vector<HashEntryKey> keysFor(TableKind kind, std::size_t n, U64 keySeed = seed);

// Places keys from `next` on until `targetSlots` slots are used or a key finds no room.
// Returns the keys placed.
std::vector<HashEntryKey> fillTo(TableSession& t, const std::vector<HashEntryKey>& keys, std::size_t& next,
                                 U64 targetSlots);

// 16384 buckets a bank; MHT_BENCH_BUCKETS=N makes it N, as the test suite's quick pass
// (bench_smoke) does to run every benchmark once on a small table.
std::int64_t bucketsFromEnvironment();

}  // namespace bench
