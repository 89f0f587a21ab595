#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "daemon/state/Applier.h"
#include "daemon/state/PlatformState.h"
#include "daemon/state/StateDocument.h"
#include "platform/Clock/Clock.h"
#include "platform/Routing/Pim/RouteKeyConversion.h"
#include "tests/unit/state_doc/StateDocTestUtil.h"

namespace {

using Lanet::AddressFamily;
using PimSnmpd::Document;
using PimSnmpd::Json;
using PimSnmpd::PlatformState;
using StateDocTest::describe;
using StateDocTest::patchAt;
using StateDocTest::red4;
using StateDocTest::Watcher;

constexpr AddressFamily v4 = AddressFamily::ipv4;
constexpr AddressFamily v6 = AddressFamily::ipv6;

Lanet::IpGenAddr addr(const char* text) {
  return *Lanet::IpGenAddr::parse(text);
}
Routing::Pim::RouteKey key(const char* text, AddressFamily af = v4) {
  return *PimSnmpd::parseRouteKey(text, af);
}

class ApplierTest : public ::testing::Test {
 protected:
  ApplierTest() : root_(Ent::make<Ent::Dir>("root")), state_(root_) {}

  void load(const std::string& text) {
    const auto r = PimSnmpd::applyText(doc_, text, state_);
    ASSERT_TRUE(r.ok) << describe(r.errors);
  }
  void patch(const Json& p) {
    const auto r = PimSnmpd::applyPatch(doc_, p, state_);
    ASSERT_TRUE(r.ok) << describe(r.errors);
  }

  Ent::Ptr<PlatformState::RouteTable> routes4(const char* vrf = "red") {
    return state_.routeTable(v4, L3::VrfName(vrf));
  }
  Ent::Ptr<PlatformState::FibTable> fib4(const char* vrf = "red") {
    return state_.fibTable(v4, L3::VrfName(vrf));
  }
  Ent::Ptr<const Routing::Pim::Intf> pimIntf(const char* vrf, const char* intf) {
    auto s = state_.pimGlobalStatus(v4)->vrfStatus(L3::VrfName(vrf));
    return s ? s->pimIntf(Lanet::IntfId(intf)) : nullptr;
  }

  // Follows every collection of the state (not the records inside them).
  void watchCollections(Watcher& w) {
    for (AddressFamily af : {v4, v6}) {
      const std::string f = af == v4 ? "4." : "6.";
      w.watch(f + "pimGlobalStatus", state_.pimGlobalStatus(af));
      w.watch(f + "pimConfigColl", state_.pimConfigColl(af));
      w.watch(f + "bsrStatusColl", state_.bsrStatusColl(af));
      w.watch(f + "bsrConfigColl", state_.bsrConfigColl(af));
      w.watch(f + "crpStatusColl", state_.crpStatusColl(af));
      w.watch(f + "staticRpStatusColl", state_.staticRpStatusColl(af));
      w.watch(f + "mfibVrfConfig", state_.mfibVrfConfig(af));
    }
    w.watch("ifMib", state_.ifMib());
    w.watch("allIntfStatusDir", state_.allIntfStatusDir());
  }

  // Follows every record the base document creates.
  void watchEverything(Watcher& w) {
    watchCollections(w);
    for (AddressFamily af : {v4, v6}) {
      for (const auto& s : state_.pimGlobalStatus(af)->vrfStatus()) {
        w.watch("pimStatus", Ent::Ptr<const Ent::Entity>(s.get()));
        for (const auto& [id, intf] : s->pimIntf()) {
          w.watch("pimIntf", intf);
          for (const auto& n : intf->activeNeighbor()) w.watch("neighbor", n);
        }
      }
    }
    for (const char* vrf : {"red", "blue"}) {
      for (AddressFamily af : {v4, v6}) {
        if (auto t = state_.routeTable(af, L3::VrfName(vrf))) {
          w.watch("routeTable", t);
          for (const auto& r : t->route()) {
            w.watch("route", r);
            for (const auto& i : r->routeIntf()) w.watch("routeIntf", i);
          }
        }
        if (auto t = state_.fibTable(af, L3::VrfName(vrf))) w.watch("fibTable", t);
      }
    }
  }

  Ent::Ptr<Plat::ManualClock> clock_ = Ent::make<Plat::ManualClock>(1000.0);
  Plat::ScopedClock scopedClock_{clock_};
  Ent::Ptr<Ent::Dir> root_;
  PlatformState state_;
  Document doc_;
};

TEST_F(ApplierTest, BaseDocumentBecomesPlatformRecords) {
  load(StateDocTest::kBaseDocument);
  const L3::VrfName red("red");
  EXPECT_EQ(state_.ifMib()->ifIndexByIntfId(Lanet::IntfId("Ethernet2")), 2u);
  EXPECT_EQ(state_.allIntfStatusDir()->intfStatus(Lanet::IntfId("Ethernet3"))->operStatus(),
            Interface::operDown);
  EXPECT_EQ(state_.allIntfStatusDir()->intfStatus(Lanet::IntfId("Ethernet1"))->operStatus(),
            Interface::operUp);

  EXPECT_EQ(state_.pimConfigColl(v4)->vrfConfig(red)->joinPruneInterval(), 60);
  auto status = state_.pimGlobalStatus(v4)->vrfStatus(red);
  EXPECT_EQ(status->mode(), Routing::Pim::modeVrfSparse);
  auto e1 = pimIntf("red", "Ethernet1");
  EXPECT_EQ(e1->address(), addr("10.0.1.1"));
  EXPECT_EQ(e1->maskLen(), 24);
  EXPECT_EQ(e1->mode(), Routing::Pim::modeSparse);
  EXPECT_EQ(e1->drAddr(), addr("10.0.1.2"));
  EXPECT_EQ(e1->helloInterval(), 30) << "default";
  auto n = e1->activeNeighbor(addr("10.0.1.2"));
  EXPECT_EQ(n->creationTime(), 100);
  EXPECT_EQ(n->lastRefreshTime(), 200);
  EXPECT_EQ(n->holdTime(), 105);
  EXPECT_EQ(pimIntf("red", "Ethernet2")->drAddr(), Lanet::IpGenAddr()) << "no DR given";

  auto bsrConfig = state_.bsrConfigColl(v4)->vrfConfig(red);
  EXPECT_EQ(bsrConfig->bootstrapTimeout(), 130u);
  EXPECT_EQ(bsrConfig->candidateRpConfigCount(), 1u);
  auto bsr = state_.bsrStatusColl(v4)->vrfStatus(red);
  const auto range = *Lanet::IpGenPrefix::parse("224.0.0.0/4");
  EXPECT_EQ(bsr->cbsr(range)->intfId(), Lanet::IntfId("Ethernet1"));
  EXPECT_EQ(bsr->cbsr(range)->priority(), 64);
  EXPECT_EQ(bsr->electedBsr(range)->bsrAddress(), addr("10.0.1.1"));
  EXPECT_TRUE(bsr->crp(addr("10.0.1.1")));

  auto crp = state_.crpStatusColl(v4)->vrfStatus(red);
  EXPECT_EQ(crp->rpType(), Routing::Pim::rpTypeBsr);
  auto rp = crp->crpSet(range)->rpCandidate(addr("10.0.1.1"));
  EXPECT_EQ(rp->holdTime(), 150u);
  EXPECT_EQ(rp->expiryTime(), 500);
  auto staticRp = state_.staticRpStatusColl(v4)->vrfStatus(red);
  EXPECT_EQ(staticRp->rpType(), Routing::Pim::rpTypeStatic) << "default of staticRpStatus";
  EXPECT_EQ(staticRp->crpSet(*Lanet::IpGenPrefix::parse("239.0.0.0/8"))
                ->rpCandidate(addr("10.0.2.9"))
                ->expiryTime(),
            1000)
      << "now + holdTime 0";
  EXPECT_TRUE(state_.mfibVrfConfig(v4)->config("red")->routing());

  auto star = routes4()->route(key("*,239.1.1.1"));
  EXPECT_EQ(star->creationTime(), 50);
  EXPECT_EQ(star->upstreamInfo()->iif(), Lanet::IntfId("Ethernet1"));
  EXPECT_EQ(star->upstreamInfo()->rpfNeighbor(), addr("10.0.1.2"));
  EXPECT_EQ(star->flags(), Routing::Pim::SparseMode::Route::kFlagWildcard |
                               Routing::Pim::SparseMode::Route::kFlagRpt);
  auto oif = star->routeIntf(Lanet::IntfId("Ethernet2"));
  EXPECT_TRUE(oif->forward());
  EXPECT_EQ(oif->rptState(), Routing::Pim::SparseMode::rptStateNoInfo);
  auto sg = routes4()->route(key("10.0.2.5,239.1.1.1"));
  EXPECT_EQ(sg->upstreamInfo()->rpfNeighbor(), addr("0.0.0.0")) << "default RPF neighbor";
  EXPECT_EQ(sg->routeIntf(Lanet::IntfId("Ethernet1"))->assertState(),
            Routing::Pim::SparseMode::assertStateLoser);

  auto fib = fib4();
  EXPECT_EQ(fib->oifIndexIntf(Shtab::Multicast::Fib::OifIndex(1)), Lanet::IntfId("Ethernet2"));
  const auto starFib = fib->route(Routing::Pim::pimRouteKeyToMfibKey(key("*,239.1.1.1")));
  EXPECT_TRUE(starFib.oif(Shtab::Multicast::Fib::OifIndex(1)));
  EXPECT_EQ(starFib.oifCount(), 1u);
  EXPECT_EQ(
      state_.fibCounterHelper(v4)
          ->counters(L3::VrfName("red"), Routing::Pim::pimRouteKeyToMfibKey(key("*,239.1.1.1")))
          .bytes,
      500u);

  auto blue = state_.routeTable(v6, L3::VrfName("blue"));
  ASSERT_TRUE(blue);
  EXPECT_TRUE(blue->route(key("*,ff0e::1", v6)));
  EXPECT_FALSE(state_.fibTable(v6, L3::VrfName("blue"))) << "no fib member, no table";
  EXPECT_FALSE(state_.pimConfigColl(v6)->vrfConfig(L3::VrfName("blue")));
}

TEST_F(ApplierTest, TablesArePublishedWhereTheAgentMountsThem) {
  // The agent may mount before the table is published: the applier then fills that table.
  auto early = state_.entityManager()->mountAs<PlatformState::RouteTable>(
      PlatformState::RouteTable::mountPath(v4, L3::VrfName("red")),
      PlatformState::RouteTable::kTypeName, Stadb::MountMode::reader);
  load(StateDocTest::kBaseDocument);
  EXPECT_EQ(routes4(), early);
  EXPECT_EQ(early->route().size(), 2u);
  auto fib = state_.entityManager()->mount(
      PlatformState::FibTable::mountPath(v4, L3::VrfName("red"), "sparsemode"),
      PlatformState::kFibTypeName, Stadb::MountMode::reader);
  EXPECT_EQ(fib, fib4());

  // The IPv4 configuration collections are where the MIB scalars look them up.
  EXPECT_EQ(root_->lookup("Stadb/routing/pim/config.vrfConfig/%27red%27").get(),
            state_.pimConfigColl(v4)->vrfConfig(L3::VrfName("red")).get());
  EXPECT_EQ(root_->lookup("Stadb/routing/multicast/vrf/config.config/red").get(),
            state_.mfibVrfConfig(v4)->config("red").get());

  // Withdrawn routes: the table empties; the agent's mount keeps it in the directory.
  patch(patchAt(red4("/routes"), nullptr));
  EXPECT_FALSE(routes4());
  EXPECT_TRUE(early->route().empty());
  EXPECT_EQ(root_->lookup(PlatformState::RouteTable::mountPath(v4, L3::VrfName("red"))), early);
  patch(patchAt(red4("/routes/*,239.9.9.9"), Json::object()));
  EXPECT_EQ(routes4(), early) << "published again into the table the agent holds";
  EXPECT_EQ(early->route().size(), 1u);
}

TEST_F(ApplierTest, AddingOneRouteToAThousandTouchesOneRoute) {
  Json doc = Json::parse(StateDocTest::kBaseDocument);
  Json& routes = doc["vrfs"]["red"]["ipv4"]["routes"];
  for (int i = 0; i < 1000; ++i) {
    routes["10.0.2." + std::to_string(1 + i % 250) + ",239.2." + std::to_string(i / 250) + ".1"] =
        Json::parse(R"({"upstream": {"interface": "Ethernet2"}, "interfaces": {"Ethernet1": {}}})");
  }
  load(doc.dump());
  ASSERT_EQ(routes4()->route().size(), 1002u);
  Watcher w;
  watchEverything(w);
  w.watchKeyed<Routing::Pim::RouteKey>("routeTable key", routes4());
  // What a follower sees at the moment of insertion: the complete route.
  w.watch("inserted", routes4(), [&](const Ent::Change& c) {
    auto r = routes4()->route(c.keyAs<Routing::Pim::RouteKey>());
    return std::string(r && r->upstreamInfo() && r->routeIntf().size() == 1 ? "complete"
                                                                            : "partial");
  });

  patch(patchAt(red4("/routes/10.0.9.9,239.7.7.7"),
                {{"upstream", {{"interface", "Ethernet1"}}},
                 {"interfaces", {{"Ethernet2", Json::object()}}}}));
  EXPECT_EQ(w.take(),
            (std::vector<std::string>{"routeTable:1", "routeTable key:1:(10.0.9.9, 239.7.7.7)",
                                      "inserted:1:complete"}));
  auto added = routes4()->route(key("10.0.9.9,239.7.7.7"));
  ASSERT_TRUE(added) << "built in full before it was inserted";
  EXPECT_EQ(added->upstreamInfo()->iif(), Lanet::IntfId("Ethernet1"));
  EXPECT_TRUE(added->routeIntf(Lanet::IntfId("Ethernet2")));
  EXPECT_EQ(added->creationTime(), 1000);

  // Changing one interface of one route: that interface record's setter, nothing else.
  patch(patchAt(red4("/routes/10.0.2.7,239.2.0.1/interfaces/Ethernet1/forward"), false));
  EXPECT_EQ(w.take(), std::vector<std::string>{"routeIntf:6"});
  EXPECT_FALSE(routes4()
                   ->route(key("10.0.2.7,239.2.0.1"))
                   ->routeIntf(Lanet::IntfId("Ethernet1"))
                   ->forward());
}

TEST_F(ApplierTest, RemovingANeighborErasesExactlyIt) {
  load(StateDocTest::kBaseDocument);
  Watcher w;
  watchEverything(w);
  w.watchKeyed<Lanet::IpGenAddr>("Ethernet1 neighbors", pimIntf("red", "Ethernet1"));
  const auto kept = pimIntf("red", "Ethernet1")->activeNeighbor(addr("10.0.1.2"));

  patch(patchAt(red4("/pimStatus/interfaces/Ethernet1/neighbors/10.0.1.3"), nullptr));
  EXPECT_EQ(w.take(), (std::vector<std::string>{"pimIntf:6", "Ethernet1 neighbors:6:10.0.1.3"}));
  EXPECT_FALSE(pimIntf("red", "Ethernet1")->activeNeighbor(addr("10.0.1.3")));
  EXPECT_EQ(pimIntf("red", "Ethernet1")->activeNeighbor(addr("10.0.1.2")), kept);
  EXPECT_FALSE(
      doc_.json()["vrfs"]["red"]["ipv4"]["pimStatus"]["interfaces"]["Ethernet1"]["neighbors"]
          .contains("10.0.1.3"));
}

TEST_F(ApplierTest, RemovingAnInputErasesOnlyThatInput) {
  load(StateDocTest::kBaseDocument);
  Watcher w;
  watchCollections(w);
  w.watchKeyed<L3::VrfName>("bsr key", state_.bsrStatusColl(v4));
  patch(patchAt(red4("/bsrStatus"), nullptr));
  EXPECT_EQ(w.take(), (std::vector<std::string>{"4.bsrStatusColl:1", "bsr key:1:red"}));
  EXPECT_FALSE(state_.bsrStatusColl(v4)->vrfStatus(L3::VrfName("red")));
  EXPECT_TRUE(state_.pimGlobalStatus(v4)->vrfStatus(L3::VrfName("red")));

  // And back: one insertion of a complete record.
  patch(patchAt(red4("/bsrStatus"), {{"candidateRps", {{"10.0.1.9", Json::object()}}}}));
  EXPECT_EQ(w.take(), (std::vector<std::string>{"4.bsrStatusColl:1", "bsr key:1:red"}));
  EXPECT_TRUE(state_.bsrStatusColl(v4)->vrfStatus(L3::VrfName("red"))->crp(addr("10.0.1.9")));
}

TEST_F(ApplierTest, WithdrawingAVrfRemovesItsInputsBeforeItsTables) {
  load(StateDocTest::kBaseDocument);
  Watcher w;
  watchCollections(w);
  w.watch("routeTable", routes4());
  w.watch("fibTable", fib4());
  const auto table = routes4();
  patch(Json::parse(R"({"vrfs": {"red": null}})"));
  const std::vector<std::string> log = w.take();
  const std::vector<std::string> inputs = {
      "4.pimConfigColl:1",      "4.pimGlobalStatus:1", "4.bsrStatusColl:1", "4.crpStatusColl:1",
      "4.staticRpStatusColl:1", "4.bsrConfigColl:1",   "4.mfibVrfConfig:1"};
  ASSERT_GE(log.size(), inputs.size());
  EXPECT_EQ(std::vector<std::string>(log.begin(), log.begin() + 7), inputs);
  for (size_t i = 7; i < log.size(); ++i)
    EXPECT_TRUE(log[i] == "routeTable:1" || log[i].starts_with("fibTable:")) << log[i];
  EXPECT_EQ(log.size(), 7u + 2 + 2 + 2) << "two routes each, and the two OIF mappings";

  EXPECT_FALSE(routes4());
  EXPECT_FALSE(fib4());
  EXPECT_TRUE(table->route().empty());
  EXPECT_EQ(root_->lookup(PlatformState::RouteTable::mountPath(v4, L3::VrfName("red"))), nullptr)
      << "nobody mounts it any more";
  EXPECT_EQ(state_.fibCounterHelper(v4)->statusCount(), 0u);
  EXPECT_EQ(state_.routeTables(), 1u) << "blue's";
}

TEST_F(ApplierTest, NewVrfFillsItsTablesBeforeItsInputsAppear) {
  Watcher w;
  watchCollections(w);
  w.watch("tables", state_.entityManager()->root());
  load(StateDocTest::kBaseDocument);
  std::vector<std::string> log = w.take();
  auto first = [&](const std::string& line) {
    return std::find(log.begin(), log.end(), line) - log.begin();
  };
  // Interfaces first; the red tables appear under "shtab" before any red input.
  EXPECT_LT(first("ifMib:1"), first("4.pimConfigColl:1"));
  EXPECT_LT(first("tables:1"), first("4.pimConfigColl:1"));
  EXPECT_LT(first("4.pimConfigColl:1"), first("4.mfibVrfConfig:1"));
}

TEST_F(ApplierTest, RoutesGoBeforeTheInterfacesTheyUse) {
  load(StateDocTest::kBaseDocument);
  Watcher w;
  w.watch("ifMib", state_.ifMib());
  w.watch("routeTable", routes4());
  // Ethernet2 goes away with everything that names it.
  Json p = Json::parse(R"({"interfaces": {"Ethernet2": null}})");
  p["vrfs"]["red"]["ipv4"] = Json::parse(R"({
      "pimStatus": {"interfaces": {"Ethernet2": null}},
      "routes": {"10.0.2.5,239.1.1.1": null, "*,239.1.1.1": {"interfaces": {"Ethernet2": null}}},
      "fib": {"oifIndexes": {"Ethernet2": null},
              "routes": {"10.0.2.5,239.1.1.1": null, "*,239.1.1.1": {"oifs": []}}}})");
  patch(p);
  EXPECT_EQ(w.take(), (std::vector<std::string>{"routeTable:1", "ifMib:1"}));
  EXPECT_EQ(state_.ifMib()->ifIndexByIntfId(Lanet::IntfId("Ethernet2")), 0u);
  EXPECT_FALSE(state_.allIntfStatusDir()->intfStatus(Lanet::IntfId("Ethernet2")));
  EXPECT_FALSE(routes4()->route(key("*,239.1.1.1"))->routeIntf(Lanet::IntfId("Ethernet2")));
}

// A new route arrives after its FIB entry and a removed one leaves before it, so the agent
// builds or drops the route's rows once, with the FIB entry already in place or still there.
TEST_F(ApplierTest, RoutesArriveAfterAndLeaveBeforeTheirFibEntries) {
  load(StateDocTest::kBaseDocument);
  Watcher w;
  w.watch("routeTable", routes4());
  w.watch("fibTable", fib4());
  const char* added = R"({"vrfs": {"red": {"ipv4": {
      "routes": {"10.0.2.9,239.1.1.9": {"interfaces": {"Ethernet2": {}}}},
      "fib": {"routes": {"10.0.2.9,239.1.1.9": {"oifs": ["Ethernet2"]}}}}}}})";
  patch(Json::parse(added));
  std::vector<std::string> log = w.take();
  ASSERT_EQ(log.size(), 2u);
  EXPECT_TRUE(log[0].starts_with("fibTable:")) << log[0];
  EXPECT_EQ(log[1], "routeTable:1");
  ASSERT_TRUE(routes4()->route(key("10.0.2.9,239.1.1.9")));

  patch(Json::parse(R"({"vrfs": {"red": {"ipv4": {
      "routes": {"10.0.2.9,239.1.1.9": null},
      "fib": {"routes": {"10.0.2.9,239.1.1.9": null}}}}}})"));
  log = w.take();
  ASSERT_EQ(log.size(), 2u);
  EXPECT_EQ(log[0], "routeTable:1");
  EXPECT_TRUE(log[1].starts_with("fibTable:")) << log[1];
  EXPECT_FALSE(routes4()->route(key("10.0.2.9,239.1.1.9")));
}

// A renamed interface keeps its ifIndex; the new name sorts first, yet every collection sees
// the old record go before the new one comes (rows are keyed by ifIndex).
TEST_F(ApplierTest, RenamedInterfaceLeavesBeforeItsSuccessorArrives) {
  load(StateDocTest::kBaseDocument);
  Watcher w;
  w.watchKeyed<Lanet::IntfId>("ifMib", state_.ifMib());
  w.watchKeyed<Lanet::IntfId>("pim", state_.pimGlobalStatus(v4)->vrfStatus(L3::VrfName("red")));
  w.watchKeyed<Lanet::IntfId>("route", routes4()->route(key("*,239.1.1.1")));
  w.watchKeyed<Shtab::Multicast::Fib::OifIndex>("oif", fib4());
  patch(Json::parse(R"({"interfaces": {"Ethernet2": null, "Eth2": {"ifIndex": 2}},
    "vrfs": {"red": {"ipv4": {
      "pimStatus": {"interfaces": {"Ethernet2": null, "Eth2": {"address": "10.0.2.1/24"}}},
      "routes": {"*,239.1.1.1": {"interfaces": {"Ethernet2": null, "Eth2": {}}},
                 "10.0.2.5,239.1.1.1": {"upstream": {"interface": "Eth2"}}},
      "fib": {"oifIndexes": {"Ethernet2": null, "Eth2": 1},
              "routes": {"*,239.1.1.1": {"oifs": ["Eth2"]}}}}}}})"));
  std::vector<std::string> log = w.take();
  auto at = [&](const std::string& line) {
    auto it = std::find(log.begin(), log.end(), line);
    EXPECT_NE(it, log.end()) << line;
    return it - log.begin();
  };
  EXPECT_LT(at("pim:2:Ethernet2"), at("pim:2:Eth2"));
  EXPECT_LT(at("route:4:Ethernet2"), at("route:4:Eth2"));
  EXPECT_EQ(std::count(log.begin(), log.end(), "oif:2:1"), 2) << "unmapped, then mapped again";
  EXPECT_LT(at("ifMib:1:Eth2"), at("route:4:Eth2")) << "interfaces arrive first";
  EXPECT_LT(at("route:4:Eth2"), at("ifMib:1:Ethernet2")) << "and leave last";
  EXPECT_EQ(fib4()->oifIndexIntf(Shtab::Multicast::Fib::OifIndex(1)), Lanet::IntfId("Eth2"));
}

// Removals of what something untouched still uses are found through the reference index and
// reported where the use is.
TEST_F(ApplierTest, RemovingWhatIsStillUsedIsRefusedAtEachUse) {
  load(StateDocTest::kBaseDocument);
  const Json before = doc_.json();
  Watcher w;
  watchEverything(w);
  auto r = PimSnmpd::applyPatch(doc_, Json::parse(R"({"interfaces": {"Ethernet1": null}})"), state_);
  EXPECT_FALSE(r.ok);
  EXPECT_GE(r.errors.size(), 4u) << describe(r.errors);
  for (const auto& e : r.errors)
    EXPECT_NE(e.reason.find("'Ethernet1'"), std::string::npos) << e.toString();
  r = PimSnmpd::applyPatch(doc_, patchAt(red4("/fib/oifIndexes/Ethernet2"), nullptr), state_);
  EXPECT_FALSE(r.ok);
  ASSERT_EQ(r.errors.size(), 1u) << describe(r.errors);
  EXPECT_EQ(r.errors[0].path, red4("/fib/routes/*,239.1.1.1/oifs/0"));
  EXPECT_EQ(doc_.json(), before);
  EXPECT_TRUE(w.log().empty()) << ::testing::PrintToString(w.log());
}

TEST_F(ApplierTest, OmittedTimesResolveToNowAndPersist) {
  load(R"({"interfaces": {"e1": {"ifIndex": 1}}, "vrfs": {"v": {"ipv4": {
      "pimStatus": {"interfaces": {"e1": {"address": "10.0.0.1/24",
                                          "neighbors": {"10.0.0.2": {}}}}},
      "candidateRpStatus": {"groups": {"224.0.0.0/4": {"10.0.0.9": {"holdTime": 150}}}},
      "routes": {"*,239.1.1.1": {}}}}}})");
  const auto table = state_.routeTable(v4, L3::VrfName("v"));
  auto route = table->route(key("*,239.1.1.1"));
  auto nbr = state_.pimGlobalStatus(v4)
                 ->vrfStatus(L3::VrfName("v"))
                 ->pimIntf(Lanet::IntfId("e1"))
                 ->activeNeighbor(addr("10.0.0.2"));
  auto rp = state_.crpStatusColl(v4)
                ->vrfStatus(L3::VrfName("v"))
                ->crpSet(*Lanet::IpGenPrefix::parse("224.0.0.0/4"))
                ->rpCandidate(addr("10.0.0.9"));
  EXPECT_EQ(route->creationTime(), 1000);
  EXPECT_EQ(nbr->creationTime(), 1000);
  EXPECT_EQ(nbr->lastRefreshTime(), 1000);
  EXPECT_EQ(rp->expiryTime(), 1150) << "now + holdTime";
  EXPECT_EQ(doc_.json()["vrfs"]["v"]["ipv4"]["routes"]["*,239.1.1.1"]["created"], 1000.0);

  // A re-read of a file that omits them keeps them; a new item gets the new now.
  clock_->nowIs(3000);
  load(R"({"interfaces": {"e1": {"ifIndex": 1}}, "vrfs": {"v": {"ipv4": {
      "pimStatus": {"interfaces": {"e1": {"address": "10.0.0.1/24",
                                          "neighbors": {"10.0.0.2": {}, "10.0.0.3": {}}}}},
      "candidateRpStatus": {"groups": {"224.0.0.0/4": {"10.0.0.9": {"holdTime": 150}}}},
      "routes": {"*,239.1.1.1": {}, "*,239.1.1.2": {"created": 1500}}}}}})");
  EXPECT_EQ(route->creationTime(), 1000);
  EXPECT_EQ(nbr->creationTime(), 1000);
  EXPECT_EQ(rp->expiryTime(), 1150);
  EXPECT_EQ(table->route(key("*,239.1.1.2"))->creationTime(), 1500) << "explicit times win";
  EXPECT_EQ(state_.pimGlobalStatus(v4)
                ->vrfStatus(L3::VrfName("v"))
                ->pimIntf(Lanet::IntfId("e1"))
                ->activeNeighbor(addr("10.0.0.3"))
                ->creationTime(),
            3000);
}

TEST_F(ApplierTest, FibCountersChangeSilentlyOifsAnnounced) {
  load(StateDocTest::kBaseDocument);
  Watcher w;
  w.watchKeyed<Shtab::Multicast::Fib::OifIndex>("fib", fib4());
  const auto starKey = Routing::Pim::pimRouteKeyToMfibKey(key("*,239.1.1.1"));
  patch(patchAt(red4("/fib/routes/*,239.1.1.1"), {{"packets", 7}, {"bytes", 700}}));
  EXPECT_TRUE(w.take().empty());
  EXPECT_EQ(fib4()->route(starKey).packets(), 7u);

  patch(patchAt(red4("/fib/routes/*,239.1.1.1/oifs"), {"Ethernet1", "Ethernet2"}));
  ASSERT_EQ(w.log().size(), 1u);
  EXPECT_TRUE(w.take()[0].starts_with("fib:1:")) << "one route changed";
  EXPECT_EQ(fib4()->route(starKey).oifCount(), 2u);
  EXPECT_EQ(fib4()->route(starKey).packets(), 7u) << "counters kept";

  // Moving an interface to another OIF index rewrites the routes using it; the stale index
  // goes before the new one appears.
  patch(patchAt(red4("/fib/oifIndexes/Ethernet2"), 9));
  const std::vector<std::string> log = w.take();
  ASSERT_EQ(log.size(), 3u) << ::testing::PrintToString(log);
  EXPECT_EQ(log[0], "fib:2:1");
  EXPECT_EQ(log[1], "fib:2:9");
  EXPECT_TRUE(log[2].starts_with("fib:1:")) << "the one route using Ethernet2";
  EXPECT_TRUE(fib4()->route(starKey).oif(Shtab::Multicast::Fib::OifIndex(9)));
  EXPECT_FALSE(fib4()->route(starKey).oif(Shtab::Multicast::Fib::OifIndex(1)));
  EXPECT_EQ(fib4()->oifIndexIntf(Shtab::Multicast::Fib::OifIndex(1)), Lanet::IntfId());
}

TEST_F(ApplierTest, ReReadDocumentRemovesWhatItNoLongerHolds) {
  load(StateDocTest::kBaseDocument);
  Json next = Json::parse(StateDocTest::kBaseDocument);
  Json& red = next["vrfs"]["red"]["ipv4"];
  red["routes"].erase("10.0.2.5,239.1.1.1");
  red["fib"]["routes"].erase("10.0.2.5,239.1.1.1");
  red["pimStatus"]["interfaces"]["Ethernet1"]["neighbors"].erase("10.0.1.3");
  red.erase("staticRpStatus");
  next["vrfs"].erase("blue");
  next["interfaces"].erase("Ethernet3");
  next["interfaces"]["Ethernet2"]["operStatus"] = "down";

  Watcher w;
  watchEverything(w);
  w.watchKeyed<Routing::Pim::RouteKey>("red routes", routes4());
  w.watchKeyed<Lanet::IpGenAddr>("Ethernet1 neighbors", pimIntf("red", "Ethernet1"));
  w.watchKeyed<Lanet::IntfId>("ifMib keys", state_.ifMib());
  const auto blue = state_.routeTable(v6, L3::VrfName("blue"));
  load(next.dump());
  std::vector<std::string> log = w.take();
  std::sort(log.begin(), log.end());
  EXPECT_EQ(log, (std::vector<std::string>{
                     "4.staticRpStatusColl:1", "6.pimGlobalStatus:1",
                     "Ethernet1 neighbors:6:10.0.1.3", "allIntfStatusDir:1", "allIntfStatusDir:1",
                     "fibTable:1", "ifMib keys:1:Ethernet3", "ifMib:1", "pimIntf:6",
                     "red routes:1:(10.0.2.5, 239.1.1.1)", "routeTable:1", "routeTable:1"}))
      << "blue: its PIM status and its one route; Ethernet2: its status; Ethernet3: gone";
  EXPECT_TRUE(blue->route().empty());
  EXPECT_FALSE(state_.routeTable(v6, L3::VrfName("blue")));
  EXPECT_FALSE(state_.staticRpStatusColl(v4)->vrfStatus(L3::VrfName("red")));
  EXPECT_EQ(state_.allIntfStatusDir()->intfStatus(Lanet::IntfId("Ethernet2"))->operStatus(),
            Interface::operDown);
  EXPECT_EQ(doc_.json(), next);
}

TEST_F(ApplierTest, ReferenceIndexFollowsPatches) {
  load(StateDocTest::kBaseDocument);
  const char* const patches[] = {
      R"({"vrfs": {"red": {"ipv4": {"routes": {"*,239.1.1.1": {"upstream": {"interface": "Ethernet2"}}}}}}})",
      R"({"vrfs": {"red": {"ipv4": {"routes": {"*,239.1.1.1": {"interfaces": {"Ethernet1": {}, "Ethernet2": null}}}}}}})",
      R"({"vrfs": {"red": {"ipv4": {"fib": {"routes": {"*,239.1.1.1": {"oifs": ["Ethernet1", "Ethernet2"]}}}}}}})",
      R"({"vrfs": {"red": {"ipv4": {"bsrStatus": null}}}})",
      R"({"vrfs": {"blue": null, "green": {"ipv4": {"fib": {"oifIndexes": {"Ethernet3": 0}}}}}})",
      R"({"interfaces": {"Ethernet3": null}, "vrfs": {"green": {"ipv4": {"fib": null}}}})",
  };
  for (const char* p : patches) {
    SCOPED_TRACE(p);
    const auto r = PimSnmpd::applyPatchText(doc_, p, state_);
    ASSERT_TRUE(r.ok) << describe(r.errors);
    Document::RefCounts fresh;
    Document::countRefs(doc_.json(), nullptr, 1, fresh);
    EXPECT_EQ(doc_.refCounts(), fresh);
  }
}

// Tables large enough for the merge to record where a patch's members landed: validation, the
// reference index and the records follow those members exactly as they follow a small table's.
TEST_F(ApplierTest, PatchesIntoLargeTablesReachTheMembersWhereTheMergePutThem) {
  Json doc = Json::parse(StateDocTest::kBaseDocument);
  Json& routes = doc["vrfs"]["red"]["ipv4"]["routes"];
  Json& fibRoutes = doc["vrfs"]["red"]["ipv4"]["fib"]["routes"];
  auto rk = [](int i) { return "10.0.3." + std::to_string(1 + i) + ",239.3.0.1"; };
  // More distinct interfaces than the reference tally keeps in its short list.
  auto loop = [](int i) { return "Loop" + std::to_string(i % 40); };
  for (int i = 0; i < 40; ++i) doc["interfaces"][loop(i)] = {{"ifIndex", 100 + i}};
  for (int i = 0; i < 100; ++i) {
    routes[rk(i)] =
        Json::parse(R"({"upstream": {"interface": "Ethernet2"}, "interfaces": {"Ethernet1": {}}})");
    routes[rk(i)]["interfaces"][loop(i)] = Json::object();
    fibRoutes[rk(i)] = {{"oifs", {"Ethernet1"}}, {"packets", i}};
  }
  load(doc.dump());
  const Document::RefKey loop7{"", AddressFamily::unknown, "Loop7"};
  EXPECT_EQ(doc_.refCount(loop7), 3);  // routes 7, 47 and 87

  Json p;
  Json& pr = p["vrfs"]["red"]["ipv4"]["routes"];
  Json& pf = p["vrfs"]["red"]["ipv4"]["fib"]["routes"];
  pr[rk(1)] = {{"interfaces", {{"Ethernet1", nullptr}, {"Ethernet2", {{"forward", false}}}}}};
  pr[rk(2)] = nullptr;
  pf[rk(2)] = nullptr;
  pr[rk(47)] = nullptr;
  pr["10.0.4.1,239.3.0.1"] = {{"upstream", {{"interface", "Ethernet1"}}}};
  pf["10.0.4.1,239.3.0.1"] = {{"oifs", {"Ethernet2"}}};
  pf[rk(3)] = {{"oifs", {"Ethernet1", "Ethernet2"}}, {"packets", 7}};
  patch(p);

  auto changed = routes4()->route(key(rk(1).c_str()));
  ASSERT_TRUE(changed);
  EXPECT_FALSE(changed->routeIntf(Lanet::IntfId("Ethernet1")));
  ASSERT_TRUE(changed->routeIntf(Lanet::IntfId("Ethernet2")));
  EXPECT_FALSE(changed->routeIntf(Lanet::IntfId("Ethernet2"))->forward());
  EXPECT_FALSE(routes4()->route(key(rk(2).c_str())));
  EXPECT_FALSE(fib4()->route().contains(Routing::Pim::pimRouteKeyToMfibKey(key(rk(2).c_str()))));
  ASSERT_TRUE(routes4()->route(key("10.0.4.1,239.3.0.1")));
  const auto fib3 = fib4()->route().find(Routing::Pim::pimRouteKeyToMfibKey(key(rk(3).c_str())));
  ASSERT_NE(fib3, fib4()->route().end());
  EXPECT_EQ(fib3->second.packets(), 7u);
  EXPECT_TRUE(fib3->second.oif(Shtab::Multicast::Fib::OifIndex(1)));

  EXPECT_EQ(doc_.refCount(loop7), 2);
  Document::RefCounts fresh;
  Document::countRefs(doc_.json(), nullptr, 1, fresh);
  EXPECT_EQ(doc_.refCounts(), fresh);
  // The records are what the document says: applying it whole, read or as a patch, changes
  // nothing.
  Watcher w;
  watchEverything(w);
  load(doc_.dump());
  patch(doc_.json());
  EXPECT_TRUE(w.log().empty()) << ::testing::PrintToString(w.log());

  // An error inside a large table is found at its path and changes nothing.
  const std::string kept = doc_.dump();
  const auto r = PimSnmpd::applyPatchText(doc_,
                                          R"({"vrfs": {"red": {"ipv4": {"routes": {")" + rk(5) +
                                              R"(": {"interfaces": {"Vlan9": {}}}}}}}})",
                                          state_);
  ASSERT_FALSE(r.ok);
  ASSERT_EQ(r.errors.size(), 1u);
  EXPECT_EQ(r.errors[0].path, "/vrfs/red/ipv4/routes/" + rk(5) + "/interfaces/Vlan9");
  EXPECT_EQ(doc_.dump(), kept);
  EXPECT_TRUE(w.log().empty());
}

TEST_F(ApplierTest, DemoDocumentValidatesAndApplies) {
  const std::string demo = StateDocTest::readFile("examples/demo-state.json");
  ASSERT_FALSE(demo.empty());
  load(demo);
  size_t v4Routes = 0;
  for (const char* vrf : {"default", "red"}) {
    EXPECT_TRUE(state_.pimGlobalStatus(v4)->vrfStatus(L3::VrfName(vrf))) << vrf;
    EXPECT_TRUE(state_.staticRpStatusColl(v4)->vrfStatus(L3::VrfName(vrf))) << vrf;
    v4Routes += routes4(vrf)->route().size();
    EXPECT_EQ(fib4(vrf)->route().size(), routes4(vrf)->route().size());
  }
  EXPECT_EQ(v4Routes, 20u);
  EXPECT_EQ(state_.routeTable(v6, L3::VrfName("blue"))->route().size(), 3u);
  EXPECT_FALSE(state_.pimGlobalStatus(v4)->vrfStatus(L3::VrfName("blue")));

  for (const char* name :
       {"patch-add-route.json", "patch-remove-neighbor.json", "patch-interface-down.json",
        "patch-counters.json", "patch-withdraw-vrf.json"}) {
    SCOPED_TRACE(name);
    const auto r = PimSnmpd::applyPatchText(
        doc_, StateDocTest::readFile(std::string("examples/") + name), state_);
    EXPECT_TRUE(r.ok) << describe(r.errors);
  }
  EXPECT_TRUE(routes4("default")->route(key("10.0.2.10,239.3.3.3")));
  EXPECT_FALSE(state_.pimGlobalStatus(v4)->vrfStatus(L3::VrfName("red")));
}

}  // namespace
