// Runs a replay script held in a string, as the tool's tests give it.
#pragma once

#include <sstream>
#include <string>

#include "Replay.h"

namespace mht::test {

struct ReplayOutcome {
  int exitCode;
  std::string out;
  std::string err;
};

inline ReplayOutcome replayScript(const std::string& script, const std::string& fileName,
                                  const ReplayOptions& options = {}) {
  std::istringstream in(script);
  std::ostringstream out, err;
  const int rc = runReplay(in, fileName, options, out, err);
  return ReplayOutcome{rc, out.str(), err.str()};
}

}  // namespace mht::test
