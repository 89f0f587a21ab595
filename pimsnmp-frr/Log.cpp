#include "pimsnmp-frr/Log.h"

#include <syslog.h>

#include <chrono>
#include <cstdio>
#include <ctime>

namespace PimSnmpFrr {
namespace {

LogSink& sink() {
  static LogSink s;
  return s;
}

void toStderr(std::string_view message) {
  const auto now = std::chrono::system_clock::now();
  const std::time_t t = std::chrono::system_clock::to_time_t(now);
  std::tm tm{};
  localtime_r(&t, &tm);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &tm);
  std::fprintf(stderr, "%s pimsnmp-frr: %.*s\n", stamp, static_cast<int>(message.size()),
               message.data());
}

}  // namespace

void setLogSink(LogSink s) {
  sink() = std::move(s);
}

void useSyslog() {
  openlog("pimsnmp-frr", LOG_PID, LOG_DAEMON);
  sink() = [](std::string_view m) {
    syslog(LOG_NOTICE, "%.*s", static_cast<int>(m.size()), m.data());
  };
}

void logLine(std::string_view message) {
  if (sink()) {
    sink()(message);
  } else {
    toStderr(message);
  }
}

}  // namespace PimSnmpFrr
