#include "PimSnmp/PimSnmpAgent/AfRoot.h"

#include <utility>

#include "platform/Trace/Trace.h"

DEFAULT_TRACE_HANDLE("PimSnmpAgent")

namespace Routing::Pim::SnmpAgent {

AfRoot::AfRoot(Lanet::AddressFamily af, Inputs inputs)
    : Ent::Entity(std::string(Lanet::toString(af))), af_(af), inputs_(std::move(inputs)) {}

AfRoot::~AfRoot() {
  doTeardown();
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
  auto sm = Ent::make<GlobalStatusReaderSm>(af_, inputs_.pimGlobalStatus, pimAllStatusColl_, false,
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
    rootSm_ = RootSmIs(af_, inputs_, pimStatusColl_);
    notify(attrRootSm);
    // The agent may be up already: then nothing will announce it again.
    if (inputs_.snmpStatus && inputs_.snmpStatus->initialized()) rootSm_->handleInitialized(true);
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
