// Registration per context: what is kept for unregistering, independent contexts, what remains
// after one module is withdrawn, and start-up faults.

#include "PimSnmp/MibTable/ModuleRegistry.h"
#include "PimSnmp/PimMIB/PimMIB.h"
#include "PimSnmp/ipMRouteStdMIB/ipMRouteStdMIB.h"
#include "PimSnmp/ipMcastMIB/ipMcastMIB.h"
#include "platform/Snmp/MibContext.h"
#include "platform/Snmp/RegVoidColl.h"
#include "platform/SnmpUtil/SnmpUtil.h"
#include "platform/Trace/Capture.h"
#include "tests/unit/mib_modules/Harness.h"

namespace MibTest {
namespace {

using Strings = std::vector<std::string>;

Strings suffixed(const Strings& names, const std::string& context) {
  Strings out;
  for (const auto& n : names) out.push_back(n + "_" + context);
  return out;
}

class RegistrationTest : public MibModulesTest {};

TEST_F(RegistrationTest, EachContextKeepsItsRegistrationsAndRecords) {
  auto& records = Snmp::RegVoidCollByContext::instance();
  const Strings pimTables = {"pimInterfaceTable", "pimNeighborTable",        "pimIpMRouteTable",
                             "pimRPSetTable",     "pimIpMRouteNextHopTable", "pimCandidateRPTable",
                             "pimComponentTable"};
  Strings pim = {"pimJoinPruneInterval"};
  pim.insert(pim.end(), pimTables.begin(), pimTables.end());
  for (const Vrf* vrf : {&default_, &red_}) {
    const std::string& context = vrf->context;
    SCOPED_TRACE(context);
    EXPECT_EQ(PimMIBRegistry().registrationNames(context), suffixed(pim, context));
    EXPECT_EQ(PimMIBRegistry().columnInfoCount(context), 7u);
    EXPECT_EQ(ipMRouteStdMIBRegistry().registrationNames(context),
              suffixed({"ipMRouteEnable", "ipMRouteEntryCount", "ipMRouteTable",
                        "ipMRouteNextHopTable", "ipMRouteInterfaceTable"},
                       context));
    EXPECT_EQ(
        ipMcastMIBRegistry().registrationNames(context),
        suffixed({"ipMcastEnabled", "ipMcastRouteEntryCount", "ipMcastDeviceConfigStorageType",
                  "ipMcastInterfaceTable", "ipMcastRouteTable", "ipMcastRouteNextHopTable"},
                 context));
    // A record per table holding the context's store, none for scalars.
    EXPECT_EQ(records.count(context), 13u);
    for (const auto& table : pimTables) {
      ASSERT_NE(records.regVoid(context, table), nullptr) << table;
      EXPECT_EQ(records.regVoid(context, table)->entity.get(), vrf->store.get());
    }
    EXPECT_EQ(records.regVoid(context, "pimJoinPruneInterval"), nullptr);
    EXPECT_EQ(Snmp::mibContexts()->modules(context),
              (Snmp::MibContexts::Modules{"PimMIB", "ipMRouteStdMIB", "ipMcastMIB"}));
  }

  unregister_PimMIB("red");
  EXPECT_EQ(PimMIBRegistry().registrationCount("red"), 0u);
  EXPECT_EQ(PimMIBRegistry().columnInfoCount("red"), 0u);
  EXPECT_EQ(records.count("red"), 6u);
  EXPECT_EQ(records.regVoid("red", "pimInterfaceTable"), nullptr);
  EXPECT_FALSE(Snmp::mibContexts()->served("PimMIB", "red"));
  EXPECT_TRUE(Snmp::mibContexts()->served("ipMcastMIB", "red"));
  EXPECT_EQ(PimMIBRegistry().registrationCount(""), 8u);
  unregister_PimMIB("red");  // again: nothing left to do
  EXPECT_EQ(records.count("red"), 6u);
}

TEST_F(RegistrationTest, ContextsSeeOnlyTheirOwnRows) {
  default_.store->ipMRouteInterfaceTableIs(3);
  red_.store->ipMRouteInterfaceTableIs(4);
  red_.store->ipMRouteTableIs(nullptr, nullptr, {v4("239.1.1.1"), v4("0.0.0.0"), 0});
  const std::vector<Oids> names = {column(kIpMRouteInterfaceTable, 3, {3}),
                                   column(kIpMRouteInterfaceTable, 3, {4}), kIpMRouteEntryCount};
  const Response def = ask(SNMP_MSG_GET, names);
  const Response red = ask(SNMP_MSG_GET, names, "red");
  ASSERT_EQ(def.vars.size(), 3u);
  ASSERT_EQ(red.vars.size(), 3u);
  expectInteger(def.vars[0], ASN_INTEGER, 8);
  EXPECT_EQ(def.vars[1].type, SNMP_NOSUCHINSTANCE);
  expectInteger(def.vars[2], ASN_GAUGE, 0);
  EXPECT_EQ(red.vars[0].type, SNMP_NOSUCHINSTANCE);
  expectInteger(red.vars[1], ASN_INTEGER, 8);
  expectInteger(red.vars[2], ASN_GAUGE, 1);
}

TEST_F(RegistrationTest, AfterUnregisteringAContextHasNoPimMibObjectsWhileOthersAnswer) {
  red_.store->pimInterfaceTableIs(4, nullptr, nullptr);
  default_.store->pimInterfaceTableIs(4, nullptr, nullptr);
  const std::vector<Oids> names = {kPimJoinPruneInterval, column(kPimInterfaceTable, 7, {4}),
                                   kIpMcastDeviceConfigStorageType};
  Trace::Capture capture("PimMIB/2");
  unregister_PimMIB("red");
  EXPECT_TRUE(capture.contains("Unregistering PimMIB in context \"red\""));

  Response red = ask(SNMP_MSG_GET, names, "red");
  ASSERT_EQ(red.vars.size(), 3u);
  EXPECT_EQ(red.vars[0].type, SNMP_NOSUCHOBJECT);
  EXPECT_EQ(red.vars[1].type, SNMP_NOSUCHOBJECT);
  expectInteger(red.vars[2], ASN_INTEGER, 5);  // the other modules stay
  const Response next = ask(SNMP_MSG_GETNEXT, {{1, 3, 6, 1, 3, 61}}, "red");
  ASSERT_EQ(next.vars.size(), 1u);
  EXPECT_EQ(next.vars[0].type, SNMP_ENDOFMIBVIEW);
  const Response def = ask(SNMP_MSG_GET, names);
  ASSERT_EQ(def.vars.size(), 3u);
  expectInteger(def.vars[0], ASN_INTEGER, 60);
  expectInteger(def.vars[1], ASN_INTEGER, 1);

  init_PimMIB("red");  // and back
  red = ask(SNMP_MSG_GET, names, "red");
  ASSERT_EQ(red.vars.size(), 3u);
  expectInteger(red.vars[1], ASN_INTEGER, 1);
}

TEST_F(RegistrationTest, RegistrationIsTraced) {
  const Vrf blue = makeVrf("blue");
  Trace::Capture capture("PimMIB/2,ipMRouteStdMIB/2,ipMcastMIB/2");
  registerModules("blue");
  unregisterModules("blue");
  dropVrf(blue);
  for (const char* line : {
           "init_PimMIB initializing oid 1.3.6.1.3.61.1.1.1 in context \"blue\"",
           "pimIpMRouteNextHopTable initializing oid 1.3.6.1.3.61.1.1.7",
           "Initialized table pimComponentTable in context \"blue\"",
           "init_ipMRouteStdMIB initializing oid 1.3.6.1.2.1.83.1.1.7 in context \"blue\"",
           "init_ipMcastMIB initializing oid 1.3.6.1.2.1.168.1.11 in context \"blue\"",
           "Initialized table ipMcastRouteNextHopTable in context \"blue\"",
           "Unregistering ipMRouteStdMIB in context \"blue\"",
           "Unregistering ipMcastMIB in context \"blue\"",
       }) {
    EXPECT_TRUE(capture.contains(line)) << line;
  }
  EXPECT_EQ(Snmp::RegVoidCollByContext::instance().count("blue"), 0u);
}

using RegistrationDeathTest = RegistrationTest;

TEST_F(RegistrationDeathTest, MissingOrMistypedEntitiesAreStartUpFaults) {
  const auto config = SnmpUtil::getSnmpConfig();
  EXPECT_DEATH(initialize_table_pimInterfaceTable(config, "nostore"),
               "Can not getEntityRelative\\(snmp/pim/snmpPimMIB/nostore\\) for table "
               "pimInterfaceTable\\. Is this path correct\\?");
  EXPECT_DEATH(init_ipMRouteStdMIB("nostore"),
               "Can not getEntityRelative\\(Stadb/routing/multicast/vrf/config\\.config/nostore\\) "
               "for scalar ipMRouteEnable\\. Is this path correct\\?");
  SnmpUtil::entityRoot()->mkdirs("snmp/pim/snmpPimMIB/wrongType");
  EXPECT_DEATH(initialize_table_ipMcastRouteTable(config, "wrongType"),
               "Ent::Dir wrongType does not appear to be of type Routing::Pim::Snmp::PimMib\\.");
  EXPECT_DEATH(init_ipMcastMIB("wrongType"),
               "does not appear to be of type Routing::Pim::Snmp::PimMib for scalar "
               "ipMcastEnabled\\.");
  SnmpUtil::entityRoot()->lookupAs<Ent::Dir>("snmp/pim/snmpPimMIB")->entityDel("wrongType");
}

}  // namespace
}  // namespace MibTest
