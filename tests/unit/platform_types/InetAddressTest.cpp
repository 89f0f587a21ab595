#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "platform/Lanet/IpGenAddr.h"
#include "platform/Snmp/InetAddress.h"
#include "tests/unit/platform_types/Generators.h"

namespace {

using Lanet::IpGenAddr;
using Snmp::InetAddress;
using Snmp::InetAddressType;

using PlatformTypesTest::addr;

InetAddress inet(InetAddressType type, std::vector<uint8_t> octets) {
  return InetAddress(type, octets);
}

TEST(InetAddressTypeTest, NamesRoundTrip) {
  for (auto type : {InetAddressType::unknown, InetAddressType::ipv4, InetAddressType::ipv6,
                    InetAddressType::ipv4z, InetAddressType::ipv6z, InetAddressType::dns}) {
    EXPECT_EQ(Snmp::inetAddressTypeFromString(Snmp::toString(type)), type);
    EXPECT_TRUE(Snmp::isValidInetAddressType(static_cast<uint32_t>(type)));
  }
  EXPECT_EQ(fmt::format("{}", InetAddressType::ipv6z), "ipv6z");
  EXPECT_EQ(Snmp::toString(static_cast<InetAddressType>(5)), "invalid");
  EXPECT_FALSE(Snmp::inetAddressTypeFromString("invalid").has_value());
  EXPECT_FALSE(Snmp::inetAddressTypeFromString("IPV4").has_value());
  for (uint32_t v : {5u, 15u, 17u, 255u, 256u + 1u}) EXPECT_FALSE(Snmp::isValidInetAddressType(v));
}

TEST(InetAddressTest, FromIpGenAddrAndBack) {
  const InetAddress v4 = InetAddress::fromIpGenAddr(addr("10.0.0.1"));
  EXPECT_EQ(v4.type(), InetAddressType::ipv4);
  EXPECT_EQ(std::vector<uint8_t>(v4.octets().begin(), v4.octets().end()),
            (std::vector<uint8_t>{10, 0, 0, 1}));
  EXPECT_EQ(v4.toIpGenAddr(), addr("10.0.0.1"));

  const InetAddress v6 = InetAddress::fromIpGenAddr(addr("ff02::1"));
  EXPECT_EQ(v6.type(), InetAddressType::ipv6);
  EXPECT_EQ(v6.size(), 16u);
  EXPECT_EQ(v6.toIpGenAddr(), addr("ff02::1"));

  const InetAddress none = InetAddress::fromIpGenAddr(IpGenAddr());
  EXPECT_TRUE(none.isDefault());
  EXPECT_EQ(none, InetAddress());
  EXPECT_EQ(none.toIpGenAddr(), IpGenAddr());

  // Forms with no IpGenAddr equivalent.
  EXPECT_FALSE(inet(InetAddressType::ipv4, {10, 0, 0}).toIpGenAddr().has_value());
  EXPECT_FALSE(inet(InetAddressType::ipv6, {10, 0, 0, 1}).toIpGenAddr().has_value());
  EXPECT_FALSE(inet(InetAddressType::unknown, {1}).toIpGenAddr().has_value());
  EXPECT_FALSE(inet(InetAddressType::ipv4z, {10, 0, 0, 1, 0, 0, 0, 1}).toIpGenAddr().has_value());
  EXPECT_FALSE(inet(InetAddressType::unknown, {1}).isDefault());
  EXPECT_FALSE(inet(InetAddressType::ipv4, {}).isDefault());
}

TEST(InetAddressTest, ConstructorRejectsOverlongAndInvalidType) {
  EXPECT_NO_THROW(inet(InetAddressType::ipv6z, std::vector<uint8_t>(20, 1)));
  EXPECT_THROW(inet(InetAddressType::ipv6z, std::vector<uint8_t>(21, 1)), std::length_error);
  EXPECT_THROW(inet(InetAddressType::dns, std::vector<uint8_t>(255, 'a')), std::length_error);
  EXPECT_THROW(inet(static_cast<InetAddressType>(5), {}), std::invalid_argument);
}

TEST(InetAddressTest, TextRoundTripsEveryForm) {
  const std::string ipv6z = "ipv6z:" + std::string(40, 'f');
  for (std::string_view text : std::vector<std::string_view>{
           "ipv4:10.0.0.1", "ipv4:0.0.0.0", "ipv6:ff02::1", "ipv6:::", "ipv6:::ffff:1.2.3.4",
           "unknown:", "unknown:00", "dns:6578", "dns:", "ipv4z:0a00000100000001",
           std::string_view(ipv6z), "ipv4:", "ipv4:0a0000", "ipv4:0a000001ff", "ipv6:00",
           "ipv6:"}) {
    PlatformTypesTest::expectText(InetAddress::parse(text), text);
  }
  EXPECT_EQ(InetAddress().toString(), "unknown:");
  EXPECT_EQ(InetAddress::parse("ipv4:1.2.3.4"), InetAddress::fromIpGenAddr(addr("1.2.3.4")));
}

TEST(InetAddressTest, ParseAcceptsHexForAddressTypesAndUpperCase) {
  EXPECT_EQ(InetAddress::parse("ipv4:0a000001").toString(), "ipv4:10.0.0.1");
  EXPECT_EQ(InetAddress::parse("ipv6:ff020000000000000000000000000001").toString(), "ipv6:ff02::1");
  EXPECT_EQ(InetAddress::parse("dns:6A6b").toString(), "dns:6a6b");
  EXPECT_EQ(InetAddress::parse("ipv6:FF02::1"), InetAddress::parse("ipv6:ff02::1"));
}

TEST(InetAddressTest, ParseRejectsMalformedText) {
  for (std::string_view text :
       {"", ":", "10.0.0.1", "ipv5:0a", "IPV4:10.0.0.1", " ipv4:10.0.0.1", "ipv4:10.0.0.256",
        "ipv4:1.2.3", "ipv4:10.0.0.1 ", "ipv4:ff02::1", "ipv6:ff02::1::", "ipv6:1.2.3.4",
        "ipv6:ff02::1%eth0", "dns:abc", "dns:zz", "dns:0x12", "unknown",
        "dns:000000000000000000000000000000000000000000"}) {
    EXPECT_THROW(InetAddress::parse(text), std::invalid_argument) << "'" << text << "'";
  }
}

TEST(InetAddressTest, OrderIsTypeThenLengthThenOctets) {
  PlatformTypesTest::expectStrictOrder(std::vector<InetAddress>{
      InetAddress(),
      inet(InetAddressType::unknown, {0}),
      inet(InetAddressType::ipv4, {}),
      inet(InetAddressType::ipv4, {255, 255, 255}),
      inet(InetAddressType::ipv4, {0, 0, 0, 0}),
      inet(InetAddressType::ipv4, {0, 0, 0, 1}),
      inet(InetAddressType::ipv4, {255, 255, 255, 255}),
      inet(InetAddressType::ipv4, {0, 0, 0, 0, 0}),
      inet(InetAddressType::ipv6, {1, 2, 3, 4}),
      InetAddress::fromIpGenAddr(addr("::")),
      InetAddress::fromIpGenAddr(addr("ff02::1")),
      inet(InetAddressType::ipv4z, {0, 0, 0, 0, 0, 0, 0, 0}),
      inet(InetAddressType::ipv6z, std::vector<uint8_t>(20, 0)),
      inet(InetAddressType::dns, {'a'}),
      inet(InetAddressType::dns, {'a', 'a'}),
      inet(InetAddressType::dns, {'b', 'a'}),
  });
}

TEST(InetAddressTest, EqualValuesHashEqual) {
  EXPECT_EQ(std::hash<InetAddress>()(InetAddress::parse("ipv6:FF02::1")),
            std::hash<InetAddress>()(InetAddress::fromIpGenAddr(addr("ff02::1"))));
  EXPECT_EQ(InetAddress::parse("dns:6578").hash(3),
            inet(InetAddressType::dns, {0x65, 0x78}).hash(3));
  // Trailing zero octets and type change the value, and so should change the hash.
  EXPECT_NE(inet(InetAddressType::dns, {1}).hash(), inet(InetAddressType::dns, {1, 0}).hash());
  EXPECT_NE(inet(InetAddressType::ipv4z, {1}).hash(), inet(InetAddressType::ipv6z, {1}).hash());
}

}  // namespace
