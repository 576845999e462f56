// What the single-width table's placement, placement at a requested id and removal would
// do with a request: the table's own walks of the key's candidates, read without tracing
// or changing anything, and told in the client's terms.
#pragma once

#include "MultiHashTable/RequestCheck.h"

namespace TesselCentral {

class MultiHashTable;

namespace singleWidthCheck {

// insertEntryWithId(key, eId).
RequestCheck placementAt(const MultiHashTable& table, const HashEntryKey& key, EntryId eId);
// insertEntry of the key, as the reaction to a request for any id makes it.
RequestCheck placement(const MultiHashTable& table, const HashEntryKey& key);
// removeEntry(key).
RequestCheck removal(const MultiHashTable& table, const HashEntryKey& key);

}  // namespace singleWidthCheck

}  // namespace TesselCentral
