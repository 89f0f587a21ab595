#pragma once

#include <cstdint>
#include <string_view>

#include "PimSnmp/PimSnmp/PimMib.h"
#include "platform/Ent/Coll.h"
#include "platform/Ent/Entity.h"
#include "platform/Interface/AllIntfStatusDir.h"
#include "platform/IntfSnmp/IfMib.h"
#include "platform/Lanet/IntfId.h"
#include "platform/Lanet/IpGenAddr.h"
#include "platform/Routing/Pim/Bsr/Config.h"
#include "platform/Routing/Pim/Bsr/Status.h"
#include "platform/Routing/Pim/Intf.h"
#include "platform/Routing/Pim/Status.h"

namespace Routing::Pim::SnmpAgent {

// Keeps one IPv4 VRF's pimInterfaceTable, pimNeighborTable and pimComponentTable equal to
// the VRF's PIM interfaces and neighbors, and raises pimNeighborLoss when an adjacency goes.
// It is the only writer of those three tables in its store.
class IntfSm : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId {
    attrNeighborTrapEnabled = 1,
    attrRxPimIntf = 2,
    attrInitialized = 3,
  };

  // Follows one PIM interface record and its active neighbors.
  class PimIntfSm : public Ent::RefCounted, public Ent::ReactorOf<Pim::Intf> {
   public:
    PimIntfSm(IntfSm* owner, Ent::Ptr<const Pim::Intf> intf);

    // The followed interface's id; the empty id when it follows none.
    Lanet::IntfId intfId() const;
    IntfSm* owner() const { return owner_; }

    // Brings the interface row (and component row 1) in line with the interface's current
    // record, then its neighbors.
    void handleIntf();
    void handleNeighbor(const Lanet::IpGenAddr& address);

    void onChange(const Ent::Change& change) override;

   private:
    friend class IntfSm;
    void detach();

    IntfSm* owner_;
  };
  using RxPimIntfColl = Ent::HashColl<Lanet::IntfId, PimIntfSm>;

  IntfSm(Ent::Ptr<Snmp::PimMib> pimMib, Ent::Ptr<const IntfSnmp::IfMib> ifMib,
         Ent::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir,
         Ent::Ptr<const Pim::Status> pimStatus, Ent::Ptr<const Bsr::Status> bsrStatus,
         Ent::Ptr<const Bsr::Config> bsrConfig);
  ~IntfSm() override;
  std::string_view typeName() const override { return "Routing::Pim::SnmpAgent::IntfSm"; }

  const Ent::Ptr<Snmp::PimMib>& pimMib() const { return pimMib_; }
  const Ent::Ptr<const IntfSnmp::IfMib>& ifMib() const { return ifMib_; }
  const Interface::AllIntfStatusDir* allIntfStatusDir() const {
    return rxAllIntfStatusDir_.notifier();
  }
  const Pim::Status* pimStatus() const { return rxPimStatus_.notifier(); }
  const Ent::Ptr<const Bsr::Status>& bsrStatus() const { return bsrStatus_; }
  const Ent::Ptr<const Bsr::Config>& bsrConfig() const { return bsrConfig_; }

  bool neighborTrapEnabled() const { return neighborTrapEnabled_; }
  void neighborTrapEnabledIs(bool on);
  bool initialized() const { return initialized_; }

  // Mirrors every interface present now; called by the owner once the inputs are in place.
  void handleInitialized();
  void handlePimIntf(const Lanet::IntfId& intfId);
  void handleIntfStatus(const Lanet::IntfId& intfId);

  const RxPimIntfColl& rxPimIntf() const { return rxPimIntf_; }
  Ent::Ptr<PimIntfSm> rxPimIntf(const Lanet::IntfId& intfId) const {
    return rxPimIntf_.find(intfId);
  }
  // Follows `intf` (creating the state machine, or rebinding it to a new record of the same
  // interface) and runs its handleIntf().
  Ent::Ptr<PimIntfSm> pimIntfIs(Ent::Ptr<const Pim::Intf> intf);
  // Stops following the interface, after one last handleIntf().
  void pimIntfDel(const Lanet::IntfId& intfId);
  void pimIntfDelAll();

  void raiseNeighborTrap(const Snmp::PimNeighborEntry& entry, const Lanet::IpGenAddr& address);

  // Stops following everything and removes every row this machine keeps. Idempotent; also
  // run by the destructor.
  void doTeardown();

 private:
  class RxAllIntfStatusDir : public Ent::ReactorOf<Interface::AllIntfStatusDir> {
   public:
    RxAllIntfStatusDir(IntfSm* owner, Ent::Ptr<const Interface::AllIntfStatusDir> dir)
        : ReactorOf(std::move(dir)), owner_(owner) {}
    void onChange(const Ent::Change& change) override;

   private:
    IntfSm* owner_;
  };
  class RxPimStatus : public Ent::ReactorOf<Pim::Status> {
   public:
    RxPimStatus(IntfSm* owner, Ent::Ptr<const Pim::Status> status)
        : ReactorOf(std::move(status)), owner_(owner) {}
    void onChange(const Ent::Change& change) override;

   private:
    IntfSm* owner_;
  };

  // The interface's ifIndex from IfMib; 0 when it has none.
  int32_t ifIndexOf(const Lanet::IntfId& intfId) const;

  const Ent::Ptr<Snmp::PimMib> pimMib_;
  const Ent::Ptr<const IntfSnmp::IfMib> ifMib_;
  RxAllIntfStatusDir rxAllIntfStatusDir_;
  RxPimStatus rxPimStatus_;
  const Ent::Ptr<const Bsr::Status> bsrStatus_;
  const Ent::Ptr<const Bsr::Config> bsrConfig_;
  bool neighborTrapEnabled_ = true;
  RxPimIntfColl rxPimIntf_;
  bool initialized_ = false;
  bool tornDown_ = false;
};

// A new IntfSm with notification on.
Ent::Ptr<IntfSm> IntfSmIs(Ent::Ptr<Snmp::PimMib> pimMib, Ent::Ptr<const IntfSnmp::IfMib> ifMib,
                          Ent::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir,
                          Ent::Ptr<const Pim::Status> pimStatus,
                          Ent::Ptr<const Bsr::Status> bsrStatus,
                          Ent::Ptr<const Bsr::Config> bsrConfig);

}  // namespace Routing::Pim::SnmpAgent
