#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

#include <fmt/format.h>

#include "platform/Lanet/AddressFamily.h"
#include "platform/Lanet/IpGenAddr.h"

namespace Routing::Pim {

// A PIM multicast route: (S,G), or (*,G) when the source is the unspecified address of the
// group's family. The default key has two af-unknown addresses.
struct RouteKey {
  Lanet::IpGenAddr source;
  Lanet::IpGenAddr group;

  static RouteKey starG(const Lanet::IpGenAddr& group) {
    return {Lanet::IpGenAddr::unspecified(group.af()), group};
  }

  // "(10.1.1.1, 239.1.1.1)"; both addresses in IpGenAddr text form, so "(0.0.0.0, G)" for
  // (*,G). "*" is also accepted as the source and means starG(group).
  static std::optional<RouteKey> parse(std::string_view text);

  // The group's family, or the source's if the group's is unknown.
  Lanet::AddressFamily af() const {
    return group.af() != Lanet::AddressFamily::unknown ? group.af() : source.af();
  }
  bool isStarG() const { return source.isUnspecified(); }
  // The group has a known family and the source has the same one.
  bool isValid() const {
    return group.af() != Lanet::AddressFamily::unknown && source.af() == group.af();
  }

  std::string toString() const;
  size_t hash(size_t seed = 0) const { return group.hash(source.hash(seed)); }

  // Source, then group.
  auto operator<=>(const RouteKey&) const = default;
};

std::ostream& operator<<(std::ostream& os, const RouteKey& key);

}  // namespace Routing::Pim

template <>
struct std::hash<Routing::Pim::RouteKey> {
  size_t operator()(const Routing::Pim::RouteKey& key) const noexcept { return key.hash(); }
};

template <>
struct fmt::formatter<Routing::Pim::RouteKey> : fmt::formatter<std::string_view> {
  template <typename FormatContext>
  auto format(const Routing::Pim::RouteKey& key, FormatContext& ctx) const {
    return fmt::formatter<std::string_view>::format(key.toString(), ctx);
  }
};
