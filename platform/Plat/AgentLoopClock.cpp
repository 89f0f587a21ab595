#include "platform/Plat/AgentLoopClock.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "platform/Trace/Trace.h"

DEFAULT_TRACE_HANDLE("PlatTimer")

namespace Plat {

namespace {

constexpr double kMaxWait = 1.0;

class AgentLoopBinding : public Ent::ReactorOf<Clock> {
 public:
  explicit AgentLoopBinding(Ent::Ptr<Clock> clock)
      : ReactorOf(Ent::Ptr<const Clock>(clock)), clock_(std::move(clock)) {
    rearm();
  }
  ~AgentLoopBinding() override { cancel(); }

  const Ent::Ptr<Clock>& clock() const { return clock_; }

  void onChange(const Ent::Change& change) override {
    if (change.attr == Clock::attrNextDeadline) rearm();
  }

 private:
  static void alarmFired(unsigned int reg, void* arg) {
    auto* self = static_cast<AgentLoopBinding*>(arg);
    // A single-shot alarm is gone once it has fired.
    if (self->alarm_ == reg) self->alarm_ = 0;
    const size_t fired = self->clock_->runDueTimers();
    TRACE9("agent loop ran {} timers", fired);
    self->rearm();
  }

  void cancel() {
    if (alarm_) snmp_alarm_unregister(alarm_);
    alarm_ = 0;
  }

  void rearm() {
    cancel();
    const double next = clock_->nextDeadline();
    if (next == kNever) return;
    const double wait = std::clamp(next - clock_->now(), 0.0, kMaxWait);
    struct timeval tv;
    tv.tv_sec = static_cast<time_t>(wait);
    tv.tv_usec = static_cast<suseconds_t>((wait - static_cast<double>(tv.tv_sec)) * 1e6);
    alarm_ = snmp_alarm_register_hr(tv, 0, &AgentLoopBinding::alarmFired, this);
    if (!alarm_) TRACE0("cannot register the clock's alarm");
  }

  const Ent::Ptr<Clock> clock_;
  unsigned int alarm_ = 0;
};

std::unique_ptr<AgentLoopBinding>& binding() {
  static std::unique_ptr<AgentLoopBinding> b;
  return b;
}

}  // namespace

void attachClockToAgentLoop(Ent::Ptr<Clock> clock) {
  if (!clock) clock = currentClockPtr();
  if (binding() && binding()->clock() == clock) return;
  binding().reset();
  binding() = std::make_unique<AgentLoopBinding>(std::move(clock));
}

void detachClockFromAgentLoop() {
  binding().reset();
}

Ent::Ptr<Clock> agentLoopClock() {
  return binding() ? binding()->clock() : nullptr;
}

}  // namespace Plat
