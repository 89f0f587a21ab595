#include "PimSnmp/PimSnmpAgent/ContainerSmV4.h"

#include <utility>

#include "platform/Trace/Trace.h"

DEFAULT_TRACE_HANDLE("PimSnmpAgent")

namespace Routing::Pim::SnmpAgent {

ContainerSmV4::ContainerSmV4(const VrfInputs& inputs)
    : ContainerSmBase(inputs),
      allIntfStatusDir_(inputs.allIntfStatusDir),
      bsrStatus_(inputs.bsrStatus),
      crpStatus_(inputs.crpStatus),
      staticRpStatus_(inputs.staticRpStatus),
      bsrConfig_(inputs.bsrConfig) {
  handleV4Initialized();
}

ContainerSmV4::~ContainerSmV4() {
  v4Teardown();
}

void ContainerSmV4::handleV4Initialized() {
  TRACE8("af {}, vrf {}", af(), vrfName());
  pimCrpSmIs(af(), pimMib(), bsrStatus_, crpStatus_);
  pimStaticRpSmIs(af(), pimMib(), bsrStatus_, staticRpStatus_);
  intfSmIs(pimMib(), ifMib(), allIntfStatusDir_, pimStatus(), bsrStatus_, bsrConfig_);
  v4Initialized_ = true;
  notify(attrV4Initialized);
}

Ent::Ptr<PimCrpSm> ContainerSmV4::crpSmIs(Ent::Ptr<PimCrpSm>& slot, Ent::AttrId attr,
                                          Lanet::AddressFamily af, Ent::Ptr<Snmp::PimMib> pimMib,
                                          Ent::Ptr<const Bsr::Status> bsrStatus,
                                          Ent::Ptr<const RpCandidateStatus> status) {
  if (slot && slot->af() == af && slot->pimMib() == pimMib && slot->bsrStatus() == bsrStatus &&
      slot->crpStatus() == status.get()) {
    return slot;
  }
  // The old machine's rows go before the new one writes its own.
  crpSmDel(slot, attr);
  auto sm = PimCrpSmIs(af, std::move(pimMib), std::move(bsrStatus), std::move(status));
  slot = sm;
  notify(attr);
  sm->handleInitialized();
  return sm;
}

void ContainerSmV4::crpSmDel(Ent::Ptr<PimCrpSm>& slot, Ent::AttrId attr) {
  if (!slot) return;
  Ent::Ptr<PimCrpSm> sm = std::move(slot);
  sm->doTeardown();
  notify(attr);
}

Ent::Ptr<PimCrpSm> ContainerSmV4::pimCrpSmIs(Lanet::AddressFamily af, Ent::Ptr<Snmp::PimMib> pimMib,
                                             Ent::Ptr<const Bsr::Status> bsrStatus,
                                             Ent::Ptr<const RpCandidateStatus> crpStatus) {
  return crpSmIs(pimCrpSm_, attrPimCrpSm, af, std::move(pimMib), std::move(bsrStatus),
                 std::move(crpStatus));
}

void ContainerSmV4::pimCrpSmDel() {
  crpSmDel(pimCrpSm_, attrPimCrpSm);
}

Ent::Ptr<PimCrpSm> ContainerSmV4::pimStaticRpSmIs(
    Lanet::AddressFamily af, Ent::Ptr<Snmp::PimMib> pimMib, Ent::Ptr<const Bsr::Status> bsrStatus,
    Ent::Ptr<const RpCandidateStatus> staticRpStatus) {
  return crpSmIs(pimStaticRpSm_, attrPimStaticRpSm, af, std::move(pimMib), std::move(bsrStatus),
                 std::move(staticRpStatus));
}

void ContainerSmV4::pimStaticRpSmDel() {
  crpSmDel(pimStaticRpSm_, attrPimStaticRpSm);
}

Ent::Ptr<IntfSm> ContainerSmV4::intfSmIs(
    Ent::Ptr<Snmp::PimMib> pimMib, Ent::Ptr<const IntfSnmp::IfMib> ifMib,
    Ent::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir,
    Ent::Ptr<const Pim::Status> pimStatus, Ent::Ptr<const Bsr::Status> bsrStatus,
    Ent::Ptr<const Bsr::Config> bsrConfig) {
  if (intfSm_ && intfSm_->pimMib() == pimMib && intfSm_->ifMib() == ifMib &&
      intfSm_->allIntfStatusDir() == allIntfStatusDir.get() &&
      intfSm_->pimStatus() == pimStatus.get() && intfSm_->bsrStatus() == bsrStatus &&
      intfSm_->bsrConfig() == bsrConfig) {
    return intfSm_;
  }
  intfSmDel();
  auto sm = IntfSmIs(std::move(pimMib), std::move(ifMib), std::move(allIntfStatusDir),
                     std::move(pimStatus), std::move(bsrStatus), std::move(bsrConfig));
  intfSm_ = sm;
  notify(attrIntfSm);
  sm->handleInitialized();
  return sm;
}

void ContainerSmV4::intfSmDel() {
  if (!intfSm_) return;
  Ent::Ptr<IntfSm> sm = std::move(intfSm_);
  sm->doTeardown();
  notify(attrIntfSm);
}

void ContainerSmV4::hasNotificationActiveIs(bool on) {
  ContainerSmBase::hasNotificationActiveIs(on);
  if (pimCrpSm_) pimCrpSm_->hasNotificationActiveIs(on);
  if (pimStaticRpSm_) pimStaticRpSm_->hasNotificationActiveIs(on);
  if (intfSm_) intfSm_->hasNotificationActiveIs(on);
}

void ContainerSmV4::doTeardown() {
  v4Teardown();
  ContainerSmBase::doTeardown();
}

void ContainerSmV4::v4Teardown() {
  if (v4TornDown_) return;
  v4TornDown_ = true;
  isDeletingIs(true);
  intfSmDel();
  pimStaticRpSmDel();
  pimCrpSmDel();
}

}  // namespace Routing::Pim::SnmpAgent
