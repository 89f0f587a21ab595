#pragma once

#include "platform/Clock/Clock.h"
#include "platform/Ent/Ptr.h"

namespace Plat {

// Runs a clock's timers from the net-snmp agent's event loop (agent_check_and_process): keeps
// one single-shot net-snmp alarm armed for the clock's next deadline, and when it goes off runs
// the clock's due timers and re-arms. The alarm follows Clock::attrNextDeadline, so arming a
// timer anywhere moves it. Waits are capped at one second, so that a wall-clock step (the
// alarm counts monotonic time, deadlines are on the clock's scale) delays a timer by at most
// that much.
//
// One clock at a time: attaching another clock detaches the previous one. The agent host
// attaches the process clock when it brings the agent up and detaches before shutdown (which
// drops all alarms).
void attachClockToAgentLoop(Ent::Ptr<Clock> clock = currentClockPtr());
void detachClockFromAgentLoop();
// The attached clock, or null.
Ent::Ptr<Clock> agentLoopClock();

}  // namespace Plat
