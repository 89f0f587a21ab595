#pragma once

// IPMROUTE-STD-MIB (RFC 2932, 1.3.6.1.2.1.83) per SNMP context: ipMRouteEnable,
// ipMRouteEntryCount and three tables, read-only, over the context's PimMib store.

#include <string>

#include "PimSnmp/MibTable/TableDecl.h"

namespace Routing::Pim::Snmp {
class ModuleRegistry;
namespace Mib {
struct Module;
}
}  // namespace Routing::Pim::Snmp

// Registers the module in `context` ("" for the default VRF). Needs the context's store at
// "snmp/pim/snmpPimMIB/<context>" and its multicast config at
// "Stadb/routing/multicast/vrf/config.config/<context>" ("default" for "", quoted as a path
// component by contextPath).
void init_ipMRouteStdMIB(const std::string& context);
// Removes everything init_ipMRouteStdMIB(context) registered.
void unregister_ipMRouteStdMIB(const std::string& context);

PIMSNMP_DECLARE_MIB_TABLE(ipMRouteTable);
PIMSNMP_DECLARE_MIB_TABLE(ipMRouteNextHopTable);
PIMSNMP_DECLARE_MIB_TABLE(ipMRouteInterfaceTable);

// The module's registration bookkeeping (status output, tests).
const Routing::Pim::Snmp::ModuleRegistry& ipMRouteStdMIBRegistry();

// The module as its MIB file describes it (tools/mibgen).
const Routing::Pim::Snmp::Mib::Module& ipMRouteStdMIBModule();
