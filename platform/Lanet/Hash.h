#pragma once

#include <cstddef>
#include <cstdint>

namespace Lanet {

// Finalizer of splitmix64: addresses differ mostly in their low bits, and unordered containers
// take the low bits of the hash, so every input bit must reach every output bit.
constexpr size_t hashMix(uint64_t x) {
  x ^= x >> 30;
  x *= 0xbf58476d1ce4e5b9ULL;
  x ^= x >> 27;
  x *= 0x94d049bb133111ebULL;
  x ^= x >> 31;
  return static_cast<size_t>(x);
}

// Order-sensitive: hashCombine(hashCombine(s, a), b) != hashCombine(hashCombine(s, b), a)
// in general, so (S,G) and (G,S) land in different buckets.
constexpr size_t hashCombine(size_t seed, uint64_t value) {
  return hashMix(seed ^ (value + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2)));
}

}  // namespace Lanet
