#pragma once

// PIM-MIB (RFC 2934, 1.3.6.1.3.61) per SNMP context: pimJoinPruneInterval and seven tables,
// read-only, over the context's PimMib store; and the pimNeighborLoss notification.

#include <cstdint>
#include <string>

#include "PimSnmp/MibTable/TableDecl.h"
#include "platform/Lanet/IpAddr.h"

namespace Routing::Pim::Snmp {
class ModuleRegistry;
namespace Mib {
struct Module;
struct Notification;
}  // namespace Mib
}  // namespace Routing::Pim::Snmp

// Registers the module in `context` ("" for the default VRF). The context's store must be at
// "snmp/pim/snmpPimMIB/<context>" and its PIM config at
// "Stadb/routing/pim/config.vrfConfig/%27<context>%27" (the default VRF's for "").
void init_PimMIB(const std::string& context);
// Removes everything init_PimMIB(context) registered.
void unregister_PimMIB(const std::string& context);

PIMSNMP_DECLARE_MIB_TABLE(pimInterfaceTable);
PIMSNMP_DECLARE_MIB_TABLE(pimNeighborTable);
PIMSNMP_DECLARE_MIB_TABLE(pimIpMRouteTable);
PIMSNMP_DECLARE_MIB_TABLE(pimRPSetTable);
PIMSNMP_DECLARE_MIB_TABLE(pimIpMRouteNextHopTable);
PIMSNMP_DECLARE_MIB_TABLE(pimCandidateRPTable);
PIMSNMP_DECLARE_MIB_TABLE(pimComponentTable);

// The module's registration bookkeeping (status output, tests).
const Routing::Pim::Snmp::ModuleRegistry& PimMIBRegistry();

// The module as its MIB file describes it (tools/mibgen).
const Routing::Pim::Snmp::Mib::Module& PimMIBModule();

namespace Snmp {

// Queues the pimNeighborLoss notification for neighbor `address` (IPv4) lost on interface
// `ifIndex`, to be sent in `context` once its configured delay has passed. The agent's
// configuration must register the "pim" group and its "pimNeighborLoss" notification (checked;
// a start-up fault otherwise). Always returns 0.
int pimNeighborLossNotify(int32_t ifIndex, Lanet::IpAddr address, std::string context);

// pimNeighborLoss: its OID (the snmpTrapOID.0 value sent) and varbinds.
const Routing::Pim::Snmp::Mib::Notification& pimNeighborLossNotification();

}  // namespace Snmp
