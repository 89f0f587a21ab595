#pragma once

#include <string_view>

#include "PimSnmp/PimSnmpAgent/RootSm.h"
#include "PimSnmp/RegistrationHelper/RegistrationHelper.h"
#include "platform/Clock/Clock.h"
#include "platform/Ent/Dir.h"
#include "platform/Ent/Entity.h"
#include "platform/Interface/AllIntfStatusDir.h"
#include "platform/IntfSnmp/IfMib.h"
#include "platform/Lanet/AddressFamily.h"
#include "platform/Routing/Multicast/Fib/VrfConfig.h"
#include "platform/Routing/Pim/AllStatusColl.h"
#include "platform/Routing/Pim/Bsr/ConfigColl.h"
#include "platform/Routing/Pim/Bsr/StatusColl.h"
#include "platform/Routing/Pim/ConfigColl.h"
#include "platform/Routing/Pim/GlobalStatus.h"
#include "platform/Routing/Pim/GlobalStatusModeFilterSm.h"
#include "platform/Routing/Pim/RpCandidateStatusColl.h"
#include "platform/Routing/Pim/Shtab/GlobalStatusReaderSm.h"
#include "platform/Routing/Pim/StatusColl.h"
#include "platform/Snmp/Status.h"
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

  AfRoot(Lanet::AddressFamily af, Ent::Ptr<Ent::Dir> pimMibRoot,
         Ent::Ptr<Snmp::RegistrationHelper> mibRegistrationHelper,
         Ent::Ptr<Stadb::EntityManager> entityManager, Ent::Ptr<const IntfSnmp::IfMib> ifMib,
         Ent::Ptr<const ::Snmp::Status> snmpStatus,
         Ent::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir,
         Ent::Ptr<const GlobalStatus> pimGlobalStatus, Ent::Ptr<const ConfigColl> pimConfigColl,
         Ent::Ptr<const Bsr::StatusColl> bsrStatusColl,
         Ent::Ptr<const Bsr::ConfigColl> bsrConfigColl,
         Ent::Ptr<const RpCandidateStatusColl> crpStatusColl,
         Ent::Ptr<const RpCandidateStatusColl> staticRpStatusColl,
         Ent::Ptr<const Multicast::Fib::VrfConfig> mfibVrfConfig);
  ~AfRoot() override;
  std::string_view typeName() const override { return "Routing::Pim::SnmpAgent::AfRoot"; }

  Lanet::AddressFamily af() const { return af_; }
  const Lanet::AddressFamily& key() const { return af_; }
  const Ent::Ptr<Ent::Dir>& pimMibRoot() const { return pimMibRoot_; }
  const Ent::Ptr<Snmp::RegistrationHelper>& mibRegistrationHelper() const {
    return mibRegistrationHelper_;
  }
  const Ent::Ptr<Stadb::EntityManager>& entityManager() const { return entityManager_; }
  const Ent::Ptr<const IntfSnmp::IfMib>& ifMib() const { return ifMib_; }
  const Ent::Ptr<const ::Snmp::Status>& snmpStatus() const { return snmpStatus_; }
  const Ent::Ptr<const Interface::AllIntfStatusDir>& allIntfStatusDir() const {
    return allIntfStatusDir_;
  }
  const Ent::Ptr<const GlobalStatus>& pimGlobalStatus() const { return pimGlobalStatus_; }
  const Ent::Ptr<const ConfigColl>& pimConfigColl() const { return pimConfigColl_; }
  const Ent::Ptr<const Bsr::StatusColl>& bsrStatusColl() const { return bsrStatusColl_; }
  const Ent::Ptr<const Bsr::ConfigColl>& bsrConfigColl() const { return bsrConfigColl_; }
  const Ent::Ptr<const RpCandidateStatusColl>& crpStatusColl() const { return crpStatusColl_; }
  const Ent::Ptr<const RpCandidateStatusColl>& staticRpStatusColl() const {
    return staticRpStatusColl_;
  }
  const Ent::Ptr<const Multicast::Fib::VrfConfig>& mfibVrfConfig() const { return mfibVrfConfig_; }

  // True when every input equals the given one (the construction values of an afRoot entry).
  bool inputsAre(Ent::Ptr<Ent::Dir> pimMibRoot,
                 Ent::Ptr<Snmp::RegistrationHelper> mibRegistrationHelper,
                 Ent::Ptr<Stadb::EntityManager> entityManager,
                 Ent::Ptr<const IntfSnmp::IfMib> ifMib, Ent::Ptr<const ::Snmp::Status> snmpStatus,
                 Ent::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir,
                 Ent::Ptr<const GlobalStatus> pimGlobalStatus,
                 Ent::Ptr<const ConfigColl> pimConfigColl,
                 Ent::Ptr<const Bsr::StatusColl> bsrStatusColl,
                 Ent::Ptr<const Bsr::ConfigColl> bsrConfigColl,
                 Ent::Ptr<const RpCandidateStatusColl> crpStatusColl,
                 Ent::Ptr<const RpCandidateStatusColl> staticRpStatusColl,
                 Ent::Ptr<const Multicast::Fib::VrfConfig> mfibVrfConfig) const;

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
  const Ent::Ptr<Ent::Dir> pimMibRoot_;
  const Ent::Ptr<Snmp::RegistrationHelper> mibRegistrationHelper_;
  const Ent::Ptr<Stadb::EntityManager> entityManager_;
  const Ent::Ptr<const IntfSnmp::IfMib> ifMib_;
  const Ent::Ptr<const ::Snmp::Status> snmpStatus_;
  const Ent::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir_;
  const Ent::Ptr<const GlobalStatus> pimGlobalStatus_;
  const Ent::Ptr<const ConfigColl> pimConfigColl_;
  const Ent::Ptr<const Bsr::StatusColl> bsrStatusColl_;
  const Ent::Ptr<const Bsr::ConfigColl> bsrConfigColl_;
  const Ent::Ptr<const RpCandidateStatusColl> crpStatusColl_;
  const Ent::Ptr<const RpCandidateStatusColl> staticRpStatusColl_;
  const Ent::Ptr<const Multicast::Fib::VrfConfig> mfibVrfConfig_;

  Ent::Ptr<AllStatusColl> pimAllStatusColl_;
  Ent::Ptr<StatusColl> pimStatusColl_;
  Ent::Ptr<GlobalStatusReaderSm> pimGlobalStatusReaderSm_;
  Ent::Ptr<GlobalStatusModeFilterSm> pimGlobalStatusModeFilterSm_;
  Ent::Ptr<RootSm> rootSm_;
};

}  // namespace Routing::Pim::SnmpAgent
