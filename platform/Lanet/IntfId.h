#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace Lanet {

// An interface, identified by its name ("Ethernet1", "Vlan100"). The default is the empty
// interface id, meaning "no interface".
class IntfId {
 public:
  IntfId() = default;
  explicit IntfId(std::string name) : name_(std::move(name)) {}
  explicit IntfId(std::string_view name) : name_(name) {}
  // Resolves IntfId("Ethernet1"), which would otherwise be ambiguous between the two above.
  explicit IntfId(const char* name) : name_(name) {}

  const std::string& name() const { return name_; }
  bool empty() const { return name_.empty(); }

  const std::string& toString() const { return name_; }
  size_t hash(size_t seed = 0) const;

  // By name, bytewise.
  auto operator<=>(const IntfId&) const = default;

 private:
  std::string name_;
};

std::ostream& operator<<(std::ostream& os, const IntfId& intf);

}  // namespace Lanet

template <>
struct std::hash<Lanet::IntfId> {
  size_t operator()(const Lanet::IntfId& intf) const noexcept { return intf.hash(); }
};

template <>
struct fmt::formatter<Lanet::IntfId> : fmt::formatter<std::string_view> {
  template <typename FormatContext>
  auto format(const Lanet::IntfId& intf, FormatContext& ctx) const {
    return fmt::formatter<std::string_view>::format(intf.name(), ctx);
  }
};
