#include "daemon/Log.h"

#include <syslog.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <string>

#include "platform/Trace/Trace.h"

namespace PimSnmpd::Log {

namespace {

Target currentTarget = Target::toStderr;
// openlog keeps the pointer, so the ident must outlive every syslog call.
std::string currentIdent = "pimsnmpd";

int syslogPriority(Level level) {
  switch (level) {
    case Level::error:
      return LOG_ERR;
    case Level::warning:
      return LOG_WARNING;
    case Level::info:
      return LOG_INFO;
    case Level::debug:
      return LOG_DEBUG;
  }
  return LOG_INFO;
}

std::string_view levelName(Level level) {
  switch (level) {
    case Level::error:
      return "error";
    case Level::warning:
      return "warning";
    case Level::info:
      return "info";
    case Level::debug:
      return "debug";
  }
  return "info";
}

}  // namespace

void targetIs(Target target, std::string_view ident) {
  if (currentTarget == Target::toSyslog) closelog();
  currentTarget = target;
  currentIdent = std::string(ident);
  if (target == Target::toSyslog) openlog(currentIdent.c_str(), LOG_PID, LOG_DAEMON);
}

Target target() {
  return currentTarget;
}

void write(Level level, std::string_view message) {
  if (currentTarget == Target::toSyslog) {
    syslog(syslogPriority(level), "%.*s", static_cast<int>(message.size()), message.data());
    return;
  }
  const auto now = std::chrono::system_clock::now();
  const std::time_t secs = std::chrono::system_clock::to_time_t(now);
  const auto millis =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm tm{};
  localtime_r(&secs, &tm);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%S", &tm);
  // One fwrite per line keeps lines whole when stderr is shared with other processes.
  const std::string line = fmt::format("{}.{:03d} {}[{}] {}: {}\n", stamp, millis, currentIdent,
                                       getpid(), levelName(level), message);
  std::fwrite(line.data(), 1, line.size(), stderr);
  std::fflush(stderr);
}

void routeTraceHere() {
  Trace::sinkIs([](const Trace::Handle& handle, int level, std::string_view message) {
    write(Level::debug, fmt::format("{}/{} {}", handle.name(), level, message));
  });
}

}  // namespace PimSnmpd::Log
