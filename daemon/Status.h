#pragma once

// The pieces of `pimsnmpctl status`, each read from where the agent keeps it.

#include "daemon/state/Json.h"

#include "platform/Ent/Dir.h"

namespace Snmp {
class Config;
class MibContexts;
class TrapManager;
}  // namespace Snmp

namespace PimSnmpd::Status {

// {"PimMIB": ["", "red"], "ipMRouteStdMIB": [...], "ipMcastMIB": [...]}: the contexts each
// module serves.
Json modules(const Snmp::MibContexts& contexts);

// Per served context: {"<context>": {"vrf": "red", "modules": [...], "tables": {"PimMIB":
// {"pimInterfaceTable": 2, ...}, ...}}}; row counts from the VRF's store in `pimMibRoot`, for
// the modules that serve the context.
Json contexts(const Snmp::MibContexts& contexts, const Ent::Dir* pimMibRoot);

// {"queued": n, "sent": n, "pending": [{"due": t, "context": c}, ...]}.
Json traps(const Snmp::TrapManager& traps);

// {"enabled": bool, "groups": {"pim": {"pimNeighborLoss": {"enabled", "reason", "delay"}}}}.
Json notifications(const Snmp::Config& config);

}  // namespace PimSnmpd::Status
