// Every served column and scalar read over SNMP: the row's attribute through its converter,
// under the column's ASN type (rows from MibModulesTest::fillDefaultStore).

#include <tuple>

#include "PimSnmp/PimSnmp/Index.h"
#include "tests/unit/mib_modules/Harness.h"

namespace MibTest {
namespace {

using namespace Routing::Pim::Snmp;
using Routing::Pim::RouteKey;

struct Col {
  oid number;
  int type;
  long long value = 0;
  std::vector<uint8_t> bytes = {};
};

// One GET of `cols` of the row `index`; integer types compare `value`, strings `bytes`.
void expectRow(const Oids& table, const Oids& index, const std::vector<Col>& cols) {
  SCOPED_TRACE(Snmp::oidToString(cat(table, index)));
  std::vector<Oids> names;
  for (const Col& c : cols) names.push_back(column(table, c.number, index));
  const Response r = ask(SNMP_MSG_GET, names);
  ASSERT_EQ(r.vars.size(), cols.size());
  for (size_t i = 0; i < cols.size(); ++i) {
    if (cols[i].type == ASN_IPADDRESS || cols[i].type == ASN_OCTET_STR) {
      expectBytes(r.vars[i], cols[i].type, cols[i].bytes);
    } else {
      expectInteger(r.vars[i], cols[i].type, cols[i].value);
    }
  }
}

const RouteKey kSG{v4("10.1.1.1"), v4("239.1.1.1")};
const RouteKey kStarG = RouteKey::starG(v4("239.2.2.2"));
constexpr int kIp = ASN_IPADDRESS;
constexpr int kInt = ASN_INTEGER;
constexpr int kTicks = ASN_TIMETICKS;

class ColumnsTest : public MibModulesTest {
 protected:
  void SetUp() override {
    MibModulesTest::SetUp();
    fillDefaultStore();
  }
};

TEST_F(ColumnsTest, PimMib) {
  expectRow(kPimInterfaceTable, {3},
            {{2, kIp, 0, ipBytes("10.0.3.1")},
             {3, kIp, 0, ipBytes("255.255.255.0")},
             {4, kInt, 2},  // sparse(2)
             {5, kIp, 0, ipBytes("10.0.3.9")},
             {6, kInt, 30},
             {7, kInt, 1},
             {8, kInt, 60},
             {9, kInt, 7}});  // the interface's candidate-BSR priority
  expectRow(kPimInterfaceTable, {5}, {{3, kIp, 0, ipBytes("0.0.0.0")}, {4, kInt, 1}});  // no record
  expectRow(kPimNeighborTable, ipOid("10.0.3.2"),
            {{2, kInt, 3}, {3, kTicks, 1250}, {4, kTicks, 9500}, {5, kInt, 2}});

  expectRow(kPimIpMRouteTable, indexOid(pimIpMrouteEntryIndexFromRouteKey(kSG)),
            {{1, kTicks, 0},
             {2, kInt, 20},
             {3, kInt, 110},
             {4, kInt, 1},
             {5, ASN_OCTET_STR, 0, {1, 0, 0, 0}}});  // SPT, the uint32's bytes
  expectRow(kPimIpMRouteTable, indexOid(pimIpMrouteEntryIndexFromRouteKey(kStarG)),
            {{2, kInt, 0}, {4, kInt, 2}, {5, ASN_OCTET_STR, 0, {0, 0, 0, 0}}});

  expectRow(kPimRPSetTable,
            indexOid(PimRPSetEntryIndex(1, v4("224.0.0.0"), maskFromLength(4), v4("10.9.9.9"))),
            {{4, kInt, 150}, {5, kTicks, 3000}});
  expectRow(kPimIpMRouteNextHopTable, indexOid(pimIpMrouteNextHopEntryIndexFromRouteKey(kSG, 4)),
            {{2, kInt, 3}});  // assert
  expectRow(kPimIpMRouteNextHopTable, indexOid(pimIpMrouteNextHopEntryIndexFromRouteKey(kSG, 5)),
            {{2, kInt, 2}});  // prune
  expectRow(kPimCandidateRPTable,
            indexOid(PimCandidateRPEntryIndex(v4("224.0.0.0"), maskFromLength(4))),
            {{3, kIp, 0, ipBytes("10.9.9.9")}, {4, kInt, 1}});
  expectRow(kPimComponentTable, {1},
            {{2, kIp, 0, ipBytes("10.7.7.7")}, {3, kTicks, 13000}, {4, kInt, 180}, {5, kInt, 1}});
}

TEST_F(ColumnsTest, IpMRouteStdMib) {
  // One attribute, two widths: ipMRouteOctets keeps the low 32 bits of ipMRouteHCOctets.
  expectRow(kIpMRouteTable, indexOid(pimIpMrouteEntryIndexFromRouteKey(kSG)),
            {{4, kIp, 0, ipBytes("10.0.3.2")},
             {5, kInt, 3},
             {6, kTicks, 6000},
             {8, ASN_COUNTER, 5},
             {10, ASN_COUNTER, 0x10},
             {16, ASN_COUNTER64, 0x100000010}});
  expectRow(kIpMRouteTable, indexOid(pimIpMrouteEntryIndexFromRouteKey(kStarG)),
            {{4, kIp, 0, ipBytes("0.0.0.0")}, {5, kInt, 0}});
  expectRow(kIpMRouteNextHopTable, indexOid(pimIpMrouteNextHopEntryIndexFromRouteKey(kSG, 4)),
            {{6, kInt, 2}});  // forwarding(2)
  expectRow(kIpMRouteNextHopTable, indexOid(pimIpMrouteNextHopEntryIndexFromRouteKey(kSG, 5)),
            {{6, kInt, 1}});  // pruned(1)
  expectRow(kIpMRouteInterfaceTable, {4}, {{2, kInt, 0}, {3, kInt, 8}, {4, kInt, 0}});
}

TEST_F(ColumnsTest, IpMcastMib) {
  expectRow(kIpMcastRouteTable, indexOid(IpMcastRouteEntryIndex::fromRouteKey(kSG)),
            {{7, kInt, 1},
             {8, ASN_OCTET_STR, 0, ipBytes("10.0.3.2")},
             {9, kInt, 3},
             {10, kTicks, 4000},  // created 40 s after the agent started
             {18, ASN_COUNTER64, 0x100000010},
             {19, ASN_COUNTER64, 5}});
  // IPv6: 16-octet index components, and no counter helper for the family.
  const RouteKey v6 = RouteKey::starG(*Lanet::IpGenAddr::parse("ff0e::1"));
  expectRow(
      kIpMcastRouteTable, indexOid(IpMcastRouteEntryIndex::fromRouteKey(v6)),
      {{7, kInt, 2}, {8, ASN_OCTET_STR, 0, std::vector<uint8_t>(16)}, {19, ASN_COUNTER64, 0}});
  expectRow(kIpMcastRouteNextHopTable,
            indexOid(IpMcastRouteNextHopEntryIndex::fromRouteKeyAndIfIndex(kSG, 4)),
            {{10, kInt, 2}});
  expectRow(kIpMcastRouteNextHopTable,
            indexOid(IpMcastRouteNextHopEntryIndex::fromRouteKeyAndIfIndex(kSG, 5)),
            {{10, kInt, 1}});
  expectRow(kIpMcastInterfaceTable, {2, 3},  // ipv6, ifIndex 3
            {{3, ASN_UNSIGNED, 0}, {4, ASN_UNSIGNED, 0}, {5, kInt, 5}});
}

// One GET in `context` of scalars, each an integer of the given type.
void expectScalars(const std::vector<std::tuple<Oids, int, long long>>& want,
                   const std::string& context = "") {
  std::vector<Oids> names;
  for (const auto& w : want) names.push_back(std::get<0>(w));
  const Response r = ask(SNMP_MSG_GET, names, context);
  ASSERT_EQ(r.vars.size(), want.size());
  for (size_t i = 0; i < want.size(); ++i) {
    expectInteger(r.vars[i], std::get<1>(want[i]), std::get<2>(want[i]));
  }
}

TEST_F(ColumnsTest, Scalars) {
  expectScalars({{kPimJoinPruneInterval, kInt, 60},
                 {kIpMRouteEnable, kInt, 1},
                 {kIpMRouteEntryCount, ASN_GAUGE, 2},
                 {kIpMcastEnabled, kInt, 1},
                 {kIpMcastRouteEntryCount, ASN_GAUGE, 3},
                 {kIpMcastDeviceConfigStorageType, kInt, 5}});
  // 60 whatever the configured interval; the rest read live.
  default_.pimConfig->joinPruneIntervalIs(90);
  default_.mfibConfig->routingIs(false);
  default_.store->ipMRouteTableDelAll();
  expectScalars({{kPimJoinPruneInterval, kInt, 60},
                 {kIpMRouteEnable, kInt, 2},
                 {kIpMRouteEntryCount, ASN_GAUGE, 0},
                 {kIpMcastEnabled, kInt, 2}});
  expectScalars(
      {{kIpMcastRouteEntryCount, ASN_GAUGE, 0}, {kIpMcastDeviceConfigStorageType, kInt, 5}}, "red");
}

}  // namespace
}  // namespace MibTest
