#pragma once

// Walking a document restricted by a hint: a merge patch names the members a walk visits (all
// of them without a hint); a member it replaces as a whole is walked in full.

#include <string_view>

#include "daemon/state/Json.h"
#include "daemon/state/MergePatch.h"

namespace PimSnmpd::Hint {

// `obj[name]` when `obj` is an object holding a non-null `name`.
inline const Json* member(const Json* obj, std::string_view name) {
  const Json* v = findMember(obj, name);
  return v == nullptr || v->is_null() ? nullptr : v;
}
inline Json* member(Json* obj, std::string_view name) {
  return const_cast<Json*>(member(static_cast<const Json*>(obj), name));
}

// Whether a walk restricted by `hint` (null: no restriction) visits `name`.
inline bool touched(const Json* hint, std::string_view name) {
  return hint == nullptr || findMember(hint, name) != nullptr;
}

// The hint for the subtree under `name`: the patch's object there, or null (visit everything)
// when the patch replaces the subtree as a whole.
inline const Json* childHint(const Json* hint, std::string_view name) {
  const Json* h = member(hint, name);
  return h != nullptr && h->is_object() ? h : nullptr;
}

// Calls f(name, value, childHint) for the members of object `obj` the hint touches (all of
// them without a hint); null values count as absent.
template <class F>
void forEachTouched(const MergeLandings* landings, const Json* obj, const Json* hint, F&& f) {
  if (obj == nullptr || !obj->is_object()) return;
  if (hint != nullptr) {
    for (const auto& [name, h] : membersOf(*hint)) {
      const Json* v = landedMember(obj, name, &h, landings);
      if (v != nullptr) f(name, *v, h.is_object() ? &h : nullptr);
    }
    return;
  }
  for (const auto& [name, v] : membersOf(*obj)) {
    if (!v.is_null()) f(name, v, static_cast<const Json*>(nullptr));
  }
}

}  // namespace PimSnmpd::Hint
