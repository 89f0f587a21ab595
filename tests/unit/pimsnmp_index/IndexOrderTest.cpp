// operator< of every index type is its table's GETNEXT order, so it must agree with the order of
// the OIDs that net-snmp compares. Checked on all pairs of generated values, together with the
// round trips through the OID and the text form.

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

template <typename Index, typename Generate>
void checkOrderMatchesOid(Generate generate) {
  Rng rng(20240611);
  std::vector<Index> values;
  for (int i = 0; i < 160; ++i) values.push_back(generate(rng));

  std::vector<Snmp::Oid> oids;
  for (const Index& v : values) {
    oids.push_back(encode(v));
    Index fromOid;
    ASSERT_TRUE(Index::fromOid(oids.back(), fromOid)) << v;
    ASSERT_EQ(fromOid, v);
    ASSERT_EQ(Index(valueToStrep(v)), v);
  }

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

TEST(IndexOrder, MatchesOidOrderForEveryIndexType) {
  checkOrderMatchesOid<PimIpMrouteEntryIndex>(pimIpMroute);
  checkOrderMatchesOid<PimIpMrouteNextHopEntryIndex>(pimIpMrouteNextHop);
  checkOrderMatchesOid<IpMcastRouteEntryIndex>(ipMcastRoute);
  checkOrderMatchesOid<IpMcastRouteNextHopEntryIndex>(ipMcastRouteNextHop);
  checkOrderMatchesOid<NextHopEntryIndexWithIntfId>(withIntfId);
  checkOrderMatchesOid<PimRPSetEntryIndex>(rpSet);
  checkOrderMatchesOid<PimCandidateRPEntryIndex>(candidateRp);
  checkOrderMatchesOid<IpMcastInterfaceEntryIndex>(ipMcastInterface);
}

TEST(IndexOrder, SignedIfIndexAndUnsignedMask) {
  const auto g = Lanet::IpGenAddr::v4(0xEF010101);
  const auto s = Lanet::IpGenAddr::v4(0x0A000001);
  const PimIpMrouteNextHopEntryIndex minusOne(g, s, 0, -1, g), plusOne(g, s, 0, 1, g);
  EXPECT_LT(minusOne, plusOne);
  // The documented exception to the OID order: -1 travels as 4294967295.
  EXPECT_GT(Snmp::compareOid(encode(minusOne), encode(plusOne)), 0);

  const auto ga = Snmp::InetAddress::fromIpGenAddr(g);
  EXPECT_LT(IpMcastRouteNextHopEntryIndex(ga, 32, ga, 0, -1, ga),
            IpMcastRouteNextHopEntryIndex(ga, 32, ga, 0, 1, ga));
  EXPECT_LT(IpMcastInterfaceEntryIndex(Snmp::InetVersion::ipv4, -1),
            IpMcastInterfaceEntryIndex(Snmp::InetVersion::ipv4, 1));

  EXPECT_LT(PimIpMrouteEntryIndex(g, s, 0), PimIpMrouteEntryIndex(g, s, 0xFFFFFFFF));
  // Group before source.
  EXPECT_LT(PimIpMrouteEntryIndex(g, Lanet::IpGenAddr::v4(0xFFFFFFFF), 0),
            PimIpMrouteEntryIndex(Lanet::IpGenAddr::v4(0xEF010102), s, 0));
}

TEST(IndexOid, ExactEncodings) {
  const auto g = Lanet::IpGenAddr::v4(0xEF010101);
  const auto s = Lanet::IpGenAddr::v4(0x0A000001);
  const auto ga = Snmp::InetAddress::fromIpGenAddr(g);
  const auto sa = Snmp::InetAddress::fromIpGenAddr(s);
  EXPECT_EQ(Snmp::oidToString(encode(PimIpMrouteEntryIndex(g, s, 0xFFFFFFFF))),
            "239.1.1.1.10.0.0.1.255.255.255.255");
  EXPECT_EQ(Snmp::oidToString(encode(PimIpMrouteNextHopEntryIndex(g, s, 0, 7, g))),
            "239.1.1.1.10.0.0.1.0.0.0.0.7.239.1.1.1");
  EXPECT_EQ(Snmp::oidToString(encode(IpMcastRouteEntryIndex(ga, 32, sa, 32))),
            "1.4.239.1.1.1.32.1.4.10.0.0.1.32");
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
  EXPECT_THROW(PimIpMrouteEntryIndex().toOid(out), std::invalid_argument);
  EXPECT_THROW(PimRPSetEntryIndex().toOid(out), std::invalid_argument);
}

TEST(IndexOid, FromOidRejectsMalformedInput) {
  const Snmp::Oid route = {239, 1, 1, 1, 10, 0, 0, 1, 255, 255, 255, 255};
  PimIpMrouteEntryIndex r;
  ASSERT_TRUE(PimIpMrouteEntryIndex::fromOid(route, r));
  const PimIpMrouteEntryIndex before = r;
  EXPECT_FALSE(PimIpMrouteEntryIndex::fromOid(std::span(route).first(11), r));  // short
  Snmp::Oid longer = route;
  longer.push_back(0);
  EXPECT_FALSE(PimIpMrouteEntryIndex::fromOid(longer, r));  // trailing
  Snmp::Oid bigOctet = route;
  bigOctet[9] = 256;
  EXPECT_FALSE(PimIpMrouteEntryIndex::fromOid(bigOctet, r));
  EXPECT_EQ(r, before);  // untouched on failure

  PimIpMrouteNextHopEntryIndex nh;
  EXPECT_FALSE(PimIpMrouteNextHopEntryIndex::fromOid(
      Snmp::Oid{239, 1, 1, 1, 10, 0, 0, 1, 0, 0, 0, 0, 0x100000000ULL, 239, 1, 1, 1}, nh));

  IpMcastRouteEntryIndex mr;
  EXPECT_FALSE(IpMcastRouteEntryIndex::fromOid(Snmp::Oid{5, 0, 32, 1, 0, 0}, mr));  // bad type
  EXPECT_FALSE(IpMcastRouteEntryIndex::fromOid(Snmp::Oid{1, 4, 239, 1, 1, 32, 0, 0, 0}, mr));

  NextHopEntryIndexWithIntfId w;
  const Snmp::Oid withName = {0, 0, 0, 0, 0, 0, 0, 0, 0, 69, 256};
  EXPECT_FALSE(NextHopEntryIndexWithIntfId::fromOid(withName, w));
  ASSERT_TRUE(NextHopEntryIndexWithIntfId::fromOid(std::span(withName).first(9), w));
  EXPECT_FALSE(w);  // all-default, no name

  IpMcastInterfaceEntryIndex mi;
  EXPECT_FALSE(IpMcastInterfaceEntryIndex::fromOid(Snmp::Oid{3, 1}, mi));  // not an InetVersion
  EXPECT_FALSE(IpMcastInterfaceEntryIndex::fromOid(Snmp::Oid{1}, mi));
  ASSERT_TRUE(IpMcastInterfaceEntryIndex::fromOid(Snmp::Oid{1, 4294967295ULL}, mi));
  EXPECT_EQ(mi.ifIndex, -1);
}

}  // namespace
}  // namespace PimSnmpIndexTest
