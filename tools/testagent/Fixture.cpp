#include "tools/testagent/Fixture.h"

#include <stdexcept>
#include <string>

#include "PimSnmp/PimSnmp/PimMib.h"
#include "PimSnmp/PimSnmpHelpers/PimSnmpHelpers.h"
#include "platform/Lanet/IpGenPrefix.h"
#include "platform/Routing/Pim/Intf.h"
#include "platform/Routing/Pim/Neighbor.h"
#include "platform/Routing/Pim/RouteKeyConversion.h"
#include "platform/Routing/Pim/RpCandidate.h"
#include "platform/Routing/Pim/SparseMode/Intf.h"

namespace TestAgent {

namespace {

using namespace Routing::Pim::Snmp;
using Lanet::IntfId;
using Lanet::IpGenAddr;
using Routing::Pim::RouteKey;

IpGenAddr addr(const std::string& text) {
  auto a = IpGenAddr::parse(text);
  if (!a) throw std::invalid_argument("not an address: " + text);
  return *a;
}

Lanet::IpGenPrefix prefix(const char* text) {
  return *Lanet::IpGenPrefix::parse(text);
}

}  // namespace

McastCommonMrouteCounterHelper::FibMrouteCounterHelper& counterHelper(Lanet::AddressFamily af) {
  using Helper = McastCommonMrouteCounterHelper::FibMrouteCounterHelper;
  static Ent::Ptr<Helper> helpers[2];
  Ent::Ptr<Helper>& h = helpers[af == Lanet::AddressFamily::ipv4 ? 0 : 1];
  if (!h) {
    h = Ent::make<Helper>(af == Lanet::AddressFamily::ipv4 ? "fibCounters4" : "fibCounters6");
    pimSnmpHelpers()->mrouteCounterHelperIs(af, h);
  }
  return *h;
}

FixtureVrf::FixtureVrf(VrfRecords& vrf, double now) : vrf_(vrf), now_(now) {
  const L3::VrfName name(vrf.vrf);
  bsrStatus_ = Ent::make<Routing::Pim::Bsr::Status>(name);
  fib4_ = Ent::make<Shtab::Multicast::Fib::Status>(Lanet::AddressFamily::ipv4, name);
  fib6_ = Ent::make<Shtab::Multicast::Fib::Status>(Lanet::AddressFamily::ipv6, name);
  counterHelper(Lanet::AddressFamily::ipv4).statusIs(name, fib4_);
  counterHelper(Lanet::AddressFamily::ipv6).statusIs(name, fib6_);
}

FixtureVrf::~FixtureVrf() {
  const L3::VrfName name(vrf_.vrf);
  counterHelper(Lanet::AddressFamily::ipv4).statusDel(name);
  counterHelper(Lanet::AddressFamily::ipv6).statusDel(name);
}

Shtab::Multicast::Fib::Status& FixtureVrf::fib(Lanet::AddressFamily af) {
  return af == Lanet::AddressFamily::ipv4 ? *fib4_ : *fib6_;
}

void FixtureVrf::interfaceIs(int32_t ifIndex, const char* name, const char* address, uint8_t length,
                             Routing::Pim::Mode mode, const char* dr, uint16_t hello,
                             uint16_t joinPrune) {
  auto intf = Ent::make<Routing::Pim::Intf>(IntfId(std::string(name)));
  intf->addressIs(addr(address), length);
  intf->modeIs(mode);
  intf->drAddrIs(addr(dr));
  intf->helloIntervalIs(hello);
  intf->jpIntervalIs(joinPrune);
  ifMib_->ifIndexByIntfIdIs(IntfId(std::string(name)), static_cast<uint32_t>(ifIndex));
  vrf_.store->pimInterfaceTableIs(ifIndex, intf, bsrStatus_);
}

void FixtureVrf::neighborIs(int32_t ifIndex, const IpGenAddr& address) {
  auto n = Ent::make<Routing::Pim::Neighbor>(address);
  n->creationTimeIs(now_ - 120);
  n->lastRefreshTimeIs(now_);
  n->holdTimeIs(105);
  auto row = vrf_.store->pimNeighborTableIs(address, n);
  row->interfaceIndexIs(ifIndex);
  row->modeIs(Routing::Pim::modeSparse);
}

bool FixtureVrf::neighborDel(const IpGenAddr& address) {
  return vrf_.store->pimNeighborTableDel(address) != nullptr;
}

void FixtureVrf::routeIs(const RouteKey& key, const IntfId& iif, const IpGenAddr& rpfNeighbor,
                         uint64_t packets, uint64_t bytes) {
  auto route = Ent::make<Routing::Pim::SparseMode::Route>(key);
  route->creationTimeIs(now_ - 60);
  if (!iif.empty()) route->upstreamInfoIs(iif, rpfNeighbor);
  routes_[key] = route;

  Shtab::Multicast::Fib::Route fibRoute;
  fibRoute.countersIs(packets, bytes);
  const auto fibKey = Routing::Pim::pimRouteKeyToMfibKey(key);
  fib(key.af()).routeIs(fibKey, fibRoute);
  // The counter columns read the entry directly, as the agent's route machine binds them.
  const auto* fibEntry = &fib(key.af()).route().find(fibKey)->second;

  PimMib& m = *vrf_.store;
  if (key.af() == Lanet::AddressFamily::ipv4) {
    m.pimIpMrouteTableIs(pimIpMrouteEntryIndexFromRouteKey(key), route);
    m.ipMRouteTableIs(route, ifMib_, pimIpMrouteEntryIndexFromRouteKey(key))->fibRouteIs(fibEntry);
  }
  m.ipMcastRouteTableIs(route, ifMib_, IpMcastRouteEntryIndex::fromRouteKey(key))
      ->fibRouteIs(fibEntry);
}

bool FixtureVrf::routeDel(const RouteKey& key) {
  PimMib& m = *vrf_.store;
  bool found = false;
  if (key.af() == Lanet::AddressFamily::ipv4) {
    const PimIpMrouteEntryIndex index = pimIpMrouteEntryIndexFromRouteKey(key);
    found |= m.pimIpMrouteTableDel(index) != nullptr;
    found |= m.ipMRouteTableDel(index) != nullptr;
    // The fixture is small: a scan finds the route's next hops.
    for (auto it = m.pimIpMrouteNextHopTable().begin(); it != m.pimIpMrouteNextHopTable().end();) {
      const auto& k = (*it)->key();
      auto here = it++;
      if (k.group == index.group && k.source == index.source && k.sMask == index.sMask) {
        m.pimIpMrouteNextHopTableDel(here);
      }
    }
    for (auto it = m.ipMRouteNextHopTable().begin(); it != m.ipMRouteNextHopTable().end();) {
      const auto& k = (*it)->key();
      auto here = it++;
      if (k.group == index.group && k.source == index.source && k.sMask == index.sMask) {
        m.ipMRouteNextHopTableDel(here);
      }
    }
  }
  if (auto row = m.ipMcastRouteTableDel(IpMcastRouteEntryIndex::fromRouteKey(key))) {
    found = true;
    for (const auto& member : row->nextHopIndexCopy()) {
      m.ipMcastRouteNextHopTableDel(member.mibIndex);
    }
  }
  fib(key.af()).routeDel(Routing::Pim::pimRouteKeyToMfibKey(key));
  routes_.erase(key);
  return found;
}

void FixtureVrf::nextHopIs(const RouteKey& key, int32_t ifIndex, const char* name, bool forwarding,
                           bool assertLoser) {
  PimMib& m = *vrf_.store;
  const NextHopState state = forwarding ? nhStateForwarding : nhStatePruned;
  Ent::Ptr<Routing::Pim::SparseMode::Intf> intf;
  if (assertLoser) {
    intf = Ent::make<Routing::Pim::SparseMode::Intf>(IntfId(std::string(name)));
    intf->assertStateIs(Routing::Pim::SparseMode::assertStateLoser);
  }
  m.pimIpMrouteNextHopTableIs(pimIpMrouteNextHopEntryIndexFromRouteKey(key, ifIndex), intf);
  m.ipMRouteNextHopTableIs(state, pimIpMrouteNextHopEntryIndexFromRouteKey(key, ifIndex));
  const auto index = IpMcastRouteNextHopEntryIndex::fromRouteKeyAndIfIndex(key, ifIndex);
  m.ipMcastRouteNextHopTableIs(state, index);
  m.ipMcastRouteTable(IpMcastRouteEntryIndex::fromRouteKey(key))
      ->nextHopIndexIs(NextHopEntryIndexWithIntfId(index, IntfId(std::string(name))));
}

void FixtureVrf::fillDefault() {
  PimMib& m = *vrf_.store;
  const L3::VrfName vrf(vrf_.vrf);

  auto cbsr = bsrStatus_->cbsrIs(prefix("224.0.0.0/4"));
  cbsr->intfIdIs(IntfId(std::string("Ethernet3")));
  cbsr->priorityIs(7);
  bsrStatus_->electedBsrIs(prefix("224.0.0.0/4"))->bsrAddressIs(addr("10.7.7.7"));
  auto bsrConfig = Ent::make<Routing::Pim::Bsr::Config>(vrf);
  bsrConfig->bootstrapTimeoutIs(130);
  bsrConfig->candidateRpConfigCountIs(1);

  interfaceIs(3, "Ethernet3", "10.0.3.1", 24, Routing::Pim::modeSparse, "10.0.3.9", 30, 60);
  interfaceIs(5, "Ethernet5", "10.0.5.1", 30, Routing::Pim::modeDense, "10.0.5.2", 10, 90);
  ifMib_->ifIndexByIntfIdIs(IntfId(std::string("Ethernet4")), 4);

  neighborIs(3, addr("10.0.3.2"));
  neighborIs(5, addr("10.0.5.2"));
  // The second neighbor runs dense mode.
  m.pimNeighborTable(addr("10.0.5.2"))->modeIs(Routing::Pim::modeDense);

  const IntfId eth3(std::string("Ethernet3"));
  const IntfId eth5(std::string("Ethernet5"));
  const RouteKey r1{addr("10.1.1.1"), addr("239.1.1.1")};
  routeIs(r1, eth3, addr("10.0.3.2"), 5, 0x100000010ull);
  routeIs({addr("10.1.1.2"), addr("239.1.1.1")}, eth5, addr("10.0.5.2"), 7, 700);
  routeIs({addr("10.1.1.1"), addr("239.1.1.3")}, eth3, addr("10.0.3.2"), 11, 1100);
  routeIs(RouteKey::starG(addr("239.2.2.2")), IntfId(), IpGenAddr(), 0, 0);
  routeIs({addr("10.1.1.1"), addr("239.5.5.5")}, eth3, addr("10.0.3.2"), 13, 1300);
  routeIs(RouteKey::starG(addr("ff0e::1")), IntfId(), IpGenAddr(), 17, 1700);

  auto& route1 = *routes_.at(r1);
  route1.flagsIs(Routing::Pim::SparseMode::Route::kFlagSpt);
  auto upstream = route1.routeIntfIs(eth3);
  upstream->assertMetricIs(20);
  upstream->assertMetricPrefIs(110);
  upstream->assertRptBitIs(true);
  nextHopIs(r1, 4, "Ethernet4", true, true);
  nextHopIs(r1, 5, "Ethernet5", false, false);

  auto bsrRp = Ent::make<Routing::Pim::RpCandidate>(addr("10.9.9.9"));
  bsrRp->holdTimeIs(150);
  bsrRp->expiryTimeIs(now_ + 30);
  auto staticRp = Ent::make<Routing::Pim::RpCandidate>(addr("10.8.8.8"));
  staticRp->holdTimeIs(150);
  m.pimRPSetTableIs(PimRPSetEntryIndex(1, addr("224.0.0.0"), maskFromLength(4), addr("10.9.9.9")),
                    Routing::Pim::rpTypeBsr, bsrRp);
  m.pimRPSetTableIs(PimRPSetEntryIndex(1, addr("239.0.0.0"), maskFromLength(8), addr("10.8.8.8")),
                    Routing::Pim::rpTypeStatic, staticRp);
  m.pimCandidateRPTableIs(PimCandidateRPEntryIndex(addr("224.0.0.0"), maskFromLength(4)), bsrRp);
  m.pimComponentTableIs(1, bsrStatus_, bsrConfig);

  for (int32_t i : {3, 4, 5}) m.ipMRouteInterfaceTableIs(i);
  m.ipMcastInterfaceTableIs({::Snmp::InetVersion::ipv4, 3});
  m.ipMcastInterfaceTableIs({::Snmp::InetVersion::ipv4, 4});
  m.ipMcastInterfaceTableIs({::Snmp::InetVersion::ipv6, 3});
}

void FixtureVrf::fillRed() {
  PimMib& m = *vrf_.store;
  interfaceIs(7, "Ethernet7", "10.7.0.1", 24, Routing::Pim::modeSparse, "10.7.0.1", 30, 60);
  neighborIs(7, addr("10.7.0.2"));
  const RouteKey r{addr("10.7.7.7"), addr("239.7.7.7")};
  routeIs(r, IntfId(std::string("Ethernet7")), addr("10.7.0.2"), 9, 900);
  ifMib_->ifIndexByIntfIdIs(IntfId(std::string("Ethernet8")), 8);
  nextHopIs(r, 8, "Ethernet8", true, false);
  m.pimComponentTableIs(1, nullptr, nullptr);
  m.ipMRouteInterfaceTableIs(7);
  m.ipMcastInterfaceTableIs({::Snmp::InetVersion::ipv4, 7});
}

void FixtureVrf::generatedRoutesIs(size_t n) {
  const IntfId eth3(std::string("Ethernet3"));
  ifMib_->ifIndexByIntfIdIs(eth3, 3);
  const IpGenAddr rpf = addr("10.0.3.2");
  const IpGenAddr source = addr("172.16.0.1");
  for (size_t i = 1; i <= n; ++i) {
    const RouteKey key{source, IpGenAddr::v4(0xE8000000u | static_cast<uint32_t>(i & 0xFFFFFF))};
    routeIs(key, eth3, rpf, i, 0x100000000ull + i * 1000);
  }
}

void FixtureVrf::generatedTablesIs(size_t n) {
  PimMib& m = *vrf_.store;
  const L3::VrfName vrf(vrf_.vrf);
  generatedRoutesIs(n);
  ifMib_->ifIndexByIntfIdIs(IntfId(std::string("Ethernet4")), 4);
  const IpGenAddr source = addr("172.16.0.1");
  auto rp = Ent::make<Routing::Pim::RpCandidate>(addr("10.9.9.9"));
  rp->holdTimeIs(150);
  rp->expiryTimeIs(now_ + 30);
  auto bsrConfig = Ent::make<Routing::Pim::Bsr::Config>(vrf);
  const uint32_t mask24 = maskFromLength(24);
  for (size_t i = 1; i <= n; ++i) {
    const auto u = static_cast<uint32_t>(i);
    const auto ifIndex = static_cast<int32_t>(100 + i);
    nextHopIs({source, IpGenAddr::v4(0xE8000000u | (u & 0xFFFFFF))}, 4, "Ethernet4", true, false);

    const std::string name = "gen" + std::to_string(i);
    auto intf = Ent::make<Routing::Pim::Intf>(IntfId(name));
    intf->addressIs(IpGenAddr::v4(0x0B000000u | u), 8);
    intf->modeIs(Routing::Pim::modeSparse);
    intf->helloIntervalIs(30);
    intf->jpIntervalIs(60);
    m.pimInterfaceTableIs(ifIndex, intf, bsrStatus_);
    neighborIs(ifIndex, IpGenAddr::v4(0x0A400000u | u));

    // Groups 224.0.1.0/24 upwards, one /24 per row.
    const IpGenAddr group = IpGenAddr::v4(0xE0000000u + (u << 8));
    m.pimRPSetTableIs(PimRPSetEntryIndex(1, group, mask24, addr("10.9.9.9")),
                      Routing::Pim::rpTypeBsr, rp);
    m.pimCandidateRPTableIs(PimCandidateRPEntryIndex(group, mask24), rp);
    m.pimComponentTableIs(ifIndex, bsrStatus_, bsrConfig);
    m.ipMRouteInterfaceTableIs(ifIndex);
    m.ipMcastInterfaceTableIs({::Snmp::InetVersion::ipv4, ifIndex});
  }
}

}  // namespace TestAgent
