#pragma once

#include "platform/Clock/Clock.h"
#include "platform/Ent/Ptr.h"

namespace Plat {

// The platform's activity manager: the event loop on which state machines run. Its clock is
// the process clock, whose timers the agent loop runs (attachClockToAgentLoop); tests install a
// ManualClock with ScopedClock.
class ActivityManager {
 public:
  static Ent::Ptr<Clock> clock() { return currentClockPtr(); }
};

}  // namespace Plat
