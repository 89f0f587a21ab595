#include "daemon/NetSnmpLog.h"

#include <array>

namespace PimSnmpd {

namespace {

// Lines about files and tools of a stock snmpd installation (pimsnmpd reads only --config, and
// its persistent directory is its own), and a subagent's note on re-reading its configuration
// while connected (the session stays as it is).
constexpr std::array<std::string_view, 5> kNotApplicable = {
    "Created directory:",
    "(Config search path:",
    "It's unlikely this agent can serve any useful purpose",
    "Run \"snmpconf",
    "AgentX session to master agent attempted to be re-opened.",
};
constexpr std::string_view kNoAccess = "Warning: no access control information configured.";

std::string_view trimmed(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) {
    s.remove_suffix(1);
  }
  return s;
}

}  // namespace

NetSnmpLog::NetSnmpLog(Sink sink, bool accessAddedLater)
    : sink_(std::move(sink)), accessAddedLater_(accessAddedLater) {}

void NetSnmpLog::message(int priority, std::string_view text, double now) {
  while (!text.empty()) {
    if (pending_.empty()) pendingPriority_ = priority;
    const size_t nl = text.find('\n');
    if (nl == std::string_view::npos) {
      pending_.append(text);
      return;
    }
    pending_.append(text.substr(0, nl));
    text.remove_prefix(nl + 1);
    std::string complete;
    complete.swap(pending_);
    line(pendingPriority_, complete, now);
  }
}

void NetSnmpLog::flush(double now) {
  if (pending_.empty()) return;
  std::string complete;
  complete.swap(pending_);
  line(pendingPriority_, complete, now);
}

bool NetSnmpLog::dropped(std::string_view text) const {
  for (std::string_view prefix : kNotApplicable) {
    if (text.starts_with(prefix)) return true;
  }
  return accessAddedLater_ && text == kNoAccess;
}

void NetSnmpLog::line(int priority, std::string_view text, double now) {
  text = trimmed(text);
  if (text.empty() || dropped(text)) return;
  // The library reports some failures once per attempt (a missing file, say) a few
  // microseconds apart.
  if (text == last_ && now - lastTime_ < kRepeatWindowSeconds) return;
  last_ = std::string(text);
  lastTime_ = now;
  sink_(Log::levelOf(priority), text);
}

}  // namespace PimSnmpd
