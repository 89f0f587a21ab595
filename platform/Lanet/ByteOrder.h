#pragma once

// Big-endian loads for comparing octet strings a word at a time: the numeric order of the
// loaded words is the lexicographic order of the octets.

#include <bit>
#include <cstdint>
#include <cstring>

namespace Lanet::detail {

inline uint64_t loadBe64(const uint8_t* p) {
  uint64_t v;
  std::memcpy(&v, p, sizeof v);
  if constexpr (std::endian::native == std::endian::little) v = __builtin_bswap64(v);
  return v;
}

inline uint32_t loadBe32(const uint8_t* p) {
  uint32_t v;
  std::memcpy(&v, p, sizeof v);
  if constexpr (std::endian::native == std::endian::little) v = __builtin_bswap32(v);
  return v;
}

}  // namespace Lanet::detail
