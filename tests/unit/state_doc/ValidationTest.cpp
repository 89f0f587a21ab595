#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "daemon/state/MergePatch.h"
#include "daemon/state/StateDocument.h"
#include "tests/unit/state_doc/StateDocTestUtil.h"

namespace {

using PimSnmpd::Document;
using PimSnmpd::Json;
using PimSnmpd::ValidationErrors;
using StateDocTest::baseJson;
using StateDocTest::describe;
using StateDocTest::patchAt;
using StateDocTest::red4;

const PimSnmpd::ValidationError* find(const ValidationErrors& errors, const std::string& path) {
  for (const auto& e : errors) {
    if (e.path == path) return &e;
  }
  return nullptr;
}

TEST(ParseTest, SyntaxErrorsNameLineAndColumn) {
  const auto r = Document::parse("{\n  \"interfaces\": {},\n  vrfs: {}\n}");
  ASSERT_FALSE(r.ok());
  ASSERT_EQ(r.errors.size(), 1u);
  EXPECT_EQ(r.errors[0].path, "");
  EXPECT_NE(r.errors[0].reason.find("line 3, column 3"), std::string::npos) << r.errors[0].reason;

  const auto truncated = Document::parse("{\"interfaces\": {");
  ASSERT_FALSE(truncated.ok());
  EXPECT_NE(truncated.errors[0].reason.find("invalid JSON"), std::string::npos);
  EXPECT_FALSE(Document::parse("").ok());
}

TEST(ParseTest, DuplicateMembersAreRefusedAtTheirPath) {
  const auto r = Document::parse(
      R"({"interfaces": {"Ethernet1": {"ifIndex": 1}, "Ethernet1": {"ifIndex": 2}}})");
  ASSERT_FALSE(r.ok());
  ASSERT_EQ(r.errors.size(), 1u);
  EXPECT_EQ(r.errors[0].path, "/interfaces/Ethernet1");
  EXPECT_EQ(r.errors[0].reason, "duplicate member name");

  const auto inArray = PimSnmpd::parseJson(R"({"a": [1, {"x": 1, "x": 2}]})");
  ASSERT_EQ(inArray.errors.size(), 1u);
  EXPECT_EQ(inArray.errors[0].path, "/a/1/x");
}

TEST(ParseTest, NestingIsLimited) {
  std::string deep(PimSnmpd::kMaxJsonDepth + 1, '[');
  deep += std::string(PimSnmpd::kMaxJsonDepth + 1, ']');
  const auto r = PimSnmpd::parseJson(deep);
  EXPECT_FALSE(r.value);
  ASSERT_FALSE(r.errors.empty());
  EXPECT_NE(r.errors[0].reason.find("nesting"), std::string::npos);
  EXPECT_TRUE(PimSnmpd::parseJson(std::string(PimSnmpd::kMaxJsonDepth, '[') +
                                  std::string(PimSnmpd::kMaxJsonDepth, ']'))
                  .value);
}

// Whether two trees hold the same JSON types throughout (== takes 1 and 1u as equal).
bool sameTypes(const Json& a, const Json& b) {
  if (a.type() != b.type() || a.size() != b.size()) return false;
  if (a.is_object()) {
    for (auto ia = a.begin(), ib = b.begin(); ia != a.end(); ++ia, ++ib) {
      if (ia.key() != ib.key() || !sameTypes(*ia, *ib)) return false;
    }
  } else if (a.is_array()) {
    for (size_t i = 0; i < a.size(); ++i) {
      if (!sameTypes(a[i], b[i])) return false;
    }
  }
  return true;
}

// The feed's parser must build exactly the tree nlohmann's own parser builds, number types
// included (the validator tells integers from floats), and refuse what is not strict JSON.
TEST(ParseTest, BuildsTheTreeNlohmannBuildsAndRefusesNonJson) {
  for (const char* text :
       {R"({"a": [1, -1, 0, -0, 4294967296, -4294967296, 18446744073709551615, 1.5, 1e3]})",
        R"({"big": 18446744073709551616, "neg": -9223372036854775808, "tiny": 5e-324})",
        R"(["caf\u00e9 \ud83d\ude00", "\u0000x", "\"\\\/\b\f\n\r\t", true, false, null])",
        R"({"": {}, "~/": [[]], "k": {"k": {"k": "v"}}})", "  7  ", R"("s")",
        R"({"café": "ü €"})"}) {
    const auto r = PimSnmpd::parseJson(text);
    ASSERT_TRUE(r.value) << text << ": " << describe(r.errors);
    const Json expected = Json::parse(text);
    EXPECT_EQ(*r.value, expected) << text;
    EXPECT_TRUE(sameTypes(*r.value, expected)) << text;
  }
  EXPECT_EQ(PimSnmpd::parseJson(R"(["\u0000x"])").value->at(0).get<std::string>().size(), 2u);
  // A raw NUL byte is refused wherever it stands, also after a complete value.
  for (const std::string& text : {std::string("{}\0", 3), std::string("[\"a\0\"]", 6)}) {
    const auto r = PimSnmpd::parseJson(text);
    EXPECT_FALSE(r.value);
    ASSERT_EQ(r.errors.size(), 1u);
    EXPECT_NE(r.errors[0].reason.find("NUL byte"), std::string::npos);
  }
  for (const char* text : {"{} {}", "{\"a\": 1,}", "[1, 2", "// c\n{}", "{\"a\": NaN}", "'a'",
                           "\"\xff\"", "\"\xc3\"", "01", "[.5]", "{\"a\" 1}"}) {
    const auto r = PimSnmpd::parseJson(text);
    EXPECT_FALSE(r.value) << text;
    ASSERT_EQ(r.errors.size(), 1u) << text;
    EXPECT_EQ(r.errors[0].reason.rfind("invalid JSON: parse error at line 1, column ", 0), 0u)
        << r.errors[0].reason;
  }
}

// Objects order members with their own comparison; documents are dumped and walked in that
// order, which must stay std::string's.
TEST(JsonTest, MemberNamesOrderLikeStrings) {
  const std::vector<std::string> names = {"",
                                          "a",
                                          "ab",
                                          std::string("a\0", 2),
                                          "abcdefg",
                                          "abcdefgh",
                                          "abcdefgh\x01",
                                          "abcdefghi",
                                          "abcdefgi",
                                          "abcdefghijklmnop",
                                          "abcdefghijklmnoq",
                                          "abcdefghijklmnopq",
                                          "\x7f",
                                          "\x80",
                                          "\xff",
                                          "10.1.0.1,239.1.0.1",
                                          "10.1.0.10,239.1.0.1",
                                          "10.1.0.2,239.1.0.1",
                                          "Ethernet1",
                                          "Ethernet10",
                                          "Ethernet2"};
  const PimSnmpd::MemberNameLess less;
  for (const std::string& a : names) {
    for (const std::string& b : names) EXPECT_EQ(less(a, b), a < b) << a << " vs " << b;
  }
  Json obj = Json::object();
  for (const std::string& n : names) obj[n] = 1;
  std::vector<std::string> sorted = names;
  std::sort(sorted.begin(), sorted.end());
  std::vector<std::string> walked;
  for (const auto& [name, v] : obj.items()) walked.push_back(name);
  EXPECT_EQ(walked, sorted);
}

TEST(ValidateTest, BaseAndEmptyDocumentsAreValid) {
  EXPECT_TRUE(PimSnmpd::validate(baseJson()).empty()) << describe(PimSnmpd::validate(baseJson()));
  EXPECT_TRUE(PimSnmpd::validate(Json::object()).empty());
  EXPECT_TRUE(PimSnmpd::validate(Json::parse(R"({"$schema": "x", "vrfs": {"v": {}}})")).empty());
  EXPECT_FALSE(PimSnmpd::validate(Json::array()).empty());
}

// One broken member each: the change (a merge patch on the base document), where the error
// must be reported, and a piece of its reason.
struct Case {
  const char* what;
  Json patch;
  std::string path;
  std::string reason;
};

std::vector<Case> cases() {
  const std::string longVrf(33, 'v');
  // Ten two-byte characters: 20 bytes, served; seventeen: 34 bytes, refused.
  std::string longUtf8;
  for (int i = 0; i < 17; ++i) longUtf8 += "\xc3\xa9";
  return {
      // Types.
      {"wrong type", patchAt("/interfaces/Ethernet1/ifIndex", "1"), "/interfaces/Ethernet1/ifIndex",
       "expected an integer, found a string"},
      {"object expected", patchAt(red4("/pimConfig"), 5), red4("/pimConfig"), "expected an object"},
      {"array expected", patchAt(red4("/routes/*,239.1.1.1/flags"), "spt"),
       red4("/routes/*,239.1.1.1/flags"), "expected an array"},
      {"bool expected", patchAt(red4("/mfibConfig/routing"), "yes"), red4("/mfibConfig/routing"),
       "expected true or false"},
      {"time expected", patchAt(red4("/routes/*,239.1.1.1/created"), "now"),
       red4("/routes/*,239.1.1.1/created"), "expected a time"},
      {"fraction for an integer", patchAt("/interfaces/Ethernet1/ifIndex", 1.5),
       "/interfaces/Ethernet1/ifIndex", "expected an integer"},
      // Unknown and missing members.
      {"typo", patchAt("/interfaces/Ethernet1/ifindex", 7), "/interfaces/Ethernet1/ifindex",
       "unknown member"},
      {"unknown top member", patchAt("/vrf", Json::object()), "/vrf", "unknown member"},
      {"unknown family", patchAt("/vrfs/red/ip4", Json::object()), "/vrfs/red/ip4",
       "unknown member"},
      {"member of an empty object", patchAt(red4("/bsrStatus/candidateRps/10.0.1.1/x"), 1),
       red4("/bsrStatus/candidateRps/10.0.1.1/x"), "unknown member"},
      {"required member", patchAt(red4("/pimStatus/interfaces/Ethernet2/address"), nullptr),
       red4("/pimStatus/interfaces/Ethernet2/address"), "required member is missing"},
      // Ranges.
      {"ifIndex 0", patchAt("/interfaces/Ethernet1/ifIndex", 0), "/interfaces/Ethernet1/ifIndex",
       "out of range 1..2147483647"},
      {"ifIndex 2^31", patchAt("/interfaces/Ethernet1/ifIndex", 2147483648u),
       "/interfaces/Ethernet1/ifIndex", "out of range"},
      {"interval", patchAt(red4("/pimConfig/joinPruneInterval"), 65536),
       red4("/pimConfig/joinPruneInterval"), "out of range 0..65535"},
      {"negative", patchAt(red4("/bsrConfig/bootstrapTimeout"), -1),
       red4("/bsrConfig/bootstrapTimeout"), "out of range"},
      {"priority", patchAt(red4("/bsrStatus/candidateBsrs/224.0.0.0~14/priority"), 256),
       red4("/bsrStatus/candidateBsrs/224.0.0.0~14/priority"), "out of range 0..255"},
      {"negative time", patchAt(red4("/routes/*,239.1.1.1/created"), -5),
       red4("/routes/*,239.1.1.1/created"), "negative"},
      {"OIF index", patchAt(red4("/fib/oifIndexes/Ethernet1"), 512),
       red4("/fib/oifIndexes/Ethernet1"), "out of range 0..511"},
      {"enumeration", patchAt(red4("/pimStatus/mode"), "sparse-mode"), red4("/pimStatus/mode"),
       "'sparse-mode' is not one of 'sparse', 'dense' or 'none'"},
      // Addresses and prefixes.
      {"bad address", patchAt(red4("/pimStatus/interfaces/Ethernet1/dr"), "10.0.1.256"),
       red4("/pimStatus/interfaces/Ethernet1/dr"), "is not an IP address"},
      {"bad prefix", patchAt(red4("/pimStatus/interfaces/Ethernet1/address"), "10.0.1.1/33"),
       red4("/pimStatus/interfaces/Ethernet1/address"), "not an address with a prefix length"},
      {"no prefix length", patchAt(red4("/pimStatus/interfaces/Ethernet1/address"), "10.0.1.1"),
       red4("/pimStatus/interfaces/Ethernet1/address"), "not an address with a prefix length"},
      {"multicast neighbor",
       patchAt(red4("/pimStatus/interfaces/Ethernet1/neighbors/224.0.0.13"), Json::object()),
       red4("/pimStatus/interfaces/Ethernet1/neighbors/224.0.0.13"), "is a multicast address"},
      {"host bits", patchAt(red4("/bsrStatus/electedBsrs/239.1.0.1~116"), {{"address", "1.1.1.1"}}),
       red4("/bsrStatus/electedBsrs/239.1.0.1~116"), "has host bits set; write '239.1.0.0/16'"},
      {"unicast group range",
       patchAt(red4("/candidateRpStatus/groups/10.0.0.0~18"), Json::object()),
       red4("/candidateRpStatus/groups/10.0.0.0~18"), "not a multicast group range"},
      {"non-canonical key", patchAt("/vrfs/blue/ipv6/routes/*,FF0E::1", Json::object()),
       "/vrfs/blue/ipv6/routes/*,FF0E::1", "write '*,ff0e::1'"},
      // Route keys.
      {"separator", patchAt(red4("/routes/10.0.2.5;239.1.1.1"), Json::object()),
       red4("/routes/10.0.2.5;239.1.1.1"), "write 'S,G' or '*,G'"},
      {"spaces", patchAt(red4("/routes/10.0.2.5, 239.1.1.1"), Json::object()),
       red4("/routes/10.0.2.5, 239.1.1.1"), "is not an IP address"},
      {"unicast group", patchAt(red4("/routes/10.0.2.5,10.9.9.9"), Json::object()),
       red4("/routes/10.0.2.5,10.9.9.9"), "group '10.9.9.9' is not a multicast address"},
      {"unspecified source", patchAt(red4("/routes/0.0.0.0,239.1.1.1"), Json::object()),
       red4("/routes/0.0.0.0,239.1.1.1"), "write '*' for any source"},
      {"wildcard on (S,G)", patchAt(red4("/routes/10.0.2.5,239.1.1.1/flags"), {"spt", "wildcard"}),
       red4("/routes/10.0.2.5,239.1.1.1/flags/1"), "marks (*,G) routes"},
      {"flag twice", patchAt(red4("/routes/10.0.2.5,239.1.1.1/flags"), {"spt", "spt"}),
       red4("/routes/10.0.2.5,239.1.1.1/flags/1"), "listed twice"},
      // Family mismatch.
      {"IPv6 route in ipv4", patchAt(red4("/routes/*,ff0e::5"), Json::object()),
       red4("/routes/*,ff0e::5"), "is an IPv6 address, but this is the ipv4 section"},
      {"IPv4 prefix in ipv6",
       patchAt("/vrfs/blue/ipv6/pimStatus/interfaces/Ethernet3/address", "10.0.0.1/24"),
       "/vrfs/blue/ipv6/pimStatus/interfaces/Ethernet3/address",
       "is an IPv4 prefix, but this is the ipv6 section"},
      {"IPv6 neighbor in ipv4",
       patchAt(red4("/pimStatus/interfaces/Ethernet2/neighbors/fe80::1"), Json::object()),
       red4("/pimStatus/interfaces/Ethernet2/neighbors/fe80::1"), "is an IPv6 address"},
      // Names.
      {"VRF name of 33 bytes", patchAt("/vrfs/" + longVrf, Json::object()), "/vrfs/" + longVrf,
       "VRF name is 33 bytes long; at most 32 are allowed (the VRF is served in the SNMP "
       "context of its name, and SNMP context names hold at most 32 bytes)"},
      {"VRF name of 17 characters in 34 bytes", patchAt("/vrfs/" + longUtf8, Json::object()),
       "/vrfs/" + longUtf8, "VRF name is 34 bytes long"},
      {"C1 control in a VRF name",
       patchAt("/vrfs/red\xc2\x85"
               "x",
               Json::object()),
       "/vrfs/red\xc2\x85"
       "x",
       "VRF names contain no control characters (byte 3)"},
      {"DEL in a VRF name", patchAt("/vrfs/a\x7f", Json::object()), "/vrfs/a\x7f",
       "no control characters"},
      {"C1 control in an interface name",
       patchAt("/interfaces/Eth\xc2\x9f"
               "1",
               {{"ifIndex", 9}}),
       "/interfaces/Eth\xc2\x9f"
       "1",
       "interface names contain no spaces or control characters"},
      {"prefix length with a leading zero",
       patchAt(red4("/pimStatus/interfaces/Ethernet2/address"), "10.0.2.1/024"),
       red4("/pimStatus/interfaces/Ethernet2/address"),
       "'10.0.2.1/024' is not in canonical form; write '10.0.2.1/24'"},
      {"interface name", patchAt("/interfaces/Ethernet 9", {{"ifIndex", 9}}),
       "/interfaces/Ethernet 9", "no spaces"},
      // References.
      {"unknown upstream interface",
       patchAt(red4("/routes/*,239.1.1.1/upstream/interface"), "Ethernet9"),
       red4("/routes/*,239.1.1.1/upstream/interface"),
       "unknown interface 'Ethernet9': it is not defined in /interfaces"},
      {"unknown route interface",
       patchAt(red4("/routes/*,239.1.1.1/interfaces/Ethernet9"), Json::object()),
       red4("/routes/*,239.1.1.1/interfaces/Ethernet9"), "unknown interface 'Ethernet9'"},
      {"unknown PIM interface",
       patchAt(red4("/pimStatus/interfaces/Vlan5"), {{"address", "10.5.5.1/24"}}),
       red4("/pimStatus/interfaces/Vlan5"), "unknown interface 'Vlan5'"},
      {"unknown candidate-BSR interface",
       patchAt(red4("/bsrStatus/candidateBsrs/224.0.0.0~14/interface"), "Vlan5"),
       red4("/bsrStatus/candidateBsrs/224.0.0.0~14/interface"), "unknown interface 'Vlan5'"},
      {"unknown OIF interface", patchAt(red4("/fib/oifIndexes/Vlan5"), 7),
       red4("/fib/oifIndexes/Vlan5"), "unknown interface 'Vlan5'"},
      {"OIF without index",
       patchAt(red4("/fib/routes/*,239.1.1.1/oifs"), {"Ethernet2", "Ethernet3"}),
       red4("/fib/routes/*,239.1.1.1/oifs/1"),
       "interface 'Ethernet3' has no OIF index in /vrfs/red/ipv4/fib/oifIndexes"},
      // Uniqueness.
      {"duplicate OIF index", patchAt(red4("/fib/oifIndexes/Ethernet2"), 0),
       red4("/fib/oifIndexes/Ethernet2"), "OIF index 0 is also the index of 'Ethernet1'"},
      {"duplicate ifIndex", patchAt("/interfaces/Ethernet2/ifIndex", 1),
       "/interfaces/Ethernet2/ifIndex", "ifIndex 1 is also the ifIndex of 'Ethernet1'"},
  };
}

// Each class of error is reported at its path with its reason, by a full check and by the check
// a patch gets (only the touched subtrees) alike; a refused patch leaves the document as it was.
TEST(ValidateTest, EachClassOfErrorNamesItsPathAndReason) {
  auto base = Document::fromJson(baseJson());
  ASSERT_TRUE(base.ok());
  Document doc = *base.document;
  for (const Case& c : cases()) {
    SCOPED_TRACE(c.what);
    Json before = Json::object();
    for (const ValidationErrors& errors :
         {PimSnmpd::validate(PimSnmpd::mergePatch(baseJson(), c.patch)),
          doc.mergePatch(c.patch, &before)}) {
      ASSERT_EQ(errors.size(), 1u) << describe(errors);
      EXPECT_EQ(errors[0].path, c.path);
      EXPECT_NE(errors[0].reason.find(c.reason), std::string::npos) << errors[0].reason;
    }
    EXPECT_EQ(doc.json(), baseJson());
    EXPECT_EQ(before, Json::object()) << "untouched on failure";
    EXPECT_EQ(doc.refCounts(), base.document->refCounts());
  }
}

TEST(ValidateTest, NullIsNotAValue) {
  Json doc = baseJson();
  doc["interfaces"]["Ethernet1"]["operStatus"] = nullptr;
  doc["vrfs"]["blue"]["ipv6"]["bsrStatus"] = nullptr;
  const ValidationErrors errors = PimSnmpd::validate(doc);
  ASSERT_EQ(errors.size(), 2u) << describe(errors);
  EXPECT_EQ(errors[0].path, "/interfaces/Ethernet1/operStatus");
  EXPECT_EQ(errors[1].path, "/vrfs/blue/ipv6/bsrStatus");
  EXPECT_NE(errors[1].reason.find("null deletes a member"), std::string::npos);
}

TEST(ValidateTest, LimitsAndEdgeValues) {
  // Exactly 32 bytes is a valid VRF name, and so is any printable text (Latin-1 letters just
  // above the C1 block included); ranges are inclusive; integral floats are integers.
  Json doc = baseJson();
  doc["vrfs"][std::string(32, 'v')] = Json::object();
  doc["vrfs"]["a/b %41 red%2Fx \xc2\xa0\xc3\xa9\xe2\x82\xac ~'\"#\\"] = Json::object();
  doc["interfaces"]["Ethernet1"]["ifIndex"] = 2147483647;
  doc["interfaces"]["Ethernet2"]["ifIndex"] = 2.0;
  doc["vrfs"]["red"]["ipv4"]["fib"]["oifIndexes"]["Ethernet2"] = 511;
  doc["vrfs"]["red"]["ipv4"]["fib"]["routes"]["*,239.1.1.1"]["bytes"] = UINT64_MAX;
  doc["vrfs"]["red"]["ipv4"]["routes"]["*,239.1.1.1"]["created"] = 1.7e9 + 0.25;
  EXPECT_TRUE(PimSnmpd::validate(doc).empty()) << describe(PimSnmpd::validate(doc));

  // Many mistakes: the first 100 are reported and one line counts the rest.
  Json many = Json::object();
  for (int i = 0; i < 150; ++i) many["interfaces"]["e" + std::to_string(i)] = {{"ifIndex", 0}};
  const ValidationErrors errors = PimSnmpd::validate(many);
  ASSERT_EQ(errors.size(), PimSnmpd::kMaxReportedErrors + 1);
  EXPECT_EQ(errors.back().reason, "50 more errors not shown");
}

TEST(ValidateTest, ErrorsAreCollectedNotJustTheFirst) {
  Json doc = baseJson();
  doc["interfaces"]["Ethernet1"]["ifIndex"] = "x";
  doc["vrfs"]["red"]["ipv4"]["routes"]["*,239.1.1.1"]["flags"] = {"fast"};
  doc["vrfs"]["blue"]["ipv6"]["routes"]["*,ff0e::1"]["upstream"] = {{"rpfNeighbor", "fe80::1"}};
  const ValidationErrors errors = PimSnmpd::validate(doc);
  EXPECT_EQ(errors.size(), 3u) << describe(errors);
  EXPECT_TRUE(find(errors, "/interfaces/Ethernet1/ifIndex"));
  EXPECT_TRUE(find(errors, red4("/routes/*,239.1.1.1/flags/0")));
  EXPECT_TRUE(find(errors, "/vrfs/blue/ipv6/routes/*,ff0e::1/upstream/interface"));
}

TEST(ValidateTest, PointerTokensAreEscaped) {
  EXPECT_EQ(PimSnmpd::pointerToken("224.0.0.0/4"), "224.0.0.0~14");
  EXPECT_EQ(PimSnmpd::pointerToken("a~b"), "a~0b");
  EXPECT_EQ(PimSnmpd::ValidationError({"", "x"}).toString(), "(document): x");
}

TEST(RouteKeyTest, CanonicalTextRoundTrips) {
  for (const char* text :
       {"*,239.1.1.1", "10.1.1.1,239.1.1.1", "*,ff0e::1", "2001:db8::5,ff3e::8"}) {
    const bool v6 = std::string(text).find(':') != std::string::npos;
    const auto key =
        PimSnmpd::parseRouteKey(text, v6 ? Lanet::AddressFamily::ipv6 : Lanet::AddressFamily::ipv4);
    ASSERT_TRUE(key) << text;
    EXPECT_EQ(PimSnmpd::routeKeyText(*key), text);
  }
  EXPECT_FALSE(PimSnmpd::parseRouteKey("*,239.1.1.1", Lanet::AddressFamily::ipv6));
  EXPECT_FALSE(PimSnmpd::parseRouteKey("*,239.1.1.1,", Lanet::AddressFamily::ipv4));
  EXPECT_FALSE(PimSnmpd::parseRouteKey("*,none", Lanet::AddressFamily::ipv4));
}

}  // namespace
