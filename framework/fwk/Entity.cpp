#include "Entity.h"

namespace Fwk {

namespace detail {
std::atomic<bool> threadSafeMode{false};
}

void threadSafeModeIs(bool on) noexcept { detail::threadSafeMode.store(on, std::memory_order_relaxed); }

}  // namespace Fwk
