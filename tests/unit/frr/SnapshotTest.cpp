// The snapshot of each lab router, built through the vty and kernel doubles from its captures,
// checked member by member against what the captures say and by pimsnmpd's validator.

#include <gtest/gtest.h>

#include "daemon/state/StateDocument.h"
#include "tests/unit/frr/FrrTestUtil.h"

namespace {

using FrrTest::captureSnapshot;
using PimSnmpd::Json;

constexpr int64_t kNow = FrrTest::FakeClock::start;

const Json& fam(const Json& doc, const char* vrf = "default") {
  return doc["vrfs"][vrf]["ipv4"];
}

std::string errorsOf(const Json& doc) {
  std::string out;
  for (const auto& e : PimSnmpd::validate(doc)) out += e.toString() + "\n";
  return out;
}

class RouterSnapshot : public ::testing::TestWithParam<const char*> {};

TEST_P(RouterSnapshot, IsValidForPimsnmpd) {
  const Json doc = captureSnapshot(GetParam(), kNow);
  EXPECT_EQ(errorsOf(doc), "");
  EXPECT_FALSE(fam(doc)["routes"].empty());
  EXPECT_FALSE(fam(doc)["pimStatus"]["interfaces"].empty());
}

TEST_P(RouterSnapshot, InterfacesAreZebrasWithoutPimregAndLoopback) {
  const Json doc = captureSnapshot(GetParam(), kNow);
  const auto zebra = FrrTest::captureJson(GetParam(), "show_interface.json");
  size_t expected = 0;
  for (const auto& [name, z] : zebra.items()) {
    if (name == "lo" || name.starts_with("pimreg")) {
      EXPECT_FALSE(doc["interfaces"].contains(name)) << name;
      continue;
    }
    ++expected;
    ASSERT_TRUE(doc["interfaces"].contains(name)) << name;
    EXPECT_EQ(doc["interfaces"][name]["ifIndex"], z["index"]) << name;
    EXPECT_EQ(doc["interfaces"][name]["operStatus"], "up") << name;
  }
  EXPECT_EQ(doc["interfaces"].size(), expected);
}

TEST_P(RouterSnapshot, FibCountersAndOifsAreTheKernels) {
  const Json doc = captureSnapshot(GetParam(), kNow);
  FrrTest::FakeKernel kernel(GetParam());
  const Json& fib = fam(doc)["fib"];
  for (const auto& vif : kernel.vifTable) {
    if (vif.name == "pimreg") {
      EXPECT_FALSE(fib["oifIndexes"].contains(vif.name));
    } else {
      EXPECT_EQ(fib["oifIndexes"][vif.name], vif.vif) << vif.name;
    }
  }
  for (const auto& [key, r] : fib["routes"].items()) {
    // Every FIB route is a PIM route; its OIFs never hold its incoming interface.
    ASSERT_TRUE(fam(doc)["routes"].contains(key)) << key;
    if (fam(doc)["routes"][key].contains("upstream")) {
      const Json& iif = fam(doc)["routes"][key]["upstream"]["interface"];
      for (const auto& o : r["oifs"]) EXPECT_NE(o, iif) << key;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Lab, RouterSnapshot, ::testing::Values("r1", "r2", "r3", "r4"));

TEST(SnapshotR2, PimInterfacesNeighborsAndTimes) {
  const Json doc = captureSnapshot("r2", kNow);
  const Json& lan = fam(doc)["pimStatus"]["interfaces"]["r2-lan"];
  EXPECT_EQ(lan["address"], "10.99.50.2/24");  // zebra's, with the mask
  EXPECT_EQ(lan["dr"], "10.99.50.3");
  EXPECT_EQ(lan["helloInterval"], 10);  // as configured on the LAN, not the default 30
  EXPECT_EQ(lan["joinPruneInterval"], 60);
  EXPECT_EQ(fam(doc)["pimStatus"]["interfaces"]["r2-r1"]["helloInterval"], 30);
  // r2 answers with its `vrf all` captures: upTime 00:05:02, holdTime 00:01:43 left of 105.
  const Json& n = lan["neighbors"]["10.99.50.3"];
  EXPECT_EQ(n["created"], kNow - 302);
  EXPECT_EQ(n["lastRefresh"], kNow - (105 - 103));
  EXPECT_EQ(n["holdTime"], 105);
  EXPECT_EQ(lan["neighbors"].size(), 2u);
  EXPECT_FALSE(fam(doc)["pimStatus"]["interfaces"].contains("pimreg"));
}

TEST(SnapshotR2, RoutesFromUpstreamRpfJoinAndAsserts) {
  const Json doc = captureSnapshot("r2", kNow);
  const Json& routes = fam(doc)["routes"];
  EXPECT_EQ(routes.size(), 5u);
  const Json& star = routes["*,239.1.1.1"];
  EXPECT_EQ(star["flags"], Json::array({"wildcard", "rpt"}));
  EXPECT_EQ(star["upstream"], Json({{"interface", "r2-r1"}, {"rpfNeighbor", "10.99.12.1"}}));
  EXPECT_EQ(star["interfaces"], Json({{"r2-lan", Json::object()}}));
  EXPECT_EQ(star["created"], kNow - (4 * 60 + 56));
  // A directly connected source: RPF' is 0.0.0.0, not upstream json's rpfAddress (the source).
  const Json& direct = routes["10.99.1.10,239.1.1.1"];
  EXPECT_EQ(direct["upstream"]["rpfNeighbor"], "0.0.0.0");
  EXPECT_EQ(direct["upstream"]["interface"], "r2-lan");
  EXPECT_EQ(direct["flags"], Json::array({"spt"}));
  const Json& won = routes["10.99.1.11,239.1.1.1"]["interfaces"]["r2-lan"];
  EXPECT_EQ(won["assertState"], "winner");
  EXPECT_EQ(won["assertMetricPref"], 1);
  EXPECT_EQ(won["assertMetric"], 0);
  EXPECT_EQ(won["assertRptBit"], false);
  EXPECT_EQ(routes["10.99.1.10,239.1.1.5"]["interfaces"]["r2-lan"]["assertState"], "winner");
}

TEST(SnapshotR2, FibFromTheKernelCache) {
  const Json doc = captureSnapshot("r2", kNow);
  const Json& fib = fam(doc)["fib"];
  EXPECT_EQ(fib["oifIndexes"], Json({{"r2-lan", 2}, {"r2-r1", 1}}));
  // (*,G) is installed with its iif among the OIFs: dropped.
  EXPECT_EQ(fib["routes"]["*,239.1.1.1"]["oifs"], Json::array({"r2-lan"}));
  EXPECT_EQ(fib["routes"]["*,239.1.1.1"]["packets"], 4);
  EXPECT_EQ(fib["routes"]["*,239.1.1.1"]["bytes"], 512);
  EXPECT_EQ(fib["routes"]["10.99.1.10,239.1.1.1"]["oifs"], Json::array());
  EXPECT_EQ(fib["routes"]["10.99.1.10,239.1.1.1"]["packets"], 2346);
  EXPECT_EQ(fib["routes"]["10.99.1.11,239.1.1.1"]["bytes"], 481792);
}

TEST(SnapshotR2, BsrAndRpSets) {
  const Json doc = captureSnapshot("r2", kNow);
  EXPECT_EQ(fam(doc)["bsrStatus"]["electedBsrs"],
            Json({{"224.0.0.0/4", {{"address", "10.99.100.1"}}}}));
  const Json& groups = fam(doc)["candidateRpStatus"]["groups"];
  // Non-elected RPs included; "Pending RP count" is not an RP.
  EXPECT_EQ(groups["239.0.0.0/8"].size(), 2u);
  // lastBsmSeen 00:00:06, Rp HoldTime 150.
  EXPECT_EQ(groups["239.0.0.0/8"]["10.99.13.1"]["expiry"], kNow - 6 + 150);
  EXPECT_EQ(groups["238.0.0.0/8"]["10.99.1.1"]["holdTime"], 150);
  const Json& statics = fam(doc)["staticRpStatus"]["groups"];
  EXPECT_EQ(statics["224.0.0.0/4"], Json({{"10.99.1.1", Json::object()}}));
  EXPECT_EQ(statics["239.1.1.5/32"], Json({{"10.99.50.3", Json::object()}}));
  EXPECT_EQ(statics.size(), 2u);  // BSR-learnt entries of rp-info are not static
  EXPECT_EQ(fam(doc)["mfibConfig"]["routing"], true);
  EXPECT_EQ(fam(doc)["pimConfig"]["joinPruneInterval"], 60);
}

TEST(SnapshotR4, AssertLoserAndIgmpReceivers) {
  const Json doc = captureSnapshot("r4", kNow);
  const Json& routes = fam(doc)["routes"];
  const Json& lost = routes["10.99.1.11,239.1.1.1"]["interfaces"]["r4-lan"];
  EXPECT_EQ(lost["assertState"], "loser");
  // The loser's upstream interface does not forward.
  EXPECT_EQ(routes["10.99.1.11,239.1.1.1"]["upstream"]["interface"], "r4-lan");
  EXPECT_EQ(lost["forward"], false);
  // IGMP receivers (NOINFO with IGMP) forward on the host interface.
  EXPECT_TRUE(routes["*,239.1.1.1"]["interfaces"].contains("r4-h3"));
}

}  // namespace
