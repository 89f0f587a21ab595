// The startup review: slices bounded by the review quantum on the clock, the bookmark, and
// events for routes the review has not reached.

#include <vector>

#include "tests/unit/mroute_sm/MrouteTestUtil.h"

namespace MrouteSmTest {
namespace {

RouteKey routeN(int n) {
  return key(fmt::format("10.0.0.{}", n).c_str(), "239.1.1.1");
}

// Makes handling cost time: the clock moves 0.03 s whenever a route row is made, so a slice
// of the 0.1 s quantum ends after its fourth route. (Timers due meanwhile wait: a clock run
// from inside a timer callback fires nothing.)
class RowTicker : public Ent::ReactorOf<Snmp::PimMib> {
 public:
  RowTicker(Ent::Ptr<const Snmp::PimMib> mib, Ent::Ptr<Plat::ManualClock> clock)
      : ReactorOf(std::move(mib)), clock_(std::move(clock)) {}
  void onChange(const Ent::Change& c) override {
    if (c.attr == Snmp::PimMib::attrIpMcastRouteTable &&
        notifier()->ipMcastRouteTable(c.keyAs<Snmp::IpMcastRouteEntryIndex>())) {
      clock_->advance(0.03);
    }
  }

 private:
  Ent::Ptr<Plat::ManualClock> clock_;
};

class ReviewTest : public MrouteFixture {
 protected:
  // Routes 1..n, each with a joined interface, present before the machine starts.
  void routesAtStart(int n) {
    for (int i = 1; i <= n; ++i) intfIs(routeN(i), 1, true);
  }
  // Fires the review timer once.
  void slice() { clock->nowIs(std::max(clock->now(), clock->nextDeadline())); }
  bool complete(const RouteKey& k) const {
    return mcastRow(k) && mcastHop(k, 1) && mrouteHop(k, 1) && pimHop(k, 1) && sm->reviewedRoute(k);
  }
};

TEST_F(ReviewTest, WithoutRoutesTheFirstReviewFinishesAtOnce) {
  start();
  EXPECT_FALSE(sm->reviewCompleted());
  EXPECT_EQ(clock->nextDeadline(), clock->now());  // the first review is due at once
  Trace::Capture cap("PimSnmpAgent/8");
  slice();
  EXPECT_TRUE(sm->reviewCompleted());
  EXPECT_TRUE(cap.contains("Starting new review"));
  EXPECT_TRUE(cap.contains("Finished review"));
  EXPECT_EQ(clock->armedTimerCount(), 0u);
}

TEST_F(ReviewTest, SlicesStopOnARouteBoundaryAndResumeAtTheBookmark) {
  routesAtStart(10);
  start();
  RowTicker ticker(mib, clock);
  EXPECT_EQ(sm->routes(), 10u);
  Trace::Capture cap("PimSnmpAgent/8");

  slice();
  // 0.12 s had passed after the fourth route: that route is complete, the fifth untouched.
  for (int i = 1; i <= 4; ++i) EXPECT_TRUE(complete(routeN(i))) << i;
  EXPECT_EQ(mib->ipMcastRouteTable().size(), 4u);
  EXPECT_EQ(sm->reviewBookmark(), routeN(5));
  EXPECT_TRUE(cap.contains("Suspending review at: (10.0.0.5, 239.1.1.1)"));
  EXPECT_FALSE(sm->reviewCompleted());
  // The rest follows as soon as the timer allows, not after a credit.
  EXPECT_LE(clock->nextDeadline(), clock->now() + 0.1);

  slice();
  EXPECT_TRUE(cap.contains("Resuming review at: (10.0.0.5, 239.1.1.1)"));
  EXPECT_EQ(mib->ipMcastRouteTable().size(), 8u);
  EXPECT_EQ(sm->reviewBookmark(), routeN(9));
  slice();
  for (int i = 1; i <= 10; ++i) EXPECT_TRUE(complete(routeN(i))) << i;
  EXPECT_TRUE(sm->reviewCompleted());
  EXPECT_EQ(cap.count("Reviewing route"), 10u);
  EXPECT_EQ(cap.count("Finished review"), 1u);
  EXPECT_EQ(cap.count("Starting new review"), 1u);
  EXPECT_EQ(sm->reviewBookmark(), RouteKey(key("0.0.0.0", "0.0.0.0")));
}

TEST_F(ReviewTest, EventsBeforeTheReviewReachedARouteAreIgnored) {
  routesAtStart(6);
  start();
  RowTicker ticker(mib, clock);
  Trace::Capture cap("PimSnmpAgent/8");
  // Nothing reviewed yet: route and FIB events change nothing.
  status->routeIs(routeN(6))->routeIntfIs(eth(2));
  fibIs(routeN(6), {3});
  EXPECT_TRUE(
      cap.contains("Startup review is in process and has not processed (10.0.0.6, "
                   "239.1.1.1)"));
  EXPECT_EQ(rowCount(), 0u);

  slice();  // reviews routes 1..4
  // A reviewed route is handled at once, an unreached one still not.
  status->routeIs(routeN(2))->routeIntfIs(eth(1))->forwardIs(false);
  EXPECT_FALSE(pimHop(routeN(2), 1));
  status->routeIs(routeN(6))->routeIntfIs(eth(1))->forwardIs(false);
  EXPECT_FALSE(mcastRow(routeN(6)));

  slice();
  ASSERT_TRUE(sm->reviewCompleted());
  // The review took route 6 as it is now.
  EXPECT_FALSE(pimHop(routeN(6), 1));
  EXPECT_EQ(mcastHop(routeN(6), 2), nhStatePruned);
  EXPECT_EQ(mcastHop(routeN(6), 3), nhStateForwarding);
}

TEST_F(ReviewTest, RoutesAddedBehindTheWalkCauseAnotherReview) {
  routesAtStart(8);
  start();
  RowTicker ticker(mib, clock);
  Trace::Capture cap("PimSnmpAgent/8");
  slice();
  ASSERT_EQ(sm->reviewBookmark(), routeN(5));
  intfIs(routeN(0), 1, true);   // behind the walk
  intfIs(routeN(20), 1, true);  // ahead of it: taken in this pass
  EXPECT_FALSE(mcastRow(routeN(0)));

  slice();
  slice();
  EXPECT_TRUE(complete(routeN(20)));
  EXPECT_FALSE(mcastRow(routeN(0)));
  EXPECT_TRUE(cap.contains("Do another review"));
  EXPECT_FALSE(sm->reviewCompleted());

  slice();
  EXPECT_EQ(cap.count("Starting new review"), 2u);
  EXPECT_TRUE(sm->reviewCompleted());
  EXPECT_TRUE(complete(routeN(0)));
  EXPECT_EQ(cap.count("Reviewing route"), 10u);  // each route once
}

TEST_F(ReviewTest, RoutesDeletedDuringTheReviewKeepTheCountExact) {
  routesAtStart(8);
  start();
  RowTicker ticker(mib, clock);
  Trace::Capture cap("PimSnmpAgent/8");
  slice();
  status->routeDel(routeN(2));  // reviewed
  status->routeDel(routeN(7));  // not yet
  EXPECT_FALSE(mcastRow(routeN(2)));
  slice();
  EXPECT_TRUE(sm->reviewCompleted());
  EXPECT_FALSE(cap.contains("Do another review"));
  EXPECT_EQ(sm->reviewedRoutes(), 6u);
  EXPECT_EQ(mib->ipMcastRouteTable().size(), 6u);
}

}  // namespace
}  // namespace MrouteSmTest
