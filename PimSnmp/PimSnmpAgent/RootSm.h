#pragma once

#include <memory>
#include <string_view>
#include <unordered_map>

#include "PimSnmp/PimSnmpAgent/ContainerSmBase.h"
#include "PimSnmp/PimSnmpAgent/ContainerSmV4.h"
#include "PimSnmp/PimSnmpAgent/Inputs.h"
#include "PimSnmp/RegistrationHelper/RegistrationHelper.h"
#include "platform/Ent/Coll.h"
#include "platform/Ent/Dir.h"
#include "platform/Ent/Entity.h"
#include "platform/Interface/AllIntfStatusDir.h"
#include "platform/IntfSnmp/IfMib.h"
#include "platform/L3/VrfName.h"
#include "platform/Lanet/AddressFamily.h"
#include "platform/Routing/Multicast/Fib/VrfConfig.h"
#include "platform/Routing/Pim/Bsr/ConfigColl.h"
#include "platform/Routing/Pim/Bsr/StatusColl.h"
#include "platform/Routing/Pim/ConfigColl.h"
#include "platform/Routing/Pim/RpCandidateStatusColl.h"
#include "platform/Routing/Pim/StatusColl.h"
#include "platform/Snmp/Status.h"
#include "platform/Stadb/EntityManager.h"

namespace Routing::Pim::SnmpAgent {

// Decides, VRF by VRF and for one family, whether the VRF is served: once the agent is
// initialized and all seven per-VRF inputs exist it registers the VRF's MIBs (which makes its
// store), mounts the VRF's shared-memory tables and creates its container; when an input goes
// it tears all of that down again.
class RootSm : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId {
    attrSnmpInitialized = 1,
    attrContainerSm = 2,
    attrContainerSmV4 = 3,
    attrContainerSmBase = 4,
  };
  using ContainerSmColl = Ent::HashColl<L3::VrfName, ContainerSmBase>;
  using ContainerSmV4Coll = Ent::HashColl<L3::VrfName, ContainerSmV4>;
  using FibStatus = ::Shtab::Multicast::Fib::Status;
  using RouteShtabStatus = SparseMode::Shtab::Status;

  // `pimStatusColl` is the family's status collection of the served mode (AfRoot's), read
  // instead of the inputs' global status.
  RootSm(Lanet::AddressFamily af, const Inputs& inputs, Ent::Ptr<const StatusColl> pimStatusColl);
  ~RootSm() override;
  std::string_view typeName() const override { return "Routing::Pim::SnmpAgent::RootSm"; }

  Lanet::AddressFamily af() const { return af_; }
  const Ent::Ptr<const Interface::AllIntfStatusDir>& allIntfStatusDir() const {
    return allIntfStatusDir_;
  }
  const Ent::Ptr<Ent::Dir>& pimMibRoot() const { return pimMibRoot_; }
  const Ent::Ptr<Snmp::RegistrationHelper>& mibRegistrationHelper() const {
    return mibRegistrationHelper_;
  }
  const Ent::Ptr<const IntfSnmp::IfMib>& ifMib() const { return ifMib_; }
  const Bsr::StatusColl* bsrStatusColl() const { return rxBsrStatusColl_.notifier(); }
  const RpCandidateStatusColl* crpStatusColl() const { return rxCrpStatusColl_.notifier(); }
  const RpCandidateStatusColl* staticRpStatusColl() const {
    return rxStaticRpStatusColl_.notifier();
  }
  const Bsr::ConfigColl* bsrConfigColl() const { return rxBsrConfigColl_.notifier(); }
  const StatusColl* pimStatusColl() const { return rxPimStatusColl_.notifier(); }
  const ConfigColl* pimConfigColl() const { return rxPimConfigColl_.notifier(); }
  const Multicast::Fib::VrfConfig* mfibVrfConfig() const { return rxMfibVrfConfig_.notifier(); }
  const ::Snmp::Status* snmpAgentStatus() const { return rxSnmpAgentStatus_.notifier(); }
  const Ent::Ptr<Stadb::EntityManager>& entityManager() const { return entityManager_; }

  // True once the first full VRF scan ran.
  bool snmpInitialized() const { return snmpInitialized_; }

  void handleInitialized(bool initialized);
  void handleVrf(const L3::VrfName& vrf);
  // True when all seven inputs of the VRF exist; traces the first one missing.
  bool checkMounts(const L3::VrfName& vrf) const;
  void handleVrfCreation(const L3::VrfName& vrf);
  void handleVrfDeletion(const L3::VrfName& vrf);

  // The container of every served VRF, whatever its family. Throws Ent::NullArgument for null.
  const ContainerSmColl& containerSm() const { return containerSm_; }
  Ent::Ptr<ContainerSmBase> containerSm(const L3::VrfName& vrf) const {
    return containerSm_.find(vrf);
  }
  bool containerSmHas(const L3::VrfName& vrf) const { return containerSm_.contains(vrf); }
  void containerSmIs(Ent::Ptr<ContainerSmBase> container);
  void containerSmDel(const L3::VrfName& vrf);
  void containerSmDelAll();

  // The IPv4 containers. Removing one tears it down.
  const ContainerSmV4Coll& containerSmV4() const { return containerSmV4_; }
  Ent::Ptr<ContainerSmV4> containerSmV4(const L3::VrfName& vrf) const {
    return containerSmV4_.find(vrf);
  }
  bool containerSmV4Has(const L3::VrfName& vrf) const { return containerSmV4_.contains(vrf); }
  Ent::Ptr<ContainerSmV4> containerSmV4Is(const VrfInputs& inputs);
  void containerSmV4Del(const L3::VrfName& vrf);
  void containerSmV4DelAll();

  // The IPv6 containers. Removing one tears it down.
  const ContainerSmColl& containerSmBase() const { return containerSmBase_; }
  Ent::Ptr<ContainerSmBase> containerSmBase(const L3::VrfName& vrf) const {
    return containerSmBase_.find(vrf);
  }
  bool containerSmBaseHas(const L3::VrfName& vrf) const { return containerSmBase_.contains(vrf); }
  Ent::Ptr<ContainerSmBase> containerSmBaseIs(const VrfInputs& inputs);
  void containerSmBaseDel(const L3::VrfName& vrf);
  void containerSmBaseDelAll();

  // Tears every served VRF down (containers, mounts, registrations). Idempotent; also run by
  // the destructor.
  void doTeardown();

 private:
  // One reactor per input; each calls handleVrf for the VRF whose record changed.
  template <class T, Ent::AttrId A>
  class RxVrfColl : public Ent::ReactorOf<T> {
   public:
    RxVrfColl(RootSm* owner, Ent::Ptr<const T> coll)
        : Ent::ReactorOf<T>(std::move(coll)), owner_(owner) {}
    void onChange(const Ent::Change& change) override {
      if (owner_->isDeleting() || change.attr != A || !change.key) return;
      owner_->handleVrf(change.keyAs<L3::VrfName>());
    }

   private:
    RootSm* owner_;
  };
  using RxPimConfigColl = RxVrfColl<ConfigColl, ConfigColl::attrVrfConfig>;
  using RxPimStatusColl = RxVrfColl<StatusColl, StatusColl::attrVrfStatus>;
  using RxBsrConfigColl = RxVrfColl<Bsr::ConfigColl, Bsr::ConfigColl::attrVrfConfig>;
  using RxBsrStatusColl = RxVrfColl<Bsr::StatusColl, Bsr::StatusColl::attrVrfStatus>;
  using RxCrpStatusColl = RxVrfColl<RpCandidateStatusColl, RpCandidateStatusColl::attrVrfStatus>;
  using RxStaticRpStatusColl =
      RxVrfColl<RpCandidateStatusColl, RpCandidateStatusColl::attrVrfStatus>;

  class RxSnmpAgentStatus : public Ent::ReactorOf<::Snmp::Status> {
   public:
    RxSnmpAgentStatus(RootSm* owner, Ent::Ptr<const ::Snmp::Status> status)
        : ReactorOf(std::move(status)), owner_(owner) {}
    void onChange(const Ent::Change& change) override;

   private:
    RootSm* owner_;
  };
  // Its keys are plain strings: a name too long for a VRF is refused here.
  class RxMfibVrfConfig : public Ent::ReactorOf<Multicast::Fib::VrfConfig> {
   public:
    RxMfibVrfConfig(RootSm* owner, Ent::Ptr<const Multicast::Fib::VrfConfig> config)
        : ReactorOf(std::move(config)), owner_(owner) {}
    void onChange(const Ent::Change& change) override;

   private:
    RootSm* owner_;
  };

  void snmpInitializedIs(bool on);
  // Undoes the mounts made for the VRF.
  void mountsDel(const L3::VrfName& vrf);

  const Lanet::AddressFamily af_;
  const Ent::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir_;
  const Ent::Ptr<Ent::Dir> pimMibRoot_;
  const Ent::Ptr<Snmp::RegistrationHelper> mibRegistrationHelper_;
  const Ent::Ptr<const IntfSnmp::IfMib> ifMib_;
  RxBsrStatusColl rxBsrStatusColl_;
  RxCrpStatusColl rxCrpStatusColl_;
  RxStaticRpStatusColl rxStaticRpStatusColl_;
  RxBsrConfigColl rxBsrConfigColl_;
  RxPimStatusColl rxPimStatusColl_;
  RxPimConfigColl rxPimConfigColl_;
  RxMfibVrfConfig rxMfibVrfConfig_;
  RxSnmpAgentStatus rxSnmpAgentStatus_;
  const Ent::Ptr<Stadb::EntityManager> entityManager_;

  bool snmpInitialized_ = false;
  ContainerSmColl containerSm_;
  ContainerSmV4Coll containerSmV4_;
  ContainerSmColl containerSmBase_;
  // The shared-memory mounts of each served VRF, undone with its container.
  std::unordered_map<L3::VrfName, std::unique_ptr<Stadb::MountGroup>> mounts_;
  bool tornDown_ = false;
};

// A new RootSm with notification on.
Ent::Ptr<RootSm> RootSmIs(Lanet::AddressFamily af, const Inputs& inputs,
                          Ent::Ptr<const StatusColl> pimStatusColl);

}  // namespace Routing::Pim::SnmpAgent
