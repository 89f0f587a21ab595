// Platform records the store reads: change notification, state paths, and the
// counter helpers.

#include <gtest/gtest.h>

#include <vector>

#include "PimSnmp/PimSnmpHelpers/PimSnmpHelpers.h"
#include "platform/Ent/Dir.h"
#include "platform/McastCommon/FibMrouteCounterHelper.h"
#include "platform/Routing/Multicast/Fib/VrfConfig.h"
#include "platform/Routing/Pim/ConfigColl.h"
#include "platform/Routing/Pim/SparseMode/Status.h"
#include "platform/Routing/Pim/Status.h"
#include "platform/Routing/Pim/StatusColl.h"
#include "platform/Shtab/Multicast/Fib/Route.h"
#include "platform/Shtab/Multicast/Fib/Status.h"
#include "tests/unit/pimsnmp_store/StoreTestUtil.h"

namespace {

using namespace PimSnmpStoreTest;
using Lanet::AddressFamily;
using Lanet::IntfId;
using Routing::Multicast::Fib::IpGenRouteKey;
using Shtab::Multicast::Fib::OifIndex;

TEST(FibStatusTest, RoutesOifMapAndMountPath) {
  auto fib = Ent::make<Shtab::Multicast::Fib::Status>(AddressFamily::ipv4, L3::VrfName("red"));
  ChangeLog<IpGenRouteKey> routes(fib, Shtab::Multicast::Fib::Status::attrRoute);
  const IpGenRouteKey key = IpGenRouteKey::sg(v4("10.1.1.1"), v4("239.1.1.1"));
  EXPECT_TRUE(fib->route(key).empty()) << "a missing key reads as the empty route";

  Shtab::Multicast::Fib::Route r;
  r.oifIs(OifIndex(3));
  fib->routeIs(key, r);
  fib->routeIs(key, r);
  EXPECT_TRUE(fib->routeCountersIs(key, 9, 900));
  EXPECT_FALSE(fib->routeCountersIs(IpGenRouteKey::starG(v4("239.1.1.1")), 1, 1));
  EXPECT_EQ(fib->route(key).packets(), 9u);
  EXPECT_EQ(routes.keys, std::vector{key}) << "same value and counters are silent";
  EXPECT_TRUE(fib->routeDel(key));
  EXPECT_EQ(routes.keys.size(), 2u);

  EXPECT_TRUE(fib->oifIndexIntf(OifIndex(3)).empty());
  fib->oifIndexIntfIs(OifIndex(3), IntfId("Ethernet3"));
  EXPECT_EQ(fib->oifIndexIntf(OifIndex(3)), IntfId("Ethernet3"));

  EXPECT_EQ(Shtab::Multicast::Fib::Status::mountPath(AddressFamily::ipv6, L3::VrfName("a b"),
                                                     "sparsemode"),
            "shtab/multicast/fib/ipv6/a%20b/sparsemode");
}

TEST(FibCounterHelperTest, ReadsCountersOfRegisteredVrfs) {
  McastCommonMrouteCounterHelper::FibMrouteCounterHelper helper;
  auto fib = Ent::make<Shtab::Multicast::Fib::Status>(AddressFamily::ipv4, L3::VrfName("red"));
  const IpGenRouteKey key = IpGenRouteKey::starG(v4("239.1.1.1"));
  Shtab::Multicast::Fib::Route r;
  r.countersIs(4, 400);
  fib->routeIs(key, r);

  EXPECT_EQ(helper.counters(L3::VrfName("red"), key).packets, 0u) << "VRF not registered";
  helper.statusIs(L3::VrfName("red"), fib);
  EXPECT_EQ(helper.counters(L3::VrfName("red"), key),
            (McastCommonMrouteCounterHelper::MrouteCounterHelper::Counters{4, 400}));
  EXPECT_EQ(helper.counters(L3::VrfName("red"), IpGenRouteKey::starG(v4("239.1.1.2"))).bytes, 0u);
  helper.statusIs(L3::VrfName("red"), nullptr);
  EXPECT_EQ(helper.counters(L3::VrfName("red"), key).bytes, 0u);
}

TEST(StatePathTest, ConfigsReachableByPath) {
  auto root = Ent::make<Ent::Dir>("root");
  auto pimConfig = Ent::make<Routing::Pim::ConfigColl>();
  root->mkdirs("Stadb/routing/pim")->entityIs(pimConfig);
  auto mfibConfig = Ent::make<Routing::Multicast::Fib::VrfConfig>();
  root->mkdirs("Stadb/routing/multicast/vrf")->entityIs(mfibConfig);
  auto def = pimConfig->vrfConfigIs(L3::VrfName("default"));
  auto red = mfibConfig->configIs("red");

  EXPECT_EQ(root->lookup("Stadb/routing/pim/config.vrfConfig/%27default%27"), def);
  EXPECT_EQ(root->lookup("Stadb/routing/pim/config.vrfConfig/default"), nullptr)
      << "the VRF must be quoted";
  EXPECT_EQ(root->lookup("Stadb/routing/pim/config.vrfConfig/%27blue%27"), nullptr);
  EXPECT_EQ(root->lookup("Stadb/routing/pim/config.vrfConfig/%27" + std::string(101, 'x') + "%27"),
            nullptr);
  EXPECT_EQ(root->lookup("Stadb/routing/multicast/vrf/config.config/red"), red);
  EXPECT_EQ(root->lookup("Stadb/routing/multicast/vrf/config.config/default"), nullptr);
  EXPECT_EQ(red->typeName(), "Routing::Multicast::Fib::Config");
}

TEST(RecordNotificationTest, SettersNotifyOnlyOnChange) {
  auto r = route(sg("10.1.1.1", "239.1.1.1"));
  auto intf = r->routeIntfIs(IntfId("Ethernet1"));
  ChangeLog<int> routeLog(r, Routing::Pim::SparseMode::Route::attrUpstreamInfo);
  ChangeLog<int> intfLog(intf, Routing::Pim::SparseMode::Intf::attrForward);

  r->upstreamInfoIs(IntfId("Ethernet2"), v4("10.0.0.9"));
  r->upstreamInfoIs(IntfId("Ethernet2"), v4("10.0.0.9"));
  EXPECT_EQ(routeLog.all, 1) << "an equal upstream value is no change";
  r->upstreamInfoDel();
  EXPECT_EQ(r->upstreamInfo(), nullptr);
  EXPECT_EQ(routeLog.all, 2);

  intf->forwardIs(true);
  intf->forwardIs(true);
  intf->rptStateIs(Routing::Pim::SparseMode::rptStateNoInfo);
  EXPECT_EQ(intfLog.all, 2);
  EXPECT_EQ(intfLog.matched, 1);
}

TEST(RecordNotificationTest, CollectionsNotifyWithKey) {
  auto status = Ent::make<Routing::Pim::SparseMode::Status>(L3::VrfName("red"));
  ChangeLog<Routing::Pim::RouteKey> log(status, Routing::Pim::SparseMode::Status::attrRoute);
  const auto key = sg("10.1.1.1", "239.1.1.1");
  auto first = status->routeIs(key);
  EXPECT_EQ(status->routeIs(key), first);
  auto replacement = route(key);
  status->routeIs(replacement);
  EXPECT_EQ(status->route(key), replacement);
  status->routeDel(key);
  EXPECT_EQ(log.keys, (std::vector{key, key, key, key})) << "insert, replace (2), delete";

  auto coll = Ent::make<Routing::Pim::StatusColl>();
  ChangeLog<L3::VrfName> vrfLog(coll, Routing::Pim::StatusColl::attrVrfStatus);
  coll->vrfStatusIs(L3::VrfName("red"))->pimIntfIs(IntfId("Ethernet1"));
  EXPECT_EQ(vrfLog.keys, std::vector{L3::VrfName("red")});
  EXPECT_EQ(coll->vrfStatus(L3::VrfName("red"))->pimIntf().size(), 1u);
}

class HelpersTest : public ::testing::Test {
 protected:
  void TearDown() override { Routing::Pim::Snmp::pimSnmpHelpersDel(); }
};

TEST_F(HelpersTest, SingletonAndHelperMap) {
  using Routing::Pim::Snmp::pimSnmpHelpers;
  auto helpers = pimSnmpHelpers();
  EXPECT_EQ(pimSnmpHelpers(), helpers);
  EXPECT_EQ(Routing::Pim::Snmp::PimSnmpHelpersIs("other"), helpers);
  EXPECT_NE(Routing::Pim::Snmp::pimSnmpHelpersFactory("x"), helpers);

  ChangeLog<AddressFamily> log(helpers,
                               Routing::Pim::Snmp::PimSnmpHelpers::attrMrouteCounterHelper);
  auto fake = Ent::make<FakeCounterHelper>(1, 2);
  helpers->mrouteCounterHelperIs(AddressFamily::ipv4, fake);
  helpers->mrouteCounterHelperIs(AddressFamily::ipv4, fake);
  EXPECT_EQ(helpers->mrouteCounterHelper(AddressFamily::ipv4), fake);
  helpers->mrouteCounterHelperIs(AddressFamily::ipv4, nullptr);
  EXPECT_EQ(helpers->mrouteCounterHelper(AddressFamily::ipv4), nullptr);
  helpers->mrouteCounterHelperDel(AddressFamily::ipv6);
  EXPECT_EQ(log.keys, (std::vector{AddressFamily::ipv4, AddressFamily::ipv4}));
}

}  // namespace
