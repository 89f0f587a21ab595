#pragma once

// The daemon's own messages (start-up, refused updates, reloads) and the trace lines of every
// facility, written to stderr or to syslog.

#include <fmt/format.h>

#include <string_view>
#include <utility>

namespace PimSnmpd::Log {

enum class Target { toStderr, toSyslog };
enum class Level { error, warning, info, debug };

// Chooses where messages go; `ident` names the program in syslog and on stderr.
void targetIs(Target target, std::string_view ident);
Target target();

void write(Level level, std::string_view message);

template <class... A>
void error(fmt::format_string<A...> f, A&&... a) {
  write(Level::error, fmt::format(f, std::forward<A>(a)...));
}
template <class... A>
void warning(fmt::format_string<A...> f, A&&... a) {
  write(Level::warning, fmt::format(f, std::forward<A>(a)...));
}
template <class... A>
void info(fmt::format_string<A...> f, A&&... a) {
  write(Level::info, fmt::format(f, std::forward<A>(a)...));
}

// Sends the trace lines of every facility to the same place ("facility/level message").
void routeTraceHere();

}  // namespace PimSnmpd::Log
