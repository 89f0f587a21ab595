#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <unordered_set>
#include <vector>

#include <fmt/format.h>

#include "platform/Lanet/AddressFamily.h"
#include "platform/Lanet/IpAddr.h"
#include "platform/Lanet/IpGenAddr.h"
#include "platform/Lanet/IpGenPrefix.h"
#include "tests/unit/platform_types/Generators.h"

namespace {

using Lanet::AddressFamily;
using Lanet::IpAddr;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;

using PlatformTypesTest::addr;
using PlatformTypesTest::expectText;
using PlatformTypesTest::prefix;

TEST(AddressFamilyTest, TextOfNamedAndStrayValues) {
  EXPECT_EQ(fmt::format("{}", AddressFamily::ipv4), "ipv4");
  EXPECT_EQ(fmt::format("{}", AddressFamily::ipv6), "ipv6");
  EXPECT_EQ(fmt::format("{}", AddressFamily::unknown), "unknown af");
  EXPECT_EQ(fmt::format("{}", static_cast<AddressFamily>(7)), "unknown af");
  EXPECT_EQ(fmt::format("[{:>6}]", AddressFamily::ipv4), "[  ipv4]");
}

TEST(IpAddrTest, ValueAndNetworkOrderBytesAgree) {
  const IpAddr a(0x0a000102);
  EXPECT_EQ(a.bytes(), (std::array<uint8_t, 4>{10, 0, 1, 2}));
  EXPECT_EQ(IpAddr::fromBytes(a.bytes()), a);
  EXPECT_EQ(a.toString(), "10.0.1.2");
  EXPECT_EQ(IpAddr::parse("10.0.1.2"), a);
  // Host-order integer order is the network-order octet order.
  EXPECT_LT(IpAddr(0x0100ffff), IpAddr(0x02000000));
}

TEST(IpGenAddrTest, TextRoundTripsInCanonicalForm) {
  for (std::string_view text :
       {"0.0.0.0", "255.255.255.255", "10.0.0.1", "239.1.2.3", "::", "::1", "ff02::1",
        "2001:db8::ff00:42:8329", "::ffff:1.2.3.4", "fe80::1:0:0:1",
        "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", "none"}) {
    const IpGenAddr a = addr(text);
    expectText(a, text);
    EXPECT_EQ(IpGenAddr::parse(a.toString()), a);
  }
}

TEST(IpGenAddrTest, NonCanonicalIpv6TextNormalizes) {
  EXPECT_EQ(addr("FF02:0:0:0:0:0:0:1").toString(), "ff02::1");
  EXPECT_EQ(addr("2001:0db8:0000::0001").toString(), "2001:db8::1");
  EXPECT_EQ(addr("FF02::1"), addr("ff02:0::1"));
}

TEST(IpGenAddrTest, RejectsMalformedText) {
  for (std::string_view text : {"",
                                "10.0.0.256",
                                "10.0.0.1x",
                                "10.0.0.1 ",
                                " 10.0.0.1",
                                "10.0.0",
                                "10.0.0.1.",
                                "10..0.1",
                                "010.0.0.1",
                                "1234.1.1.1",
                                "10.0.0.-1",
                                "10.0.0.0/8",
                                "ff02::1::2",
                                "ff02::1%eth0",
                                "gg::1",
                                ":::",
                                "None",
                                "none ",
                                "1:2:3:4:5:6:7:8:9",
                                "0000:0000:0000:0000:0000:0000:0000:0000:0000:0000"}) {
    EXPECT_FALSE(IpGenAddr::parse(text).has_value()) << "'" << text << "'";
  }
  EXPECT_FALSE(IpAddr::parse("ff02::1").has_value());
  EXPECT_FALSE(IpAddr::parse("none").has_value());
}

// The dotted quad is what inet_pton(AF_INET) reads: four decimal octets up to 255 without
// leading zeros. Random text near that form must get the same verdict and value from both.
TEST(IpAddrTest, AgreesWithInetPtonOnTextNearADottedQuad) {
  std::mt19937 rng(3);
  constexpr std::string_view kNoise = "0123456789./x -";
  int accepted = 0;
  for (int i = 0; i < 100000; ++i) {
    // Four groups of zero to four digits, then perhaps a character more or less.
    std::string text;
    for (int g = 0; g < 4; ++g) {
      if (g > 0) text += '.';
      for (size_t n = rng() % 5; n > 0; --n) text += static_cast<char>('0' + rng() % 10);
    }
    if (const unsigned edit = rng() % 4; edit == 0) {
      text.insert(rng() % (text.size() + 1), 1, kNoise[rng() % kNoise.size()]);
    } else if (edit == 1) {
      text.erase(rng() % text.size(), 1);
    }
    in_addr want{};
    const bool ok = inet_pton(AF_INET, text.c_str(), &want) == 1;
    const auto got = IpAddr::parse(text);
    ASSERT_EQ(got.has_value(), ok) << "'" << text << "'";
    if (ok) {
      ASSERT_EQ(got->value(), ntohl(want.s_addr)) << text;
      ++accepted;
    }
  }
  EXPECT_GT(accepted, 100);  // the generator does reach valid addresses
}

TEST(IpGenAddrTest, BytesAndFamilyPerForm) {
  const IpGenAddr v4 = IpGenAddr::v4(0x0a000001);
  EXPECT_TRUE(v4.isV4());
  EXPECT_FALSE(v4.isV6());
  EXPECT_EQ(std::vector<uint8_t>(v4.bytes().begin(), v4.bytes().end()),
            (std::vector<uint8_t>{10, 0, 0, 1}));
  EXPECT_EQ(v4.v4(), IpAddr(0x0a000001));
  EXPECT_EQ(IpGenAddr(IpAddr(0x0a000001)), v4);

  const IpGenAddr v6 = addr("ff02::1:2");
  EXPECT_TRUE(v6.isV6());
  ASSERT_EQ(v6.bytes().size(), 16u);
  EXPECT_EQ(v6.bytes()[0], 0xff);
  EXPECT_EQ(v6.bytes()[1], 0x02);
  EXPECT_EQ(v6.bytes()[13], 0x01);
  EXPECT_EQ(v6.bytes()[15], 0x02);
  EXPECT_EQ(v6.v4(), IpAddr());

  const IpGenAddr none;
  EXPECT_EQ(none.af(), AddressFamily::unknown);
  EXPECT_TRUE(none.bytes().empty());
}

TEST(IpGenAddrTest, FromBytesRequiresExactLength) {
  const std::vector<uint8_t> four{192, 0, 2, 1};
  const std::vector<uint8_t> sixteen(16, 0xab);
  EXPECT_EQ(IpGenAddr::fromBytes(AddressFamily::ipv4, four), addr("192.0.2.1"));
  EXPECT_EQ(IpGenAddr::fromBytes(AddressFamily::ipv6, sixteen),
            addr("abab:abab:abab:abab:abab:abab:abab:abab"));
  EXPECT_FALSE(IpGenAddr::fromBytes(AddressFamily::ipv4, sixteen).has_value());
  EXPECT_FALSE(IpGenAddr::fromBytes(AddressFamily::ipv6, four).has_value());
  EXPECT_FALSE(IpGenAddr::fromBytes(AddressFamily::unknown, {}).has_value());
}

TEST(IpGenAddrTest, UnspecifiedAndMulticast) {
  for (auto af : {AddressFamily::unknown, AddressFamily::ipv4, AddressFamily::ipv6}) {
    const IpGenAddr u = IpGenAddr::unspecified(af);
    EXPECT_EQ(u.af(), af);
    EXPECT_TRUE(u.isUnspecified());
  }
  EXPECT_EQ(IpGenAddr::unspecified(AddressFamily::ipv4).toString(), "0.0.0.0");
  EXPECT_EQ(IpGenAddr::unspecified(AddressFamily::ipv6).toString(), "::");
  EXPECT_EQ(IpGenAddr::unspecified(static_cast<AddressFamily>(9)), IpGenAddr());
  EXPECT_FALSE(addr("0.0.0.1").isUnspecified());
  EXPECT_FALSE(addr("::1").isUnspecified());
  EXPECT_FALSE(addr("128.0.0.0").isUnspecified());

  EXPECT_TRUE(addr("224.0.0.0").isMulticast());
  EXPECT_TRUE(addr("239.255.255.255").isMulticast());
  EXPECT_FALSE(addr("223.255.255.255").isMulticast());
  EXPECT_FALSE(addr("240.0.0.0").isMulticast());
  EXPECT_TRUE(addr("ff00::").isMulticast());
  EXPECT_FALSE(addr("fe80::1").isMulticast());
  EXPECT_FALSE(IpGenAddr().isMulticast());
}

TEST(IpGenAddrTest, FamilyTakesPartInEquality) {
  // Same leading octets, different family.
  EXPECT_NE(addr("1.2.3.4"), addr("102:304::"));
  EXPECT_NE(addr("0.0.0.0"), IpGenAddr());
  EXPECT_NE(addr("0.0.0.0"), addr("::"));
  EXPECT_NE(addr("::"), IpGenAddr());
}

TEST(IpGenAddrTest, OrderIsFamilyThenNetworkOrderOctets) {
  const std::vector<IpGenAddr> sorted = {
      IpGenAddr(),       addr("0.0.0.0"),         addr("0.0.0.1"),
      addr("0.0.1.0"),   addr("1.0.0.0"),         addr("127.255.255.255"),
      addr("128.0.0.0"), addr("255.255.255.255"), addr("::"),
      addr("::1"),       addr("::ffff:0:0"),      addr("1::"),
      addr("ff02::1"),   addr("ff02::2"),         addr("ffff::")};
  PlatformTypesTest::expectStrictOrder(sorted);
}

TEST(IpGenAddrTest, V4OrderMatchesIpAddrOrder) {
  std::mt19937_64 rng(1);
  for (int i = 0; i < 2000; ++i) {
    const IpGenAddr a = PlatformTypesTest::randomV4(rng);
    const IpGenAddr b = PlatformTypesTest::randomV4(rng);
    EXPECT_EQ(a < b, a.v4() < b.v4()) << a << " vs " << b;
    EXPECT_EQ(a.v4().value() < b.v4().value(), a < b) << a << " vs " << b;
  }
}

TEST(IpGenAddrTest, EqualValuesHashEqualAndNeighboursSpread) {
  EXPECT_EQ(std::hash<IpGenAddr>()(addr("FF02::1")), std::hash<IpGenAddr>()(addr("ff02:0::1")));
  EXPECT_EQ(addr("10.0.0.1").hash(7), IpGenAddr::v4(0x0a000001).hash(7));
  EXPECT_EQ(std::hash<IpAddr>()(IpAddr(5)), std::hash<IpAddr>()(IpAddr(5)));

  // Consecutive addresses must not collide, or a 100k-entry unordered map degrades.
  // Buckets come from the low bits, so those must vary too (4096 random values leave ~19 of
  // 1024 buckets empty).
  std::unordered_set<size_t> hashes;
  std::unordered_set<size_t> buckets;
  for (uint32_t i = 0; i < 4096; ++i) {
    const size_t h = IpGenAddr::v4(0x0a000000 + i).hash();
    hashes.insert(h);
    buckets.insert(h % 1024);
  }
  EXPECT_EQ(hashes.size(), 4096u);
  EXPECT_GE(buckets.size(), 950u);
}

TEST(IpGenPrefixTest, TextRoundTrips) {
  for (std::string_view text : {"224.0.0.0/4", "ff00::/8", "0.0.0.0/0", "::/0", "10.1.2.3/32",
                                "2001:db8::1/128", "none/0", "10.1.2.3/8"}) {
    expectText(prefix(text), text);
  }
  const IpGenPrefix p = prefix("10.1.2.3/8");
  EXPECT_EQ(p.address(), addr("10.1.2.3"));
  EXPECT_EQ(p.maskLen(), 8);
  EXPECT_EQ(IpGenPrefix().toString(), "none/0");
}

TEST(IpGenPrefixTest, RejectsMalformedText) {
  for (std::string_view text :
       {"10.0.0.0/33", "::/129", "10.0.0.0", "ff00::", "10.0.0.0/", "10.0.0.0/-1", "10.0.0.0/8x",
        "10.0.0.0/ 8", "none/1", "10.0.0.256/8", "/8", "10.0.0.0/0008", "10.0.0.0/8/8", ""}) {
    EXPECT_FALSE(IpGenPrefix::parse(text).has_value()) << "'" << text << "'";
  }
}

TEST(IpGenPrefixTest, ConstructorRejectsOverlongMask) {
  EXPECT_THROW(IpGenPrefix(addr("10.0.0.0"), 33), std::invalid_argument);
  EXPECT_THROW(IpGenPrefix(addr("::"), 129), std::invalid_argument);
  EXPECT_THROW(IpGenPrefix(IpGenAddr(), 1), std::invalid_argument);
  EXPECT_NO_THROW(IpGenPrefix(addr("10.0.0.0"), 32));
  EXPECT_NO_THROW(IpGenPrefix(addr("::"), 128));
  EXPECT_TRUE(IpGenPrefix::host(addr("10.0.0.1")).isHost());
  EXPECT_EQ(IpGenPrefix::host(addr("ff02::1")).maskLen(), 128);
  EXPECT_EQ(IpGenPrefix::host(IpGenAddr()).maskLen(), 0);
}

TEST(IpGenPrefixTest, ContainsComparesOnlyMaskedBitsOfTheSameFamily) {
  EXPECT_TRUE(prefix("224.0.0.0/4").contains(addr("239.255.255.255")));
  EXPECT_FALSE(prefix("224.0.0.0/4").contains(addr("240.0.0.0")));
  EXPECT_FALSE(prefix("224.0.0.0/4").contains(addr("ff02::1")));
  // Host bits in the prefix's own address do not matter.
  EXPECT_TRUE(prefix("10.1.2.3/8").contains(addr("10.200.0.0")));
  EXPECT_TRUE(prefix("0.0.0.0/0").contains(addr("255.255.255.255")));
  EXPECT_FALSE(prefix("0.0.0.0/0").contains(addr("::")));
  EXPECT_FALSE(prefix("::/0").contains(IpGenAddr()));
  EXPECT_TRUE(prefix("10.0.0.1/32").contains(addr("10.0.0.1")));
  EXPECT_FALSE(prefix("10.0.0.1/32").contains(addr("10.0.0.0")));
  // A mask that ends inside an octet.
  EXPECT_TRUE(prefix("ff80::/9").contains(addr("ffff::")));
  EXPECT_FALSE(prefix("ff80::/9").contains(addr("ff00::1")));
  EXPECT_TRUE(prefix("2001:db8::/127").contains(addr("2001:db8::1")));
  EXPECT_FALSE(prefix("2001:db8::/127").contains(addr("2001:db8::2")));
}

TEST(IpGenPrefixTest, MaskedClearsHostBits) {
  EXPECT_EQ(prefix("10.1.2.3/8").masked(), prefix("10.0.0.0/8"));
  EXPECT_EQ(prefix("10.17.2.3/12").masked(), prefix("10.16.0.0/12"));
  EXPECT_EQ(prefix("10.1.2.3/32").masked(), prefix("10.1.2.3/32"));
  EXPECT_EQ(prefix("255.255.255.255/0").masked(), prefix("0.0.0.0/0"));
  EXPECT_EQ(prefix("2001:db8:ffff::1/36").masked(), prefix("2001:db8:f000::/36"));
  EXPECT_EQ(IpGenPrefix().masked(), IpGenPrefix());
}

TEST(IpGenPrefixTest, OrderIsAddressThenLengthAndHashFollowsEquality) {
  PlatformTypesTest::expectStrictOrder(
      std::vector<IpGenPrefix>{prefix("10.0.0.0/8"), prefix("10.0.0.0/9"), prefix("10.0.0.0/16"),
                               prefix("10.0.0.1/8"), prefix("255.255.255.255/32"), prefix("::/0")});
  EXPECT_NE(prefix("10.0.0.0/8").hash(), prefix("10.0.0.0/9").hash());
  EXPECT_EQ(std::hash<IpGenPrefix>()(prefix("FF00::/8")),
            std::hash<IpGenPrefix>()(prefix("ff00::/8")));
}

}  // namespace
