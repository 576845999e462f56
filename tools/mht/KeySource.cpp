#include "KeySource.h"

#include <zlib.h>

#include <array>
#include <boost/crc.hpp>
#include <stdexcept>

namespace mht {

using namespace TesselCentral;

U32 crc32Of(const unsigned char* bytes, std::size_t size) {
  return static_cast<U32>(::crc32(0L, bytes, static_cast<uInt>(size)));
}

U16 crc16Of(const unsigned char* bytes, std::size_t size) {
  boost::crc_ccitt_type crc;
  crc.process_bytes(bytes, size);
  return static_cast<U16>(crc.checksum());
}

Ipv4Prefix parseIpv4Prefix(const std::string& text) {
  const auto slash = text.find('/');
  if (slash == std::string::npos) throw std::invalid_argument("prefix '" + text + "' has no '/length'");
  U32 address = 0;
  std::size_t pos = 0;
  for (int octet = 0; octet < 4; ++octet) {
    std::size_t end = text.find(octet == 3 ? '/' : '.', pos);
    if (end == std::string::npos || end > slash || end == pos) {
      throw std::invalid_argument("prefix '" + text + "' is not a.b.c.d/len");
    }
    const std::string part = text.substr(pos, end - pos);
    if (part.find_first_not_of("0123456789") != std::string::npos || part.size() > 3 || std::stoul(part) > 255) {
      throw std::invalid_argument("prefix '" + text + "': octet '" + part + "' is not 0..255");
    }
    address = (address << 8) | static_cast<U32>(std::stoul(part));
    pos = end + 1;
  }
  const std::string len = text.substr(slash + 1);
  if (len.empty() || len.find_first_not_of("0123456789") != std::string::npos || len.size() > 2 ||
      std::stoul(len) > 32) {
    throw std::invalid_argument("prefix '" + text + "': length '" + len + "' is not 0..32");
  }
  const unsigned length = static_cast<unsigned>(std::stoul(len));
  const U32 mask = length == 0 ? 0 : ~U32{0} << (32 - length);
  return Ipv4Prefix{address & mask, length};
}

KeySource::KeySource(KeySourceKind kind, U64 seed, WidthMix mix, std::vector<Ipv4Prefix> prefixes)
    : kind_(kind),
      random_(seed),
      width_({mix.singleWide, mix.doubleWide, mix.quadWide}),
      prefixes_(std::move(prefixes)) {
  if (prefixes_.empty()) prefixes_ = {Ipv4Prefix{0x0A000000, 8}};
}

HashEntryType KeySource::nextWidth() {
  static constexpr std::array<HashEntryType, 3> widths{HashEntryType::singleWide, HashEntryType::doubleWide,
                                                       HashEntryType::quadWide};
  return widths[static_cast<std::size_t>(width_(random_))];
}

HashEntryKey KeySource::candidate(HashEntryType width) {
  switch (kind_) {
    case KeySourceKind::random: {
      const U64 r = random_();
      return HashEntryKey(static_cast<U16>(r >> 32), static_cast<U32>(r), 0, width);
    }
    case KeySourceKind::mac: {
      static constexpr std::array<std::array<unsigned char, 3>, 4> vendors{
          {{0x00, 0x1B, 0x21}, {0x3C, 0xFD, 0xFE}, {0x52, 0x54, 0x00}, {0xF8, 0xF2, 0x1E}}};
      const U64 r = random_();
      const auto& vendor = vendors[r % vendors.size()];
      const U32 vlan = 1 + static_cast<U32>((r >> 8) % 4094);
      const std::array<unsigned char, 8> bytes{vendor[0],
                                               vendor[1],
                                               vendor[2],
                                               static_cast<unsigned char>(r >> 24),
                                               static_cast<unsigned char>(r >> 32),
                                               static_cast<unsigned char>(r >> 40),
                                               static_cast<unsigned char>(vlan >> 8),
                                               static_cast<unsigned char>(vlan)};
      return HashEntryKey(crc16Of(bytes.data(), bytes.size()), crc32Of(bytes.data(), bytes.size()), 0, width);
    }
    case KeySourceKind::ipv4: {
      const U64 r = random_();
      const Ipv4Prefix& p = prefixes_[r % prefixes_.size()];
      const U32 hostMask = p.length == 0 ? ~U32{0} : (p.length == 32 ? 0 : (~U32{0} >> p.length));
      const U32 address = p.address | (static_cast<U32>(r >> 16) & hostMask);
      const std::array<unsigned char, 4> bytes{
          static_cast<unsigned char>(address >> 24), static_cast<unsigned char>(address >> 16),
          static_cast<unsigned char>(address >> 8), static_cast<unsigned char>(address)};
      return HashEntryKey(crc16Of(bytes.data(), bytes.size()), crc32Of(bytes.data(), bytes.size()), 0, width);
    }
  }
  return HashEntryKey();
}

HashEntryKey KeySource::next() {
  const HashEntryType width = nextWidth();
  // Distinct keys have distinct (crc16, crc32); a prefix too small for the run ends it.
  for (int attempt = 0; attempt < 1000; ++attempt) {
    const HashEntryKey key = candidate(width);
    const U64 id = (U64{key.crc16()} << 32) | key.crc32();
    if (used_.insert(id).second) return key;
  }
  throw std::runtime_error("the key source ran out of distinct keys (a prefix too small for the run?)");
}

}  // namespace mht
