#include "platform/Snmp/TrapManager.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <cmath>
#include <utility>

#include "platform/Clock/Clock.h"
#include "platform/Trace/Trace.h"

DEFAULT_TRACE_HANDLE("SnmpTrap")

namespace Snmp {

namespace {
// The origin named by the innermost OriginScope, and the one of the notification being sent.
std::optional<std::string>& scopeOrigin() {
  static std::optional<std::string> origin;
  return origin;
}
const std::string* sending = nullptr;
}  // namespace

TrapManager::OriginScope::OriginScope(std::string vrfContext)
    : previous_(std::exchange(scopeOrigin(), std::move(vrfContext))) {}

TrapManager::OriginScope::~OriginScope() {
  scopeOrigin() = std::move(previous_);
}

const std::string* TrapManager::queuingOrigin() {
  return scopeOrigin() ? &*scopeOrigin() : nullptr;
}

const std::string* TrapManager::sendingOrigin() {
  return sending;
}

TrapManager& TrapManager::instance() {
  static TrapManager manager;
  return manager;
}

TrapManager::TrapManager() = default;

TrapManager::~TrapManager() {
  detachFromAgentLoop();
  clear();
}

void TrapManager::enqueueTrap(netsnmp_variable_list* varbinds, std::string context,
                              double dueTime) {
  if (!varbinds) return;
  const double now = Plat::now();
  // "At once" is "now", so it queues behind entries that are already due.
  const double due = (dueTime <= now || std::isnan(dueTime)) ? now : dueTime;
  queue_.emplace(Key{due, nextSequence_++}, Entry{std::move(context), varbinds, scopeOrigin()});
  TRACE4("queued notification for context \"{}\" due {:.3f} ({} queued)",
         queue_.rbegin()->second.context, due, queue_.size());
  if (attached_) rearm();
}

size_t TrapManager::processDue(double now) {
  size_t n = 0;
  while (!queue_.empty() && queue_.begin()->first.due <= now) {
    auto node = queue_.extract(queue_.begin());
    send(node.mapped());
    ++n;
  }
  if (attached_) rearm();
  return n;
}

void TrapManager::send(Entry& entry) {
  TRACE4("sending notification in context \"{}\"", entry.context);
  sending = entry.origin ? &*entry.origin : nullptr;
  if (sender_) {
    sender_(entry.vars, entry.context);
  } else {
    send_trap_vars_with_context(-1, -1, entry.vars, entry.context.c_str());
  }
  sending = nullptr;
  ++sent_;
  snmp_free_varbind(entry.vars);
  entry.vars = nullptr;
}

std::optional<double> TrapManager::nextDueTime() const {
  if (queue_.empty()) return std::nullopt;
  return queue_.begin()->first.due;
}

std::vector<TrapManager::Pending> TrapManager::pending() const {
  std::vector<Pending> out;
  out.reserve(queue_.size());
  for (const auto& [key, entry] : queue_) {
    out.push_back(Pending{key.due, key.sequence, entry.context, entry.vars, entry.origin});
  }
  return out;
}

size_t TrapManager::clear() {
  const size_t n = queue_.size();
  for (auto& [key, entry] : queue_) snmp_free_varbind(entry.vars);
  queue_.clear();
  return n;
}

void TrapManager::senderIs(Sender sender) {
  sender_ = std::move(sender);
}

void TrapManager::attachToAgentLoop() {
  attached_ = true;
  rearm();
}

void TrapManager::detachFromAgentLoop() {
  if (alarm_) snmp_alarm_unregister(alarm_);
  alarm_ = 0;
  attached_ = false;
}

// Keeps one single-shot alarm, set for the earliest due time.
void TrapManager::rearm() {
  const auto next = nextDueTime();
  if (alarm_ && next && alarmDue_ == *next) return;
  if (alarm_) snmp_alarm_unregister(alarm_);
  alarm_ = 0;
  if (!next) return;
  const double delay = std::max(0.0, *next - Plat::now());
  struct timeval tv;
  tv.tv_sec = static_cast<time_t>(delay);
  tv.tv_usec = static_cast<suseconds_t>((delay - static_cast<double>(tv.tv_sec)) * 1e6);
  alarm_ = snmp_alarm_register_hr(tv, 0, &TrapManager::alarmFired, this);
  alarmDue_ = *next;
}

void TrapManager::alarmFired(unsigned int reg, void* arg) {
  auto* self = static_cast<TrapManager*>(arg);
  // A single-shot alarm is gone once it has fired.
  if (self->alarm_ == reg) self->alarm_ = 0;
  self->processDue(Plat::now());
}

}  // namespace Snmp
