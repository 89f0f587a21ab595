#pragma once

// IP-MCAST-MIB (RFC 5132, 1.3.6.1.2.1.168) per SNMP context: ipMcastEnabled,
// ipMcastRouteEntryCount, ipMcastDeviceConfigStorageType and three tables, read-only, over
// the context's PimMib store.

#include <string>

#include "PimSnmp/MibTable/TableDecl.h"

namespace Routing::Pim::Snmp {
class ModuleRegistry;
namespace Mib {
struct Module;
}
}  // namespace Routing::Pim::Snmp

// Registers the module in `context` ("" for the default VRF). Needs the context's store at
// "snmp/pim/snmpPimMIB/<context>".
void init_ipMcastMIB(const std::string& context);
// Removes everything init_ipMcastMIB(context) registered.
void unregister_ipMcastMIB(const std::string& context);

PIMSNMP_DECLARE_MIB_TABLE(ipMcastInterfaceTable);
PIMSNMP_DECLARE_MIB_TABLE(ipMcastRouteTable);
PIMSNMP_DECLARE_MIB_TABLE(ipMcastRouteNextHopTable);

// The module's registration bookkeeping (status output, tests).
const Routing::Pim::Snmp::ModuleRegistry& ipMcastMIBRegistry();

// The module as its MIB file describes it (tools/mibgen).
const Routing::Pim::Snmp::Mib::Module& ipMcastMIBModule();
