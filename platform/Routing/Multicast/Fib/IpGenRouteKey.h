#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>

#include <fmt/format.h>

#include "platform/Lanet/AddressFamily.h"
#include "platform/Lanet/IpGenAddr.h"
#include "platform/Lanet/IpGenPrefix.h"

namespace Routing::Multicast::Fib {

// The multicast FIB's route key: (*,G) is (0.0.0.0/0, G/32) or (::/0, G/128); (S,G) is
// (S/32, G/32) or (S/128, G/128).
struct IpGenRouteKey {
  Lanet::IpGenPrefix source;
  Lanet::IpGenPrefix group;

  static IpGenRouteKey starG(const Lanet::IpGenAddr& group) {
    return {Lanet::IpGenPrefix(Lanet::IpGenAddr::unspecified(group.af()), 0),
            Lanet::IpGenPrefix::host(group)};
  }
  static IpGenRouteKey sg(const Lanet::IpGenAddr& source, const Lanet::IpGenAddr& group) {
    return {Lanet::IpGenPrefix::host(source), Lanet::IpGenPrefix::host(group)};
  }

  Lanet::AddressFamily af() const { return group.af(); }
  bool isStarG() const { return source.maskLen() == 0; }

  // "(S/len, G/len)".
  std::string toString() const { return fmt::format("({}, {})", source, group); }
  size_t hash(size_t seed = 0) const { return source.hash(group.hash(seed)); }

  // Group first, then source: the FIB walks all sources of one group together.
  std::strong_ordering operator<=>(const IpGenRouteKey& other) const {
    if (auto c = group <=> other.group; c != 0) return c;
    return source <=> other.source;
  }
  bool operator==(const IpGenRouteKey&) const = default;
};

inline std::ostream& operator<<(std::ostream& os, const IpGenRouteKey& key) {
  return os << key.toString();
}

}  // namespace Routing::Multicast::Fib

template <>
struct std::hash<Routing::Multicast::Fib::IpGenRouteKey> {
  size_t operator()(const Routing::Multicast::Fib::IpGenRouteKey& key) const noexcept {
    return key.hash();
  }
};

template <>
struct fmt::formatter<Routing::Multicast::Fib::IpGenRouteKey> : fmt::formatter<std::string_view> {
  template <typename FormatContext>
  auto format(const Routing::Multicast::Fib::IpGenRouteKey& key, FormatContext& ctx) const {
    return fmt::formatter<std::string_view>::format(key.toString(), ctx);
  }
};
