#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Ent/Dir.h"
#include "platform/Lanet/AddressFamily.h"

// Helpers for the factories that turn a mount path back into the table it names.
namespace Stadb {

// The '/'-separated components of `path`, URL-unquoted; empty components are skipped.
inline std::vector<std::string> pathComponents(std::string_view path) {
  std::vector<std::string> out;
  while (!path.empty()) {
    const size_t slash = path.find('/');
    const std::string_view c = path.substr(0, slash);
    if (!c.empty()) out.push_back(Ent::urlUnquote(c));
    if (slash == std::string_view::npos) break;
    path.remove_prefix(slash + 1);
  }
  return out;
}

// Inverse of Lanet::toString for the two known families.
inline std::optional<Lanet::AddressFamily> addressFamilyFromString(std::string_view s) {
  if (s == Lanet::toString(Lanet::AddressFamily::ipv4)) return Lanet::AddressFamily::ipv4;
  if (s == Lanet::toString(Lanet::AddressFamily::ipv6)) return Lanet::AddressFamily::ipv6;
  return std::nullopt;
}

}  // namespace Stadb
