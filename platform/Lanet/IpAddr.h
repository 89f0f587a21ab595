#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <fmt/format.h>

namespace Lanet {

// An IPv4 address. Held in host byte order so that integer comparison equals the
// lexicographic order of the network-order octets (and so the SNMP IpAddress index order).
class IpAddr {
 public:
  constexpr IpAddr() = default;
  constexpr explicit IpAddr(uint32_t hostOrder) : value_(hostOrder) {}

  static constexpr IpAddr fromBytes(std::span<const uint8_t, 4> networkOrder) {
    return IpAddr((uint32_t{networkOrder[0]} << 24) | (uint32_t{networkOrder[1]} << 16) |
                  (uint32_t{networkOrder[2]} << 8) | uint32_t{networkOrder[3]});
  }

  // Strict dotted quad: four decimal octets 0..255, no leading zeros, nothing else.
  static std::optional<IpAddr> parse(std::string_view text);

  constexpr uint32_t value() const { return value_; }

  constexpr std::array<uint8_t, 4> bytes() const {
    return {static_cast<uint8_t>(value_ >> 24), static_cast<uint8_t>(value_ >> 16),
            static_cast<uint8_t>(value_ >> 8), static_cast<uint8_t>(value_)};
  }

  constexpr bool isUnspecified() const { return value_ == 0; }
  constexpr bool isMulticast() const { return (value_ >> 28) == 0xe; }

  std::string toString() const;
  size_t hash(size_t seed = 0) const;

  constexpr auto operator<=>(const IpAddr&) const = default;

 private:
  uint32_t value_ = 0;
};

std::ostream& operator<<(std::ostream& os, const IpAddr& addr);

}  // namespace Lanet

template <>
struct std::hash<Lanet::IpAddr> {
  size_t operator()(const Lanet::IpAddr& addr) const noexcept { return addr.hash(); }
};

template <>
struct fmt::formatter<Lanet::IpAddr> : fmt::formatter<std::string_view> {
  template <typename FormatContext>
  auto format(const Lanet::IpAddr& addr, FormatContext& ctx) const {
    return fmt::formatter<std::string_view>::format(addr.toString(), ctx);
  }
};
