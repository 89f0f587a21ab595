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

// The VRF's container in `coll`, made from `inputs` when there is none.
template <class Container, class Coll>
Ent::Ptr<Container> containerIs(Coll& coll, const VrfInputs& inputs) {
  auto [c, inserted] = coll.findOrInsert(inputs.vrfName, [&] {
    auto container = Ent::make<Container>(inputs);
    container->hasNotificationActiveIs(true);
    return container;
  });
  return c;
}

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

RootSm::RootSm(Lanet::AddressFamily af, const Inputs& inputs,
               Ent::Ptr<const StatusColl> pimStatusColl)
    : Ent::Entity(std::string(Lanet::toString(af))),
      af_(af),
      allIntfStatusDir_(inputs.allIntfStatusDir),
      pimMibRoot_(inputs.pimMibRoot),
      mibRegistrationHelper_(inputs.mibRegistrationHelper),
      ifMib_(inputs.ifMib),
      rxBsrStatusColl_(this, inputs.bsrStatusColl),
      rxCrpStatusColl_(this, inputs.crpStatusColl),
      rxStaticRpStatusColl_(this, inputs.staticRpStatusColl),
      rxBsrConfigColl_(this, inputs.bsrConfigColl),
      rxPimStatusColl_(this, std::move(pimStatusColl)),
      rxPimConfigColl_(this, inputs.pimConfigColl),
      rxMfibVrfConfig_(this, inputs.mfibVrfConfig),
      rxSnmpAgentStatus_(this, inputs.snmpStatus),
      entityManager_(inputs.entityManager),
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

  // The VRF's records; the IPv6 container reads the first seven.
  const VrfInputs records{vrf,
                          af_,
                          pimMib,
                          ifMib_,
                          pimStatusColl()->vrfStatus(vrf),
                          mfibShtabStatus,
                          routeShtabStatus,
                          allIntfStatusDir_,
                          bsrStatusColl()->vrfStatus(vrf),
                          crpStatusColl()->vrfStatus(vrf),
                          staticRpStatusColl()->vrfStatus(vrf),
                          bsrConfigColl()->vrfConfig(vrf)};
  TRACE8("instantiating {}", v4 ? "ContainerSmV4" : "ContainerSmBase");
  Ent::Ptr<ContainerSmBase> container =
      v4 ? Ent::Ptr<ContainerSmBase>(containerSmV4Is(records)) : containerSmBaseIs(records);
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

Ent::Ptr<ContainerSmV4> RootSm::containerSmV4Is(const VrfInputs& inputs) {
  return containerIs<ContainerSmV4>(containerSmV4_, inputs);
}

void RootSm::containerSmV4Del(const L3::VrfName& vrf) {
  if (Ent::Ptr<ContainerSmV4> c = containerSmV4_.erase(vrf)) c->doTeardown();
}

void RootSm::containerSmV4DelAll() {
  while (!containerSmV4_.empty()) containerSmV4Del(L3::VrfName(containerSmV4_.begin()->first));
}

Ent::Ptr<ContainerSmBase> RootSm::containerSmBaseIs(const VrfInputs& inputs) {
  return containerIs<ContainerSmBase>(containerSmBase_, inputs);
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

Ent::Ptr<RootSm> RootSmIs(Lanet::AddressFamily af, const Inputs& inputs,
                          Ent::Ptr<const StatusColl> pimStatusColl) {
  auto sm = Ent::make<RootSm>(af, inputs, std::move(pimStatusColl));
  sm->hasNotificationActiveIs(true);
  return sm;
}

}  // namespace Routing::Pim::SnmpAgent
