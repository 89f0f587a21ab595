// What walks cost: a full walk of a large table steps once per answer, a GET starts at its
// own row, and a walk follows its table changing under it.

#include "PimSnmp/MibTable/IndexParts.h"
#include "PimSnmp/MibTable/MibTable.h"
#include "platform/Snmp/TableCounters.h"
#include "platform/Trace/Capture.h"
#include "tests/unit/mib_modules/Harness.h"

namespace MibTest {
namespace {

using namespace Routing::Pim::Snmp;
using ::Snmp::TableCounters;

constexpr size_t kRows = 2000;

// Walks `table` in "red" with GETBULK; returns how many answers fell inside it.
size_t bulkWalk(const Oids& table) {
  size_t inside = 0;
  Oids cursor = table;
  for (int pdu = 0; pdu < 1000; ++pdu) {
    const Response r = ask(SNMP_MSG_GETBULK, {cursor}, "red", 100);
    if (r.vars.empty()) return inside;
    for (const Var& v : r.vars) {
      if (v.type == SNMP_ENDOFMIBVIEW || v.name.size() <= table.size() ||
          !std::equal(table.begin(), table.end(), v.name.begin())) {
        return inside;
      }
      ++inside;
      cursor = v.name;
    }
  }
  return inside;
}

class WalkCostTest : public MibModulesTest {};

TEST_F(WalkCostTest, FullWalkIsLinearAndGetStartsAtItsRow) {
  for (int32_t i = 1; i <= static_cast<int32_t>(kRows); ++i) {
    red_.store->pimComponentTableIs(i, nullptr, nullptr);
  }
  const size_t answers = 4 * kRows;  // four served columns
  {
    TableCounters::orderedIterCntrsClear();
    Trace::Capture capture("PimMIB/2");
    EXPECT_EQ(bulkWalk(kPimComponentTable), answers);
    // Each step starts where the last one did, bar the first of each column and PDU.
    EXPECT_GE(TableCounters::orderedIterCntr("pimComponentTable", TableCounters::cursorMatch),
              answers - 100);
    // One descent per answer, straight to the row after the one asked from (plus one from the
    // top per column): no row is visited twice, none is stepped over.
    const size_t starts = capture.count("pimComponentTable_get_first_data_point - allocated");
    EXPECT_GE(starts, answers);
    EXPECT_LE(starts, answers + 10);
    EXPECT_LE(capture.count("pimComponentTable_get_next_data_point - advancing"), 10u);
  }
  TableCounters::orderedIterCntrsClear();
  Trace::Capture capture("PimMIB/2");
  Response r = ask(SNMP_MSG_GET, {column(kPimComponentTable, 5, {1500})}, "red");
  ASSERT_EQ(r.vars.size(), 1u);
  expectInteger(r.vars[0], ASN_INTEGER, 1);
  EXPECT_EQ(TableCounters::orderedIterCntr("pimComponentTable", TableCounters::hintMatch), 1u);
  EXPECT_TRUE(capture.contains("hintMatched=true"));
  EXPECT_EQ(capture.count("advancing"), 0u);
  // A missing row costs a descent too.
  r = ask(SNMP_MSG_GET, {column(kPimComponentTable, 5, {kRows + 7})}, "red");
  ASSERT_EQ(r.vars.size(), 1u);
  EXPECT_EQ(r.vars[0].type, SNMP_NOSUCHINSTANCE);
  EXPECT_EQ(TableCounters::orderedIterCntr("pimComponentTable", TableCounters::hintMiss), 1u);
  EXPECT_EQ(capture.count("advancing"), 0u);
}

// The cursor only ever names a row of the collection as it is now: not after the row was
// replaced, and not in another context's table with the same keys.
TEST_F(WalkCostTest, CursorIsTrustedOnlyWhileItsTableIsUnchanged) {
  for (int32_t i = 1; i <= 5; ++i) {
    red_.store->pimComponentTableIs(i, nullptr, nullptr);
    default_.store->pimComponentTableIs(i, nullptr, nullptr);
  }
  auto next = [](const std::string& context, oid after) {
    const Response r = ask(SNMP_MSG_GETNEXT, {column(kPimComponentTable, 5, {after})}, context);
    return r.vars.size() == 1 ? r.vars[0].name : Oids{};
  };
  auto cursorMatches = [] {
    return TableCounters::orderedIterCntr("pimComponentTable", TableCounters::cursorMatch);
  };
  TableCounters::orderedIterCntrsClear();
  EXPECT_EQ(next("red", 2), column(kPimComponentTable, 5, {3}));
  EXPECT_EQ(next("red", 3), column(kPimComponentTable, 5, {4}));
  EXPECT_EQ(cursorMatches(), 1u);
  // The same key in the default context's table: found through its own hash index.
  EXPECT_EQ(next("", 4), column(kPimComponentTable, 5, {5}));
  EXPECT_EQ(cursorMatches(), 1u);
  EXPECT_EQ(next("red", 3), column(kPimComponentTable, 5, {4}));
  // Row 4 replaced by a new one under the same key: the kept position is gone with it.
  red_.store->pimComponentTableDel(4);
  red_.store->pimComponentTableIs(4, nullptr, nullptr);
  EXPECT_EQ(next("red", 4), column(kPimComponentTable, 5, {5}));
  EXPECT_EQ(cursorMatches(), 1u);
  EXPECT_EQ(TableCounters::orderedIterCntr("pimComponentTable", TableCounters::hintMatch), 5u);
}

// IpAddress index values reach the iterator as hints too (net-snmp's build_oid would read them
// back as host-order integers), so this walk is linear as well.
TEST_F(WalkCostTest, FullWalkOfAnIpAddressIndexedTableIsLinear) {
  for (uint32_t i = 0; i < kRows; ++i) {
    red_.store->pimNeighborTableIs(Lanet::IpGenAddr::v4(0x0A000001u + (i / 200 << 8) + i % 200),
                                   nullptr);
  }
  Trace::Capture capture("PimMIB/2");
  EXPECT_EQ(bulkWalk(kPimNeighborTable), 4 * kRows);
  EXPECT_LE(capture.count("pimNeighborTable_get_next_data_point - advancing"), 10u);
}

// The iterator callbacks driven directly, the table changing in the middle of one walk.
struct ChangingTable : TableTraits<IpMRouteInterfaceEntry, int32_t> {
  static const Def& def() {
    using Entry = IpMRouteInterfaceEntry;
    static Trace::Handle trace("mibTableTest");
    static const Def d{
        "changingTable",
        "S32",
        {1, 3, 6, 1, 4, 1, 99999, 1},
        HANDLER_CAN_RONLY,
        2,
        2,
        {2},
        indexParts<Index>({{"changingIndex", "index=", Mib::kImported}}),
        {PIMSNMP_COLUMN(2, "changingTtl", "", ::Snmp::S32ToAsnInteger, ASN_INTEGER, e.ttl(), {})},
        [](const PimMib& m) -> const Def::Coll& { return m.ipMRouteInterfaceTable(); },
        &trace};
    return d;
  }
};

TEST(MibTableWalkTest, TableChangesMidWalkAreFollowedInKeyOrder) {
  using Table = MibTable<ChangingTable>;
  const Ent::Ptr<PimMib> store = PimMibIs("walk");
  for (int32_t i : {10, 20, 30, 40}) store->ipMRouteInterfaceTableIs(i);
  netsnmp_iterator_info iinfo{};
  iinfo.myvoid = store.get();
  netsnmp_variable_list* vars = nullptr;
  snmp_varlist_add_variable(&vars, nullptr, 0, ASN_INTEGER, nullptr, 0);
  TableCounters::orderedIterCntrsClear();

  void* loop = nullptr;
  void* data = nullptr;
  std::vector<long> seen;
  for (auto* v = Table::getFirstDataPoint(&loop, &data, vars, &iinfo); v;
       v = Table::getNextDataPoint(&loop, &data, vars, &iinfo)) {
    seen.push_back(*v->val.integer);
    if (seen.back() != 20) continue;
    // The handler's record keeps the row readable after it leaves the table.
    void* held = Table::makeDataContext(loop, &iinfo);
    store->ipMRouteInterfaceTableDel(20);
    store->ipMRouteInterfaceTableDel(30);
    for (int32_t i : {25, 5, 50}) store->ipMRouteInterfaceTableIs(i);
    EXPECT_EQ(static_cast<Table::DataContext*>(held)->ifIndex(), 20);
    Table::freeDataContext(held, &iinfo);
  }
  EXPECT_EQ(seen, (std::vector<long>{10, 20, 25, 40, 50}));
  EXPECT_EQ(TableCounters::orderedIterCntr("changingTable", TableCounters::walkResync), 1u);
  EXPECT_EQ(TableCounters::orderedIterCntr("changingTable", TableCounters::walkEnd), 1u);
  Table::freeLoopContextAtEnd(loop, &iinfo);

  // An empty table: no row, yet a loop context for the iterator to free.
  store->ipMRouteInterfaceTableDelAll();
  loop = nullptr;
  EXPECT_EQ(Table::getFirstDataPoint(&loop, &data, vars, &iinfo), nullptr);
  ASSERT_NE(loop, nullptr);
  Table::freeLoopContextAtEnd(loop, &iinfo);
  snmp_free_varbind(vars);
}

}  // namespace
}  // namespace MibTest
