#include "daemon/AgentTree.h"

#include "PimSnmp/PimSnmpHelpers/PimSnmpHelpers.h"

namespace PimSnmpd {

namespace {
constexpr Lanet::AddressFamily kFamilies[] = {Lanet::AddressFamily::ipv4,
                                              Lanet::AddressFamily::ipv6};
}

AgentTree::AgentTree(PlatformState& platform, Ent::Ptr<const Snmp::Status> snmpStatus,
                     Ent::Ptr<Plat::Clock> clock)
    : platform_(platform), snmpStatus_(std::move(snmpStatus)), clock_(std::move(clock)) {}

AgentTree::~AgentTree() {
  tearDown();
}

Routing::Pim::SnmpAgent::Inputs AgentTree::inputs(
    Lanet::AddressFamily af,
    Ent::Ptr<Routing::Pim::Snmp::RegistrationHelper> registrationHelper) const {
  return {root_->pimMibRoot(),
          std::move(registrationHelper),
          platform_.entityManager(),
          platform_.ifMib(),
          snmpStatus_,
          platform_.allIntfStatusDir(),
          platform_.pimGlobalStatus(af),
          platform_.pimConfigColl(af),
          platform_.bsrStatusColl(af),
          platform_.bsrConfigColl(af),
          platform_.crpStatusColl(af),
          platform_.staticRpStatusColl(af),
          platform_.mfibVrfConfig(af)};
}

void AgentTree::bringUp() {
  if (root_) return;
  // The route tables' counters are read through the per-family helpers.
  auto helpers = Routing::Pim::Snmp::pimSnmpHelpers();
  for (Lanet::AddressFamily af : kFamilies) {
    helpers->mrouteCounterHelperIs(af, platform_.fibCounterHelper(af));
  }

  root_ = Routing::Pim::SnmpAgent::rootFactory("pimsnmpd");
  auto registrationHelper = root_->mibRegistrationHelperIs();
  for (Lanet::AddressFamily af : kFamilies) root_->afRootIs(af, inputs(af, registrationHelper));
  for (Lanet::AddressFamily af : kFamilies) {
    auto afRoot = root_->afRoot(af);
    afRoot->pimAllStatusCollIs();
    afRoot->pimStatusCollIs();
    afRoot->pimGlobalStatusReaderSmIs(clock_, platform_.entityManager());
    afRoot->pimGlobalStatusModeFilterSmIs();
    afRoot->rootSmIs();
  }
}

void AgentTree::tearDown() {
  if (!root_) return;
  // Reverse order: IPv6 first, each family from its VRF tracker down to its collections.
  for (auto it = std::rbegin(kFamilies); it != std::rend(kFamilies); ++it) {
    if (auto afRoot = root_->afRoot(*it)) {
      afRoot->rootSmDel();
      afRoot->pimGlobalStatusModeFilterSmDel();
      afRoot->pimGlobalStatusReaderSmDel();
      afRoot->pimStatusCollDel();
      afRoot->pimAllStatusCollDel();
    }
    root_->afRootDel(*it);
  }
  root_->mibRegistrationHelperDel();
  root_ = nullptr;
  auto helpers = Routing::Pim::Snmp::pimSnmpHelpers();
  for (Lanet::AddressFamily af : kFamilies) helpers->mrouteCounterHelperDel(af);
}

}  // namespace PimSnmpd
