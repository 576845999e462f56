// A random client of a table: requests anywhere and at a candidate id, deletions and
// requests written anew, each decided from one table's state and then written, checked, to
// any table that should answer alike.
#pragma once

#include <algorithm>
#include <random>
#include <vector>

#include "MultiHashTable/MultiHashTable.h"

namespace TesselCentral::test {

struct RandomWrite {
  HashEntryKey key;
  bool deletion = false;
  EntryId id;
};

class RandomClient {
 public:
  // `refusal` is what the request check keeps from the table: a multi-width request at an id
  // that names another id's position is hazardous, and a restore puts such a key where its
  // id names, not where the request put it.
  RandomClient(unsigned seed, std::vector<HashEntryType> widths, WriteRefusal refusal)
      : rng_(seed), widths_(std::move(widths)), refusal_(refusal) {}

  // One time in four the deletion of a requested key, one in eight a requested key asked for
  // anywhere again, one in four a new key at one of its candidate ids, otherwise a new key
  // anywhere.
  RandomWrite next(const MultiHashTableBase& table) {
    const unsigned pick = rng_() % 8;
    if (!requested_.empty() && pick < 3) {
      const HashEntryKey k = requested_[rng_() % requested_.size()];
      if (pick < 2) return RandomWrite{k, true, EntryId()};
      return RandomWrite{k, false, EntryId()};
    }
    const HashEntryKey k(static_cast<U16>(1 + rng_() % 4000), static_cast<U32>(1 + rng_() % 0xFFFFFFF0u),
                         static_cast<U32>(rng_() % 4), widths_[rng_() % widths_.size()]);
    if (pick < 5) {
      const CandidateList places = table.candidates(k);
      if (!places.empty()) return RandomWrite{k, false, places.places()[rng_() % places.size()].id};
    }
    return RandomWrite{k, false, EntryId()};
  }

  // Writes through the request check: a write that would stop the agent is refused.
  CheckedWrite apply(HashEntryConfig& config, const MultiHashTableBase& table, const RandomWrite& w) const {
    return w.deletion ? checkedConfigDel(config, table, w.key, refusal_)
                      : checkedConfigIs(config, table, w.key, w.id, refusal_);
  }

  // Keeps the list of requested keys in step with a write that was made.
  void written(const RandomWrite& w, const HashEntryConfig& config) {
    const auto at = std::find(requested_.begin(), requested_.end(), w.key);
    const bool present = config.configHas(w.key);
    if (present && at == requested_.end()) requested_.push_back(w.key);
    if (!present && at != requested_.end()) {
      *at = requested_.back();
      requested_.pop_back();
    }
  }

 private:
  std::mt19937 rng_;
  std::vector<HashEntryType> widths_;
  std::vector<HashEntryKey> requested_;
  WriteRefusal refusal_;
};

}  // namespace TesselCentral::test
