// The agent's own Bank.h, on the agent's include path beside the library's: the library's
// headers are all under MultiHashTable/, so neither hides the other.
#pragma once

namespace agent {
inline constexpr int bankCount = 4;
}  // namespace agent
