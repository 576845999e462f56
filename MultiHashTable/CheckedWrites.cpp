// Writes that check first: the verdict decides, and the caller gets it either way.
#include "MultiHashTable/CheckedWrites.h"

#include "MultiHashTable/TableBase.h"

namespace TesselCentral {

namespace {

// A write from inside the table's own status notification is never made: the placement
// under way would not know of it.
bool refusesNow(const MultiHashTableBase& table, WriteRefusal refusal, const RequestCheck& verdict) noexcept {
  return table.reacting() || refuses(refusal, verdict);
}

}  // namespace

bool refuses(WriteRefusal refusal, const RequestCheck& verdict) noexcept {
  if (verdict.fatal()) return true;
  return refusal == WriteRefusal::fatalOrHazard && !verdict.passes();
}

CheckedWrite checkedConfigIs(HashEntryConfig& config, const MultiHashTableBase& table, const HashEntryKey& key,
                             EntryId id, WriteRefusal refusal) {
  CheckedWrite write{table.requestCheck(key, id), false};
  if (refusesNow(table, refusal, write.verdict)) {
    if (id.isValid()) table.requestedIdRefused();
    return write;
  }
  config.configIs(key, id);
  write.written = true;
  return write;
}

CheckedWrite checkedConfigDel(HashEntryConfig& config, const MultiHashTableBase& table, const HashEntryKey& key,
                              WriteRefusal refusal) {
  CheckedWrite write{table.removalCheck(key), false};
  if (refusesNow(table, refusal, write.verdict)) return write;
  config.configDel(key);
  write.written = true;
  return write;
}

}  // namespace TesselCentral
