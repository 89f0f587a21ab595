#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/Shtab/Multicast/Fib/OifIndex.h"

namespace Shtab::Multicast::Fib {

// A multicast FIB route as published in shared memory: its set of outgoing interfaces and its
// packet and byte counters. The default route is the empty route, which a missing key yields.
//
// Routes have a few OIFs and there may be 100k routes: the set is a sorted array of indexes,
// inline up to kInlineOifs and on the heap beyond, so that a route is 32 bytes rather than a
// 512-bit map. Every operation costs O(number of OIFs).
class Route {
 public:
  static constexpr uint16_t kInlineOifs = 4;

  Route() : inline_{} {}
  Route(const Route& o);
  Route(Route&& o) noexcept;
  Route& operator=(const Route& o);
  Route& operator=(Route&& o) noexcept;
  ~Route() { release(); }

  bool oif(OifIndex i) const;
  // Indexes outside 0..511 are ignored.
  void oifIs(OifIndex i, bool on = true);
  // The lowest OIF, or OifIndex::end() when there is none.
  OifIndex firstOif() const { return size_ != 0 ? data()[0] : OifIndex::end(); }
  // The lowest OIF above `i`, or OifIndex::end().
  OifIndex nextOif(OifIndex i) const;
  bool hasOif() const { return size_ != 0; }
  size_t oifCount() const { return size_; }

  uint64_t packets() const { return packets_; }
  uint64_t bytes() const { return bytes_; }
  void countersIs(uint64_t packets, uint64_t bytes) {
    packets_ = packets;
    bytes_ = bytes;
  }

  // Equal to the default route: no OIFs and no traffic.
  bool empty() const { return size_ == 0 && packets_ == 0 && bytes_ == 0; }

  // Same OIFs and counters, wherever the OIFs are kept.
  bool operator==(const Route& o) const;

 private:
  bool onHeap() const { return capacity_ != 0; }
  const OifIndex* data() const { return onHeap() ? heap_ : inline_; }
  OifIndex* data() { return onHeap() ? heap_ : inline_; }
  std::span<const OifIndex> oifs() const { return {data(), size_}; }
  // Room for at least `n` OIFs; moves the set to the heap when it outgrows the inline array.
  void reserve(uint16_t n);
  void release() noexcept;

  uint64_t packets_ = 0;
  uint64_t bytes_ = 0;
  uint16_t size_ = 0;
  uint16_t capacity_ = 0;  // of heap_; 0 while the OIFs are inline
  union {
    OifIndex inline_[kInlineOifs];
    OifIndex* heap_;
  };
};

}  // namespace Shtab::Multicast::Fib
