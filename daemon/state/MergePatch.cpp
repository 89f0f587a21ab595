#include "daemon/state/MergePatch.h"

#include <type_traits>
#include <utility>

namespace PimSnmpd {

void mergePatchInPlace(Json& target, const Json& patch) {
  if (!patch.is_object()) {
    target = patch;
    return;
  }
  if (!target.is_object()) target = Json::object();
  for (const auto& [name, value] : patch.items()) {
    if (value.is_null()) {
      target.erase(name);
    } else {
      mergePatchInPlace(target[name], value);
    }
  }
}

Json mergePatch(Json target, const Json& patch) {
  mergePatchInPlace(target, patch);
  return target;
}

Json mergePatchDiff(const Json& from, const Json& to) {
  if (!from.is_object() || !to.is_object()) return to;
  Json patch = Json::object();
  for (const auto& [name, value] : from.items()) {
    if (!to.contains(name)) patch[name] = nullptr;
  }
  for (const auto& [name, value] : to.items()) {
    const auto it = from.find(name);
    if (it == from.end()) {
      patch[name] = value;
    } else if (*it != value) {
      // {} replacing a non-object comes out as {}, which applied makes an empty object.
      patch[name] = mergePatchDiff(*it, value);
    }
  }
  return patch;
}

namespace {

// Whether a patch value holds a null anywhere: only then does merging it into nothing differ
// from taking it whole (RFC 7396 drops the nulls of a new subtree).
bool holdsNull(const Json& v) {
  if (v.is_null()) return true;
  if (!v.is_object()) return false;
  for (const auto& [name, member] : v.items()) {
    if (holdsNull(member)) return true;
  }
  return false;
}

// Patches `target`, which the patch value `value` replaces or merges into, taking `value`'s
// contents wherever they can be taken whole.
void mergeTaking(Json& target, Json& value) {
  if (!value.is_object()) {
    target = std::move(value);
    return;
  }
  if (!target.is_object() && !holdsNull(value)) {
    target = std::move(value);
    return;
  }
  if (!target.is_object()) target = Json::object();
  for (auto& [name, member] : value.items()) {
    if (member.is_null()) {
      target.erase(name);
    } else {
      mergeTaking(target[name], member);
    }
  }
}

// The undo of one object level; `Patch` is const Json (values copied) or Json (values taken).
template <class Patch>
Json mergeWithUndo(Json& target, Patch& patch, MergeLandings* landings) {
  constexpr bool taking = !std::is_const_v<Patch>;
  auto merge = [](Json& into, Patch& value) {
    if constexpr (taking) {
      mergeTaking(into, value);
    } else {
      mergePatchInPlace(into, value);
    }
  };
  if (!patch.is_object()) {
    Json old = std::move(target);
    target = Json();
    merge(target, patch);
    return old;
  }
  if (!target.is_object()) {
    // Everything below is new: the undo is the old value as a whole.
    Json old = std::exchange(target, Json());
    merge(target, patch);
    return old;
  }
  Json undo = Json::object();
  // On the maps themselves: one descent finds a member or where a new one goes, and the undo,
  // built in the patch's (sorted) order, grows at its end.
  Json::object_t& members = target.get_ref<Json::object_t&>();
  Json::object_t& undone = undo.get_ref<Json::object_t&>();
  auto& patchMembers =
      patch.template get_ref<std::conditional_t<taking, Json::object_t&, const Json::object_t&>>();
  // By the size the object may reach: a batch of new routes lands in a VRF's routes object
  // that holds only the routes the update touches, and is searched afterwards at its full size.
  const bool record =
      landings != nullptr && members.size() + patchMembers.size() >= MergeLandings::kMinMembers;
  for (auto& [name, value] : patchMembers) {
    auto it = members.lower_bound(name);
    const bool present = it != members.end() && it->first == name;
    Json& old = undone.emplace_hint(undone.end(), name, Json())->second;
    if (value.is_null()) {
      if (present) {
        old = std::move(it->second);
        members.erase(it);
      }
      continue;
    }
    if (!present) {
      it = members.emplace_hint(it, name, Json());
      merge(it->second, value);
    } else if (value.is_object() && it->second.is_object()) {
      old = mergeWithUndo(it->second, value, landings);
    } else {
      old = std::move(it->second);
      it->second = Json();
      merge(it->second, value);
    }
    if (record) landings->add(&value, &it->second);
  }
  return undo;
}

}  // namespace

Json mergePatchInPlaceWithUndo(Json& target, const Json& patch) {
  return mergeWithUndo(target, patch, nullptr);
}

Json mergePatchInPlaceWithUndoTaking(Json& target, Json& patch, MergeLandings* landings) {
  return mergeWithUndo(target, patch, landings);
}

const Json* landedMember(const Json* obj, std::string_view name, const Json* hintNode,
                         const MergeLandings* landings) {
  if (landings != nullptr && hintNode != nullptr) {
    if (const Json* v = landings->find(hintNode)) return v->is_null() ? nullptr : v;
  }
  const Json* v = findMember(obj, name);
  return v == nullptr || v->is_null() ? nullptr : v;
}

}  // namespace PimSnmpd
