// The daemon's wiring of the agent over its platform inputs, without net-snmp: the MIB
// modules' entry points and the neighbor-loss notification are recorded instead.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "PimSnmp/PimSnmp/PimMib.h"
#include "daemon/AgentTree.h"
#include "daemon/StateKeeper.h"
#include "platform/Clock/Clock.h"
#include "platform/SnmpUtil/SnmpUtil.h"
#include "tests/unit/agent_sm/AgentTestUtil.h"
#include "tests/unit/daemon/DaemonTestUtil.h"

namespace PimSnmpd {
namespace {

using Routing::Pim::Snmp::PimMib;

// The registrations so far, sorted (the order across VRFs is not the point here), and forgotten.
std::vector<std::string> sortedCalls(AgentSmTest::RecordingRegistrar& r) {
  std::vector<std::string> out = r.take();
  std::sort(out.begin(), out.end());
  return out;
}

class AgentTreeTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(keeper_.applyDocumentText(DaemonTest::testDocument(), "demo").ok);
    tree_.bringUp();
  }

  void start() {
    status_->initializedIs(true);
    // Lets the startup review of the routes present at start run to its end.
    clock_->stepTo(clock_->now() + 30);
  }

  Ent::Ptr<PimMib> mib(const std::string& vrf) const {
    return tree_.pimMibRoot() ? Ent::ptrCast<PimMib>(tree_.pimMibRoot()->entity(vrf)) : nullptr;
  }

  Ent::Ptr<Plat::ManualClock> clock_ = Ent::make<Plat::ManualClock>(1.7e9);
  Plat::ScopedClock scopedClock_{clock_};
  SnmpUtil::ScopedEntityRoot root_{Ent::make<Ent::Dir>("root")};
  AgentSmTest::RecordingRegistrar registrar_;
  Routing::Pim::Snmp::ScopedMibRegistrar scopedRegistrar_{registrar_};
  AgentSmTest::RecordingNotifier notifier_;
  Routing::Pim::SnmpAgent::ScopedNeighborLossNotifier scopedNotifier_{notifier_};
  PlatformState platform_{SnmpUtil::entityRoot()};
  StateKeeper keeper_{platform_};
  Ent::Ptr<Snmp::Status> status_ = Ent::make<Snmp::Status>();
  AgentTree tree_{platform_, status_, clock_};
};

TEST_F(AgentTreeTest, RegistersNothingBeforeTheAgentIsUp) {
  EXPECT_TRUE(sortedCalls(registrar_).empty());
  EXPECT_FALSE(mib("default"));
}

TEST_F(AgentTreeTest, ServesIpv4VrfsWithThreeMibsAndIpv6OnlyVrfsWithIpMcast) {
  start();
  EXPECT_EQ(sortedCalls(registrar_),
            (std::vector<std::string>{"init_PimMIB()", "init_PimMIB(red)", "init_ipMRouteStdMIB()",
                                      "init_ipMRouteStdMIB(red)", "init_ipMcastMIB()",
                                      "init_ipMcastMIB(blue6)", "init_ipMcastMIB(red)"}));
  const auto def = mib("default");
  ASSERT_TRUE(def);
  EXPECT_EQ(def->pimInterfaceTable().size(), 3u);
  EXPECT_EQ(def->pimNeighborTable().size(), 3u);
  EXPECT_EQ(def->ipMcastRouteTable().size(), 3u);
  EXPECT_EQ(def->ipMRouteTable().size(), 3u);
  EXPECT_EQ(def->pimIpMrouteTable().size(), 3u);
  const auto blue = mib("blue6");
  ASSERT_TRUE(blue);
  EXPECT_EQ(blue->ipMcastRouteTable().size(), 1u);
  EXPECT_EQ(blue->pimInterfaceTable().size(), 0u);
  EXPECT_EQ(blue->ipMRouteTable().size(), 0u);
}

TEST_F(AgentTreeTest, PatchesBecomeRowsAndNeighborLosses) {
  start();
  sortedCalls(registrar_);
  ASSERT_TRUE(keeper_
                  .applyPatchText(R"({"vrfs":{"red":{"ipv4":{
        "routes":{"172.16.0.51,239.9.9.9":{"upstream":{"interface":"Vlan100"},
                                          "interfaces":{"Vlan101":{}}}},
        "fib":{"routes":{"172.16.0.51,239.9.9.9":{"oifs":["Vlan101"]}}}}}}})",
                                  "t")
                  .ok);
  EXPECT_EQ(mib("red")->ipMcastRouteTable().size(), 2u);
  EXPECT_EQ(mib("red")->ipMRouteTable().size(), 2u);

  // 10.0.1.2 is the lower of Ethernet1's two neighbors: its loss is reported.
  ASSERT_TRUE(keeper_
                  .applyPatchText(R"({"vrfs":{"default":{"ipv4":{"pimStatus":{"interfaces":
        {"Ethernet1":{"neighbors":{"10.0.1.2":null}}}}}}}})",
                                  "t")
                  .ok);
  ASSERT_EQ(notifier_.losses.size(), 1u);
  EXPECT_EQ(notifier_.losses[0].ifIndex, 1);
  EXPECT_EQ(notifier_.losses[0].address, *Lanet::IpAddr::parse("10.0.1.2"));
  EXPECT_EQ(notifier_.losses[0].context, "");
  EXPECT_EQ(mib("default")->pimNeighborTable().size(), 2u);
}

TEST_F(AgentTreeTest, TearDownWithdrawsEveryContext) {
  start();
  sortedCalls(registrar_);
  tree_.tearDown();
  EXPECT_EQ(sortedCalls(registrar_),
            (std::vector<std::string>{
                "unregister_PimMIB()", "unregister_PimMIB(red)", "unregister_ipMRouteStdMIB()",
                "unregister_ipMRouteStdMIB(red)", "unregister_ipMcastMIB()",
                "unregister_ipMcastMIB(blue6)", "unregister_ipMcastMIB(red)"}));
  EXPECT_FALSE(tree_.root());
  tree_.tearDown();
  EXPECT_TRUE(sortedCalls(registrar_).empty());
}

}  // namespace
}  // namespace PimSnmpd
