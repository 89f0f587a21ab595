// Route keys as the document writes them: "S,G" or "*,G", read by the validator and the applier.

#include <arpa/inet.h>

#include <optional>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "daemon/state/Syntax.h"

namespace {

using Lanet::AddressFamily;
using Lanet::IpGenAddr;
using Routing::Pim::RouteKey;

// The rule, from inet_pton: one comma; the group a multicast dotted quad; the source '*' or a
// dotted quad that is neither multicast nor 0.0.0.0.
std::optional<RouteKey> expectedV4(const std::string& text) {
  const size_t comma = text.find(',');
  if (comma == std::string::npos || text.find(',', comma + 1) != std::string::npos) {
    return std::nullopt;
  }
  const std::string source = text.substr(0, comma);
  in_addr g{};
  if (inet_pton(AF_INET, text.substr(comma + 1).c_str(), &g) != 1) return std::nullopt;
  const uint32_t group = ntohl(g.s_addr);
  if ((group >> 28) != 0xe) return std::nullopt;
  if (source == "*") return RouteKey::starG(IpGenAddr::v4(group));
  in_addr s{};
  if (inet_pton(AF_INET, source.c_str(), &s) != 1) return std::nullopt;
  const uint32_t src = ntohl(s.s_addr);
  if ((src >> 28) == 0xe || src == 0) return std::nullopt;
  return RouteKey{IpGenAddr::v4(src), IpGenAddr::v4(group)};
}

std::string randomQuad(std::mt19937& rng) {
  // The edges of the ranges the rule names, whole; otherwise mostly plausible octets, with the
  // first one often in the multicast range.
  constexpr const char* kEdges[] = {"0.0.0.0",         "224.0.0.0", "239.255.255.255",
                                    "223.255.255.255", "240.0.0.0", "255.255.255.255"};
  if (rng() % 8 == 0) return kEdges[rng() % std::size(kEdges)];
  std::string text;
  for (int i = 0; i < 4; ++i) {
    if (i > 0) text += '.';
    const unsigned pick = rng() % 8;
    if (i == 0 && pick < 3) {
      text += std::to_string(224 + rng() % 16);
    } else if (pick == 3) {
      text += "0" + std::to_string(rng() % 10);  // a leading zero
    } else if (pick == 4) {
      text += std::to_string(250 + rng() % 10);  // around the bound
    } else {
      text += std::to_string(rng() % 256);
    }
  }
  return text;
}

// Well-formed IPv4 keys are read on a short path and everything else on the general one; both
// must give the rule's verdict and key, and a refusal must say why.
TEST(RouteKeyTextTest, Ipv4KeysAgreeWithInetPton) {
  std::mt19937 rng(11);
  constexpr std::string_view kNoise = "0123456789.,*: x";
  int accepted = 0;
  int starG = 0;
  for (int i = 0; i < 50000; ++i) {
    std::string text =
        (rng() % 6 == 0 ? std::string("*") : randomQuad(rng)) + "," + randomQuad(rng);
    if (const unsigned edit = rng() % 5; edit == 0) {
      text.insert(rng() % (text.size() + 1), 1, kNoise[rng() % kNoise.size()]);
    } else if (edit == 1) {
      text.erase(rng() % text.size(), 1);
    }
    const std::optional<RouteKey> want = expectedV4(text);
    std::string why;
    const std::optional<RouteKey> got =
        PimSnmpd::Syntax::readRouteKey(text, AddressFamily::ipv4, why);
    ASSERT_EQ(got.has_value(), want.has_value()) << "'" << text << "': " << why;
    if (got) {
      ASSERT_EQ(*got, *want) << text;
      ++accepted;
      starG += text.front() == '*';
    } else {
      ASSERT_FALSE(why.empty()) << text;
    }
  }
  // The generator reaches both kinds of key, and refusals.
  EXPECT_GT(accepted, 1000);
  EXPECT_GT(starG, 100);
  EXPECT_LT(accepted, 45000);
}

TEST(RouteKeyTextTest, RefusalsNameTheFaultyPart) {
  std::string why;
  EXPECT_FALSE(PimSnmpd::Syntax::readRouteKey("10.0.0.1,10.0.0.2", AddressFamily::ipv4, why));
  EXPECT_EQ(why, "group '10.0.0.2' is not a multicast address");
  EXPECT_FALSE(PimSnmpd::Syntax::readRouteKey("239.1.1.1,239.1.1.1", AddressFamily::ipv4, why));
  EXPECT_EQ(why, "source '239.1.1.1' is not a unicast address (write '*' for any source)");
  EXPECT_FALSE(PimSnmpd::Syntax::readRouteKey("*,ff0e::1", AddressFamily::ipv4, why));
  EXPECT_EQ(why, "'ff0e::1' is an IPv6 address, but this is the ipv4 section");
  EXPECT_FALSE(PimSnmpd::Syntax::readRouteKey("10.0.0.1,239.1.1.01", AddressFamily::ipv4, why));
  EXPECT_EQ(why, "'239.1.1.01' is not an IP address");
}

}  // namespace
