#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "platform/Shtab/Multicast/Fib/OifIndex.h"

namespace Shtab::Multicast::Fib {

// A multicast FIB route as published in shared memory: its set of outgoing interfaces and its
// packet and byte counters. The default route is the empty route, which a missing key yields.
class Route {
 public:
  Route() = default;

  bool oif(OifIndex i) const { return i.valid() && (words_[i.value / 64] >> (i.value % 64)) & 1u; }
  // Indexes outside 0..511 are ignored.
  void oifIs(OifIndex i, bool on = true) {
    if (!i.valid()) return;
    const uint64_t bit = uint64_t{1} << (i.value % 64);
    if (on) {
      words_[i.value / 64] |= bit;
    } else {
      words_[i.value / 64] &= ~bit;
    }
  }
  // The lowest OIF, or OifIndex::end() when there is none.
  OifIndex firstOif() const { return scanFrom(0); }
  // The lowest OIF above `i`, or OifIndex::end().
  OifIndex nextOif(OifIndex i) const {
    return i.valid() ? scanFrom(static_cast<uint16_t>(i.value + 1)) : OifIndex::end();
  }
  bool hasOif() const { return firstOif().valid(); }
  size_t oifCount() const {
    size_t n = 0;
    for (uint64_t w : words_) n += static_cast<size_t>(std::popcount(w));
    return n;
  }

  uint64_t packets() const { return packets_; }
  uint64_t bytes() const { return bytes_; }
  void countersIs(uint64_t packets, uint64_t bytes) {
    packets_ = packets;
    bytes_ = bytes;
  }

  // Equal to the default route: no OIFs and no traffic.
  bool empty() const { return *this == Route(); }

  bool operator==(const Route&) const = default;

 private:
  OifIndex scanFrom(uint16_t from) const {
    for (uint16_t w = from / 64; w < kWords; ++w) {
      uint64_t bits = words_[w];
      if (w == from / 64) bits &= ~uint64_t{0} << (from % 64);
      if (bits) return OifIndex(static_cast<uint16_t>(w * 64 + std::countr_zero(bits)));
    }
    return OifIndex::end();
  }

  static constexpr uint16_t kWords = OifIndex::kCount / 64;
  std::array<uint64_t, kWords> words_{};
  uint64_t packets_ = 0;
  uint64_t bytes_ = 0;
};

}  // namespace Shtab::Multicast::Fib
