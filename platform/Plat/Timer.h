#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "platform/Clock/Clock.h"
#include "platform/Ent/Entity.h"

namespace Plat {

// A one-shot timer on a clock. Arm it with deadlineIs(t); when its clock runs its due timers
// at or after `t` (Clock::runDueTimers), the timer disarms itself and then announces
// attrFired to its reactors, which may re-arm it. deadlineIs(kNever) (or NaN) cancels.
//
// Made with Ent::make like every entity; the timer keeps its clock alive, and destroying an
// armed timer cancels it.
class Timer : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId { attrFired = 1 };

  explicit Timer(Ent::Ptr<Clock> clock = currentClockPtr(), std::string name = "timer");
  ~Timer() override;
  std::string_view typeName() const override { return "Plat::Timer"; }

  const Ent::Ptr<Clock>& clock() const { return clock_; }

  // kNever while disarmed.
  double deadline() const { return deadline_; }
  // Re-arming for the deadline it already has keeps its place among equal deadlines.
  void deadlineIs(double t);
  bool armed() const { return deadline_ != kNever; }

  // How often it fired, and the clock's time at the last firing (-inf before the first).
  uint64_t fireCount() const { return fireCount_; }
  double lastFired() const { return lastFired_; }

 private:
  friend class Clock;
  // Called by the clock, which has already dropped the timer from its queue.
  void fired(double now);

  const Ent::Ptr<Clock> clock_;
  double deadline_ = kNever;
  Clock::TimerKey key_{};
  uint64_t fireCount_ = 0;
  double lastFired_ = -std::numeric_limits<double>::infinity();
};

}  // namespace Plat
