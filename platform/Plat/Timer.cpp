#include "platform/Plat/Timer.h"

#include <cmath>
#include <utility>

#include "platform/Ent/Error.h"

namespace Plat {

Timer::Timer(Ent::Ptr<Clock> clock, std::string name)
    : Ent::Entity(std::move(name)), clock_(std::move(clock)) {
  if (!clock_) throw Ent::NullArgument("Plat::Timer: null clock");
}

Timer::~Timer() {
  if (!armed()) return;
  const double before = clock_->nextDeadline();
  clock_->timerErase(key_);
  clock_->announceNextDeadline(before);
}

void Timer::deadlineIs(double t) {
  if (std::isnan(t)) t = kNever;
  if (t == deadline_) return;
  const double before = clock_->nextDeadline();
  if (armed()) clock_->timerErase(key_);
  deadline_ = t;
  if (armed()) key_ = clock_->timerInsert(this, t);
  clock_->announceNextDeadline(before);
}

void Timer::fired(double now) {
  deadline_ = kNever;
  ++fireCount_;
  lastFired_ = now;
  notify(attrFired);
}

}  // namespace Plat
