#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/library/snmpUDPDomain.h>

#include <cstring>
#include <string>
#include <vector>

#include "daemon/Com2SecList.h"

// net-snmp's rocommunity parser (agent/mibgroup/mibII/vacm_conf.c) and what frees the com2sec
// list when a read begins, declared by no installed header.
extern "C" {
void vacm_parse_rocommunity(const char* token, char* line);
void netsnmp_udp_com2SecList_free(void);
}

namespace PimSnmpd {
namespace {

// What net-snmp's list maps `community` from `from` to: "secName@context", "-" for nothing.
std::string lookUp(const std::string& community, const char* from) {
  netsnmp_indexed_addr_pair pair{};
  pair.remote_addr.sin.sin_family = AF_INET;
  inet_pton(AF_INET, from, &pair.remote_addr.sin.sin_addr);
  const char* secName = nullptr;
  const char* context = nullptr;
  netsnmp_udp_getSecName(&pair, sizeof pair, community.data(), community.size(), &secName,
                         &context);
  return secName ? std::string(secName) + "@" + context : "-";
}

// One configuration read as net-snmp does it: its hooks around the lines it parses.
void readConfiguration(const std::vector<std::string>& com2sec, const std::string& rocommunity) {
  snmp_call_callbacks(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_PRE_READ_CONFIG, nullptr);
  for (std::string line : com2sec) netsnmp_udp_parse_security("com2sec", line.data());
  std::string ro = rocommunity;
  if (!ro.empty()) vacm_parse_rocommunity("rocommunity", ro.data());
  snmp_call_callbacks(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_POST_READ_CONFIG, nullptr);
}

TEST(Com2SecList, NetSnmpsEntriesReadBackAsWritten) {
  EXPECT_TRUE(Com2SecTakeover::layoutMatches());
}

TEST(Com2SecList, EachReadsEntriesLeaveTheListAndComeBackOneAtATime) {
  auto contexts = Ent::make<Snmp::MibContexts>();
  CommunityMapper mapper(contexts, "", {}, netsnmpCommunityBackend());
  // An entry from before the takeover's read stays where it is.
  com2SecEntry* early = nullptr;
  ASSERT_EQ(netsnmp_udp_com2SecEntry_create(&early, "early", "earlySec", "", nullptr, nullptr, 0),
            0);
  {
    Com2SecTakeover takeover(mapper);
    readConfiguration({"-Cn red sec 127.0.0.1 hand-red", "sec2 !127.0.0.2 both",
                       "-Cn blue sec 127.0.0.0/8 both", "-Cn bad sec 10.0.0.1/8 mismatch"},
                      "ro 127.0.0.1 .1 green");
    // The line with a bad source was refused by net-snmp; the rocommunity line made one.
    EXPECT_EQ(mapper.configuredCount(), 4u);
    EXPECT_EQ(lookUp("hand-red", "127.0.0.1"), "-");
    EXPECT_EQ(lookUp("early", "10.1.1.1"), "earlySec@");

    // community, source, context ("-": refused)
    const std::vector<std::tuple<std::string, const char*, const char*>> cases = {
        {"hand-red", "127.0.0.1", "red"}, {"hand-red", "127.0.0.9", "-"},
        {"both", "127.0.0.2", "-"},       {"both", "127.0.0.3", "blue"},
        {"ro", "127.0.0.1", "green"},     {"ro", "127.0.0.2", "-"},
        {"mismatch", "10.0.0.1", "-"},    {"hand-red", "127.0.0.1", "red"}};
    for (const auto& [community, from, context] : cases) {
      const Com2SecEntry* e = mapper.activate(community, inet_addr(from));
      EXPECT_EQ(e ? e->context : "-", context) << community << " from " << from;
      EXPECT_EQ(lookUp(community, from), e ? e->secName + "@" + e->context : "-") << community;
      // Alone (but for the early one): no other community of the read is found.
      EXPECT_EQ(lookUp(community == "both" ? "ro" : "both", "127.0.0.3"), "-") << community;
      EXPECT_EQ(lookUp("early", "10.1.1.1"), "earlySec@");
    }

    // The next read replaces them all; the entry in use went with net-snmp's list.
    netsnmp_udp_com2SecList_remove(early);
    netsnmp_udp_com2SecList_free();
    readConfiguration({"-Cn blue sec default fresh"}, "");
    EXPECT_EQ(mapper.configuredCount(), 1u);
    EXPECT_EQ(mapper.active(), nullptr);
    EXPECT_EQ(mapper.activate("hand-red", inet_addr("127.0.0.1")), nullptr);
    ASSERT_NE(mapper.activate("fresh", inet_addr("192.0.2.1")), nullptr);
    EXPECT_EQ(lookUp("fresh", "192.0.2.1"), "sec@blue");
  }
  // Without the takeover a read leaves net-snmp's list alone.
  mapper.configuredAre({});
  readConfiguration({"-Cn red sec default stays"}, "");
  EXPECT_EQ(lookUp("stays", "192.0.2.1"), "sec@red");
  netsnmp_udp_com2SecList_free();
  netsnmp_udp_com2Sec_free(early);
}

}  // namespace
}  // namespace PimSnmpd
