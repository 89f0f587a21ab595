#include "platform/Lanet/IpAddr.h"

#include <ostream>

#include "platform/Lanet/Hash.h"

namespace Lanet {

std::optional<IpAddr> IpAddr::parse(std::string_view text) {
  // Every route key, address and next hop of a feed patch passes through here, several times
  // over: one pass, at most three digits an octet, a digit test by one unsigned compare.
  if (text.size() < 7 || text.size() > 15) return std::nullopt;
  const char* p = text.data();
  const char* const end = p + text.size();
  auto digit = [&](unsigned& d) {
    if (p == end) return false;
    d = static_cast<unsigned char>(*p) - unsigned{'0'};
    return d <= 9;
  };
  uint32_t value = 0;
  for (int octet = 0; octet < 4; ++octet) {
    if (octet > 0) {
      if (p == end || *p != '.') return std::nullopt;
      ++p;
    }
    unsigned part = 0;
    if (!digit(part)) return std::nullopt;
    ++p;
    unsigned d = 0;
    if (digit(d)) {
      // A leading zero is refused because some parsers read it as octal.
      if (part == 0) return std::nullopt;
      part = part * 10 + d;
      ++p;
      if (digit(d)) {
        part = part * 10 + d;
        ++p;
        if (part > 255) return std::nullopt;
      }
    }
    value = (value << 8) | part;
  }
  if (p != end) return std::nullopt;
  return IpAddr(value);
}

std::string IpAddr::toString() const {
  // By hand: addresses are formatted for every trace line and key check, and a format call
  // costs several times this.
  const auto b = bytes();
  char text[15];
  char* p = text;
  for (size_t i = 0; i < b.size(); ++i) {
    if (i > 0) *p++ = '.';
    const unsigned v = b[i];
    if (v >= 100) *p++ = static_cast<char>('0' + v / 100);
    if (v >= 10) *p++ = static_cast<char>('0' + v / 10 % 10);
    *p++ = static_cast<char>('0' + v % 10);
  }
  return std::string(text, p);
}

size_t IpAddr::hash(size_t seed) const {
  return hashCombine(seed, value_);
}

std::ostream& operator<<(std::ostream& os, const IpAddr& addr) {
  return os << addr.toString();
}

}  // namespace Lanet
