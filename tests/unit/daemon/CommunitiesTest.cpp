#include <gtest/gtest.h>

#include <vector>

#include "daemon/Communities.h"

namespace PimSnmpd {
namespace {

TEST(Communities, MapTheDefaultVrfToThePrefixAndOthersToPrefixDashVrf) {
  EXPECT_EQ(communityFor("public", ""), "public");
  EXPECT_EQ(communityFor("public", "red"), "public-red");
  EXPECT_EQ(communityLine("public", "127.0.0.1", ""), "rocommunity public 127.0.0.1");
  EXPECT_EQ(communityLine("ro", "10.0.0.0/8", "red"), "rocommunity ro-red 10.0.0.0/8 .1 red");
}

TEST(Communities, RefuseContextsThatSnmpdConfCannotSpell) {
  for (const char* context : {"a b", "tab\there", "quote\"d", "it's", "hash#", "back\\slash"}) {
    EXPECT_FALSE(communityLine("public", "127.0.0.1", context)) << context;
  }
  EXPECT_TRUE(communityLine("public", "127.0.0.1", "vrf-1.blue_2"));
}

TEST(Communities, MapperConfiguresEachServedContextOnce) {
  auto contexts = Ent::make<Snmp::MibContexts>();
  std::vector<std::string> lines;
  bool accept = true;
  CommunityMapper mapper(contexts, "public", "127.0.0.1", [&](const std::string& line) {
    lines.push_back(line);
    return accept;
  });
  // Served before the mapper looked: only syncAll maps it.
  contexts->moduleIs("ipMcastMIB", "");
  mapper.syncAll();
  EXPECT_EQ(lines, std::vector<std::string>{"rocommunity public 127.0.0.1"});

  lines.clear();
  contexts->moduleIs("ipMcastMIB", "red");
  contexts->moduleIs("PimMIB", "red");
  EXPECT_EQ(lines, std::vector<std::string>{"rocommunity public-red 127.0.0.1 .1 red"});

  // Withdrawn and served again: the mapping is still there, nothing is added twice.
  lines.clear();
  contexts->moduleDel("PimMIB", "red");
  contexts->moduleDel("ipMcastMIB", "red");
  contexts->moduleIs("ipMcastMIB", "red");
  EXPECT_TRUE(lines.empty());
  EXPECT_EQ(mapper.mapped(), (std::set<std::string>{"", "red"}));

  // A line net-snmp refused is tried again next time.
  accept = false;
  contexts->moduleIs("ipMcastMIB", "blue");
  EXPECT_EQ(lines.size(), 1u);
  EXPECT_FALSE(mapper.mapped().contains("blue"));
  accept = true;
  contexts->moduleIs("PimMIB", "blue");
  EXPECT_EQ(lines.size(), 2u);
  EXPECT_TRUE(mapper.mapped().contains("blue"));

  // No line at all for a name snmpd.conf cannot spell.
  contexts->moduleIs("ipMcastMIB", "two words");
  EXPECT_EQ(lines.size(), 2u);
}

}  // namespace
}  // namespace PimSnmpd
