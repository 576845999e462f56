// Keys for simulations. Every source is seeded and reproducible, and never hands out the
// same key twice.
//
//  - random: crc16 and crc32 drawn from std::mt19937_64 seeded with the seed;
//  - mac:    MAC addresses (one of a few vendor prefixes, random device part) with a VLAN
//            (1..4094); the hashes are CRC-32 (zlib) and CRC-16/CCITT (Boost.CRC) of the
//            8 key bytes MAC then VLAN, big-endian, as a chip's hash unit computes them;
//  - ipv4:   host addresses drawn from the given prefixes; hashes over the 4 address bytes.
// Each key's width is drawn from the width mix.
#pragma once

#include <random>
#include <string>
#include <unordered_set>
#include <vector>

#include "MultiHashTable/MultiHashTableTypes.h"

namespace mht {

enum class KeySourceKind { random, mac, ipv4 };

struct WidthMix {
  double singleWide = 70;
  double doubleWide = 20;
  double quadWide = 10;
};

struct Ipv4Prefix {
  U32 address = 0;
  unsigned length = 0;
};

// Parses "a.b.c.d/len"; throws std::invalid_argument naming what is wrong.
Ipv4Prefix parseIpv4Prefix(const std::string& text);

// The hashes a chip computes over key bytes.
U32 crc32Of(const unsigned char* bytes, std::size_t size);
U16 crc16Of(const unsigned char* bytes, std::size_t size);

class KeySource {
 public:
  KeySource(KeySourceKind kind, U64 seed, WidthMix mix, std::vector<Ipv4Prefix> prefixes);

  TesselCentral::HashEntryKey next();

 private:
  TesselCentral::HashEntryType nextWidth();
  TesselCentral::HashEntryKey candidate(TesselCentral::HashEntryType width);

  KeySourceKind kind_;
  std::mt19937_64 random_;
  std::discrete_distribution<int> width_;
  std::vector<Ipv4Prefix> prefixes_;
  std::unordered_set<U64> used_;
};

}  // namespace mht
