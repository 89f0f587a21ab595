#include "platform/Shtab/Multicast/Fib/Route.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace Shtab::Multicast::Fib {

// Two counters and the OIF set: with a route key, one 80-byte allocation per FIB entry.
static_assert(sizeof(Route) == 32);

Route::Route(const Route& o) : Route() {
  *this = o;
}

Route::Route(Route&& o) noexcept : Route() {
  *this = std::move(o);
}

Route& Route::operator=(const Route& o) {
  if (this == &o) return *this;
  if (o.size_ <= kInlineOifs) {
    release();
  } else {
    reserve(o.size_);  // may throw; nothing has changed yet
  }
  std::copy_n(o.data(), o.size_, data());
  size_ = o.size_;
  packets_ = o.packets_;
  bytes_ = o.bytes_;
  return *this;
}

Route& Route::operator=(Route&& o) noexcept {
  if (this == &o) return *this;
  release();
  packets_ = o.packets_;
  bytes_ = o.bytes_;
  size_ = std::exchange(o.size_, 0);
  capacity_ = std::exchange(o.capacity_, 0);
  if (onHeap()) {
    heap_ = o.heap_;
  } else {
    std::copy_n(o.inline_, size_, inline_);
  }
  return *this;
}

void Route::release() noexcept {
  if (onHeap()) delete[] heap_;
  capacity_ = 0;
  size_ = 0;
}

void Route::reserve(uint16_t n) {
  const uint16_t have = onHeap() ? capacity_ : kInlineOifs;
  if (n <= have) return;
  // Doubling keeps a run of insertions at amortized O(1) copies each.
  const auto cap = static_cast<uint16_t>(std::min<unsigned>(std::bit_ceil(n), OifIndex::kCount));
  auto* grown = new OifIndex[cap];
  std::copy_n(data(), size_, grown);
  if (onHeap()) delete[] heap_;
  heap_ = grown;
  capacity_ = cap;
}

bool Route::oif(OifIndex i) const {
  return i.valid() && std::binary_search(oifs().begin(), oifs().end(), i);
}

void Route::oifIs(OifIndex i, bool on) {
  if (!i.valid()) return;
  const auto at =
      static_cast<uint16_t>(std::lower_bound(oifs().begin(), oifs().end(), i) - oifs().begin());
  const bool present = at < size_ && data()[at] == i;
  if (on == present) return;
  if (on) {
    reserve(static_cast<uint16_t>(size_ + 1));
    OifIndex* d = data();
    std::copy_backward(d + at, d + size_, d + size_ + 1);
    d[at] = i;
    ++size_;
    return;
  }
  OifIndex* d = data();
  std::copy(d + at + 1, d + size_, d + at);
  --size_;
  if (onHeap() && size_ <= kInlineOifs) {
    // Back inline: a route that shrank keeps no heap block.
    OifIndex* block = heap_;
    capacity_ = 0;
    std::copy_n(block, size_, inline_);
    delete[] block;
  }
}

OifIndex Route::nextOif(OifIndex i) const {
  if (!i.valid()) return OifIndex::end();
  auto it = std::upper_bound(oifs().begin(), oifs().end(), i);
  return it == oifs().end() ? OifIndex::end() : *it;
}

bool Route::operator==(const Route& o) const {
  return packets_ == o.packets_ && bytes_ == o.bytes_ &&
         std::equal(oifs().begin(), oifs().end(), o.oifs().begin(), o.oifs().end());
}

}  // namespace Shtab::Multicast::Fib
