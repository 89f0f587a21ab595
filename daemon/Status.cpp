#include "daemon/Status.h"

#include <string>

#include "PimSnmp/PimSnmp/PimMib.h"
#include "platform/Snmp/Config.h"
#include "platform/Snmp/MibContext.h"
#include "platform/Snmp/TrapManager.h"

namespace PimSnmpd::Status {

namespace {

using Routing::Pim::Snmp::PimMib;

constexpr const char* kModules[] = {"PimMIB", "ipMRouteStdMIB", "ipMcastMIB"};

Json tableCounts(std::string_view module, const PimMib& mib) {
  Json t = Json::object();
  if (module == "PimMIB") {
    t["pimInterfaceTable"] = mib.pimInterfaceTable().size();
    t["pimNeighborTable"] = mib.pimNeighborTable().size();
    t["pimIpMRouteTable"] = mib.pimIpMrouteTable().size();
    t["pimIpMRouteNextHopTable"] = mib.pimIpMrouteNextHopTable().size();
    t["pimRPSetTable"] = mib.pimRPSetTable().size();
    t["pimCandidateRPTable"] = mib.pimCandidateRPTable().size();
    t["pimComponentTable"] = mib.pimComponentTable().size();
  } else if (module == "ipMRouteStdMIB") {
    t["ipMRouteTable"] = mib.ipMRouteTable().size();
    t["ipMRouteNextHopTable"] = mib.ipMRouteNextHopTable().size();
    t["ipMRouteInterfaceTable"] = mib.ipMRouteInterfaceTable().size();
  } else if (module == "ipMcastMIB") {
    t["ipMcastInterfaceTable"] = mib.ipMcastInterfaceTable().size();
    t["ipMcastRouteTable"] = mib.ipMcastRouteTable().size();
    t["ipMcastRouteNextHopTable"] = mib.ipMcastRouteNextHopTable().size();
  }
  return t;
}

}  // namespace

Json modules(const Snmp::MibContexts& contexts) {
  Json out = Json::object();
  for (const char* m : kModules) out[m] = Json::array();
  for (const std::string& context : contexts.contexts()) {
    for (const std::string& m : contexts.modules(context)) out[m].push_back(context);
  }
  return out;
}

Json contexts(const Snmp::MibContexts& contexts, const Ent::Dir* pimMibRoot) {
  Json out = Json::object();
  for (const std::string& context : contexts.contexts()) {
    // The default VRF is the one served in the empty context.
    const std::string vrf = context.empty() ? "default" : context;
    Json entry = {{"vrf", vrf}, {"modules", Json::array()}, {"tables", Json::object()}};
    const PimMib* mib =
        pimMibRoot ? dynamic_cast<const PimMib*>(pimMibRoot->entity(vrf).get()) : nullptr;
    for (const std::string& m : contexts.modules(context)) {
      entry["modules"].push_back(m);
      if (mib) entry["tables"][m] = tableCounts(m, *mib);
    }
    out[context] = std::move(entry);
  }
  return out;
}

Json traps(const Snmp::TrapManager& traps) {
  Json pending = Json::array();
  for (const auto& p : traps.pending()) pending.push_back({{"due", p.due}, {"context", p.context}});
  return {{"queued", traps.queueLength()}, {"sent", traps.sentCount()}, {"pending", pending}};
}

Json notifications(const Snmp::Config& config) {
  Json groups = Json::object();
  for (const auto& group : config.notificationConfigs()) {
    Json g = Json::object();
    for (const auto& [name, setting] : group->notifications()) {
      const Snmp::NotificationStatus status = config.notificationStatus(group->name(), name);
      g[name] = {
          {"enabled", status.send}, {"reason", status.reason}, {"delay", group->delay(name)}};
    }
    groups[group->name()] = std::move(g);
  }
  return {{"enabled", config.notificationsEnabled()}, {"groups", groups}};
}

}  // namespace PimSnmpd::Status
