#include "PimSnmp/PimSnmpAgent/AfRoot.h"

#include <utility>

#include "platform/Trace/Trace.h"

DEFAULT_TRACE_HANDLE("PimSnmpAgent")

namespace Routing::Pim::SnmpAgent {

AfRoot::AfRoot(Lanet::AddressFamily af, Ent::Ptr<Ent::Dir> pimMibRoot,
               Ent::Ptr<Snmp::RegistrationHelper> mibRegistrationHelper,
               Ent::Ptr<Stadb::EntityManager> entityManager, Ent::Ptr<const IntfSnmp::IfMib> ifMib,
               Ent::Ptr<const ::Snmp::Status> snmpStatus,
               Ent::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir,
               Ent::Ptr<const GlobalStatus> pimGlobalStatus,
               Ent::Ptr<const ConfigColl> pimConfigColl,
               Ent::Ptr<const Bsr::StatusColl> bsrStatusColl,
               Ent::Ptr<const Bsr::ConfigColl> bsrConfigColl,
               Ent::Ptr<const RpCandidateStatusColl> crpStatusColl,
               Ent::Ptr<const RpCandidateStatusColl> staticRpStatusColl,
               Ent::Ptr<const Multicast::Fib::VrfConfig> mfibVrfConfig)
    : Ent::Entity(std::string(Lanet::toString(af))),
      af_(af),
      pimMibRoot_(std::move(pimMibRoot)),
      mibRegistrationHelper_(std::move(mibRegistrationHelper)),
      entityManager_(std::move(entityManager)),
      ifMib_(std::move(ifMib)),
      snmpStatus_(std::move(snmpStatus)),
      allIntfStatusDir_(std::move(allIntfStatusDir)),
      pimGlobalStatus_(std::move(pimGlobalStatus)),
      pimConfigColl_(std::move(pimConfigColl)),
      bsrStatusColl_(std::move(bsrStatusColl)),
      bsrConfigColl_(std::move(bsrConfigColl)),
      crpStatusColl_(std::move(crpStatusColl)),
      staticRpStatusColl_(std::move(staticRpStatusColl)),
      mfibVrfConfig_(std::move(mfibVrfConfig)) {}

AfRoot::~AfRoot() {
  doTeardown();
}

bool AfRoot::inputsAre(
    Ent::Ptr<Ent::Dir> pimMibRoot, Ent::Ptr<Snmp::RegistrationHelper> mibRegistrationHelper,
    Ent::Ptr<Stadb::EntityManager> entityManager, Ent::Ptr<const IntfSnmp::IfMib> ifMib,
    Ent::Ptr<const ::Snmp::Status> snmpStatus,
    Ent::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir,
    Ent::Ptr<const GlobalStatus> pimGlobalStatus, Ent::Ptr<const ConfigColl> pimConfigColl,
    Ent::Ptr<const Bsr::StatusColl> bsrStatusColl, Ent::Ptr<const Bsr::ConfigColl> bsrConfigColl,
    Ent::Ptr<const RpCandidateStatusColl> crpStatusColl,
    Ent::Ptr<const RpCandidateStatusColl> staticRpStatusColl,
    Ent::Ptr<const Multicast::Fib::VrfConfig> mfibVrfConfig) const {
  return pimMibRoot_ == pimMibRoot && mibRegistrationHelper_ == mibRegistrationHelper &&
         entityManager_ == entityManager && ifMib_ == ifMib && snmpStatus_ == snmpStatus &&
         allIntfStatusDir_ == allIntfStatusDir && pimGlobalStatus_ == pimGlobalStatus &&
         pimConfigColl_ == pimConfigColl && bsrStatusColl_ == bsrStatusColl &&
         bsrConfigColl_ == bsrConfigColl && crpStatusColl_ == crpStatusColl &&
         staticRpStatusColl_ == staticRpStatusColl && mfibVrfConfig_ == mfibVrfConfig;
}

Ent::Ptr<AllStatusColl> AfRoot::pimAllStatusCollIs() {
  if (!pimAllStatusColl_) {
    pimAllStatusColl_ = Ent::make<AllStatusColl>();
    notify(attrPimAllStatusColl);
  }
  return pimAllStatusColl_;
}

void AfRoot::pimAllStatusCollDel() {
  if (!pimAllStatusColl_) return;
  pimAllStatusColl_.reset();
  notify(attrPimAllStatusColl);
}

Ent::Ptr<StatusColl> AfRoot::pimStatusCollIs() {
  if (!pimStatusColl_) {
    pimStatusColl_ = Ent::make<StatusColl>();
    notify(attrPimStatusColl);
  }
  return pimStatusColl_;
}

void AfRoot::pimStatusCollDel() {
  if (!pimStatusColl_) return;
  pimStatusColl_.reset();
  notify(attrPimStatusColl);
}

Ent::Ptr<AfRoot::GlobalStatusReaderSm> AfRoot::pimGlobalStatusReaderSmIs(
    Ent::Ptr<Plat::Clock> clock, Ent::Ptr<Stadb::EntityManager> mount) {
  if (pimGlobalStatusReaderSm_ && pimGlobalStatusReaderSm_->clock() == clock &&
      pimGlobalStatusReaderSm_->mount() == mount) {
    return pimGlobalStatusReaderSm_;
  }
  TRACE8("af {}, globalStatus reader", af_);
  pimGlobalStatusReaderSm_.reset();
  auto sm = Ent::make<GlobalStatusReaderSm>(af_, pimGlobalStatus_, pimAllStatusColl_, false,
                                            std::move(clock), std::move(mount));
  sm->hasNotificationActiveIs(true);
  pimGlobalStatusReaderSm_ = sm;
  notify(attrPimGlobalStatusReaderSm);
  return sm;
}

void AfRoot::pimGlobalStatusReaderSmDel() {
  if (!pimGlobalStatusReaderSm_) return;
  pimGlobalStatusReaderSm_.reset();
  notify(attrPimGlobalStatusReaderSm);
}

Ent::Ptr<GlobalStatusModeFilterSm> AfRoot::pimGlobalStatusModeFilterSmIs() {
  if (!pimGlobalStatusModeFilterSm_) {
    auto sm = Ent::make<GlobalStatusModeFilterSm>(pimAllStatusColl_, pimStatusColl_, kServedMode);
    sm->hasNotificationActiveIs(true);
    pimGlobalStatusModeFilterSm_ = sm;
    notify(attrPimGlobalStatusModeFilterSm);
  }
  return pimGlobalStatusModeFilterSm_;
}

void AfRoot::pimGlobalStatusModeFilterSmDel() {
  if (!pimGlobalStatusModeFilterSm_) return;
  pimGlobalStatusModeFilterSm_.reset();
  notify(attrPimGlobalStatusModeFilterSm);
}

Ent::Ptr<RootSm> AfRoot::rootSmIs() {
  if (!rootSm_) {
    // The tracker reads the filtered, family-local status collection.
    rootSm_ = RootSmIs(af_, allIntfStatusDir_, pimMibRoot_, mibRegistrationHelper_, ifMib_,
                       bsrStatusColl_, crpStatusColl_, staticRpStatusColl_, bsrConfigColl_,
                       pimStatusColl_, pimConfigColl_, mfibVrfConfig_, snmpStatus_, entityManager_);
    notify(attrRootSm);
    // The agent may be up already: then nothing will announce it again.
    if (snmpStatus_ && snmpStatus_->initialized()) rootSm_->handleInitialized(true);
  }
  return rootSm_;
}

void AfRoot::rootSmDel() {
  if (!rootSm_) return;
  Ent::Ptr<RootSm> sm = std::move(rootSm_);
  sm->doTeardown();
  notify(attrRootSm);
}

void AfRoot::doTeardown() {
  rootSmDel();
  pimGlobalStatusModeFilterSmDel();
  pimGlobalStatusReaderSmDel();
  pimStatusCollDel();
  pimAllStatusCollDel();
}

}  // namespace Routing::Pim::SnmpAgent
