#include "PimSnmp/PimSnmp/RouteEntry.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include <fmt/format.h>

#include "PimSnmp/PimSnmp/PimMib.h"
#include "PimSnmp/PimSnmpHelpers/PimSnmpHelpers.h"
#include "platform/Clock/Clock.h"
#include "platform/Ent/Error.h"
#include "platform/L3/VrfName.h"
#include "platform/Routing/Pim/RouteKeyConversion.h"

namespace Routing::Pim::Snmp {

namespace {

using Counters = McastCommonMrouteCounterHelper::MrouteCounterHelper::Counters;

Counters routeCounters(const RouteEntryBase& e) {
  if (!e.route() || !e.pimMib()) return {};
  const Ent::Ptr<PimSnmpHelpers> singleton = pimSnmpHelpers();
  const PimSnmpHelpers::CounterHelperColl& helpers = singleton->mrouteCounterHelper();
  const Lanet::AddressFamily af = e.af();
  if (e.fibRouteBound()) {
    if (!helpers.contains(af)) return {};
    const RouteEntryBase::FibRoute* fib = e.fibRoute();
    return fib ? Counters{fib->packets(), fib->bytes()} : Counters{};
  }
  Ent::Ptr<const McastCommonMrouteCounterHelper::MrouteCounterHelper> helper = helpers.find(af);
  if (!helper) return {};
  return helper->counters(L3::VrfName(e.pimMib()->name()), pimRouteKeyToMfibKey(e.route()->key()));
}

}  // namespace

const RouteEntryBase::FibRoute RouteEntryBase::kNoFibRoute;

Lanet::AddressFamily RouteEntryBase::af() const {
  return route_ ? route_->key().af() : Lanet::AddressFamily::unknown;
}

double RouteEntryBase::upTime() const {
  if (!route_) return 0;
  const double age = Plat::now() - route_->creationTime();
  return age > 0 ? age : 0;
}

int32_t RouteEntryBase::inIfIndex() const {
  if (!route_ || !route_->upstreamInfo() || !ifMib_) return 0;
  const Lanet::IntfId& iif = route_->upstreamInfo()->iif();
  if (iif.empty()) return 0;
  return static_cast<int32_t>(ifMib_->ifIndexByIntfId(iif));
}

uint64_t RouteEntryBase::pkts() const {
  return routeCounters(*this).packets;
}

uint64_t RouteEntryBase::octets() const {
  return routeCounters(*this).bytes;
}

Lanet::IpGenAddr IpMRouteEntry::upstreamNeighbor() const {
  if (route() && route()->upstreamInfo() && route()->upstreamInfo()->rpfNeighbor().isV4()) {
    return route()->upstreamInfo()->rpfNeighbor();
  }
  return Lanet::IpGenAddr::unspecified(Lanet::AddressFamily::ipv4);
}

Lanet::AddressFamily IpMcastRouteEntry::af() const {
  switch (index_.groupAddr.type()) {
    case ::Snmp::InetAddressType::ipv4:
      return Lanet::AddressFamily::ipv4;
    case ::Snmp::InetAddressType::ipv6:
      return Lanet::AddressFamily::ipv6;
    case ::Snmp::InetAddressType::unknown:
    case ::Snmp::InetAddressType::ipv6z:
      assert(false);
      return Lanet::AddressFamily::unknown;
    default:
      return Lanet::AddressFamily::unknown;
  }
}

double IpMcastRouteEntry::timeStamp() const {
  return route() ? route()->creationTime() : 0;
}

::Snmp::InetAddress IpMcastRouteEntry::upstreamNeighbor() const {
  if (route() && route()->upstreamInfo()) {
    return ::Snmp::InetAddress::fromIpGenAddr(route()->upstreamInfo()->rpfNeighbor());
  }
  const Lanet::AddressFamily family = route() ? route()->key().af() : af();
  return ::Snmp::InetAddress::fromIpGenAddr(Lanet::IpGenAddr::unspecified(family));
}

bool IpMcastRouteEntry::ownRoutePart(const IpMcastRouteNextHopEntryIndex& i) const {
  return i.groupAddr == index_.groupAddr && i.groupLength == index_.groupLength &&
         i.sourceAddr == index_.sourceAddr && i.sourceLength == index_.sourceLength &&
         i.addr == index_.groupAddr;
}

NextHopEntryIndexWithIntfId IpMcastRouteEntry::member(const NextHop& n) const {
  return {IpMcastRouteNextHopEntryIndex(index_.groupAddr, index_.groupLength, index_.sourceAddr,
                                        index_.sourceLength, n.ifIndex, index_.groupAddr),
          n.intfId};
}

bool IpMcastRouteEntry::nextHopIndexHas(const NextHopEntryIndexWithIntfId& m) const {
  if (!ownRoutePart(m.mibIndex)) return false;
  const NextHop n{m.mibIndex.ifIndex, m.intfId};
  return std::binary_search(nextHop_.begin(), nextHop_.end(), n);
}

bool IpMcastRouteEntry::nextHopIndexIs(const NextHopEntryIndexWithIntfId& m) {
  if (!ownRoutePart(m.mibIndex)) {
    throw Ent::Error(
        fmt::format("IpMcastRouteEntry {}: next hop {} belongs to another route", index_, m));
  }
  NextHop n{m.mibIndex.ifIndex, m.intfId};
  auto it = std::lower_bound(nextHop_.begin(), nextHop_.end(), n);
  if (it != nextHop_.end() && *it == n) return false;
  nextHop_.insert(it, std::move(n));
  return true;
}

bool IpMcastRouteEntry::nextHopIndexDel(const NextHopEntryIndexWithIntfId& m) {
  if (!ownRoutePart(m.mibIndex)) return false;
  const NextHop n{m.mibIndex.ifIndex, m.intfId};
  auto it = std::lower_bound(nextHop_.begin(), nextHop_.end(), n);
  if (it == nextHop_.end() || *it != n) return false;
  nextHop_.erase(it);
  return true;
}

void IpMcastRouteEntry::nextHopIndexDelAll() {
  // Release the buffer too: a row keeps its last next hops only while it has them.
  std::vector<NextHop>().swap(nextHop_);
}

Ent::Ptr<const SparseMode::Intf> PimIpMrouteEntry::upstreamIntf() const {
  if (!route_ || !route_->upstreamInfo()) return nullptr;
  return route_->routeIntf(route_->upstreamInfo()->iif());
}

uint32_t PimIpMrouteEntry::assertMetric() const {
  auto intf = upstreamIntf();
  return intf ? intf->assertMetric() : 0;
}

uint32_t PimIpMrouteEntry::assertMetricPref() const {
  auto intf = upstreamIntf();
  return intf ? intf->assertMetricPref() : 0;
}

bool PimIpMrouteEntry::assertRptBit() const {
  auto intf = upstreamIntf();
  return intf && intf->assertRptBit();
}

uint32_t PimIpMrouteEntry::mrouteFlags() const {
  return route_ && (route_->flags() & Route::kFlagSpt) ? 1 : 0;
}

}  // namespace Routing::Pim::Snmp
