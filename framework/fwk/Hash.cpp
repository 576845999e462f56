#include "Hash.h"

#include <atomic>
#include <cstring>

namespace Fwk {

void HashState::mixBytes(const void* data, std::size_t size) noexcept {
  const auto* bytes = static_cast<const unsigned char*>(data);
  b_ += static_cast<std::uint32_t>(size);
  while (size > 0) {
    std::uint32_t word = 0;
    const std::size_t chunk = size < 4 ? size : 4;
    std::memcpy(&word, bytes, chunk);
    stir(word);
    bytes += chunk;
    size -= chunk;
  }
}

namespace {
std::atomic<std::uint32_t> seed{defaultProcessHashSeed};
}

std::uint32_t processHashSeed() noexcept { return seed.load(std::memory_order_relaxed); }

void processHashSeedIs(std::uint32_t s) noexcept { seed.store(s, std::memory_order_relaxed); }

}  // namespace Fwk
