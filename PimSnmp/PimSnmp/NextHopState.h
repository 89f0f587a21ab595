#pragma once

#include <cstdint>
#include <ostream>
#include <string_view>

#include <fmt/format.h>

namespace Routing::Pim::Snmp {

// Whether a route forwards out of a next hop. The wire values differ (pruned(1),
// forwarding(2)); NextHopStateToAsnInteger maps them.
enum NextHopState : uint8_t { nhStatePruned = 0, nhStateForwarding = 1 };

// The enumerator's name; "invalid" for a value that names none.
constexpr std::string_view stringValue(NextHopState state) {
  switch (state) {
    case nhStatePruned:
      return "nhStatePruned";
    case nhStateForwarding:
      return "nhStateForwarding";
  }
  return "invalid";
}

inline std::ostream& operator<<(std::ostream& os, NextHopState state) {
  return os << stringValue(state);
}

}  // namespace Routing::Pim::Snmp

template <>
struct fmt::formatter<Routing::Pim::Snmp::NextHopState> : fmt::formatter<std::string_view> {
  template <typename FormatContext>
  auto format(Routing::Pim::Snmp::NextHopState state, FormatContext& ctx) const {
    return fmt::formatter<std::string_view>::format(Routing::Pim::Snmp::stringValue(state), ctx);
  }
};
