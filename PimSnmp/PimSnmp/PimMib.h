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
// For every table T: T() is the ordered collection (iteration, lowerBound, findNext, version),
// T(key) the entry or null, TIs(key, inputs...) the entry of the key, created from the inputs
// when absent. Calling TIs again with the same inputs returns the existing entry; with other
// inputs it throws Ent::Error, since an entry's inputs are immutable: to change one, delete the
// entry and create it again. TDel(key) and TDel(iterator) remove the entry and return it (null
// when absent); TDelAll() empties the table. Every insert and erase notifies the store's
// reactors with the table's attribute and the key.
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

  using PimInterfaceTable = Ent::OrderedColl<int32_t, PimInterfaceEntry>;
  using PimNeighborTable = Ent::OrderedColl<Lanet::IpGenAddr, PimNeighborEntry>;
  using PimIpMrouteTable = Ent::OrderedColl<PimIpMrouteEntryIndex, PimIpMrouteEntry>;
  using PimIpMrouteNextHopTable =
      Ent::OrderedColl<PimIpMrouteNextHopEntryIndex, PimIpMrouteNextHopEntry>;
  using PimRPSetTable = Ent::OrderedColl<PimRPSetEntryIndex, PimRPSetEntry>;
  using PimCandidateRPTable = Ent::OrderedColl<PimCandidateRPEntryIndex, PimCandidateRPEntry>;
  using PimComponentTable = Ent::OrderedColl<int32_t, PimComponentEntry>;
  using IpMRouteTable = Ent::OrderedColl<PimIpMrouteEntryIndex, IpMRouteEntry>;
  using IpMRouteNextHopTable = Ent::OrderedColl<PimIpMrouteNextHopEntryIndex, IpMRouteNextHopEntry>;
  using IpMRouteInterfaceTable = Ent::OrderedColl<int32_t, IpMRouteInterfaceEntry>;
  using IpMcastRouteTable = Ent::OrderedColl<IpMcastRouteEntryIndex, IpMcastRouteEntry>;
  using IpMcastRouteNextHopTable =
      Ent::OrderedColl<IpMcastRouteNextHopEntryIndex, IpMcastRouteNextHopEntry>;
  using IpMcastInterfaceTable = Ent::OrderedColl<IpMcastInterfaceEntryIndex, IpMcastInterfaceEntry>;
  using MfibConfig = Ent::HashColl<Lanet::AddressFamily, const Multicast::Fib::Config>;

  explicit PimMib(std::string name);
  ~PimMib() override;
  std::string_view typeName() const override { return "Routing::Pim::Snmp::PimMib"; }

  const PimInterfaceTable& pimInterfaceTable() const { return pimInterfaceTable_; }
  Ent::Ptr<PimInterfaceEntry> pimInterfaceTable(int32_t k) const {
    return pimInterfaceTable_.find(k);
  }
  Ent::Ptr<PimInterfaceEntry> pimInterfaceTableIs(int32_t ifIndex, Ent::Ptr<const Pim::Intf> intf,
                                                  Ent::Ptr<const Bsr::Status> bsrStatus);
  Ent::Ptr<PimInterfaceEntry> pimInterfaceTableDel(int32_t k);
  Ent::Ptr<PimInterfaceEntry> pimInterfaceTableDel(PimInterfaceTable::const_iterator it);
  void pimInterfaceTableDelAll();

  const PimNeighborTable& pimNeighborTable() const { return pimNeighborTable_; }
  Ent::Ptr<PimNeighborEntry> pimNeighborTable(const Lanet::IpGenAddr& k) const {
    return pimNeighborTable_.find(k);
  }
  Ent::Ptr<PimNeighborEntry> pimNeighborTableIs(const Lanet::IpGenAddr& address,
                                                Ent::Ptr<const Neighbor> neighbor);
  Ent::Ptr<PimNeighborEntry> pimNeighborTableDel(const Lanet::IpGenAddr& k);
  Ent::Ptr<PimNeighborEntry> pimNeighborTableDel(PimNeighborTable::const_iterator it);
  void pimNeighborTableDelAll();

  const PimIpMrouteTable& pimIpMrouteTable() const { return pimIpMrouteTable_; }
  Ent::Ptr<PimIpMrouteEntry> pimIpMrouteTable(const PimIpMrouteEntryIndex& k) const {
    return pimIpMrouteTable_.find(k);
  }
  Ent::Ptr<PimIpMrouteEntry> pimIpMrouteTableIs(const PimIpMrouteEntryIndex& index,
                                                Ent::Ptr<const SparseMode::Route> route);
  Ent::Ptr<PimIpMrouteEntry> pimIpMrouteTableDel(const PimIpMrouteEntryIndex& k);
  Ent::Ptr<PimIpMrouteEntry> pimIpMrouteTableDel(PimIpMrouteTable::const_iterator it);
  void pimIpMrouteTableDelAll();

  const PimIpMrouteNextHopTable& pimIpMrouteNextHopTable() const {
    return pimIpMrouteNextHopTable_;
  }
  Ent::Ptr<PimIpMrouteNextHopEntry> pimIpMrouteNextHopTable(
      const PimIpMrouteNextHopEntryIndex& k) const {
    return pimIpMrouteNextHopTable_.find(k);
  }
  Ent::Ptr<PimIpMrouteNextHopEntry> pimIpMrouteNextHopTableIs(
      const PimIpMrouteNextHopEntryIndex& index, Ent::Ptr<const SparseMode::Intf> intf);
  Ent::Ptr<PimIpMrouteNextHopEntry> pimIpMrouteNextHopTableDel(
      const PimIpMrouteNextHopEntryIndex& k);
  Ent::Ptr<PimIpMrouteNextHopEntry> pimIpMrouteNextHopTableDel(
      PimIpMrouteNextHopTable::const_iterator it);
  void pimIpMrouteNextHopTableDelAll();

  const PimRPSetTable& pimRPSetTable() const { return pimRPSetTable_; }
  Ent::Ptr<PimRPSetEntry> pimRPSetTable(const PimRPSetEntryIndex& k) const {
    return pimRPSetTable_.find(k);
  }
  Ent::Ptr<PimRPSetEntry> pimRPSetTableIs(const PimRPSetEntryIndex& index, RpType rpType,
                                          Ent::Ptr<const RpCandidate> rp);
  Ent::Ptr<PimRPSetEntry> pimRPSetTableDel(const PimRPSetEntryIndex& k);
  Ent::Ptr<PimRPSetEntry> pimRPSetTableDel(PimRPSetTable::const_iterator it);
  void pimRPSetTableDelAll();

  const PimCandidateRPTable& pimCandidateRPTable() const { return pimCandidateRPTable_; }
  Ent::Ptr<PimCandidateRPEntry> pimCandidateRPTable(const PimCandidateRPEntryIndex& k) const {
    return pimCandidateRPTable_.find(k);
  }
  Ent::Ptr<PimCandidateRPEntry> pimCandidateRPTableIs(const PimCandidateRPEntryIndex& index,
                                                      Ent::Ptr<const RpCandidate> rp);
  Ent::Ptr<PimCandidateRPEntry> pimCandidateRPTableDel(const PimCandidateRPEntryIndex& k);
  Ent::Ptr<PimCandidateRPEntry> pimCandidateRPTableDel(PimCandidateRPTable::const_iterator it);
  void pimCandidateRPTableDelAll();

  const PimComponentTable& pimComponentTable() const { return pimComponentTable_; }
  Ent::Ptr<PimComponentEntry> pimComponentTable(int32_t k) const {
    return pimComponentTable_.find(k);
  }
  Ent::Ptr<PimComponentEntry> pimComponentTableIs(int32_t index,
                                                  Ent::Ptr<const Bsr::Status> bsrStatus,
                                                  Ent::Ptr<const Bsr::Config> bsrConfig);
  Ent::Ptr<PimComponentEntry> pimComponentTableDel(int32_t k);
  Ent::Ptr<PimComponentEntry> pimComponentTableDel(PimComponentTable::const_iterator it);
  void pimComponentTableDelAll();

  const IpMRouteTable& ipMRouteTable() const { return ipMRouteTable_; }
  Ent::Ptr<IpMRouteEntry> ipMRouteTable(const PimIpMrouteEntryIndex& k) const {
    return ipMRouteTable_.find(k);
  }
  Ent::Ptr<IpMRouteEntry> ipMRouteTableIs(Ent::Ptr<const SparseMode::Route> route,
                                          Ent::Ptr<const IntfSnmp::IfMib> ifMib,
                                          const PimIpMrouteEntryIndex& index);
  Ent::Ptr<IpMRouteEntry> ipMRouteTableDel(const PimIpMrouteEntryIndex& k);
  Ent::Ptr<IpMRouteEntry> ipMRouteTableDel(IpMRouteTable::const_iterator it);
  void ipMRouteTableDelAll();

  const IpMRouteNextHopTable& ipMRouteNextHopTable() const { return ipMRouteNextHopTable_; }
  Ent::Ptr<IpMRouteNextHopEntry> ipMRouteNextHopTable(const PimIpMrouteNextHopEntryIndex& k) const {
    return ipMRouteNextHopTable_.find(k);
  }
  Ent::Ptr<IpMRouteNextHopEntry> ipMRouteNextHopTableIs(NextHopState state,
                                                        const PimIpMrouteNextHopEntryIndex& index);
  Ent::Ptr<IpMRouteNextHopEntry> ipMRouteNextHopTableDel(const PimIpMrouteNextHopEntryIndex& k);
  Ent::Ptr<IpMRouteNextHopEntry> ipMRouteNextHopTableDel(IpMRouteNextHopTable::const_iterator it);
  void ipMRouteNextHopTableDelAll();

  const IpMRouteInterfaceTable& ipMRouteInterfaceTable() const { return ipMRouteInterfaceTable_; }
  Ent::Ptr<IpMRouteInterfaceEntry> ipMRouteInterfaceTable(int32_t k) const {
    return ipMRouteInterfaceTable_.find(k);
  }
  Ent::Ptr<IpMRouteInterfaceEntry> ipMRouteInterfaceTableIs(int32_t ifIndex);
  Ent::Ptr<IpMRouteInterfaceEntry> ipMRouteInterfaceTableDel(int32_t k);
  Ent::Ptr<IpMRouteInterfaceEntry> ipMRouteInterfaceTableDel(
      IpMRouteInterfaceTable::const_iterator it);
  void ipMRouteInterfaceTableDelAll();

  const IpMcastRouteTable& ipMcastRouteTable() const { return ipMcastRouteTable_; }
  Ent::Ptr<IpMcastRouteEntry> ipMcastRouteTable(const IpMcastRouteEntryIndex& k) const {
    return ipMcastRouteTable_.find(k);
  }
  Ent::Ptr<IpMcastRouteEntry> ipMcastRouteTableIs(Ent::Ptr<const SparseMode::Route> route,
                                                  Ent::Ptr<const IntfSnmp::IfMib> ifMib,
                                                  const IpMcastRouteEntryIndex& index);
  Ent::Ptr<IpMcastRouteEntry> ipMcastRouteTableDel(const IpMcastRouteEntryIndex& k);
  Ent::Ptr<IpMcastRouteEntry> ipMcastRouteTableDel(IpMcastRouteTable::const_iterator it);
  void ipMcastRouteTableDelAll();

  const IpMcastRouteNextHopTable& ipMcastRouteNextHopTable() const {
    return ipMcastRouteNextHopTable_;
  }
  Ent::Ptr<IpMcastRouteNextHopEntry> ipMcastRouteNextHopTable(
      const IpMcastRouteNextHopEntryIndex& k) const {
    return ipMcastRouteNextHopTable_.find(k);
  }
  Ent::Ptr<IpMcastRouteNextHopEntry> ipMcastRouteNextHopTableIs(
      NextHopState state, const IpMcastRouteNextHopEntryIndex& index);
  Ent::Ptr<IpMcastRouteNextHopEntry> ipMcastRouteNextHopTableDel(
      const IpMcastRouteNextHopEntryIndex& k);
  Ent::Ptr<IpMcastRouteNextHopEntry> ipMcastRouteNextHopTableDel(
      IpMcastRouteNextHopTable::const_iterator it);
  void ipMcastRouteNextHopTableDelAll();

  const IpMcastInterfaceTable& ipMcastInterfaceTable() const { return ipMcastInterfaceTable_; }
  Ent::Ptr<IpMcastInterfaceEntry> ipMcastInterfaceTable(const IpMcastInterfaceEntryIndex& k) const {
    return ipMcastInterfaceTable_.find(k);
  }
  Ent::Ptr<IpMcastInterfaceEntry> ipMcastInterfaceTableIs(const IpMcastInterfaceEntryIndex& index);
  Ent::Ptr<IpMcastInterfaceEntry> ipMcastInterfaceTableDel(const IpMcastInterfaceEntryIndex& k);
  Ent::Ptr<IpMcastInterfaceEntry> ipMcastInterfaceTableDel(
      IpMcastInterfaceTable::const_iterator it);
  void ipMcastInterfaceTableDelAll();

  // The VRF's multicast-FIB configuration of each family; a null config removes the family.
  const MfibConfig& mfibConfig() const { return mfibConfig_; }
  Ent::Ptr<const Multicast::Fib::Config> mfibConfig(Lanet::AddressFamily af) const {
    return mfibConfig_.find(af);
  }
  void mfibConfigIs(Lanet::AddressFamily af, Ent::Ptr<const Multicast::Fib::Config> config) {
    mfibConfig_.set(af, std::move(config));
  }
  void mfibConfigDel(Lanet::AddressFamily af) { mfibConfig_.erase(af); }
  void mfibConfigDelAll() { mfibConfig_.clear(); }

  // True when multicast routing is enabled for any family of the VRF.
  bool ipMcastEnabled() const;
  // Entry counts of ipMRouteTable and ipMcastRouteTable (ipMRouteEntryCount,
  // ipMcastRouteEntryCount).
  size_t ipMRouteTables() const { return ipMRouteTable_.size(); }
  size_t ipMcastRouteTables() const { return ipMcastRouteTable_.size(); }

 private:
  template <class K>
  [[noreturn]] static void throwConflict(std::string_view table, const K& key);
  template <class E>
  static Ent::Ptr<E> detached(Ent::Ptr<E> e) {
    if (e) e->pimMibIs(nullptr);
    return e;
  }

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
