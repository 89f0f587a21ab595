#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <string_view>
#include <utility>

#include "platform/Ent/Entity.h"

namespace Plat {

class Timer;

// A deadline that never comes: arming a timer for it cancels the timer.
inline constexpr double kNever = std::numeric_limits<double>::infinity();

// The platform clock: seconds as a double. Record times (route creation,
// neighbor refresh) are on the same scale, so "now - then" is an age.
//
// A clock also keeps the timers bound to it (Plat::Timer), ordered by deadline and, among
// equal deadlines, by arming order. Something must call runDueTimers(): ManualClock does on
// every move, and attachClockToAgentLoop() (platform/Plat/AgentLoopClock.h) does from the
// agent's event loop.
class Clock : public Ent::Entity {
 public:
  // attrNextDeadline: the earliest timer deadline changed (announced once per run of
  // runDueTimers, not for every timer it fires).
  enum Attr : Ent::AttrId { attrNow = 1, attrNextDeadline = 2 };
  using Ent::Entity::Entity;
  virtual double now() const = 0;

  // Fires, in deadline order, every timer that was armed for a deadline <= now() when the run
  // began. A timer armed (or re-armed) by a callback during the run waits for the next run,
  // even when its deadline has passed, so a callback cannot keep one run going for ever.
  // A call from inside a timer callback does nothing. Returns how many timers fired.
  size_t runDueTimers();
  // The earliest deadline of an armed timer; kNever when none is armed.
  double nextDeadline() const { return timers_.empty() ? kNever : timers_.begin()->first.first; }
  size_t armedTimerCount() const { return timers_.size(); }

 private:
  friend class Timer;
  // (deadline, arming sequence number): unique, and FIFO among equal deadlines.
  using TimerKey = std::pair<double, uint64_t>;
  // Queue edits by Timer, which then announces the change once with announceNextDeadline.
  TimerKey timerInsert(Timer* timer, double deadline);
  void timerErase(const TimerKey& key) { timers_.erase(key); }
  void announceNextDeadline(double before);

  std::map<TimerKey, Timer*> timers_;
  uint64_t nextTimerSeq_ = 0;
  bool runningTimers_ = false;
};

// Wall-clock seconds since the Unix epoch, the scale of the state feed's times.
class SystemClock : public Clock {
 public:
  SystemClock() : Clock("systemClock") {}
  std::string_view typeName() const override { return "Plat::SystemClock"; }
  double now() const override;
};

// A clock that only moves when told to: for tests and simulations. Each move runs the timers
// that are due at the new time, then announces attrNow.
class ManualClock : public Clock {
 public:
  explicit ManualClock(double start = 1000.0) : Clock("manualClock"), now_(start) {}
  std::string_view typeName() const override { return "Plat::ManualClock"; }
  double now() const override { return now_; }
  void nowIs(double t) {
    now_ = t;
    runDueTimers();
    notify(attrNow);
  }
  void advance(double seconds) { nowIs(now_ + seconds); }
  // Moves to `t` one deadline at a time, so that each timer fires with the clock at its own
  // deadline and timers re-armed on the way fire too if they fall before `t`. (A callback that
  // always re-arms for the current time keeps this going, as it would spin a real loop.)
  void stepTo(double t) {
    for (double d = nextDeadline(); d <= t; d = nextDeadline()) nowIs(d > now_ ? d : now_);
    nowIs(t);
  }

 private:
  double now_;
};

// The process clock read by computed columns. A SystemClock unless replaced.
const Clock& currentClock();
Ent::Ptr<Clock> currentClockPtr();
void currentClockIs(Ent::Ptr<Clock> clock);
inline double now() { return currentClock().now(); }

// Installs a clock for the lifetime of a scope (tests).
class ScopedClock {
 public:
  explicit ScopedClock(Ent::Ptr<Clock> clock) : previous_(currentClockPtr()) {
    currentClockIs(std::move(clock));
  }
  ~ScopedClock() { currentClockIs(previous_); }
  ScopedClock(const ScopedClock&) = delete;
  ScopedClock& operator=(const ScopedClock&) = delete;

 private:
  Ent::Ptr<Clock> previous_;
};

}  // namespace Plat
