#include "PimSnmp/PimSnmpAgent/RootSm.h"

#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "platform/Ent/Error.h"
#include "platform/Trace/Trace.h"

DEFAULT_TRACE_HANDLE("PimSnmpAgent")

namespace Routing::Pim::SnmpAgent {

namespace {
constexpr std::string_view kFibRole = "sparsemode";
}  // namespace

void RootSm::RxSnmpAgentStatus::onChange(const Ent::Change& change) {
  if (owner_->isDeleting() || change.attr != ::Snmp::Status::attrInitialized) return;
  owner_->handleInitialized(notifier() ? notifier()->initialized() : false);
}

void RootSm::RxMfibVrfConfig::onChange(const Ent::Change& change) {
  if (owner_->isDeleting() || change.attr != Multicast::Fib::VrfConfig::attrConfig || !change.key)
    return;
  std::optional<L3::VrfName> vrf;
  try {
    vrf.emplace(change.keyAs<std::string>());
  } catch (const std::range_error& e) {
    TRACE8("af {}, mfibVrfConfig name rejected: {}", owner_->af(), e.what());
    return;
  }
  owner_->handleVrf(*vrf);
}

RootSm::RootSm(Lanet::AddressFamily af,
               Ent::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir,
               Ent::Ptr<Ent::Dir> pimMibRoot,
               Ent::Ptr<Snmp::RegistrationHelper> mibRegistrationHelper,
               Ent::Ptr<const IntfSnmp::IfMib> ifMib, Ent::Ptr<const Bsr::StatusColl> bsrStatusColl,
               Ent::Ptr<const RpCandidateStatusColl> crpStatusColl,
               Ent::Ptr<const RpCandidateStatusColl> staticRpStatusColl,
               Ent::Ptr<const Bsr::ConfigColl> bsrConfigColl,
               Ent::Ptr<const StatusColl> pimStatusColl, Ent::Ptr<const ConfigColl> pimConfigColl,
               Ent::Ptr<const Multicast::Fib::VrfConfig> mfibVrfConfig,
               Ent::Ptr<const ::Snmp::Status> snmpAgentStatus,
               Ent::Ptr<Stadb::EntityManager> entityManager)
    : Ent::Entity(std::string(Lanet::toString(af))),
      af_(af),
      allIntfStatusDir_(std::move(allIntfStatusDir)),
      pimMibRoot_(std::move(pimMibRoot)),
      mibRegistrationHelper_(std::move(mibRegistrationHelper)),
      ifMib_(std::move(ifMib)),
      rxBsrStatusColl_(this, std::move(bsrStatusColl)),
      rxCrpStatusColl_(this, std::move(crpStatusColl)),
      rxStaticRpStatusColl_(this, std::move(staticRpStatusColl)),
      rxBsrConfigColl_(this, std::move(bsrConfigColl)),
      rxPimStatusColl_(this, std::move(pimStatusColl)),
      rxPimConfigColl_(this, std::move(pimConfigColl)),
      rxMfibVrfConfig_(this, std::move(mfibVrfConfig)),
      rxSnmpAgentStatus_(this, std::move(snmpAgentStatus)),
      entityManager_(std::move(entityManager)),
      containerSm_(this, attrContainerSm),
      containerSmV4_(this, attrContainerSmV4),
      containerSmBase_(this, attrContainerSmBase) {
  if (!mibRegistrationHelper_) throw Ent::NullArgument("RootSm: null mibRegistrationHelper");
}

RootSm::~RootSm() {
  doTeardown();
}

void RootSm::snmpInitializedIs(bool on) {
  if (on == snmpInitialized_) return;
  snmpInitialized_ = on;
  notify(attrSnmpInitialized);
}

void RootSm::handleInitialized(bool initialized) {
  TRACE8("af {}, snmpInitialized: {}", af_, initialized);
  if (!initialized) return;
  if (const StatusColl* statusColl = pimStatusColl()) {
    std::vector<L3::VrfName> vrfs;
    vrfs.reserve(statusColl->vrfStatus().size());
    for (const auto& status : statusColl->vrfStatus()) vrfs.push_back(status->key());
    for (const auto& vrf : vrfs) handleVrf(vrf);
  }
  snmpInitializedIs(true);
}

void RootSm::handleVrf(const L3::VrfName& vrf) {
  TRACE8("af {}, vrf {}", af_, vrf);
  const ::Snmp::Status* status = snmpAgentStatus();
  if (!status || !status->initialized()) {
    TRACE8("Snmp agent not initialized, return");
    return;
  }
  const bool ok = checkMounts(vrf);
  TRACE8("checkMounts = {}", ok);
  if (!containerSm_.contains(vrf)) {
    if (ok) handleVrfCreation(vrf);
  } else if (!ok) {
    handleVrfDeletion(vrf);
  }
}

bool RootSm::checkMounts(const L3::VrfName& vrf) const {
  const auto missing = [&](std::string_view input) {
    TRACE8("af {}, vrf {} missing in {}", af_, vrf, input);
    return false;
  };
  if (!pimConfigColl() || !pimConfigColl()->vrfConfig(vrf)) return missing("pimConfigColl");
  if (!pimStatusColl() || !pimStatusColl()->vrfStatus(vrf)) return missing("pimStatusColl");
  if (!bsrStatusColl() || !bsrStatusColl()->vrfStatus(vrf)) return missing("bsrStatusColl");
  if (!crpStatusColl() || !crpStatusColl()->vrfStatus(vrf)) return missing("crpStatusColl");
  if (!staticRpStatusColl() || !staticRpStatusColl()->vrfStatus(vrf)) {
    return missing("staticRpStatusColl");
  }
  if (!bsrConfigColl() || !bsrConfigColl()->vrfConfig(vrf)) return missing("bsrConfigColl");
  if (!mfibVrfConfig() || !mfibVrfConfig()->config(vrf.str())) return missing("mfibVrfConfig");
  return true;
}

void RootSm::handleVrfCreation(const L3::VrfName& vrf) {
  TRACE8("af {}, vrf {}", af_, vrf);
  const bool v4 = af_ == Lanet::AddressFamily::ipv4;
  if (!v4 && af_ != Lanet::AddressFamily::ipv6) {
    // No container could serve the VRF: register nothing for it (a registration under another
    // family's flag would be undone by, or undo, that family's).
    TRACE8("unknown af");
    return;
  }
  Ent::Ptr<Snmp::PimMib> pimMib = mibRegistrationHelper_->registerMibs(vrf, af_);
  pimMib->mfibConfigIs(af_, mfibVrfConfig()->config(vrf.str()));

  auto group = std::make_unique<Stadb::MountGroup>();
  Ent::Ptr<const FibStatus> mfibShtabStatus;
  Ent::Ptr<const RouteShtabStatus> routeShtabStatus;
  try {
    if (!entityManager_) throw Stadb::MountError("no entity manager");
    const std::string fibPath = FibStatus::mountPath(af_, vrf, kFibRole);
    mfibShtabStatus = entityManager_->mountAs<FibStatus>(fibPath, "Shtab::Multicast::Fib::Status",
                                                         Stadb::MountMode::reader);
    group->mounted(entityManager_, fibPath, Stadb::MountMode::reader);
    routeShtabStatus = RouteShtabStatus::mountInDependencyOrder(
        entityManager_, RouteShtabStatus::mountPath(af_, vrf), Stadb::MountMode::reader,
        group.get());
  } catch (const Stadb::MountError& e) {
    TRACE8("af {}, vrf {} mount failed: {}", af_, vrf, e.what());
    // The VRF cannot be served after all: undo what was done for it.
    group.reset();
    pimMib->mfibConfigDel(af_);
    mibRegistrationHelper_->deregisterMibs(vrf, af_);
    return;
  }
  mounts_[vrf] = std::move(group);

  Ent::Ptr<ContainerSmBase> container;
  if (v4) {
    TRACE8("instantiating ContainerSmV4");
    container =
        containerSmV4Is(vrf, af_, pimMib, ifMib_, pimStatusColl()->vrfStatus(vrf), mfibShtabStatus,
                        routeShtabStatus, allIntfStatusDir_, bsrStatusColl()->vrfStatus(vrf),
                        crpStatusColl()->vrfStatus(vrf), staticRpStatusColl()->vrfStatus(vrf),
                        bsrConfigColl()->vrfConfig(vrf));
  } else {
    TRACE8("instantiating ContainerSmBase");
    container = containerSmBaseIs(vrf, af_, pimMib, ifMib_, pimStatusColl()->vrfStatus(vrf),
                                  mfibShtabStatus, routeShtabStatus);
  }
  containerSmIs(container);
}

void RootSm::handleVrfDeletion(const L3::VrfName& vrf) {
  TRACE8("af {}, vrf {}", af_, vrf);
  containerSmDel(vrf);
  if (af_ == Lanet::AddressFamily::ipv4) {
    containerSmV4Del(vrf);
  } else {
    containerSmBaseDel(vrf);
  }
  mountsDel(vrf);
  Ent::Ptr<Snmp::PimMib> pimMib = pimMibRoot_
                                      ? Ent::ptrCast<Snmp::PimMib>(pimMibRoot_->entity(vrf.str()))
                                      : mibRegistrationHelper_->pimMib(vrf);
  if (pimMib) pimMib->mfibConfigDel(af_);
  mibRegistrationHelper_->deregisterMibs(vrf, af_);
}

void RootSm::mountsDel(const L3::VrfName& vrf) {
  auto it = mounts_.find(vrf);
  if (it == mounts_.end()) return;
  std::unique_ptr<Stadb::MountGroup> group = std::move(it->second);
  mounts_.erase(it);
  group->unmountAll();
}

void RootSm::containerSmIs(Ent::Ptr<ContainerSmBase> container) {
  if (!container) throw Ent::NullArgument("RootSm::containerSmIs: null container");
  const L3::VrfName vrf = container->vrfName();
  containerSm_.set(vrf, std::move(container));
}

void RootSm::containerSmDel(const L3::VrfName& vrf) {
  containerSm_.erase(vrf);
}

void RootSm::containerSmDelAll() {
  containerSm_.clear();
}

Ent::Ptr<ContainerSmV4> RootSm::containerSmV4Is(
    const L3::VrfName& vrf, Lanet::AddressFamily af, Ent::Ptr<Snmp::PimMib> pimMib,
    Ent::Ptr<const IntfSnmp::IfMib> ifMib, Ent::Ptr<const Pim::Status> pimStatus,
    Ent::Ptr<const FibStatus> mfibShtabStatus, Ent::Ptr<const RouteShtabStatus> routeShtabStatus,
    Ent::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir,
    Ent::Ptr<const Bsr::Status> bsrStatus, Ent::Ptr<const RpCandidateStatus> crpStatus,
    Ent::Ptr<const RpCandidateStatus> staticRpStatus, Ent::Ptr<const Bsr::Config> bsrConfig) {
  auto [c, inserted] = containerSmV4_.findOrInsert(vrf, [&] {
    auto container = Ent::make<ContainerSmV4>(
        vrf, af, std::move(pimMib), std::move(ifMib), std::move(pimStatus),
        std::move(mfibShtabStatus), std::move(routeShtabStatus), std::move(allIntfStatusDir),
        std::move(bsrStatus), std::move(crpStatus), std::move(staticRpStatus),
        std::move(bsrConfig));
    container->hasNotificationActiveIs(true);
    return container;
  });
  return c;
}

void RootSm::containerSmV4Del(const L3::VrfName& vrf) {
  if (Ent::Ptr<ContainerSmV4> c = containerSmV4_.erase(vrf)) c->doTeardown();
}

void RootSm::containerSmV4DelAll() {
  while (!containerSmV4_.empty()) containerSmV4Del(L3::VrfName(containerSmV4_.begin()->first));
}

Ent::Ptr<ContainerSmBase> RootSm::containerSmBaseIs(
    const L3::VrfName& vrf, Lanet::AddressFamily af, Ent::Ptr<Snmp::PimMib> pimMib,
    Ent::Ptr<const IntfSnmp::IfMib> ifMib, Ent::Ptr<const Pim::Status> pimStatus,
    Ent::Ptr<const FibStatus> mfibShtabStatus, Ent::Ptr<const RouteShtabStatus> routeShtabStatus) {
  auto [c, inserted] = containerSmBase_.findOrInsert(vrf, [&] {
    auto container = Ent::make<ContainerSmBase>(vrf, af, std::move(pimMib), std::move(ifMib),
                                                std::move(pimStatus), std::move(mfibShtabStatus),
                                                std::move(routeShtabStatus));
    container->hasNotificationActiveIs(true);
    return container;
  });
  return c;
}

void RootSm::containerSmBaseDel(const L3::VrfName& vrf) {
  if (Ent::Ptr<ContainerSmBase> c = containerSmBase_.erase(vrf)) c->doTeardown();
}

void RootSm::containerSmBaseDelAll() {
  while (!containerSmBase_.empty()) {
    containerSmBaseDel(L3::VrfName(containerSmBase_.begin()->first));
  }
}

void RootSm::doTeardown() {
  if (tornDown_) return;
  tornDown_ = true;
  isDeletingIs(true);
  std::vector<L3::VrfName> vrfs;
  vrfs.reserve(containerSm_.size());
  for (const auto& [vrf, c] : containerSm_) vrfs.push_back(vrf);
  for (const auto& vrf : vrfs) handleVrfDeletion(vrf);
  containerSmDelAll();
  containerSmV4DelAll();
  containerSmBaseDelAll();
  while (!mounts_.empty()) mountsDel(L3::VrfName(mounts_.begin()->first));
  rxBsrStatusColl_.notifierIs(nullptr);
  rxCrpStatusColl_.notifierIs(nullptr);
  rxStaticRpStatusColl_.notifierIs(nullptr);
  rxBsrConfigColl_.notifierIs(nullptr);
  rxPimStatusColl_.notifierIs(nullptr);
  rxPimConfigColl_.notifierIs(nullptr);
  rxMfibVrfConfig_.notifierIs(nullptr);
  rxSnmpAgentStatus_.notifierIs(nullptr);
}

Ent::Ptr<RootSm> RootSmIs(
    Lanet::AddressFamily af, Ent::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir,
    Ent::Ptr<Ent::Dir> pimMibRoot, Ent::Ptr<Snmp::RegistrationHelper> mibRegistrationHelper,
    Ent::Ptr<const IntfSnmp::IfMib> ifMib, Ent::Ptr<const Bsr::StatusColl> bsrStatusColl,
    Ent::Ptr<const RpCandidateStatusColl> crpStatusColl,
    Ent::Ptr<const RpCandidateStatusColl> staticRpStatusColl,
    Ent::Ptr<const Bsr::ConfigColl> bsrConfigColl, Ent::Ptr<const StatusColl> pimStatusColl,
    Ent::Ptr<const ConfigColl> pimConfigColl,
    Ent::Ptr<const Multicast::Fib::VrfConfig> mfibVrfConfig,
    Ent::Ptr<const ::Snmp::Status> snmpAgentStatus, Ent::Ptr<Stadb::EntityManager> entityManager) {
  auto sm = Ent::make<RootSm>(
      af, std::move(allIntfStatusDir), std::move(pimMibRoot), std::move(mibRegistrationHelper),
      std::move(ifMib), std::move(bsrStatusColl), std::move(crpStatusColl),
      std::move(staticRpStatusColl), std::move(bsrConfigColl), std::move(pimStatusColl),
      std::move(pimConfigColl), std::move(mfibVrfConfig), std::move(snmpAgentStatus),
      std::move(entityManager));
  sm->hasNotificationActiveIs(true);
  return sm;
}

}  // namespace Routing::Pim::SnmpAgent
