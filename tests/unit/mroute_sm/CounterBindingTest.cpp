// The counter columns of ipMcastRouteTable and ipMRouteTable read the FIB entry the machine
// binds to the rows: they must answer what the counter helper answers by key, through every
// change of the entry, and never read an entry after the machine stops following the FIB.

#include <cstdint>

#include "PimSnmp/PimSnmpHelpers/PimSnmpHelpers.h"
#include "platform/McastCommon/FibMrouteCounterHelper.h"
#include "tests/unit/mroute_sm/MrouteTestUtil.h"

namespace MrouteSmTest {
namespace {

const RouteKey kSG = key("10.0.0.1", "239.1.1.1");
const RouteKey kOther = key("10.0.0.2", "239.1.1.1");

class CounterBindingTest : public MrouteFixture {
 protected:
  CounterBindingTest() {
    helper->statusIs(L3::VrfName("red"), fib);
    Snmp::pimSnmpHelpers()->mrouteCounterHelperIs(AddressFamily::ipv4, helper);
  }
  ~CounterBindingTest() override {
    Snmp::pimSnmpHelpers()->mrouteCounterHelperDel(AddressFamily::ipv4);
  }

  // A joined route on Ethernet2 whose FIB entry counts `packets` and `bytes`.
  void countedRouteIs(const RouteKey& k, uint64_t packets, uint64_t bytes) {
    intfIs(k, 2, true);
    fibCountersIs(k, packets, bytes);
  }
  void fibCountersIs(const RouteKey& k, uint64_t packets, uint64_t bytes, int oif = 1) {
    Fib::Route r;
    r.oifIs(Fib::OifIndex(static_cast<uint16_t>(oif - 1)));
    r.countersIs(packets, bytes);
    fib->routeIs(Routing::Pim::pimRouteKeyToMfibKey(k), r);
  }
  const Fib::Route* fibEntry(const RouteKey& k) const {
    auto it = fib->route().find(Routing::Pim::pimRouteKeyToMfibKey(k));
    return it == fib->route().end() ? nullptr : &it->second;
  }
  Ent::Ptr<Snmp::IpMRouteEntry> mrouteRow(const RouteKey& k) const {
    return mib->ipMRouteTable(Snmp::pimIpMrouteEntryIndexFromRouteKey(k));
  }
  // Both rows of `k` read `packets` and `bytes`, as the helper does by key.
  void expectCounters(const RouteKey& k, uint64_t packets, uint64_t bytes) const {
    const auto byKey = helper->counters(L3::VrfName("red"), Routing::Pim::pimRouteKeyToMfibKey(k));
    EXPECT_EQ(byKey.packets, packets);
    EXPECT_EQ(byKey.bytes, bytes);
    for (const Snmp::RouteEntryBase* row :
         {static_cast<const Snmp::RouteEntryBase*>(mcastRow(k).get()),
          static_cast<const Snmp::RouteEntryBase*>(mrouteRow(k).get())}) {
      ASSERT_NE(row, nullptr);
      EXPECT_EQ(row->pkts(), packets);
      EXPECT_EQ(row->octets(), bytes);
    }
  }
  void expectBoundTo(const RouteKey& k, const Fib::Route* entry) const {
    EXPECT_TRUE(mcastRow(k)->fibRouteBound());
    EXPECT_TRUE(mrouteRow(k)->fibRouteBound());
    EXPECT_EQ(mcastRow(k)->fibRoute(), entry);
    EXPECT_EQ(mrouteRow(k)->fibRoute(), entry);
  }

  Ent::Ptr<McastCommonMrouteCounterHelper::FibMrouteCounterHelper> helper =
      Ent::make<McastCommonMrouteCounterHelper::FibMrouteCounterHelper>();
};

TEST_F(CounterBindingTest, RowsFollowTheirFibEntryReplacedRemovedAndReAdded) {
  countedRouteIs(kSG, 5, 500);
  startAndReview();
  expectBoundTo(kSG, fibEntry(kSG));
  expectCounters(kSG, 5, 500);

  // Replaced with other OIFs and counters: the entry is updated where it is.
  fibCountersIs(kSG, 7, 700, 3);
  expectBoundTo(kSG, fibEntry(kSG));
  expectCounters(kSG, 7, 700);
  // Counter updates raise no event and need none.
  fib->routeCountersIs(Routing::Pim::pimRouteKeyToMfibKey(kSG), 9, 0x100000000ull);
  expectCounters(kSG, 9, 0x100000000ull);

  // Removed while the route stays: the rows stay, bound to no entry.
  fib->routeDel(Routing::Pim::pimRouteKeyToMfibKey(kSG));
  expectBoundTo(kSG, nullptr);
  expectCounters(kSG, 0, 0);

  // Re-added: a new entry somewhere else in memory.
  fibCountersIs(kSG, 11, 1100);
  expectBoundTo(kSG, fibEntry(kSG));
  expectCounters(kSG, 11, 1100);
}

TEST_F(CounterBindingTest, RouteArrivingAfterItsFibEntryIsBound) {
  startAndReview();
  fibCountersIs(kSG, 3, 300);
  EXPECT_EQ(mcastRow(kSG), nullptr);  // no route yet, no row
  intfIs(kSG, 2, true);
  expectBoundTo(kSG, fibEntry(kSG));
  expectCounters(kSG, 3, 300);
  // A route without a FIB entry is bound to none.
  intfIs(kOther, 2, true);
  expectBoundTo(kOther, nullptr);
  expectCounters(kOther, 0, 0);
}

TEST_F(CounterBindingTest, EntriesStayBoundWhenTheFibGrowsAndOtherEntriesGo) {
  countedRouteIs(kSG, 5, 500);
  countedRouteIs(kOther, 6, 600);
  startAndReview();
  // Enough entries to rehash the FIB's map several times over.
  for (uint32_t i = 1; i <= 5000; ++i) {
    Fib::Route r;
    r.countersIs(i, i);
    fib->routeIs(Routing::Pim::pimRouteKeyToMfibKey(RouteKey{Lanet::IpGenAddr::v4(0x0A010000u + i),
                                                             Lanet::IpGenAddr::v4(0xEF020202u)}),
                 r);
  }
  fib->routeDel(Routing::Pim::pimRouteKeyToMfibKey(kOther));
  expectBoundTo(kSG, fibEntry(kSG));
  expectCounters(kSG, 5, 500);
  expectCounters(kOther, 0, 0);
}

TEST_F(CounterBindingTest, NoHelperForTheFamilyReadsZeroEvenWhenBound) {
  countedRouteIs(kSG, 5, 500);
  startAndReview();
  Snmp::pimSnmpHelpers()->mrouteCounterHelperDel(AddressFamily::ipv4);
  EXPECT_TRUE(mcastRow(kSG)->fibRouteBound());
  EXPECT_EQ(mcastRow(kSG)->pkts(), 0u);
  EXPECT_EQ(mrouteRow(kSG)->octets(), 0u);
}

TEST_F(CounterBindingTest, MachineGoneOrGoingLeavesTheRowsToTheHelper) {
  countedRouteIs(kSG, 5, 500);
  countedRouteIs(kOther, 6, 600);
  startAndReview();

  // While the machine is being deleted it reconciles nothing, but an entry that changes is
  // no longer read directly.
  sm->isDeletingIs(true);
  fib->routeDel(Routing::Pim::pimRouteKeyToMfibKey(kOther));
  EXPECT_FALSE(mcastRow(kOther)->fibRouteBound());
  EXPECT_FALSE(mrouteRow(kOther)->fibRouteBound());
  expectCounters(kOther, 0, 0);
  EXPECT_TRUE(mcastRow(kSG)->fibRouteBound());
  sm->isDeletingIs(false);

  sm.reset();
  EXPECT_FALSE(mcastRow(kSG)->fibRouteBound());
  EXPECT_FALSE(mrouteRow(kSG)->fibRouteBound());
  expectCounters(kSG, 5, 500);
  fib->routeDel(Routing::Pim::pimRouteKeyToMfibKey(kSG));
  expectCounters(kSG, 0, 0);
  fibCountersIs(kSG, 8, 800);
  expectCounters(kSG, 8, 800);
}

TEST_F(CounterBindingTest, RowsLeavingTheStoreReadZero) {
  countedRouteIs(kSG, 5, 500);
  startAndReview();
  auto row = mcastRow(kSG);
  auto mroute = mrouteRow(kSG);
  status->routeDel(kSG);
  EXPECT_EQ(mcastRow(kSG), nullptr);
  EXPECT_EQ(row->pkts(), 0u);
  EXPECT_EQ(mroute->octets(), 0u);
}

}  // namespace
}  // namespace MrouteSmTest
