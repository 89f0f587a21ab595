// Several VRFs through FRR's `vrf all` forms and the kernel's per-VRF tables, and a link that
// went down (the lab's link-down captures).

#include <gtest/gtest.h>

#include "daemon/state/StateDocument.h"
#include "pimsnmp-frr/Feeder.h"
#include "tests/unit/frr/FrrTestUtil.h"

namespace {

using FrrTest::captureJson;
using PimSnmpd::Json;

using Router = FrrTest::CaptureRun;

// r2 with a second VRF "red" holding interface red0 (ifindex 20, kernel table 1001), one
// neighbor and one route.
void addRed(Router& r) {
  auto wrap = [&](const std::string& cmd, const std::string& file, const Json& red) {
    Json all = captureJson("r2", "vrf-all/" + file);
    all["red"] = red;
    r.pimd.set(cmd, all.dump());
  };
  wrap("show ip pim vrf all interface json", "show_ip_pim_vrf_all_interface.json",
       Json::parse(R"({"red0":{"name":"red0","state":"up"},"pimreg1001":{"name":"pimreg1001"}})"));
  wrap("show ip pim vrf all neighbor json", "show_ip_pim_vrf_all_neighbor.json",
       Json::parse(R"({"red0":{"10.20.0.2":{"upTime":"00:00:10","holdTime":"00:01:40",
                   "holdTimeMax":105}}})"));
  wrap("show ip pim vrf all upstream json", "show_ip_pim_vrf_all_upstream.json",
       Json::parse(R"({"239.9.9.9":{"10.20.0.9":{"inboundInterface":"red0","upTime":"00:00:05",
                   "sptBit":1}}})"));
  wrap("show ip pim vrf all rpf json", "show_ip_pim_vrf_all_rpf.json",
       Json::parse(R"({"239.9.9.9":{"10.20.0.9":{"rpfInterface":"red0",
                   "rpfAddress":"10.20.0.2"}}})"));
  r.pimd.set("show ip pim vrf red interface red0 json",
             R"({"red0":{"drAddress":"10.20.0.2","helloPeriod":20}})");
  r.pimd.set("show ip multicast vrf red",
             "Mroute socket descriptor: 11(red)\nUpstream Join Timer: 90 secs\n");
  Json multicast = captureJson("r2", "vrf-all/show_ip_multicast_count_vrf_all.json");
  multicast["red"] = Json::parse(R"({"red0":{"vif":1},"pimreg1001":{"vif":0}})");
  r.pimd.set("show ip multicast count vrf all json", multicast.dump());
  Json zebra = captureJson("r2", "show_interface.json");
  zebra["red0"] = Json::parse(R"({"index":20,"vrfName":"red",
      "ipAddresses":[{"address":"10.20.0.1/24","secondary":false}]})");
  r.zebra.set("show interface vrf all json", zebra.dump());
  r.zebra.set("show vrf", "vrf red id 5 table 1001\n");
  r.kernel.links["red0"] = {20, "up"};
  PimSnmpFrr::Kernel::MfcEntry e;
  e.table = 1001;
  e.source = 0x0a140009;  // 10.20.0.9
  e.group = 0xef090909;   // 239.9.9.9
  e.iifIndex = 20;
  e.oifIndexes = {20};
  e.packets = 5;
  r.kernel.mfc.push_back(e);
}

TEST(VrfTest, EachVrfFromTheVrfAllForms) {
  Router r("r2");
  addRed(r);
  const Json doc = r.snapshot();
  for (const auto& e : PimSnmpd::validate(doc)) ADD_FAILURE() << e.toString();
  const Json& red = doc["vrfs"]["red"]["ipv4"];
  EXPECT_EQ(red["pimConfig"]["joinPruneInterval"], 90);  // red's own join/prune interval
  const Json& red0 = red["pimStatus"]["interfaces"]["red0"];
  EXPECT_EQ(red0["helloInterval"], 20);
  EXPECT_EQ(red0["address"], "10.20.0.1/24");
  EXPECT_TRUE(red0["neighbors"].contains("10.20.0.2"));
  EXPECT_FALSE(red["pimStatus"]["interfaces"].contains("pimreg1001"));
  EXPECT_EQ(red["routes"]["10.20.0.9,239.9.9.9"]["upstream"]["rpfNeighbor"], "10.20.0.2");
  // The kernel table of red, with its iif dropped from the OIFs.
  EXPECT_EQ(red["fib"]["oifIndexes"], Json({{"red0", 1}}));
  EXPECT_EQ(red["fib"]["routes"]["10.20.0.9,239.9.9.9"]["packets"], 5);
  EXPECT_EQ(red["fib"]["routes"]["10.20.0.9,239.9.9.9"]["oifs"], Json::array());
  // The BSR is the default VRF's only (FRR 8.4 has no VRF form of it).
  EXPECT_TRUE(red["bsrStatus"]["electedBsrs"].empty());
  EXPECT_TRUE(red["mfibConfig"]["routing"]);
  // Nothing of red in the default VRF.
  const Json& def = doc["vrfs"]["default"]["ipv4"];
  EXPECT_FALSE(def["routes"].contains("10.20.0.9,239.9.9.9"));
  EXPECT_FALSE(def["fib"]["routes"].contains("10.20.0.9,239.9.9.9"));
  EXPECT_FALSE(def["pimStatus"]["interfaces"].contains("red0"));
  EXPECT_EQ(def["routes"].size(), 5u);
}

TEST(VrfTest, AVrfGoneFromPimdIsGoneFromTheDocument) {
  Router r("r2");
  addRed(r);
  PimSnmpFrr::Options o;
  o.vtyDir = r.dir;
  PimSnmpFrr::Feeder feeder(o, r.kernel, r.clock);
  EXPECT_TRUE(feeder.snapshotOnce()["vrfs"].contains("red"));
  r.pimd.set("show ip pim vrf all interface json",
             captureJson("r2", "vrf-all/show_ip_pim_vrf_all_interface.json").dump());
  EXPECT_FALSE(feeder.snapshotOnce()["vrfs"].contains("red"));
}

TEST(LinkDownTest, DownInterfaceHasNoDrButKeepsItsAddress) {
  Router r("r1");
  r.pimd.set("show ip pim interface r1-r3 json",
             FrrTest::readCapture("link-down", "r1_show_ip_pim_interface_r1-r3.json"));
  Json zebra = captureJson("r1", "show_interface.json");
  zebra["r1-r3"] = captureJson("link-down", "r1_show_interface_r1-r3.json")["r1-r3"];
  r.zebra.set("show interface vrf all json", zebra.dump());
  r.kernel.links["r1-r3"].second = "down";
  const Json doc = r.snapshot();
  for (const auto& e : PimSnmpd::validate(doc)) ADD_FAILURE() << e.toString();
  EXPECT_EQ(doc["interfaces"]["r1-r3"]["operStatus"], "down");
  const Json& pim = doc["vrfs"]["default"]["ipv4"]["pimStatus"]["interfaces"]["r1-r3"];
  // pimd keeps the old DR (10.99.13.3) and reads address 0.0.0.0 while the link is down.
  EXPECT_EQ(pim["dr"], "0.0.0.0");
  EXPECT_EQ(pim["address"], "10.99.13.1/24");
}

TEST(LinkDownTest, OperStatesByIfMibName) {
  EXPECT_EQ(PimSnmpFrr::ifOperStatus("lowerlayerdown"), "lowerLayerDown");
  EXPECT_EQ(PimSnmpFrr::ifOperStatus("notpresent"), "notPresent");
  EXPECT_EQ(PimSnmpFrr::ifOperStatus(""), "notPresent");
  EXPECT_EQ(PimSnmpFrr::ifOperStatus("weird"), "unknown");
  EXPECT_EQ(PimSnmpFrr::ifOperStatus("dormant"), "dormant");
}

}  // namespace
