#pragma once

#include <string>
#include <string_view>

#include "PimSnmp/PimSnmp/PimMib.h"
#include "PimSnmp/RegistrationHelper/RegistrationState.h"
#include "platform/Ent/Coll.h"
#include "platform/Ent/Dir.h"
#include "platform/Ent/Entity.h"
#include "platform/L3/VrfName.h"
#include "platform/Lanet/AddressFamily.h"

namespace Routing::Pim::Snmp {

// The SNMP context of a VRF: "" for the default VRF, else the VRF name.
std::string vrfContext(const L3::VrfName& vrf);

// Per-VRF MIB registration shared by the two families' VRF trackers, which serve one SNMP
// context per VRF: IP-MCAST-MIB is registered by whichever family comes first, PIM-MIB and
// IPMROUTE-STD-MIB by IPv4 only, and the VRF's PimMib lives in pimMibRoot (named by the VRF)
// while at least one family is registered.
class RegistrationHelper : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId { attrVrfRegistrationState = 1 };
  using VrfRegistrationStateMap = Ent::HashValueMap<L3::VrfName, RegistrationState>;

  explicit RegistrationHelper(Ent::Ptr<Ent::Dir> pimMibRoot);
  std::string_view typeName() const override { return "Routing::Pim::Snmp::RegistrationHelper"; }

  const Ent::Ptr<Ent::Dir>& pimMibRoot() const { return pimMibRoot_; }

  // Registers the MIBs of `af` in the VRF's context unless they are registered already, and
  // returns the VRF's store (created with the VRF's first family).
  Ent::Ptr<PimMib> registerMibs(const L3::VrfName& vrf, Lanet::AddressFamily af);
  // Unregisters the MIBs of `af`; with the VRF's last family the store is deleted too.
  void deregisterMibs(const L3::VrfName& vrf, Lanet::AddressFamily af);

  // The VRF's store in pimMibRoot, or null.
  Ent::Ptr<PimMib> pimMib(const L3::VrfName& vrf) const;

  const VrfRegistrationStateMap& vrfRegistrationState() const { return vrfRegistrationState_; }
  // What is registered for `vrf`; 0 when absent.
  RegistrationState vrfRegistrationState(const L3::VrfName& vrf) const {
    return vrfRegistrationState_.get(vrf);
  }
  void vrfRegistrationStateIs(const L3::VrfName& vrf, RegistrationState state) {
    vrfRegistrationState_.set(vrf, state);
  }
  void vrfRegistrationStateDel(const L3::VrfName& vrf) { vrfRegistrationState_.erase(vrf); }
  void vrfRegistrationStateDelAll() { vrfRegistrationState_.clear(); }

 private:
  const Ent::Ptr<Ent::Dir> pimMibRoot_;
  VrfRegistrationStateMap vrfRegistrationState_;
};

}  // namespace Routing::Pim::Snmp
