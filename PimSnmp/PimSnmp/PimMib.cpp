#include "PimSnmp/PimSnmp/PimMib.h"

#include <utility>

namespace Routing::Pim::Snmp {

PimMib::PimMib(std::string name)
    : Ent::Entity(std::move(name)),
      pimInterfaceTable_(this, attrPimInterfaceTable, "pimInterfaceTable"),
      pimNeighborTable_(this, attrPimNeighborTable, "pimNeighborTable"),
      pimIpMrouteTable_(this, attrPimIpMrouteTable, "pimIpMrouteTable"),
      pimIpMrouteNextHopTable_(this, attrPimIpMrouteNextHopTable, "pimIpMrouteNextHopTable"),
      pimRPSetTable_(this, attrPimRPSetTable, "pimRPSetTable"),
      pimCandidateRPTable_(this, attrPimCandidateRPTable, "pimCandidateRPTable"),
      pimComponentTable_(this, attrPimComponentTable, "pimComponentTable"),
      ipMRouteTable_(this, attrIpMRouteTable, "ipMRouteTable"),
      ipMRouteNextHopTable_(this, attrIpMRouteNextHopTable, "ipMRouteNextHopTable"),
      ipMRouteInterfaceTable_(this, attrIpMRouteInterfaceTable, "ipMRouteInterfaceTable"),
      ipMcastRouteTable_(this, attrIpMcastRouteTable, "ipMcastRouteTable"),
      ipMcastRouteNextHopTable_(this, attrIpMcastRouteNextHopTable, "ipMcastRouteNextHopTable"),
      ipMcastInterfaceTable_(this, attrIpMcastInterfaceTable, "ipMcastInterfaceTable"),
      mfibConfig_(this, attrMfibConfig) {}

bool PimMib::ipMcastEnabled() const {
  for (const auto& [af, config] : mfibConfig_) {
    if (config && config->routing()) return true;
  }
  return false;
}

Ent::Ptr<PimMib> pimMibFactory(const std::string& name) {
  Ent::Ptr<PimMib> mib = Ent::make<PimMib>(name);
  mib->hasNotificationActiveIs(true);
  return mib;
}

Ent::Ptr<PimMib> PimMibIs(const std::string& name) {
  return pimMibFactory(name);
}

}  // namespace Routing::Pim::Snmp
