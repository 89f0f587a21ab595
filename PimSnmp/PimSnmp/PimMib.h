#pragma once

// The per-VRF MIB store: one ordered table per MIB table served, keyed by the table's SNMP
// index, so that GET and GETNEXT walk a table in index order.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "PimSnmp/PimSnmp/Index.h"
#include "PimSnmp/PimSnmp/InterfaceEntry.h"
#include "PimSnmp/PimSnmp/NextHopState.h"
#include "PimSnmp/PimSnmp/PimComponentEntry.h"
#include "PimSnmp/PimSnmp/PimInterfaceEntry.h"
#include "PimSnmp/PimSnmp/PimNeighborEntry.h"
#include "PimSnmp/PimSnmp/PimRpEntry.h"
#include "PimSnmp/PimSnmp/RouteEntry.h"
#include "PimSnmp/PimSnmp/RouteNextHopEntry.h"
#include "PimSnmp/PimSnmp/StoreTable.h"
#include "platform/Ent/Coll.h"
#include "platform/Ent/Entity.h"
#include "platform/IntfSnmp/IfMib.h"
#include "platform/Lanet/AddressFamily.h"
#include "platform/Lanet/IpGenAddr.h"
#include "platform/Routing/Multicast/Fib/Config.h"
#include "platform/Routing/Pim/Bsr/Config.h"
#include "platform/Routing/Pim/Bsr/Status.h"
#include "platform/Routing/Pim/Intf.h"
#include "platform/Routing/Pim/Neighbor.h"
#include "platform/Routing/Pim/RpCandidate.h"
#include "platform/Routing/Pim/RpType.h"
#include "platform/Routing/Pim/SparseMode/Intf.h"
#include "platform/Routing/Pim/SparseMode/Route.h"

namespace Routing::Pim::Snmp {

// The MIB store of one VRF, named by the VRF.
//
// For every table T (a StoreTable): T() is the ordered collection (iteration, lowerBound,
// findNext, version), T(key) the entry or null, TIs(key, inputs...) the entry of the key,
// created from the inputs when absent. Calling TIs again with the same inputs returns the
// existing entry; with other inputs it throws Ent::Error, since an entry's inputs are
// immutable: to change one, delete the entry and create it again. TDel(key) and TDel(iterator)
// remove the entry and return it (null when absent); TDelAll() empties the table. Every insert
// and erase notifies the store's reactors with the table's attribute and the key.
//
// Route rows removed from ipMRouteTable or ipMcastRouteTable lose their back pointer to the
// store and read zero counters from then on. Removing an ipMcastRouteTable row leaves its
// next hops in place: the writer removes them, using the row's nextHopIndex set.
class PimMib : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId {
    attrPimInterfaceTable = 1,
    attrPimNeighborTable = 2,
    attrPimIpMrouteTable = 3,
    attrPimIpMrouteNextHopTable = 4,
    attrPimRPSetTable = 5,
    attrPimCandidateRPTable = 6,
    attrPimComponentTable = 7,
    attrIpMRouteTable = 8,
    attrIpMRouteNextHopTable = 9,
    attrIpMRouteInterfaceTable = 10,
    attrIpMcastRouteTable = 11,
    attrIpMcastRouteNextHopTable = 12,
    attrIpMcastInterfaceTable = 13,
    attrMfibConfig = 14,
  };

  using PimInterfaceTable = StoreTable<int32_t, PimInterfaceEntry>;
  using PimNeighborTable = StoreTable<Lanet::IpGenAddr, PimNeighborEntry>;
  using PimIpMrouteTable = StoreTable<PimIpMrouteEntryIndex, PimIpMrouteEntry>;
  using PimIpMrouteNextHopTable = StoreTable<PimIpMrouteNextHopEntryIndex, PimIpMrouteNextHopEntry>;
  using PimRPSetTable = StoreTable<PimRPSetEntryIndex, PimRPSetEntry>;
  using PimCandidateRPTable = StoreTable<PimCandidateRPEntryIndex, PimCandidateRPEntry>;
  using PimComponentTable = StoreTable<int32_t, PimComponentEntry>;
  using IpMRouteTable = StoreTable<PimIpMrouteEntryIndex, IpMRouteEntry>;
  using IpMRouteNextHopTable = StoreTable<PimIpMrouteNextHopEntryIndex, IpMRouteNextHopEntry>;
  using IpMRouteInterfaceTable = StoreTable<int32_t, IpMRouteInterfaceEntry>;
  using IpMcastRouteTable = StoreTable<IpMcastRouteEntryIndex, IpMcastRouteEntry>;
  using IpMcastRouteNextHopTable =
      StoreTable<IpMcastRouteNextHopEntryIndex, IpMcastRouteNextHopEntry>;
  using IpMcastInterfaceTable = StoreTable<IpMcastInterfaceEntryIndex, IpMcastInterfaceEntry>;
  using MfibConfig = Ent::HashColl<Lanet::AddressFamily, const Multicast::Fib::Config>;

  explicit PimMib(std::string name);
  std::string_view typeName() const override { return "Routing::Pim::Snmp::PimMib"; }

// T(), T(key), TDel(key), TDel(iterator) and TDelAll() of table member T_ of type Type.
#define PIMSNMP_STORE_TABLE(T, Type)                            \
  const Type& T() const {                                       \
    return T##_;                                                \
  }                                                             \
  Ent::Ptr<Type::value_type> T(const Type::key_type& k) const { \
    return T##_.find(k);                                        \
  }                                                             \
  Ent::Ptr<Type::value_type> T##Del(const Type::key_type& k) {  \
    return T##_.erase(k);                                       \
  }                                                             \
  Ent::Ptr<Type::value_type> T##Del(Type::const_iterator it) {  \
    return T##_.erase(it);                                      \
  }                                                             \
  void T##DelAll() {                                            \
    T##_.clear();                                               \
  }

  PIMSNMP_STORE_TABLE(pimInterfaceTable, PimInterfaceTable)
  Ent::Ptr<PimInterfaceEntry> pimInterfaceTableIs(int32_t ifIndex, Ent::Ptr<const Pim::Intf> intf,
                                                  Ent::Ptr<const Bsr::Status> bsrStatus) {
    return pimInterfaceTable_.is(ifIndex, intf, bsrStatus);
  }

  PIMSNMP_STORE_TABLE(pimNeighborTable, PimNeighborTable)
  Ent::Ptr<PimNeighborEntry> pimNeighborTableIs(const Lanet::IpGenAddr& address,
                                                Ent::Ptr<const Neighbor> neighbor) {
    return pimNeighborTable_.is(address, neighbor);
  }

  PIMSNMP_STORE_TABLE(pimIpMrouteTable, PimIpMrouteTable)
  Ent::Ptr<PimIpMrouteEntry> pimIpMrouteTableIs(const PimIpMrouteEntryIndex& index,
                                                Ent::Ptr<const SparseMode::Route> route) {
    return pimIpMrouteTable_.is(index, route);
  }

  PIMSNMP_STORE_TABLE(pimIpMrouteNextHopTable, PimIpMrouteNextHopTable)
  Ent::Ptr<PimIpMrouteNextHopEntry> pimIpMrouteNextHopTableIs(
      const PimIpMrouteNextHopEntryIndex& index, Ent::Ptr<const SparseMode::Intf> intf) {
    return pimIpMrouteNextHopTable_.is(index, intf);
  }

  PIMSNMP_STORE_TABLE(pimRPSetTable, PimRPSetTable)
  Ent::Ptr<PimRPSetEntry> pimRPSetTableIs(const PimRPSetEntryIndex& index, RpType rpType,
                                          Ent::Ptr<const RpCandidate> rp) {
    return pimRPSetTable_.is(index, rpType, rp);
  }

  PIMSNMP_STORE_TABLE(pimCandidateRPTable, PimCandidateRPTable)
  Ent::Ptr<PimCandidateRPEntry> pimCandidateRPTableIs(const PimCandidateRPEntryIndex& index,
                                                      Ent::Ptr<const RpCandidate> rp) {
    return pimCandidateRPTable_.is(index, rp);
  }

  PIMSNMP_STORE_TABLE(pimComponentTable, PimComponentTable)
  Ent::Ptr<PimComponentEntry> pimComponentTableIs(int32_t index,
                                                  Ent::Ptr<const Bsr::Status> bsrStatus,
                                                  Ent::Ptr<const Bsr::Config> bsrConfig) {
    return pimComponentTable_.is(index, bsrStatus, bsrConfig);
  }

  PIMSNMP_STORE_TABLE(ipMRouteTable, IpMRouteTable)
  Ent::Ptr<IpMRouteEntry> ipMRouteTableIs(Ent::Ptr<const SparseMode::Route> route,
                                          Ent::Ptr<const IntfSnmp::IfMib> ifMib,
                                          const PimIpMrouteEntryIndex& index) {
    return ipMRouteTable_.is(index, route, ifMib);
  }

  PIMSNMP_STORE_TABLE(ipMRouteNextHopTable, IpMRouteNextHopTable)
  Ent::Ptr<IpMRouteNextHopEntry> ipMRouteNextHopTableIs(NextHopState state,
                                                        const PimIpMrouteNextHopEntryIndex& index) {
    return ipMRouteNextHopTable_.is(index, state);
  }

  PIMSNMP_STORE_TABLE(ipMRouteInterfaceTable, IpMRouteInterfaceTable)
  Ent::Ptr<IpMRouteInterfaceEntry> ipMRouteInterfaceTableIs(int32_t ifIndex) {
    return ipMRouteInterfaceTable_.is(ifIndex);
  }

  PIMSNMP_STORE_TABLE(ipMcastRouteTable, IpMcastRouteTable)
  Ent::Ptr<IpMcastRouteEntry> ipMcastRouteTableIs(Ent::Ptr<const SparseMode::Route> route,
                                                  Ent::Ptr<const IntfSnmp::IfMib> ifMib,
                                                  const IpMcastRouteEntryIndex& index) {
    return ipMcastRouteTable_.is(index, route, ifMib);
  }

  PIMSNMP_STORE_TABLE(ipMcastRouteNextHopTable, IpMcastRouteNextHopTable)
  Ent::Ptr<IpMcastRouteNextHopEntry> ipMcastRouteNextHopTableIs(
      NextHopState state, const IpMcastRouteNextHopEntryIndex& index) {
    return ipMcastRouteNextHopTable_.is(index, state);
  }

  PIMSNMP_STORE_TABLE(ipMcastInterfaceTable, IpMcastInterfaceTable)
  Ent::Ptr<IpMcastInterfaceEntry> ipMcastInterfaceTableIs(const IpMcastInterfaceEntryIndex& index) {
    return ipMcastInterfaceTable_.is(index);
  }

#undef PIMSNMP_STORE_TABLE

  // The VRF's multicast-FIB configuration of each family; a null config removes the family.
  const MfibConfig& mfibConfig() const {
    return mfibConfig_;
  }
  Ent::Ptr<const Multicast::Fib::Config> mfibConfig(Lanet::AddressFamily af) const {
    return mfibConfig_.find(af);
  }
  void mfibConfigIs(Lanet::AddressFamily af, Ent::Ptr<const Multicast::Fib::Config> config) {
    mfibConfig_.set(af, std::move(config));
  }
  void mfibConfigDel(Lanet::AddressFamily af) {
    mfibConfig_.erase(af);
  }
  void mfibConfigDelAll() {
    mfibConfig_.clear();
  }

  // True when multicast routing is enabled for any family of the VRF.
  bool ipMcastEnabled() const;
  // Entry counts of ipMRouteTable and ipMcastRouteTable (ipMRouteEntryCount,
  // ipMcastRouteEntryCount).
  size_t ipMRouteTables() const {
    return ipMRouteTable_.size();
  }
  size_t ipMcastRouteTables() const {
    return ipMcastRouteTable_.size();
  }

 private:
  PimInterfaceTable pimInterfaceTable_;
  PimNeighborTable pimNeighborTable_;
  PimIpMrouteTable pimIpMrouteTable_;
  PimIpMrouteNextHopTable pimIpMrouteNextHopTable_;
  PimRPSetTable pimRPSetTable_;
  PimCandidateRPTable pimCandidateRPTable_;
  PimComponentTable pimComponentTable_;
  IpMRouteTable ipMRouteTable_;
  IpMRouteNextHopTable ipMRouteNextHopTable_;
  IpMRouteInterfaceTable ipMRouteInterfaceTable_;
  IpMcastRouteTable ipMcastRouteTable_;
  IpMcastRouteNextHopTable ipMcastRouteNextHopTable_;
  IpMcastInterfaceTable ipMcastInterfaceTable_;
  MfibConfig mfibConfig_;
};

// A new store named `name` with notification on.
Ent::Ptr<PimMib> pimMibFactory(const std::string& name);
Ent::Ptr<PimMib> PimMibIs(const std::string& name);

}  // namespace Routing::Pim::Snmp
