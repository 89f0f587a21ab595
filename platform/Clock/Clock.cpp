#include "platform/Clock/Clock.h"

#include <time.h>

#include <vector>

#include "platform/Plat/Timer.h"

namespace Plat {

double SystemClock::now() const {
  timespec ts{};
  clock_gettime(CLOCK_REALTIME, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

size_t Clock::runDueTimers() {
  if (runningTimers_) return 0;
  const double before = nextDeadline();
  const double t = now();
  // Only the timers due when the run begins: their keys, since a callback may cancel, re-arm
  // or destroy any timer (each of which drops its old key).
  std::vector<TimerKey> due;
  for (auto it = timers_.begin(); it != timers_.end() && it->first.first <= t; ++it) {
    due.push_back(it->first);
  }
  struct Running {
    bool& flag;
    explicit Running(bool& f) : flag(f) { flag = true; }
    ~Running() { flag = false; }
  };
  size_t fired = 0;
  {
    const Running running(runningTimers_);
    // Keep the clock alive if a callback drops the last timer (and so the last reference).
    const Ent::Ptr<const Ent::Entity> self(this);
    for (const TimerKey& key : due) {
      auto it = timers_.find(key);
      if (it == timers_.end()) continue;
      Timer* timer = it->second;
      timers_.erase(it);
      ++fired;
      timer->fired(t);
    }
  }
  announceNextDeadline(before);
  return fired;
}

Clock::TimerKey Clock::timerInsert(Timer* timer, double deadline) {
  const TimerKey key{deadline, nextTimerSeq_++};
  timers_.emplace(key, timer);
  return key;
}

// Changes during a run are announced once, when it ends.
void Clock::announceNextDeadline(double before) {
  if (runningTimers_ || nextDeadline() == before) return;
  notify(attrNextDeadline);
}

namespace {
Ent::Ptr<Clock>& clockSlot() {
  static Ent::Ptr<Clock> clock = Ent::make<SystemClock>();
  return clock;
}
}  // namespace

const Clock& currentClock() { return *clockSlot(); }
Ent::Ptr<Clock> currentClockPtr() { return clockSlot(); }
void currentClockIs(Ent::Ptr<Clock> clock) {
  if (!clock) clock = Ent::make<SystemClock>();
  clockSlot() = std::move(clock);
}

}  // namespace Plat
