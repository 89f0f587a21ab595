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

#include "platform/Lanet/ByteOrder.h"
#include "platform/Lanet/IpGenAddr.h"

namespace Snmp {

// INET-ADDRESS-MIB InetAddressType.
enum class InetAddressType : uint8_t {
  unknown = 0,
  ipv4 = 1,
  ipv6 = 2,
  ipv4z = 3,
  ipv6z = 4,
  dns = 16,
};

// "unknown", "ipv4", "ipv6", "ipv4z", "ipv6z", "dns"; "invalid" for any other value.
std::string_view toString(InetAddressType type);
std::optional<InetAddressType> inetAddressTypeFromString(std::string_view name);
// True for the six named values.
bool isValidInetAddressType(uint32_t value);

// An InetAddressType plus up to kMaxOctets octets of InetAddress. Octet counts are not checked
// against the type (an ipv4 with 3 octets is representable) because index values arriving in
// SNMP requests can be anything and must still be ordered.
class InetAddress {
 public:
  // The largest fixed-size form, ipv6z (16 address + 4 zone octets).
  static constexpr size_t kMaxOctets = 20;

  constexpr InetAddress() = default;
  // Throws std::length_error for more than kMaxOctets octets and std::invalid_argument for a
  // type that is not one of the named values.
  InetAddress(InetAddressType type, std::span<const uint8_t> octets);

  // ipv4 with 4 octets, ipv6 with 16, or unknown with none for an af-unknown address.
  static InetAddress fromIpGenAddr(const Lanet::IpGenAddr& addr);
  // Parses every toString() form ("ipv4:10.0.0.1", "ipv6:ff02::1", "dns:6578", "unknown:").
  // ipv4/ipv6 also accept hex octets. Throws std::invalid_argument on anything else.
  static InetAddress parse(std::string_view text);

  InetAddressType type() const { return type_; }
  std::span<const uint8_t> octets() const { return {octets_.data(), size_}; }
  size_t size() const { return size_; }
  // The zero value: type unknown with no octets.
  bool isDefault() const { return type_ == InetAddressType::unknown && size_ == 0; }

  // The inverse of fromIpGenAddr: nullopt unless this is ipv4/4 octets, ipv6/16 octets, or
  // the default value (which maps to the af-unknown address).
  std::optional<Lanet::IpGenAddr> toIpGenAddr() const;

  // ipv4/ipv6 of the right length print as addresses; the rest as "<type>:<lower-case hex>".
  std::string toString() const;
  size_t hash(size_t seed = 0) const;

  // Type, then length, then octets: the OID order of an InetAddressType index followed by a
  // length-prefixed InetAddress index.
  // Always inlined: an index compares several addresses per step of a table descent.
  [[gnu::always_inline]] std::strong_ordering operator<=>(const InetAddress& other) const {
    if (type_ != other.type_) return type_ <=> other.type_;
    if (size_ != other.size_) return size_ <=> other.size_;
    // Equal lengths and zeros past them: the whole arrays compare as the octets do.
    static_assert(kMaxOctets == 8 + 8 + 4);
    using Lanet::detail::loadBe32;
    using Lanet::detail::loadBe64;
    const uint8_t* a = octets_.data();
    const uint8_t* b = other.octets_.data();
    if (auto c = loadBe64(a) <=> loadBe64(b); c != 0) return c;
    if (auto c = loadBe64(a + 8) <=> loadBe64(b + 8); c != 0) return c;
    return loadBe32(a + 16) <=> loadBe32(b + 16);
  }
  // Inline for the same reason: comparing the arrays is a memcmp call, and a route's rows
  // compare their addresses a dozen times as they are built.
  [[gnu::always_inline]] bool operator==(const InetAddress& other) const {
    using Lanet::detail::loadBe32;
    using Lanet::detail::loadBe64;
    const uint8_t* a = octets_.data();
    const uint8_t* b = other.octets_.data();
    return type_ == other.type_ && size_ == other.size_ && loadBe64(a) == loadBe64(b) &&
           loadBe64(a + 8) == loadBe64(b + 8) && loadBe32(a + 16) == loadBe32(b + 16);
  }

 private:
  InetAddressType type_ = InetAddressType::unknown;
  uint8_t size_ = 0;
  // Octets past size_ stay zero so comparisons can look at the whole array.
  std::array<uint8_t, kMaxOctets> octets_{};
};

std::ostream& operator<<(std::ostream& os, InetAddressType type);
std::ostream& operator<<(std::ostream& os, const InetAddress& addr);

}  // namespace Snmp

template <>
struct std::hash<Snmp::InetAddress> {
  size_t operator()(const Snmp::InetAddress& addr) const noexcept { return addr.hash(); }
};

template <>
struct fmt::formatter<Snmp::InetAddressType> : fmt::formatter<std::string_view> {
  template <typename FormatContext>
  auto format(Snmp::InetAddressType type, FormatContext& ctx) const {
    return fmt::formatter<std::string_view>::format(Snmp::toString(type), ctx);
  }
};

template <>
struct fmt::formatter<Snmp::InetAddress> : fmt::formatter<std::string_view> {
  template <typename FormatContext>
  auto format(const Snmp::InetAddress& addr, FormatContext& ctx) const {
    return fmt::formatter<std::string_view>::format(addr.toString(), ctx);
  }
};
