// The feeder's cycle against doubles of pimd, zebra, the kernel and pimsnmpd: resynchronizing,
// successive patches, stable times, restarts of pimd and pimsnmpd, the grace time, refusals.

#include <gtest/gtest.h>

#include <filesystem>

#include "daemon/state/MergePatch.h"
#include "daemon/state/StateDocument.h"
#include "pimsnmp-frr/Feeder.h"
#include "tests/unit/frr/FrrTestUtil.h"

namespace {

using namespace std::chrono_literals;
using FrrTest::FakeClock;
using FrrTest::FakeFeed;
using FrrTest::FakeKernel;
using FrrTest::FakeVty;
using PimSnmpd::Json;
using PimSnmpFrr::Feeder;

class FeederTest : public ::testing::Test {
 protected:
  explicit FeederTest(const char* router = "r2")
      : router_(router),
        dir_(FrrTest::tempSocket("run")),
        made_(std::filesystem::create_directories(dir_)),
        pimd_(std::make_unique<FakeVty>(dir_ + "/pimd.vty", router)),
        zebra_(dir_ + "/zebra.vty", router),
        feed_(std::make_unique<FakeFeed>(dir_ + "/feed.sock")),
        kernel_(router) {}
  ~FeederTest() override { std::filesystem::remove_all(dir_); }

  PimSnmpFrr::Options options() const {
    PimSnmpFrr::Options o;
    o.vtyDir = dir_;
    o.feedPath = dir_ + "/feed.sock";
    o.vtyTimeout = vtyTimeout_;
    o.feedTimeout = 2000ms;
    return o;
  }
  Feeder& feeder() {
    if (!feeder_) feeder_ = std::make_unique<Feeder>(options(), kernel_, clock_);
    return *feeder_;
  }
  // Runs the feeder for `d` in steps of 100 ms.
  void runFor(std::chrono::milliseconds d) {
    for (auto t = 0ms; t < d; t += 100ms) {
      clock_.advance(100ms);
      feeder().runDue();
    }
  }
  const Json& v4(const Json& doc) { return doc["vrfs"]["default"]["ipv4"]; }
  Json lastPatch() { return feed_->patches().empty() ? Json() : feed_->patches().back(); }

  std::chrono::milliseconds vtyTimeout_ = 1000ms;
  std::string router_;
  std::string dir_;
  bool made_;
  std::unique_ptr<FakeVty> pimd_;
  FakeVty zebra_;
  std::unique_ptr<FakeFeed> feed_;
  FakeKernel kernel_;
  FakeClock clock_;
  std::unique_ptr<Feeder> feeder_;
};

const char* kNeighborsCmd = "show ip pim vrf all neighbor json";

TEST_F(FeederTest, FirstRunReplacesWhatPimsnmpdHeldWithTheSnapshot) {
  // pimsnmpd started with a state file of its own: a VRF and an interface FRR does not have.
  feed_->load(Json::parse(R"({"interfaces":{"old0":{"ifIndex":77}},
      "vrfs":{"stale":{"ipv4":{"mfibConfig":{"routing":false}}}}})"));
  feeder().runDue();
  ASSERT_TRUE(feeder().synced());
  const Json doc = feed_->document();
  EXPECT_EQ(doc, feeder().daemonDocument());
  EXPECT_FALSE(doc["vrfs"].contains("stale"));
  EXPECT_FALSE(doc["interfaces"].contains("old0"));
  EXPECT_EQ(v4(doc)["routes"].size(), 5u);
  EXPECT_TRUE(PimSnmpd::validate(doc).empty());
  // One dump, then one patch.
  EXPECT_EQ(feed_->patches().size(), 1u);
}

TEST_F(FeederTest, NothingChangedNothingSent) {
  feeder().runDue();
  const size_t sent = feed_->patches().size();
  runFor(1500ms);  // neighbors polled again, identical
  EXPECT_GE(pimd_->count(kNeighborsCmd), 2);
  EXPECT_EQ(feed_->patches().size(), sent);
}

TEST_F(FeederTest, NeighborLostIsOneSmallPatch) {
  feeder().runDue();
  Json nb = FrrTest::captureJson("r2", "vrf-all/show_ip_pim_vrf_all_neighbor.json");
  nb["default"]["r2-lan"].erase("10.99.50.4");
  pimd_->set(kNeighborsCmd, nb.dump());
  runFor(1000ms);
  EXPECT_EQ(lastPatch(), Json::parse(R"({"vrfs":{"default":{"ipv4":{"pimStatus":{"interfaces":
      {"r2-lan":{"neighbors":{"10.99.50.4":null}}}}}}}})"));
  EXPECT_FALSE(v4(feed_->document())["pimStatus"]["interfaces"]["r2-lan"]["neighbors"].contains(
      "10.99.50.4"));
}

TEST_F(FeederTest, TimesStayUnlessTheyMoveMoreThanTwoSeconds) {
  feeder().runDue();
  const Json before = v4(feed_->document())["pimStatus"]["interfaces"]["r2-lan"]["neighbors"];
  auto neighbors = [&](const char* up, const char* left) {
    Json nb = FrrTest::captureJson("r2", "vrf-all/show_ip_pim_vrf_all_neighbor.json");
    nb["default"]["r2-lan"]["10.99.50.3"]["upTime"] = up;
    nb["default"]["r2-lan"]["10.99.50.3"]["holdTime"] = left;
    pimd_->set(kNeighborsCmd, nb.dump());
  };
  // 1 s later: uptime 1 s more than expected, hold time 1 s less than without a hello (jitter).
  neighbors("00:05:04", "00:01:41");
  runFor(1000ms);
  Json now = v4(feed_->document())["pimStatus"]["interfaces"]["r2-lan"]["neighbors"];
  EXPECT_EQ(now["10.99.50.3"]["created"], before["10.99.50.3"]["created"]);
  EXPECT_EQ(now["10.99.50.3"]["lastRefresh"], before["10.99.50.3"]["lastRefresh"]);
  // A hello: 105 left again, so lastRefresh moves to now.
  neighbors("00:05:05", "00:01:45");
  runFor(1000ms);
  now = v4(feed_->document())["pimStatus"]["interfaces"]["r2-lan"]["neighbors"];
  EXPECT_EQ(now["10.99.50.3"]["lastRefresh"], clock_.unix);
  EXPECT_EQ(now["10.99.50.3"]["created"], before["10.99.50.3"]["created"]);
  // Uptime went backwards: a new adjacency.
  neighbors("00:00:02", "00:01:45");
  runFor(1000ms);
  now = v4(feed_->document())["pimStatus"]["interfaces"]["r2-lan"]["neighbors"];
  EXPECT_EQ(now["10.99.50.3"]["created"], clock_.unix - 2);
}

TEST_F(FeederTest, RouteUptimeGoingBackwardsIsANewRoute) {
  feeder().runDue();
  const Json created = v4(feed_->document())["routes"]["*,239.1.1.2"]["created"];
  Json up = FrrTest::captureJson("r2", "vrf-all/show_ip_pim_vrf_all_upstream.json");
  // Polled 2 s later (an event, then the minimum gap): 1 s more uptime is jitter.
  up["default"]["239.1.1.2"]["*"]["upTime"] = "00:04:57";
  pimd_->set("show ip pim vrf all upstream json", up.dump());
  feeder().kernelEvent();
  runFor(2000ms);
  EXPECT_EQ(v4(feed_->document())["routes"]["*,239.1.1.2"]["created"], created);
  // Join state changed: FRR restarted the uptime.
  up["default"]["239.1.1.2"]["*"]["upTime"] = "00:00:03";
  pimd_->set("show ip pim vrf all upstream json", up.dump());
  feeder().kernelEvent();
  runFor(2000ms);
  EXPECT_EQ(v4(feed_->document())["routes"]["*,239.1.1.2"]["created"], clock_.unix - 3);
}

TEST_F(FeederTest, ReceiverLeftRemovesSharedTreeRoutes) {
  feeder().runDue();
  // What r2 says once the LAN's receiver of 239.1.1.2 left: no (*,G) state, no MFC entry.
  for (const char* cmd : {"show ip pim vrf all upstream json", "show ip pim vrf all rpf json",
                          "show ip mroute vrf all json"}) {
    std::string file = cmd;
    std::replace(file.begin(), file.end(), ' ', '_');
    Json j = FrrTest::captureJson("r2", "vrf-all/" + file.substr(0, file.size() - 5) + ".json");
    j["default"].erase("239.1.1.2");
    pimd_->set(cmd, j.dump());
  }
  Json join = FrrTest::captureJson("r2", "vrf-all/show_ip_pim_vrf_all_join.json");
  join["default"]["r2-lan"].erase("239.1.1.2");
  pimd_->set("show ip pim vrf all join json", join.dump());
  std::erase_if(kernel_.mfc, [](const auto& e) { return e.group == 0xef010102; });
  feeder().kernelEvent();
  runFor(2100ms);
  const Json patch = v4(lastPatch());
  EXPECT_TRUE(patch["routes"]["*,239.1.1.2"].is_null());
  EXPECT_TRUE(patch["fib"]["routes"]["*,239.1.1.2"].is_null());
  EXPECT_EQ(patch["routes"].size(), 1u);
  EXPECT_FALSE(v4(feed_->document())["routes"].contains("*,239.1.1.2"));
}

TEST_F(FeederTest, JsonWithAWarningStatusIsReadTextIsNot) {
  // pimd 8.4 answers `show ip pim vrf all join json` in full, then status CMD_WARNING.
  Json join = FrrTest::captureJson("r2", "vrf-all/show_ip_pim_vrf_all_join.json");
  join["default"]["r2-lan"]["239.1.1.2"]["*"]["channelJoinName"] = "PRUNE";
  pimd_->set("show ip pim vrf all join json", join.dump(), 1);
  pimd_->set("show ip pim assert", "", 1);
  feeder().runDue();
  const Json routes = v4(feed_->document())["routes"];
  EXPECT_EQ(routes["*,239.1.1.2"]["interfaces"]["r2-lan"], Json({{"forward", false}}));
  // The assert text failed: no assert state at all.
  EXPECT_FALSE(routes["10.99.1.11,239.1.1.1"]["interfaces"]["r2-lan"].contains("assertState"));
  // A warning without JSON is a failure.
  pimd_->set("show ip pim vrf all join json", "% No such VRF\n", 1);
  feeder().kernelEvent();
  runFor(2000ms);
  EXPECT_EQ(v4(feed_->document())["routes"]["*,239.1.1.2"]["interfaces"]["r2-lan"],
            Json({{"forward", false}}));  // the previous answer stays
}

TEST_F(FeederTest, KernelEventBringsTheRoutePollForward) {
  feeder().runDue();
  const int polls = pimd_->count("show ip pim vrf all upstream json");
  runFor(2500ms);
  EXPECT_EQ(pimd_->count("show ip pim vrf all upstream json"), polls);  // no event, no poll
  feeder().kernelEvent();
  runFor(200ms);
  EXPECT_EQ(pimd_->count("show ip pim vrf all upstream json"), polls);
  runFor(200ms);  // 300 ms after the event
  EXPECT_EQ(pimd_->count("show ip pim vrf all upstream json"), polls + 1);
  // Another event right away waits for the 2 s gap.
  feeder().kernelEvent();
  runFor(1500ms);
  EXPECT_EQ(pimd_->count("show ip pim vrf all upstream json"), polls + 1);
  runFor(600ms);
  EXPECT_EQ(pimd_->count("show ip pim vrf all upstream json"), polls + 2);
}

TEST_F(FeederTest, CountersFollowTheKernel) {
  feeder().runDue();
  for (auto& e : kernel_.mfc) e.packets += 10;
  runFor(10000ms);
  const Json fib = v4(lastPatch())["fib"]["routes"];
  ASSERT_TRUE(fib.contains("10.99.1.11,239.1.1.1"));
  EXPECT_EQ(fib["10.99.1.11,239.1.1.1"], Json({{"packets", 3774}}));
  EXPECT_EQ(v4(feed_->document())["fib"]["routes"]["10.99.1.11,239.1.1.1"]["packets"], 3774);
}

TEST_F(FeederTest, InterfaceRecreatedUnderANewIfIndex) {
  feeder().runDue();
  kernel_.links["r2-lan"].first = 9;
  runFor(5000ms);
  EXPECT_EQ(feed_->document()["interfaces"]["r2-lan"]["ifIndex"], 9);
  EXPECT_TRUE(PimSnmpd::validate(feed_->document()).empty());
}

TEST_F(FeederTest, PimdRestartResynchronizes) {
  feeder().runDue();
  EXPECT_EQ(feed_->patches().size(), 1u);
  pimd_.reset();
  runFor(2000ms);
  EXPECT_FALSE(feeder().pimdUp());
  EXPECT_FALSE(feeder().withdrawn());  // within the grace time the last state is served
  EXPECT_TRUE(v4(feed_->document()).contains("pimStatus"));
  pimd_ = std::make_unique<FakeVty>(dir_ + "/pimd.vty", router_);
  feed_->load(Json::object());  // what a resync must notice
  runFor(1100ms);
  EXPECT_TRUE(feeder().pimdUp());
  EXPECT_EQ(feed_->document(), feeder().daemonDocument());
  EXPECT_EQ(v4(feed_->document())["routes"].size(), 5u);
}

TEST_F(FeederTest, PimdAwayPastTheGraceTimeWithdrawsItsVrfs) {
  feeder().runDue();
  pimd_.reset();
  runFor(9000ms);
  EXPECT_TRUE(v4(feed_->document()).contains("pimStatus"));
  runFor(2000ms);
  EXPECT_TRUE(feeder().withdrawn());
  EXPECT_FALSE(v4(feed_->document()).contains("pimStatus"));
  EXPECT_TRUE(v4(lastPatch())["pimStatus"].is_null());
  pimd_ = std::make_unique<FakeVty>(dir_ + "/pimd.vty", router_);
  runFor(1100ms);
  EXPECT_FALSE(feeder().withdrawn());
  EXPECT_EQ(v4(feed_->document())["pimStatus"]["interfaces"].size(), 2u);
}

TEST_F(FeederTest, StalledPimdCountsAsAway) {
  vtyTimeout_ = 50ms;
  feeder().runDue();
  // Accepts sessions but never finishes an answer.
  pimd_.reset();
  FrrTest::UnixServer stalled(dir_ + "/pimd.vty", '\0',
                              [](const std::string&) { return std::string("{"); });
  runFor(5000ms);
  EXPECT_FALSE(feeder().withdrawn());
  EXPECT_GT(stalled.requests().size(), 0u);  // sessions were opened and commands sent
  runFor(7000ms);
  EXPECT_TRUE(feeder().withdrawn());
  EXPECT_FALSE(v4(feed_->document()).contains("pimStatus"));
}

TEST_F(FeederTest, PimsnmpdRestartGetsTheWholeState) {
  feeder().runDue();
  feed_.reset();
  runFor(1000ms);
  feed_ = std::make_unique<FakeFeed>(dir_ + "/feed.sock");
  runFor(1100ms);
  EXPECT_TRUE(feeder().synced());
  EXPECT_EQ(v4(feed_->document())["routes"].size(), 5u);
  EXPECT_EQ(feed_->document(), feeder().daemonDocument());
}

TEST_F(FeederTest, DocumentChangedBehindItsBackIsCorrectedAtTheReconcilePeriod) {
  feeder().runDue();
  Json changed = feed_->document();
  changed["vrfs"]["default"]["ipv4"]["pimStatus"]["interfaces"]["r2-lan"]["neighbors"].erase(
      "10.99.50.3");
  feed_->load(changed);  // pimsnmpd re-read its state file, say
  runFor(29000ms);
  EXPECT_NE(feed_->document(), feeder().daemonDocument());
  runFor(2000ms);
  EXPECT_EQ(feed_->document(), feeder().daemonDocument());
  EXPECT_TRUE(
      v4(lastPatch())["pimStatus"]["interfaces"]["r2-lan"]["neighbors"].contains("10.99.50.3"));
}

TEST_F(FeederTest, RefusedPatchIsLoggedAndResynchronized) {
  feeder().runDue();
  feed_->refuseAll(true);
  kernel_.links["r2-lan"].second = "down";
  runFor(5000ms);
  EXPECT_FALSE(feeder().synced());
  EXPECT_EQ(feed_->document()["interfaces"]["r2-lan"]["operStatus"], "up");
  feed_->refuseAll(false);
  runFor(1000ms);
  EXPECT_TRUE(feeder().synced());
  EXPECT_EQ(feed_->document()["interfaces"]["r2-lan"]["operStatus"], "down");
  // A link that is down has no DR.
  EXPECT_EQ(v4(feed_->document())["pimStatus"]["interfaces"]["r2-lan"]["dr"], "0.0.0.0");
}

TEST_F(FeederTest, CadencesOfTheDefaults) {
  feeder().runDue();
  runFor(10000ms);
  // Neighbors every second, interfaces every 5 s, routes only at start (no kernel event).
  EXPECT_EQ(pimd_->count(kNeighborsCmd), 11);
  EXPECT_EQ(pimd_->count("show ip pim vrf all interface json"), 3);
  EXPECT_EQ(pimd_->count("show ip pim vrf all upstream json"), 1);
  for (const auto& c : pimd_->commands()) EXPECT_FALSE(PimSnmpFrr::isForbiddenCommand(c)) << c;
}

TEST(RouteScheduleTest, DelayGapAndPeriod) {
  using PimSnmpFrr::RouteSchedule;
  const PimSnmpFrr::TimePoint t0{std::chrono::hours(1)};
  RouteSchedule s(300ms, 2000ms, 30000ms);
  s.ran(t0);
  EXPECT_EQ(s.due(), t0 + 30000ms);
  s.event(t0 + 5000ms);
  EXPECT_EQ(s.due(), t0 + 5300ms);
  s.event(t0 + 5100ms);  // a later event does not push it back
  EXPECT_EQ(s.due(), t0 + 5300ms);
  s.ran(t0 + 5300ms);
  s.event(t0 + 5400ms);
  EXPECT_EQ(s.due(), t0 + 7300ms);  // not sooner than 2 s after the last run
}

class KernelOnlyTest : public FeederTest {};

TEST_F(KernelOnlyTest, RoutesAndNextHopsFromTheMfcAlone) {
  pimd_.reset();
  auto o = options();
  o.kernelOnly = true;
  feeder_ = std::make_unique<Feeder>(o, kernel_, clock_);
  feeder().runDue();
  const Json doc = feed_->document();
  EXPECT_TRUE(PimSnmpd::validate(doc).empty());
  EXPECT_EQ(zebra_.commands().size(), 0u);
  const Json& f = v4(doc);
  EXPECT_EQ(f["routes"].size(), kernel_.mfc.size());
  EXPECT_EQ(f["routes"]["*,239.1.1.1"]["upstream"]["interface"], "r2-r1");
  EXPECT_EQ(f["routes"]["*,239.1.1.1"]["flags"], Json::array({"wildcard", "rpt"}));
  EXPECT_EQ(f["routes"]["*,239.1.1.1"]["interfaces"], Json({{"r2-lan", Json::object()}}));
  EXPECT_EQ(f["fib"]["routes"]["10.99.1.10,239.1.1.5"]["packets"], 719);
  EXPECT_TRUE(f["pimStatus"]["interfaces"].empty());
  // Times of routes without an uptime: first seen, then kept.
  const Json created = f["routes"]["*,239.1.1.1"]["created"];
  EXPECT_EQ(created, clock_.unix);
  runFor(31000ms);
  EXPECT_EQ(v4(feed_->document())["routes"]["*,239.1.1.1"]["created"], created);
}

}  // namespace
