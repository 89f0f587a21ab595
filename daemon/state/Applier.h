#pragma once

// Turns a new state document into exactly the platform record changes it implies.
//
// The caller keeps one Document, the one whose state PlatformState holds (start with the empty
// Document() and an empty PlatformState), and passes it to every call: on success it becomes
// the new document, with every omitted time resolved (see below); on failure neither it nor any
// platform record changes.
//
// Times: an omitted time ("created", "lastRefresh", "expiry") takes the value the same item had
// in the previous document, or, for an item that is new, the clock's time of this application
// (for "expiry": that time plus the RP's holdTime). The resolved value is written into the
// document, so it persists across later patches and re-reads.
//
// Order of changes: interfaces appear first and disappear last; per address family of a VRF,
// inputs that go away are removed first (the agent withdraws the VRF before its tables churn),
// then the route and FIB tables are updated (routes that go away before the FIB changes, new
// and changed routes after them), then the remaining inputs are created or updated (a VRF's
// tables are filled before the agent sees it complete). New records are built in full
// before they are inserted, so the agent sees one insertion, not a series of updates.
//
// Exceptions: none for valid input. Should a platform record, or an agent reactor running inside
// a record's notification, throw while changes are made, the exception propagates with the
// document already advanced and the platform records partly updated; only a restart (re-applying
// the document to fresh records) is then certain to bring the two back in line.

#include <string>
#include <string_view>

#include "daemon/state/PlatformState.h"
#include "daemon/state/StateDocument.h"

namespace PimSnmpd {

struct ApplyResult {
  bool ok = false;
  ValidationErrors errors;
};

// Makes `next` the applied document (a file re-read): diffs it in full against `current`.
void apply(Document& current, Document next, PlatformState& state);
// Parses, validates and applies a whole document text.
ApplyResult applyText(Document& current, std::string_view text, PlatformState& state);
// The same, taking the text: it is freed once parsed, before the records are built.
ApplyResult applyTextTaking(Document& current, std::string text, PlatformState& state);

// Applies an RFC 7396 merge patch. The whole patched document must be valid; validation and
// the platform changes cost O(size of the patch x log n): only the subtrees the patch touches
// are visited (except when an interface's FIB OIF index changes, which re-checks that FIB's
// routes).
ApplyResult applyPatch(Document& current, const Json& patch, PlatformState& state);
ApplyResult applyPatchText(Document& current, std::string_view patchText, PlatformState& state);

}  // namespace PimSnmpd
