#include "platform/Snmp/InetAddress.h"

#include <algorithm>
#include <cstring>
#include <ostream>
#include <stdexcept>

#include "platform/Lanet/Hash.h"

namespace Snmp {

static_assert(sizeof(InetAddress) == 22, "InetAddress is a map key; keep it compact");

namespace {

constexpr InetAddressType kAllTypes[] = {
    InetAddressType::unknown, InetAddressType::ipv4,  InetAddressType::ipv6,
    InetAddressType::ipv4z,   InetAddressType::ipv6z, InetAddressType::dns,
};

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

[[noreturn]] void throwBadText(std::string_view text, std::string_view why) {
  throw std::invalid_argument(fmt::format("bad InetAddress text '{}': {}", text, why));
}

}  // namespace

std::string_view toString(InetAddressType type) {
  switch (type) {
    case InetAddressType::unknown:
      return "unknown";
    case InetAddressType::ipv4:
      return "ipv4";
    case InetAddressType::ipv6:
      return "ipv6";
    case InetAddressType::ipv4z:
      return "ipv4z";
    case InetAddressType::ipv6z:
      return "ipv6z";
    case InetAddressType::dns:
      return "dns";
  }
  return "invalid";
}

std::optional<InetAddressType> inetAddressTypeFromString(std::string_view name) {
  for (InetAddressType type : kAllTypes) {
    if (toString(type) == name) return type;
  }
  return std::nullopt;
}

bool isValidInetAddressType(uint32_t value) {
  return std::any_of(std::begin(kAllTypes), std::end(kAllTypes),
                     [value](InetAddressType t) { return static_cast<uint32_t>(t) == value; });
}

InetAddress::InetAddress(InetAddressType type, std::span<const uint8_t> octets) : type_(type) {
  if (!isValidInetAddressType(static_cast<uint32_t>(type))) {
    throw std::invalid_argument(
        fmt::format("invalid InetAddressType {}", static_cast<unsigned>(type)));
  }
  if (octets.size() > kMaxOctets) {
    throw std::length_error(fmt::format("InetAddress of {} octets exceeds the {} supported",
                                        octets.size(), kMaxOctets));
  }
  size_ = static_cast<uint8_t>(octets.size());
  std::copy(octets.begin(), octets.end(), octets_.begin());
}

InetAddress InetAddress::fromIpGenAddr(const Lanet::IpGenAddr& addr) {
  switch (addr.af()) {
    case Lanet::AddressFamily::ipv4:
      return InetAddress(InetAddressType::ipv4, addr.bytes());
    case Lanet::AddressFamily::ipv6:
      return InetAddress(InetAddressType::ipv6, addr.bytes());
    default:
      return InetAddress();
  }
}

std::optional<Lanet::IpGenAddr> InetAddress::toIpGenAddr() const {
  switch (type_) {
    case InetAddressType::ipv4:
      return Lanet::IpGenAddr::fromBytes(Lanet::AddressFamily::ipv4, octets());
    case InetAddressType::ipv6:
      return Lanet::IpGenAddr::fromBytes(Lanet::AddressFamily::ipv6, octets());
    case InetAddressType::unknown:
      if (size_ == 0) return Lanet::IpGenAddr();
      return std::nullopt;
    default:
      return std::nullopt;
  }
}

InetAddress InetAddress::parse(std::string_view text) {
  const size_t colon = text.find(':');
  if (colon == std::string_view::npos) throwBadText(text, "expected '<type>:'");
  const auto type = inetAddressTypeFromString(text.substr(0, colon));
  if (!type) throwBadText(text, "unknown address type");
  const std::string_view value = text.substr(colon + 1);

  if (*type == InetAddressType::ipv4 && value.find('.') != std::string_view::npos) {
    const auto addr = Lanet::IpAddr::parse(value);
    if (!addr) throwBadText(text, "bad IPv4 address");
    return fromIpGenAddr(*addr);
  }
  if (*type == InetAddressType::ipv6 && value.find(':') != std::string_view::npos) {
    const auto addr = Lanet::IpGenAddr::parse(value);
    if (!addr || !addr->isV6()) throwBadText(text, "bad IPv6 address");
    return fromIpGenAddr(*addr);
  }

  if (value.size() % 2 != 0) throwBadText(text, "odd number of hex digits");
  if (value.size() / 2 > kMaxOctets) throwBadText(text, "too many octets");
  std::array<uint8_t, kMaxOctets> octets{};
  for (size_t i = 0; i < value.size() / 2; ++i) {
    const int hi = hexDigit(value[2 * i]);
    const int lo = hexDigit(value[2 * i + 1]);
    if (hi < 0 || lo < 0) throwBadText(text, "bad hex digit");
    octets[i] = static_cast<uint8_t>(hi * 16 + lo);
  }
  return InetAddress(*type, std::span<const uint8_t>(octets.data(), value.size() / 2));
}

std::string InetAddress::toString() const {
  if ((type_ == InetAddressType::ipv4 && size_ == 4) ||
      (type_ == InetAddressType::ipv6 && size_ == 16)) {
    return fmt::format("{}:{}", type_, *toIpGenAddr());
  }
  static constexpr char kHex[] = "0123456789abcdef";
  std::string out(Snmp::toString(type_));
  out += ':';
  for (uint8_t b : octets()) {
    out += kHex[b >> 4];
    out += kHex[b & 0xf];
  }
  return out;
}

size_t InetAddress::hash(size_t seed) const {
  size_t h = Lanet::hashCombine(seed, (static_cast<uint64_t>(type_) << 8) | size_);
  for (size_t i = 0; i < kMaxOctets; i += sizeof(uint32_t)) {
    uint32_t word;
    std::memcpy(&word, octets_.data() + i, sizeof(word));
    h = Lanet::hashCombine(h, word);
  }
  return h;
}

std::ostream& operator<<(std::ostream& os, InetAddressType type) {
  return os << toString(type);
}

std::ostream& operator<<(std::ostream& os, const InetAddress& addr) {
  return os << addr.toString();
}

}  // namespace Snmp
