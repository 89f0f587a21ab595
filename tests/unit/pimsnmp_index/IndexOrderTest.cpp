// The properties every index type must have, checked on generated values of each type (from
// its field list, so a new type gets them by joining IndexTypes): operator< is its table's
// GETNEXT order, so it must agree with the order of the OIDs that net-snmp compares; values
// round-trip through the OID and the text form; malformed OIDs and texts are refused.

#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include "tests/unit/pimsnmp_index/IndexGenerators.h"

namespace PimSnmpIndexTest {
namespace {

static_assert(std::is_same_v<oid, Snmp::SubId>, "Snmp::Oid data must be usable as net-snmp oids");

int sign(int v) {
  return (v > 0) - (v < 0);
}

template <typename Index>
Snmp::Oid encode(const Index& index) {
  Snmp::Oid out;
  index.toOid(out);
  return out;
}

std::string replaced(std::string text, std::string_view from, std::string_view to) {
  text.replace(text.find(from), from.size(), to);
  return text;
}

using IndexTypes =
    ::testing::Types<PimIpMrouteEntryIndex, PimIpMrouteNextHopEntryIndex, IpMcastRouteEntryIndex,
                     IpMcastRouteNextHopEntryIndex, NextHopEntryIndexWithIntfId, PimRPSetEntryIndex,
                     PimCandidateRPEntryIndex, IpMcastInterfaceEntryIndex>;

template <typename Index>
class IndexProperty : public ::testing::Test {
 protected:
  IndexProperty() {
    Rng rng(20240611);
    values.resize(160);
    for (Index& v : values) draw(rng, IndexKind::Nested{}, v);
    for (const Index& v : values) oids.push_back(encode(v));
  }

  // An IMPLIED name (the last field) takes whatever follows the others.
  static constexpr bool kImpliedTail = std::apply(
      [](auto... f) {
        return (std::same_as<typename decltype(f)::Kind, IndexKind::ImpliedName> || ...);
      },
      Index::fields);

  std::vector<Index> values;
  std::vector<Snmp::Oid> oids;
};
TYPED_TEST_SUITE(IndexProperty, IndexTypes);

TYPED_TEST(IndexProperty, RoundTripsThroughOidAndText) {
  for (size_t i = 0; i < this->values.size(); ++i) {
    const TypeParam& v = this->values[i];
    TypeParam fromOid;
    ASSERT_TRUE(TypeParam::fromOid(this->oids[i], fromOid)) << v;
    ASSERT_EQ(fromOid, v);
    ASSERT_EQ(TypeParam(valueToStrep(v)), v);
  }
  EXPECT_EQ(TypeParam(valueToStrep(TypeParam())), TypeParam());
}

TYPED_TEST(IndexProperty, OrderIsOidOrder) {
  const auto& values = this->values;
  const auto& oids = this->oids;
  int ties = 0;
  for (size_t i = 0; i < values.size(); ++i) {
    for (size_t j = 0; j < values.size(); ++j) {
      const int byOid = Snmp::compareOid(oids[i], oids[j]);
      ASSERT_EQ(sign(byOid), sign(snmp_oid_compare(oids[i].data(), oids[i].size(), oids[j].data(),
                                                   oids[j].size())));
      ASSERT_EQ(values[i] < values[j], byOid < 0) << values[i] << "\n" << values[j];
      ASSERT_EQ(values[i] == values[j], byOid == 0) << values[i] << "\n" << values[j];
      ties += i != j && oids[i].front() == oids[j].front();
    }
  }
  // The pools must make pairs share leading sub-identifiers, or later fields go untested.
  EXPECT_GT(ties, 100);
}

TYPED_TEST(IndexProperty, MalformedOidsAreRefusedAndLeaveTheOutputAlone) {
  const TypeParam sentinel = this->values.front();
  for (const Snmp::Oid& oid : this->oids) {
    // No sub-identifier of any field may exceed 32 bits.
    for (size_t i = 0; i < oid.size(); ++i) {
      Snmp::Oid bad = oid;
      bad[i] = uint64_t{1} << 32;
      TypeParam out = sentinel;
      ASSERT_FALSE(TypeParam::fromOid(bad, out)) << Snmp::oidToString(bad);
      ASSERT_EQ(out, sentinel);
    }
    // Cut short or extended, it is refused, unless an implied name absorbs the change: then
    // it is another index of its own exact encoding.
    std::vector<Snmp::Oid> changed = {oid, oid};
    changed[0].push_back(0);
    changed[1].push_back(256);
    for (size_t n = 0; n < oid.size(); ++n) changed.emplace_back(oid.begin(), oid.begin() + n);
    for (const Snmp::Oid& c : changed) {
      TypeParam out = sentinel;
      if (TypeParam::fromOid(c, out)) {
        ASSERT_TRUE(this->kImpliedTail) << Snmp::oidToString(c);
        ASSERT_EQ(encode(out), c);
      } else {
        ASSERT_EQ(out, sentinel);
      }
    }
  }
}

TYPED_TEST(IndexProperty, TextParserRefusesAnyDeviation) {
  const std::string good = valueToStrep(this->values.back());
  ASSERT_NO_THROW(TypeParam{good});
  const std::string type(TypeParam::kTypeName);
  const std::string first = fmt::format("'{}': ", std::get<0>(TypeParam::fields).name);
  const std::string second = fmt::format("'{}': ", std::get<1>(TypeParam::fields).name);
  const std::string bad[] = {
      "",
      good + " ",
      good.substr(0, good.size() - 1),
      replaced(good, "Value(", "value("),
      replaced(good, "** {", "**{"),
      replaced(good, type, type + "X"),
      replaced(good, first, second),
      replaced(good, ", '", ",  '"),
  };
  for (const std::string& text : bad) EXPECT_THROW(TypeParam{text}, std::invalid_argument) << text;
}

TEST(IndexOrder, SignedIfIndexAndUnsignedMask) {
  const auto g = Lanet::IpGenAddr::v4(0xEF010101);
  const auto s = Lanet::IpGenAddr::v4(0x0A000001);
  const PimIpMrouteNextHopEntryIndex minusOne(g, s, 0, -1, g), plusOne(g, s, 0, 1, g);
  EXPECT_LT(minusOne, plusOne);
  // The documented exception to the OID order: -1 travels as 4294967295.
  EXPECT_GT(Snmp::compareOid(encode(minusOne), encode(plusOne)), 0);

  EXPECT_LT(PimIpMrouteEntryIndex(g, s, 0), PimIpMrouteEntryIndex(g, s, 0xFFFFFFFF));
}

TEST(IndexOid, ExactEncodings) {
  const auto g = Lanet::IpGenAddr::v4(0xEF010101);
  const auto s = Lanet::IpGenAddr::v4(0x0A000001);
  const auto ga = Snmp::InetAddress::fromIpGenAddr(g);
  EXPECT_EQ(Snmp::oidToString(encode(PimIpMrouteNextHopEntryIndex(g, s, 0, 7, g))),
            "239.1.1.1.10.0.0.1.0.0.0.0.7.239.1.1.1");
  const IpMcastRouteNextHopEntryIndex nextHop(ga, 32, Snmp::InetAddress(), 0, 3, ga);
  EXPECT_EQ(Snmp::oidToString(encode(nextHop)), "1.4.239.1.1.1.32.0.0.0.3.1.4.239.1.1.1");
  EXPECT_EQ(Snmp::oidToString(encode(NextHopEntryIndexWithIntfId(nextHop, Lanet::IntfId("Et1")))),
            "1.4.239.1.1.1.32.0.0.0.3.1.4.239.1.1.1.69.116.49");
  // The mask's octets are its bytes in network order: /4 is 240.0.0.0.
  EXPECT_EQ(Snmp::oidToString(encode(
                PimRPSetEntryIndex(1, Lanet::IpGenAddr::v4(0xE0000000), maskFromLength(4), s))),
            "1.224.0.0.0.240.0.0.0.10.0.0.1");
  EXPECT_EQ(Snmp::oidToString(encode(PimCandidateRPEntryIndex(g, maskFromLength(24)))),
            "239.1.1.1.255.255.255.0");
  EXPECT_EQ(Snmp::oidToString(encode(IpMcastInterfaceEntryIndex(Snmp::InetVersion::ipv6, 5))),
            "2.5");
}

TEST(IndexOid, NonIpv4AddressCannotBeAnIpAddressIndex) {
  Snmp::Oid out;
  EXPECT_THROW(PimRPSetEntryIndex().toOid(out), std::invalid_argument);
  // The route tables' indexes hold IPv4 addresses only: another family is refused when built.
  const auto v6 = *Lanet::IpGenAddr::parse("ff0e::1");
  const auto v4 = *Lanet::IpGenAddr::parse("10.0.0.1");
  EXPECT_THROW(PimIpMrouteEntryIndex(v6, v4, 0), std::invalid_argument);
  EXPECT_THROW(PimIpMrouteNextHopEntryIndex(v4, v4, 0, 1, Lanet::IpGenAddr()),
               std::invalid_argument);
  EXPECT_THROW(pimIpMrouteEntryIndexFromRouteKey(Routing::Pim::RouteKey{v6, v6}),
               std::invalid_argument);
}

TEST(IndexOid, FromOidRefusesValuesOutsideTheFieldsTypes) {
  IpMcastRouteEntryIndex mr;
  EXPECT_FALSE(IpMcastRouteEntryIndex::fromOid(Snmp::Oid{5, 0, 32, 1, 0, 0}, mr));  // bad type

  IpMcastInterfaceEntryIndex mi;
  EXPECT_FALSE(IpMcastInterfaceEntryIndex::fromOid(Snmp::Oid{3, 1}, mi));  // not an InetVersion
  ASSERT_TRUE(IpMcastInterfaceEntryIndex::fromOid(Snmp::Oid{1, 4294967295ULL}, mi));
  EXPECT_EQ(mi.ifIndex, -1);
}

}  // namespace
}  // namespace PimSnmpIndexTest
