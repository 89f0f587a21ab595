#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "daemon/Communities.h"

namespace PimSnmpd {
namespace {

in_addr_t ip(const char* text) {
  in_addr a{};
  EXPECT_EQ(inet_pton(AF_INET, text, &a), 1) << text;
  return a.s_addr;
}

TEST(Communities, LinesThatSnmpdConfCanSpell) {
  EXPECT_EQ(communityFor("public", ""), "public");
  EXPECT_EQ(communityFor("public", "red"), "public-red");
  EXPECT_EQ(communityLine("public", "127.0.0.1", ""), "com2sec pimsnmpVrf 127.0.0.1 public");
  EXPECT_EQ(communityLine("ro", "10.0.0.0/8", "red"),
            "com2sec -Cn red pimsnmpVrf 10.0.0.0/8 ro-red");
  EXPECT_TRUE(communityLine("public", "127.0.0.1", "vrf-1.blue_2"));
  for (const char* context : {"a b", "tab\there", "quote\"d", "it's", "hash#", "back\\slash"}) {
    EXPECT_FALSE(communityLine("public", "127.0.0.1", context)) << context;
  }
  // One group and one access entry for all of them, whatever the VRF count.
  const auto shared = sharedCommunityLines();
  ASSERT_EQ(shared.size(), 4u);
  EXPECT_EQ(shared[3], "access pimsnmpVrf \"\" any noauth prefix pimsnmpVrfAll none none");
}

TEST(Communities, SourcesAsCom2secReadsThem) {
  // "text network mask", or only the text of one that is refused
  for (const char* row : {"127.0.0.1 127.0.0.1 255.255.255.255", "10.0.0.0/8 10.0.0.0 255.0.0.0",
                          "10.0.0.0/255.0.0.0 10.0.0.0 255.0.0.0", "0.0.0.0/0 0.0.0.0 0.0.0.0",
                          "default 0.0.0.0 0.0.0.0", "localhost", "10.0.0.1/8", "10.0.0.0/33",
                          "10.0.0.0/", "1.2.3.4/x", "::1", "10.0.0.0/255.0.0.1x"}) {
    std::istringstream in(row);
    std::string text, network, mask;
    in >> text >> network >> mask;
    const auto source = parseCom2SecSource(text);
    ASSERT_EQ(source.has_value(), !network.empty()) << row;
    if (source) {
      EXPECT_EQ(*source, (Com2SecSource{ip(network.c_str()), ip(mask.c_str())})) << row;
    }
  }
  EXPECT_FALSE(parseCom2SecSource(""));
}

// net-snmp's com2sec list as a fake: the entries it holds, and every configuration line.
struct FakeNetSnmp {
  std::vector<std::string> lines;
  std::map<intptr_t, Com2SecEntry> entries;
  intptr_t next = 1;  // also: one more than the entries added
  bool acceptAdd = true;

  CommunityBackend backend() {
    return {[this](const std::string& line) {
              lines.push_back(line);
              return true;
            },
            [this](const Com2SecEntry& e) {
              if (!acceptAdd) return CommunityBackend::Handle{};
              entries[next] = e;
              return reinterpret_cast<CommunityBackend::Handle>(next++);
            },
            [this](CommunityBackend::Handle h) {
              EXPECT_EQ(entries.erase(reinterpret_cast<intptr_t>(h)), 1u);
            }};
  }
  // The context of the one entry in the list; "-" when empty.
  std::string listed() const {
    EXPECT_LE(entries.size(), 1u);
    return entries.empty() ? "-" : entries.begin()->second.context;
  }
};

Com2SecEntry line(const char* context, const char* community, const char* source) {
  const bool negate = source[0] == '!';
  return {community, "sec", context, *parseCom2SecSource(source + negate), negate};
}

struct CommunitiesTest : testing::Test {
  Ent::Ptr<Snmp::MibContexts> contexts = Ent::make<Snmp::MibContexts>();
  FakeNetSnmp net;
  CommunityMapper mapper{contexts, "public", *parseCom2SecSource("127.0.0.1"), net.backend()};
  std::string served(const std::string& community, const char* from) {
    const Com2SecEntry* e =
        mapper.activate(community, from ? std::optional(ip(from)) : std::nullopt);
    EXPECT_EQ(net.listed(), e ? e->context : "-") << community;
    return e ? e->context : "-";
  }
};

TEST_F(CommunitiesTest, TheEntryNetSnmpWouldPickAloneInItsList) {
  mapper.syncAll();
  EXPECT_EQ(net.lines, sharedCommunityLines());
  for (const char* vrf : {"", "red", "blue"}) contexts->moduleIs("PimMIB", vrf);
  mapper.configuredAre({line("red", "hand-red", "127.0.0.1"), line("", "hand", "10.0.0.0/8"),
                        line("", "both", "!10.9.0.0/16"), line("blue", "both", "10.0.0.0/8"),
                        line("red", "both", "default"), line("green", "public-red", "127.0.0.1")});
  EXPECT_EQ(mapper.configuredCount(), 6u);
  // "community source context", "-" for no source (not IPv4) and no context. The negated
  // line refuses 10.9/16 before the later lines; the configuration's lines come before the
  // prefix's (public-red).
  for (const char* row :
       {"hand-red 127.0.0.1 red", "hand-red 127.0.0.2 -", "hand 10.1.2.3 ", "hand 11.0.0.1 -",
        "both 10.9.1.1 -", "both 10.1.1.1 blue", "both 192.168.1.1 red",
        "public-red 127.0.0.1 green", "public-red 127.0.0.2 -", "public-blue 127.0.0.1 blue",
        "public 127.0.0.1 ", "public- 127.0.0.1 -", "nosuch 127.0.0.1 -", "hand-red - -",
        "hand-red 127.0.0.1 red"}) {
    std::istringstream in(row);
    std::string community, from, context;
    in >> community >> from >> context;
    EXPECT_EQ(served(community, from == "-" ? nullptr : from.c_str()), context) << row;
  }
  // The entry in use stays in place for the next request that picks it.
  const intptr_t added = net.next;
  EXPECT_EQ(served("hand-red", "127.0.0.1"), "red");
  EXPECT_EQ(net.next, added);
}

TEST_F(CommunitiesTest, ReReadingReplacesTheConfiguredEntries) {
  mapper.syncAll();
  mapper.configuredAre({line("red", "hand", "default")});
  EXPECT_EQ(served("hand", "10.0.0.1"), "red");
  // The entry in use is not one net-snmp holds any more, so it is forgotten, not freed.
  net.entries.clear();
  mapper.forgetNetsnmpState();
  mapper.configuredAre({line("blue", "hand", "default"), line("", "other", "default")});
  EXPECT_EQ(served("hand", "10.0.0.1"), "blue");
  // New entries drop the one in use.
  mapper.configuredAre({});
  EXPECT_TRUE(net.entries.empty());
  EXPECT_EQ(served("hand", "10.0.0.1"), "-");
  mapper.remapAll();
  EXPECT_EQ(net.lines.size(), 2 * sharedCommunityLines().size());
}

TEST_F(CommunitiesTest, AVrfThatGoesTakesItsCommunityAlong) {
  contexts->moduleIs("PimMIB", "");
  mapper.syncAll();
  const auto before = mapper.mapped();
  for (int i = 0; i < 200; ++i) {
    const std::string vrf = "churn" + std::to_string(i);
    const std::string community = "public-" + vrf;
    contexts->moduleIs("PimMIB", vrf);
    contexts->moduleIs("ipMcastMIB", vrf);
    EXPECT_EQ(served(community, "127.0.0.1"), vrf);
    contexts->moduleDel("PimMIB", vrf);  // still served by one module
    EXPECT_EQ(served(community, "127.0.0.1"), vrf);
    contexts->moduleDel("ipMcastMIB", vrf);  // gone while its entry is in use
    EXPECT_TRUE(net.entries.empty());
    EXPECT_EQ(served(community, "127.0.0.1"), "-");
  }
  EXPECT_EQ(mapper.mapped(), before);
  // A name snmpd.conf cannot spell gets none; a name that comes back gets its community back.
  contexts->moduleIs("PimMIB", "two words");
  EXPECT_EQ(served("public-two words", "127.0.0.1"), "-");
  contexts->moduleIs("PimMIB", "churn7");
  EXPECT_EQ(served("public-churn7", "127.0.0.1"), "churn7");
}

TEST(Communities, WithoutAPrefixOnlyTheConfigurationsEntries) {
  auto contexts = Ent::make<Snmp::MibContexts>();
  FakeNetSnmp net;
  {
    CommunityMapper mapper(contexts, "", {}, net.backend());
    contexts->moduleIs("PimMIB", "red");
    mapper.syncAll();
    EXPECT_TRUE(net.lines.empty());
    EXPECT_TRUE(mapper.mapped().empty());
    EXPECT_EQ(mapper.activate("-red", ip("127.0.0.1")), nullptr);
    mapper.configuredAre({line("red", "c", "default")});
    // One net-snmp refused is tried again at the next request.
    net.acceptAdd = false;
    EXPECT_EQ(mapper.activate("c", ip("127.0.0.1")), nullptr);
    net.acceptAdd = true;
    ASSERT_NE(mapper.activate("c", ip("127.0.0.1")), nullptr);
    EXPECT_EQ(net.entries.size(), 1u);
  }
  EXPECT_TRUE(net.entries.empty());
}

}  // namespace
}  // namespace PimSnmpd
