#include "daemon/Log.h"

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/Trace/Trace.h"

namespace PimSnmpd::Log {

namespace {

Target currentTarget = Target::toStderr;
Style currentStyle = Style::plain;
// openlog keeps the pointer, so the ident must outlive every syslog call.
std::string currentIdent = "pimsnmpd";

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

template <class T>
bool parseNumber(std::string_view s, T& out) {
  const auto [p, ec] = std::from_chars(s.data(), s.data() + s.size(), out);
  return ec == std::errc() && p == s.data() + s.size() && !s.empty();
}

}  // namespace

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

Level levelOf(int priority) {
  if (priority <= LOG_ERR) return Level::error;
  if (priority == LOG_WARNING) return Level::warning;
  if (priority >= LOG_DEBUG) return Level::debug;
  return Level::info;
}

std::string formatLine(Style style, Level level, std::string_view ident, int pid,
                       std::string_view message, std::timespec now) {
  // journald stamps and attributes each line itself; the prefix carries the priority.
  if (style == Style::journal) {
    return fmt::format("<{}>{}: {}\n", syslogPriority(level), levelName(level), message);
  }
  std::tm tm{};
  localtime_r(&now.tv_sec, &tm);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%S", &tm);
  return fmt::format("{}.{:03d} {}[{}] {}: {}\n", stamp, now.tv_nsec / 1000000, ident, pid,
                     levelName(level), message);
}

bool journalStream(const char* env, int fd) {
  if (!env) return false;
  const std::string_view v(env);
  const size_t colon = v.find(':');
  if (colon == std::string_view::npos) return false;
  unsigned long long dev = 0, ino = 0;
  if (!parseNumber(v.substr(0, colon), dev) || !parseNumber(v.substr(colon + 1), ino)) {
    return false;
  }
  struct stat st;
  if (fstat(fd, &st) != 0) return false;
  return st.st_dev == dev && st.st_ino == ino;
}

void targetIs(Target target, std::string_view ident) {
  if (currentTarget == Target::toSyslog) closelog();
  currentTarget = target;
  currentIdent = std::string(ident);
  currentStyle =
      journalStream(std::getenv("JOURNAL_STREAM"), STDERR_FILENO) ? Style::journal : Style::plain;
  if (target == Target::toSyslog) openlog(currentIdent.c_str(), LOG_PID, LOG_DAEMON);
}

Target target() {
  return currentTarget;
}

Style style() {
  return currentStyle;
}

void write(Level level, std::string_view message) {
  if (currentTarget == Target::toSyslog) {
    syslog(syslogPriority(level), "%.*s", static_cast<int>(message.size()), message.data());
    return;
  }
  std::timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  // One fwrite per line keeps lines whole when stderr is shared with other processes.
  const std::string line =
      formatLine(currentStyle, level, currentIdent, static_cast<int>(getpid()), message, now);
  std::fwrite(line.data(), 1, line.size(), stderr);
  std::fflush(stderr);
}

void routeTraceHere() {
  Trace::sinkIs([](const Trace::Handle& handle, int level, std::string_view message) {
    write(Level::debug, fmt::format("{}/{} {}", handle.name(), level, message));
  });
}

}  // namespace PimSnmpd::Log
