#pragma once

// Checks a state document against its description (daemon/state/Description.h) and the rules
// across members.

#include "daemon/state/Json.h"
#include "daemon/state/MergePatch.h"
#include "daemon/state/StateDocument.h"

namespace PimSnmpd {

// Checks `root`, or with a hint (a merge patch applied to it) only the subtrees the patch
// touched; `landings` are the merge's. Appends at most kMaxReportedErrors errors, then one
// counting the rest.
void validateTouched(const Json& root, const Json* hint, const MergeLandings* landings,
                     ValidationErrors& errors);

}  // namespace PimSnmpd
