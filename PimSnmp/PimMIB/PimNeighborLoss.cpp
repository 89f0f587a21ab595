#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <algorithm>
#include <array>
#include <vector>

#include "PimSnmp/MibTable/MibModule.h"
#include "PimSnmp/MibTable/ModuleRegistry.h"
#include "PimSnmp/PimMIB/PimMIB.h"
#include "platform/Clock/Clock.h"
#include "platform/Snmp/AppendToOid.h"
#include "platform/Snmp/Converters.h"
#include "platform/Snmp/TrapManager.h"
#include "platform/SnmpUtil/SnmpUtil.h"
#include "platform/Trace/Trace.h"

DEFAULT_TRACE_HANDLE("PimMIB")

namespace Snmp {

namespace {

constexpr oid kSnmpTrapOid[] = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
constexpr oid kPimNeighborIfIndex[] = {1, 3, 6, 1, 3, 61, 1, 1, 3, 1, 2};
constexpr size_t kOidCapacity = 1024;

}  // namespace

const Routing::Pim::Snmp::Mib::Notification& pimNeighborLossNotification() {
  static const Routing::Pim::Snmp::Mib::Notification n{
      "pimNeighborLoss",
      {1, 3, 6, 1, 3, 61, 1, 0, 1},
      {"pimNeighborIfIndex"},
      "Sent when a PIM neighbor of the VRF is lost: the varbind's index is the neighbor's address, "
      "its value the interface it was heard on."};
  return n;
}

int pimNeighborLossNotify(int32_t ifIndex, Lanet::IpAddr address, std::string context) {
  const Ent::Ptr<Config> snmpConfig = SnmpUtil::getSnmpConfig();
  // Without these the host agent was configured wrongly at start-up.
  // clang-format off
  PIMSNMP_ASSERT(snmpConfig->notificationConfig( "pim" ) && "You need to register pim traps from your DefaultConfigPlugin");
  PIMSNMP_ASSERT(snmpConfig->notificationConfig( "pim" )->notification( "pimNeighborLoss" ) && "You need to register pimNeighborLoss traps from your DefaultConfigPlugin");
  // clang-format on

  const NotificationStatus status = snmpConfig->notificationStatus("pim", "pimNeighborLoss");
  if (!status.send) {
    TRACE4("pimNeighborLoss notification not sent. notificationStatus returned {}", status.reason);
    return 0;
  }
  const double delay = snmpConfig->notificationConfig("pim")->delay("pimNeighborLoss");
  const double dueTime = delay > 0 ? Plat::now() + delay : 0;

  netsnmp_variable_list* vars = nullptr;
  const std::vector<oid>& trapOid = pimNeighborLossNotification().at;
  snmp_varlist_add_variable(&vars, kSnmpTrapOid, std::size(kSnmpTrapOid), ASN_OBJECT_ID,
                            trapOid.data(), trapOid.size() * sizeof(oid));

  std::array<oid, kOidCapacity> name{};
  std::copy(std::begin(kPimNeighborIfIndex), std::end(kPimNeighborIfIndex), name.begin());
  const int nameLength =
      AppendToOid(name.data(), std::size(kPimNeighborIfIndex), name.size(), address);
  uint8_t value[1024];
  const int valueLength = S32ToAsnInteger(ifIndex, value, sizeof value);
  if (nameLength > 0 && valueLength >= 0) {
    snmp_varlist_add_variable(&vars, name.data(), static_cast<size_t>(nameLength), ASN_INTEGER,
                              value, static_cast<size_t>(valueLength));
  } else {
    // Unreachable for an IPv4 address; sent without the varbind rather than not at all.
    TRACE0("pimNeighborLossNotify - cannot encode pimNeighborIfIndex for {}", address.toString());
  }

  TRACE4("Adding pimNeighborLoss notification to trap queue");
  TrapManager::instance().enqueueTrap(vars, std::move(context), dueTime);
  return 0;
}

}  // namespace Snmp
