// Shared fixtures of the single-width tests: keys built from their two hashes, and a
// table whose banks alternate between the low bits of crc32 (even banks) and of crc16
// (odd banks), so that a key's bucket in each bank is known by hand.
#pragma once

#include <sstream>
#include <string>

#include "MultiHashTable/MultiHashTable.h"
#include "TestSupport.h"

namespace TesselCentral::test {

// Keys: test::key(crc16, crc32, fapId) (TestSupport.h).

inline std::string textOf(const HashEntryKey& k) {
  std::ostringstream os;
  os << k;
  return os.str();
}

struct Tables {
  Ptr<HashEntryConfig> config = hashEntryConfigFactory();
  Ptr<HashEntryStatus> status = hashEntryStatusFactory();
  Ptr<MultiHashTable> table;

  void request(const HashEntryKey& k) { config->configIs(k, EntryId()); }
  void requestAt(const HashEntryKey& k, U32 id) { config->configIs(k, EntryId(id)); }
  EntryId at(const HashEntryKey& k) const { return status->status(k); }
};

inline Tables makeTable(U32 banks, U32 buckets, U32 slots, U32 steps, bool bucketSpanBanks = false) {
  Tables s;
  s.table = multiHashTableFactory(banks, buckets, slots, s.config, s.status, steps, bucketSpanBanks);
  for (U32 b = 0; b < banks; ++b) {
    s.table->bankIs(HashEntryType::singleWide, b, buckets, slots,
                    b % 2 == 0 ? HashFunc::hashCrc32Lower : HashFunc::hashCrc16Lower, 0, 0, buckets - 1);
  }
  return s;
}

}  // namespace TesselCentral::test
