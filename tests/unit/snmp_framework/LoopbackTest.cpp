// One embedded master on 127.0.0.1 serving small iterator tables through the hinted
// registration, queried by an in-process net-snmp client session (the agent's loop serves
// both sides), and a queued notification through a configured trap sink.

#include <gtest/gtest.h>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/Clock/Clock.h"
#include "platform/Snmp/HintReaders.h"
#include "platform/Snmp/Registration.h"
#include "platform/Snmp/TableHint.h"
#include "platform/Snmp/TrapManager.h"
#include "platform/SnmpUtil/AgentHost.h"
#include "platform/SnmpUtil/SnmpUtil.h"
#include "tests/support/EmbeddedAgent.h"

namespace {

using Oids = std::vector<oid>;
const Oids kBase = {1, 3, 6, 1, 4, 1, 99999};

// Columns 2 and 3 of a std::map keyed by an INTEGER index, walked in key order from the
// hinted row. Counts iterator calls so tests can see how far each walk went.
struct TestTable {
  using Rows = std::map<int32_t, std::pair<long, long>>;
  struct Loop {
    const Rows* rows;
    Rows::const_iterator it;
  };
  Rows rows;
  int nextCalls = 0;
  std::vector<long> hints;      // per get_first call: the hinted index, or -1
  std::vector<bool> exclusive;  // per hinted get_first call: whether the hinted row may be skipped

  static netsnmp_variable_list* put(Loop* lc, netsnmp_variable_list* vars) {
    if (lc->it == lc->rows->end()) return nullptr;
    snmp_set_var_typed_integer(vars, ASN_INTEGER, lc->it->first);
    return vars;
  }
  static netsnmp_variable_list* first(void** loopContext, void** dataContext,
                                      netsnmp_variable_list* vars, netsnmp_iterator_info* iinfo) {
    auto* t = static_cast<TestTable*>(iinfo->myvoid);
    const Snmp::TableHint hint = Snmp::tableHint(*loopContext);
    int32_t start = 0;
    const bool hinted = hint.word == 1 && Snmp::AsnIntegerToS32(*hint.indexes, start);
    t->hints.push_back(hinted ? start : -1);
    if (hinted) t->exclusive.push_back(hint.exclusive);
    auto* lc = new Loop{&t->rows, hinted ? t->rows.lower_bound(start) : t->rows.begin()};
    if (hinted && hint.exclusive && lc->it != t->rows.end() && lc->it->first == start) ++lc->it;
    *loopContext = lc;
    *dataContext = nullptr;
    return put(lc, vars);
  }
  static netsnmp_variable_list* next(void** loopContext, void** dataContext,
                                     netsnmp_variable_list* vars, netsnmp_iterator_info* iinfo) {
    ++static_cast<TestTable*>(iinfo->myvoid)->nextCalls;
    auto* lc = static_cast<Loop*>(*loopContext);
    *dataContext = nullptr;
    if (lc->it != lc->rows->end()) ++lc->it;
    return put(lc, vars);
  }
  static void* makeData(void* loopContext, netsnmp_iterator_info*) {
    return const_cast<std::pair<long, long>*>(&static_cast<Loop*>(loopContext)->it->second);
  }
  static void freeLoop(void* loopContext, netsnmp_iterator_info*) {
    delete static_cast<Loop*>(loopContext);
  }
  static int handler(netsnmp_mib_handler*, netsnmp_handler_registration*,
                     netsnmp_agent_request_info* reqinfo, netsnmp_request_info* requests) {
    for (netsnmp_request_info* r = requests; r; r = r->next) {
      auto* row = static_cast<std::pair<long, long>*>(netsnmp_extract_iterator_context(r));
      if (r->processed || !row || reqinfo->mode != MODE_GET) continue;
      snmp_set_var_typed_integer(
          r->requestvb, ASN_INTEGER,
          netsnmp_extract_table_info(r)->colnum == 2 ? row->first : row->second);
    }
    return SNMP_ERR_NOERROR;
  }

  netsnmp_handler_registration* registerAt(oid table, const char* name, const char* context,
                                           bool serialize) {
    const Oids tableOid = {1, 3, 6, 1, 4, 1, 99999, table};
    netsnmp_handler_registration* reg = netsnmp_create_handler_registration(
        name, handler, tableOid.data(), tableOid.size(), HANDLER_CAN_RONLY);
    if (context) reg->contextName = strdup(context);
    auto* tinfo = SNMP_MALLOC_TYPEDEF(netsnmp_table_registration_info);
    netsnmp_table_helper_add_indexes(tinfo, ASN_INTEGER, 0);
    tinfo->min_column = 2;
    tinfo->max_column = 3;
    auto* iinfo = SNMP_MALLOC_TYPEDEF(netsnmp_iterator_info);
    iinfo->get_first_data_point = first;
    iinfo->get_next_data_point = next;
    iinfo->make_data_context = makeData;
    iinfo->free_loop_context_at_end = freeLoop;
    iinfo->myvoid = this;
    iinfo->table_reginfo = tinfo;
    iinfo->flags |= NETSNMP_HANDLER_OWNS_IINFO;  // freed with the registration
    const int rc = Snmp::registerTableIteratorWithHint(reg, iinfo, serialize);
    return rc == MIB_REGISTERED_OK ? reg : nullptr;
  }
};

Oids col(oid table, oid column, oid index) {
  return {1, 3, 6, 1, 4, 1, 99999, table, 1, column, index};
}

struct Answer {
  Oids name;
  int type;
  long value;
};

class LoopbackTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    trapPort_ = TestSupport::freeUdpPort();
    TestSupport::EmbeddedAgent& agent = TestSupport::embeddedAgent(
        "pimsnmp-fw-test",
        {"rocommunity public 127.0.0.1", "rocommunity public-red 127.0.0.1 .1 red",
         "trap2sink 127.0.0.1:" + std::to_string(trapPort_) + " public"});
    ASSERT_TRUE(agent.host) << "no agent on 127.0.0.1";
    host_ = agent.host.get();
    port_ = agent.port;
    ASSERT_TRUE(SnmpUtil::getSnmpStatus()->initialized());

    plain_.rows = {{3, {30, 31}}, {4, {40, 41}}, {15, {150, 151}}, {16, {160, 161}}};
    serialized_.rows = plain_.rows;
    red_.rows = {{7, {70, 71}}};
    regs_ = {plain_.registerAt(1, "plainTable", nullptr, false),
             serialized_.registerAt(2, "serializedTable", nullptr, true),
             red_.registerAt(1, "plainTable_red", "red", false)};
    for (auto* r : regs_) ASSERT_NE(r, nullptr);
  }

  static void TearDownTestSuite() {
    for (auto* r : regs_) {
      if (r) {
        EXPECT_EQ(Snmp::unregisterHandler(r), MIB_UNREGISTERED_OK);
      }
    }
    if (host_) host_->shutdown();
    EXPECT_FALSE(SnmpUtil::getSnmpStatus()->initialized());
  }

  // Sends one request and turns the agent's loop until the answer arrives (at most 3 s).
  static std::vector<Answer> ask(int command, const std::vector<Oids>& names,
                                 const char* community = "public", int repetitions = 0) {
    netsnmp_pdu* pdu = snmp_pdu_create(command);
    if (command == SNMP_MSG_GETBULK) {
      pdu->non_repeaters = 0;
      pdu->max_repetitions = repetitions;
    }
    for (const auto& n : names) snmp_add_null_var(pdu, n.data(), n.size());
    netsnmp_pdu* response =
        TestSupport::exchange(*host_, port_, community, pdu, std::chrono::seconds(3));
    std::vector<Answer> out;
    EXPECT_NE(response, nullptr) << "no answer";
    for (auto* v = response ? response->variables : nullptr; v; v = v->next_variable) {
      out.push_back({Oids(v->name, v->name + v->name_length), v->type,
                     v->type == ASN_INTEGER ? *v->val.integer : 0});
    }
    if (response) snmp_free_pdu(response);
    return out;
  }

  static inline int port_ = 0;
  static inline int trapPort_ = 0;
  static inline Snmp::AgentHost* host_ = nullptr;
  static inline TestTable plain_, serialized_, red_;
  static inline std::vector<netsnmp_handler_registration*> regs_;
};

TEST_F(LoopbackTest, MultiVarbindRequestsGetEachTheirOwnRow) {
  for (oid table : {1, 2}) {
    SCOPED_TRACE(table);
    auto next = ask(SNMP_MSG_GETNEXT, {col(table, 2, 15), col(table, 2, 3)});
    ASSERT_EQ(next.size(), 2u);
    EXPECT_EQ(next[0].name, col(table, 2, 16));
    EXPECT_EQ(next[0].value, 160);
    EXPECT_EQ(next[1].name, col(table, 2, 4));
    EXPECT_EQ(next[1].value, 40);

    auto get = ask(SNMP_MSG_GET, {col(table, 2, 15), col(table, 3, 3), col(table, 2, 5)});
    ASSERT_EQ(get.size(), 3u);
    EXPECT_EQ(get[0].value, 150);
    EXPECT_EQ(get[1].type, ASN_INTEGER);
    EXPECT_EQ(get[1].value, 31);
    EXPECT_EQ(get[2].type, SNMP_NOSUCHINSTANCE);
  }
  // Unserialized, the batch shares one walk starting at its smallest index; for GETNEXT the
  // row at that index answers none of them and may be skipped.
  plain_.hints.clear();
  plain_.exclusive.clear();
  auto shared = ask(SNMP_MSG_GETNEXT, {col(1, 2, 15), col(1, 3, 4), col(1, 2, 3)});
  ASSERT_EQ(shared.size(), 3u);
  EXPECT_EQ(shared[0].name, col(1, 2, 16));
  EXPECT_EQ(shared[1].name, col(1, 3, 15));
  EXPECT_EQ(shared[2].name, col(1, 2, 4));
  EXPECT_EQ(plain_.hints, (std::vector<long>{3}));
  EXPECT_EQ(plain_.exclusive, (std::vector<bool>{true}));
  // The smallest request has no index at all, the other a whole one: from the top.
  plain_.hints.clear();
  auto top = ask(SNMP_MSG_GETNEXT, {col(1, 3, 4), {1, 3, 6, 1, 4, 1, 99999, 1, 1, 2}});
  ASSERT_EQ(top.size(), 2u);
  EXPECT_EQ(top[0].name, col(1, 3, 15));
  EXPECT_EQ(top[1].name, col(1, 2, 3));
  EXPECT_EQ(plain_.hints, (std::vector<long>{-1}));
}

TEST_F(LoopbackTest, GetCostsOneDescentWhetherTheRowExistsOrNot) {
  for (oid index : {16, 5, 17}) {
    plain_.hints.clear();
    plain_.exclusive.clear();
    plain_.nextCalls = 0;
    auto get = ask(SNMP_MSG_GET, {col(1, 3, index)});
    ASSERT_EQ(get.size(), 1u);
    EXPECT_EQ(get[0].type, index == 16 ? ASN_INTEGER : SNMP_NOSUCHINSTANCE);
    EXPECT_EQ(plain_.hints, (std::vector<long>{static_cast<long>(index)}));
    EXPECT_EQ(plain_.exclusive, (std::vector<bool>{false}));  // a GET needs the hinted row
    EXPECT_EQ(plain_.nextCalls, 0) << index;                  // no walk on from the start row
  }
}

TEST_F(LoopbackTest, WalksVisitRowsInOrderWithoutRescanning) {
  std::vector<Oids> expected;
  for (oid c : {2, 3}) {
    for (oid i : {3, 4, 15, 16}) expected.push_back(col(1, c, i));
  }
  plain_.nextCalls = 0;
  std::vector<Oids> walked;
  Oids cursor = {1, 3, 6, 1, 4, 1, 99999, 1};
  for (int i = 0; i < 20; ++i) {
    auto a = ask(SNMP_MSG_GETNEXT, {cursor});
    ASSERT_EQ(a.size(), 1u);
    if (a[0].name.size() != expected[0].size() ||
        !std::equal(cursor.begin(), cursor.begin() + 8, a[0].name.begin())) {
      break;  // left the table
    }
    walked.push_back(cursor = a[0].name);
  }
  EXPECT_EQ(walked, expected);
  // Each step starts at its own row (the column wraps restart at the top): no rescans.
  EXPECT_LE(plain_.nextCalls, 2 * static_cast<int>(expected.size()) + 4);

  plain_.nextCalls = 0;
  auto bulk = ask(SNMP_MSG_GETBULK, {{1, 3, 6, 1, 4, 1, 99999, 1}}, "public", 8);
  ASSERT_EQ(bulk.size(), 8u);
  for (size_t i = 0; i < bulk.size(); ++i) EXPECT_EQ(bulk[i].name, expected[i]);
  EXPECT_LE(plain_.nextCalls, 2 * static_cast<int>(expected.size()) + 4);
}

TEST_F(LoopbackTest, ContextsAreServedSeparately) {
  auto red = ask(SNMP_MSG_GET, {col(1, 2, 7)}, "public-red");
  ASSERT_EQ(red.size(), 1u);
  EXPECT_EQ(red[0].value, 70);
  auto def = ask(SNMP_MSG_GET, {col(1, 2, 7)});
  ASSERT_EQ(def.size(), 1u);
  EXPECT_EQ(def[0].type, SNMP_NOSUCHINSTANCE);

  Snmp::AgentHost second(host_->options());  // net-snmp is process-global
  EXPECT_FALSE(second.init());
}

TEST_F(LoopbackTest, QueuedNotificationLeavesWhenDue) {
  struct Received {
    int count = 0;
    Oids trapOid;
  } rx;
  const std::string sink = "udp:127.0.0.1:" + std::to_string(trapPort_);
  netsnmp_transport* t = netsnmp_transport_open_server("snmptrap", sink.c_str());
  ASSERT_NE(t, nullptr);
  netsnmp_session s;
  snmp_sess_init(&s);
  s.callback = [](int op, netsnmp_session*, int, netsnmp_pdu* pdu, void* magic) {
    auto* r = static_cast<Received*>(magic);
    if (op == NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE && pdu->command == SNMP_MSG_TRAP2) {
      ++r->count;
      // net-snmp puts sysUpTime.0 first; snmpTrapOID.0 follows.
      const netsnmp_variable_list* v = pdu->variables->next_variable;
      r->trapOid.assign(v->val.objid, v->val.objid + v->val_len / sizeof(oid));
    }
    return 1;
  };
  s.callback_magic = &rx;
  netsnmp_session* receiver = snmp_add(&s, t, nullptr, nullptr);
  ASSERT_NE(receiver, nullptr);

  const oid trapOidName[] = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
  const Oids neighborLoss = {1, 3, 6, 1, 3, 61, 1, 0, 1};
  netsnmp_variable_list* vars = nullptr;
  snmp_varlist_add_variable(&vars, trapOidName, OID_LENGTH(trapOidName), ASN_OBJECT_ID,
                            neighborLoss.data(), neighborLoss.size() * sizeof(oid));
  Snmp::TrapManager::instance().enqueueTrap(vars, "", Plat::now() + 0.3);

  const auto start = std::chrono::steady_clock::now();
  while (rx.count == 0 && std::chrono::steady_clock::now() - start < std::chrono::seconds(3)) {
    host_->runOnce(0.05);
    if (std::chrono::steady_clock::now() - start < std::chrono::milliseconds(250)) {
      EXPECT_EQ(rx.count, 0) << "sent before it was due";
    }
  }
  EXPECT_EQ(rx.count, 1);
  EXPECT_EQ(rx.trapOid, neighborLoss);
  EXPECT_EQ(Snmp::TrapManager::instance().queueLength(), 0u);
  snmp_close(receiver);
}

}  // namespace
