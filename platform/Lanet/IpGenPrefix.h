#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

#include <fmt/format.h>

#include "platform/Lanet/AddressFamily.h"
#include "platform/Lanet/IpGenAddr.h"

namespace Lanet {

// An address and a prefix length. The address is kept as given (host bits are not cleared)
// so a key built from a FIB entry round-trips; use masked() for the network address.
// The default prefix has an af-unknown address and length 0, and prints as "none/0".
class IpGenPrefix {
 public:
  constexpr IpGenPrefix() = default;
  // Throws std::invalid_argument if maskLen exceeds addressBits(addr.af()).
  IpGenPrefix(const IpGenAddr& addr, uint8_t maskLen);

  // The full-length prefix holding just `addr` (/32, /128; /0 for af-unknown).
  static IpGenPrefix host(const IpGenAddr& addr);
  // "224.0.0.0/4", "ff00::/8", "none/0". The '/' and a decimal length are required.
  static std::optional<IpGenPrefix> parse(std::string_view text);

  const IpGenAddr& address() const { return addr_; }
  uint8_t maskLen() const { return len_; }
  AddressFamily af() const { return addr_.af(); }
  bool isHost() const { return len_ == addressBits(addr_.af()); }

  // Same family and the first maskLen() bits match.
  bool contains(const IpGenAddr& addr) const;
  // This prefix with the bits past maskLen() cleared.
  IpGenPrefix masked() const;

  std::string toString() const;
  size_t hash(size_t seed = 0) const;

  // Address first, then length.
  auto operator<=>(const IpGenPrefix&) const = default;

 private:
  IpGenAddr addr_;
  uint8_t len_ = 0;
};

std::ostream& operator<<(std::ostream& os, const IpGenPrefix& prefix);

}  // namespace Lanet

template <>
struct std::hash<Lanet::IpGenPrefix> {
  size_t operator()(const Lanet::IpGenPrefix& prefix) const noexcept { return prefix.hash(); }
};

template <>
struct fmt::formatter<Lanet::IpGenPrefix> : fmt::formatter<std::string_view> {
  template <typename FormatContext>
  auto format(const Lanet::IpGenPrefix& prefix, FormatContext& ctx) const {
    return fmt::formatter<std::string_view>::format(prefix.toString(), ctx);
  }
};
