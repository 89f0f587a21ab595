#pragma once

// net-snmp's own messages on their way into the daemon's log: pieces joined into lines, each
// line at its syslog priority's level, advice that does not fit an agent with one private
// configuration file dropped, and a line repeated within a moment written once.

#include <functional>
#include <string>
#include <string_view>

#include "daemon/Log.h"

namespace PimSnmpd {

class NetSnmpLog {
 public:
  using Sink = std::function<void(Log::Level, std::string_view line)>;

  // `accessAddedLater`: communities are added once contexts are served (--community-prefix),
  // so the library's "no access control" warning at start is not true for long.
  NetSnmpLog(Sink sink, bool accessAddedLater);

  // One snmp_log call's text at a syslog priority, at `now` (seconds). A line may arrive in
  // several pieces; it is written when its newline comes.
  void message(int priority, std::string_view text, double now);
  // Writes a pending piece without its newline.
  void flush(double now);

  // How long a line is remembered to drop its repetitions.
  static constexpr double kRepeatWindowSeconds = 0.25;

 private:
  void line(int priority, std::string_view text, double now);
  bool dropped(std::string_view text) const;

  Sink sink_;
  bool accessAddedLater_;
  std::string pending_;
  int pendingPriority_ = 0;
  std::string last_;
  double lastTime_ = -1e300;
};

}  // namespace PimSnmpd
