#include "tools/testagent/AgentSetup.h"

#include "PimSnmp/PimMIB/PimMIB.h"
#include "PimSnmp/ipMRouteStdMIB/ipMRouteStdMIB.h"
#include "PimSnmp/ipMcastMIB/ipMcastMIB.h"
#include "platform/Ent/Dir.h"
#include "platform/Routing/Multicast/Fib/VrfConfig.h"
#include "platform/Routing/Pim/ConfigColl.h"
#include "platform/Snmp/Config.h"
#include "platform/SnmpUtil/SnmpUtil.h"

namespace TestAgent {

namespace {

constexpr const char* kPimConfigDir = "Stadb/routing/pim";
constexpr const char* kMfibConfigDir = "Stadb/routing/multicast/vrf";
constexpr const char* kStoreDir = "snmp/pim/snmpPimMIB";
constexpr const char* kNotificationGroup = "pim";
constexpr const char* kNeighborLoss = "pimNeighborLoss";

}  // namespace

const char* moduleName(Module m) {
  switch (m) {
    case Module::pimMib:
      return "PimMIB";
    case Module::ipMRouteStdMib:
      return "ipMRouteStdMIB";
    case Module::ipMcastMib:
      return "ipMcastMIB";
  }
  return "";
}

bool moduleFromName(const std::string& name, Module& out) {
  for (Module m : {Module::pimMib, Module::ipMRouteStdMib, Module::ipMcastMib}) {
    if (name == moduleName(m)) {
      out = m;
      return true;
    }
  }
  return false;
}

std::string contextOf(const std::string& vrf) {
  return vrf == "default" ? std::string() : vrf;
}

AgentSetup::AgentSetup(AgentSetupOptions options) : options_(std::move(options)) {}

AgentSetup::~AgentSetup() {
  // Registrations hold net-snmp handlers: withdraw them while the library is still up.
  while (!registered_.empty()) {
    const auto [m, vrf] = *registered_.begin();
    unregisterModule(m, vrf);
  }
  if (host_) host_->shutdown();
}

bool AgentSetup::start() {
  auto root = Ent::make<Ent::Dir>("root");
  root->mkdirs(kPimConfigDir)->entityIs(Ent::make<Routing::Pim::ConfigColl>("config"));
  root->mkdirs(kMfibConfigDir)->entityIs(Ent::make<Routing::Multicast::Fib::VrfConfig>("config"));
  root->mkdirs(kStoreDir);
  SnmpUtil::entityRootIs(root);

  auto config = Ent::make<Snmp::Config>();
  auto group = config->notificationConfigIs(kNotificationGroup);
  group->notificationIs(kNeighborLoss, options_.neighborLossEnabled, options_.neighborLossReason);
  group->delayIs(kNeighborLoss, options_.neighborLossDelay);
  SnmpUtil::snmpConfigIs(config);

  host_ = std::make_unique<Snmp::AgentHost>(options_.host);
  if (!host_->init()) {
    error_ = host_->error();
    return false;
  }
  return true;
}

VrfRecords& AgentSetup::vrfIs(const std::string& vrf) {
  if (auto it = vrfs_.find(vrf); it != vrfs_.end()) return it->second;
  Ent::Ptr<Ent::Dir> root = SnmpUtil::entityRoot();
  VrfRecords r{vrf, contextOf(vrf), Routing::Pim::Snmp::PimMibIs(vrf), nullptr, nullptr};
  root->mkdirs(kStoreDir)->entityIs(r.store);
  auto pim = root->lookupAs<Routing::Pim::ConfigColl>(std::string(kPimConfigDir) + "/config");
  r.pimConfig = pim->vrfConfigIs(L3::VrfName(vrf));
  auto mfib =
      root->lookupAs<Routing::Multicast::Fib::VrfConfig>(std::string(kMfibConfigDir) + "/config");
  r.mfibConfig = mfib->configIs(vrf);
  r.mfibConfig->routingIs(true);
  r.store->mfibConfigIs(Lanet::AddressFamily::ipv4, r.mfibConfig);
  return vrfs_.emplace(vrf, std::move(r)).first->second;
}

VrfRecords* AgentSetup::vrf(const std::string& vrf) {
  auto it = vrfs_.find(vrf);
  return it == vrfs_.end() ? nullptr : &it->second;
}

bool AgentSetup::registerModule(Module m, const std::string& vrf) {
  if (!vrfs_.count(vrf) || !registered_.insert({m, vrf}).second) return false;
  const std::string context = contextOf(vrf);
  switch (m) {
    case Module::pimMib:
      init_PimMIB(context);
      break;
    case Module::ipMRouteStdMib:
      init_ipMRouteStdMIB(context);
      break;
    case Module::ipMcastMib:
      init_ipMcastMIB(context);
      break;
  }
  return true;
}

bool AgentSetup::unregisterModule(Module m, const std::string& vrf) {
  if (registered_.erase({m, vrf}) == 0) return false;
  const std::string context = contextOf(vrf);
  switch (m) {
    case Module::pimMib:
      unregister_PimMIB(context);
      break;
    case Module::ipMRouteStdMib:
      unregister_ipMRouteStdMIB(context);
      break;
    case Module::ipMcastMib:
      unregister_ipMcastMIB(context);
      break;
  }
  return true;
}

void AgentSetup::registerAll(const std::string& vrf) {
  for (Module m : {Module::pimMib, Module::ipMRouteStdMib, Module::ipMcastMib}) {
    registerModule(m, vrf);
  }
}

void AgentSetup::neighborLossEnabledIs(bool enabled, const std::string& reason) {
  SnmpUtil::getSnmpConfig()
      ->notificationConfigIs(kNotificationGroup)
      ->notificationIs(kNeighborLoss, enabled, reason);
}

void AgentSetup::neighborLossDelayIs(double seconds) {
  SnmpUtil::getSnmpConfig()
      ->notificationConfigIs(kNotificationGroup)
      ->delayIs(kNeighborLoss, seconds);
}

}  // namespace TestAgent
