// Updates are all or nothing: a refused patch (invalid, or failing inside the records) leaves
// the document and every platform record exactly as they were; an accepted one is the RFC 7396
// merge of the previous document, with the documented time defaults; and the records always
// equal those a fresh state built from the current document holds.
//
// The random sequences run with a fixed seed and a bounded count. A longer run:
//   PIMSNMP_PROPERTY_STEPS=200000 PIMSNMP_PROPERTY_SEED=7 test_state_doc --gtest_filter='Atomic*'

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "daemon/state/Applier.h"
#include "daemon/state/PlatformState.h"
#include "daemon/state/StateDocument.h"
#include "platform/Clock/Clock.h"
#include "tests/unit/state_doc/AgentRows.h"
#include "tests/unit/state_doc/RecordsDump.h"
#include "tests/unit/state_doc/StateDocTestUtil.h"

namespace {

using PimSnmpd::Document;
using PimSnmpd::Json;
using PimSnmpd::PlatformState;
using StateDocTest::describe;
using StateDocTest::recordsDump;

// -- An independent reference: RFC 7396 merge, then the times the daemon fills in.

Json referenceMerge(const Json& target, const Json& patch) {
  if (!patch.is_object()) return patch;
  Json out = target.is_object() ? target : Json::object();
  for (const auto& [name, value] : patch.items()) {
    if (value.is_null()) {
      out.erase(name);
    } else {
      out[name] = referenceMerge(out.contains(name) ? out[name] : Json(), value);
    }
  }
  return out;
}

// An omitted time keeps the item's previous value; an item new to the document gets `now`
// (an RP's expiry: now + holdTime).
void fillTime(Json& item, const Json* prev, const std::string& name, double fallback) {
  if (item.contains(name)) return;
  item[name] = prev != nullptr && prev->contains(name) ? (*prev)[name] : Json(fallback);
}

const Json* at(const Json& doc, const Json::json_pointer& p) {
  return doc.contains(p) ? &doc[p] : nullptr;
}

Json expectedAfter(const Json& prev, const Json& patch, double now) {
  Json next = referenceMerge(prev, patch);
  if (!next.contains("vrfs")) return next;
  for (auto& [vrf, v] : next["vrfs"].items()) {
    for (auto& [fam, f] : v.items()) {
      const Json::json_pointer base("/vrfs/" + PimSnmpd::pointerToken(vrf) + "/" + fam);
      if (f.contains("pimStatus") && f["pimStatus"].contains("interfaces")) {
        for (auto& [intf, i] : f["pimStatus"]["interfaces"].items()) {
          if (!i.contains("neighbors")) continue;
          for (auto& [nbr, n] : i["neighbors"].items()) {
            const Json* old =
                at(prev, base / "pimStatus" / "interfaces" / intf / "neighbors" / nbr);
            fillTime(n, old, "created", now);
            fillTime(n, old, "lastRefresh", now);
          }
        }
      }
      if (f.contains("routes")) {
        for (auto& [key, r] : f["routes"].items()) {
          fillTime(r, at(prev, base / "routes" / key), "created", now);
        }
      }
      for (const char* coll : {"candidateRpStatus", "staticRpStatus"}) {
        if (!f.contains(coll) || !f[coll].contains("groups")) continue;
        for (auto& [group, rps] : f[coll]["groups"].items()) {
          for (auto& [rp, r] : rps.items()) {
            const double hold = r.contains("holdTime") ? r["holdTime"].get<double>() : 0;
            fillTime(r, at(prev, base / coll / "groups" / group / rp), "expiry", now + hold);
          }
        }
      }
    }
  }
  return next;
}

// -- Random patches over a small universe, valid and not.

class PatchMaker {
 public:
  explicit PatchMaker(uint32_t seed) : rng_(seed) {}

  Json patch() {
    Json p = Json::object();
    if (chance(0.25)) p["interfaces"] = interfaces();
    if (chance(0.9)) {
      Json vrfs = Json::object();
      for (int n = 1 + pick(2); n > 0; --n) vrfs[oneOf(kVrfs)] = chance(0.01) ? Json() : vrf();
      p["vrfs"] = vrfs;
    }
    if (chance(0.02)) p["bogus"] = 1;
    return p;
  }

 private:
  static constexpr const char* kIntfs[] = {"E1", "E2", "E3", "E4"};
  static constexpr const char* kVrfs[] = {"default", "red", "blue"};
  static constexpr const char* kRoutes[] = {"10.1.1.1,239.1.1.1", "*,239.1.1.1",
                                            "10.1.1.2,239.2.2.2", "10.9.9.9,239.77.9.9"};
  // Host parts of neighbors; each interface has its own subnet, as pimNeighborTable is indexed
  // by address alone (one neighbor address on two interfaces would be one row).
  static constexpr const char* kNeighbors[] = {"2", "3", "1"};
  static constexpr const char* kGroups[] = {"224.0.0.0/4", "239.0.0.0/8"};
  static constexpr const char* kRps[] = {"10.0.0.9", "10.0.0.8"};

  bool chance(double p) { return std::uniform_real_distribution<double>(0, 1)(rng_) < p; }
  int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng_); }
  template <size_t N>
  const char* oneOf(const char* const (&names)[N]) {
    return names[pick(N)];
  }
  // null (delete), or a value from `make`.
  template <class F>
  Json maybeNull(double pNull, F make) {
    return chance(pNull) ? Json() : make();
  }

  Json interfaces() {
    Json out = Json::object();
    for (int n = 1 + pick(2); n > 0; --n) {
      out[oneOf(kIntfs)] = maybeNull(0.1, [&] {
        Json i = Json::object();
        if (chance(0.8)) i["ifIndex"] = 1 + pick(6);
        if (chance(0.3)) i["operStatus"] = chance(0.5) ? "up" : "down";
        return i;
      });
    }
    return out;
  }

  Json vrf() {
    Json v = Json::object();
    v["ipv4"] = maybeNull(0.01, [&] { return family(); });
    return v;
  }

  Json family() {
    Json f = Json::object();
    auto input = [&](const char* name, auto make) {
      if (chance(0.2)) f[name] = maybeNull(0.03, make);
    };
    input("pimConfig", [&] { return Json{{"joinPruneInterval", chance(0.05) ? -1 : pick(100)}}; });
    input("pimStatus", [&] { return pimStatus(); });
    input("bsrConfig", [&] { return Json{{"bootstrapTimeout", pick(200)}}; });
    input("bsrStatus", [&] {
      Json cbsr = Json::object();
      cbsr[oneOf(kGroups)] = maybeNull(0.3, [&] {
        Json c = Json::object();
        if (chance(0.8)) c["interface"] = oneOf(kIntfs);
        return c;
      });
      return Json{{"candidateBsrs", cbsr}};
    });
    // One RP address per source: pimRPSetTable has one row for a (group, RP) that both list.
    input("candidateRpStatus", [&] { return rps(kRps[0]); });
    input("staticRpStatus", [&] { return rps(kRps[1]); });
    input("mfibConfig", [&] { return Json{{"routing", chance(0.5)}}; });
    if (chance(0.4)) f["routes"] = maybeNull(0.05, [&] { return routes(); });
    if (chance(0.3)) f["fib"] = maybeNull(0.05, [&] { return fib(); });
    return f;
  }

  Json pimStatus() {
    Json s = Json::object();
    if (chance(0.2)) s["mode"] = chance(0.8) ? "sparse" : "dense";
    Json ifs = Json::object();
    for (int n = pick(3); n > 0; --n) {
      const int i = pick(4);
      ifs[kIntfs[i]] = maybeNull(0.15, [&] {
        Json intf = Json::object();
        if (chance(0.6)) intf["address"] = "10.0." + std::to_string(i) + ".1/24";
        if (chance(0.5)) {
          Json nbrs = Json::object();
          nbrs["10.0." + std::to_string(i) + "." + oneOf(kNeighbors)] = maybeNull(0.4, [&] {
            Json nbr = Json::object();
            if (chance(0.5)) nbr["holdTime"] = pick(200);
            if (chance(0.1)) nbr["created"] = Json();
            return nbr;
          });
          intf["neighbors"] = nbrs;
        }
        return intf;
      });
    }
    s["interfaces"] = ifs;
    return s;
  }

  Json rps(const char* address) {
    Json groups = Json::object();
    groups[oneOf(kGroups)] = maybeNull(0.2, [&] {
      Json set = Json::object();
      set[address] = maybeNull(0.3, [&] {
        Json rp = Json::object();
        if (chance(0.5)) rp["holdTime"] = pick(300);
        if (chance(0.1)) rp["expiry"] = Json();
        return rp;
      });
      return set;
    });
    return Json{{"groups", groups}};
  }

  Json routes() {
    Json out = Json::object();
    for (int n = 1 + pick(2); n > 0; --n) {
      out[oneOf(kRoutes)] = maybeNull(0.2, [&] {
        Json r = Json::object();
        if (chance(0.5)) {
          r["upstream"] = maybeNull(0.2, [&] {
            Json up = Json::object();
            if (chance(0.8)) up["interface"] = oneOf(kIntfs);
            up["rpfNeighbor"] = chance(0.3) ? Json() : Json("10.0.0.2");
            return up;
          });
        }
        if (chance(0.5)) {
          Json ifs = Json::object();
          ifs[oneOf(kIntfs)] = maybeNull(0.3, [&] { return Json{{"forward", chance(0.7)}}; });
          r["interfaces"] = ifs;
        }
        if (chance(0.1)) r["created"] = Json();
        if (chance(0.2)) r["flags"] = Json::array({"spt"});
        return r;
      });
    }
    return out;
  }

  Json fib() {
    Json f = Json::object();
    if (chance(0.5)) {
      Json idx = Json::object();
      idx[oneOf(kIntfs)] = maybeNull(0.2, [&] { return Json(pick(4)); });
      f["oifIndexes"] = idx;
    }
    if (chance(0.6)) {
      Json rs = Json::object();
      rs[oneOf(kRoutes)] = maybeNull(0.2, [&] {
        Json r = Json::object();
        if (chance(0.6)) r["oifs"] = Json::array({oneOf(kIntfs)});
        if (chance(0.5)) r["packets"] = pick(1000);
        return r;
      });
      f["routes"] = rs;
    }
    return f;
  }

  std::mt19937 rng_;
};

size_t envCount(const char* name, size_t otherwise) {
  const char* v = std::getenv(name);
  return v != nullptr ? std::strtoull(v, nullptr, 10) : otherwise;
}

class AtomicUpdatesTest : public ::testing::Test {
 protected:
  AtomicUpdatesTest() : root_(Ent::make<Ent::Dir>("root")), state_(root_) {}

  void load(const std::string& text) {
    const auto r = PimSnmpd::applyText(doc_, text, state_);
    ASSERT_TRUE(r.ok) << describe(r.errors);
  }

  // The records a fresh state holds for the current document.
  std::string freshRecords() const {
    PlatformState fresh(Ent::make<Ent::Dir>("fresh"));
    Document doc;
    const auto r = PimSnmpd::applyText(doc, doc_.dump(), fresh);
    EXPECT_TRUE(r.ok) << describe(r.errors);
    return recordsDump(fresh);
  }

  // The rows a fresh agent serves over fresh records of the current document (no other agent
  // may be up: they would share net-snmp's registrations).
  StateDocTest::Rows freshRows() {
    auto root = Ent::make<Ent::Dir>("fresh");
    PlatformState fresh(root);
    Document doc;
    const auto r = PimSnmpd::applyText(doc, doc_.dump(), fresh);
    EXPECT_TRUE(r.ok) << describe(r.errors);
    StateDocTest::Agent agent(root, fresh, clock_);
    agent.settle(60);
    return agent.rows();
  }

  // Asserts that `patch` is refused at `path` and changes nothing.
  void expectRefused(const Json& patch, const std::string& path, const std::string& reason) {
    const std::string doc = doc_.dump();
    const std::string records = recordsDump(state_);
    const auto r = PimSnmpd::applyPatch(doc_, patch, state_);
    ASSERT_FALSE(r.ok) << patch.dump();
    ASSERT_FALSE(r.errors.empty());
    EXPECT_EQ(r.errors[0].path, path) << describe(r.errors);
    EXPECT_NE(r.errors[0].reason.find(reason), std::string::npos) << describe(r.errors);
    EXPECT_EQ(doc_.dump(), doc);
    EXPECT_EQ(recordsDump(state_), records);
  }

  Ent::Ptr<Plat::ManualClock> clock_ = Ent::make<Plat::ManualClock>(1000.0);
  Plat::ScopedClock scopedClock_{clock_};
  Ent::Ptr<Ent::Dir> root_;
  PlatformState state_;
  Document doc_;
};

TEST_F(AtomicUpdatesTest, NullsInsideNewMembersMakeThemAnewAndAreCheckedWhole) {
  load(StateDocTest::kBaseDocument);
  const std::string route = "/vrfs/red/ipv4/routes/10.9.9.9,239.77.9.9";
  expectRefused(Json::parse(R"({"vrfs":{"red":{"ipv4":{"routes":{"10.9.9.9,239.77.9.9":
                    {"upstream":{"rpfNeighbor":null}}}}}}})"),
                route + "/upstream/interface", "required member is missing");
  // Ethernet3 is no PIM interface of red yet.
  expectRefused(StateDocTest::patchAt("/vrfs/red/ipv4/pimStatus/interfaces/Ethernet3/neighbors",
                                      Json{{"10.0.0.1", nullptr}}),
                "/vrfs/red/ipv4/pimStatus/interfaces/Ethernet3/address",
                "required member is missing");
  // An existing route without upstream gains one only with its interface.
  expectRefused(StateDocTest::patchAt("/vrfs/blue/ipv6/routes/*,ff0e::1/upstream",
                                      Json{{"rpfNeighbor", nullptr}}),
                "/vrfs/blue/ipv6/routes/*,ff0e::1/upstream/interface", "required member");

  // Where the new member is valid as {}, the patch is accepted and means just that.
  const auto r = PimSnmpd::applyPatch(
      doc_, Json::parse(R"({"vrfs":{"red":{"ipv4":{"routes":{"10.9.9.9,239.77.9.9":
                {"interfaces":{"Ethernet1":null}}}}}}})"),
      state_);
  ASSERT_TRUE(r.ok) << describe(r.errors);
  EXPECT_EQ(doc_.json()["vrfs"]["red"]["ipv4"]["routes"]["10.9.9.9,239.77.9.9"],
            (Json{{"created", 1000.0}, {"interfaces", Json::object()}}));
  EXPECT_EQ(recordsDump(state_), freshRecords());
}

// Throws from inside the records' notifications once armed: an agent reactor failing part way.
class Saboteur : public Ent::Reactor {
 public:
  using Reactor::Reactor;
  void onChange(const Ent::Change&) override {
    if (armed && ++seen == armed) throw std::runtime_error("reactor failed");
  }
  int armed = 0;
  int seen = 0;
};

TEST_F(AtomicUpdatesTest, AFailureInsideTheRecordsTakesTheWholeUpdateBack) {
  load(StateDocTest::kBaseDocument);
  const L3::VrfName red("red");
  Saboteur onRoutes(state_.routeTable(Lanet::AddressFamily::ipv4, red));
  Saboteur onPim(state_.pimGlobalStatus(Lanet::AddressFamily::ipv4)->vrfStatus(red));
  // Every record kind at once: interfaces, PIM, routes, FIB, a removal and a new VRF.
  const Json patch = Json::parse(R"({
    "interfaces": {"Ethernet4": {"ifIndex": 4}, "Ethernet1": {"ifIndex": 11}},
    "vrfs": {
      "red": {"ipv4": {
        "pimStatus": {"interfaces": {"Ethernet4": {"address": "10.0.4.1/24",
                                                   "neighbors": {"10.0.4.2": {}}},
                                     "Ethernet2": null}},
        "routes": {"10.0.2.5,239.1.1.1": null,
                   "10.0.4.9,239.4.4.4": {"upstream": {"interface": "Ethernet4"}},
                   "*,239.1.1.1": {"flags": ["rpt"], "interfaces": {"Ethernet4": {}}}},
        "fib": {"oifIndexes": {"Ethernet4": 4}, "routes": {"*,239.1.1.1": {"oifs": ["Ethernet4"]}}},
        "candidateRpStatus": {"groups": {"239.0.0.0/8": {"10.0.1.7": {"holdTime": 9}}}}}},
      "green": {"ipv4": {"pimConfig": {}, "routes": {"*,239.5.5.5": {}}}}}})");
  const std::string doc = doc_.dump();
  const std::string records = recordsDump(state_);
  clock_->stepTo(2000);
  for (Saboteur* s : {&onRoutes, &onPim}) {
    for (int n = 1; n <= 2; ++n) {
      onRoutes.armed = onPim.armed = 0;
      s->seen = 0;
      s->armed = n;
      EXPECT_THROW(PimSnmpd::applyPatch(doc_, patch, state_), std::runtime_error) << n;
      s->armed = 0;
      EXPECT_EQ(doc_.dump(), doc) << n;
      EXPECT_EQ(recordsDump(state_), records) << n;
    }
  }
  // The document's reference index came back too: Ethernet2 is still in use.
  expectRefused(Json{{"interfaces", {{"Ethernet2", nullptr}}}},
                "/vrfs/red/ipv4/pimStatus/interfaces/Ethernet2", "unknown interface");
  const auto r = PimSnmpd::applyPatch(doc_, patch, state_);
  ASSERT_TRUE(r.ok) << describe(r.errors);
  EXPECT_EQ(recordsDump(state_), freshRecords());
}

TEST_F(AtomicUpdatesTest, ARenumberedInterfaceLeavesAndReturnsInEveryRecord) {
  load(StateDocTest::kBaseDocument);
  auto agent = std::make_unique<StateDocTest::Agent>(root_, state_, clock_);
  agent->settle(60);
  const StateDocTest::Rows before = agent->rows();
  StateDocTest::Watcher w;
  w.watch("pimStatus",
          state_.pimGlobalStatus(Lanet::AddressFamily::ipv4)->vrfStatus(L3::VrfName("red")));
  w.watch("pimIntf", state_.pimGlobalStatus(Lanet::AddressFamily::ipv4)
                         ->vrfStatus(L3::VrfName("red"))
                         ->pimIntf(Lanet::IntfId("Ethernet1")));
  w.watch("route",
          state_.routeTable(Lanet::AddressFamily::ipv4, L3::VrfName("red"))
              ->route()
              .find(*PimSnmpd::parseRouteKey("10.0.2.5,239.1.1.1", Lanet::AddressFamily::ipv4)));
  w.watch("fib", state_.fibTable(Lanet::AddressFamily::ipv4, L3::VrfName("red")));
  const Json renumber = Json::parse(R"({"interfaces":{"Ethernet1":{"ifIndex":42}}})");
  const auto r = PimSnmpd::applyPatch(doc_, renumber, state_);
  ASSERT_TRUE(r.ok) << describe(r.errors);
  // Each record naming Ethernet1 went and came back: the PIM interface, its two neighbors,
  // the route's interface, the OIF mapping and the FIB route forwarding out of it.
  const std::vector<std::string> log = w.take();
  for (const auto& [label, times] : {std::pair{"pimStatus:", 2}, std::pair{"pimIntf:", 4},
                                     std::pair{"route:", 2}, std::pair{"fib:", 4}}) {
    EXPECT_EQ(std::count_if(log.begin(), log.end(),
                            [&](const std::string& l) { return l.rfind(label, 0) == 0; }),
              times)
        << label;
  }
  EXPECT_EQ(recordsDump(state_), freshRecords());
  // Every row that named ifIndex 1 names 42 now, as a fresh agent's do.
  agent->settle(60);
  const StateDocTest::Rows after = agent->rows();
  agent.reset();
  EXPECT_EQ(StateDocTest::rowDifferences(after, freshRows()), "");
  EXPECT_NE(StateDocTest::rowDifferences(before, after), "");
  // Renumbering to the same ifIndex is no change at all.
  ASSERT_TRUE(PimSnmpd::applyPatch(doc_, renumber, state_).ok);
  EXPECT_TRUE(w.take().empty());
}

TEST_F(AtomicUpdatesTest, RandomPatchSequencesAreAllOrNothing) {
  const size_t steps = envCount("PIMSNMP_PROPERTY_STEPS", 3000);
  const auto seed = static_cast<uint32_t>(envCount("PIMSNMP_PROPERTY_SEED", 1));
  load(R"({"interfaces": {"E1": {"ifIndex": 1}, "E2": {"ifIndex": 2}, "E3": {"ifIndex": 3},
                          "E4": {"ifIndex": 4}},
           "vrfs": {"default": {"ipv4": {"pimConfig": {}, "pimStatus": {}, "bsrConfig": {},
                                         "bsrStatus": {}, "candidateRpStatus": {},
                                         "staticRpStatus": {}, "mfibConfig": {}}}}})");
  auto agent = std::make_unique<StateDocTest::Agent>(root_, state_, clock_);
  PatchMaker maker(seed);
  size_t accepted = 0;
  size_t servedRows = 0;
  for (size_t step = 0; step < steps; ++step) {
    clock_->stepTo(1000.0 + static_cast<double>(step));
    const Json patch = maker.patch();
    const std::string before = doc_.dump();
    const std::string records = recordsDump(state_);
    const auto r = PimSnmpd::applyPatch(doc_, patch, state_);
    if (r.ok) {
      ++accepted;
      const Json expected = expectedAfter(Json::parse(before), patch, clock_->now());
      ASSERT_EQ(doc_.dump(), expected.dump(2)) << "step " << step << ": " << patch.dump();
      // The text a dump sends, written route by route, is the tree's.
      std::string text;
      doc_.writeJson(text);
      ASSERT_EQ(text, expected.dump(-1, ' ', false, Json::error_handler_t::replace))
          << "step " << step;
    } else {
      ASSERT_FALSE(r.errors.empty());
      ASSERT_EQ(doc_.dump(), before) << "step " << step << ": " << patch.dump();
      ASSERT_EQ(recordsDump(state_), records) << "step " << step << ": " << patch.dump();
    }
    if (step % 500 == 499 || step + 1 == steps) {
      ASSERT_EQ(recordsDump(state_), freshRecords()) << "step " << step;
      // The rows the agent came to by following every change are those of a fresh agent over
      // fresh records of the document; then a new agent follows the next stretch.
      agent->settle(60);
      const StateDocTest::Rows live = agent->rows();
      agent.reset();
      const StateDocTest::Rows fresh = freshRows();
      ASSERT_EQ(StateDocTest::rowDifferences(live, fresh), "") << "step " << step;
      agent = std::make_unique<StateDocTest::Agent>(root_, state_, clock_);
      servedRows += live.size();
    }
  }
  // Both outcomes must be common for the sequence to test anything, and rows must be served.
  EXPECT_GT(accepted, steps / 5);
  EXPECT_LT(accepted, steps - steps / 5);
  EXPECT_GT(servedRows, 100u);
}

}  // namespace
