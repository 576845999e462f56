// Shared helpers of the restore tests: the whole state of a table as values to compare, and
// a saved placement taken over by a fresh table in the restart order.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <utility>
#include <vector>

#include "MultiHashTable/MultiHashTable.h"
#include "TestSupport.h"

namespace TesselCentral::test {

// Everything a table holds that a restore writes or a refusal must leave alone.
struct TableState {
  std::vector<std::pair<HashEntryKey, EntryId>> requests;
  std::vector<std::pair<HashEntryKey, EntryId>> results;
  std::vector<std::pair<U32, HashEntryKey>> records;
  std::vector<std::pair<U32, HashEntryKey>> positions;     // multi-width: posToKey
  std::vector<std::pair<HashEntryKey, U32>> keyPositions;  // multi-width: keyToPos
  std::map<std::pair<U32, U32>, U64> bucketStates;         // multi-width: bank, bucket -> state (non-zero)
  U32 insertions = 0;
  U32 deletions = 0;
  U32 moves = 0;

  bool operator==(const TableState&) const = default;
};

template <class Collection>
auto sortedPairs(const Collection& c) {
  std::vector<std::pair<std::decay_t<decltype(c.begin()->key)>, std::decay_t<decltype(c.begin()->value)>>> out;
  for (const auto& e : c) out.emplace_back(e.key, e.value);
  std::sort(out.begin(), out.end());
  return out;
}

inline TableState stateOf(const MultiHashTableBase& table) {
  TableState s;
  if (table.hashEntryConfig()) s.requests = sortedPairs(table.hashEntryConfig()->configCollection());
  s.results = sortedPairs(table.hashEntryStatus()->statusCollection());
  for (const auto& e : table.hashTableEntryCollection()) s.records.emplace_back(e.key.value(), e.value);
  std::sort(s.records.begin(), s.records.end());
  if (const auto* multi = dynamic_cast<const MultiEntryTypeHashTable*>(&table)) {
    s.positions = sortedPairs(multi->posToKeyCollection());
    s.keyPositions = sortedPairs(multi->keyToPosCollection());
    for (const auto& b : multi->bankCollection()) {
      for (const auto& state : b.value->bucketCollection()) {
        if (state.value != 0) s.bucketStates[{b.key, state.key}] = state.value;
      }
    }
  }
  s.insertions = table.numInsertions();
  s.deletions = table.numDeletions();
  s.moves = table.numMoves();
  return s;
}

// The placement alone: results, records, positions and bucket states, without the counters.
inline TableState placementOf(const MultiHashTableBase& table) {
  TableState s = stateOf(table);
  s.insertions = s.deletions = s.moves = 0;
  return s;
}

inline std::ostream& operator<<(std::ostream& os, const TableState& s) {
  return os << s.requests.size() << " requests, " << s.results.size() << " results, " << s.records.size()
            << " records, " << s.positions.size() << " positions, " << s.bucketStates.size() << " bucket states";
}

// The restart order: the table stops listening, the requests are written as the agent
// rewrites them, the saved placement is taken over, the table listens again.
inline RestoreCheck restartFrom(MultiHashTableBase& table, HashEntryConfig& config,
                                const std::vector<std::pair<HashEntryKey, EntryId>>& requests,
                                const SavedPlacement& saved) {
  table.hasNotificationActiveIs(false);
  for (const auto& [k, id] : requests) config.configIs(k, id);
  RestoreCheck check = table.restore(saved);
  table.hasNotificationActiveIs(true);
  return check;
}

}  // namespace TesselCentral::test
