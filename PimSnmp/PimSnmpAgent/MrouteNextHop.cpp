// Next hops of a route and interface, the OIF index maps, and the multicast interface rows.

#include <cassert>

#include <fmt/format.h>

#include "PimSnmp/PimSnmpAgent/MrouteSm.h"
#include "platform/Routing/Pim/RouteKeyConversion.h"
#include "platform/Snmp/InetVersion.h"
#include "platform/Trace/Trace.h"

DEFAULT_TRACE_HANDLE("PimSnmpAgent")

namespace Routing::Pim::SnmpAgent {

using Snmp::IpMcastRouteEntry;
using Snmp::IpMcastRouteEntryIndex;
using Snmp::IpMcastRouteNextHopEntryIndex;
using Snmp::NextHopEntryIndexWithIntfId;
using Snmp::NextHopState;

int32_t MrouteSm::ifIndexOf(const Lanet::IntfId& intfId) const {
  if (!ifMib_ || intfId.empty()) return 0;
  return static_cast<int32_t>(ifMib_->ifIndexByIntfId(intfId));
}

// ---- IP-MCAST and IPMROUTE next hops

void MrouteSm::doUpdateIpMrouteNextHop(const RouteKey& key, const Lanet::IntfId& intfId) {
  const Ent::Ptr<const SparseMode::Route> route = routeStatus()->route(key);
  doUpdateIpMrouteNextHopWithRoutes(key, route.get(),
                                    mfibShtabStatus()->route(pimRouteKeyToMfibKey(key)), intfId);
}

void MrouteSm::doUpdateIpMrouteNextHopWithRoutes(const RouteKey& key,
                                                 const SparseMode::Route* route,
                                                 const FibRoute& fibRoute,
                                                 const Lanet::IntfId& intfId) {
  const Ent::Ptr<IpMcastRouteEntry> row =
      pimMib_->ipMcastRouteTable(IpMcastRouteEntryIndex::fromRouteKey(key));
  assert(row && "ipMcastRouteEntry");
  if (!row) {
    TRACE0("no ipMcastRouteEntry for {}", key);
    return;
  }
  nextHopUpdate(key, *row, route, fibRoute, intfId);
}

void MrouteSm::nextHopUpdate(const RouteKey& key, IpMcastRouteEntry& row,
                             const SparseMode::Route* route, const FibRoute& fibRoute,
                             const Lanet::IntfId& intfId) {
  if (!route) return nextHopRemove(key, row, intfId, "due to no route.");
  const OifIndex oif = intfIdToOifIndex(intfId);
  const bool oifPresent = oif.valid() && fibRoute.oif(oif);
  const bool hasState = route->routeIntf().contains(intfId);
  if (!fibRoute.empty()) {
    if (oifPresent) return nextHopAdd(key, row, intfId, Snmp::nhStateForwarding);
    if (hasState) return nextHopAdd(key, row, intfId, Snmp::nhStatePruned);
    return nextHopRemove(key, row, intfId, "due to no OIF in multicast FIB.");
  }
  if (!hasState) return nextHopRemove(key, row, intfId, "due to no (S,G,I) state.");
  nextHopAdd(key, row, intfId, Snmp::nhStatePruned);
}

std::optional<NextHopEntryIndexWithIntfId> MrouteSm::nextHopMember(const IpMcastRouteEntry& row,
                                                                   const RouteKey& key,
                                                                   const Lanet::IntfId& intfId,
                                                                   int32_t ifIndex) const {
  if (ifIndex != 0) {
    NextHopEntryIndexWithIntfId m(
        IpMcastRouteNextHopEntryIndex::fromRouteKeyAndIfIndex(key, ifIndex), intfId);
    if (row.nextHopIndexHas(m)) return m;
  }
  // Made under an ifIndex the interface no longer has: only a scan of the route's own next
  // hops finds it.
  for (NextHopEntryIndexWithIntfId m : row.nextHopIndex()) {
    if (m.intfId == intfId) return m;
  }
  return std::nullopt;
}

void MrouteSm::nextHopAdd(const RouteKey& key, IpMcastRouteEntry& row, const Lanet::IntfId& intfId,
                          NextHopState state) {
  const int32_t ifIndex = ifIndexOf(intfId);
  std::optional<NextHopEntryIndexWithIntfId> member = nextHopMember(row, key, intfId, ifIndex);
  if (member && member->mibIndex.ifIndex != ifIndex) {
    nextHopMemberRemove(key, row, *member, "due to ifIndex change.");
    member.reset();
  }
  // An interface without ifIndex has no place in an ifIndex-keyed table.
  if (ifIndex == 0) return;

  const bool v4 = af_ == Lanet::AddressFamily::ipv4;
  const IpMcastRouteNextHopEntryIndex index =
      IpMcastRouteNextHopEntryIndex::fromRouteKeyAndIfIndex(key, ifIndex);
  const Snmp::PimIpMrouteNextHopEntryIndex pimIndex =
      v4 ? Snmp::pimIpMrouteNextHopEntryIndexFromRouteKey(key, ifIndex)
         : Snmp::PimIpMrouteNextHopEntryIndex();
  // A route's next-hop rows are the ones its row lists as members (they are made and removed
  // together): with no member under this ifIndex, as for every next hop of a new route, there
  // is no row to look up.
  bool listed = member.has_value();
  for (auto it = row.nextHopIndex().begin(); !listed && it != row.nextHopIndex().end(); ++it) {
    listed = (*it).mibIndex.ifIndex == ifIndex;
  }
  const Ent::Ptr<Snmp::IpMcastRouteNextHopEntry> mcast =
      listed ? pimMib_->ipMcastRouteNextHopTable(index) : nullptr;
  const Ent::Ptr<Snmp::IpMRouteNextHopEntry> mroute =
      listed && v4 ? pimMib_->ipMRouteNextHopTable(pimIndex) : nullptr;
  if (member && mcast && mcast->state() == state && (!v4 || (mroute && mroute->state() == state))) {
    return;  // already in place: a repeated event changes nothing
  }

  TRACE8("Adding an entry to ipMcastRouteNextHopTable for {} and interface {}, state: {}", key,
         intfId, state);
  // Rows are immutable: a new state replaces the row.
  if (mcast && mcast->state() != state) pimMib_->ipMcastRouteNextHopTableDel(index);
  pimMib_->ipMcastRouteNextHopTableIs(state, index);
  if (!member) {
    row.nextHopIndexIs(NextHopEntryIndexWithIntfId(index, intfId));
    intfUse(ifIndex);
  }
  if (v4) {
    TRACE8("Adding an entry to ipMRouteNextHopTable for {} and interface {}, state: {}", key,
           intfId, state);
    if (mroute && mroute->state() != state) pimMib_->ipMRouteNextHopTableDel(pimIndex);
    pimMib_->ipMRouteNextHopTableIs(state, pimIndex);
  }
}

void MrouteSm::nextHopRemove(const RouteKey& key, IpMcastRouteEntry& row,
                             const Lanet::IntfId& intfId, std::string_view reason) {
  if (auto member = nextHopMember(row, key, intfId, ifIndexOf(intfId))) {
    nextHopMemberRemove(key, row, *member, reason);
  }
}

void MrouteSm::nextHopMemberRemove(const RouteKey& key, IpMcastRouteEntry& row,
                                   const NextHopEntryIndexWithIntfId& member,
                                   std::string_view reason) {
  const int32_t ifIndex = member.mibIndex.ifIndex;
  TRACE8("Removing an entry from ipMcastRouteNextHopTable for {} and interface {} {}", key,
         member.intfId, reason);
  pimMib_->ipMcastRouteNextHopTableDel(member.mibIndex);
  row.nextHopIndexDel(member);
  if (af_ == Lanet::AddressFamily::ipv4) {
    TRACE8("Removing an entry from ipMRouteNextHopTable for {} and interface {} {}", key,
           member.intfId, reason);
    pimMib_->ipMRouteNextHopTableDel(Snmp::pimIpMrouteNextHopEntryIndexFromRouteKey(key, ifIndex));
  }
  intfRelease(ifIndex);
}

// ---- PIM next hops

void MrouteSm::doUpdatePimIpMrouteNextHop(const RouteKey& key, const Lanet::IntfId& intfId) {
  if (af_ != Lanet::AddressFamily::ipv4) {
    TRACE8("not ipv4; nothing to do");
    return;
  }
  const Ent::Ptr<const SparseMode::Route> route = routeStatus()->route(key);
  pimNextHopUpdate(key, route.get(), intfId);
}

void MrouteSm::pimNextHopUpdate(const RouteKey& key, const SparseMode::Route* route,
                                const Lanet::IntfId& intfId) {
  if (af_ != Lanet::AddressFamily::ipv4) {
    TRACE8("not ipv4; nothing to do");
    return;
  }
  const int32_t ifIndex = ifIndexOf(intfId);
  const Snmp::PimIpMrouteNextHopEntryIndex index =
      Snmp::pimIpMrouteNextHopEntryIndexFromRouteKey(key, ifIndex);
  const Ent::Ptr<Snmp::PimIpMrouteNextHopEntry> row = pimMib_->pimIpMrouteNextHopTable(index);
  if (!route) {
    if (row) {
      TRACE8("Removing an entry from pimIpMrouteNextHopTable for {} due to no route", index);
      pimMib_->pimIpMrouteNextHopTableDel(index);
    }
    return;
  }
  const Ent::Ptr<const SparseMode::Intf> intf = route->routeIntf(intfId);
  if (!intf) {
    if (row) {
      TRACE8("Removing an entry from pimIpMrouteNextHopTable for {} due to no interface {}", index,
             intfId);
      pimMib_->pimIpMrouteNextHopTableDel(index);
    }
    return;
  }
  if (ifIndex != 0 && intf->rptState() == SparseMode::rptStateNoInfo && intf->forward()) {
    if (row && row->intf() == intf) return;  // already in place
    TRACE8("Adding an entry to pimIpMrouteNextHopTable for {}", index);
    // The row keeps its interface record: a new record replaces the row.
    if (row) pimMib_->pimIpMrouteNextHopTableDel(index);
    pimMib_->pimIpMrouteNextHopTableIs(index, intf);
    return;
  }
  if (row) {
    TRACE8("Removing an entry from pimIpMrouteNextHopTable for {}", index);
    pimMib_->pimIpMrouteNextHopTableDel(index);
  }
}

// ---- OIF index maps

void MrouteSm::handleOifIndexIntf(OifIndex oifIndex) {
  TRACE8("oifIndex={}", oifIndex);
  const Lanet::IntfId intfId = mfibShtabStatus()->oifIndexIntf(oifIndex);
  const Lanet::IntfId old = oifIndexToIntfId(oifIndex);
  // The reverse entry of the old interface goes only if it still points here.
  if (!old.empty() && old != intfId && intfIdToOifIndex(old) == oifIndex) {
    intfIdToOifIndex_.erase(old);
  }
  if (!intfId.empty()) {
    TRACE8("Add mapping {} => {}", oifIndex, intfId);
    oifIndexToIntfId_.set(oifIndex, intfId);
    intfIdToOifIndex_.set(intfId, oifIndex);
  } else {
    TRACE8("Remove mapping {} => {}", oifIndex, old);
    oifIndexToIntfId_.erase(oifIndex);
  }
}

void MrouteSm::handleOifIndexIntf() {
  TRACE8("af {}, vrf {}", af_, routeStatus()->vrfName());
  oifIndexToIntfId_.clear();
  intfIdToOifIndex_.clear();
  for (const auto& [oifIndex, intfId] : mfibShtabStatus()->oifIndexIntf()) {
    if (intfId.empty()) continue;
    oifIndexToIntfId_.set(oifIndex, intfId);
    intfIdToOifIndex_.set(intfId, oifIndex);
  }
}

// ---- multicast interface rows

uint32_t MrouteSm::intfUseCount(int32_t ifIndex) const {
  auto it = intfUseCount_.find(ifIndex);
  return it == intfUseCount_.end() ? 0 : it->second;
}

void MrouteSm::intfUse(int32_t ifIndex) {
  if (ifIndex == 0) return;
  if (++intfUseCount_[ifIndex] != 1) return;
  TRACE8("Add interface entry for ifIndex {}", ifIndex);
  pimMib_->ipMcastInterfaceTableIs(
      Snmp::IpMcastInterfaceEntryIndex(::Snmp::inetVersion(af_), ifIndex));
  if (af_ == Lanet::AddressFamily::ipv4) pimMib_->ipMRouteInterfaceTableIs(ifIndex);
}

void MrouteSm::intfRelease(int32_t ifIndex) {
  auto it = intfUseCount_.find(ifIndex);
  if (it == intfUseCount_.end()) return;
  if (--it->second != 0) return;
  intfUseCount_.erase(it);
  TRACE8("Remove interface entry for ifIndex {}", ifIndex);
  pimMib_->ipMcastInterfaceTableDel(
      Snmp::IpMcastInterfaceEntryIndex(::Snmp::inetVersion(af_), ifIndex));
  if (af_ == Lanet::AddressFamily::ipv4) pimMib_->ipMRouteInterfaceTableDel(ifIndex);
}

}  // namespace Routing::Pim::SnmpAgent
