#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "platform/Lanet/IpGenAddr.h"
#include "platform/Lanet/IpGenPrefix.h"
#include "platform/Routing/Multicast/Fib/IpGenRouteKey.h"
#include "platform/Routing/Pim/RouteKey.h"
#include "platform/Routing/Pim/RouteKeyConversion.h"
#include "tests/unit/platform_types/Generators.h"

namespace {

using Lanet::AddressFamily;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Routing::Multicast::Fib::IpGenRouteKey;
using Routing::Pim::mfibKeyToPimRouteKey;
using Routing::Pim::pimRouteKeyToMfibKey;
using Routing::Pim::RouteKey;

using PlatformTypesTest::addr;
using PlatformTypesTest::prefix;

RouteKey key(std::string_view text) {
  auto k = RouteKey::parse(text);
  EXPECT_TRUE(k.has_value()) << text;
  return k.value_or(RouteKey());
}

TEST(RouteKeyTest, TextRoundTrips) {
  for (std::string_view text :
       {"(10.1.1.1, 239.1.1.1)", "(0.0.0.0, 239.1.1.1)", "(2001:db8::1, ff3e::8000:1)",
        "(::, ff02::1)", "(none, none)", "(none, 239.1.1.1)"}) {
    PlatformTypesTest::expectText(key(text), text);
  }
  EXPECT_EQ(RouteKey().toString(), "(none, none)");
  EXPECT_EQ(key("(10.1.1.1,239.1.1.1)"), key("(10.1.1.1, 239.1.1.1)"));
}

TEST(RouteKeyTest, StarSourceMeansUnspecifiedOfGroupFamily) {
  EXPECT_EQ(key("(*, 239.1.1.1)"), key("(0.0.0.0, 239.1.1.1)"));
  EXPECT_EQ(key("(*, ff02::1)"), key("(::, ff02::1)"));
  EXPECT_EQ(key("(*, none)"), RouteKey());
  EXPECT_EQ(RouteKey::starG(addr("239.1.1.1")), key("(0.0.0.0, 239.1.1.1)"));
}

TEST(RouteKeyTest, ParseRejectsMalformedText) {
  for (std::string_view text :
       {"", "()", "10.1.1.1, 239.1.1.1", "(10.1.1.1 239.1.1.1)", "(10.1.1.1, 239.1.1.256)",
        "(10.1.1.1, 239.1.1.1", "10.1.1.1, 239.1.1.1)", "(, 239.1.1.1)", "(10.1.1.1, )",
        "(10.1.1.1, 239.1.1.1, 1.1.1.1)", "(10.1.1.1, 239.1.1.1)x", "(**, 239.1.1.1)"}) {
    EXPECT_FALSE(RouteKey::parse(text).has_value()) << "'" << text << "'";
  }
}

TEST(RouteKeyTest, FamilyStarGAndValidity) {
  EXPECT_TRUE(key("(0.0.0.0, 239.1.1.1)").isStarG());
  EXPECT_TRUE(key("(::, ff02::1)").isStarG());
  EXPECT_FALSE(key("(10.1.1.1, 239.1.1.1)").isStarG());
  EXPECT_FALSE(key("(::1, ff02::1)").isStarG());
  EXPECT_TRUE(RouteKey().isStarG());

  EXPECT_EQ(key("(10.1.1.1, 239.1.1.1)").af(), AddressFamily::ipv4);
  EXPECT_EQ(key("(::, ff02::1)").af(), AddressFamily::ipv6);
  EXPECT_EQ(key("(10.1.1.1, none)").af(), AddressFamily::ipv4);
  EXPECT_EQ(RouteKey().af(), AddressFamily::unknown);

  EXPECT_TRUE(key("(10.1.1.1, 239.1.1.1)").isValid());
  EXPECT_TRUE(key("(::, ff02::1)").isValid());
  EXPECT_FALSE(key("(0.0.0.0, ff02::1)").isValid());
  EXPECT_FALSE(key("(none, 239.1.1.1)").isValid());
  EXPECT_FALSE(RouteKey().isValid());
}

TEST(RouteKeyTest, OrderIsSourceThenGroupAndHashFollowsEquality) {
  PlatformTypesTest::expectStrictOrder(std::vector<RouteKey>{
      key("(0.0.0.0, 239.255.0.0)"), key("(10.0.0.1, 224.0.0.0)"), key("(10.0.0.1, 239.0.0.1)"),
      key("(10.0.0.1, 239.0.0.2)"), key("(10.0.0.2, 239.0.0.1)"),
      key("(255.255.255.255, 239.0.0.1)"), key("(::, ff02::1)")});
  EXPECT_EQ(std::hash<RouteKey>()(key("(10.0.0.1, 239.0.0.1)")),
            std::hash<RouteKey>()(RouteKey{IpGenAddr::v4(0x0a000001), IpGenAddr::v4(0xef000001)}));
  EXPECT_NE(key("(10.0.0.1, 239.0.0.1)").hash(), key("(239.0.0.1, 10.0.0.1)").hash());
}

TEST(IpGenRouteKeyTest, FactoriesTextAndOrder) {
  EXPECT_EQ(IpGenRouteKey::starG(addr("239.1.1.1")).toString(), "(0.0.0.0/0, 239.1.1.1/32)");
  EXPECT_EQ(IpGenRouteKey::starG(addr("ff02::1")).toString(), "(::/0, ff02::1/128)");
  EXPECT_EQ(fmt::format("{}", IpGenRouteKey::sg(addr("10.1.1.1"), addr("239.1.1.1"))),
            "(10.1.1.1/32, 239.1.1.1/32)");
  EXPECT_TRUE(IpGenRouteKey::starG(addr("239.1.1.1")).isStarG());
  EXPECT_FALSE(IpGenRouteKey::sg(addr("10.1.1.1"), addr("239.1.1.1")).isStarG());

  // Group first: every source of one group sorts together, (*,G) first.
  PlatformTypesTest::expectStrictOrder(std::vector<IpGenRouteKey>{
      IpGenRouteKey::starG(addr("239.0.0.1")),
      IpGenRouteKey::sg(addr("10.0.0.9"), addr("239.0.0.1")),
      IpGenRouteKey::starG(addr("239.0.0.2")),
      IpGenRouteKey::sg(addr("10.0.0.1"), addr("239.0.0.2")),
      IpGenRouteKey::sg(addr("10.0.0.2"), addr("239.0.0.2")),
      IpGenRouteKey::starG(addr("ff02::1")),
  });
  EXPECT_EQ(std::hash<IpGenRouteKey>()(IpGenRouteKey::starG(addr("239.0.0.1"))),
            std::hash<IpGenRouteKey>()(IpGenRouteKey{prefix("0.0.0.0/0"), prefix("239.0.0.1/32")}));
}

TEST(RouteKeyConversionTest, MapsStarGAndSgToFibPrefixes) {
  EXPECT_EQ(pimRouteKeyToMfibKey(key("(0.0.0.0, 239.1.1.1)")),
            (IpGenRouteKey{prefix("0.0.0.0/0"), prefix("239.1.1.1/32")}));
  EXPECT_EQ(pimRouteKeyToMfibKey(key("(::, ff3e::1)")),
            (IpGenRouteKey{prefix("::/0"), prefix("ff3e::1/128")}));
  EXPECT_EQ(pimRouteKeyToMfibKey(key("(10.1.1.1, 239.1.1.1)")),
            (IpGenRouteKey{prefix("10.1.1.1/32"), prefix("239.1.1.1/32")}));
  EXPECT_EQ(pimRouteKeyToMfibKey(key("(2001:db8::1, ff3e::1)")),
            (IpGenRouteKey{prefix("2001:db8::1/128"), prefix("ff3e::1/128")}));
  // An af-unknown source of a known group is still (*,G) of the group's family.
  EXPECT_EQ(pimRouteKeyToMfibKey(key("(none, 239.1.1.1)")),
            (IpGenRouteKey{prefix("0.0.0.0/0"), prefix("239.1.1.1/32")}));
  EXPECT_EQ(pimRouteKeyToMfibKey(RouteKey()), IpGenRouteKey());
}

TEST(RouteKeyConversionTest, MapsFibPrefixesBack) {
  EXPECT_EQ(mfibKeyToPimRouteKey({prefix("0.0.0.0/0"), prefix("239.1.1.1/32")}),
            key("(0.0.0.0, 239.1.1.1)"));
  // A /0 source drops its host bits and, if af-unknown, takes the group's family.
  EXPECT_EQ(mfibKeyToPimRouteKey({prefix("10.0.0.1/0"), prefix("239.1.1.1/32")}),
            key("(0.0.0.0, 239.1.1.1)"));
  EXPECT_EQ(mfibKeyToPimRouteKey({IpGenPrefix(), prefix("ff02::1/128")}), key("(::, ff02::1)"));
  EXPECT_EQ(mfibKeyToPimRouteKey({prefix("10.1.1.1/32"), prefix("239.1.1.1/32")}),
            key("(10.1.1.1, 239.1.1.1)"));
  EXPECT_EQ(mfibKeyToPimRouteKey(IpGenRouteKey()), RouteKey());
}

TEST(RouteKeyConversionTest, RoundTripsEveryValidKey) {
  std::mt19937_64 rng(7);
  for (int i = 0; i < 2000; ++i) {
    const bool v6 = rng() % 2;
    const IpGenAddr group =
        v6 ? PlatformTypesTest::randomV6(rng) : PlatformTypesTest::randomV4(rng);
    const IpGenAddr source =
        rng() % 3 == 0 ? IpGenAddr::unspecified(group.af())
                       : (v6 ? PlatformTypesTest::randomV6(rng) : PlatformTypesTest::randomV4(rng));
    const RouteKey k{source, group};
    ASSERT_TRUE(k.isValid());
    const IpGenRouteKey fib = pimRouteKeyToMfibKey(k);
    EXPECT_EQ(fib.isStarG(), k.isStarG()) << k;
    EXPECT_EQ(fib.group.maskLen(), v6 ? 128 : 32);
    EXPECT_EQ(mfibKeyToPimRouteKey(fib), k) << k << " -> " << fib;
    EXPECT_EQ(RouteKey::parse(k.toString()), k);
  }
}

}  // namespace
