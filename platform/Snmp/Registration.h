#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

namespace Snmp {

// netsnmp_unregister_handler for any registration, including one with a context name.
// net-snmp 5.9.3 frees the registration (its context name and root OID with it) part way
// through unregister_mib_context and then reads the context name again; this passes copies.
// Returns MIB_UNREGISTERED_OK or MIB_NO_SUCH_REGISTRATION; null is a no-op.
int unregisterHandler(netsnmp_handler_registration* reginfo);

}  // namespace Snmp
