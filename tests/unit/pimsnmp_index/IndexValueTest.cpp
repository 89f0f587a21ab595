#include <cstring>
#include <sstream>
#include <string>
#include <unordered_set>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "PimSnmp/PimSnmp/Index.h"
#include "PimSnmp/PimSnmp/NextHopState.h"
#include "PimSnmp/RegistrationHelper/RegistrationState.h"

namespace PimSnmpIndexTest {
namespace {

using namespace Routing::Pim::Snmp;
using Routing::Pim::RouteKey;

Lanet::IpGenAddr addr(std::string_view text) {
  return *Lanet::IpGenAddr::parse(text);
}
Snmp::InetAddress inet(std::string_view text) {
  return Snmp::InetAddress::parse(text);
}

std::array<uint8_t, 4> bytesOf(uint32_t v) {
  std::array<uint8_t, 4> b;
  std::memcpy(b.data(), &v, 4);
  return b;
}

TEST(IndexFromRouteKey, MasksAndLengths) {
  const RouteKey starG = RouteKey::starG(addr("239.1.1.1"));
  const RouteKey sg{addr("10.0.0.1"), addr("239.1.1.1")};
  const RouteKey sg6{addr("2001:db8::1"), addr("ff0e::1")};
  const RouteKey starG6 = RouteKey::starG(addr("ff0e::1"));

  EXPECT_EQ(pimIpMrouteEntryIndexFromRouteKey(starG),
            PimIpMrouteEntryIndex(starG.group, starG.source, 0));
  EXPECT_EQ(pimIpMrouteEntryIndexFromRouteKey(sg).sMask, 0xFFFFFFFFu);

  EXPECT_EQ(IpMcastRouteEntryIndex::fromRouteKey(starG),
            IpMcastRouteEntryIndex(inet("ipv4:239.1.1.1"), 32, inet("ipv4:0.0.0.0"), 0));
  EXPECT_EQ(IpMcastRouteEntryIndex::fromRouteKey(sg).sourceLength, 32u);
  const auto v6 = IpMcastRouteEntryIndex::fromRouteKey(sg6);
  EXPECT_EQ(v6.groupLength, 128u);
  EXPECT_EQ(v6.sourceLength, 128u);
  EXPECT_EQ(IpMcastRouteEntryIndex::fromRouteKey(starG6).sourceLength, 0u);

  // The next-hop address is the group, in both next-hop index kinds.
  EXPECT_EQ(IpMcastRouteNextHopEntryIndex::fromRouteKeyAndIfIndex(sg, 9),
            IpMcastRouteNextHopEntryIndex(inet("ipv4:239.1.1.1"), 32, inet("ipv4:10.0.0.1"), 32, 9,
                                          inet("ipv4:239.1.1.1")));
  EXPECT_EQ(pimIpMrouteNextHopEntryIndexFromRouteKey(sg, 9),
            PimIpMrouteNextHopEntryIndex(sg.group, sg.source, 0xFFFFFFFF, 9, sg.group));
}

TEST(IndexHelpers, PrefixLengthAndMask) {
  EXPECT_EQ(prefixLength(addr("0.0.0.0")), 0u);
  EXPECT_EQ(prefixLength(addr("10.0.0.1")), 32u);
  EXPECT_EQ(prefixLength(addr("::")), 0u);
  EXPECT_EQ(prefixLength(addr("ff02::1")), 128u);
  EXPECT_EQ(prefixLength(Lanet::IpGenAddr()), 0u);

  using B = std::array<uint8_t, 4>;
  EXPECT_EQ(bytesOf(maskFromLength(24)), (B{0xFF, 0xFF, 0xFF, 0x00}));
  EXPECT_EQ(bytesOf(maskFromLength(1)), (B{0x80, 0, 0, 0}));
  EXPECT_EQ(bytesOf(maskFromLength(31)), (B{0xFF, 0xFF, 0xFF, 0xFE}));
  EXPECT_EQ(maskFromLength(32), 0xFFFFFFFFu);
  EXPECT_EQ(maskFromLength(0), 0u);
  EXPECT_EQ(maskFromLength(33), 0u);
}

TEST(IndexBool, FalseOnlyForTheDefault) {
  EXPECT_FALSE(IpMcastRouteEntryIndex());
  IpMcastRouteEntryIndex route;
  route.sourceLength = 1;
  EXPECT_TRUE(route);

  EXPECT_FALSE(IpMcastRouteNextHopEntryIndex());
  IpMcastRouteNextHopEntryIndex nextHop;
  nextHop.ifIndex = -1;
  EXPECT_TRUE(nextHop);

  EXPECT_FALSE(NextHopEntryIndexWithIntfId());
  EXPECT_TRUE(NextHopEntryIndexWithIntfId(IpMcastRouteNextHopEntryIndex(), Lanet::IntfId("Et1")));
  EXPECT_TRUE(NextHopEntryIndexWithIntfId(nextHop, Lanet::IntfId()));
}

TEST(IndexHash, FieldOrderAndSeedMatter) {
  const auto g = inet("ipv4:239.1.1.1");
  const IpMcastRouteNextHopEntryIndex a(g, 32, g, 0, 1, g), swapped(g, 0, g, 32, 1, g);
  EXPECT_NE(a.hash(), swapped.hash());
  EXPECT_NE(a.hash(1), a.hash(2));
  const NextHopEntryIndexWithIntfId w(a, Lanet::IntfId("Et1"));
  EXPECT_NE(w.hash(1), w.hash(2));
  EXPECT_NE(w.hash(), NextHopEntryIndexWithIntfId(a, Lanet::IntfId("Et2")).hash());

  std::unordered_set<NextHopEntryIndexWithIntfId> set{w, w, NextHopEntryIndexWithIntfId()};
  EXPECT_EQ(set.size(), 2u);
}

TEST(IndexText, ExactForms) {
  const auto g = addr("239.1.1.1");
  const auto s = addr("10.0.0.1");
  const auto ga = inet("ipv4:239.1.1.1");
  const IpMcastRouteNextHopEntryIndex nextHop(ga, 32, Snmp::InetAddress(), 0, -1, ga);
  const std::string nextHopText =
      "Value('Routing::Pim::Snmp::IpMcastRouteNextHopEntryIndex', ** {'groupAddr': "
      "ipv4:239.1.1.1, 'groupLength': 32, 'sourceAddr': unknown:, 'sourceLength': 0, "
      "'ifIndex': -1, 'addr': ipv4:239.1.1.1})";

  const std::pair<std::string, std::string> cases[] = {
      {valueToStrep(PimIpMrouteNextHopEntryIndex(g, s, 0, -1, g)),
       "Value('Routing::Pim::Snmp::PimIpMrouteNextHopEntryIndex', ** {'group': 239.1.1.1, "
       "'source': 10.0.0.1, 'sMask': 0, 'ifIndex': -1, 'address': 239.1.1.1})"},
      {valueToStrep(nextHop), nextHopText},
      {valueToStrep(NextHopEntryIndexWithIntfId(nextHop, Lanet::IntfId("Ethernet1"))),
       "Value('Routing::Pim::Snmp::NextHopEntryIndexWithIntfId', ** {'mibIndex': " + nextHopText +
           ", 'intfId': Ethernet1})"},
      {valueToStrep(PimRPSetEntryIndex()),
       "Value('Routing::Pim::Snmp::PimRPSetEntryIndex', ** {'pimComponentId': 0, 'group': none, "
       "'gMask': 0, 'rpAddr': none})"},
      {fmt::format("{}", IpMcastInterfaceEntryIndex(Snmp::InetVersion::ipv4, 7)),
       "Value('Routing::Pim::Snmp::IpMcastInterfaceEntryIndex', ** {'ipVersion': ipv4, "
       "'ifIndex': 7})"},
  };
  for (const auto& [got, want] : cases) EXPECT_EQ(got, want);

  std::ostringstream os;
  os << nextHop;
  EXPECT_EQ(os.str(), nextHopText);
}

TEST(IndexText, FieldValuesParseExactly) {
  // An interface name holding the separators still parses: it is the last field.
  const NextHopEntryIndexWithIntfId odd(IpMcastRouteNextHopEntryIndex(),
                                        Lanet::IntfId("a, 'intfId': b})"));
  EXPECT_EQ(NextHopEntryIndexWithIntfId(valueToStrep(odd)), odd);

  const std::string good = valueToStrep(PimIpMrouteNextHopEntryIndex(
      addr("239.1.1.1"), addr("10.0.0.1"), 0xFFFFFFFF, -1, addr("239.1.1.1")));
  auto replaced = [&](std::string_view from, std::string_view to) {
    std::string t = good;
    t.replace(t.find(from), from.size(), to);
    return t;
  };
  const std::string bad[] = {
      good + "})",
      replaced("10.0.0.1", "10.0.0.256"),
      replaced("4294967295", "4294967296"),
      replaced("4294967295", "-1"),
      replaced("4294967295", "+5"),
      replaced("4294967295", "0x10"),
      replaced("-1", "-2147483649"),
      replaced("-1", "1.5"),
  };
  for (const std::string& text : bad) {
    EXPECT_THROW(PimIpMrouteNextHopEntryIndex{text}, std::invalid_argument) << text;
  }

  // Field parsers of the other types.
  const std::string mcast = valueToStrep(IpMcastRouteEntryIndex());
  EXPECT_THROW(IpMcastRouteEntryIndex{mcast.substr(0, mcast.find("unknown:")) + "ipv4:zz" +
                                      mcast.substr(mcast.find("unknown:") + 8)},
               std::invalid_argument);
  EXPECT_THROW(IpMcastInterfaceEntryIndex{"Value('Routing::Pim::Snmp::IpMcastInterfaceEntryIndex'"
                                          ", ** {'ipVersion': 1, 'ifIndex': 7})"},
               std::invalid_argument);
  EXPECT_THROW(NextHopEntryIndexWithIntfId{"Value('Routing::Pim::Snmp::NextHopEntryIndexWithIntfId'"
                                           ", ** {'mibIndex': x, 'intfId': Et1})"},
               std::invalid_argument);
}

TEST(NextHopStateText, EnumeratorNames) {
  EXPECT_EQ(stringValue(nhStatePruned), "nhStatePruned");
  std::ostringstream os;
  os << nhStateForwarding;
  EXPECT_EQ(os.str(), "nhStateForwarding");
  EXPECT_EQ(fmt::format("{}", static_cast<NextHopState>(9)), "invalid");
}

TEST(RegistrationStateValue, FlagsTextAndRange) {
  RegistrationState state;
  EXPECT_EQ(valueToStrep(state),
            "Value('Routing::Pim::Snmp::RegistrationState', ** {'v4Registered': False, "
            "'v6Registered': False})");
  state.v6RegisteredIs(true);
  EXPECT_EQ(state.value(), 2);
  state.v4RegisteredIs(true);
  state.v6RegisteredIs(false);
  EXPECT_EQ(state, RegistrationState(1));
  EXPECT_EQ(fmt::format("{}", RegistrationState(3)),
            "Value('Routing::Pim::Snmp::RegistrationState', ** {'v4Registered': True, "
            "'v6Registered': True})");
  EXPECT_THROW(RegistrationState(4), std::out_of_range);
  EXPECT_THROW(RegistrationState(255), std::out_of_range);
}

}  // namespace
}  // namespace PimSnmpIndexTest
