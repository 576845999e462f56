#include "CountingAllocator.h"

#include <malloc.h>
#include <atomic>
#include <cstdlib>
#include <new>

namespace bench {

namespace {
std::atomic<std::size_t> live{0};
}

std::size_t liveBytes() noexcept { return live.load(std::memory_order_relaxed); }

}  // namespace bench

// malloc_usable_size gives the size of the block actually handed out, so that the count
// includes the allocator's rounding.
void* operator new(std::size_t size) {
  void* p = std::malloc(size == 0 ? 1 : size);
  if (p == nullptr) throw std::bad_alloc();
  bench::live.fetch_add(malloc_usable_size(p), std::memory_order_relaxed);
  return p;
}

void operator delete(void* p) noexcept {
  if (p == nullptr) return;
  bench::live.fetch_sub(malloc_usable_size(p), std::memory_order_relaxed);
  std::free(p);
}

void operator delete(void* p, std::size_t) noexcept { operator delete(p); }
void* operator new[](std::size_t size) { return operator new(size); }
void operator delete[](void* p) noexcept { operator delete(p); }
void operator delete[](void* p, std::size_t) noexcept { operator delete(p); }
