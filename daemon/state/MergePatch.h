#pragma once

// JSON merge patch (RFC 7396): a patch object's members replace the target's, null deletes a
// member, objects merge recursively; any patch that is not an object replaces the target.

#include <cstddef>
#include <unordered_map>

#include "daemon/state/Json.h"

namespace PimSnmpd {

// The patched copy of `target`.
Json mergePatch(Json target, const Json& patch);

// The merge patch that turns `from` into `to`: members only in `from` become null, changed
// members their new value (objects recursively), equal members are left out; {} when nothing
// differs. `to` must hold no null values (a patch cannot set one).
Json mergePatchDiff(const Json& from, const Json& to);

// Patches `target` in place. Costs O(size of the patch x log(size of target)): untouched
// members are neither copied nor visited.
void mergePatchInPlace(Json& target, const Json& patch);

// Patches `target` in place and returns what the patch replaced: for an object patch, an object
// with the patch's members, each holding the target's old value (null when it had none) or,
// where both patch and old value are objects, the same projection one level down. Applying the
// result as a merge patch restores `target`, provided the old target held no null values.
Json mergePatchInPlaceWithUndo(Json& target, const Json& patch);

// The same, taking the patch's values instead of copying them: what the patch adds is moved
// into `target` (whole subtrees at once) and left null in `patch`. `patch` keeps every member
// name down to where a value was taken, which is all a hint (a patch restricting a walk to what
// it touches: a member it names but whose value is not an object is walked in full) reads.
class MergeLandings;
Json mergePatchInPlaceWithUndoTaking(Json& target, Json& patch, MergeLandings* landings = nullptr);

// Where a merge put the members of the patch that went into large objects of the target (a
// VRF's routes, say): by the patch's node, the target's node. The walks that follow the patch
// as a hint afterwards (validation, the reference index, the applier) then reach such a member
// without searching a map of 100k members by name once each. Valid while neither the patch nor
// the target loses members; a member not recorded is found by name as before.
class MergeLandings {
 public:
  // Objects with fewer members are searched by name: a few comparisons cost less than a record.
  static constexpr size_t kMinMembers = 64;

  void add(const Json* patchNode, Json* targetNode) { at_.emplace(patchNode, targetNode); }
  Json* find(const Json* patchNode) const {
    if (at_.empty()) return nullptr;
    auto it = at_.find(patchNode);
    return it == at_.end() ? nullptr : it->second;
  }
  size_t size() const { return at_.size(); }

 private:
  std::unordered_map<const Json*, Json*> at_;
};

// `obj[name]` when `obj` is an object holding a non-null `name`, where `hintNode` is the member
// `name` of the patch that `landings` recorded (if any).
const Json* landedMember(const Json* obj, std::string_view name, const Json* hintNode,
                         const MergeLandings* landings);

}  // namespace PimSnmpd
