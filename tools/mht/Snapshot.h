// A replay's snapshot: the table's requests and results at the end of a script, in the
// replay's own line format, for a later replay to take over with a 'restore FILE' line.
//
//   # comment; blank lines ignored
//   set <crc16> <crc32> <fapId> <entryType> <id|any>          a request
//   status <crc16> <crc32> <fapId> <entryType> <id|invalid>   a result, as the dump prints it
#pragma once

#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

#include "MultiHashTable/MultiHashTable.h"
#include "Tables.h"

namespace mht {

struct Snapshot {
  std::vector<std::pair<TesselCentral::HashEntryKey, TesselCentral::EntryId>> requests;
  TesselCentral::SavedPlacement results;
};

// Writes the session's requests and results, each sorted by key.
void writeSnapshot(const TableSession& session, std::ostream& out);

// Reads a snapshot; a bad line throws LineError with "FILE:LINE: what".
Snapshot readSnapshot(std::istream& in, const std::string& fileName);

// The replay's restart: the table stops listening, the snapshot's requests are written, its
// results are taken over by the table's restore, and the table listens again. Returns the
// restore's check; a refused restore leaves the table without results and the requests
// written.
TesselCentral::RestoreCheck restoreSnapshot(TableSession& session, const Snapshot& snapshot);

// The refusal's text: "the table refuses the saved placement: <problem>", or the count and
// one problem per indented line.
std::string restoreRefusal(const TesselCentral::RestoreCheck& check);

}  // namespace mht
