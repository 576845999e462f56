// Counts the bytes that the process holds on the heap, through a replaced global
// operator new and delete, so that benchmarks can measure memory instead of guessing.
#pragma once

#include <cstddef>

namespace bench {

std::size_t liveBytes() noexcept;

}  // namespace bench
