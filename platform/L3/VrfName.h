#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "platform/Lanet/Hash.h"

namespace L3 {

// The name of a VRF, at most kMaxLen bytes. The default-constructed name is the default VRF.
class VrfName {
 public:
  static constexpr size_t kMaxLen = 100;

  VrfName() : name_(kDefault) {}
  // Each throws std::range_error if the name is longer than kMaxLen bytes.
  explicit VrfName(std::string name) : name_(std::move(name)) { check(); }
  explicit VrfName(std::string_view name) : name_(name) { check(); }
  explicit VrfName(const char* name) : name_(name) { check(); }

  static VrfName defaultVrf() { return VrfName(); }

  bool isDefault() const { return name_ == kDefault; }
  const std::string& str() const { return name_; }

  size_t hash(size_t seed = 0) const {
    return Lanet::hashCombine(seed, std::hash<std::string_view>()(name_));
  }

  // Bytewise by name.
  auto operator<=>(const VrfName&) const = default;

 private:
  static constexpr std::string_view kDefault = "default";

  void check() const {
    if (name_.size() > kMaxLen) {
      throw std::range_error("VRF name is longer than " + std::to_string(kMaxLen) + " bytes (" +
                             std::to_string(name_.size()) + " bytes)");
    }
  }

  std::string name_;
};

inline std::ostream& operator<<(std::ostream& os, const VrfName& vrf) {
  return os << vrf.str();
}

}  // namespace L3

template <>
struct std::hash<L3::VrfName> {
  size_t operator()(const L3::VrfName& vrf) const noexcept { return vrf.hash(); }
};

template <>
struct fmt::formatter<L3::VrfName> : fmt::formatter<std::string_view> {
  template <typename FormatContext>
  auto format(const L3::VrfName& vrf, FormatContext& ctx) const {
    return fmt::formatter<std::string_view>::format(vrf.str(), ctx);
  }
};
