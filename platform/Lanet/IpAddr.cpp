#include "platform/Lanet/IpAddr.h"

#include <ostream>

#include "platform/Lanet/Hash.h"

namespace Lanet {

std::optional<IpAddr> IpAddr::parse(std::string_view text) {
  uint32_t value = 0;
  size_t pos = 0;
  for (int octet = 0; octet < 4; ++octet) {
    if (octet > 0) {
      if (pos >= text.size() || text[pos] != '.') return std::nullopt;
      ++pos;
    }
    const size_t start = pos;
    uint32_t part = 0;
    while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9' && pos - start < 3) {
      part = part * 10 + static_cast<uint32_t>(text[pos] - '0');
      ++pos;
    }
    const size_t digits = pos - start;
    // A leading zero is refused because some parsers read it as octal.
    if (digits == 0 || part > 255 || (digits > 1 && text[start] == '0')) return std::nullopt;
    value = (value << 8) | part;
  }
  if (pos != text.size()) return std::nullopt;
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
