#include "PimSnmp/PimSnmp/PimMib.h"

#include <utility>

#include <fmt/format.h>

#include "platform/Ent/Error.h"

namespace Routing::Pim::Snmp {

PimMib::PimMib(std::string name)
    : Ent::Entity(std::move(name)),
      pimInterfaceTable_(this, attrPimInterfaceTable),
      pimNeighborTable_(this, attrPimNeighborTable),
      pimIpMrouteTable_(this, attrPimIpMrouteTable),
      pimIpMrouteNextHopTable_(this, attrPimIpMrouteNextHopTable),
      pimRPSetTable_(this, attrPimRPSetTable),
      pimCandidateRPTable_(this, attrPimCandidateRPTable),
      pimComponentTable_(this, attrPimComponentTable),
      ipMRouteTable_(this, attrIpMRouteTable),
      ipMRouteNextHopTable_(this, attrIpMRouteNextHopTable),
      ipMRouteInterfaceTable_(this, attrIpMRouteInterfaceTable),
      ipMcastRouteTable_(this, attrIpMcastRouteTable),
      ipMcastRouteNextHopTable_(this, attrIpMcastRouteNextHopTable),
      ipMcastInterfaceTable_(this, attrIpMcastInterfaceTable),
      mfibConfig_(this, attrMfibConfig) {}

PimMib::~PimMib() {
  // Rows may outlive the store in a caller's hands: they must not reach back into it.
  for (const auto& e : ipMRouteTable_) e->pimMibIs(nullptr);
  for (const auto& e : ipMcastRouteTable_) e->pimMibIs(nullptr);
}

template <class K>
void PimMib::throwConflict(std::string_view table, const K& key) {
  throw Ent::Error(fmt::format("{}: entry {} exists with other values", table, key));
}

bool PimMib::ipMcastEnabled() const {
  for (const auto& [af, config] : mfibConfig_) {
    if (config && config->routing()) return true;
  }
  return false;
}

Ent::Ptr<PimInterfaceEntry> PimMib::pimInterfaceTableIs(int32_t ifIndex,
                                                        Ent::Ptr<const Pim::Intf> intf,
                                                        Ent::Ptr<const Bsr::Status> bsrStatus) {
  auto [e, inserted] = pimInterfaceTable_.findOrInsert(
      ifIndex, [&] { return Ent::make<PimInterfaceEntry>(ifIndex, intf, bsrStatus); });
  if (!inserted && !(e->intf() == intf && e->bsrStatus() == bsrStatus))
    throwConflict("pimInterfaceTable", ifIndex);
  return e;
}

Ent::Ptr<PimInterfaceEntry> PimMib::pimInterfaceTableDel(int32_t k) {
  return pimInterfaceTable_.erase(k);
}

Ent::Ptr<PimInterfaceEntry> PimMib::pimInterfaceTableDel(PimInterfaceTable::const_iterator it) {
  return pimInterfaceTable_.erase(it);
}

void PimMib::pimInterfaceTableDelAll() {
  while (!pimInterfaceTable_.empty()) pimInterfaceTableDel(pimInterfaceTable_.begin());
}

Ent::Ptr<PimNeighborEntry> PimMib::pimNeighborTableIs(const Lanet::IpGenAddr& address,
                                                      Ent::Ptr<const Neighbor> neighbor) {
  auto [e, inserted] = pimNeighborTable_.findOrInsert(
      address, [&] { return Ent::make<PimNeighborEntry>(address, neighbor); });
  if (!inserted && !(e->neighbor() == neighbor)) throwConflict("pimNeighborTable", address);
  return e;
}

Ent::Ptr<PimNeighborEntry> PimMib::pimNeighborTableDel(const Lanet::IpGenAddr& k) {
  return pimNeighborTable_.erase(k);
}

Ent::Ptr<PimNeighborEntry> PimMib::pimNeighborTableDel(PimNeighborTable::const_iterator it) {
  return pimNeighborTable_.erase(it);
}

void PimMib::pimNeighborTableDelAll() {
  while (!pimNeighborTable_.empty()) pimNeighborTableDel(pimNeighborTable_.begin());
}

Ent::Ptr<PimIpMrouteEntry> PimMib::pimIpMrouteTableIs(const PimIpMrouteEntryIndex& index,
                                                      Ent::Ptr<const SparseMode::Route> route) {
  auto [e, inserted] = pimIpMrouteTable_.findOrInsert(
      index, [&] { return Ent::make<PimIpMrouteEntry>(index, route); });
  if (!inserted && !(e->route() == route)) throwConflict("pimIpMrouteTable", index);
  return e;
}

Ent::Ptr<PimIpMrouteEntry> PimMib::pimIpMrouteTableDel(const PimIpMrouteEntryIndex& k) {
  return pimIpMrouteTable_.erase(k);
}

Ent::Ptr<PimIpMrouteEntry> PimMib::pimIpMrouteTableDel(PimIpMrouteTable::const_iterator it) {
  return pimIpMrouteTable_.erase(it);
}

void PimMib::pimIpMrouteTableDelAll() {
  while (!pimIpMrouteTable_.empty()) pimIpMrouteTableDel(pimIpMrouteTable_.begin());
}

Ent::Ptr<PimIpMrouteNextHopEntry> PimMib::pimIpMrouteNextHopTableIs(
    const PimIpMrouteNextHopEntryIndex& index, Ent::Ptr<const SparseMode::Intf> intf) {
  auto [e, inserted] = pimIpMrouteNextHopTable_.findOrInsert(
      index, [&] { return Ent::make<PimIpMrouteNextHopEntry>(index, intf); });
  if (!inserted && !(e->intf() == intf)) throwConflict("pimIpMrouteNextHopTable", index);
  return e;
}

Ent::Ptr<PimIpMrouteNextHopEntry> PimMib::pimIpMrouteNextHopTableDel(
    const PimIpMrouteNextHopEntryIndex& k) {
  return pimIpMrouteNextHopTable_.erase(k);
}

Ent::Ptr<PimIpMrouteNextHopEntry> PimMib::pimIpMrouteNextHopTableDel(
    PimIpMrouteNextHopTable::const_iterator it) {
  return pimIpMrouteNextHopTable_.erase(it);
}

void PimMib::pimIpMrouteNextHopTableDelAll() {
  while (!pimIpMrouteNextHopTable_.empty())
    pimIpMrouteNextHopTableDel(pimIpMrouteNextHopTable_.begin());
}

Ent::Ptr<PimRPSetEntry> PimMib::pimRPSetTableIs(const PimRPSetEntryIndex& index, RpType rpType,
                                                Ent::Ptr<const RpCandidate> rp) {
  auto [e, inserted] = pimRPSetTable_.findOrInsert(
      index, [&] { return Ent::make<PimRPSetEntry>(index, rpType, rp); });
  if (!inserted && !(e->rpType() == rpType && e->rp() == rp)) throwConflict("pimRPSetTable", index);
  return e;
}

Ent::Ptr<PimRPSetEntry> PimMib::pimRPSetTableDel(const PimRPSetEntryIndex& k) {
  return pimRPSetTable_.erase(k);
}

Ent::Ptr<PimRPSetEntry> PimMib::pimRPSetTableDel(PimRPSetTable::const_iterator it) {
  return pimRPSetTable_.erase(it);
}

void PimMib::pimRPSetTableDelAll() {
  while (!pimRPSetTable_.empty()) pimRPSetTableDel(pimRPSetTable_.begin());
}

Ent::Ptr<PimCandidateRPEntry> PimMib::pimCandidateRPTableIs(const PimCandidateRPEntryIndex& index,
                                                            Ent::Ptr<const RpCandidate> rp) {
  auto [e, inserted] = pimCandidateRPTable_.findOrInsert(
      index, [&] { return Ent::make<PimCandidateRPEntry>(index, rp); });
  if (!inserted && !(e->rp() == rp)) throwConflict("pimCandidateRPTable", index);
  return e;
}

Ent::Ptr<PimCandidateRPEntry> PimMib::pimCandidateRPTableDel(const PimCandidateRPEntryIndex& k) {
  return pimCandidateRPTable_.erase(k);
}

Ent::Ptr<PimCandidateRPEntry> PimMib::pimCandidateRPTableDel(
    PimCandidateRPTable::const_iterator it) {
  return pimCandidateRPTable_.erase(it);
}

void PimMib::pimCandidateRPTableDelAll() {
  while (!pimCandidateRPTable_.empty()) pimCandidateRPTableDel(pimCandidateRPTable_.begin());
}

Ent::Ptr<PimComponentEntry> PimMib::pimComponentTableIs(int32_t index,
                                                        Ent::Ptr<const Bsr::Status> bsrStatus,
                                                        Ent::Ptr<const Bsr::Config> bsrConfig) {
  auto [e, inserted] = pimComponentTable_.findOrInsert(
      index, [&] { return Ent::make<PimComponentEntry>(index, bsrStatus, bsrConfig); });
  if (!inserted && !(e->bsrStatus() == bsrStatus && e->bsrConfig() == bsrConfig))
    throwConflict("pimComponentTable", index);
  return e;
}

Ent::Ptr<PimComponentEntry> PimMib::pimComponentTableDel(int32_t k) {
  return pimComponentTable_.erase(k);
}

Ent::Ptr<PimComponentEntry> PimMib::pimComponentTableDel(PimComponentTable::const_iterator it) {
  return pimComponentTable_.erase(it);
}

void PimMib::pimComponentTableDelAll() {
  while (!pimComponentTable_.empty()) pimComponentTableDel(pimComponentTable_.begin());
}

Ent::Ptr<IpMRouteEntry> PimMib::ipMRouteTableIs(Ent::Ptr<const SparseMode::Route> route,
                                                Ent::Ptr<const IntfSnmp::IfMib> ifMib,
                                                const PimIpMrouteEntryIndex& index) {
  auto [e, inserted] = ipMRouteTable_.findOrInsert(
      index, [&] { return Ent::make<IpMRouteEntry>(route, ifMib, this, index); });
  if (!inserted && !(e->route() == route && e->ifMib() == ifMib))
    throwConflict("ipMRouteTable", index);
  return e;
}

Ent::Ptr<IpMRouteEntry> PimMib::ipMRouteTableDel(const PimIpMrouteEntryIndex& k) {
  return detached(ipMRouteTable_.erase(k));
}

Ent::Ptr<IpMRouteEntry> PimMib::ipMRouteTableDel(IpMRouteTable::const_iterator it) {
  return detached(ipMRouteTable_.erase(it));
}

void PimMib::ipMRouteTableDelAll() {
  while (!ipMRouteTable_.empty()) ipMRouteTableDel(ipMRouteTable_.begin());
}

Ent::Ptr<IpMRouteNextHopEntry> PimMib::ipMRouteNextHopTableIs(
    NextHopState state, const PimIpMrouteNextHopEntryIndex& index) {
  auto [e, inserted] = ipMRouteNextHopTable_.findOrInsert(
      index, [&] { return Ent::make<IpMRouteNextHopEntry>(state, index); });
  if (!inserted && !(e->state() == state)) throwConflict("ipMRouteNextHopTable", index);
  return e;
}

Ent::Ptr<IpMRouteNextHopEntry> PimMib::ipMRouteNextHopTableDel(
    const PimIpMrouteNextHopEntryIndex& k) {
  return ipMRouteNextHopTable_.erase(k);
}

Ent::Ptr<IpMRouteNextHopEntry> PimMib::ipMRouteNextHopTableDel(
    IpMRouteNextHopTable::const_iterator it) {
  return ipMRouteNextHopTable_.erase(it);
}

void PimMib::ipMRouteNextHopTableDelAll() {
  while (!ipMRouteNextHopTable_.empty()) ipMRouteNextHopTableDel(ipMRouteNextHopTable_.begin());
}

Ent::Ptr<IpMRouteInterfaceEntry> PimMib::ipMRouteInterfaceTableIs(int32_t ifIndex) {
  auto [e, inserted] = ipMRouteInterfaceTable_.findOrInsert(
      ifIndex, [&] { return Ent::make<IpMRouteInterfaceEntry>(ifIndex); });
  return e;
}

Ent::Ptr<IpMRouteInterfaceEntry> PimMib::ipMRouteInterfaceTableDel(int32_t k) {
  return ipMRouteInterfaceTable_.erase(k);
}

Ent::Ptr<IpMRouteInterfaceEntry> PimMib::ipMRouteInterfaceTableDel(
    IpMRouteInterfaceTable::const_iterator it) {
  return ipMRouteInterfaceTable_.erase(it);
}

void PimMib::ipMRouteInterfaceTableDelAll() {
  while (!ipMRouteInterfaceTable_.empty())
    ipMRouteInterfaceTableDel(ipMRouteInterfaceTable_.begin());
}

Ent::Ptr<IpMcastRouteEntry> PimMib::ipMcastRouteTableIs(Ent::Ptr<const SparseMode::Route> route,
                                                        Ent::Ptr<const IntfSnmp::IfMib> ifMib,
                                                        const IpMcastRouteEntryIndex& index) {
  auto [e, inserted] = ipMcastRouteTable_.findOrInsert(
      index, [&] { return Ent::make<IpMcastRouteEntry>(route, ifMib, this, index); });
  if (!inserted && !(e->route() == route && e->ifMib() == ifMib))
    throwConflict("ipMcastRouteTable", index);
  return e;
}

Ent::Ptr<IpMcastRouteEntry> PimMib::ipMcastRouteTableDel(const IpMcastRouteEntryIndex& k) {
  return detached(ipMcastRouteTable_.erase(k));
}

Ent::Ptr<IpMcastRouteEntry> PimMib::ipMcastRouteTableDel(IpMcastRouteTable::const_iterator it) {
  return detached(ipMcastRouteTable_.erase(it));
}

void PimMib::ipMcastRouteTableDelAll() {
  while (!ipMcastRouteTable_.empty()) ipMcastRouteTableDel(ipMcastRouteTable_.begin());
}

Ent::Ptr<IpMcastRouteNextHopEntry> PimMib::ipMcastRouteNextHopTableIs(
    NextHopState state, const IpMcastRouteNextHopEntryIndex& index) {
  auto [e, inserted] = ipMcastRouteNextHopTable_.findOrInsert(
      index, [&] { return Ent::make<IpMcastRouteNextHopEntry>(state, index); });
  if (!inserted && !(e->state() == state)) throwConflict("ipMcastRouteNextHopTable", index);
  return e;
}

Ent::Ptr<IpMcastRouteNextHopEntry> PimMib::ipMcastRouteNextHopTableDel(
    const IpMcastRouteNextHopEntryIndex& k) {
  return ipMcastRouteNextHopTable_.erase(k);
}

Ent::Ptr<IpMcastRouteNextHopEntry> PimMib::ipMcastRouteNextHopTableDel(
    IpMcastRouteNextHopTable::const_iterator it) {
  return ipMcastRouteNextHopTable_.erase(it);
}

void PimMib::ipMcastRouteNextHopTableDelAll() {
  while (!ipMcastRouteNextHopTable_.empty())
    ipMcastRouteNextHopTableDel(ipMcastRouteNextHopTable_.begin());
}

Ent::Ptr<IpMcastInterfaceEntry> PimMib::ipMcastInterfaceTableIs(
    const IpMcastInterfaceEntryIndex& index) {
  auto [e, inserted] = ipMcastInterfaceTable_.findOrInsert(
      index, [&] { return Ent::make<IpMcastInterfaceEntry>(index); });
  return e;
}

Ent::Ptr<IpMcastInterfaceEntry> PimMib::ipMcastInterfaceTableDel(
    const IpMcastInterfaceEntryIndex& k) {
  return ipMcastInterfaceTable_.erase(k);
}

Ent::Ptr<IpMcastInterfaceEntry> PimMib::ipMcastInterfaceTableDel(
    IpMcastInterfaceTable::const_iterator it) {
  return ipMcastInterfaceTable_.erase(it);
}

void PimMib::ipMcastInterfaceTableDelAll() {
  while (!ipMcastInterfaceTable_.empty()) ipMcastInterfaceTableDel(ipMcastInterfaceTable_.begin());
}

Ent::Ptr<PimMib> pimMibFactory(const std::string& name) {
  Ent::Ptr<PimMib> mib = Ent::make<PimMib>(name);
  mib->hasNotificationActiveIs(true);
  return mib;
}

Ent::Ptr<PimMib> PimMibIs(const std::string& name) {
  return pimMibFactory(name);
}

}  // namespace Routing::Pim::Snmp
