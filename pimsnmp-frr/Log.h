#pragma once

// Messages of pimsnmp-frr: one line each, to stderr with a timestamp or to syslog. Tests replace
// the sink to see what was logged.

#include <functional>
#include <string>
#include <string_view>

namespace PimSnmpFrr {

using LogSink = std::function<void(std::string_view)>;

// Sends every later message to `sink`; an empty sink restores stderr.
void setLogSink(LogSink sink);
// Sends every later message to syslog (facility daemon).
void useSyslog();
void logLine(std::string_view message);

}  // namespace PimSnmpFrr
