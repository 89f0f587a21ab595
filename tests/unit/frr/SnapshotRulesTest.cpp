// The builder's rules on small hand-made FRR states: join states, asserts, interfaces that
// cannot be served, and the command line.

#include <gtest/gtest.h>

#include "daemon/state/StateDocument.h"
#include "pimsnmp-frr/Options.h"
#include "pimsnmp-frr/Snapshot.h"

namespace {

using namespace PimSnmpFrr;
using PimSnmpd::Json;

constexpr int64_t kNow = 1800000000;
const std::string kKey = "10.0.0.9,239.1.1.1";

// Two interfaces (eth1 upstream, eth2 downstream) and one (S,G) route.
struct Fixture {
  Fixture() {
    frr.interfaces["eth1"] = {1, "default", "10.0.1.1/24"};
    frr.interfaces["eth2"] = {2, "default", "10.0.2.1/24"};
    frr.interfaces["eth3"] = {3, "default", std::nullopt};  // no IPv4 address
    VrfState& v = frr.vrfs["default"];
    v.interfaces["eth1"] = {};
    v.interfaces["eth2"] = {};
    v.interfaces["eth3"] = {};
    v.upstream[kKey] = {std::optional<int64_t>(10), false, "eth1"};
    v.rpf[kKey] = {"eth1", "10.0.1.2"};
  }
  VrfState& vrf() { return frr.vrfs["default"]; }
  Json build() {
    Json doc = buildDocument(frr, kernel, kNow);
    for (const auto& e : PimSnmpd::validate(doc)) ADD_FAILURE() << e.toString();
    return doc;
  }
  static const Json& route(const Json& doc) {
    return doc["vrfs"]["default"]["ipv4"]["routes"][kKey];
  }
  FrrState frr;
  KernelView kernel;
};

TEST(SnapshotRulesTest, JoinStatesBecomeRouteInterfaces) {
  struct Case {
    const char* state;
    const char* shape;  // eth2's route interface, or null for none
    bool rpt;
  };
  const Case cases[] = {
      {"JOIN", "{}", false},
      {"NOINFO", nullptr, false},
      {"PRUNE", R"({"forward":false})", false},
      {"PRUNEPT", R"({"forward":false})", false},
      {"SGRpt(P)", R"({"rptState":"pruned","forward":false})", true},
      {"SGRpt(P')", R"({"rptState":"pruned","forward":false})", true},
      {"SGRpt(PP)", R"({"rptState":"prunePending"})", true},
      {"SGRpt(NI)", nullptr, false},
      {"SOMETHING-NEW", nullptr, false},
  };
  for (const auto& c : cases) {
    Fixture f;
    f.vrf().channels[kKey]["eth2"] = {c.state, false};
    const Json r = Fixture::route(f.build());
    if (c.shape) {
      EXPECT_EQ(r["interfaces"]["eth2"], Json::parse(c.shape)) << c.state;
    } else {
      EXPECT_FALSE(r["interfaces"].contains("eth2")) << c.state;
    }
    const bool rpt = std::find(r["flags"].begin(), r["flags"].end(), "rpt") != r["flags"].end();
    EXPECT_EQ(rpt, c.rpt) << c.state;
  }
}

TEST(SnapshotRulesTest, IgmpReceiversAndTheOilForward) {
  Fixture f;
  f.vrf().channels[kKey]["eth2"] = {"NOINFO", true};
  f.vrf().oil[kKey] = {"eth3", "gone0"};  // gone0 is no interface of the document
  const Json r = Fixture::route(f.build());
  EXPECT_EQ(r["interfaces"], Json({{"eth2", Json::object()}, {"eth3", Json::object()}}));
}

TEST(SnapshotRulesTest, AssertOnTheUpstreamInterface) {
  Fixture f;
  f.vrf().asserts = {{"eth1", kKey, "LOSER"}, {"eth2", kKey, "NOINFO"}};
  f.vrf().assertMetrics = {{"eth1", kKey, true, 110, 20}, {"eth2", kKey, false, 1, 1}};
  const Json r = Fixture::route(f.build());
  EXPECT_EQ(r["interfaces"]["eth1"], Json::parse(R"({"assertState":"loser","forward":false,
      "assertRptBit":true,"assertMetricPref":110,"assertMetric":20})"));
  // A metric without an assert state sets nothing.
  EXPECT_FALSE(r["interfaces"].contains("eth2"));
}

TEST(SnapshotRulesTest, WhatCannotBeServedIsLeftOut) {
  Fixture f;
  f.vrf().upstream["*,239.2.2.2"] = {std::nullopt, false, "tunnel9"};  // unknown interface
  const Json doc = f.build();
  const Json& v4 = doc["vrfs"]["default"]["ipv4"];
  EXPECT_FALSE(v4["pimStatus"]["interfaces"].contains("eth3"));  // no address
  EXPECT_FALSE(v4["routes"]["*,239.2.2.2"].contains("upstream"));
  EXPECT_FALSE(v4["routes"]["*,239.2.2.2"].contains("created"));  // filled when stabilized
  // Two interfaces with one ifIndex (churn): one is left out until the next snapshot.
  f.kernel.ifIndex["eth2"] = 1;
  EXPECT_EQ(f.build()["interfaces"].size(), 2u);
}

TEST(SnapshotRulesTest, StabilizeFillsAndKeepsTimes) {
  Json doc = Json::parse(R"({"vrfs":{"default":{"ipv4":{
      "routes":{"*,239.1.1.1":{},"*,239.1.1.2":{"created":100}},
      "candidateRpStatus":{"groups":{"239.0.0.0/8":{"10.0.0.1":{"holdTime":150}}}}}}}})");
  const Json prev = Json::parse(R"({"vrfs":{"default":{"ipv4":{
      "routes":{"*,239.1.1.1":{"created":50},"*,239.1.1.2":{"created":99}}}}}})");
  stabilizeTimes(doc, prev, 1000);
  const Json& v4 = doc["vrfs"]["default"]["ipv4"];
  EXPECT_EQ(v4["routes"]["*,239.1.1.1"]["created"], 50);  // missing: the old one
  EXPECT_EQ(v4["routes"]["*,239.1.1.2"]["created"], 99);  // 1 s later: jitter
  EXPECT_EQ(v4["candidateRpStatus"]["groups"]["239.0.0.0/8"]["10.0.0.1"]["expiry"], 1150);
}

TEST(OptionsTest, CommandLine) {
  auto parse = [](std::vector<std::string> a) { return parseOptions(a); };
  const auto ok = parse({"--feed", "unix:/run/x.sock", "--grace", "2.5", "--vty-dir", "/v"});
  ASSERT_TRUE(ok.options);
  EXPECT_EQ(ok.options->feedPath, "/run/x.sock");
  EXPECT_EQ(ok.options->grace, std::chrono::milliseconds(2500));
  EXPECT_EQ(ok.options->vtyDir, "/v");
  EXPECT_EQ(ok.options->neighborPeriod, std::chrono::milliseconds(1000));
  EXPECT_EQ(parse({"--help"}).exitCode, 0);
  EXPECT_NE(parse({"--help"}).message.find("--kernel-only"), std::string::npos);
  EXPECT_EQ(parse({}).exitCode, 2);  // no feed
  EXPECT_TRUE(parse({"--once"}).options);
  EXPECT_EQ(parse({"--feed", "udp:1.2.3.4:5"}).exitCode, 2);
  EXPECT_EQ(parse({"--once", "--grace", "0"}).exitCode, 2);
  EXPECT_EQ(parse({"--once", "--grace", "soon"}).exitCode, 2);
  EXPECT_EQ(parse({"--once", "--route-period"}).exitCode, 2);
  EXPECT_EQ(parse({"--once", "--log", "file"}).exitCode, 2);
  EXPECT_EQ(parse({"--once", "--bogus", "x"}).exitCode, 2);
}

}  // namespace
