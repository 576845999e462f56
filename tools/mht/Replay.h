// mht replay: reproduces a placement from a sequence of requests, one per line.
//
//   # comment; blank lines ignored; numbers decimal or 0x-hex
//   table single <numBanks> <numBuckets> <numBucketEntries> <maxRecursiveSteps> <bucketSpanBanks>
//   table multi <numBanks> <numBuckets> <numBucketEntries> <maxRecursiveSteps>
//   bank <baseEntryType> <bankId> <numBuckets> <bucketSize> <hashFunc> <hashOffSet> <hashBits> <hashMask>
//   bank ... <hashMask> <phyBankId> <doubleEntryTwoBucketMode>        (multi-width tables)
//   moveSearch <depthFirst|breadthFirst>   how the table makes room from then on
//   set <crc16> <crc32> <fapId> <entryType> <id|any>
//   del <crc16> <crc32> <fapId> <entryType>
//   resync                       the table's full resync (handleHashUpdate())
//   reconcile                    the table's reconcile()
//   trace <levelMask>
//   restore <snapshotFile>       takes over a snapshot's requests and results (Snapshot.h),
//                                after the table and bank lines, before any request
//
// At the end it prints the table's canonical state (see TableSession::dump), and with
// --snapshot FILE writes the requests and results to FILE for a later 'restore FILE'. A bad line is
// reported as FILE:LINE: message, before anything of that line reaches the table, and the
// replay stops with a non-zero exit. The table and bank lines are held to what parses (and
// a multi-width bank to a base type it can be built with); the table itself judges its
// configuration at the first set, del, resync or reconcile (configurationCheck), and a
// table that cannot serve its requests is refused there, every problem named. It judges
// every request, deletion and resync before it is made too (requestCheck, removalCheck,
// resyncCheck): one that would stop the agent, now or through a later request, is such a
// bad line, and its message names the assertion's condition and the reason; one that is
// accepted but hazardous is carried out and reported as FILE:LINE: warning: ..., an error
// under --strict; one that changes nothing is carried out silently. The keys that a
// reconcile leaves as they stand are reported as FILE:LINE: note: ...
#pragma once

#include <iosfwd>
#include <optional>
#include <string>

#include "MultiHashTable/MultiHashTableTypes.h"

namespace mht {

struct ReplayOptions {
  bool explain = false;  // list the candidates of every key left without a place, and the
                         // whole request check of every request reported
  bool audit = false;    // check the table's consistency after every request
  bool strict = false;   // a hazardous request is an error, not a warning
  std::optional<TesselCentral::U32> traceMask;
  std::string snapshot;  // when set, the file that takes the table's requests and results at the end
};

// Returns the process exit code: 0, or 1 after a reported error.
int runReplay(std::istream& in, const std::string& fileName, const ReplayOptions& options, std::ostream& out,
              std::ostream& err);

}  // namespace mht
