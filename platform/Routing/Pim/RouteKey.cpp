#include "platform/Routing/Pim/RouteKey.h"

#include <ostream>

namespace Routing::Pim {

namespace {

std::string_view trim(std::string_view s) {
  while (!s.empty() && s.front() == ' ') s.remove_prefix(1);
  while (!s.empty() && s.back() == ' ') s.remove_suffix(1);
  return s;
}

}  // namespace

std::optional<RouteKey> RouteKey::parse(std::string_view text) {
  if (text.size() < 2 || text.front() != '(' || text.back() != ')') return std::nullopt;
  const std::string_view inner = text.substr(1, text.size() - 2);
  const size_t comma = inner.find(',');
  if (comma == std::string_view::npos) return std::nullopt;
  const std::string_view sourceText = trim(inner.substr(0, comma));
  const auto group = Lanet::IpGenAddr::parse(trim(inner.substr(comma + 1)));
  if (!group) return std::nullopt;
  if (sourceText == "*") return starG(*group);
  const auto source = Lanet::IpGenAddr::parse(sourceText);
  if (!source) return std::nullopt;
  return RouteKey{*source, *group};
}

std::string RouteKey::toString() const {
  return fmt::format("({}, {})", source, group);
}

std::ostream& operator<<(std::ostream& os, const RouteKey& key) {
  return os << key.toString();
}

}  // namespace Routing::Pim
