#include "bench/CountingHeap.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

long long liveBytes = 0;

long long chunkSize(size_t n) {
  const size_t c = (n + 8 + 15) & ~size_t{15};
  return static_cast<long long>(c < 32 ? 32 : c);
}

}  // namespace

namespace Bench {

long long heapBytes() {
  return liveBytes;
}

}  // namespace Bench

// Kept out of line: inlined into a delete expression, GCC mistakes free() here for a mismatch.
__attribute__((noinline)) void* operator new(size_t n) {
  void* raw = std::malloc(n + 16);
  if (!raw) throw std::bad_alloc();
  *static_cast<size_t*>(raw) = n;
  liveBytes += chunkSize(n);
  return static_cast<char*>(raw) + 16;
}
__attribute__((noinline)) void operator delete(void* p) noexcept {
  if (!p) return;
  void* raw = static_cast<char*>(p) - 16;
  liveBytes -= chunkSize(*static_cast<size_t*>(raw));
  std::free(raw);
}
void operator delete(void* p, size_t) noexcept {
  operator delete(p);
}
