// The next-hop decision for one route and interface, line by line, and the PIM next hop.

#include "tests/unit/mroute_sm/MrouteTestUtil.h"

namespace MrouteSmTest {
namespace {

const RouteKey kSG = key("10.0.0.1", "239.1.1.1");

using NextHopTest = MrouteFixture;

// Both next-hop tables traced "<action> <table> for (10.0.0.1, 239.1.1.1) and interface <rest>".
void expectTracedForBoth(const Trace::Capture& cap, std::string_view action,
                         std::string_view rest) {
  for (const char* table : {"ipMcastRouteNextHopTable", "ipMRouteNextHopTable"}) {
    EXPECT_TRUE(cap.contains(
        fmt::format("{} {} for (10.0.0.1, 239.1.1.1) and interface {}", action, table, rest)))
        << table;
  }
}

TEST_F(NextHopTest, FibWithTheOifForwardsWhetherOrNotTheInterfaceHasState) {
  startAndReview();
  intfIs(kSG, 1);
  EXPECT_EQ(mcastHop(kSG, 1), nhStatePruned);  // no FIB entry yet
  fibIs(kSG, {1, 2});
  EXPECT_EQ(mcastHop(kSG, 1), nhStateForwarding);
  EXPECT_EQ(mrouteHop(kSG, 1), nhStateForwarding);
  // Ethernet2 is only an OIF of the FIB: the OIF walk gives it a forwarding next hop.
  EXPECT_EQ(mcastHop(kSG, 2), nhStateForwarding);
  EXPECT_EQ(mrouteHop(kSG, 2), nhStateForwarding);
  // The state change replaced the row; the member set holds each interface once.
  EXPECT_EQ(mcastRow(kSG)->nextHopIndex().size(), 2u);
  EXPECT_EQ(mib->ipMcastRouteNextHopTable().size(), 2u);
}

TEST_F(NextHopTest, FibWithoutTheOifPrunesAnInterfaceWithState) {
  startAndReview();
  intfIs(kSG, 1);
  Trace::Capture cap("PimSnmpAgent/8");
  fibIs(kSG, {2});
  EXPECT_EQ(mcastHop(kSG, 1), nhStatePruned);
  EXPECT_EQ(mrouteHop(kSG, 1), nhStatePruned);
  EXPECT_EQ(mcastHop(kSG, 2), nhStateForwarding);
  expectTracedForBoth(cap, "Adding an entry to", "Ethernet2, state: nhStateForwarding");
}

TEST_F(NextHopTest, FibWithoutTheOifRemovesAnInterfaceWithoutState) {
  startAndReview();
  status->routeIs(kSG);
  fibIs(kSG, {1, 2});
  ASSERT_EQ(mcastHop(kSG, 2), nhStateForwarding);
  Trace::Capture cap("PimSnmpAgent/8");
  fibIs(kSG, {1});
  EXPECT_EQ(mcastHop(kSG, 2), std::nullopt);
  EXPECT_EQ(mrouteHop(kSG, 2), std::nullopt);
  EXPECT_EQ(mcastHop(kSG, 1), nhStateForwarding);
  expectTracedForBoth(cap, "Removing an entry from", "Ethernet2 due to no OIF in multicast FIB.");
}

TEST_F(NextHopTest, WithoutFibEntryOnlyInterfacesWithStateArePruned) {
  startAndReview();
  intfIs(kSG, 1);
  EXPECT_EQ(mcastHop(kSG, 1), nhStatePruned);
  EXPECT_EQ(mrouteHop(kSG, 1), nhStatePruned);
  Trace::Capture cap("PimSnmpAgent/8");
  status->routeIs(kSG)->routeIntfDel(eth(1));
  EXPECT_EQ(mcastHop(kSG, 1), std::nullopt);
  EXPECT_EQ(mrouteHop(kSG, 1), std::nullopt);
  EXPECT_TRUE(mcastRow(kSG)->nextHopIndex().empty());
  EXPECT_TRUE(
      cap.contains("Removing an entry from ipMcastRouteNextHopTable for (10.0.0.1, "
                   "239.1.1.1) and interface Ethernet1 due to no (S,G,I) state."));
}

TEST_F(NextHopTest, RouteGoneFromPimRemovesEverythingThoughTheFibKeepsIt) {
  startAndReview();
  intfIs(kSG, 1, true);
  status->routeIs(kSG)->upstreamInfoIs(eth(9), *Lanet::IpGenAddr::parse("10.9.9.9"));
  fibIs(kSG, {1, 2});
  ASSERT_EQ(mib->ipMcastRouteNextHopTable().size(), 2u);
  ASSERT_TRUE(pimHop(kSG, 1));
  {
    Trace::Capture cap("PimSnmpAgent/8");
    status->routeDel(kSG);
    for (const char* intf : {"Ethernet1", "Ethernet2"}) {
      expectTracedForBoth(cap, "Removing an entry from", fmt::format("{} due to no route.", intf));
    }
    EXPECT_TRUE(cap.contains(
        fmt::format("Removing an entry from pimIpMrouteNextHopTable for {} due to no route",
                    Snmp::pimIpMrouteNextHopEntryIndexFromRouteKey(kSG, 1))));
    EXPECT_TRUE(cap.contains("Remove ipMcastRoute entry for (10.0.0.1, 239.1.1.1)"));
    EXPECT_TRUE(cap.contains("Remove Pim Mroute entry for (10.0.0.1, 239.1.1.1)"));
    EXPECT_TRUE(cap.contains("Remove Mroute entry for (10.0.0.1, 239.1.1.1)"));
  }
  // Route, next-hop and interface rows all went.
  EXPECT_EQ(rowCount(), 0u);
  EXPECT_FALSE(sm->reviewedRoute(kSG));
  EXPECT_EQ(sm->route(kSG), nullptr);

  // FIB changes alone never bring the route back.
  fibIs(kSG, {3});
  EXPECT_EQ(rowCount(), 0u);
  EXPECT_FALSE(sm->reviewedRoute(kSG));
}

TEST_F(NextHopTest, InterfaceWithoutIfIndexNeverGetsARow) {
  startAndReview();
  fib->oifIndexIntfIs(Fib::OifIndex(9), IntfId("Tunnel0"));
  status->routeIs(kSG);
  Trace::Capture cap("PimSnmpAgent/8");
  auto intf = status->routeIs(kSG)->routeIntfIs(IntfId("Tunnel0"));
  intf->rptStateIs(SparseMode::rptStateNoInfo);
  intf->forwardIs(true);
  Fib::Route r;
  r.oifIs(Fib::OifIndex(9));
  fib->routeIs(Routing::Pim::pimRouteKeyToMfibKey(kSG), r);
  EXPECT_TRUE(mib->ipMcastRouteNextHopTable().empty());
  EXPECT_TRUE(mib->ipMRouteNextHopTable().empty());
  EXPECT_TRUE(mib->pimIpMrouteNextHopTable().empty());
  EXPECT_TRUE(mib->ipMcastInterfaceTable().empty());
  EXPECT_TRUE(mcastRow(kSG)->nextHopIndex().empty());
  EXPECT_EQ(cap.count("Adding"), 0u);
}

TEST_F(NextHopTest, PimNextHopFollowsRptStateForwardAndPresence) {
  startAndReview();
  auto intf = intfIs(kSG, 1, true);
  auto row = mib->pimIpMrouteNextHopTable(Snmp::pimIpMrouteNextHopEntryIndexFromRouteKey(kSG, 1));
  ASSERT_TRUE(row);
  EXPECT_EQ(row->intf(), intf);  // the row reads the live (S,G,I) record

  Trace::Capture cap("PimSnmpAgent/8");
  intf->rptStateIs(SparseMode::rptStatePruned);
  EXPECT_FALSE(pimHop(kSG, 1));
  EXPECT_TRUE(cap.contains("Removing an entry from pimIpMrouteNextHopTable for"));
  intf->rptStateIs(SparseMode::rptStateNoInfo);
  EXPECT_TRUE(pimHop(kSG, 1));
  intf->forwardIs(false);
  EXPECT_FALSE(pimHop(kSG, 1));
  intf->forwardIs(true);
  EXPECT_TRUE(pimHop(kSG, 1));
  EXPECT_TRUE(cap.contains("(10.0.0.1, 239.1.1.1) Ethernet1"));  // the interface reactor
  EXPECT_TRUE(cap.contains("(10.0.0.1, 239.1.1.1), for intf Ethernet1"));

  cap.clear();
  status->routeIs(kSG)->routeIntfDel(eth(1));
  EXPECT_FALSE(pimHop(kSG, 1));
  EXPECT_TRUE(cap.contains("due to no interface Ethernet1"));
}

TEST_F(NextHopTest, RepeatedEventsAddNothingTwice) {
  startAndReview();
  Trace::Capture cap("PimSnmpAgent/8");
  intfIs(kSG, 1, true);
  fibIs(kSG, {1, 2});
  const auto mcast = mcastRow(kSG);
  const size_t rows = rowCount();

  sm->handleMroute(kSG);
  sm->handleMroute(kSG);
  sm->doUpdateIpMrouteNextHop(kSG, eth(2));
  sm->doUpdatePimIpMrouteNextHop(kSG, eth(1));
  EXPECT_EQ(rowCount(), rows);
  EXPECT_EQ(mcastRow(kSG), mcast);
  EXPECT_EQ(mcast->nextHopIndex().size(), 2u);
  for (const char* text :
       {"Add ipMcastRoute entry for (10.0.0.1, 239.1.1.1)", "Add Pim Mroute entry for",
        "Add Mroute entry for", "Adding an entry to pimIpMrouteNextHopTable for",
        "ipMcastRouteNextHopTable for (10.0.0.1, 239.1.1.1) and interface "
        "Ethernet2, state: nhStateForwarding"}) {
    EXPECT_EQ(cap.count(text), 1u) << text;
  }
}

TEST_F(NextHopTest, Ipv6RoutesTouchOnlyIpMcastTables) {
  startAndReview(AddressFamily::ipv6);
  const RouteKey k6 = key("2001:db8::1", "ff0e::1");
  Trace::Capture cap("PimSnmpAgent/8");
  intfIs(k6, 1, true);
  fibIs(k6, {1, 2});
  EXPECT_EQ(mib->ipMcastRouteTable().size(), 1u);
  EXPECT_EQ(mcastHop(k6, 1), nhStateForwarding);
  EXPECT_EQ(mcastHop(k6, 2), nhStateForwarding);
  EXPECT_TRUE(hasMcastIntf(::Snmp::InetVersion::ipv6, 1));
  EXPECT_TRUE(mib->ipMRouteTable().empty());
  EXPECT_TRUE(mib->pimIpMrouteTable().empty());
  EXPECT_TRUE(mib->ipMRouteNextHopTable().empty());
  EXPECT_TRUE(mib->pimIpMrouteNextHopTable().empty());
  EXPECT_TRUE(mib->ipMRouteInterfaceTable().empty());
  EXPECT_TRUE(cap.contains("not ipv4; nothing to do"));
  EXPECT_FALSE(cap.contains("ipMRouteNextHopTable"));

  status->routeDel(k6);
  EXPECT_EQ(rowCount(), 0u);
}

TEST_F(NextHopTest, KeysOfTheOtherFamilyAreIgnored) {
  startAndReview();
  Trace::Capture cap("PimSnmpAgent/8");
  fibIs(key("2001:db8::1", "ff0e::1"), {1});
  EXPECT_TRUE(cap.contains("Address family not supported: (2001:db8::1, ff0e::1)"));
  EXPECT_EQ(rowCount(), 0u);
}

}  // namespace
}  // namespace MrouteSmTest
