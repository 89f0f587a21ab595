#include "platform/Lanet/IpGenAddr.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <ostream>

#include "platform/Lanet/Hash.h"

namespace Lanet {

static_assert(sizeof(IpGenAddr) == 17, "IpGenAddr is a map key; keep it compact");

IpGenAddr IpGenAddr::v6(std::span<const uint8_t, 16> networkOrder) {
  IpGenAddr addr;
  addr.af_ = AddressFamily::ipv6;
  std::copy(networkOrder.begin(), networkOrder.end(), addr.bytes_.begin());
  return addr;
}

std::optional<IpGenAddr> IpGenAddr::fromBytes(AddressFamily af,
                                              std::span<const uint8_t> networkOrder) {
  const size_t n = addressBytes(af);
  if (n == 0 || networkOrder.size() != n) return std::nullopt;
  IpGenAddr addr;
  addr.af_ = af;
  std::copy(networkOrder.begin(), networkOrder.end(), addr.bytes_.begin());
  return addr;
}

IpGenAddr IpGenAddr::unspecified(AddressFamily af) {
  IpGenAddr addr;
  if (addressBytes(af) != 0) addr.af_ = af;
  return addr;
}

std::optional<IpGenAddr> IpGenAddr::parse(std::string_view text) {
  if (text == "none") return IpGenAddr();
  if (text.find(':') == std::string_view::npos) {
    if (auto v4 = IpAddr::parse(text)) return IpGenAddr(*v4);
    return std::nullopt;
  }
  // inet_pton needs a NUL-terminated string; valid IPv6 text is at most 45 characters.
  char buf[INET6_ADDRSTRLEN];
  if (text.size() >= sizeof(buf)) return std::nullopt;
  std::memcpy(buf, text.data(), text.size());
  buf[text.size()] = '\0';
  IpGenAddr addr;
  if (inet_pton(AF_INET6, buf, addr.bytes_.data()) != 1) return std::nullopt;
  addr.af_ = AddressFamily::ipv6;
  return addr;
}

IpAddr IpGenAddr::v4() const {
  if (!isV4()) return IpAddr();
  return IpAddr::fromBytes(std::span<const uint8_t, 4>(bytes_.data(), 4));
}

bool IpGenAddr::isMulticast() const {
  switch (af_) {
    case AddressFamily::ipv4:
      return (bytes_[0] & 0xf0) == 0xe0;
    case AddressFamily::ipv6:
      return bytes_[0] == 0xff;
    default:
      return false;
  }
}

std::string IpGenAddr::toString() const {
  switch (af_) {
    case AddressFamily::ipv4:
      return v4().toString();
    case AddressFamily::ipv6: {
      char buf[INET6_ADDRSTRLEN];
      if (inet_ntop(AF_INET6, bytes_.data(), buf, sizeof(buf)) == nullptr) return "invalid";
      return buf;
    }
    default:
      return "none";
  }
}

size_t IpGenAddr::hash(size_t seed) const {
  uint64_t hi;
  uint64_t lo;
  std::memcpy(&hi, bytes_.data(), sizeof(hi));
  std::memcpy(&lo, bytes_.data() + sizeof(hi), sizeof(lo));
  return hashCombine(hashCombine(hashCombine(seed, static_cast<uint64_t>(af_)), hi), lo);
}

std::ostream& operator<<(std::ostream& os, const IpGenAddr& addr) {
  return os << addr.toString();
}

}  // namespace Lanet
