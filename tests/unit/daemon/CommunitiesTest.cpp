#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "daemon/Communities.h"

namespace PimSnmpd {
namespace {

TEST(Communities, MapTheDefaultVrfToThePrefixAndOthersToPrefixDashVrf) {
  EXPECT_EQ(communityFor("public", ""), "public");
  EXPECT_EQ(communityFor("public", "red"), "public-red");
  EXPECT_EQ(communityLine("public", "127.0.0.1", ""), "com2sec pimsnmpVrf 127.0.0.1 public");
  EXPECT_EQ(communityLine("ro", "10.0.0.0/8", "red"),
            "com2sec -Cn red pimsnmpVrf 10.0.0.0/8 ro-red");
  // One group and one access entry for all of them, whatever the VRF count.
  const auto shared = sharedCommunityLines();
  ASSERT_EQ(shared.size(), 4u);
  EXPECT_EQ(shared[3], "access pimsnmpVrf \"\" any noauth prefix pimsnmpVrfAll none none");
}

TEST(Communities, RefuseContextsThatSnmpdConfCannotSpell) {
  for (const char* context : {"a b", "tab\there", "quote\"d", "it's", "hash#", "back\\slash"}) {
    EXPECT_FALSE(communityLine("public", "127.0.0.1", context)) << context;
  }
  EXPECT_TRUE(communityLine("public", "127.0.0.1", "vrf-1.blue_2"));
}

TEST(Communities, SourcesNetSnmpWouldTake) {
  for (const char* ok : {"127.0.0.1", "10.0.0.0/8", "10.0.0.0/255.0.0.0", "0.0.0.0/0", "default"}) {
    EXPECT_TRUE(netsnmpCommunityBackend(ok)) << ok;
  }
  for (const char* bad : {"", "localhost", "10.0.0.1/8", "10.0.0.0/33", "10.0.0.0/", "1.2.3.4/x",
                          "::1", "10.0.0.0/255.0.0.1x"}) {
    EXPECT_FALSE(netsnmpCommunityBackend(bad)) << bad;
  }
}

// net-snmp's list as a fake: which entries it holds, and every configuration line.
struct FakeNetSnmp {
  std::vector<std::string> lines;
  std::map<int, std::pair<std::string, std::string>> entries;  // id -> community, context
  int next = 1;
  bool acceptAdd = true;

  CommunityBackend backend() {
    return {[this](const std::string& line) {
              lines.push_back(line);
              return true;
            },
            [this](const std::string& community, const std::string& context) {
              if (!acceptAdd) return CommunityBackend::Handle{};
              entries[next] = {community, context};
              return reinterpret_cast<CommunityBackend::Handle>(static_cast<intptr_t>(next++));
            },
            [this](CommunityBackend::Handle h) {
              EXPECT_EQ(entries.erase(static_cast<int>(reinterpret_cast<intptr_t>(h))), 1u);
            }};
  }
};

TEST(Communities, SharedLinesOnceAndAgainAfterReRead) {
  auto contexts = Ent::make<Snmp::MibContexts>();
  FakeNetSnmp net;
  CommunityMapper mapper(contexts, "public", net.backend());
  contexts->moduleIs("ipMcastMIB", "");
  mapper.syncAll();
  mapper.syncAll();
  EXPECT_EQ(net.lines, sharedCommunityLines());
  EXPECT_EQ(mapper.mapped(), (std::set<std::string>{""}));

  // A re-read freed net-snmp's entries: the one in use is forgotten, not freed twice.
  ASSERT_NE(mapper.activate("public"), nullptr);
  net.entries.clear();
  mapper.remapAll();
  EXPECT_EQ(net.lines.size(), 2 * sharedCommunityLines().size());
  EXPECT_EQ(mapper.active(), "");
  ASSERT_NE(mapper.activate("public"), nullptr);
  EXPECT_EQ(net.entries.size(), 1u);
}

TEST(Communities, OnlyTheServedCommunitySitsInNetSnmpsList) {
  auto contexts = Ent::make<Snmp::MibContexts>();
  FakeNetSnmp net;
  CommunityMapper mapper(contexts, "public", net.backend());
  mapper.syncAll();
  for (const char* vrf : {"red", "blue", "green"}) contexts->moduleIs("PimMIB", vrf);
  EXPECT_TRUE(net.entries.empty());

  const std::string* context = mapper.activate("public-blue");
  ASSERT_NE(context, nullptr);
  EXPECT_EQ(*context, "blue");
  ASSERT_EQ(net.entries.size(), 1u);
  EXPECT_EQ(net.entries.begin()->second,
            (std::pair<std::string, std::string>{"public-blue", "blue"}));
  // The same community again keeps its entry; another one takes its place.
  const int firstId = net.entries.begin()->first;
  mapper.activate("public-blue");
  EXPECT_EQ(net.entries.begin()->first, firstId);
  ASSERT_NE(mapper.activate("public-red"), nullptr);
  ASSERT_EQ(net.entries.size(), 1u);
  EXPECT_EQ(net.entries.begin()->second.first, "public-red");

  // Not ours (a hand-written line, a typo, the default VRF that is not served): left to net-snmp.
  EXPECT_EQ(mapper.activate("private"), nullptr);
  EXPECT_EQ(mapper.activate("public"), nullptr);
  EXPECT_EQ(mapper.activate("public-"), nullptr);
  EXPECT_EQ(mapper.active(), "public-red");

  // An entry net-snmp refused is tried again at the next PDU.
  net.acceptAdd = false;
  EXPECT_EQ(mapper.activate("public-green"), nullptr);
  EXPECT_TRUE(net.entries.empty());
  net.acceptAdd = true;
  ASSERT_NE(mapper.activate("public-green"), nullptr);
  EXPECT_EQ(net.entries.size(), 1u);
}

TEST(Communities, AVrfThatGoesTakesItsCommunityAlong) {
  auto contexts = Ent::make<Snmp::MibContexts>();
  FakeNetSnmp net;
  CommunityMapper mapper(contexts, "public", net.backend());
  contexts->moduleIs("PimMIB", "");
  mapper.syncAll();
  const auto before = mapper.mapped();

  // Fresh names come and go; one is being served when it goes.
  for (int i = 0; i < 200; ++i) {
    const std::string vrf = "churn" + std::to_string(i);
    contexts->moduleIs("PimMIB", vrf);
    contexts->moduleIs("ipMcastMIB", vrf);
    ASSERT_NE(mapper.activate("public-" + vrf), nullptr);
    // Still served by one module: still mapped.
    contexts->moduleDel("PimMIB", vrf);
    ASSERT_NE(mapper.activate("public-" + vrf), nullptr);
    contexts->moduleDel("ipMcastMIB", vrf);
    EXPECT_EQ(mapper.activate("public-" + vrf), nullptr);
  }
  EXPECT_EQ(mapper.mapped(), before);
  EXPECT_TRUE(net.entries.empty());
  EXPECT_EQ(mapper.active(), "");

  // A name snmpd.conf cannot spell gets none (as with a stock master).
  contexts->moduleIs("PimMIB", "two words");
  EXPECT_EQ(mapper.activate("public-two words"), nullptr);
  EXPECT_FALSE(mapper.mapped().contains("two words"));

  // A name that comes back gets its community back.
  contexts->moduleIs("PimMIB", "churn7");
  EXPECT_NE(mapper.activate("public-churn7"), nullptr);
  EXPECT_EQ(net.lines.size(), sharedCommunityLines().size());
}

TEST(Communities, TheEntryInUseIsFreedWithTheMapper) {
  auto contexts = Ent::make<Snmp::MibContexts>();
  FakeNetSnmp net;
  {
    CommunityMapper mapper(contexts, "p", net.backend());
    contexts->moduleIs("PimMIB", "red");
    mapper.syncAll();
    ASSERT_NE(mapper.activate("p-red"), nullptr);
    EXPECT_EQ(net.entries.size(), 1u);
  }
  EXPECT_TRUE(net.entries.empty());
}

}  // namespace
}  // namespace PimSnmpd
