// The store's table rules, once per row type: create-or-get, conflicting inputs, removal by
// key and iterator, emptying, notification and the route rows' back pointer.

#include <gtest/gtest.h>

#include <optional>
#include <tuple>
#include <type_traits>
#include <vector>

#include "PimSnmp/PimSnmp/PimMib.h"
#include "PimSnmp/PimSnmp/StoreTable.h"
#include "platform/Ent/Error.h"
#include "platform/IntfSnmp/IfMib.h"
#include "platform/Routing/Pim/Bsr/Config.h"
#include "platform/Routing/Pim/Bsr/Status.h"
#include "platform/Routing/Pim/Intf.h"
#include "platform/Routing/Pim/Neighbor.h"
#include "platform/Routing/Pim/RpCandidate.h"
#include "tests/unit/pimsnmp_store/StoreTestUtil.h"

namespace {

using namespace Routing::Pim::Snmp;
using namespace PimSnmpStoreTest;
namespace Pim = Routing::Pim;
using Lanet::IntfId;
using Pim::RouteKey;

RouteKey routeKey(int i) {
  return sg("10.1.1.1", i == 1 ? "239.1.1.1" : i == 2 ? "239.1.1.2" : "239.1.1.3");
}

// Each case names a row type, makes its key number i (1 < 2 < 3 in index order) and two
// different sets of inputs (none for rows without inputs).
struct PimInterfaceCase {
  using Row = PimInterfaceEntry;
  static int32_t key(int i) { return i; }
  static auto inputs(int v) {
    return std::tuple{Ent::Ptr<const Pim::Intf>(Ent::make<Pim::Intf>(IntfId("Ethernet1"))),
                      Ent::Ptr<const Pim::Bsr::Status>(
                          v ? Ent::make<Pim::Bsr::Status>(L3::VrfName("red")) : nullptr)};
  }
};
struct PimNeighborCase {
  using Row = PimNeighborEntry;
  static Lanet::IpGenAddr key(int i) {
    return v4(i == 1 ? "9.0.0.1" : i == 2 ? "10.0.0.2" : "10.0.0.10");
  }
  static auto inputs(int v) {
    return std::tuple{
        Ent::Ptr<const Pim::Neighbor>(v ? Ent::make<Pim::Neighbor>(v4("1.1.1.1")) : nullptr)};
  }
};
struct PimIpMrouteCase {
  using Row = PimIpMrouteEntry;
  static PimIpMrouteEntryIndex key(int i) { return pimIpMrouteEntryIndexFromRouteKey(routeKey(i)); }
  static auto inputs(int v) {
    return std::tuple{Ent::Ptr<const Pim::SparseMode::Route>(v ? route(routeKey(1)) : nullptr)};
  }
};
struct PimIpMrouteNextHopCase {
  using Row = PimIpMrouteNextHopEntry;
  static PimIpMrouteNextHopEntryIndex key(int i) {
    return pimIpMrouteNextHopEntryIndexFromRouteKey(routeKey(1), i == 3 ? 10 : i);
  }
  static auto inputs(int v) {
    return std::tuple{Ent::Ptr<const Pim::SparseMode::Intf>(
        v ? Ent::make<Pim::SparseMode::Intf>(IntfId("Ethernet1")) : nullptr)};
  }
};
struct PimRPSetCase {
  using Row = PimRPSetEntry;
  static PimRPSetEntryIndex key(int i) {
    return {1, v4("224.0.0.0"), maskFromLength(4),
            v4(i == 1   ? "4.4.4.4"
               : i == 2 ? "5.5.5.5"
                        : "5.5.5.6")};
  }
  static auto inputs(int v) {
    return std::tuple{v ? Pim::rpTypeBsr : Pim::rpTypeStatic, Ent::Ptr<const Pim::RpCandidate>()};
  }
};
struct PimCandidateRPCase {
  using Row = PimCandidateRPEntry;
  static PimCandidateRPEntryIndex key(int i) { return {v4("239.0.0.0"), maskFromLength(7 + i)}; }
  static auto inputs(int v) {
    return std::tuple{
        Ent::Ptr<const Pim::RpCandidate>(v ? Ent::make<Pim::RpCandidate>(v4("3.3.3.3")) : nullptr)};
  }
};
struct PimComponentCase {
  using Row = PimComponentEntry;
  static int32_t key(int i) { return i; }
  static auto inputs(int v) {
    return std::tuple{Ent::Ptr<const Pim::Bsr::Status>(),
                      Ent::Ptr<const Pim::Bsr::Config>(
                          v ? Ent::make<Pim::Bsr::Config>(L3::VrfName("red")) : nullptr)};
  }
};
template <class R, class Index>
struct RouteCase {
  using Row = R;
  static Index key(int i) {
    if constexpr (std::is_same_v<Index, IpMcastRouteEntryIndex>) {
      return IpMcastRouteEntryIndex::fromRouteKey(routeKey(i));
    } else {
      return pimIpMrouteEntryIndexFromRouteKey(routeKey(i));
    }
  }
  static auto inputs(int v) {
    return std::tuple{Ent::Ptr<const Pim::SparseMode::Route>(route(routeKey(1))),
                      Ent::Ptr<const IntfSnmp::IfMib>(v ? Ent::make<IntfSnmp::IfMib>() : nullptr)};
  }
};
template <class R, class Index>
struct NextHopCase {
  using Row = R;
  static Index key(int i) {
    if constexpr (std::is_same_v<Index, IpMcastRouteNextHopEntryIndex>) {
      return IpMcastRouteNextHopEntryIndex::fromRouteKeyAndIfIndex(routeKey(1), i == 3 ? 10 : i);
    } else {
      return pimIpMrouteNextHopEntryIndexFromRouteKey(routeKey(1), i == 3 ? 10 : i);
    }
  }
  static auto inputs(int v) { return std::tuple{v ? nhStateForwarding : nhStatePruned}; }
};
struct IpMRouteInterfaceCase {
  using Row = IpMRouteInterfaceEntry;
  static int32_t key(int i) { return i == 3 ? 100 : i; }
  static std::tuple<> inputs(int) { return {}; }
};
struct IpMcastInterfaceCase {
  using Row = IpMcastInterfaceEntry;
  static IpMcastInterfaceEntryIndex key(int i) {
    return {i == 3 ? ::Snmp::InetVersion::ipv6 : ::Snmp::InetVersion::ipv4, i};
  }
  static std::tuple<> inputs(int) { return {}; }
};

template <class Case>
class TableTest : public ::testing::Test {
 protected:
  using Row = typename Case::Row;
  using Key = decltype(Case::key(1));
  static constexpr Ent::AttrId kAttr = 100;
  static constexpr bool kHasInputs = std::tuple_size_v<decltype(Case::inputs(0))> > 0;

  template <class Table, class Inputs>
  static Ent::Ptr<Row> isIn(Table& t, int i, const Inputs& inputs) {
    const Key k = Case::key(i);
    return std::apply([&](const auto&... in) { return t.is(k, in...); }, inputs);
  }
  Ent::Ptr<Row> is(int i, int v) { return isIn(table, i, Case::inputs(v)); }
  std::vector<Key> keys() const {
    std::vector<Key> out;
    for (const auto& row : table) out.push_back(row->key());
    return out;
  }
  static const PimMib* backPointer(const Row& row) {
    if constexpr (requires { row.pimMib(); }) {
      return row.pimMib();
    } else {
      return nullptr;
    }
  }
  static constexpr bool kHasBackPointer = requires(const Row& row) { row.pimMib(); };

  Ent::Ptr<PimMib> mib = pimMibFactory("red");
  StoreTable<Key, Row> table{mib.get(), kAttr, "testTable"};
};

using Cases = ::testing::Types<PimInterfaceCase, PimNeighborCase, PimIpMrouteCase,
                               PimIpMrouteNextHopCase, PimRPSetCase, PimCandidateRPCase,
                               PimComponentCase, RouteCase<IpMRouteEntry, PimIpMrouteEntryIndex>,
                               RouteCase<IpMcastRouteEntry, IpMcastRouteEntryIndex>,
                               NextHopCase<IpMRouteNextHopEntry, PimIpMrouteNextHopEntryIndex>,
                               NextHopCase<IpMcastRouteNextHopEntry, IpMcastRouteNextHopEntryIndex>,
                               IpMRouteInterfaceCase, IpMcastInterfaceCase>;
TYPED_TEST_SUITE(TableTest, Cases);

TYPED_TEST(TableTest, IsMakesTheRowOnceAndRefusesOtherInputs) {
  ChangeLog<typename TestFixture::Key> log(this->mib, TestFixture::kAttr);
  const auto inputs = TypeParam::inputs(0);
  auto row = this->isIn(this->table, 2, inputs);
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(row->key(), TypeParam::key(2));
  EXPECT_EQ(this->isIn(this->table, 2, inputs), row) << "the same inputs: the same row";
  if constexpr (TestFixture::kHasInputs) {
    EXPECT_THROW(this->is(2, 1), Ent::Error);
  }
  EXPECT_EQ(this->table.find(TypeParam::key(2)), row.get()) << "a refusal keeps the row";
  EXPECT_EQ(this->table.size(), 1u);
  EXPECT_EQ(log.keys, std::vector{TypeParam::key(2)}) << "one insert, one change";
  if constexpr (TestFixture::kHasBackPointer) {
    EXPECT_EQ(row->pimMib(), this->mib.get());
  }
}

TYPED_TEST(TableTest, RowsIterateInIndexOrder) {
  for (int i : {3, 1, 2}) this->is(i, 0);
  EXPECT_EQ(this->keys(), (std::vector{TypeParam::key(1), TypeParam::key(2), TypeParam::key(3)}));
  EXPECT_EQ(this->table.findNext(TypeParam::key(1))->key(), TypeParam::key(2));
}

TYPED_TEST(TableTest, EraseReturnsTheRowAndDetachesIt) {
  for (int i : {1, 2, 3}) this->is(i, 0);
  ChangeLog<typename TestFixture::Key> log(this->mib, TestFixture::kAttr);
  const uint64_t version = this->table.version();

  ASSERT_NE(this->table.erase(TypeParam::key(2)), nullptr);
  auto absent = this->table.erase(TypeParam::key(2));
  EXPECT_EQ(absent, nullptr) << "absent: nothing to return";
  EXPECT_EQ(log.keys, std::vector{TypeParam::key(2)}) << "absent: no notification";
  EXPECT_EQ(this->table.version(), version + 1);

  auto first = this->table.erase(this->table.begin());
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->key(), TypeParam::key(1));
  EXPECT_EQ(TestFixture::backPointer(*first), nullptr);

  auto kept = Ent::Ptr<typename TestFixture::Row>(this->table.find(TypeParam::key(3)));
  this->table.clear();
  EXPECT_TRUE(this->table.empty());
  EXPECT_EQ(TestFixture::backPointer(*kept), nullptr) << "cleared rows are detached too";
  EXPECT_EQ(log.keys, (std::vector{TypeParam::key(2), TypeParam::key(1), TypeParam::key(3)}));
}

TYPED_TEST(TableTest, RowsOutlivingTheTableAreDetached) {
  std::optional<StoreTable<typename TestFixture::Key, typename TestFixture::Row>> table;
  table.emplace(this->mib.get(), TestFixture::kAttr, "testTable");
  auto row = this->isIn(*table, 1, TypeParam::inputs(0));
  table.reset();
  EXPECT_EQ(TestFixture::backPointer(*row), nullptr);
  EXPECT_EQ(row->refCount(), 1u) << "the table let go of its reference";
}

}  // namespace
