// A progress bar on standard error, for runs long enough to want one: drawn only when
// standard error is a terminal, and only once a second has passed, so that short runs and
// redirected output stay clean. It is erased when it goes away.
#pragma once

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>

#include "MultiHashTable/MultiHashTableTypes.h"

namespace mht {

class Progress {
 public:
  // `unit` names what is counted; the bar is redrawn when the count is a multiple of
  // everyMask + 1 (a power of two).
  Progress(bool enabled, TesselCentral::U64 total, std::string unit, TesselCentral::U64 everyMask = 0)
      : enabled_(enabled && isatty(STDERR_FILENO) != 0), total_(total), unit_(std::move(unit)), everyMask_(everyMask) {}
  ~Progress() {
    if (shown_) std::fprintf(stderr, "\r%60s\r", "");
  }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void update(TesselCentral::U64 done) {
    if (!enabled_ || (done & everyMask_) != 0) return;
    const double elapsed = std::chrono::duration<double>(Clock::now() - start_).count();
    if (elapsed < 1.0) return;
    shown_ = true;
    const double fraction = total_ ? std::min(1.0, static_cast<double>(done) / static_cast<double>(total_)) : 0;
    const int filled = static_cast<int>(fraction * 40);
    std::fprintf(stderr, "\r[%.*s%*s] %3d%% %llu %s", filled, "########################################", 40 - filled,
                 "", static_cast<int>(fraction * 100), static_cast<unsigned long long>(done), unit_.c_str());
    std::fflush(stderr);
  }

 private:
  using Clock = std::chrono::steady_clock;
  bool enabled_;
  TesselCentral::U64 total_;
  std::string unit_;
  TesselCentral::U64 everyMask_;
  bool shown_ = false;
  Clock::time_point start_ = Clock::now();
};

}  // namespace mht
