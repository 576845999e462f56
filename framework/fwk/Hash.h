// Incremental 32-bit hashing and the per-process seed of keyed collections.
//
// HashState keeps three 32-bit words (a, b, c) and a count of the quantities mixed. Each
// mix adds its byte count to b and folds one quantity of 1 to 4 bytes, with the running
// byte count, into a or c in turn, with a multiply and a rotation; value() combines the
// three words and runs a final avalanche. Because the byte count of every mix enters the
// state, a 2-byte mix followed by three 4-byte mixes differs from one 14-byte mix of the
// same bytes. The two lanes make the multiplies of a four-field key two short chains
// instead of one long one: collections hash on every lookup, and the lookup waits for the
// hash.
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
  // Mixes a byte string as one quantity: 4 bytes per round, the length counted once.
  void mixBytes(const void* data, std::size_t size) noexcept;

  constexpr std::uint32_t value() const noexcept {
    std::uint32_t h = a_ ^ rotl(c_, 16) ^ rotl(b_, 7);
    h ^= h >> 16;
    h *= 0x85EBCA6Bu;
    h ^= h >> 13;
    h *= 0xC2B2AE35u;
    h ^= h >> 16;
    return h;
  }

 private:
  static constexpr std::uint32_t rotl(std::uint32_t x, int k) noexcept { return (x << k) | (x >> (32 - k)); }

  constexpr void mixWord(std::uint32_t v, std::uint32_t bytes) noexcept {
    b_ += bytes;
    stir(v);
  }

  constexpr void stir(std::uint32_t v) noexcept {
    if (mixes_++ % 2 == 0) {
      a_ = rotl((a_ ^ v) * 0x9E3779B1u + b_, 15);
    } else {
      c_ = rotl((c_ ^ v) * 0x85EBCA77u + b_, 13);
    }
  }

  std::uint32_t a_, b_, c_;
  std::uint32_t mixes_ = 0;
};

// The per-process seed of keyed collections. It has a fixed default so that runs, and
// every walk over a collection, are reproducible; a program may choose another before it
// creates its first collection. Each collection mixes in a constant of its own.
inline constexpr std::uint32_t defaultProcessHashSeed = 0x5EED1DEAu;
std::uint32_t processHashSeed() noexcept;
void processHashSeedIs(std::uint32_t seed) noexcept;

}  // namespace Fwk
