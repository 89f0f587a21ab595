#pragma once

// The daemon's own messages (start-up, refused updates, reloads), net-snmp's messages and the
// trace lines of every facility, written to stderr or to syslog. Each line carries its level:
// a timestamp and level word on a terminal or in a file, a `<N>` priority prefix when stderr
// is journald's stream (systemd sets JOURNAL_STREAM), a syslog priority with --log syslog.

#include <fmt/format.h>

#include <ctime>
#include <string>
#include <string_view>
#include <utility>

namespace PimSnmpd::Log {

enum class Target { toStderr, toSyslog };
enum class Level { error, warning, info, debug };
// How a stderr line looks: timestamped, or with journald's priority prefix.
enum class Style { plain, journal };

// Chooses where messages go; `ident` names the program in syslog and on stderr. The stderr
// style follows JOURNAL_STREAM (see journalStream).
void targetIs(Target target, std::string_view ident);
Target target();
Style style();

void write(Level level, std::string_view message);

// The syslog priority of a level (LOG_ERR, LOG_WARNING, LOG_INFO, LOG_DEBUG), which is also
// the number of journald's `<N>` prefix.
int syslogPriority(Level level);
// The level of a syslog priority (LOG_EMERG..LOG_DEBUG; NOTICE counts as info).
Level levelOf(int priority);
// One stderr line, newline included.
std::string formatLine(Style style, Level level, std::string_view ident, int pid,
                       std::string_view message, std::timespec now);
// True when JOURNAL_STREAM ("DEVICE:INODE") names the file open on descriptor `fd`.
bool journalStream(const char* journalStreamEnv, int fd);

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
