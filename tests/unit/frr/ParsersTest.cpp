// FRR output parsing: the lab's captures and the quirks of FRR's JSON and text forms.

#include <gtest/gtest.h>

#include "pimsnmp-frr/FrrState.h"
#include "pimsnmp-frr/FrrText.h"
#include "pimsnmp-frr/Log.h"
#include "tests/unit/frr/FrrTestUtil.h"

namespace {

using namespace PimSnmpFrr;
using FrrTest::captureJson;
using FrrTest::readCapture;

// Collects what is logged while it lives.
class LogCapture {
 public:
  LogCapture() {
    setLogSink([this](std::string_view m) { lines.emplace_back(m); });
  }
  ~LogCapture() { setLogSink({}); }
  bool contains(std::string_view s) const {
    for (const auto& l : lines) {
      if (l.find(s) != std::string::npos) return true;
    }
    return false;
  }
  std::vector<std::string> lines;
};

FrrJson json(const char* text) {
  return FrrJson::parse(text);
}

TEST(FrrTextTest, Hms) {
  EXPECT_EQ(parseHms("00:03:12"), 192);
  EXPECT_EQ(parseHms("123:00:01"), 123 * 3600 + 1);  // hours past 99
  EXPECT_EQ(parseHms("05:02"), 302);                 // MM:SS of join timers
  EXPECT_EQ(parseHms("--:--:--"), std::nullopt);     // timer not running
  EXPECT_EQ(parseHms("00:61:00"), std::nullopt);
  EXPECT_EQ(parseHms("12"), std::nullopt);
  EXPECT_EQ(parseHms("1:2:3:4"), std::nullopt);
  EXPECT_EQ(parseHms(""), std::nullopt);
  EXPECT_EQ(parseHms("00:-1:00"), std::nullopt);
}

TEST(FrrTextTest, JsonAfterBlankLinesAndGarbageLogged) {
  LogCapture log;
  // `show ip multicast count vrf all json` starts with a blank line.
  const auto j =
      parseFrrJson(readCapture("r2", "vrf-all/show_ip_multicast_count_vrf_all.json"), "count");
  ASSERT_TRUE(j);
  EXPECT_TRUE(j->contains("default"));
  EXPECT_FALSE(parseFrrJson("% Unknown command", "cmd-a"));
  EXPECT_FALSE(parseFrrJson("{\"a\":", "cmd-b"));
  EXPECT_FALSE(parseFrrJson("", "cmd-c"));
  EXPECT_TRUE(log.contains("cmd-a"));
  EXPECT_TRUE(log.contains("cmd-b"));
  EXPECT_TRUE(log.contains("cmd-c"));
}

TEST(FrrTextTest, MembersMatchAcrossCaseSpacesAndUnderscores) {
  const FrrJson j = json(R"({"Rp HoldTime":150,"installed":1,"Installed":0,"hold_time":"42"})");
  EXPECT_EQ(intMember(j, "Rp HoldTime"), 150);
  EXPECT_EQ(intMember(j, "rpHoldTime"), 150);
  // An exact name wins over a case variant.
  EXPECT_EQ(intMember(j, "installed"), 1);
  EXPECT_EQ(intMember(j, "Installed"), 0);
  EXPECT_EQ(intMember(j, "holdTime"), 42);  // digits in a string
  EXPECT_EQ(intMember(j, "missing"), std::nullopt);
  EXPECT_EQ(stringMember(j, "Rp HoldTime"), std::nullopt);  // not a string
  EXPECT_EQ(member(FrrJson::array(), "x"), nullptr);
}

TEST(FrrTextTest, AddressesRangesAndRouteKeys) {
  EXPECT_EQ(canonicalIpv4("10.1.2.3"), "10.1.2.3");
  EXPECT_EQ(canonicalIpv4("10.1.2"), std::nullopt);
  EXPECT_EQ(canonicalIpv4("*"), std::nullopt);
  EXPECT_EQ(canonicalGroupRange("239.0.0.0/8"), "239.0.0.0/8");
  EXPECT_EQ(canonicalGroupRange("239.1.0.0/8"), std::nullopt);  // host bits
  EXPECT_EQ(canonicalGroupRange("10.0.0.0/8"), std::nullopt);   // not multicast
  EXPECT_EQ(canonicalGroupRange("224.0.0.0/33"), std::nullopt);
  EXPECT_EQ(canonicalIfAddress("10.99.50.2/24"), "10.99.50.2/24");
  EXPECT_EQ(canonicalIfAddress("fe80::1/64"), std::nullopt);
  EXPECT_EQ(routeKey("*", "239.1.1.1"), "*,239.1.1.1");
  EXPECT_EQ(routeKey("0.0.0.0", "239.1.1.1"), "*,239.1.1.1");
  EXPECT_EQ(routeKey("10.0.0.1", "239.1.1.1"), "10.0.0.1,239.1.1.1");
  EXPECT_EQ(routeKey("10.0.0.1", "10.1.1.1"), std::nullopt);
  EXPECT_EQ(routeKey("239.0.0.1", "239.1.1.1"), std::nullopt);
}

TEST(FrrTextTest, AssertColumns) {
  LogCapture log;
  const auto rows = parseAssert(readCapture("r4", "show_ip_pim_assert.txt") +
                                "garbage line with many words in it here\n\n");
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0].interface, "r4-lan");
  EXPECT_EQ(rows[0].routeKey, "10.99.1.11,239.1.1.1");
  EXPECT_EQ(rows[0].state, "LOSER");
  EXPECT_EQ(rows[1].routeKey, "10.99.1.10,239.1.1.5");
  EXPECT_TRUE(log.contains("garbage line"));
}

TEST(FrrTextTest, AssertWinnerMetricSkipsInfinity) {
  const auto rows =
      parseAssertWinnerMetric(readCapture("r4", "show_ip_pim_assert-winner-metric.txt"));
  ASSERT_EQ(rows.size(), 2u);  // three INFI rows left out
  EXPECT_EQ(rows[0].interface, "r4-lan");
  EXPECT_EQ(rows[0].routeKey, "10.99.1.11,239.1.1.1");
  EXPECT_FALSE(rows[0].rpt);
  EXPECT_EQ(rows[0].pref, 1u);
  EXPECT_EQ(rows[0].metric, 0u);
  const auto rpt = parseAssertWinnerMetric(
      "r1-r2  10.0.0.1  *  239.1.1.1  yes  120  20  10.0.0.2\n"
      "r1-r2  10.0.0.1  *  239.1.1.1  maybe  120  20  10.0.0.2\n");
  ASSERT_EQ(rpt.size(), 1u);
  EXPECT_TRUE(rpt[0].rpt);
  EXPECT_EQ(rpt[0].pref, 120u);
}

TEST(FrrTextTest, MulticastJoinPruneIntervalAsRun) {
  const auto lab = parseMulticast(readCapture("r2", "show_ip_multicast.txt"));
  EXPECT_EQ(lab.joinPruneInterval, 60);
  EXPECT_TRUE(lab.mrouteSocket);
  const auto set =
      parseMulticast("Mroute socket descriptor: -1(red)\nUpstream Join Timer: 90 secs\n");
  EXPECT_EQ(set.joinPruneInterval, 90);
  EXPECT_FALSE(set.mrouteSocket);
  EXPECT_EQ(parseMulticast("Upstream Join Timer: lots secs\n").joinPruneInterval, std::nullopt);
}

TEST(FrrTextTest, VrfTables) {
  const auto t =
      parseVrfTables("vrf red id 5 table 1001\nvrf blue inactive\nvrf green id 7 table x\n");
  EXPECT_EQ(t, (std::map<uint32_t, std::string>{{1001, "red"}}));
}

TEST(FrrStateTest, ZebraInterfacesFlatAndNested) {
  const auto flat = parseZebraInterfaces(captureJson("r2", "show_interface.json"));
  ASSERT_TRUE(flat.contains("r2-lan"));
  EXPECT_EQ(flat.at("r2-lan").index, 3);
  EXPECT_EQ(flat.at("r2-lan").address, "10.99.50.2/24");  // the IPv4 one, not fe80::
  EXPECT_EQ(flat.at("lo").address, std::nullopt);
  const auto nested = parseZebraInterfaces(json(
      R"({"red":{"eth9":{"index":9,"ipAddresses":[{"address":"10.9.9.9/30","secondary":true},
          {"address":"10.9.9.1/30","secondary":false}]}}})"));
  ASSERT_TRUE(nested.contains("eth9"));
  EXPECT_EQ(nested.at("eth9").vrf, "red");
  EXPECT_EQ(nested.at("eth9").address, "10.9.9.1/30");  // the primary one
  EXPECT_TRUE(parseZebraInterfaces(json(R"({"bad":{"index":0},"worse":{"index":"x"}})")).empty());
}

TEST(FrrStateTest, NeighborsWithMissingMembers) {
  LogCapture log;
  const auto n = parseNeighbors(json(R"({"eth0":{
      "10.0.0.2":{"upTime":"100:00:00","holdTime":"--:--:--"},
      "not-an-address":{"upTime":"00:00:01"},
      "10.0.0.3":{"holdTimeMax":"35","holdTime":"00:00:30"}}})"));
  ASSERT_EQ(n.at("eth0").size(), 2u);
  EXPECT_EQ(n.at("eth0").at("10.0.0.2").upTime, 360000);
  EXPECT_EQ(n.at("eth0").at("10.0.0.2").holdLeft, std::nullopt);
  EXPECT_EQ(n.at("eth0").at("10.0.0.2").holdMax, 105);  // FRR's default when not given
  EXPECT_EQ(n.at("eth0").at("10.0.0.3").holdMax, 35);
  EXPECT_EQ(n.at("eth0").at("10.0.0.3").upTime, std::nullopt);
  EXPECT_TRUE(log.contains("not-an-address"));
}

TEST(FrrStateTest, BsrpInfoSkipsNonRpMembers) {
  const auto rps = parseBsrpInfo(captureJson("r2", "show_ip_pim_bsrp-info.json"));
  EXPECT_EQ(rps.size(), 2u);
  EXPECT_EQ(rps.at("239.0.0.0/8").size(), 2u);
  EXPECT_EQ(rps.at("239.0.0.0/8").at("10.99.13.1"), 150);
}

TEST(FrrStateTest, StaticRpsOnlyWithAGroup) {
  const auto s = parseStaticRps(json(R"({"10.0.0.1":[
      {"group":"224.0.0.0/4","source":"Static"},
      {"group":"239.0.0.0/8","source":"BSR"},
      {"prefixList":"PL","source":"Static"}],
      "10.0.0.9":[{"group":"239.1.0.0/8","source":"Static"}]})"));
  EXPECT_EQ(s, (std::map<std::string, std::set<std::string>>{{"224.0.0.0/4", {"10.0.0.1"}}}));
}

TEST(FrrStateTest, UpstreamRpfJoinMrouteOfTheLab) {
  const auto up = parseUpstream(captureJson("r2", "show_ip_pim_upstream.json"));
  EXPECT_EQ(up.size(), 5u);
  EXPECT_TRUE(up.at("10.99.1.10,239.1.1.1").spt);
  EXPECT_EQ(up.at("*,239.1.1.1").inbound, "r2-r1");
  EXPECT_EQ(up.at("*,239.1.1.1").upTime, 186);
  // rpf json's cache counters beside the routes are not routes.
  const auto rpf = parseRpf(captureJson("r2", "show_ip_pim_rpf.json"));
  EXPECT_EQ(rpf.size(), 5u);
  EXPECT_EQ(rpf.at("10.99.1.10,239.1.1.1").address, "0.0.0.0");
  const auto join = parseJoin(captureJson("r4", "show_ip_pim_join.json"));
  EXPECT_EQ(join.at("*,239.1.1.1").at("r4-h3").state, "NOINFO");
  EXPECT_TRUE(join.at("*,239.1.1.1").at("r4-h3").igmp);
  const auto oil = parseMroute(captureJson("r2", "show_ip_mroute.json"));
  EXPECT_EQ(oil.at("*,239.1.1.1"), std::set<std::string>{"r2-lan"});
  EXPECT_TRUE(oil.at("10.99.1.10,239.1.1.1").empty());  // no "oil", no "flags"
}

TEST(FrrStateTest, BsrOnlyWhenElected) {
  EXPECT_EQ(parseBsr(captureJson("r2", "show_ip_pim_bsr.json")).address, "10.99.100.1");
  EXPECT_EQ(parseBsr(captureJson("r2", "show_ip_pim_bsr.json")).lastBsmSeen, 6);
  EXPECT_EQ(parseBsr(json(R"({"bsr":"0.0.0.0","state":"ACCEPT_ANY"})")).address, "");
  EXPECT_EQ(parseBsr(json(R"({"bsr":"10.0.0.1","state":"ACCEPT_ANY"})")).address, "");
}

TEST(FrrStateTest, SurprisingShapesAreSkippedNotFatal) {
  LogCapture log;
  const FrrJson odd = json(R"({"239.1.1.1":{"*":5,"x.y":{"upTime":1},"10.0.0.1":[]},
                               "oops":[1,2],"224.0.0.0":{"10.0.0.1":{"upTime":7,"sptBit":"1"}}})");
  const auto up = parseUpstream(odd);
  ASSERT_EQ(up.size(), 1u);
  EXPECT_EQ(up.at("10.0.0.1,224.0.0.0").upTime, std::nullopt);  // a number, not "HH:MM:SS"
  EXPECT_TRUE(up.at("10.0.0.1,224.0.0.0").spt);
  EXPECT_TRUE(log.contains("x.y,239.1.1.1"));
  EXPECT_TRUE(parseRpf(FrrJson::array()).empty());
  EXPECT_TRUE(parseJoin(json(R"({"eth0":{"239.1.1.1":{"bad":{}}}})")).empty());
  EXPECT_TRUE(parseMulticastCount(json(R"({"eth0":{"vif":900},"pimreg":{"vif":0}})")).empty());
}

TEST(FrrStateTest, VrfAllSplit) {
  const FrrJson all = captureJson("r2", "vrf-all/show_ip_pim_vrf_all_neighbor.json");
  const auto parts = splitVrfs(all);
  ASSERT_EQ(parts.size(), 1u);
  const auto n = parseNeighbors(*parts.at("default"));
  EXPECT_EQ(n.at("r2-lan").size(), 2u);
  EXPECT_EQ(n.at("r2-r1").size(), 1u);
}

}  // namespace
