#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include <fmt/format.h>

namespace Lanet {

enum class AddressFamily : uint8_t { unknown = 0, ipv4 = 1, ipv6 = 2 };

constexpr std::string_view toString(AddressFamily af) {
  switch (af) {
    case AddressFamily::ipv4:
      return "ipv4";
    case AddressFamily::ipv6:
      return "ipv6";
    default:
      return "unknown af";
  }
}

// Octets in an address of `af`: 4, 16, or 0 for anything else.
constexpr size_t addressBytes(AddressFamily af) {
  switch (af) {
    case AddressFamily::ipv4:
      return 4;
    case AddressFamily::ipv6:
      return 16;
    default:
      return 0;
  }
}

// Longest prefix length for `af`: 32, 128, or 0 for anything else.
constexpr uint8_t addressBits(AddressFamily af) {
  return static_cast<uint8_t>(addressBytes(af) * 8);
}

}  // namespace Lanet

template <>
struct fmt::formatter<Lanet::AddressFamily> : fmt::formatter<std::string_view> {
  template <typename FormatContext>
  auto format(Lanet::AddressFamily af, FormatContext& ctx) const {
    return fmt::formatter<std::string_view>::format(Lanet::toString(af), ctx);
  }
};
