// mht replay: reproduces a placement from a sequence of requests, one per line.
//
//   # comment; blank lines ignored; numbers decimal or 0x-hex
//   table single <numBanks> <numBuckets> <numBucketEntries> <maxRecursiveSteps> <bucketSpanBanks>
//   table multi <numBanks> <numBuckets> <numBucketEntries> <maxRecursiveSteps>
//   bank <baseEntryType> <bankId> <numBuckets> <bucketSize> <hashFunc> <hashOffSet> <hashBits> <hashMask>
//   bank ... <hashMask> <phyBankId> <doubleEntryTwoBucketMode>        (multi-width tables)
//   set <crc16> <crc32> <fapId> <entryType> <id|any>
//   del <crc16> <crc32> <fapId> <entryType>
//   trace <levelMask>
//
// At the end it prints the table's canonical state (see TableSession::dump). A bad line is
// reported as FILE:LINE: message, before anything of that line reaches the table, and the
// replay stops with a non-zero exit.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>

#include "MultiHashTableTypes.h"

namespace mht {

struct ReplayOptions {
  bool explain = false;  // list the candidates of every key left without a place
  bool audit = false;    // check the table's consistency after every request
  std::optional<TesselCentral::U32> traceMask;
};

// Returns the process exit code: 0, or 1 after a reported error.
int runReplay(std::istream& in, const std::string& fileName, const ReplayOptions& options, std::ostream& out,
              std::ostream& err);

}  // namespace mht
