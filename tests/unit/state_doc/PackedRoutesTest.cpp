// The packed form of routes: exact round trips, including the values only MessagePack can
// keep, and a document whose routes are packed between updates reads as if they never were.

#include <algorithm>
#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include "daemon/state/Applier.h"
#include "daemon/state/Packed.h"
#include "daemon/state/RouteStore.h"
#include "daemon/state/StateDocument.h"
#include "tests/unit/state_doc/StateDocTestUtil.h"

namespace {

namespace D = PimSnmpd::Description;
using PimSnmpd::Json;

// The round trip must keep the value's JSON text, types included (5 and 5.0 differ there).
void expectRoundTrip(const D::Value& d, const std::string& text, size_t maxPacked) {
  SCOPED_TRACE(text);
  const Json v = Json::parse(text);
  std::string packed;
  PimSnmpd::Packed::pack(d, v, packed);
  EXPECT_EQ(PimSnmpd::Packed::unpack(d, packed).dump(), v.dump());
  EXPECT_LE(packed.size(), maxPacked);
}

TEST(PackedTest, RoutesComeBackExactlyAndSmall) {
  // The typed form: no member names, one byte per enumeration and flag.
  expectRoundTrip(D::kRouteValue, R"({})", 2);
  expectRoundTrip(D::kRouteValue,
                  R"({"created": 1700000000, "flags": ["rpt", "wildcard"],
                      "upstream": {"interface": "Ethernet1", "rpfNeighbor": "10.0.1.2"},
                      "interfaces": {"Ethernet2": {}, "Ethernet3": {"assertState": "winner",
                        "assertMetric": 4294967295, "assertRptBit": true, "forward": false}}})",
                  64);
  expectRoundTrip(D::kRouteValue, R"({"created": 1700000000.25, "flags": ["spt"]})", 16);
  expectRoundTrip(D::kFibRouteValue,
                  R"({"oifs": ["Ethernet2", "Ethernet3"], "packets": 18446744073709551615,
                      "bytes": 0})",
                  40);
  expectRoundTrip(D::kFibRouteValue, R"({"oifs": []})", 4);
  // Valid, but not in the typed form's terms: an integral float, an unknown enumeration
  // name (for the codec's sake; the validator refuses it), an unknown member.
  expectRoundTrip(D::kFibRouteValue, R"({"packets": 5.0})", 64);
  expectRoundTrip(D::kRouteValue, R"({"flags": ["nonsense"]})", 64);
  expectRoundTrip(D::kRouteValue, R"({"extra": {"a": [1, null, "x"]}})", 64);
}

TEST(PackedTest, StoreTakesAndGivesBackByKeyWithBothParts) {
  Json routes = Json::parse(R"({"*,239.1.1.1": {"flags": ["wildcard", "rpt"]},
                                "10.0.0.1,239.1.1.1": {}})");
  Json fibRoutes = Json::parse(R"({"10.0.0.1,239.1.1.1": {"packets": 3},
                                   "10.0.0.9,239.1.1.1": {"oifs": ["E1"]}})");
  const Json routesBefore = routes;
  const Json fibBefore = fibRoutes;
  PimSnmpd::RouteStore store;
  store.take(&routes, &fibRoutes);
  EXPECT_TRUE(routes.empty());
  EXPECT_TRUE(fibRoutes.empty());
  EXPECT_EQ(store.size(), 3u);

  Json copyRoutes = Json::object();
  Json copyFib = Json::object();
  store.copyTo(&copyRoutes, &copyFib);
  EXPECT_EQ(copyRoutes, routesBefore);
  EXPECT_EQ(copyFib, fibBefore);

  // One key moves back with both its parts; the others stay packed.
  store.give("10.0.0.1,239.1.1.1", &routes, &fibRoutes);
  store.give("10.9.9.9,239.1.1.1", &routes, &fibRoutes);
  EXPECT_EQ(routes, Json::parse(R"({"10.0.0.1,239.1.1.1": {}})"));
  EXPECT_EQ(fibRoutes, Json::parse(R"({"10.0.0.1,239.1.1.1": {"packets": 3}})"));
  EXPECT_EQ(store.size(), 2u);

  // Taking a key back that the store still has keeps the tree's (newer) value.
  routes["*,239.1.1.1"] = Json::parse(R"({"flags": ["rpt"]})");
  store.take(&routes, &fibRoutes);
  copyRoutes = Json::object();
  copyFib = Json::object();
  store.giveAll(&copyRoutes, &copyFib);
  EXPECT_EQ(copyRoutes["*,239.1.1.1"], Json::parse(R"({"flags": ["rpt"]})"));
  EXPECT_EQ(copyFib.size(), 2u);
  EXPECT_TRUE(store.empty());

  // Keys too long for a one-byte length are ordered and found like the others.
  const std::string longKey(300, '1');
  Json longRoutes = Json::object();
  longRoutes[longKey] = Json::parse(R"({"flags": ["rpt"]})");
  longRoutes[longKey.substr(0, 200)] = Json::object();
  longRoutes["2"] = Json::object();
  const Json longBefore = longRoutes;
  store.take(&longRoutes, nullptr);
  Json given = Json::object();
  store.give(longKey, &given, nullptr);
  EXPECT_EQ(given.size(), 1u);
  EXPECT_EQ(given[longKey], longBefore[longKey]);
  store.copyTo(&given, nullptr);
  EXPECT_EQ(given, longBefore);
}

TEST(PackedTest, PackedDocumentReadsAsTheWholeTree) {
  const char* text = R"({"interfaces": {"E1": {"ifIndex": 1}, "E2": {"ifIndex": 2}},
    "vrfs": {"red": {"ipv4": {"routes": {"*,239.1.1.1": {"created": 5,
                                            "upstream": {"interface": "E1"},
                                            "flags": ["wildcard", "rpt"]},
                                          "10.0.0.1,239.1.1.1": {"created": 6}},
                              "fib": {"oifIndexes": {"E1": 0, "E2": 1},
                                      "routes": {"10.0.0.1,239.1.1.1": {"oifs": ["E2"],
                                                                        "packets": 7}}}},
                     "ipv6": {"routes": {"*,ff0e::1": {"created": 1.5}}}}}})";
  PimSnmpd::ParseResult parsed = PimSnmpd::Document::parse(text);
  ASSERT_TRUE(parsed.ok());
  PimSnmpd::Document doc = std::move(*parsed.document);
  const Json whole = doc.json();
  doc.settle();
  EXPECT_EQ(doc.json(), whole);
  std::string written;
  doc.writeJson(written);
  EXPECT_EQ(written, whole.dump());
  const Json& outline = doc.outline();
  EXPECT_TRUE(outline["vrfs"]["red"]["ipv4"]["routes"].empty());
  EXPECT_TRUE(outline["vrfs"]["red"]["ipv4"]["fib"]["routes"].empty());

  // A patch sees packed routes as present: a member merges into the route, a null removes it,
  // and removing an interface a packed route still names is refused.
  Json expected = whole;
  ASSERT_TRUE(doc.mergePatch(Json::parse(
                                 R"({"vrfs": {"red": {"ipv4": {"routes": {
                                       "*,239.1.1.1": {"flags": ["wildcard"]},
                                       "10.0.0.1,239.1.1.1": null}}}}})"))
                  .empty());
  expected["vrfs"]["red"]["ipv4"]["routes"]["*,239.1.1.1"]["flags"] =
      Json::parse(R"(["wildcard"])");
  expected["vrfs"]["red"]["ipv4"]["routes"].erase("10.0.0.1,239.1.1.1");
  doc.settle();
  EXPECT_EQ(doc.json(), expected);
  EXPECT_FALSE(doc.mergePatch(Json::parse(R"({"interfaces": {"E1": null}})")).empty());
  EXPECT_FALSE(
      doc.mergePatch(
             Json::parse(R"({"vrfs": {"red": {"ipv4": {"fib": {"oifIndexes": {"E2": null}}}}}})"))
          .empty());
  doc.settle();
  EXPECT_EQ(doc.json(), expected);

  // So do the packed FIB routes with the FIB that holds them.
  ASSERT_TRUE(doc.mergePatch(Json::parse(R"({"vrfs": {"red": {"ipv4": {"fib": null}}}})")).empty());
  doc.settle();
  ASSERT_TRUE(doc.mergePatch(Json::parse(R"({"vrfs": {"red": {"ipv4": {"fib": {"routes": {}}}}}})"))
                  .empty());
  doc.settle();
  EXPECT_EQ(doc.json()["vrfs"]["red"]["ipv4"]["fib"], Json::parse(R"({"routes": {}})"));

  // A whole VRF goes, with its packed routes, and comes back without them.
  ASSERT_TRUE(doc.mergePatch(Json::parse(R"({"vrfs": {"red": null}})")).empty());
  ASSERT_TRUE(
      doc.mergePatch(Json::parse(R"({"vrfs": {"red": {"ipv4": {"routes": {}}}}})")).empty());
  doc.settle();
  EXPECT_EQ(doc.json()["vrfs"]["red"], Json::parse(R"({"ipv4": {"routes": {}}})"));
}

// Reading a document packs each VRF family's routes as soon as the family is read (when
// /interfaces came first); what it yields must not depend on that: the same document, the same
// reference counts and the same errors as checking the whole tree at once.
TEST(PackedTest, ReadingPacksAsItGoesYetYieldsTheWholeDocument) {
  Json demo = Json::parse(StateDocTest::readFile("examples/demo-state.json"));
  demo.erase("$schema");
  // A dump writes /interfaces first; a hand-written file may not.
  const std::string interfacesFirst = demo.dump();
  const std::string interfacesLast =
      R"({"vrfs":)" + demo["vrfs"].dump() + R"(,"interfaces":)" + demo["interfaces"].dump() + "}";
  for (const std::string& text : {interfacesFirst, interfacesLast}) {
    PimSnmpd::ParseResult read = PimSnmpd::Document::parse(text);
    PimSnmpd::ParseResult whole = PimSnmpd::Document::fromJson(demo);
    ASSERT_TRUE(read.ok()) << StateDocTest::describe(read.errors);
    ASSERT_TRUE(whole.ok());
    EXPECT_EQ(read.document->json(), whole.document->json());
    EXPECT_EQ(read.document->refCounts(), whole.document->refCounts());
  }

  // Errors in the routes of one family and elsewhere: every one is reported, at its place.
  Json bad = demo;
  Json& vrf = bad["vrfs"].begin().value();
  Json& family = vrf.begin().value();
  ASSERT_FALSE(family["routes"].empty());
  Json& route = family["routes"].begin().value();
  route["upstream"]["interface"] = "NoSuchIntf";
  route["bogus"] = 1;
  bad["interfaces"].begin().value()["ifIndex"] = -1;
  auto sorted = [](PimSnmpd::ValidationErrors errors) {
    std::sort(errors.begin(), errors.end(), [](const auto& a, const auto& b) {
      return std::tie(a.path, a.reason) < std::tie(b.path, b.reason);
    });
    return errors;
  };
  const PimSnmpd::ValidationErrors expected = sorted(PimSnmpd::validate(bad));
  ASSERT_EQ(expected.size(), 3u) << StateDocTest::describe(expected);
  const PimSnmpd::ParseResult refused = PimSnmpd::Document::parse(bad.dump());
  EXPECT_FALSE(refused.ok());
  EXPECT_EQ(sorted(refused.errors), expected) << StateDocTest::describe(refused.errors);
}

}  // namespace
