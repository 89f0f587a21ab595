// Route rows over a route's life: OIF map changes, interface rows, replaced records, ifIndex
// changes and tear-down.

#include "tests/unit/mroute_sm/MrouteTestUtil.h"

namespace MrouteSmTest {
namespace {

const RouteKey kSG = key("10.0.0.1", "239.1.1.1");
const RouteKey kStarG = key("0.0.0.0", "239.1.1.2");

using RouteLifecycleTest = MrouteFixture;

TEST_F(RouteLifecycleTest, OifMapChangeAloneLeavesNextHopsUntilTheRouteIsHandledAgain) {
  startAndReview();
  status->routeIs(kSG);
  fibIs(kSG, {1});
  ASSERT_EQ(mcastHop(kSG, 1), nhStateForwarding);

  Trace::Capture cap("PimSnmpAgent/8");
  fib->oifIndexIntfIs(Fib::OifIndex(0), eth(3));
  EXPECT_TRUE(cap.contains("oifIndex=0"));
  EXPECT_TRUE(cap.contains("Add mapping 0 => Ethernet3"));
  EXPECT_EQ(sm->oifIndexToIntfId(Fib::OifIndex(0)), eth(3));
  EXPECT_EQ(sm->intfIdToOifIndex(eth(3)), Fib::OifIndex(0));
  EXPECT_FALSE(sm->intfIdToOifIndex(eth(1)).valid());
  EXPECT_EQ(mcastHop(kSG, 1), nhStateForwarding);  // untouched
  EXPECT_EQ(mcastHop(kSG, 3), std::nullopt);

  sm->handleMroute(kSG);
  EXPECT_EQ(mcastHop(kSG, 1), std::nullopt);
  EXPECT_EQ(mcastHop(kSG, 3), nhStateForwarding);

  fib->oifIndexIntfDel(Fib::OifIndex(0));
  EXPECT_TRUE(cap.contains("Remove mapping 0 => Ethernet3"));
  EXPECT_TRUE(sm->oifIndexToIntfId(Fib::OifIndex(0)).empty());
  EXPECT_FALSE(sm->intfIdToOifIndex(eth(3)).valid());
  // An OIF bit at an unmapped index is no OIF.
  sm->handleMroute(kSG);
  EXPECT_TRUE(mib->ipMcastRouteNextHopTable().empty());
}

TEST_F(RouteLifecycleTest, OifMapPresentAtStartIsTakenWhole) {
  fib->oifIndexIntfIs(Fib::OifIndex(7), eth(8));
  start();
  EXPECT_EQ(sm->oifIndexToIntfId().size(), 5u);
  EXPECT_EQ(sm->intfIdToOifIndex(eth(8)), Fib::OifIndex(7));
}

TEST_F(RouteLifecycleTest, InterfaceRowsLiveWhileSomeRouteUsesTheInterface) {
  startAndReview();
  const auto v4 = ::Snmp::InetVersion::ipv4;
  intfIs(kSG, 1);
  intfIs(kStarG, 1);
  status->routeIs(kSG)->upstreamInfoIs(eth(9), *Lanet::IpGenAddr::parse("10.9.9.9"));
  EXPECT_EQ(sm->intfUseCount(1), 2u);
  // (*,G) rows carry sMask 0.
  EXPECT_TRUE(mib->pimIpMrouteTable(Snmp::PimIpMrouteEntryIndex(kStarG.group, kStarG.source, 0)));
  EXPECT_TRUE(hasMcastIntf(v4, 1));
  EXPECT_TRUE(mib->ipMRouteInterfaceTable(1));
  EXPECT_TRUE(hasMcastIntf(v4, 9));
  EXPECT_TRUE(mib->ipMRouteInterfaceTable(9));

  // Upstream moves: the old interface goes, the new one comes.
  status->routeIs(kSG)->upstreamInfoIs(eth(8), *Lanet::IpGenAddr::parse("10.8.8.8"));
  EXPECT_FALSE(hasMcastIntf(v4, 9));
  EXPECT_TRUE(hasMcastIntf(v4, 8));
  EXPECT_EQ(sm->route(kSG)->upstreamIfIndex(), 8);
  status->routeIs(kSG)->upstreamInfoDel();
  EXPECT_FALSE(hasMcastIntf(v4, 8));
  EXPECT_FALSE(mib->ipMRouteInterfaceTable(8));

  // Ethernet1 stays while one of its two routes still uses it.
  status->routeDel(kSG);
  EXPECT_EQ(sm->intfUseCount(1), 1u);
  EXPECT_TRUE(hasMcastIntf(v4, 1));
  status->routeIs(kStarG)->routeIntfDel(eth(1));
  EXPECT_EQ(sm->intfUseCount(1), 0u);
  EXPECT_TRUE(mib->ipMcastInterfaceTable().empty());
  EXPECT_TRUE(mib->ipMRouteInterfaceTable().empty());
}

TEST_F(RouteLifecycleTest, RouteRecordReplacedUnseenIsRebuiltOnTheNextEvent) {
  startAndReview();
  intfIs(kSG, 1, true);
  status->hasNotificationActiveIs(false);
  auto fresh = Ent::make<SparseMode::Route>(kSG);
  auto freshIntf = fresh->routeIntfIs(eth(2));
  freshIntf->rptStateIs(SparseMode::rptStateNoInfo);
  freshIntf->forwardIs(true);
  status->routeIs(fresh);
  status->hasNotificationActiveIs(true);

  sm->handleMroute(kSG);
  EXPECT_EQ(mcastRow(kSG)->route(), fresh);
  EXPECT_EQ(mib->ipMRouteTable(Snmp::pimIpMrouteEntryIndexFromRouteKey(kSG))->route(), fresh);
  EXPECT_FALSE(pimHop(kSG, 1));
  EXPECT_TRUE(pimHop(kSG, 2));
  EXPECT_EQ(mcastHop(kSG, 1), std::nullopt);
  EXPECT_EQ(mcastHop(kSG, 2), nhStatePruned);
  EXPECT_EQ(sm->intfUseCount(1), 0u);
  // The reactor follows the new record.
  freshIntf->forwardIs(false);
  EXPECT_FALSE(pimHop(kSG, 2));
}

TEST_F(RouteLifecycleTest, IfIndexChangeMovesTheNextHopOnTheNextEvent) {
  startAndReview();
  intfIs(kSG, 1);
  ifMib->ifIndexByIntfIdIs(eth(1), 11);
  Trace::Capture cap("PimSnmpAgent/8");
  sm->handleMroute(kSG);
  EXPECT_TRUE(cap.contains("interface Ethernet1 due to ifIndex change."));
  EXPECT_EQ(mcastHop(kSG, 1), std::nullopt);
  EXPECT_EQ(mcastHop(kSG, 11), nhStatePruned);
  EXPECT_EQ(mcastRow(kSG)->nextHopIndex().size(), 1u);
  EXPECT_EQ(sm->intfUseCount(1), 0u);
  EXPECT_EQ(sm->intfUseCount(11), 1u);

  // Without an ifIndex the next hop goes altogether.
  ifMib->ifIndexByIntfIdDel(eth(1));
  sm->handleMroute(kSG);
  EXPECT_TRUE(mib->ipMcastRouteNextHopTable().empty());
  EXPECT_TRUE(mib->ipMcastInterfaceTable().empty());
}

// Two interfaces under one ifIndex (a misconfigured IfMib) share one next-hop row: the second
// finds the first one's row rather than colliding with it.
TEST_F(RouteLifecycleTest, InterfacesSharingAnIfIndexShareTheirNextHopRow) {
  startAndReview();
  intfIs(kSG, 1);
  intfIs(kSG, 2);
  fibIs(kSG, {1});
  ASSERT_EQ(mcastHop(kSG, 1), nhStateForwarding);
  ASSERT_EQ(mcastHop(kSG, 2), nhStatePruned);
  ifMib->ifIndexByIntfIdIs(eth(2), 1);
  EXPECT_NO_THROW(sm->handleMroute(kSG));
  EXPECT_EQ(mcastHop(kSG, 2), std::nullopt);
  EXPECT_TRUE(mcastHop(kSG, 1));
  EXPECT_TRUE(mrouteHop(kSG, 1));
  EXPECT_EQ(mib->ipMcastRouteNextHopTable().size(), 1u);
}

TEST_F(RouteLifecycleTest, DeletingOwnerIgnoresEventsAndDestructionDetachesEverything) {
  startAndReview();
  auto intf = intfIs(kSG, 1, true);
  const size_t rows = rowCount();
  sm->isDeletingIs(true);
  intf->forwardIs(false);
  status->routeIs(kStarG);
  fibIs(kSG, {2});
  fib->oifIndexIntfIs(Fib::OifIndex(0), eth(4));
  EXPECT_EQ(rowCount(), rows);
  EXPECT_EQ(sm->intfIdToOifIndex(eth(1)), Fib::OifIndex(0));
  sm->isDeletingIs(false);

  sm.reset();
  EXPECT_EQ(status->reactorCount(), 0u);
  EXPECT_EQ(fib->reactorCount(), 0u);
  EXPECT_EQ(status->route(kSG)->reactorCount(), 0u);
  EXPECT_EQ(intf->reactorCount(), 0u);
  EXPECT_EQ(clock->armedTimerCount(), 0u);
  EXPECT_EQ(rowCount(), rows);  // the rows stay with the store
}

}  // namespace
}  // namespace MrouteSmTest
