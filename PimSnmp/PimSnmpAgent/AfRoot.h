#pragma once

#include <string_view>

#include "PimSnmp/PimSnmpAgent/Inputs.h"
#include "PimSnmp/PimSnmpAgent/RootSm.h"
#include "platform/Clock/Clock.h"
#include "platform/Ent/Entity.h"
#include "platform/Lanet/AddressFamily.h"
#include "platform/Routing/Pim/AllStatusColl.h"
#include "platform/Routing/Pim/GlobalStatusModeFilterSm.h"
#include "platform/Routing/Pim/Shtab/GlobalStatusReaderSm.h"
#include "platform/Routing/Pim/StatusColl.h"
#include "platform/Stadb/EntityManager.h"

namespace Routing::Pim::SnmpAgent {

// The agent of one address family: binds the platform's global PIM status of the family to a
// VRF-keyed status collection of the sparse-mode VRFs, and owns the VRF tracker over it.
//
// Bring-up: pimAllStatusCollIs(), pimStatusCollIs(), pimGlobalStatusReaderSmIs(clock, mount),
// pimGlobalStatusModeFilterSmIs(), rootSmIs(). Tear-down (doTeardown, also run on destruction)
// goes the other way.
class AfRoot : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId {
    attrPimAllStatusColl = 1,
    attrPimStatusColl = 2,
    attrPimGlobalStatusReaderSm = 3,
    attrPimGlobalStatusModeFilterSm = 4,
    attrRootSm = 5,
  };
  using GlobalStatusReaderSm = Pim::Shtab::GlobalStatusReaderSm;
  // The PIM mode of the VRFs served: sparse mode.
  static constexpr Mode kServedMode = modeVrfSparse;

  AfRoot(Lanet::AddressFamily af, Inputs inputs);
  ~AfRoot() override;
  std::string_view typeName() const override { return "Routing::Pim::SnmpAgent::AfRoot"; }

  Lanet::AddressFamily af() const { return af_; }
  const Lanet::AddressFamily& key() const { return af_; }
  // The construction values of an afRoot entry.
  const Inputs& inputs() const { return inputs_; }

  // Each ...Is returns what exists, else creates it.
  const Ent::Ptr<AllStatusColl>& pimAllStatusColl() const { return pimAllStatusColl_; }
  Ent::Ptr<AllStatusColl> pimAllStatusCollIs();
  void pimAllStatusCollDel();

  const Ent::Ptr<StatusColl>& pimStatusColl() const { return pimStatusColl_; }
  Ent::Ptr<StatusColl> pimStatusCollIs();
  void pimStatusCollDel();

  // Kept when its clock and mount are these; replaced otherwise.
  const Ent::Ptr<GlobalStatusReaderSm>& pimGlobalStatusReaderSm() const {
    return pimGlobalStatusReaderSm_;
  }
  Ent::Ptr<GlobalStatusReaderSm> pimGlobalStatusReaderSmIs(Ent::Ptr<Plat::Clock> clock,
                                                           Ent::Ptr<Stadb::EntityManager> mount);
  void pimGlobalStatusReaderSmDel();

  const Ent::Ptr<GlobalStatusModeFilterSm>& pimGlobalStatusModeFilterSm() const {
    return pimGlobalStatusModeFilterSm_;
  }
  Ent::Ptr<GlobalStatusModeFilterSm> pimGlobalStatusModeFilterSmIs();
  void pimGlobalStatusModeFilterSmDel();

  const Ent::Ptr<RootSm>& rootSm() const { return rootSm_; }
  Ent::Ptr<RootSm> rootSmIs();
  // Tears the VRF tracker down: every VRF it served goes.
  void rootSmDel();

  // Idempotent.
  void doTeardown();

 private:
  const Lanet::AddressFamily af_;
  const Inputs inputs_;

  Ent::Ptr<AllStatusColl> pimAllStatusColl_;
  Ent::Ptr<StatusColl> pimStatusColl_;
  Ent::Ptr<GlobalStatusReaderSm> pimGlobalStatusReaderSm_;
  Ent::Ptr<GlobalStatusModeFilterSm> pimGlobalStatusModeFilterSm_;
  Ent::Ptr<RootSm> rootSm_;
};

}  // namespace Routing::Pim::SnmpAgent
