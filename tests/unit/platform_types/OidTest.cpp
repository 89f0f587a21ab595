#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <random>
#include <span>
#include <stdexcept>
#include <vector>

#include "platform/Lanet/IpGenAddr.h"
#include "platform/Snmp/InetAddress.h"
#include "platform/Snmp/Oid.h"
#include "tests/unit/platform_types/Generators.h"

namespace {

using Lanet::IpGenAddr;
using Snmp::InetAddress;
using Snmp::InetAddressType;
using Snmp::Oid;
using Snmp::SubId;

using PlatformTypesTest::addr;
using PlatformTypesTest::expectEncodingKeepsOrder;

Oid typedInet(const InetAddress& a) {
  Oid oid;
  Snmp::appendTypedInetAddress(oid, a);
  return oid;
}

TEST(OidEncodeTest, SubIdentifiersPerIndexType) {
  Oid oid;
  Snmp::appendIpAddress(oid, addr("10.0.255.1"));
  EXPECT_EQ(oid, (Oid{10, 0, 255, 1}));

  oid.clear();
  Snmp::appendInt32(oid, 7);
  Snmp::appendInt32(oid, -1);
  Snmp::appendInt32(oid, std::numeric_limits<int32_t>::min());
  Snmp::appendUnsigned32(oid, 0xffffffffu);
  EXPECT_EQ(oid, (Oid{7, 4294967295u, 2147483648u, 4294967295u}));

  EXPECT_EQ(typedInet(InetAddress::fromIpGenAddr(addr("192.0.2.1"))), (Oid{1, 4, 192, 0, 2, 1}));
  EXPECT_EQ(typedInet(InetAddress::fromIpGenAddr(addr("ff02::1"))),
            (Oid{2, 16, 255, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}));
  EXPECT_EQ(typedInet(InetAddress()), (Oid{0, 0}));
  EXPECT_EQ(typedInet(InetAddress::parse("dns:6578")), (Oid{16, 2, 0x65, 0x78}));
}

TEST(OidEncodeTest, IpAddressIndexRefusesNonIpv4AndLeavesOidAlone) {
  Oid oid{1, 3};
  EXPECT_THROW(Snmp::appendIpAddress(oid, addr("::")), std::invalid_argument);
  EXPECT_THROW(Snmp::appendIpAddress(oid, IpGenAddr()), std::invalid_argument);
  EXPECT_EQ(oid, (Oid{1, 3}));
}

TEST(OidDecodeTest, CompositeIndexRoundTripsAndConsumesExactly) {
  const int32_t ifIndex = -5;
  const IpGenAddr ip = addr("255.255.255.255");
  const InetAddress inet = InetAddress::parse("ipv6z:fe800000000000000000000000000001000000ff");
  Oid oid;
  Snmp::appendInt32(oid, ifIndex);
  Snmp::appendIpAddress(oid, ip);
  Snmp::appendTypedInetAddress(oid, inet);
  Snmp::appendUnsigned32(oid, 42);
  oid.push_back(99);  // Trailing sub-identifier that belongs to someone else.

  std::span<const SubId> in(oid);
  int32_t gotIfIndex = 0;
  IpGenAddr gotIp;
  InetAddress gotInet;
  uint32_t gotU = 0;
  ASSERT_TRUE(Snmp::readInt32(in, gotIfIndex));
  ASSERT_TRUE(Snmp::readIpAddress(in, gotIp));
  ASSERT_TRUE(Snmp::readTypedInetAddress(in, gotInet));
  ASSERT_TRUE(Snmp::readUnsigned32(in, gotU));
  EXPECT_EQ(gotIfIndex, ifIndex);
  EXPECT_EQ(gotIp, ip);
  EXPECT_EQ(gotInet, inet);
  EXPECT_EQ(gotU, 42u);
  EXPECT_EQ(std::vector<SubId>(in.begin(), in.end()), (std::vector<SubId>{99}));
}

TEST(OidDecodeTest, Int32ExtremesRoundTrip) {
  for (int32_t v :
       {0, 1, -1, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()}) {
    Oid oid;
    Snmp::appendInt32(oid, v);
    std::span<const SubId> in(oid);
    int32_t got = 0;
    ASSERT_TRUE(Snmp::readInt32(in, got));
    EXPECT_EQ(got, v);
    EXPECT_TRUE(in.empty());
  }
}

// Each case must fail without consuming anything or touching the output.
TEST(OidDecodeTest, RejectsShortAndOutOfRangeInput) {
  const SubId big = 0x100000000ULL;
  const IpGenAddr ipSentinel = addr("1.1.1.1");
  for (const Oid& oid : std::vector<Oid>{{}, {10, 0, 0}, {10, 0, 256, 1}, {big, 0, 0, 0}}) {
    std::span<const SubId> in(oid);
    IpGenAddr out = ipSentinel;
    EXPECT_FALSE(Snmp::readIpAddress(in, out)) << Snmp::oidToString(oid);
    EXPECT_EQ(in.size(), oid.size());
    EXPECT_EQ(out, ipSentinel);
  }
  for (const Oid& oid : std::vector<Oid>{{}, {big}, {~SubId{0}}}) {
    std::span<const SubId> in(oid);
    uint32_t u = 7;
    int32_t i = 7;
    EXPECT_FALSE(Snmp::readUnsigned32(in, u)) << Snmp::oidToString(oid);
    EXPECT_FALSE(Snmp::readInt32(in, i)) << Snmp::oidToString(oid);
    EXPECT_EQ(in.size(), oid.size());
    EXPECT_EQ(u, 7u);
    EXPECT_EQ(i, 7);
  }
  for (const Oid& oid : std::vector<Oid>{{}, {5}, {15}, {17}, {big + 1}}) {
    std::span<const SubId> in(oid);
    InetAddressType t = InetAddressType::dns;
    EXPECT_FALSE(Snmp::readInetAddressType(in, t)) << Snmp::oidToString(oid);
    EXPECT_EQ(in.size(), oid.size());
    EXPECT_EQ(t, InetAddressType::dns);
  }
  const InetAddress inetSentinel = InetAddress::parse("dns:01");
  Oid tooLong{1, 21};
  tooLong.resize(2 + 21, 1);
  for (const Oid& oid : std::vector<Oid>{{},
                                         {1},
                                         {1, 4, 10, 0, 0},
                                         {1, 4, 10, 0, 256, 1},
                                         tooLong,
                                         {1, big, 0},
                                         {5, 0},
                                         {1, 0x100000004ULL, 1, 2, 3, 4}}) {
    std::span<const SubId> in(oid);
    InetAddress out = inetSentinel;
    EXPECT_FALSE(Snmp::readTypedInetAddress(in, out)) << Snmp::oidToString(oid);
    EXPECT_EQ(in.size(), oid.size());
    EXPECT_EQ(out, inetSentinel);
  }
}

TEST(OidDecodeTest, InetAddressOfMaximalLengthIsAccepted) {
  Oid oid{4, 20};
  oid.resize(22, 255);
  std::span<const SubId> in(oid);
  InetAddress out;
  ASSERT_TRUE(Snmp::readTypedInetAddress(in, out));
  EXPECT_EQ(out.type(), InetAddressType::ipv6z);
  EXPECT_EQ(out.size(), 20u);
  EXPECT_TRUE(in.empty());
}

// compareOid itself: NetSnmpCrossCheckTest.CompareOidAgreesWithSnmpOidCompare.
TEST(OidToStringTest, DottedDecimal) {
  EXPECT_EQ(Snmp::oidToString(Oid{1, 3, 6, 1}), "1.3.6.1");
  EXPECT_EQ(Snmp::oidToString(Oid{}), "");
}

TEST(OidOrderTest, IpGenAddrOrderEqualsIpAddressIndexOrder) {
  std::mt19937_64 rng(11);
  std::vector<IpGenAddr> values = {addr("0.0.0.0"), addr("255.255.255.255"), addr("0.0.0.1"),
                                   addr("128.0.0.0"), addr("127.255.255.255")};
  for (int i = 0; i < 300; ++i) values.push_back(PlatformTypesTest::randomV4(rng));
  expectEncodingKeepsOrder(values, [](const IpGenAddr& a) {
    Oid oid;
    Snmp::appendIpAddress(oid, a);
    return oid;
  });
}

TEST(OidOrderTest, IpGenAddrOrderEqualsTypedInetAddressIndexOrder) {
  std::mt19937_64 rng(12);
  std::vector<IpGenAddr> values = {IpGenAddr(),
                                   addr("0.0.0.0"),
                                   addr("255.255.255.255"),
                                   addr("::"),
                                   addr("ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"),
                                   addr("::ffff:255.255.255.255"),
                                   addr("1::")};
  for (int i = 0; i < 300; ++i) values.push_back(PlatformTypesTest::randomGenAddr(rng));
  expectEncodingKeepsOrder(
      values, [](const IpGenAddr& a) { return typedInet(InetAddress::fromIpGenAddr(a)); });
}

TEST(OidOrderTest, InetAddressOrderEqualsTypedIndexOrder) {
  std::mt19937_64 rng(13);
  std::vector<InetAddress> values = {InetAddress(),
                                     InetAddress::parse("unknown:00"),
                                     InetAddress::parse("ipv4:"),
                                     InetAddress::parse("ipv4:ffffff"),
                                     InetAddress::parse("ipv4:0.0.0.0"),
                                     InetAddress::parse("ipv4:255.255.255.255"),
                                     InetAddress::parse("ipv6:::"),
                                     InetAddress::parse("dns:"),
                                     InetAddress::parse("dns:ff"),
                                     InetAddress::parse("dns:0000")};
  for (int i = 0; i < 400; ++i) {
    InetAddress a = PlatformTypesTest::randomInetAddress(rng);
    values.push_back(a);
    // A near neighbour: same type and length, last octet changed, so prefixes are shared.
    if (a.size() > 0) {
      std::vector<uint8_t> octets(a.octets().begin(), a.octets().end());
      octets.back() ^= static_cast<uint8_t>(1 + rng() % 255);
      values.push_back(InetAddress(a.type(), octets));
    }
  }
  expectEncodingKeepsOrder(values, typedInet);
}

TEST(OidOrderTest, TypedInetAddressDecodeInvertsEncode) {
  std::mt19937_64 rng(14);
  for (int i = 0; i < 1000; ++i) {
    const InetAddress a = PlatformTypesTest::randomInetAddress(rng);
    const Oid oid = typedInet(a);
    std::span<const SubId> in(oid);
    InetAddress got;
    ASSERT_TRUE(Snmp::readTypedInetAddress(in, got)) << a;
    EXPECT_EQ(got, a);
    EXPECT_TRUE(in.empty());
  }
}

}  // namespace
