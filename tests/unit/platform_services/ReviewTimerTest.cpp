#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "platform/Clock/Clock.h"
#include "platform/Ent/Error.h"
#include "platform/Plat/ReviewTimer.h"
#include "platform/Plat/Timer.h"

namespace {

// A review loop as a state machine runs one: every firing is a review, after which it asks for
// the next one (or, while `slicesLeft` > 0, continues at once).
struct ReviewLoop : Ent::ReactorOf<Plat::Timer> {
  explicit ReviewLoop(Ent::Ptr<Plat::Timer> t) : ReactorOf(Ent::Ptr<const Plat::Timer>(t)) {}
  void onChange(const Ent::Change&) override {
    times.push_back(notifier()->clock()->now());
    if (slicesLeft > 0) {
      --slicesLeft;
      review->doUpdateNextReviewImmediately();
    } else {
      review->doUpdateNextReview();
    }
  }
  Ent::Ptr<Plat::ReviewTimer> review;
  int slicesLeft = 0;
  std::vector<double> times;
};

struct ReviewTimerTest : ::testing::Test {
  Ent::Ptr<Plat::ManualClock> clock = Ent::make<Plat::ManualClock>(1000.0);
  Ent::Ptr<Plat::Timer> timer = Ent::make<Plat::Timer>(clock, "review");
  // The state machine's values.
  Ent::Ptr<Plat::ReviewTimer> review = Ent::make<Plat::ReviewTimer>(timer, 1.0f, 2u, 0.1f, 3.0f);
};

void expectTimes(const std::vector<double>& got, const std::vector<double>& want) {
  ASSERT_EQ(got.size(), want.size());
  for (size_t i = 0; i < got.size(); ++i) EXPECT_NEAR(got[i], want[i], 1e-9) << "review " << i;
}

TEST_F(ReviewTimerTest, TwoCreditBurstThenOneReviewPerFillInterval) {
  EXPECT_EQ(review->credits(), 2.0);
  EXPECT_EQ(review->lastReview(), -std::numeric_limits<double>::infinity());
  EXPECT_DOUBLE_EQ(review->minDelay(), 0.1);  // float arguments read as their decimal values
  ReviewLoop loop(timer);
  loop.review = review;
  review->doUpdateNextReview();
  EXPECT_EQ(review->nextReview(), 1000.0);  // never reviewed, bucket full: at once
  clock->stepTo(1003.5);
  expectTimes(loop.times, {1000.0, 1000.1, 1001.0, 1002.0, 1003.0});
  EXPECT_NEAR(review->credits(), 0.5, 1e-9);
  EXPECT_EQ(review->lastReview(), 1003.0);

  // Idle for long: the bucket holds at most two credits, so the burst is two reviews again.
  timer->deadlineIs(Plat::kNever);
  clock->nowIs(1100.0);
  EXPECT_EQ(review->credits(), 2.0);
  loop.times.clear();
  review->doUpdateNextReview();
  clock->stepTo(1102.05);
  expectTimes(loop.times, {1100.0, 1100.1, 1101.0, 1102.0});
}

TEST_F(ReviewTimerTest, SlicesContinueAfterMinDelayWhateverTheCredits) {
  ReviewLoop loop(timer);
  loop.review = review;
  loop.slicesLeft = 4;
  review->doUpdateNextReview();
  clock->stepTo(1002.0);
  // Four slices 0.1 s apart run on an empty bucket; the next full review waits for a credit.
  expectTimes(loop.times, {1000.0, 1000.1, 1000.2, 1000.3, 1000.4, 1001.4});
  EXPECT_NEAR(review->credits(), 0.6, 1e-9);
}

TEST_F(ReviewTimerTest, MaxDelayBoundsTheWaitForACredit) {
  auto slow = Ent::make<Plat::ReviewTimer>(timer, 10.0f, 1u, 0.1f, 3.0f);
  ReviewLoop loop(timer);
  loop.review = slow;
  slow->doUpdateNextReview();
  clock->stepTo(1009.5);
  expectTimes(loop.times, {1000.0, 1003.0, 1006.0, 1009.0});
  // Reviews forced by maxDelay empty the bucket but never overdraw it.
  EXPECT_NEAR(slow->credits(), 0.05, 1e-9);
}

TEST_F(ReviewTimerTest, StampingLastReviewMovesTheBoundsWithoutSpendingCredit) {
  clock->nowIs(1005.0);
  review->lastReviewIs(1004.95);
  EXPECT_EQ(review->credits(), 2.0);
  review->doUpdateNextReview();
  EXPECT_DOUBLE_EQ(review->nextReview(), 1005.05);  // minDelay after the stamp
  review->doUpdateNextReviewImmediately();
  EXPECT_DOUBLE_EQ(review->nextReview(), 1005.05);
  review->lastReviewIs(1000.0);  // long ago: both bounds are past, so now
  review->doUpdateNextReviewImmediately();
  EXPECT_EQ(review->nextReview(), 1005.0);
  review->doUpdateNextReview();
  EXPECT_EQ(review->nextReview(), 1005.0);
}

TEST_F(ReviewTimerTest, FiringIsAccountedWhenTheLoopReadsItFirstOrLast) {
  // No reactor re-arms here: the firing is seen only through the next call.
  review->doUpdateNextReview();
  clock->nowIs(1000.0);
  EXPECT_EQ(timer->fireCount(), 1u);
  clock->nowIs(1000.5);
  EXPECT_NEAR(review->credits(), 1.5, 1e-9);
  EXPECT_EQ(review->lastReview(), 1000.0);
  EXPECT_NEAR(review->credits(), 1.5, 1e-9);  // reading twice spends nothing more
}

TEST_F(ReviewTimerTest, RejectsBadParameters) {
  EXPECT_THROW(Plat::ReviewTimer(nullptr, 1.0f, 2u, 0.1f, 3.0f), Ent::NullArgument);
  EXPECT_THROW(Plat::ReviewTimer(timer, 0.0f, 2u, 0.1f, 3.0f), std::invalid_argument);
  EXPECT_THROW(Plat::ReviewTimer(timer, 1.0f, 0u, 0.1f, 3.0f), std::invalid_argument);
  EXPECT_THROW(Plat::ReviewTimer(timer, 1.0f, 2u, 3.5f, 3.0f), std::invalid_argument);
  EXPECT_THROW(Plat::ReviewTimer(timer, 1.0f, 2u, -0.1f, 3.0f), std::invalid_argument);
}

}  // namespace
