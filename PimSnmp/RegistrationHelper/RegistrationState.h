#pragma once

#include <cstdint>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>

#include <fmt/format.h>

namespace Routing::Pim::Snmp {

// Which families' MIBs are registered for a VRF: one byte of two flags.
class RegistrationState {
 public:
  static constexpr uint8_t v4RegisteredBit = 1;
  static constexpr uint8_t v6RegisteredBit = 2;

  constexpr RegistrationState() = default;
  // Throws std::out_of_range for a byte with bits beyond the two flags (4 or more).
  explicit constexpr RegistrationState(uint8_t value) : value_(value) {
    if (value > (v4RegisteredBit | v6RegisteredBit)) {
      throw std::out_of_range("RegistrationState value " + std::to_string(value) +
                              " has bits beyond v4Registered and v6Registered");
    }
  }

  constexpr uint8_t value() const { return value_; }
  constexpr bool v4Registered() const { return (value_ & v4RegisteredBit) != 0; }
  constexpr bool v6Registered() const { return (value_ & v6RegisteredBit) != 0; }
  constexpr void v4RegisteredIs(bool on) { setBit(v4RegisteredBit, on); }
  constexpr void v6RegisteredIs(bool on) { setBit(v6RegisteredBit, on); }

  constexpr bool operator==(const RegistrationState&) const = default;

 private:
  constexpr void setBit(uint8_t bit, bool on) {
    value_ = static_cast<uint8_t>(on ? (value_ | bit) : (value_ & ~bit));
  }

  uint8_t value_ = 0;
};

inline std::string valueToStrep(RegistrationState state) {
  return fmt::format(
      "Value('Routing::Pim::Snmp::RegistrationState', ** {{'v4Registered': {}, "
      "'v6Registered': {}}})",
      state.v4Registered() ? "True" : "False", state.v6Registered() ? "True" : "False");
}

inline std::ostream& operator<<(std::ostream& os, RegistrationState state) {
  return os << valueToStrep(state);
}

}  // namespace Routing::Pim::Snmp

template <>
struct fmt::formatter<Routing::Pim::Snmp::RegistrationState> : fmt::formatter<std::string_view> {
  template <typename FormatContext>
  auto format(Routing::Pim::Snmp::RegistrationState state, FormatContext& ctx) const {
    return fmt::formatter<std::string_view>::format(Routing::Pim::Snmp::valueToStrep(state), ctx);
  }
};
