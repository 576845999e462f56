// Incremental 32-bit hashing and the per-process seed of keyed collections.
//
// HashState keeps three 32-bit words (a, b, c). Each mix adds one quantity of 1 to 4
// bytes to a, its byte count to b, then scrambles all three words; value() runs a final
// avalanche and returns c. Because the byte count of every mix enters the state, a
// 2-byte mix followed by three 4-byte mixes differs from one 14-byte mix of the same bytes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Fwk {

class HashState {
public:
  constexpr explicit HashState(std::uint32_t a, std::uint32_t b = 0, std::uint32_t c = 0) noexcept
      : a_(a), b_(b), c_(c) {}

  constexpr void mix16(std::uint16_t v) noexcept { mixWord(v, 2); }
  constexpr void mix32(std::uint32_t v) noexcept { mixWord(v, 4); }
  // Mixes a byte string as one quantity: 12 bytes per round, the length counted once.
  void mixBytes(const void* data, std::size_t size) noexcept;

  constexpr std::uint32_t value() const noexcept {
    std::uint32_t a = a_, b = b_, c = c_;
    c ^= b; c -= rotl(b, 14);
    a ^= c; a -= rotl(c, 11);
    b ^= a; b -= rotl(a, 25);
    c ^= b; c -= rotl(b, 16);
    a ^= c; a -= rotl(c, 4);
    b ^= a; b -= rotl(a, 14);
    c ^= b; c -= rotl(b, 24);
    return c;
  }

private:
  static constexpr std::uint32_t rotl(std::uint32_t x, int k) noexcept { return (x << k) | (x >> (32 - k)); }

  constexpr void mixWord(std::uint32_t v, std::uint32_t bytes) noexcept {
    a_ += v;
    b_ += bytes;
    scramble();
  }

  constexpr void scramble() noexcept {
    a_ -= c_; a_ ^= rotl(c_, 4);  c_ += b_;
    b_ -= a_; b_ ^= rotl(a_, 6);  a_ += c_;
    c_ -= b_; c_ ^= rotl(b_, 8);  b_ += a_;
    a_ -= c_; a_ ^= rotl(c_, 16); c_ += b_;
    b_ -= a_; b_ ^= rotl(a_, 19); a_ += c_;
    c_ -= b_; c_ ^= rotl(b_, 4);  b_ += a_;
  }

  std::uint32_t a_, b_, c_;
};

// The per-process seed of keyed collections. It has a fixed default so that runs, and
// every walk over a collection, are reproducible; a program may choose another before it
// creates its first collection. Each collection mixes in a constant of its own.
inline constexpr std::uint32_t defaultProcessHashSeed = 0x5EED1DEAu;
std::uint32_t processHashSeed() noexcept;
void processHashSeedIs(std::uint32_t seed) noexcept;

}  // namespace Fwk
