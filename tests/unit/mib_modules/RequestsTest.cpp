// GET, GETNEXT and SET through the agent: batches over several rows, positions between and
// past rows, missing instances, unserved columns, refused SETs, rows changing during a walk.

#include "PimSnmp/PimSnmp/Index.h"
#include "platform/Trace/Capture.h"
#include "tests/unit/mib_modules/Harness.h"

namespace MibTest {
namespace {

using namespace Routing::Pim::Snmp;
using Routing::Pim::RouteKey;

const Oids kSG = indexOid(pimIpMrouteEntryIndexFromRouteKey({v4("10.1.1.1"), v4("239.1.1.1")}));
const Oids kStarG = indexOid(pimIpMrouteEntryIndexFromRouteKey(RouteKey::starG(v4("239.2.2.2"))));

Oids nextName(const Oids& from, const std::string& context = "") {
  const Response r = ask(SNMP_MSG_GETNEXT, {from}, context);
  return r.vars.size() == 1 && r.vars[0].type != SNMP_ENDOFMIBVIEW ? r.vars[0].name : Oids{};
}

bool under(const Oids& prefix, const Oids& name) {
  return name.size() > prefix.size() && std::equal(prefix.begin(), prefix.end(), name.begin());
}

class RequestsTest : public MibModulesTest {
 protected:
  void SetUp() override {
    MibModulesTest::SetUp();
    fillDefaultStore();
  }
};

TEST_F(RequestsTest, WalksVisitEveryServedObjectInOidOrder) {
  // Scalars plus rows times served columns; unserved columns in the valid ranges are skipped.
  for (const auto& [prefix, objects] :
       {std::pair{Oids{1, 3, 6, 1, 3, 61}, 1 + 24 + 8 + 10 + 4 + 2 + 2 + 4},
        std::pair{Oids{1, 3, 6, 1, 2, 1, 83}, 1 + 12 + 2 + 6 + 1},
        std::pair{Oids{1, 3, 6, 1, 2, 1, 168}, 2 + 6 + 18 + 2 + 1}}) {
    SCOPED_TRACE(Snmp::oidToString(prefix));
    std::vector<Oids> walked;
    for (Oids n = nextName(prefix); under(prefix, n) && walked.size() < 100; n = nextName(n)) {
      EXPECT_TRUE(walked.empty() || Snmp::compareOid(walked.back(), n) < 0)
          << Snmp::oidToString(walked.back()) << " then " << Snmp::oidToString(n);
      EXPECT_FALSE(under({1, 3, 6, 1, 3, 61, 1, 1, 5}, n));  // pimRPTable is not served
      walked.push_back(n);
    }
    EXPECT_EQ(walked.size(), static_cast<size_t>(objects));
  }
  EXPECT_EQ(nextName({1, 3, 6, 1, 3, 61}), kPimJoinPruneInterval);
  // Past a module's last object: the next module (IP-MCAST-MIB sorts before PIM-MIB).
  EXPECT_EQ(nextName(kIpMcastDeviceConfigStorageType), kPimJoinPruneInterval);
}

TEST_F(RequestsTest, BatchesOverSeveralRowsAnswerEachRequestFromItsOwnRow) {
  Response r =
      ask(SNMP_MSG_GETNEXT, {column(kPimInterfaceTable, 2, {5}), column(kPimInterfaceTable, 4, {3}),
                             column(kPimInterfaceTable, 6, {9}), column(kPimIpMRouteTable, 2, kSG),
                             column(kPimIpMRouteTable, 2)});
  ASSERT_EQ(r.vars.size(), 5u);
  EXPECT_EQ(r.vars[0].name, column(kPimInterfaceTable, 2, {9}));
  EXPECT_EQ(r.vars[1].name, column(kPimInterfaceTable, 4, {5}));
  expectInteger(r.vars[1], ASN_INTEGER, 1);
  EXPECT_EQ(r.vars[2].name, column(kPimInterfaceTable, 7, {3}));  // on to the next column
  EXPECT_EQ(r.vars[3].name, column(kPimIpMRouteTable, 2, kStarG));
  EXPECT_EQ(r.vars[4].name, column(kPimIpMRouteTable, 2, kSG));

  r = ask(SNMP_MSG_GET, {column(kPimInterfaceTable, 7, {5}), column(kPimInterfaceTable, 6, {3}),
                         column(kPimInterfaceTable, 2, {4}), column(kPimIpMRouteTable, 3, kStarG),
                         column(kPimIpMRouteTable, 2, kSG)});
  ASSERT_EQ(r.vars.size(), 5u);
  expectInteger(r.vars[0], ASN_INTEGER, 1);
  expectInteger(r.vars[1], ASN_INTEGER, 30);
  EXPECT_EQ(r.vars[2].type, SNMP_NOSUCHINSTANCE);
  expectInteger(r.vars[3], ASN_INTEGER, 0);
  expectInteger(r.vars[4], ASN_INTEGER, 20);
}

TEST_F(RequestsTest, GetNextFromBetweenRowsFromPartialIndexesAndPastTheEnd) {
  EXPECT_EQ(nextName(column(kPimInterfaceTable, 2, {4})), column(kPimInterfaceTable, 2, {5}));
  EXPECT_EQ(nextName(column(kPimInterfaceTable, 2, {10})), column(kPimInterfaceTable, 3, {3}));
  EXPECT_EQ(nextName(column(kPimNeighborTable, 3, ipOid("10.0.4.0"))),
            column(kPimNeighborTable, 3, ipOid("10.0.5.2")));
  EXPECT_EQ(nextName(column(kPimIpMRouteTable, 2, {239, 1})), column(kPimIpMRouteTable, 2, kSG));
  EXPECT_EQ(nextName(column(kPimIpMRouteTable, 2, {239, 2, 2, 2, 0})),
            column(kPimIpMRouteTable, 2, kStarG));
  // The last address cut short: net-snmp's table helper pads it with zeros, which here makes
  // exactly the (*,G) row's index, and that row is the answer.
  EXPECT_EQ(nextName(column(kPimIpMRouteTable, 2, {239, 2, 2, 2, 0, 0, 0, 0, 0})),
            column(kPimIpMRouteTable, 2, kStarG));
  EXPECT_EQ(nextName(column(kPimIpMRouteTable, 2, {239, 2, 2, 2, 0, 0, 0, 0, 0, 0, 0})),
            column(kPimIpMRouteTable, 2, kStarG));
  EXPECT_EQ(nextName(column(kPimIpMRouteTable, 2, {239, 3})), column(kPimIpMRouteTable, 3, kSG));
  EXPECT_EQ(nextName(cat(column(kPimIpMRouteTable, 2, kSG), {7})),
            column(kPimIpMRouteTable, 2, kStarG));
  // Off the end of a table; past unserved columns on the way.
  EXPECT_EQ(nextName(column(kIpMRouteInterfaceTable, 4, {4})), kIpMRouteEntryCount);
  EXPECT_EQ(nextName(column(kIpMRouteTable, 6, kStarG)), column(kIpMRouteTable, 8, kSG));
  const Response end = ask(SNMP_MSG_GETNEXT, {column(kPimComponentTable, 5, {1})});
  ASSERT_EQ(end.vars.size(), 1u);
  EXPECT_EQ(end.vars[0].type, SNMP_ENDOFMIBVIEW);
  // Empty tables are passed over: "red" has only a component row.
  red_.store->pimComponentTableIs(4, nullptr, nullptr);
  EXPECT_EQ(nextName(kPimInterfaceTable, "red"), column(kPimComponentTable, 2, {4}));
}

TEST_F(RequestsTest, MissingInstancesAndUnservedColumns) {
  Trace::Capture capture("PimMIB/0-2,ipMRouteStdMIB/0-2");
  const Oids nh =
      indexOid(pimIpMrouteNextHopEntryIndexFromRouteKey({v4("10.1.1.1"), v4("239.1.1.1")}, 4));
  const Response r =
      ask(SNMP_MSG_GET,
          {column(kPimInterfaceTable, 2, {4}), column(kPimNeighborTable, 2, ipOid("10.0.3.3")),
           column(kPimIpMRouteNextHopTable, 1, nh), column(kPimIpMRouteNextHopTable, 3, nh),
           column(kIpMRouteInterfaceTable, 5, {3}), column(kIpMRouteTable, 7, kSG)});
  ASSERT_EQ(r.vars.size(), 6u);
  EXPECT_EQ(r.vars[0].type, SNMP_NOSUCHINSTANCE);
  EXPECT_EQ(r.vars[1].type, SNMP_NOSUCHINSTANCE);
  for (size_t i = 2; i < 6; ++i) EXPECT_EQ(r.vars[i].type, SNMP_NOSUCHOBJECT) << i;
  EXPECT_TRUE(
      capture.contains("pimInterfaceTable_get_first_data_point - key '4' not found in table"));
  EXPECT_TRUE(capture.contains("ipMRouteInterfaceTable invalid column 5"));
  EXPECT_TRUE(capture.contains("ipMRouteTable invalid column 7"));
}

TEST_F(RequestsTest, SetsAreRefusedAndTheAgentKeepsAnswering) {
  Trace::Capture capture("PimMIB/0-2,ipMRouteStdMIB/0-2,ipMcastMIB/0-2");
  const std::vector<std::pair<Oids, std::string>> cases = {
      {column(kPimInterfaceTable, 4, {3}),
       "pimInterfaceTable_handler: SET is not configured for column pimInterfaceMode"},
      {column(kPimInterfaceTable, 2, {3}), ""},  // read-only column of a writable table
      {column(kPimInterfaceTable, 9, {77}),      // no such row
       "pimInterfaceTable_handler: SET is not configured for column pimInterfaceCBSRPreference"},
      {column(kPimCandidateRPTable, 4, {224, 0, 0, 0, 240, 0, 0, 0}),
       "pimCandidateRPTable_handler: SET is not configured for column pimCandidateRPRowStatus"},
      {column(kPimNeighborTable, 2, ipOid("10.0.3.2")), ""},  // read-only table
      {column(kIpMRouteInterfaceTable, 4, {3}),
       "ipMRouteInterfaceTable_handler: SET is not configured for column "
       "ipMRouteInterfaceRateLimit"},
      {column(kIpMRouteInterfaceTable, 5, {3}), "ipMRouteInterfaceTable invalid column 5"},
      {column(kIpMcastInterfaceTable, 3, {1, 3}),
       "ipMcastInterfaceTable_handler: SET is not configured for column ipMcastInterfaceTtl"},
      {kPimJoinPruneInterval,
       "handle_pimJoinPruneInterval - SET is not configured for pimJoinPruneInterval"},
      {kIpMcastDeviceConfigStorageType,
       "handle_ipMcastDeviceConfigStorageType - SET is not "
       "configured for ipMcastDeviceConfigStorageType"},
  };
  for (const auto& [name, trace] : cases) {
    SCOPED_TRACE(Snmp::oidToString(name));
    capture.clear();
    const Response r = setInteger(name, 1);
    ASSERT_TRUE(r.answered);
    EXPECT_EQ(r.errstat, SNMP_ERR_NOTWRITABLE);
    EXPECT_EQ(r.errindex, 1);
    EXPECT_TRUE(trace.empty() || capture.contains(trace));
  }
  EXPECT_FALSE(capture.contains("SET is not configured for column pimInterfaceAddress"));
  const Response r = ask(SNMP_MSG_GET, {column(kPimInterfaceTable, 4, {3}), kPimJoinPruneInterval});
  ASSERT_EQ(r.vars.size(), 2u);
  expectInteger(r.vars[0], ASN_INTEGER, 2);
  expectInteger(r.vars[1], ASN_INTEGER, 60);
}

TEST_F(RequestsTest, RowsChangingBetweenGetNextsNeitherEndTheWalkNorRepeatRows) {
  PimMib& m = *red_.store;
  for (int32_t i : {10, 20, 30, 40, 50}) m.ipMRouteInterfaceTableIs(i);
  std::vector<oid> walked;
  const Oids col3 = column(kIpMRouteInterfaceTable, 3);
  for (Oids n = nextName(col3, "red"); under(col3, n) && walked.size() < 10;
       n = nextName(n, "red")) {
    walked.push_back(n.back());
    if (n.back() == 20) {
      m.ipMRouteInterfaceTableDel(20);  // the row just returned
      m.ipMRouteInterfaceTableDel(30);  // the one that would have come next
      m.ipMRouteInterfaceTableIs(25);
      m.ipMRouteInterfaceTableIs(5);   // behind the walk
      m.ipMRouteInterfaceTableIs(60);  // ahead of it
    }
  }
  EXPECT_EQ(walked, (std::vector<oid>{10, 20, 25, 40, 50, 60}));
}

TEST_F(RequestsTest, HintsThatCannotBeReadStartAtTheFirstRow) {
  Trace::Capture capture("ipMcastMIB/0-2");
  // ipVersion 7 is no InetVersion.
  EXPECT_EQ(nextName(column(kIpMcastInterfaceTable, 3, {7, 1})),
            column(kIpMcastInterfaceTable, 4, {1, 3}));
  EXPECT_TRUE(capture.contains(
      "hint for index ipMcastInterfaceIPVersion of ipMcastInterfaceTable is out of range!"));
  // A 21-octet group, more than an InetAddress holds.
  Oids group = {1, 21};
  group.insert(group.end(), 21, 9);
  const Response r =
      ask(SNMP_MSG_GET, {column(kIpMcastRouteTable, 9, cat(group, {32, 1, 4, 10, 1, 1, 1, 32}))});
  ASSERT_EQ(r.vars.size(), 1u);
  EXPECT_EQ(r.vars[0].type, SNMP_NOSUCHINSTANCE);
  EXPECT_TRUE(capture.contains(
      "Bad hint for ipMcastRouteTable: IpMcastRouteEntryIndex ctor threw exception:"));
}

}  // namespace
}  // namespace MibTest
