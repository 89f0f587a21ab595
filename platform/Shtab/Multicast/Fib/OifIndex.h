#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <ostream>

#include <fmt/format.h>

namespace Shtab::Multicast::Fib {

// Index of an outgoing interface in a FIB route's OIF set, 0..511. The value 512 marks the
// end of an OIF walk and an unmapped index; it is the default.
struct OifIndex {
  static constexpr uint16_t kCount = 512;
  static constexpr uint16_t kInvalid = kCount;

  uint16_t value = kInvalid;

  constexpr OifIndex() = default;
  constexpr explicit OifIndex(uint16_t v) : value(v) {}
  static constexpr OifIndex end() { return OifIndex(); }

  constexpr bool valid() const { return value < kCount; }
  auto operator<=>(const OifIndex&) const = default;
};

inline std::ostream& operator<<(std::ostream& os, OifIndex i) {
  return os << i.value;
}

}  // namespace Shtab::Multicast::Fib

template <>
struct std::hash<Shtab::Multicast::Fib::OifIndex> {
  size_t operator()(Shtab::Multicast::Fib::OifIndex i) const noexcept {
    return std::hash<uint16_t>()(i.value);
  }
};

template <>
struct fmt::formatter<Shtab::Multicast::Fib::OifIndex> : fmt::formatter<uint16_t> {
  template <typename FormatContext>
  auto format(Shtab::Multicast::Fib::OifIndex i, FormatContext& ctx) const {
    return fmt::formatter<uint16_t>::format(i.value, ctx);
  }
};
