// The MIB module files come from the agent's descriptors: the descriptors must agree with what
// the agent sends (types, enumeration values), and the writer must turn them into the clauses
// net-snmp's tools decode with (INDEX, imports, textual conventions, ranges).

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include "PimSnmp/Converters/Converters.h"
#include "PimSnmp/MibTable/MibModule.h"
#include "PimSnmp/MibTable/MibTc.h"
#include "PimSnmp/PimMIB/PimMIB.h"
#include "PimSnmp/ipMRouteStdMIB/ipMRouteStdMIB.h"
#include "PimSnmp/ipMcastMIB/ipMcastMIB.h"
#include "platform/Snmp/Converters.h"
#include "platform/Snmp/InetAddress.h"
#include "tools/mibgen/MibWriter.h"

namespace MibWriterTest {
namespace {

using namespace Routing::Pim::Snmp;
using Mib::Base;

std::vector<const Mib::Module*> agentModules() {
  return {&PimMIBModule(), &ipMRouteStdMIBModule(), &ipMcastMIBModule()};
}

// The object of a served column, an own index object or a scalar of any agent module, by name.
const Mib::ObjectType* findObject(std::string_view name) {
  for (const auto* m : agentModules()) {
    for (const auto& t : m->tables) {
      for (const auto* list : {&t.indexes, &t.columns}) {
        for (const auto& c : *list) {
          if (name == c.name && c.number != 0) return c.object;
        }
      }
    }
    for (const auto& s : m->scalars) {
      if (name == s.name) return s.object;
    }
  }
  return nullptr;
}

// The label the module file gives the INTEGER that `convert` hands net-snmp for `value`.
template <class T>
std::string labelSent(std::string_view column, int (*convert)(T, uint8_t*, size_t), T value) {
  uint8_t buf[sizeof(long)];
  EXPECT_EQ(convert(value, buf, sizeof buf), static_cast<int>(sizeof(long)));
  long v = 0;
  std::memcpy(&v, buf, sizeof v);
  const Mib::ObjectType* o = findObject(column);
  EXPECT_NE(o, nullptr) << column;
  const char* label = o ? Mib::labelOf(o->syntax, v) : nullptr;
  return label ? label : "(no label for " + std::to_string(v) + ")";
}

TEST(AgentModulesTest, DescriptorsMakeModulesWithoutProblems) {
  const auto all = agentModules();
  for (const auto* m : all) {
    EXPECT_EQ(Mib::problemsOf(*m, all), std::vector<std::string>{}) << m->name;
  }
}

TEST(AgentModulesTest, EnumerationLabelsNameTheValuesTheConvertersSend) {
  // The platform's sparse mode is 1; any other mode reads dense.
  EXPECT_EQ(labelSent("pimNeighborMode", ModeToAsnInteger, uint8_t{1}), "sparse");
  EXPECT_EQ(labelSent("pimInterfaceMode", ModeToAsnInteger, uint8_t{2}), "dense");
  for (const char* column : {"ipMRouteNextHopState", "ipMcastRouteNextHopState"}) {
    EXPECT_EQ(labelSent(column, NextHopStateToAsnInteger, nhStateForwarding), "forwarding");
    EXPECT_EQ(labelSent(column, NextHopStateToAsnInteger, nhStatePruned), "pruned");
  }
  EXPECT_EQ(labelSent("ipMRouteEnable", ::Snmp::BoolToAsnInteger, true), "enabled");
  EXPECT_EQ(labelSent("ipMcastEnabled", ::Snmp::BoolToAsnInteger, false), "false");
  // The address type a v6 route's upstream neighbor is sent with.
  EXPECT_EQ(labelSent("ipMcastRouteUpstreamNeighborType", ::Snmp::S32ToAsnInteger,
                      static_cast<int32_t>(::Snmp::InetAddressType::ipv6)),
            "ipv6");
}

TEST(AgentModulesTest, InetAddressIndexesSitAfterTheirTypeUnderTheConventionNames) {
  // net-snmp prints an index InetAddress as an address only when its TC is named InetAddress and
  // the column before it is an InetAddressType.
  for (const auto& t : ipMcastMIBModule().tables) {
    for (size_t i = 0; i < t.indexes.size(); ++i) {
      const Mib::Syntax& s = t.indexes[i].object->syntax;
      if (s.tc != &Mib::inetAddress()) continue;
      ASSERT_GT(i, 0u) << t.indexes[i].name;
      const Mib::Column& before = t.indexes[i - 1];
      EXPECT_EQ(before.object->syntax.tc, &Mib::inetAddressType()) << t.indexes[i].name;
      EXPECT_EQ(before.number + 1, t.indexes[i].number) << t.indexes[i].name;
    }
  }
  EXPECT_STREQ(Mib::inetAddress().name, "InetAddress");
  EXPECT_STREQ(Mib::inetAddressType().name, "InetAddressType");
}

// A small module of one table for the writer's own cases.
struct Fixture {
  Mib::ObjectType addrType{Mib::tc(Mib::inetAddressType()), "Type."};
  Mib::ObjectType addr{Mib::tc(Mib::inetAddress()).restricted({{4, 4}, {16, 16}}), "Address."};
  Mib::ObjectType state{Mib::enumeration({{1, "off"}, {2, "on"}}), "State."};
  Mib::ObjectType octets{Mib::base(Base::kCounter64), "Octets.", "octets"};
  Mib::ObjectType count{Mib::integer32(0, 10), "Count."};
  Mib::Module module{
      "TEST-MIB",
      "testMIB",
      {1, 3, 6, 1, 4, 1, 99999},
      "202601010000Z",
      "Test module.",
      {{"testObjects", {1, 3, 6, 1, 4, 1, 99999, 1}}},
      {{"testCount", {1, 3, 6, 1, 4, 1, 99999, 1, 1}, ASN_INTEGER, &count}},
      {{"testTable",
        {1, 3, 6, 1, 4, 1, 99999, 1, 2},
        "Rows.",
        {{"testAddrType", 1, ASN_INTEGER, &addrType}, {"testAddr", 2, ASN_OCTET_STR, &addr}},
        {{"testOctets", 4, ASN_COUNTER64, &octets}, {"testState", 3, ASN_INTEGER, &state}}}},
      {}};
  std::vector<const Mib::Module*> all{&module};
};

TEST(MibWriterTest, WritesIndexTablesInColumnOrderWithTheirConventions) {
  Fixture f;
  ASSERT_EQ(Mib::problemsOf(f.module, f.all), std::vector<std::string>{});
  const std::string text = Mib::moduleText(f.module, f.all);
  EXPECT_NE(text.find("TEST-MIB DEFINITIONS ::= BEGIN"), std::string::npos);
  EXPECT_NE(text.find("    ::= { iso 3 6 1 4 1 99999 }"), std::string::npos);
  EXPECT_NE(text.find("testObjects OBJECT IDENTIFIER ::= { testMIB 1 }"), std::string::npos);
  EXPECT_NE(text.find("    INDEX       { testAddrType, testAddr }\n    ::= { testTable 1 }"),
            std::string::npos);
  EXPECT_NE(text.find("TestEntry ::= SEQUENCE {\n    testAddrType InetAddressType,\n"
                      "    testAddr InetAddress,\n    testState INTEGER,\n"
                      "    testOctets Counter64\n}"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("SYNTAX      InetAddress (SIZE (4 | 16))\n    MAX-ACCESS  not-accessible"),
            std::string::npos);
  EXPECT_NE(text.find("SYNTAX      INTEGER { off(1), on(2) }\n    MAX-ACCESS  read-only"),
            std::string::npos);
  EXPECT_NE(text.find("SYNTAX      Counter64\n    UNITS       \"octets\""), std::string::npos);
  EXPECT_NE(text.find("SYNTAX      Integer32 (0..10)"), std::string::npos);
  EXPECT_NE(text.find("::= { testEntry 3 }"), std::string::npos);
  // Only the conventions used are defined, and only the SMI types used imported.
  EXPECT_NE(text.find("InetAddressType ::= TEXTUAL-CONVENTION"), std::string::npos);
  EXPECT_EQ(text.find("TruthValue"), std::string::npos);
  EXPECT_NE(
      text.find("    Counter64, Integer32, MODULE-IDENTITY, OBJECT-TYPE\n        FROM SNMPv2-SMI"),
      std::string::npos);
  EXPECT_EQ(text.find("NOTIFICATION-TYPE"), std::string::npos);
  EXPECT_TRUE(text.ends_with("END\n"));
}

TEST(MibWriterTest, ImportsIndexObjectsAnotherModuleDefines) {
  Fixture f;
  Mib::ObjectType extra{Mib::integer32(0, 1), "Extra."};
  Mib::Module other{
      "OTHER-MIB",
      "otherMIB",
      {1, 3, 6, 1, 4, 1, 99998},
      "202601010000Z",
      "Other.",
      {},
      {},
      {{"otherTable",
        {1, 3, 6, 1, 4, 1, 99998, 2},
        "Rows beside testTable's.",
        {{"testAddrType", 0, ASN_INTEGER, &f.addrType}, {"testAddr", 0, ASN_OCTET_STR, &f.addr}},
        {{"otherExtra", 1, ASN_INTEGER, &extra}}}},
      {}};
  const std::vector<const Mib::Module*> all{&f.module, &other};
  ASSERT_EQ(Mib::problemsOf(other, all), std::vector<std::string>{});
  const std::string text = Mib::moduleText(other, all);
  EXPECT_NE(text.find("    testAddr, testAddrType\n        FROM TEST-MIB;"), std::string::npos)
      << text;
  EXPECT_NE(text.find("INDEX       { testAddrType, testAddr }"), std::string::npos);
  // The imported objects are not defined again, nor listed in the entry's SEQUENCE.
  EXPECT_EQ(text.find("testAddr OBJECT-TYPE"), std::string::npos);
  EXPECT_NE(text.find("OtherEntry ::= SEQUENCE {\n    otherExtra Integer32\n}"), std::string::npos);
  EXPECT_EQ(text.find("TEXTUAL-CONVENTION"), std::string::npos);

  // Without the defining module the import cannot be resolved.
  const auto problems = Mib::problemsOf(other, {&other});
  ASSERT_EQ(problems.size(), 2u);
  EXPECT_EQ(problems[0], "otherTable: index testAddrType is defined by no module");
}

TEST(MibWriterTest, RefusesDescriptorsThatDisagreeWithTheAgent) {
  Fixture f;
  Mib::ObjectType ip{Mib::base(Base::kIpAddress), "Sent as an INTEGER."};
  Mib::ObjectType unlabeled{Mib::base(Base::kInteger), "No labels."};
  Mib::ObjectType quoted{Mib::integer32(0, 1), "Says \"hi\"."};
  Mib::ObjectType ranged{Mib::base(Base::kCounter32, {{0, 5}}), "A counter with a range."};
  auto& t = f.module.tables[0];
  t.columns.push_back({"badType", 5, ASN_INTEGER, &ip});
  t.columns.push_back({"badEnum", 6, ASN_INTEGER, &unlabeled});
  t.columns.push_back({"badText", 7, ASN_INTEGER, &quoted});
  t.columns.push_back({"badCounter", 8, ASN_COUNTER, &ranged});
  t.columns.push_back({"badNumber", 3, ASN_INTEGER, &f.count});
  f.module.scalars.push_back({"lost", {1, 3, 6, 1, 4, 1, 99999, 7, 1}, ASN_INTEGER, &f.count});
  const std::vector<std::string> expected{
      "badType: SYNTAX IpAddress cannot carry the varbind type 0x2 it is sent as",
      "badEnum: INTEGER without enumeration labels",
      "badText: no usable DESCRIPTION",
      "badCounter: a counter cannot have a range",
      "lost: no parent node",
      "testTable: column 3 used twice",
  };
  EXPECT_EQ(Mib::problemsOf(f.module, f.all), expected);
}

TEST(MibWriterTest, SyntaxTextCoversRangesSizesAndConventions) {
  EXPECT_EQ(Mib::syntaxText(Mib::integer32(-1, 255)), "Integer32 (-1..255)");
  EXPECT_EQ(Mib::syntaxText(Mib::base(Base::kOctetString, {{4, 4}})), "OCTET STRING (SIZE (4))");
  EXPECT_EQ(Mib::syntaxText(Mib::tc(Mib::interfaceIndex())), "InterfaceIndex");
  EXPECT_EQ(Mib::syntaxText(Mib::tc(Mib::inetAddress()).restricted({{0, 0}, {4, 4}})),
            "InetAddress (SIZE (0 | 4))");
  EXPECT_EQ(Mib::syntaxText(Mib::inetAddressType().syntax),
            "INTEGER { unknown(0), ipv4(1), ipv6(2), ipv4z(3), ipv6z(4), dns(16) }");
}

}  // namespace
}  // namespace MibWriterTest
