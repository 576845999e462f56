// Fuzzes `mht shell` on arbitrary scripts, restricted to what cannot reach the library's
// fatal assertions by design. The shell hands any argument to any registered operation,
// including the tables' internal ones (insertEntry, doAddOrMoveEntry, setEntryState...),
// whose preconditions are the caller's duty; so before the script runs, the harness
//  - keeps `call` only for the operations below, which either read, or write the request
//    and result collections, or change a bank or a table that nothing drives;
//  - creates every table without a request collection (its hashEntryConfig argument is
//    replaced by null), so that no request reaches a table whose banks are incomplete;
//  - drops the creation of a multi-width bank, or a bankIs, whose base type is empty.
// What is left exercises the shell's parsing and the registry's glue: factories, text
// arguments, attribute and collection reads, help, and every error path.
#include <algorithm>
#include <array>
#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "LineParser.h"
#include "MultiHashTable/MultiHashTableTypes.h"
#include "Shell.h"
#include "ToolStreams.h"

namespace {

constexpr std::array<std::string_view, 20> safeOperations = {
    "configIs",         "configDel",      "configDelAll",    "configHas",        "configOf",
    "statusIs",         "statusDel",      "statusDelAll",    "statusHas",        "statusOf",
    "hashTableEntryOf", "calcEntryId",    "bankIs",          "bankDel",          "getEntryType",
    "bucketsLocked",    "debugEnabledIs", "lockedBucketsIs", "lockedBucketsDel", "tableCapacity"};

std::string_view unqualified(std::string_view type) {
  constexpr std::string_view prefix = "TesselCentral::";
  if (type.substr(0, prefix.size()) == prefix) type.remove_prefix(prefix.size());
  return type;
}

bool isTable(std::string_view type) {
  type = unqualified(type);
  return type == "MultiHashTableBase" || type == "MultiHashTable" || type == "MultiEntryTypeHashTable";
}

// The line as the harness lets it through, or empty to drop it.
std::string filtered(const std::string& line) {
  std::vector<std::string> fields = mht::splitFields(line);
  if (fields.empty()) return {};
  const std::string& verb = fields[0];
  if (verb == "call") {
    if (fields.size() < 3) return line;
    const std::string& op = fields[2];
    if (std::find(safeOperations.begin(), safeOperations.end(), op) == safeOperations.end()) return {};
    if (op == "bankIs" && fields.size() > 3 && fields[3] == "empty") return {};
  } else if (verb == "new") {
    if (fields.size() < 3) return line;
    if (isTable(fields[2]) && fields.size() > 6) fields[6] = "null";
    if (unqualified(fields[2]) == "MultiEntryTypeBank" && fields.size() > 3 && fields[3] == "empty") return {};
  }
  std::string out;
  for (const std::string& f : fields) out += (out.empty() ? "" : " ") + f;
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static mht::fuzz::NullTraceSink traceSink;
  std::istringstream raw(std::string(reinterpret_cast<const char*>(data), size));
  std::string script;
  std::string line;
  while (std::getline(raw, line)) script += filtered(line) + '\n';

  TesselCentral::multiHashTableTrace().sinkIs(&traceSink);
  std::istringstream in(script);
  mht::fuzz::NullStream out;
  mht::fuzz::FindingStream err;
  mht::runShell(in, "fuzz.mht", size % 2 == 1, out, err);
  TesselCentral::multiHashTableTrace().levelMaskIs(0);
  TesselCentral::multiHashTableTrace().sinkIs(nullptr);
  return 0;
}
