#include "daemon/Options.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <map>
#include <string_view>

#include "platform/Trace/Trace.h"

namespace PimSnmpd {

namespace {

bool parseDouble(const std::string& text, double& out) {
  if (text.empty()) return false;
  char* end = nullptr;
  const double v = std::strtod(text.c_str(), &end);
  if (end != text.c_str() + text.size() || !std::isfinite(v)) return false;
  out = v;
  return true;
}

template <class T>
bool parseUnsigned(std::string_view text, T& out, int base = 10) {
  if (text.empty()) return false;
  T v{};
  const auto [p, ec] = std::from_chars(text.data(), text.data() + text.size(), v, base);
  if (ec != std::errc() || p != text.data() + text.size()) return false;
  out = v;
  return true;
}

bool parseOnOff(const std::string& text, bool& out) {
  if (text == "on" || text == "yes" || text == "true" || text == "1") {
    out = true;
    return true;
  }
  if (text == "off" || text == "no" || text == "false" || text == "0") {
    out = false;
    return true;
  }
  return false;
}

}  // namespace

ParsedArgs parseArgs(const std::vector<std::string>& args) {
  ParsedArgs result;
  Options o;
  bool listenGiven = false;
  // Each option's value check; returns the error text, empty when fine.
  using Setter = std::function<std::string(const std::string&)>;
  const std::map<std::string, Setter, std::less<>> withValue = {
      {"--state",
       [&](const std::string& v) {
         o.stateFile = v;
         return std::string();
       }},
      {"--feed",
       [&](const std::string& v) {
         if (v.rfind("unix:", 0) != 0 || v.size() == 5) {
           return fmt::format("--feed takes unix:PATH, not '{}'", v);
         }
         o.feedSocket = v.substr(5);
         return std::string();
       }},
      {"--feed-mode",
       [&](const std::string& v) {
         unsigned mode = 0;
         if (!parseUnsigned(v, mode, 8) || mode > 0777) {
           return fmt::format("--feed-mode takes octal permissions like 0660, not '{}'", v);
         }
         o.feedMode = mode;
         return std::string();
       }},
      {"--listen",
       [&](const std::string& v) {
         if (v.empty()) return std::string("--listen needs at least one address");
         o.listen = v;
         listenGiven = true;
         return std::string();
       }},
      {"--agentx",
       [&](const std::string& v) {
         if (v.empty()) return std::string("--agentx needs the master's AgentX socket");
         o.role = Options::Role::subagent;
         o.agentxSocket = v;
         return std::string();
       }},
      {"--agentx-ping",
       [&](const std::string& v) {
         int s = 0;
         if (!parseUnsigned(v, s) || s < 1 || s > 3600) {
           return fmt::format("--agentx-ping takes 1..3600 seconds, not '{}'", v);
         }
         o.agentxPing = s;
         return std::string();
       }},
      {"--config",
       [&](const std::string& v) {
         o.configFile = v;
         return std::string();
       }},
      {"--persistent-dir",
       [&](const std::string& v) {
         o.persistentDir = v;
         return std::string();
       }},
      {"--community-prefix",
       [&](const std::string& v) {
         if (v.empty() || v.find_first_of(" \t\"'") != std::string::npos) {
           return fmt::format("--community-prefix takes a word without spaces, not '{}'", v);
         }
         o.communityPrefix = v;
         return std::string();
       }},
      {"--community-source",
       [&](const std::string& v) {
         if (v.empty() || v.find_first_of(" \t") != std::string::npos) {
           return fmt::format("--community-source takes an address or network, not '{}'", v);
         }
         o.communitySource = v;
         return std::string();
       }},
      {"--neighbor-loss",
       [&](const std::string& v) {
         if (!parseOnOff(v, o.neighborLossEnabled)) {
           return fmt::format("--neighbor-loss takes on or off, not '{}'", v);
         }
         return std::string();
       }},
      {"--neighbor-loss-reason",
       [&](const std::string& v) {
         o.neighborLossReason = v;
         return std::string();
       }},
      {"--neighbor-loss-delay",
       [&](const std::string& v) {
         double d = 0;
         if (!parseDouble(v, d) || d < 0 || d > 86400) {
           return fmt::format("--neighbor-loss-delay takes 0..86400 seconds, not '{}'", v);
         }
         o.neighborLossDelay = d;
         return std::string();
       }},
      {"--trace",
       [&](const std::string& v) {
         // Checked here so that a typo stops the start instead of tracing nothing.
         const std::string before = Trace::setting();
         if (!Trace::enable(v)) return fmt::format("--trace: malformed setting '{}'", v);
         Trace::disableAll();
         if (!before.empty()) Trace::enable(before);
         o.trace = v;
         return std::string();
       }},
      {"--snmp-debug",
       [&](const std::string& v) {
         o.snmpDebug = v;
         return std::string();
       }},
      {"--log",
       [&](const std::string& v) {
         if (v == "stderr") {
           o.log = Options::LogTarget::toStderr;
         } else if (v == "syslog") {
           o.log = Options::LogTarget::toSyslog;
         } else {
           return fmt::format("--log takes stderr or syslog, not '{}'", v);
         }
         return std::string();
       }},
      {"--simulate-period",
       [&](const std::string& v) {
         double d = 0;
         if (!parseDouble(v, d) || d < 0.01 || d > 3600) {
           return fmt::format("--simulate-period takes 0.01..3600 seconds, not '{}'", v);
         }
         o.simulatePeriod = d;
         return std::string();
       }},
      {"--max-line",
       [&](const std::string& v) {
         size_t n = 0;
         if (!parseUnsigned(v, n) || n < 1024) {
           return fmt::format("--max-line takes a byte count of at least 1024, not '{}'", v);
         }
         o.maxLine = n;
         return std::string();
       }},
      {"--pid-file",
       [&](const std::string& v) {
         o.pidFile = v;
         return std::string();
       }},
  };

  for (size_t i = 0; i < args.size(); ++i) {
    std::string arg = args[i];
    if (arg == "-h" || arg == "--help") {
      result.help = true;
      return result;
    }
    if (arg == "--version") {
      result.version = true;
      return result;
    }
    if (arg == "--simulate") {
      o.simulate = true;
      continue;
    }
    std::string value;
    bool inlineValue = false;
    if (const size_t eq = arg.find('='); arg.rfind("--", 0) == 0 && eq != std::string::npos) {
      value = arg.substr(eq + 1);
      arg.resize(eq);
      inlineValue = true;
    }
    auto it = withValue.find(arg);
    if (it == withValue.end()) {
      result.error = arg.rfind("-", 0) == 0 ? fmt::format("unknown option '{}'", arg)
                                            : fmt::format("unexpected argument '{}'", arg);
      return result;
    }
    if (!inlineValue) {
      if (i + 1 >= args.size()) {
        result.error = fmt::format("{} needs a value", arg);
        return result;
      }
      value = args[++i];
    }
    if (std::string err = it->second(value); !err.empty()) {
      result.error = std::move(err);
      return result;
    }
  }
  if (o.role == Options::Role::subagent && listenGiven) {
    result.error =
        "--listen and --agentx exclude each other: a subagent listens through its master";
    return result;
  }
  if (o.role == Options::Role::subagent && !o.communityPrefix.empty()) {
    result.error =
        "--community-prefix needs the master agent role: a subagent's communities are its "
        "master's (see `pimsnmpctl communities`)";
    return result;
  }
  if (o.stateFile.empty() && o.feedSocket.empty() && !o.simulate) {
    result.error = "nothing to serve: give --state FILE and/or --feed unix:PATH";
    return result;
  }
  if (o.simulate && o.stateFile.empty()) {
    result.error = "--simulate needs --state FILE to start from";
    return result;
  }
  result.options = std::move(o);
  return result;
}

std::string usage(const std::string& program) {
  return fmt::format(
      R"(Usage: {0} [OPTIONS]
       {0} ctl [CTL OPTIONS] COMMAND ...   (same as pimsnmpctl)

Serves PIM-MIB (RFC 2934, with pimNeighborLoss), IPMROUTE-STD-MIB (RFC 2932) and
IP-MCAST-MIB (RFC 5132) per VRF: the default VRF in SNMP context "", every other VRF in
the context named after it. The platform state comes from a JSON state document.

State input:
  --state FILE              load the state document and follow it (re-read when the file
                            changes and on SIGHUP)
  --feed unix:PATH          accept JSON lines on a Unix socket: each an RFC 7396 merge
                            patch against the current document, or a control command
                            (pimsnmpctl); every line gets a one-line JSON reply
  --feed-mode OCTAL         permissions of the feed socket (default 0660)
  --max-line BYTES          longest feed line accepted (default {1}: a whole document
                            of 1M routes)

SNMP:
  --listen ADDRS            master agent addresses, comma separated net-snmp transports
                            (default udp:127.0.0.1:1161,tcp:127.0.0.1:1161)
  --agentx SOCKET           run as AgentX subagent of the snmpd listening at SOCKET
                            (reconnects when the master restarts)
  --agentx-ping SECONDS     subagent: how often the master is checked (default 5)
  --config FILE             net-snmp configuration, snmpd.conf syntax: communities, users,
                            views, trap sinks (no other configuration file is read)
  --persistent-dir DIR      net-snmp persistent directory (default: a private temporary
                            directory, removed at exit)
  --community-prefix P      master: serve the default VRF with v2c community P and VRF V
                            with community P-V (read-only, from --community-source)
  --community-source ADDR   source restriction of those communities (default 127.0.0.1)

Notifications:
  --neighbor-loss on|off    send pimNeighborLoss (default on)
  --neighbor-loss-reason T  the reason reported while it is off
  --neighbor-loss-delay S   hold pimNeighborLoss back S seconds (default 0)

Diagnostics:
  --trace SETTING           trace levels, e.g. "PimSnmpAgent/8,Pim*MIB/0-2"; change at run
                            time with `pimsnmpctl trace SETTING`
  --snmp-debug TOKENS       net-snmp debug tokens
  --log stderr|syslog       where messages go (default stderr)
  --pid-file FILE           write the process id to FILE

Demo:
  --simulate                keep the state moving: counters grow, a neighbor flaps,
                            routes come and go (as patches through the feed's applier)
  --simulate-period S       seconds per simulation step (default 1)

  -h, --help                this text
  --version                 the version

Signals: SIGHUP re-reads --state; SIGTERM and SIGINT withdraw every context and exit.
See docs/pimsnmpd.md.
)",
      program, kDefaultMaxLine);
}

}  // namespace PimSnmpd
