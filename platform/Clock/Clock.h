#pragma once

#include <string_view>

#include "platform/Ent/Entity.h"

namespace Plat {

// The platform clock: seconds as a double. Record times (route creation,
// neighbor refresh) are on the same scale, so "now - then" is an age.
class Clock : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId { attrNow = 1 };
  using Ent::Entity::Entity;
  virtual double now() const = 0;
};

// Wall-clock seconds since the Unix epoch, the scale of the state feed's times.
class SystemClock : public Clock {
 public:
  SystemClock() : Clock("systemClock") {}
  std::string_view typeName() const override { return "Plat::SystemClock"; }
  double now() const override;
};

// A clock that only moves when told to: for tests and simulations.
class ManualClock : public Clock {
 public:
  explicit ManualClock(double start = 1000.0) : Clock("manualClock"), now_(start) {}
  std::string_view typeName() const override { return "Plat::ManualClock"; }
  double now() const override { return now_; }
  void nowIs(double t) {
    now_ = t;
    notify(attrNow);
  }
  void advance(double seconds) { nowIs(now_ + seconds); }

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
