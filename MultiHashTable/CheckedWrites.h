// Writes that refuse rather than stop the agent.
//
// A table reacts to every request inside the client's write, and the described reaction
// stops the agent on a client mistake: an id that is not the key's, an id another key
// holds, the removal of a key the table never handled. An agent that would rather refuse
// such a request than restart writes through these calls: each checks the request against
// the table first, writes it only when the verdict allows, and returns the verdict either
// way. The plain configIs and configDel stay as they are.
#pragma once

#include "MultiHashTable/RequestCheck.h"
#include "MultiHashTable/RequestsAndResults.h"

namespace TesselCentral {

class MultiHashTableBase;

// Which verdicts keep a checked write from being made.
enum class WriteRefusal : U8 {
  fatal,          // a write that stops the agent, now or in a later request
  fatalOrHazard,  // and a write that publishes an id at which another key may be published,
                  // or that the table's configuration cannot serve
};

struct CheckedWrite {
  RequestCheck verdict;  // what the write does, or would have done
  bool written = false;  // whether the request collection was changed
};

// configIs(key, id) on `config`, the request collection that `table` reacts to, unless the
// table's request check refuses it. A write from inside one of the table's own status
// notifications (the table is reacting to another request) is always refused.
CheckedWrite checkedConfigIs(HashEntryConfig& config, const MultiHashTableBase& table, const HashEntryKey& key,
                             EntryId id, WriteRefusal refusal = WriteRefusal::fatal);
// configDel(key) on `config`, unless the table's removal check refuses it.
CheckedWrite checkedConfigDel(HashEntryConfig& config, const MultiHashTableBase& table, const HashEntryKey& key,
                              WriteRefusal refusal = WriteRefusal::fatal);

// Whether a verdict keeps a checked write from being made.
bool refuses(WriteRefusal refusal, const RequestCheck& verdict) noexcept;

}  // namespace TesselCentral
