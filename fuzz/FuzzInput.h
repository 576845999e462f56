// Reads a fuzzer's input bytes as a stream of small decisions. Every read succeeds: past
// the end of the input it yields zeros, so a harness never has to check what is left
// before it reads, only whether it wants to go on (atEnd).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace mht::fuzz {

class FuzzInput {
 public:
  FuzzInput(const std::uint8_t* data, std::size_t size) noexcept : data_(data), size_(size) {}

  bool atEnd() const noexcept { return next_ >= size_; }
  std::size_t consumed() const noexcept { return next_; }

  std::uint8_t byte() noexcept { return next_ < size_ ? data_[next_++] : 0; }
  std::uint16_t u16() noexcept {
    const auto lo = byte();
    return static_cast<std::uint16_t>(lo | (byte() << 8));
  }
  std::uint32_t u32() noexcept {
    const std::uint32_t lo = u16();
    return lo | (std::uint32_t{u16()} << 16);
  }
  bool flag() noexcept { return (byte() & 1) != 0; }
  // A value below n (n > 0); one byte for n up to 256, two above.
  std::uint32_t below(std::uint32_t n) noexcept { return n <= 256 ? byte() % n : u16() % n; }
  // True with a chance of about percent in a hundred.
  bool chance(unsigned percent) noexcept { return byte() % 100 < percent; }

  template <class T>
  const T& pick(const std::vector<T>& choices) noexcept {
    return choices[below(static_cast<std::uint32_t>(choices.size()))];
  }

  // The rest of the input, as text.
  std::string_view rest() noexcept {
    if (atEnd()) return {};
    const std::string_view text(reinterpret_cast<const char*>(data_ + next_), size_ - next_);
    next_ = size_;
    return text;
  }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t next_ = 0;
};

}  // namespace mht::fuzz
