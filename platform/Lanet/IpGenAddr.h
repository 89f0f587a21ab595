#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iosfwd>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <fmt/format.h>

#include "platform/Lanet/AddressFamily.h"
#include "platform/Lanet/ByteOrder.h"
#include "platform/Lanet/IpAddr.h"

namespace Lanet {

// An IPv4 or IPv6 address, or (default) an address of unknown family that prints as "none".
//
// Octets are kept in network order; an IPv4 address uses the first 4 and the rest stay zero,
// so equality and order are a plain memcmp.
class IpGenAddr {
 public:
  static constexpr size_t kMaxBytes = 16;

  constexpr IpGenAddr() = default;
  // Implicit: every IPv4 address is a generic address, and call sites pass IpAddr freely.
  constexpr IpGenAddr(const IpAddr& v4)  // NOLINT(google-explicit-constructor)
      : af_(AddressFamily::ipv4) {
    const auto b = v4.bytes();
    for (size_t i = 0; i < b.size(); ++i) bytes_[i] = b[i];
  }

  static constexpr IpGenAddr v4(uint32_t hostOrder) { return IpGenAddr(IpAddr(hostOrder)); }
  static IpGenAddr v6(std::span<const uint8_t, 16> networkOrder);
  // nullopt unless `af` is ipv4/ipv6 and `networkOrder` has exactly addressBytes(af) octets.
  static std::optional<IpGenAddr> fromBytes(AddressFamily af,
                                            std::span<const uint8_t> networkOrder);
  // 0.0.0.0 for ipv4, :: for ipv6, the af-unknown address otherwise.
  static IpGenAddr unspecified(AddressFamily af);

  // Accepts the toString() forms: dotted IPv4, any IPv6 text inet_pton takes, and "none".
  static std::optional<IpGenAddr> parse(std::string_view text);

  constexpr AddressFamily af() const { return af_; }
  constexpr bool isV4() const { return af_ == AddressFamily::ipv4; }
  constexpr bool isV6() const { return af_ == AddressFamily::ipv6; }
  // Precondition isV4(); any other address yields 0.0.0.0.
  IpAddr v4() const;

  // 4 or 16 octets in network order; empty for an af-unknown address.
  std::span<const uint8_t> bytes() const { return {bytes_.data(), addressBytes(af_)}; }

  // True for 0.0.0.0, :: and the af-unknown address.
  bool isUnspecified() const { return bytes_ == std::array<uint8_t, kMaxBytes>{}; }
  // 224.0.0.0/4 or ff00::/8.
  bool isMulticast() const;

  std::string toString() const;
  size_t hash(size_t seed = 0) const;

  // Family first (unknown < ipv4 < ipv6), then octets in network order; for IPv4 this is
  // the order of an IpAddress index's four sub-identifiers.
  // Inline and without a library call: they run on every step of a map lookup.
  [[gnu::always_inline]] std::strong_ordering operator<=>(const IpGenAddr& other) const {
    if (af_ != other.af_) return af_ <=> other.af_;
    if (auto c = detail::loadBe64(bytes_.data()) <=> detail::loadBe64(other.bytes_.data());
        c != 0) {
      return c;
    }
    return detail::loadBe64(bytes_.data() + 8) <=> detail::loadBe64(other.bytes_.data() + 8);
  }
  bool operator==(const IpGenAddr& other) const {
    return af_ == other.af_ && bytes_ == other.bytes_;
  }

 private:
  AddressFamily af_ = AddressFamily::unknown;
  std::array<uint8_t, kMaxBytes> bytes_{};
};

std::ostream& operator<<(std::ostream& os, const IpGenAddr& addr);

}  // namespace Lanet

template <>
struct std::hash<Lanet::IpGenAddr> {
  size_t operator()(const Lanet::IpGenAddr& addr) const noexcept { return addr.hash(); }
};

template <>
struct fmt::formatter<Lanet::IpGenAddr> : fmt::formatter<std::string_view> {
  template <typename FormatContext>
  auto format(const Lanet::IpGenAddr& addr, FormatContext& ctx) const {
    return fmt::formatter<std::string_view>::format(addr.toString(), ctx);
  }
};
