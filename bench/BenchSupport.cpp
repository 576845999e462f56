#include "BenchSupport.h"

#include <cstdlib>

#include "KeySource.h"
#include "Simulation.h"

namespace bench {

using TesselCentral::EntryId;

TableSpec geometry(TableKind kind, U32 numBuckets) { return TableSpec{kind, 4, numBuckets, 4, 3, false}; }

std::unique_ptr<TableSession> newTable(const TableSpec& shape) {
  auto session = std::make_unique<TableSession>(shape);
  for (const mht::BankSpec& b : mht::defaultBanks(shape, false)) session->bankIs(b);
  return session;
}

std::vector<HashEntryKey> keysFor(TableKind kind, std::size_t n, U64 keySeed) {
  mht::KeySource source(mht::KeySourceKind::random, keySeed,
                        kind == TableKind::single ? mht::WidthMix{100, 0, 0} : mht::WidthMix{}, {});
  std::vector<HashEntryKey> keys;
  keys.reserve(n);
  for (std::size_t i = 0; i < n; ++i) keys.push_back(source.next());
  return keys;
}

std::vector<HashEntryKey> fillTo(TableSession& t, const std::vector<HashEntryKey>& keys, std::size_t& next,
                                 U64 targetSlots) {
  std::vector<HashEntryKey> placed;
  U64 used = t.slotsUsed();
  while (used < targetSlots && next < keys.size()) {
    const HashEntryKey& k = keys[next++];
    t.config().configIs(k, EntryId());
    if (!t.status().status(k).isValid()) break;
    used += t.widthOf(k);
    placed.push_back(k);
  }
  return placed;
}

std::int64_t bucketsFromEnvironment() {
  const char* text = std::getenv("MHT_BENCH_BUCKETS");
  if (text == nullptr || *text == '\0') return 16384;
  const long long buckets = std::atoll(text);
  return buckets > 0 ? buckets : 16384;
}

}  // namespace bench
