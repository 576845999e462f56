// Fuzzes `mht replay` on arbitrary scripts. A bad line must end the replay with a clear
// FILE:LINE error; a request that passes the tool's checks must not stop the process on a
// library assertion. When one does, the tool's assertion handler ends the process and the
// harness copies its report to standard error: a finding (see fuzz/README.md).
//
// Scripts whose table line asks for a step budget above 8 or for more than 4096 banks are
// skipped: the single-width table's search for room costs numBucketEntries to the power of
// the budget, and the configuration check names every missing bank (a table line of 2.4
// million banks took 16 s under the sanitizers to refuse), by design; both would only show
// up as timeouts.
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "LineParser.h"
#include "MultiHashTable/MultiHashTableTypes.h"
#include "Replay.h"
#include "ToolStreams.h"

namespace {

constexpr unsigned long maxSteps = 8;
constexpr unsigned long maxBanks = 4096;

// Decimal or 0x-hex, as the tool reads numbers; anything else the tool refuses itself.
bool figureAbove(const std::string& field, unsigned long most) {
  return field.size() > 10 || std::strtoul(field.c_str(), nullptr, 0) > most;
}

bool tableTooCostly(const std::string& script) {
  std::istringstream lines(script);
  std::string line;
  while (std::getline(lines, line)) {
    const std::vector<std::string> fields = mht::splitFields(line);
    if (fields.size() < 6 || fields[0] != "table") continue;
    if (figureAbove(fields[2], maxBanks) || figureAbove(fields[5], maxSteps)) return true;
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static mht::fuzz::NullTraceSink traceSink;
  const std::string script(reinterpret_cast<const char*>(data), size);
  if (tableTooCostly(script)) return 0;

  TesselCentral::multiHashTableTrace().sinkIs(&traceSink);
  std::istringstream in(script);
  mht::ReplayOptions options;
  options.explain = size % 2 == 1;
  mht::fuzz::NullStream out;
  mht::fuzz::FindingStream err;
  mht::runReplay(in, "fuzz.replay", options, out, err);
  TesselCentral::multiHashTableTrace().levelMaskIs(0);
  TesselCentral::multiHashTableTrace().sinkIs(nullptr);
  return 0;
}
