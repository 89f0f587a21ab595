#include "platform/Clock/Clock.h"

#include <time.h>

namespace Plat {

double SystemClock::now() const {
  timespec ts{};
  clock_gettime(CLOCK_REALTIME, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
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
