#pragma once

#include <cstddef>
#include <optional>
#include <utility>

#include "platform/Ent/Ptr.h"

// Keeping one ordered collection of shared records (Ent::OrderedColl) equal to another: the
// copy holds the very records of the source, so only membership is mirrored. `put(Ptr<V>)`
// stores a record in the copy (replacing another one of its key); `del(key)` removes a key.
namespace Routing::Pim::Shtab {

namespace detail {
// `s` and `d`: the records of key `k` in the source and the copy, or null.
template <class SV, class DV, class K, class Put, class Del>
bool mirrorRecords(SV* s, DV* d, const K& k, Put& put, Del& del) {
  if (s) {
    if (static_cast<const void*>(s) == static_cast<const void*>(d)) return false;
    put(Ent::Ptr<SV>(s));
    return true;
  }
  if (!d) return false;
  del(k);
  return true;
}
}  // namespace detail

// Brings key `k` of `dst` in line with `src`. Returns whether `dst` changed.
template <class SrcColl, class DstColl, class K, class Put, class Del>
bool mirrorKey(const SrcColl& src, const DstColl& dst, const K& k, Put&& put, Del&& del) {
  return detail::mirrorRecords(src.find(k), dst.find(k), k, put, del);
}

// One step of a merge walk over both collections: handles the smallest key of either that is
// greater than `after` (the first key when `after` is empty) and returns it, or returns empty
// when neither has such a key. Each step re-positions by key, so `put`/`del` and whatever
// their notifications do may change either collection between steps.
template <class K, class SrcColl, class DstColl, class Put, class Del>
std::optional<K> mirrorNext(const SrcColl& src, const DstColl& dst, const std::optional<K>& after,
                            Put&& put, Del&& del, bool* changed = nullptr) {
  auto s = after ? src.upperBound(*after) : src.begin();
  auto d = after ? dst.upperBound(*after) : dst.begin();
  auto* sv = s == src.end() ? nullptr : s->get();
  auto* dv = d == dst.end() ? nullptr : d->get();
  if (!sv && !dv) return std::nullopt;
  // The smaller key is handled; the other side has a record for it only if its keys are equal.
  if (sv && dv) {
    if (sv->key() < dv->key()) {
      dv = nullptr;
    } else if (dv->key() < sv->key()) {
      sv = nullptr;
    }
  }
  K k(sv ? sv->key() : dv->key());
  const bool c = detail::mirrorRecords(sv, dv, k, put, del);
  if (changed) *changed = c;
  return k;
}

}  // namespace Routing::Pim::Shtab
