#pragma once

#include <string_view>

#include "PimSnmp/PimSnmp/PimMib.h"
#include "PimSnmp/PimSnmpAgent/Inputs.h"
#include "PimSnmp/PimSnmpAgent/MrouteSm.h"
#include "platform/Clock/Clock.h"
#include "platform/Ent/Entity.h"
#include "platform/IntfSnmp/IfMib.h"
#include "platform/L3/VrfName.h"
#include "platform/Lanet/AddressFamily.h"
#include "platform/Routing/Pim/SparseMode/Shtab/RouteShtabReaderSm.h"
#include "platform/Routing/Pim/SparseMode/Shtab/RouteShtabRestartSm.h"
#include "platform/Routing/Pim/SparseMode/Shtab/Status.h"
#include "platform/Routing/Pim/SparseMode/Status.h"
#include "platform/Routing/Pim/Status.h"
#include "platform/Shtab/Multicast/Fib/Status.h"

namespace Routing::Pim::SnmpAgent {

// The state machines that mirror one VRF and family into the VRF's store: a local copy of the
// shared-memory sparse-mode route table and the route machine over it. Construction sets them
// up (handleBaseInitialized); tear-down removes them and the rows they wrote.
class ContainerSmBase : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId {
    attrRouteStatus = 1,
    attrRouteShtabReaderSm = 2,
    attrRouteShtabRestartSm = 3,
    attrMrouteSm = 4,
    attrBaseInitialized = 5,
  };
  using RouteShtabStatus = SparseMode::Shtab::Status;
  using RouteShtabReaderSm = SparseMode::Shtab::RouteShtabReaderSm;
  using RouteShtabRestartSm = SparseMode::Shtab::RouteShtabRestartSm;
  using FibStatus = ::Shtab::Multicast::Fib::Status;
  // The platform's table type of the sparse-mode route table, passed through to the restart
  // handler.
  static constexpr int kRouteTableType = 2;

  // Reads the first seven of `inputs`.
  explicit ContainerSmBase(const VrfInputs& inputs);
  ~ContainerSmBase() override;
  std::string_view typeName() const override { return "Routing::Pim::SnmpAgent::ContainerSmBase"; }

  const L3::VrfName& vrfName() const { return vrfName_; }
  const L3::VrfName& key() const { return vrfName_; }
  Lanet::AddressFamily af() const { return af_; }
  const Ent::Ptr<Snmp::PimMib>& pimMib() const { return pimMib_; }
  const Ent::Ptr<const IntfSnmp::IfMib>& ifMib() const { return ifMib_; }
  const Ent::Ptr<const Pim::Status>& pimStatus() const { return pimStatus_; }
  const Ent::Ptr<const FibStatus>& mfibShtabStatus() const { return mfibShtabStatus_; }
  const Ent::Ptr<const RouteShtabStatus>& routeShtabStatus() const { return routeShtabStatus_; }

  const Ent::Ptr<SparseMode::Status>& routeStatus() const { return routeStatus_; }
  // A new, empty sparse-mode status named by the VRF (the existing one if its name matches).
  Ent::Ptr<SparseMode::Status> routeStatusIs(const L3::VrfName& vrfName);
  void routeStatusDel();

  const Ent::Ptr<RouteShtabReaderSm>& routeShtabReaderSm() const { return routeShtabReaderSm_; }
  Ent::Ptr<RouteShtabReaderSm> routeShtabReaderSmIs(
      Ent::Ptr<SparseMode::Status> routeStatus, Ent::Ptr<const RouteShtabStatus> routeShtabStatus);
  void routeShtabReaderSmDel();

  const Ent::Ptr<RouteShtabRestartSm>& routeShtabRestartSm() const { return routeShtabRestartSm_; }
  Ent::Ptr<RouteShtabRestartSm> routeShtabRestartSmIs(
      Ent::Ptr<SparseMode::Status> routeStatus, Ent::Ptr<const RouteShtabStatus> routeShtabStatus,
      int tableType, Ent::Ptr<Plat::Clock> clock);
  void routeShtabRestartSmDel();

  const Ent::Ptr<MrouteSm>& mrouteSm() const { return mrouteSm_; }
  // A new route machine is started (handleInitialized) at once: its inputs are in place.
  Ent::Ptr<MrouteSm> mrouteSmIs(Lanet::AddressFamily af, Ent::Ptr<Snmp::PimMib> pimMib,
                                Ent::Ptr<const IntfSnmp::IfMib> ifMib,
                                Ent::Ptr<const SparseMode::Status> routeStatus,
                                Ent::Ptr<const FibStatus> mfibShtabStatus);
  void mrouteSmDel();

  bool baseInitialized() const { return baseInitialized_; }

  void hasNotificationActiveIs(bool on) override;

  // Removes the state machines (in the reverse order of their making) and the rows they wrote
  // into the store. Idempotent; also run by the destructor.
  virtual void doTeardown();

 protected:
  void handleBaseInitialized();
  // The base's share of the tear-down.
  void baseTeardown();

 private:
  // Removes the route-derived rows of this container's family: the route machine leaves them.
  void routeRowsDel();

  const L3::VrfName vrfName_;
  const Lanet::AddressFamily af_;
  const Ent::Ptr<Snmp::PimMib> pimMib_;
  const Ent::Ptr<const IntfSnmp::IfMib> ifMib_;
  const Ent::Ptr<const Pim::Status> pimStatus_;
  const Ent::Ptr<const FibStatus> mfibShtabStatus_;
  const Ent::Ptr<const RouteShtabStatus> routeShtabStatus_;

  Ent::Ptr<SparseMode::Status> routeStatus_;
  Ent::Ptr<RouteShtabReaderSm> routeShtabReaderSm_;
  Ent::Ptr<RouteShtabRestartSm> routeShtabRestartSm_;
  Ent::Ptr<MrouteSm> mrouteSm_;
  bool baseInitialized_ = false;
  bool baseTornDown_ = false;
};

}  // namespace Routing::Pim::SnmpAgent
