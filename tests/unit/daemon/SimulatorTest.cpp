#include <gtest/gtest.h>

#include "daemon/Simulator.h"
#include "daemon/StateKeeper.h"
#include "platform/SnmpUtil/SnmpUtil.h"
#include "tests/unit/daemon/DaemonTestUtil.h"

namespace PimSnmpd {
namespace {

class SimulatorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(keeper_.applyDocumentText(DaemonTest::testDocument(), "demo").ok);
  }
  // Runs one step through the applier; every step must be a valid update.
  Json step() {
    Json patch = sim_.step(keeper_.document().json());
    const ApplyResult r = keeper_.applyPatch(patch, "simulation");
    EXPECT_TRUE(r.ok) << "step " << sim_.steps() << ": "
                      << (r.errors.empty() ? "" : r.errors[0].toString());
    return patch;
  }
  Json doc() const { return keeper_.document().json(); }

  SnmpUtil::ScopedEntityRoot root_{Ent::make<Ent::Dir>("root")};
  PlatformState platform_{SnmpUtil::entityRoot()};
  StateKeeper keeper_{platform_};
  Simulator sim_;
};

TEST_F(SimulatorTest, CountersOnlyGrow) {
  const Json route = doc()["vrfs"]["default"]["ipv4"]["fib"]["routes"]["10.0.1.10,239.1.1.1"];
  uint64_t packets = route["packets"];
  uint64_t bytes = route["bytes"];
  for (int i = 0; i < 3; ++i) {
    step();
    const Json now = doc()["vrfs"]["default"]["ipv4"]["fib"]["routes"]["10.0.1.10,239.1.1.1"];
    EXPECT_GT(now["packets"].get<uint64_t>(), packets);
    EXPECT_GT(now["bytes"].get<uint64_t>(), bytes);
    packets = now["packets"];
    bytes = now["bytes"];
  }
  // The IPv6 VRF's counters move too.
  EXPECT_GT(doc()["vrfs"]["blue6"]["ipv6"]["fib"]["routes"]["2001:db8:20::10,ff3e::1:1"]["packets"]
                .get<uint64_t>(),
            7u);
}

TEST_F(SimulatorTest, TheLowestNeighborFlaps) {
  const auto neighbors = [&] {
    return doc()["vrfs"]["default"]["ipv4"]["pimStatus"]["interfaces"]["Ethernet1"]["neighbors"];
  };
  for (uint64_t i = 1; i < Simulator::kFlapPeriod; ++i) step();
  EXPECT_TRUE(neighbors().contains("10.0.1.2"));
  step();
  EXPECT_FALSE(neighbors().contains("10.0.1.2"));
  EXPECT_TRUE(neighbors().contains("10.0.1.3"));
  EXPECT_TRUE(sim_.neighborDown());
  for (uint64_t i = 0; i < Simulator::kFlapDown; ++i) step();
  EXPECT_TRUE(neighbors().contains("10.0.1.2"));
  EXPECT_FALSE(sim_.neighborDown());
}

TEST_F(SimulatorTest, ARouteComesAndGoes) {
  // Counted over every VRF and family: which route is copied is the simulator's choice.
  const auto routeCount = [&] {
    size_t n = 0;
    const Json d = doc();
    for (const auto& [name, vrf] : d["vrfs"].items()) {
      for (const auto& [af, fam] : vrf.items()) {
        n += fam["routes"].size() + fam["fib"]["routes"].size();
      }
    }
    return n;
  };
  const size_t before = routeCount();
  for (uint64_t i = 0; i < Simulator::kChurnPeriod; ++i) step();
  EXPECT_TRUE(sim_.extraRouteUp());
  EXPECT_EQ(routeCount(), before + 2);
  for (uint64_t i = 0; i < Simulator::kChurnUp; ++i) step();
  EXPECT_FALSE(sim_.extraRouteUp());
  EXPECT_EQ(routeCount(), before);
}

TEST(Simulator, KeepsTheShippedDemoMovingWithoutARefusal) {
  SnmpUtil::ScopedEntityRoot root{Ent::make<Ent::Dir>("root")};
  PlatformState platform{SnmpUtil::entityRoot()};
  StateKeeper keeper{platform};
  ASSERT_TRUE(keeper.applyDocumentText(DaemonTest::shippedDemoDocument(), "demo").ok);
  Simulator sim;
  bool flapped = false;
  bool churned = false;
  for (int i = 0; i < 60; ++i) {
    const auto r = keeper.applyPatch(sim.step(keeper.document().json()), "simulation");
    ASSERT_TRUE(r.ok) << r.errors[0].toString();
    flapped = flapped || sim.neighborDown();
    churned = churned || sim.extraRouteUp();
  }
  EXPECT_TRUE(flapped);
  EXPECT_TRUE(churned);
}

TEST(Simulator, HasNothingToDoOnAnEmptyDocument) {
  Simulator sim;
  for (int i = 0; i < 30; ++i) EXPECT_TRUE(sim.step(Json::object()).empty());
}

}  // namespace
}  // namespace PimSnmpd
