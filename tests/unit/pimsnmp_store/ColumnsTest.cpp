// Computed columns of the store's rows, read from live platform records.

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>

#include "PimSnmp/PimSnmp/Index.h"
#include "PimSnmp/PimSnmp/PimMib.h"
#include "PimSnmp/PimSnmpHelpers/PimSnmpHelpers.h"
#include "platform/Clock/Clock.h"
#include "platform/IntfSnmp/IfMib.h"
#include "platform/Routing/Pim/Bsr/Config.h"
#include "platform/Routing/Pim/Bsr/Status.h"
#include "platform/Routing/Pim/Intf.h"
#include "platform/Routing/Pim/RouteKeyConversion.h"
#include "platform/Routing/Pim/RpCandidate.h"
#include "tests/unit/pimsnmp_store/StoreTestUtil.h"

namespace {

using namespace Routing::Pim::Snmp;
using namespace PimSnmpStoreTest;
using Lanet::AddressFamily;
using Lanet::IntfId;
using Lanet::IpGenAddr;
using Routing::Pim::RouteKey;

class ColumnsTest : public ::testing::Test {
 protected:
  Ent::Ptr<Plat::ManualClock> clock = Ent::make<Plat::ManualClock>(1000.0);
  Plat::ScopedClock scoped{clock};
};

std::array<uint8_t, 4> memoryBytes(uint32_t v) {
  std::array<uint8_t, 4> b;
  std::memcpy(b.data(), &v, 4);
  return b;
}

// The mask's bit patterns are maskFromLength's (IndexHelpers.PrefixLengthAndMask); here the
// record's length reaches it, for IPv4 addresses only. A record with no DR elected yet must
// still give four octets, or the IpAddress varbind is unsendable.
TEST_F(ColumnsTest, InterfaceNetMaskAndDrOfTheRecord) {
  auto intf = Ent::make<Routing::Pim::Intf>(IntfId("Ethernet1"));
  PimInterfaceEntry row(1, intf, nullptr);
  intf->addressIs(v4("10.0.0.1"), 24);
  EXPECT_EQ(memoryBytes(row.interfaceNetMask()), (std::array<uint8_t, 4>{0xFF, 0xFF, 0xFF, 0}));
  EXPECT_EQ(row.address(), v4("10.0.0.1"));
  EXPECT_EQ(row.drAddr(), v4("0.0.0.0"));
  intf->addressIs(*IpGenAddr::parse("2001:db8::1"), 24);  // a length that would make a mask
  EXPECT_EQ(row.interfaceNetMask(), 0u);
}

TEST_F(ColumnsTest, InterfaceWithoutRecordReadsNeutralValues) {
  PimInterfaceEntry row(7, nullptr, nullptr);
  EXPECT_EQ(row.interfaceNetMask(), 0u);
  EXPECT_TRUE(row.intfId().empty());
  EXPECT_EQ(row.address(), v4("0.0.0.0"));
  EXPECT_EQ(row.drAddr(), v4("0.0.0.0"));
  EXPECT_EQ(row.mode(), 0);
  EXPECT_EQ(row.helloInterval(), 0);
  EXPECT_EQ(row.jpInterval(), 0);
  EXPECT_EQ(row.csbrPreference(), -1);
  EXPECT_EQ(row.rowStatus(), 1);
}

TEST_F(ColumnsTest, CandidateBsrPreferenceOfTheRowsInterface) {
  auto intf = Ent::make<Routing::Pim::Intf>(IntfId("Ethernet1"));
  auto bsr = Ent::make<Routing::Pim::Bsr::Status>(L3::VrfName("red"));
  PimInterfaceEntry row(1, intf, bsr);
  EXPECT_EQ(row.csbrPreference(), -1) << "empty cbsr collection";

  auto other = bsr->cbsrIs(*Lanet::IpGenPrefix::parse("224.0.0.0/4"));
  other->intfIdIs(IntfId("Ethernet2"));
  other->priorityIs(10);
  EXPECT_EQ(row.csbrPreference(), -1) << "candidate on another interface";

  auto mine = bsr->cbsrIs(*Lanet::IpGenPrefix::parse("239.0.0.0/8"));
  mine->intfIdIs(IntfId("Ethernet1"));
  mine->priorityIs(65535);
  EXPECT_EQ(row.csbrPreference(), 65535) << "uint16 priority widens without sign";

  bsr->cbsrDel(mine->prefix());
  EXPECT_EQ(row.csbrPreference(), -1);
}

TEST_F(ColumnsTest, NeighborUpTimeAndExpiry) {
  auto n = Ent::make<Routing::Pim::Neighbor>(v4("10.0.0.2"));
  PimNeighborEntry row(n->address(), n);
  n->creationTimeIs(1000.0 - 12.25);
  n->holdTimeIs(105);
  EXPECT_DOUBLE_EQ(row.upTime(), 12.25) << "not rounded";

  n->lastRefreshTimeIs(1000.0 - 30.4);
  EXPECT_DOUBLE_EQ(row.expiryTime(), 75);
  n->lastRefreshTimeIs(1000.0 - 30.6);
  EXPECT_DOUBLE_EQ(row.expiryTime(), 74) << "elapsed time rounds to whole seconds";
  n->lastRefreshTimeIs(1000.0 - 104.6);
  EXPECT_DOUBLE_EQ(row.expiryTime(), 0) << "rounded elapsed equals the hold time";
  n->lastRefreshTimeIs(1000.0 - 500);
  EXPECT_DOUBLE_EQ(row.expiryTime(), 0) << "never negative";

  PimNeighborEntry orphan(v4("10.0.0.3"), nullptr);
  EXPECT_DOUBLE_EQ(orphan.upTime(), 0);
  EXPECT_DOUBLE_EQ(orphan.expiryTime(), 0);
  EXPECT_EQ(orphan.interfaceIndex(), 0);
  EXPECT_EQ(orphan.mode(), 0);
}

TEST_F(ColumnsTest, ComponentBsrAddressAndHoldTimes) {
  auto bsr = Ent::make<Routing::Pim::Bsr::Status>(L3::VrfName("red"));
  auto config = Ent::make<Routing::Pim::Bsr::Config>(L3::VrfName("red"));
  PimComponentEntry row(1, bsr, config);
  PimComponentEntry bare(1, nullptr, nullptr);

  EXPECT_EQ(bare.bsrAddr(), v4("0.0.0.0"));
  EXPECT_EQ(row.bsrAddr(), v4("0.0.0.0"));
  bsr->electedBsrIs(*Lanet::IpGenPrefix::parse("239.0.0.0/8"))->bsrAddressIs(v4("1.1.1.1"));
  EXPECT_EQ(row.bsrAddr(), v4("0.0.0.0")) << "only 224.0.0.0/4 counts";
  bsr->electedBsrIs(*Lanet::IpGenPrefix::parse("224.0.0.0/4"))->bsrAddressIs(v4("2.2.2.2"));
  EXPECT_EQ(row.bsrAddr(), v4("2.2.2.2"));

  config->bootstrapTimeoutIs(130);
  EXPECT_EQ(row.bsTimeout(), 130u);
  EXPECT_EQ(bare.bsTimeout(), 0u);
  EXPECT_EQ(row.crpHoldTime(), 0u);
  config->candidateRpConfigCountIs(1);
  EXPECT_EQ(row.crpHoldTime(), 180u);
  config->candidateRpConfigCountIs(3);
  EXPECT_EQ(row.crpHoldTime(), 180u);
  EXPECT_EQ(bare.crpHoldTime(), 0u);
}

TEST_F(ColumnsTest, RpSetTimesOnlyForBsrLearntRps) {
  auto rp = Ent::make<Routing::Pim::RpCandidate>(v4("3.3.3.3"));
  rp->holdTimeIs(150);
  rp->expiryTimeIs(1000.0 + 42.6);
  PimRPSetEntry bsr({1, v4("224.0.0.0"), maskFromLength(4), rp->address()}, Routing::Pim::rpTypeBsr,
                    rp);
  PimRPSetEntry fixed(bsr.index(), Routing::Pim::rpTypeStatic, rp);

  EXPECT_EQ(bsr.holdTime(), 150u);
  EXPECT_DOUBLE_EQ(bsr.expiryTime(), 43);
  EXPECT_EQ(fixed.holdTime(), 0u);
  EXPECT_DOUBLE_EQ(fixed.expiryTime(), 0);

  rp->expiryTimeIs(1000.0 - 5.2);
  EXPECT_DOUBLE_EQ(bsr.expiryTime(), -5) << "a late RP reads negative";
}

TEST_F(ColumnsTest, RouteUpTimeNeverNegative) {
  auto r = route(sg("10.1.1.1", "239.1.1.1"), 990.0);
  IpMRouteEntry row(pimIpMrouteEntryIndexFromRouteKey(r->key()), r, nullptr);
  EXPECT_DOUBLE_EQ(row.upTime(), 10);
  clock->nowIs(900.0);
  EXPECT_DOUBLE_EQ(row.upTime(), 0) << "clock stepped back behind the creation time";
  clock->nowIs(990.0);
  EXPECT_DOUBLE_EQ(row.upTime(), 0);
}

TEST_F(ColumnsTest, InIfIndexNeedsUpstreamInterfaceAndIfMibRow) {
  auto ifMib = Ent::make<IntfSnmp::IfMib>();
  auto r = route(sg("10.1.1.1", "239.1.1.1"));
  IpMRouteEntry row(pimIpMrouteEntryIndexFromRouteKey(r->key()), r, ifMib);
  ifMib->ifIndexByIntfIdIs(IntfId("Ethernet1"), 11);

  EXPECT_EQ(row.inIfIndex(), 0) << "no upstream information";
  r->upstreamInfoIs(IntfId(), v4("10.0.0.9"));
  EXPECT_EQ(row.inIfIndex(), 0) << "empty interface id";
  r->upstreamInfoIs(IntfId("Ethernet2"), v4("10.0.0.9"));
  EXPECT_EQ(row.inIfIndex(), 0) << "no IfMib row";
  r->upstreamInfoIs(IntfId("Ethernet1"), v4("10.0.0.9"));
  EXPECT_EQ(row.inIfIndex(), 11);
}

TEST_F(ColumnsTest, UpstreamNeighborOfBothRouteTables) {
  auto r4 = route(sg("10.1.1.1", "239.1.1.1"), 500.0);
  IpMRouteEntry mroute(pimIpMrouteEntryIndexFromRouteKey(r4->key()), r4, nullptr);
  IpMcastRouteEntry mcast(IpMcastRouteEntryIndex::fromRouteKey(r4->key()), r4, nullptr);
  EXPECT_EQ(mroute.upstreamNeighbor(), v4("0.0.0.0"));
  EXPECT_EQ(mcast.upstreamNeighbor(), ::Snmp::InetAddress::fromIpGenAddr(v4("0.0.0.0")));
  EXPECT_DOUBLE_EQ(mcast.timeStamp(), 500.0);
  r4->upstreamInfoIs(IntfId("Ethernet1"), v4("10.0.0.9"));
  EXPECT_EQ(mroute.upstreamNeighbor(), v4("10.0.0.9"));
  EXPECT_EQ(mcast.upstreamNeighbor(), ::Snmp::InetAddress::fromIpGenAddr(v4("10.0.0.9")));
  EXPECT_EQ(mcast.upstreamNeighborType(), ::Snmp::InetAddressType::ipv4);

  const RouteKey k6{*IpGenAddr::parse("2001:db8::1"), *IpGenAddr::parse("ff3e::1")};
  auto r6 = route(k6);
  IpMcastRouteEntry mcast6(IpMcastRouteEntryIndex::fromRouteKey(k6), r6, nullptr);
  EXPECT_EQ(mcast6.upstreamNeighbor(),
            ::Snmp::InetAddress::fromIpGenAddr(IpGenAddr::unspecified(AddressFamily::ipv6)))
      << "the unspecified address of the route's family";
  EXPECT_EQ(mcast6.upstreamNeighborType(), ::Snmp::InetAddressType::ipv6);
}

TEST_F(ColumnsTest, AddressFamilyOfRouteRows) {
  const std::array<uint8_t, 4> octets{1, 2, 3, 4};
  auto mcastRow = [&](::Snmp::InetAddressType type) {
    return IpMcastRouteEntry({::Snmp::InetAddress(type, octets), 32, {}, 0}, nullptr, nullptr);
  };
  EXPECT_EQ(mcastRow(::Snmp::InetAddressType::ipv4).af(), AddressFamily::ipv4);
  EXPECT_EQ(mcastRow(::Snmp::InetAddressType::ipv6).af(), AddressFamily::ipv6);
  EXPECT_EQ(mcastRow(::Snmp::InetAddressType::ipv4z).af(), AddressFamily::unknown);
  EXPECT_EQ(mcastRow(::Snmp::InetAddressType::dns).af(), AddressFamily::unknown);
  EXPECT_DEBUG_DEATH(mcastRow(::Snmp::InetAddressType::unknown).af(), "false");
  EXPECT_DEBUG_DEATH(mcastRow(::Snmp::InetAddressType::ipv6z).af(), "false");

  IpMRouteEntry v4Row({}, nullptr, nullptr);
  EXPECT_EQ(v4Row.af(), AddressFamily::ipv4);
}

TEST_F(ColumnsTest, PimMrouteFlagsAndUpstreamAssertState) {
  auto r = route(sg("10.1.1.1", "239.1.1.1"));
  PimIpMrouteEntry row(pimIpMrouteEntryIndexFromRouteKey(r->key()), r);
  r->flagsIs(0x03);
  EXPECT_EQ(row.mrouteFlags(), 0u);
  r->flagsIs(0x04);
  EXPECT_EQ(row.mrouteFlags(), 1u);
  r->flagsIs(0xFF);
  EXPECT_EQ(row.mrouteFlags(), 1u);

  auto upstream = r->routeIntfIs(IntfId("Ethernet1"));
  upstream->assertMetricIs(20);
  upstream->assertMetricPrefIs(110);
  upstream->assertRptBitIs(true);
  EXPECT_EQ(row.assertMetric(), 0u) << "no upstream information";
  EXPECT_FALSE(row.assertRptBit());

  r->upstreamInfoIs(IntfId("Ethernet9"), v4("10.0.0.9"));
  EXPECT_EQ(row.assertMetricPref(), 0u) << "no state for the upstream interface";

  r->upstreamInfoIs(IntfId("Ethernet1"), v4("10.0.0.9"));
  EXPECT_EQ(row.assertMetric(), 20u);
  EXPECT_EQ(row.assertMetricPref(), 110u);
  EXPECT_TRUE(row.assertRptBit());

  PimIpMrouteEntry orphan({}, nullptr);
  EXPECT_EQ(orphan.mrouteFlags(), 0u);
  EXPECT_EQ(orphan.assertMetric(), 0u);
}

TEST_F(ColumnsTest, NextHopPruneReasonFollowsAssertState) {
  auto intf = Ent::make<Routing::Pim::SparseMode::Intf>(IntfId("Ethernet1"));
  PimIpMrouteNextHopEntry row({}, intf);
  EXPECT_EQ(row.nextHopPruneReason(), 2u);
  intf->assertStateIs(Routing::Pim::SparseMode::assertStateWinner);
  EXPECT_EQ(row.nextHopPruneReason(), 2u);
  intf->assertStateIs(Routing::Pim::SparseMode::assertStateLoser);
  EXPECT_EQ(row.nextHopPruneReason(), 3u);
  EXPECT_EQ(PimIpMrouteNextHopEntry({}, nullptr).nextHopPruneReason(), 2u);
}

class CounterTest : public ColumnsTest {
 protected:
  void TearDown() override { pimSnmpHelpersDel(); }
  Ent::Ptr<PimMib> mib = pimMibFactory("blue");
  Ent::Ptr<IntfSnmp::IfMib> ifMib = Ent::make<IntfSnmp::IfMib>();
};

TEST_F(CounterTest, ZeroWithoutHelperOfTheRowsFamily) {
  auto r = route(RouteKey::starG(v4("239.1.1.1")));
  auto row = mib->ipMRouteTableIs(r, ifMib, pimIpMrouteEntryIndexFromRouteKey(r->key()));
  EXPECT_EQ(row->pkts(), 0u);
  EXPECT_EQ(row->octets(), 0u);

  auto v6Helper = Ent::make<FakeCounterHelper>(5, 500);
  pimSnmpHelpers()->mrouteCounterHelperIs(AddressFamily::ipv6, v6Helper);
  EXPECT_EQ(row->pkts(), 0u);
  EXPECT_TRUE(v6Helper->queries.empty());
}

TEST_F(CounterTest, AsksTheHelperWithVrfAndFibKey) {
  auto helper = Ent::make<FakeCounterHelper>(7, 7000);
  pimSnmpHelpers()->mrouteCounterHelperIs(AddressFamily::ipv4, helper);
  const RouteKey key = RouteKey::starG(v4("239.1.1.1"));
  auto r = route(key);
  auto mroute = mib->ipMRouteTableIs(r, ifMib, pimIpMrouteEntryIndexFromRouteKey(key));
  auto mcast = mib->ipMcastRouteTableIs(r, ifMib, IpMcastRouteEntryIndex::fromRouteKey(key));

  EXPECT_EQ(mroute->pkts(), 7u);
  EXPECT_EQ(mcast->octets(), 7000u);
  ASSERT_EQ(helper->queries.size(), 2u);
  EXPECT_EQ(helper->queries[0].first, L3::VrfName("blue"));
  EXPECT_EQ(helper->queries[0].second, Routing::Pim::pimRouteKeyToMfibKey(key));
  EXPECT_EQ(helper->queries[0].second.source.maskLen(), 0) << "(*,G) is a /0 source";

  mib->ipMRouteTableDel(mroute->key());
  EXPECT_EQ(mroute->pkts(), 0u) << "a row that left its store has no VRF";
  EXPECT_EQ(mcast->pkts(), 7u);
}

TEST_F(CounterTest, StoreNameTooLongForAVrf) {
  pimSnmpHelpers()->mrouteCounterHelperIs(AddressFamily::ipv4, Ent::make<FakeCounterHelper>(1, 1));
  auto longMib = pimMibFactory(std::string(101, 'v'));
  auto r = route(sg("10.1.1.1", "239.1.1.1"));
  auto row = longMib->ipMRouteTableIs(r, ifMib, pimIpMrouteEntryIndexFromRouteKey(r->key()));
  EXPECT_THROW(row->pkts(), std::range_error);
}

}  // namespace
