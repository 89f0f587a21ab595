#pragma once

// The agent's state machines over the daemon's platform inputs, brought up and torn down in
// the documented order: Root; its registration helper; one AfRoot per family with the
// family's inputs; then on each AfRoot its status collections, the global-status reader and
// mode filter, and the VRF tracker (RootSm). Tear-down runs the other way and withdraws every
// context that was registered.

#include "PimSnmp/PimSnmpAgent/Root.h"
#include "daemon/state/PlatformState.h"
#include "platform/Clock/Clock.h"
#include "platform/Snmp/Status.h"

namespace PimSnmpd {

class AgentTree {
 public:
  // Nothing is built until bringUp().
  AgentTree(PlatformState& platform, Ent::Ptr<const Snmp::Status> snmpStatus,
            Ent::Ptr<Plat::Clock> clock);
  ~AgentTree();
  AgentTree(const AgentTree&) = delete;
  AgentTree& operator=(const AgentTree&) = delete;

  void bringUp();
  // Idempotent.
  void tearDown();

  const Ent::Ptr<Routing::Pim::SnmpAgent::Root>& root() const { return root_; }
  // The directory of the per-VRF stores; null while down.
  Ent::Ptr<Ent::Dir> pimMibRoot() const { return root_ ? root_->pimMibRoot() : nullptr; }

 private:
  // The family's inputs among the platform's records: the one place that picks them.
  Routing::Pim::SnmpAgent::Inputs inputs(
      Lanet::AddressFamily af,
      Ent::Ptr<Routing::Pim::Snmp::RegistrationHelper> registrationHelper) const;

  PlatformState& platform_;
  Ent::Ptr<const Snmp::Status> snmpStatus_;
  Ent::Ptr<Plat::Clock> clock_;
  Ent::Ptr<Routing::Pim::SnmpAgent::Root> root_;
};

}  // namespace PimSnmpd
