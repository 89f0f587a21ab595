#pragma once

// JSON merge patch (RFC 7396): a patch object's members replace the target's, null deletes a
// member, objects merge recursively; any patch that is not an object replaces the target.

#include "daemon/state/Json.h"

namespace PimSnmpd {

// The patched copy of `target`.
Json mergePatch(Json target, const Json& patch);

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
Json mergePatchInPlaceWithUndoTaking(Json& target, Json& patch);

}  // namespace PimSnmpd
