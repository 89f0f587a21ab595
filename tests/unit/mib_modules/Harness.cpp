#include "tests/unit/mib_modules/Harness.h"

#include "PimSnmp/PimMIB/PimMIB.h"
#include "PimSnmp/PimSnmpHelpers/PimSnmpHelpers.h"
#include "PimSnmp/ipMRouteStdMIB/ipMRouteStdMIB.h"
#include "PimSnmp/ipMcastMIB/ipMcastMIB.h"
#include "platform/IntfSnmp/IfMib.h"
#include "platform/Routing/Multicast/Fib/VrfConfig.h"
#include "platform/Routing/Pim/Bsr/Config.h"
#include "platform/Routing/Pim/Bsr/Status.h"
#include "platform/Routing/Pim/ConfigColl.h"
#include "platform/Routing/Pim/Intf.h"
#include "platform/Routing/Pim/Neighbor.h"
#include "platform/Routing/Pim/RpCandidate.h"
#include "platform/Snmp/Converters.h"
#include "platform/SnmpUtil/AgentHost.h"
#include "platform/SnmpUtil/SnmpUtil.h"
#include "tests/support/EmbeddedAgent.h"

namespace MibTest {

using namespace Routing::Pim::Snmp;

namespace {

using Agent = TestSupport::EmbeddedAgent;

Agent& theAgent() {
  return TestSupport::embeddedAgent(
      "pimsnmp-mib-test",
      {"rwcommunity public 127.0.0.1", "rwcommunity public-red 127.0.0.1 .1 red",
       "rwcommunity public-blue 127.0.0.1 .1 blue"});
}

Ent::Ptr<Ent::Dir> testRoot() {
  static Ent::Ptr<Ent::Dir> root = [] {
    auto r = Ent::make<Ent::Dir>("root");
    SnmpUtil::entityRootIs(r);
    r->mkdirs("Stadb/routing/pim")->entityIs(Ent::make<Routing::Pim::ConfigColl>("config"));
    r->mkdirs("Stadb/routing/multicast/vrf")
        ->entityIs(Ent::make<Routing::Multicast::Fib::VrfConfig>("config"));
    r->mkdirs("snmp/pim/snmpPimMIB");
    return r;
  }();
  return root;
}
Routing::Pim::ConfigColl& pimConfigs() {
  return *testRoot()->lookupAs<Routing::Pim::ConfigColl>("Stadb/routing/pim/config");
}
Routing::Multicast::Fib::VrfConfig& mfibConfigs() {
  return *testRoot()->lookupAs<Routing::Multicast::Fib::VrfConfig>(
      "Stadb/routing/multicast/vrf/config");
}

Response exchange(netsnmp_pdu* pdu, const std::string& context) {
  Agent& a = theAgent();
  Response out;
  if (!a.host) {
    snmp_free_pdu(pdu);
    return out;
  }
  netsnmp_pdu* response =
      TestSupport::exchange(*a.host, a.port, context.empty() ? "public" : "public-" + context, pdu);
  if (!response) return out;
  out = {true, response->errstat, response->errindex, {}};
  for (auto* v = response->variables; v; v = v->next_variable) {
    Var& var = out.vars.emplace_back();
    var.name.assign(v->name, v->name + v->name_length);
    var.type = v->type;
    if (v->type == ASN_OCTET_STR || v->type == ASN_IPADDRESS) {
      var.bytes.assign(v->val.string, v->val.string + v->val_len);
    } else if (v->type == ASN_COUNTER64) {
      var.value =
          static_cast<long long>((uint64_t{v->val.counter64->high} << 32) | v->val.counter64->low);
    } else if (v->val.integer && v->val_len == sizeof(long)) {
      var.value = *v->val.integer;
    }
  }
  snmp_free_pdu(response);
  return out;
}

}  // namespace

Response ask(int command, const std::vector<Oids>& names, const std::string& context,
             int maxRepetitions) {
  netsnmp_pdu* pdu = snmp_pdu_create(command);
  pdu->non_repeaters = 0;
  if (command == SNMP_MSG_GETBULK) pdu->max_repetitions = maxRepetitions;
  for (const auto& n : names) snmp_add_null_var(pdu, n.data(), n.size());
  return exchange(pdu, context);
}

Response setInteger(const Oids& name, long value, const std::string& context) {
  netsnmp_pdu* pdu = snmp_pdu_create(SNMP_MSG_SET);
  snmp_pdu_add_variable(pdu, name.data(), name.size(), ASN_INTEGER, &value, sizeof value);
  return exchange(pdu, context);
}

Vrf makeVrf(const std::string& context) {
  const std::string vrf = context.empty() ? "default" : context;
  Vrf out{context, PimMibIs(vrf), Ent::make<Routing::Pim::Config>(L3::VrfName(vrf)), nullptr};
  testRoot()->mkdirs("snmp/pim/snmpPimMIB")->entityIs(out.store);
  pimConfigs().vrfConfigIs(out.pimConfig);
  mfibConfigs().configDel(vrf);
  out.mfibConfig = mfibConfigs().configIs(vrf);
  out.mfibConfig->routingIs(true);
  out.store->mfibConfigIs(Lanet::AddressFamily::ipv4, out.mfibConfig);
  return out;
}

void dropVrf(const Vrf& vrf) {
  const std::string name = vrf.context.empty() ? "default" : vrf.context;
  testRoot()->mkdirs("snmp/pim/snmpPimMIB")->entityDel(name);
  pimConfigs().vrfConfigDel(L3::VrfName(name));
  mfibConfigs().configDel(name);
}

void registerModules(const std::string& context) {
  init_PimMIB(context);
  init_ipMRouteStdMIB(context);
  init_ipMcastMIB(context);
}

void unregisterModules(const std::string& context) {
  unregister_PimMIB(context);
  unregister_ipMRouteStdMIB(context);
  unregister_ipMcastMIB(context);
}

namespace {
class FixedCounters : public McastCommonMrouteCounterHelper::MrouteCounterHelper {
 public:
  FixedCounters() : MrouteCounterHelper("fixedCounters") {}
  std::string_view typeName() const override { return "MibTest::FixedCounters"; }
  Counters counters(const L3::VrfName&,
                    const Routing::Multicast::Fib::IpGenRouteKey&) const override {
    return {5, 0x100000010ull};
  }
};
}  // namespace

void MibModulesTest::SetUp() {
  ASSERT_NE(theAgent().host, nullptr) << "no agent on 127.0.0.1";
  scopedClock_ = std::make_unique<Plat::ScopedClock>(clock_);
  previousStart_ = ::Snmp::agentStartTime();
  ::Snmp::agentStartTimeIs(900);
  pimSnmpHelpers()->mrouteCounterHelperIs(Lanet::AddressFamily::ipv4, Ent::make<FixedCounters>());
  default_ = makeVrf("");
  red_ = makeVrf("red");
  registerModules("");
  registerModules("red");
}

void MibModulesTest::TearDown() {
  unregisterModules("");
  unregisterModules("red");
  dropVrf(default_);
  dropVrf(red_);
  pimSnmpHelpers()->mrouteCounterHelperDelAll();
  ::Snmp::agentStartTimeIs(previousStart_);
  scopedClock_.reset();
}

void MibModulesTest::fillDefaultStore() {
  using namespace Routing::Pim;
  using Lanet::IntfId;
  PimMib& m = *default_.store;
  const L3::VrfName vrf("default");
  const auto allGroups = *Lanet::IpGenPrefix::parse("224.0.0.0/4");

  auto bsrStatus = Ent::make<Bsr::Status>(vrf);
  auto cbsr = bsrStatus->cbsrIs(allGroups);
  cbsr->intfIdIs(IntfId("Ethernet3"));
  cbsr->priorityIs(7);
  bsrStatus->electedBsrIs(allGroups)->bsrAddressIs(v4("10.7.7.7"));
  auto bsrConfig = Ent::make<Bsr::Config>(vrf);
  bsrConfig->bootstrapTimeoutIs(130);
  bsrConfig->candidateRpConfigCountIs(1);

  auto intf3 = Ent::make<Intf>(IntfId("Ethernet3"));
  intf3->addressIs(v4("10.0.3.1"), 24);
  intf3->modeIs(modeSparse);
  intf3->drAddrIs(v4("10.0.3.9"));
  intf3->helloIntervalIs(30);
  intf3->jpIntervalIs(60);
  m.pimInterfaceTableIs(3, intf3, bsrStatus);
  m.pimInterfaceTableIs(5, nullptr, nullptr);
  m.pimInterfaceTableIs(9, nullptr, nullptr);

  auto neighbor = Ent::make<Neighbor>(v4("10.0.3.2"));
  neighbor->creationTimeIs(987.5);
  neighbor->lastRefreshTimeIs(990);
  neighbor->holdTimeIs(105);
  auto row = m.pimNeighborTableIs(v4("10.0.3.2"), neighbor);
  row->interfaceIndexIs(3);
  row->modeIs(modeSparse);
  m.pimNeighborTableIs(v4("10.0.5.2"), nullptr);

  auto ifMib = Ent::make<IntfSnmp::IfMib>();
  ifMib->ifIndexByIntfIdIs(IntfId("Ethernet3"), 3);
  const RouteKey sg{v4("10.1.1.1"), v4("239.1.1.1")};
  const RouteKey starG = RouteKey::starG(v4("239.2.2.2"));
  const RouteKey v6 = RouteKey::starG(*Lanet::IpGenAddr::parse("ff0e::1"));
  auto r1 = Ent::make<SparseMode::Route>(sg);
  r1->creationTimeIs(940);
  r1->upstreamInfoIs(IntfId("Ethernet3"), v4("10.0.3.2"));
  r1->flagsIs(SparseMode::Route::kFlagSpt);
  auto up = r1->routeIntfIs(IntfId("Ethernet3"));
  up->assertMetricIs(20);
  up->assertMetricPrefIs(110);
  up->assertRptBitIs(true);
  auto r2 = Ent::make<SparseMode::Route>(starG);
  r2->creationTimeIs(990);
  auto r6 = Ent::make<SparseMode::Route>(v6);
  r6->creationTimeIs(950);
  for (const auto& [key, route] : {std::pair{sg, r1}, std::pair{starG, r2}}) {
    m.pimIpMrouteTableIs(pimIpMrouteEntryIndexFromRouteKey(key), route);
    m.ipMRouteTableIs(route, ifMib, pimIpMrouteEntryIndexFromRouteKey(key));
    m.ipMcastRouteTableIs(route, ifMib, IpMcastRouteEntryIndex::fromRouteKey(key));
  }
  m.ipMcastRouteTableIs(r6, ifMib, IpMcastRouteEntryIndex::fromRouteKey(v6));

  auto loser = Ent::make<SparseMode::Intf>(IntfId("Ethernet4"));
  loser->assertStateIs(SparseMode::assertStateLoser);
  m.pimIpMrouteNextHopTableIs(pimIpMrouteNextHopEntryIndexFromRouteKey(sg, 4), loser);
  m.pimIpMrouteNextHopTableIs(pimIpMrouteNextHopEntryIndexFromRouteKey(sg, 5), nullptr);
  for (auto [ifIndex, state] : {std::pair{4, nhStateForwarding}, std::pair{5, nhStatePruned}}) {
    m.ipMRouteNextHopTableIs(state, pimIpMrouteNextHopEntryIndexFromRouteKey(sg, ifIndex));
    m.ipMcastRouteNextHopTableIs(
        state, IpMcastRouteNextHopEntryIndex::fromRouteKeyAndIfIndex(sg, ifIndex));
  }

  auto rp = Ent::make<RpCandidate>(v4("10.9.9.9"));
  rp->holdTimeIs(150);
  rp->expiryTimeIs(1030);
  m.pimRPSetTableIs(PimRPSetEntryIndex(1, v4("224.0.0.0"), maskFromLength(4), v4("10.9.9.9")),
                    rpTypeBsr, rp);
  m.pimRPSetTableIs(PimRPSetEntryIndex(1, v4("239.0.0.0"), maskFromLength(8), v4("10.8.8.8")),
                    rpTypeStatic, nullptr);
  m.pimCandidateRPTableIs(PimCandidateRPEntryIndex(v4("224.0.0.0"), maskFromLength(4)), rp);
  m.pimComponentTableIs(1, bsrStatus, bsrConfig);

  m.ipMRouteInterfaceTableIs(3);
  m.ipMRouteInterfaceTableIs(4);
  m.ipMcastInterfaceTableIs({::Snmp::InetVersion::ipv4, 3});
  m.ipMcastInterfaceTableIs({::Snmp::InetVersion::ipv6, 3});
}

Lanet::IpGenAddr v4(const char* text) {
  return *Lanet::IpGenAddr::parse(text);
}

std::vector<uint8_t> ipBytes(const char* text) {
  const Lanet::IpGenAddr addr = v4(text);  // bytes() views into the address
  return {addr.bytes().begin(), addr.bytes().end()};
}

Oids ipOid(const char* text) {
  const auto b = ipBytes(text);
  return Oids(b.begin(), b.end());
}

Oids cat(Oids a, const Oids& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

Oids column(const Oids& table, oid col, const Oids& index) {
  return cat(cat(table, {1, col}), index);
}

void expectInteger(const Var& v, int type, long long value) {
  EXPECT_EQ(v.type, type) << Snmp::oidToString(v.name);
  EXPECT_EQ(v.value, value) << Snmp::oidToString(v.name);
}

void expectBytes(const Var& v, int type, const std::vector<uint8_t>& bytes) {
  EXPECT_EQ(v.type, type) << Snmp::oidToString(v.name);
  EXPECT_EQ(v.bytes, bytes) << Snmp::oidToString(v.name);
}

}  // namespace MibTest
