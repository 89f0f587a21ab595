#include <gtest/gtest.h>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <string>
#include <thread>
#include <vector>

#include "platform/Clock/Clock.h"
#include "platform/Ent/Error.h"
#include "platform/Plat/AgentLoopClock.h"
#include "platform/Plat/Timer.h"
#include "tests/unit/platform_services/ServicesTestUtil.h"

namespace {

using PlatformServicesTest::Counter;

// Logs "<name>@<clock time>" each time its timer fires; `then` runs inside the callback.
struct FireLog : Ent::ReactorOf<Plat::Timer> {
  FireLog(Ent::Ptr<Plat::Timer> t, std::vector<std::string>* log, std::function<void()> then = {})
      : ReactorOf(Ent::Ptr<const Plat::Timer>(t)),
        timer(std::move(t)),
        log(log),
        then(std::move(then)) {}
  void onChange(const Ent::Change& c) override {
    if (c.attr != Plat::Timer::attrFired) return;
    log->push_back(timer->name() + "@" + std::to_string(static_cast<int>(timer->clock()->now())));
    if (then) then();
  }
  Ent::Ptr<Plat::Timer> timer;
  std::vector<std::string>* log;
  std::function<void()> then;
};

struct TimerTest : ::testing::Test {
  Ent::Ptr<Plat::ManualClock> clock = Ent::make<Plat::ManualClock>(100.0);
  std::vector<std::string> log;
  Ent::Ptr<Plat::Timer> timer(const std::string& name, double deadline) {
    auto t = Ent::make<Plat::Timer>(clock, name);
    t->deadlineIs(deadline);
    return t;
  }
};

TEST_F(TimerTest, FiresOnceInDeadlineOrderThenFifoAmongEqualDeadlines) {
  auto c = timer("c", 103), a = timer("a", 101), b1 = timer("b1", 102), b2 = timer("b2", 102);
  auto late = timer("late", 110);
  FireLog la(a, &log), lb1(b1, &log), lb2(b2, &log), lc(c, &log), ll(late, &log);
  EXPECT_EQ(clock->nextDeadline(), 101);
  clock->advance(0.5);
  EXPECT_TRUE(log.empty());
  clock->nowIs(105);  // all due at once: deadline order, not creation order
  EXPECT_EQ(log, (std::vector<std::string>{"a@105", "b1@105", "b2@105", "c@105"}));
  EXPECT_FALSE(a->armed());
  EXPECT_EQ(a->deadline(), Plat::kNever);
  EXPECT_EQ(a->fireCount(), 1u);
  EXPECT_EQ(a->lastFired(), 105);
  clock->advance(1);  // fired timers stay quiet
  EXPECT_EQ(log.size(), 4u);
  EXPECT_EQ(clock->armedTimerCount(), 1u);
  EXPECT_EQ(clock->nextDeadline(), 110);
}

TEST_F(TimerTest, StepToFiresEachTimerAtItsOwnDeadline) {
  auto a = timer("a", 101);
  FireLog la(a, &log, [&] { a->deadlineIs(a->clock()->now() + 2); });  // periodic
  auto b = timer("b", 104);
  FireLog lb(b, &log);
  clock->stepTo(106);
  EXPECT_EQ(log, (std::vector<std::string>{"a@101", "a@103", "b@104", "a@105"}));
  EXPECT_EQ(clock->now(), 106);
  EXPECT_EQ(a->deadline(), 107);
}

TEST_F(TimerTest, RearmingForThePastInsideACallbackWaitsForTheNextRun) {
  auto a = timer("a", 101);
  FireLog la(a, &log, [&] { a->deadlineIs(0); });
  clock->nowIs(101);
  EXPECT_EQ(log.size(), 1u);
  EXPECT_EQ(a->deadline(), 0);
  EXPECT_EQ(clock->runDueTimers(), 1u);
  EXPECT_EQ(clock->runDueTimers(), 1u);
  EXPECT_EQ(log.size(), 3u);
}

TEST_F(TimerTest, CallbacksMayCancelRearmOrDestroyOtherDueTimers) {
  auto b = timer("b", 102), c = timer("c", 102), d = timer("d", 102);
  Ent::Ptr<Plat::Timer> held = d;
  auto lb = std::make_unique<FireLog>(b, &log);
  auto lc = std::make_unique<FireLog>(c, &log);
  auto ld = std::make_unique<FireLog>(d, &log);
  auto a = timer("a", 101);
  FireLog la(a, &log, [&] {
    c->deadlineIs(Plat::kNever);  // cancelled: must not fire
    b->deadlineIs(101.5);         // re-armed: waits for the next run, though due
    ld.reset();                   // the last references to d go
    held.reset();
    d.reset();
  });
  clock->nowIs(102);
  EXPECT_EQ(log, (std::vector<std::string>{"a@102"}));
  EXPECT_EQ(clock->armedTimerCount(), 1u);
  clock->runDueTimers();
  EXPECT_EQ(log, (std::vector<std::string>{"a@102", "b@102"}));
  EXPECT_EQ(clock->armedTimerCount(), 0u);
}

TEST_F(TimerTest, DestroyingOrCancellingDisarmsAndNanCancels) {
  auto a = timer("a", 105);
  a.reset();
  EXPECT_EQ(clock->armedTimerCount(), 0u);
  auto b = timer("b", 105);
  b->deadlineIs(std::numeric_limits<double>::quiet_NaN());
  EXPECT_FALSE(b->armed());
  EXPECT_EQ(clock->nextDeadline(), Plat::kNever);
  EXPECT_THROW(Plat::Timer(nullptr), Ent::NullArgument);
}

TEST_F(TimerTest, NextDeadlineIsAnnouncedOnlyWhenTheEarliestMovesAndOncePerRun) {
  Counter rx(clock);
  auto a = timer("a", 110);
  EXPECT_EQ(rx.byAttr[Plat::Clock::attrNextDeadline], 1u);
  auto b = timer("b", 120);  // later than the earliest
  EXPECT_EQ(rx.byAttr[Plat::Clock::attrNextDeadline], 1u);
  auto c = timer("c", 105);
  EXPECT_EQ(rx.byAttr[Plat::Clock::attrNextDeadline], 2u);
  c->deadlineIs(106);  // a re-arm is one move
  EXPECT_EQ(rx.byAttr[Plat::Clock::attrNextDeadline], 3u);
  clock->nowIs(115);  // c and a fire: one announcement, then the clock's attrNow
  EXPECT_EQ(rx.byAttr[Plat::Clock::attrNextDeadline], 4u);
  EXPECT_EQ(rx.byAttr[Plat::Clock::attrNow], 1u);
  EXPECT_EQ(clock->nextDeadline(), 120);
}

// The agent loop's alarm follows the next deadline and runs due timers of a real clock.
TEST(AgentLoopClockTest, AlarmRunsDueTimersAndFollowsTheNextDeadline) {
  auto clock = Ent::make<Plat::SystemClock>();
  Plat::attachClockToAgentLoop(clock);
  EXPECT_EQ(Plat::agentLoopClock(), clock);
  struct timeval delay;
  EXPECT_EQ(get_next_alarm_delay_time(&delay), 0);  // nothing armed: no alarm

  std::vector<std::string> log;
  auto t = Ent::make<Plat::Timer>(clock, "t");
  FireLog lt(t, &log);
  t->deadlineIs(clock->now() + 30);
  ASSERT_NE(get_next_alarm_delay_time(&delay), 0);
  EXPECT_LE(delay.tv_sec, 1);  // capped wait
  t->deadlineIs(clock->now() + 0.02);
  std::this_thread::sleep_for(std::chrono::milliseconds(40));
  run_alarms();
  EXPECT_EQ(log.size(), 1u);
  EXPECT_EQ(get_next_alarm_delay_time(&delay), 0);  // nothing left: the alarm is gone

  t->deadlineIs(clock->now() + 0.01);
  Plat::detachClockFromAgentLoop();
  EXPECT_EQ(get_next_alarm_delay_time(&delay), 0);
  EXPECT_EQ(Plat::agentLoopClock(), nullptr);
}

}  // namespace
