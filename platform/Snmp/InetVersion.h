#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <string_view>

#include <fmt/format.h>

#include "platform/Lanet/AddressFamily.h"

namespace Snmp {

// INET-ADDRESS-MIB InetVersion. 32 bits wide because an index value arriving in a request can
// be any Unsigned32 and must still order.
enum class InetVersion : uint32_t { unknown = 0, ipv4 = 1, ipv6 = 2 };

// "unknown", "ipv4", "ipv6"; "invalid" for any other value.
constexpr std::string_view toString(InetVersion version) {
  switch (version) {
    case InetVersion::unknown:
      return "unknown";
    case InetVersion::ipv4:
      return "ipv4";
    case InetVersion::ipv6:
      return "ipv6";
  }
  return "invalid";
}

// The inverse of toString for the three named values.
constexpr std::optional<InetVersion> inetVersionFromString(std::string_view name) {
  for (InetVersion v : {InetVersion::unknown, InetVersion::ipv4, InetVersion::ipv6}) {
    if (toString(v) == name) return v;
  }
  return std::nullopt;
}

constexpr bool isValidInetVersion(uint64_t value) {
  return value <= 2;
}

// ipv4 -> ipv4, ipv6 -> ipv6, anything else -> unknown.
constexpr InetVersion inetVersion(Lanet::AddressFamily af) {
  switch (af) {
    case Lanet::AddressFamily::ipv4:
      return InetVersion::ipv4;
    case Lanet::AddressFamily::ipv6:
      return InetVersion::ipv6;
    default:
      return InetVersion::unknown;
  }
}

inline std::ostream& operator<<(std::ostream& os, InetVersion version) {
  return os << toString(version);
}

}  // namespace Snmp

template <>
struct fmt::formatter<Snmp::InetVersion> : fmt::formatter<std::string_view> {
  template <typename FormatContext>
  auto format(Snmp::InetVersion version, FormatContext& ctx) const {
    return fmt::formatter<std::string_view>::format(Snmp::toString(version), ctx);
  }
};
