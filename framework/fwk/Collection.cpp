// The keyed collections' control arrays, and the count of the bytes they hold.
#include "Collection.h"

#include <atomic>

namespace Fwk {

namespace {

std::atomic<std::size_t> controlBytes{0};

}  // namespace

std::size_t collectionControlBytes() noexcept { return controlBytes.load(std::memory_order_relaxed); }

namespace detail {

std::uint8_t* ZeroedBytes::take(std::size_t n) {
  void* p = std::calloc(n, 1);
  if (p == nullptr) throw std::bad_alloc();
  controlBytes.fetch_add(n, std::memory_order_relaxed);
  return static_cast<std::uint8_t*>(p);
}

void ZeroedBytes::release(std::uint8_t* p, std::size_t n) noexcept {
  if (p == nullptr) return;
  controlBytes.fetch_sub(n, std::memory_order_relaxed);
  std::free(p);
}

}  // namespace detail

}  // namespace Fwk
