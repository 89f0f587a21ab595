#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <utility>

#include "platform/Ent/Error.h"
#include "platform/Lanet/Hash.h"

namespace Ent {

// Exact-key look-up of entries that live elsewhere (in an ordered collection's tree): a flat,
// linear-probing table of entry pointers. A look-up reads one run of slots and then the entry
// itself, where a tree descent of 100,000 scattered entries reads about seventeen of them.
//
// Each slot holds the pointer and, in the bits a pointer leaves unused (16 above bit 47, 3 of
// alignment), the top 19 bits of the key's hash. A probe reads an entry only when those match,
// and since an entry's home slot is taken from the top of its hash, growing, shrinking and
// erasing read no entry at all up to 2^19 slots. 8 bytes per slot; the table grows at 7/8 full
// (counting erased slots) and shrinks below 1/8, so it costs 9-18 bytes per entry.
template <class K, class V, auto KeyFn, class Hash>
class PointerIndex {
  static_assert(alignof(V) >= 8, "the low three bits of an entry's address hold hash bits");

 public:
  PointerIndex() = default;
  PointerIndex(const PointerIndex&) = delete;
  PointerIndex& operator=(const PointerIndex&) = delete;

  size_t size() const { return size_; }
  size_t capacity() const { return mask_ ? mask_ + 1 : 0; }

  V* find(const K& k) const {
    if (!size_) return nullptr;
    const uint64_t h = hashOf(k);
    const uint64_t tag = tagOfHash(h);
    for (size_t i = h >> shift_;; i = (i + 1) & mask_) {
      const uint64_t s = slots_[i];
      if (s == kEmpty) return nullptr;
      if (occupied(s) && tagOfSlot(s) == tag) {
        V* v = entry(s);
        if (keyOf(*v) == k) return v;
      }
    }
  }

  // The hash of `k`, having asked the CPU to fetch its home slot: a caller with other work
  // before its insert (a tree descent) passes it to insert() and finds the slot in cache.
  uint64_t prepare(const K& k) const {
    const uint64_t h = hashOf(k);
    if (size_) __builtin_prefetch(&slots_[h >> shift_], 1);
    return h;
  }

  // `v`'s key must not be in the index yet; `h` is prepare(key of v).
  void insert(V* v) { insert(v, hashOf(keyOf(*v))); }
  void insert(V* v, uint64_t h) {
    const auto p = reinterpret_cast<uintptr_t>(v);
    if ((p & ~kPtrMask) != 0) throw Error("PointerIndex: entry address beyond 48 bits");
    if ((size_ + erased_ + 1) * 8 > capacity() * 7) {
      // Mostly erased slots: clean them out in place; else grow.
      rehash(capacity() == 0                ? kMinCapacity
             : (size_ + 1) * 2 > capacity() ? capacity() * 2
                                            : capacity());
    }
    size_t i = h >> shift_;
    while (occupied(slots_[i])) i = (i + 1) & mask_;
    if (slots_[i] == kErased) --erased_;
    slots_[i] = p | slotTag(tagOfHash(h));
    ++size_;
  }

  // Removes `v` if the index holds it. Its slot is marked erased rather than emptied, so the
  // entries after it in its run stay reachable without reading any of them; the marks go at the
  // next rehash.
  void erase(const V* v) { erase(v, hashOf(keyOf(*v))); }
  void erase(const V* v, uint64_t h) {
    if (!size_) return;
    for (size_t i = h >> shift_;; i = (i + 1) & mask_) {
      const uint64_t s = slots_[i];
      if (s == kEmpty) return;
      if (occupied(s) && entry(s) == v) {
        slots_[i] = kErased;
        --size_;
        ++erased_;
        break;
      }
    }
    if (size_ == 0) {
      clear();
    } else if (capacity() > kMinCapacity && size_ * 8 < capacity()) {
      try {
        rehash(capacity() / 2);
      } catch (const std::bad_alloc&) {
        // Shrinking only saves memory: the entry is gone either way.
      }
    }
  }

  void clear() {
    slots_.reset();
    mask_ = 0;
    shift_ = 63;
    size_ = 0;
    erased_ = 0;
  }

 private:
  static constexpr unsigned kTagBits = 19;
  static constexpr uint64_t kPtrMask = ((uint64_t{1} << 48) - 1) & ~uint64_t{7};
  static constexpr size_t kMinCapacity = 8;
  static constexpr uint64_t kEmpty = 0;
  static constexpr uint64_t kErased = 1;  // no address bits: no entry

  static decltype(auto) keyOf(const V& v) { return std::invoke(KeyFn, v); }
  static uint64_t hashOf(const K& k) { return Lanet::hashMix(Hash{}(k)); }
  static uint64_t tagOfHash(uint64_t h) { return h >> (64 - kTagBits); }
  static uint64_t slotTag(uint64_t tag) { return ((tag >> 3) << 48) | (tag & 7); }
  static uint64_t tagOfSlot(uint64_t s) { return ((s >> 48) << 3) | (s & 7); }
  static bool occupied(uint64_t s) { return (s & kPtrMask) != 0; }
  static V* entry(uint64_t s) { return reinterpret_cast<V*>(s & kPtrMask); }

  // The home slot of a slot's entry in a table of `1 << bits` slots: from the stored tag while
  // it holds enough bits, else from the entry's key.
  static size_t home(uint64_t s, unsigned bits) {
    if (bits <= kTagBits) return tagOfSlot(s) >> (kTagBits - bits);
    return hashOf(keyOf(*entry(s))) >> (64 - bits);
  }

  void rehash(size_t capacity) {
    const size_t oldCapacity = this->capacity();
    // Allocated first: a failure leaves the table as it was.
    std::unique_ptr<uint64_t[]> old =
        std::exchange(slots_, std::make_unique<uint64_t[]>(capacity));  // zeroed: all empty
    mask_ = capacity - 1;
    const unsigned bits = static_cast<unsigned>(std::countr_zero(capacity));
    shift_ = 64 - bits;
    erased_ = 0;
    for (size_t j = 0; j < oldCapacity; ++j) {
      if (!occupied(old[j])) continue;
      size_t i = home(old[j], bits);
      while (slots_[i] != kEmpty) i = (i + 1) & mask_;
      slots_[i] = old[j];
    }
  }

  std::unique_ptr<uint64_t[]> slots_;
  size_t mask_ = 0;
  unsigned shift_ = 63;  // 64 minus the table's bits: the top of a hash picks the home slot
  size_t size_ = 0;
  size_t erased_ = 0;
};

}  // namespace Ent
