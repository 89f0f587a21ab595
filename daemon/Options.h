#pragma once

// pimsnmpd's command line.

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace PimSnmpd {

// The default --max-line: a whole document of a million routes on one line. The feed
// benchmark's routes (two OIFs and a FIB entry each) take 227.9 MB, 217.4 MiB
// (bench/feed_document_size.py 1000000); the 18% on top, about 40 bytes per route, is for
// what real routes add: route flags, larger counters, longer interface names.
inline constexpr size_t kDefaultMaxLine = size_t{256} << 20;

struct Options {
  enum class Role { master, subagent };
  enum class LogTarget { toStderr, toSyslog };

  // --state FILE: the state document, followed for changes.
  std::string stateFile;
  // --feed unix:PATH: the socket for merge patches and control commands (the path only).
  std::string feedSocket;
  // --feed-mode OCTAL: permissions of the feed socket.
  unsigned feedMode = 0660;
  // --listen ADDRS: master agent addresses (net-snmp transport specifiers, comma separated).
  std::string listen = "udp:127.0.0.1:1161,tcp:127.0.0.1:1161";
  // --agentx SOCKET: run as an AgentX subagent of the master at SOCKET.
  Role role = Role::master;
  std::string agentxSocket;
  // --agentx-ping SECONDS: how often a subagent checks its master (reconnect delay).
  int agentxPing = 5;
  // --config FILE: the only net-snmp configuration read (snmpd.conf syntax).
  std::string configFile;
  // --persistent-dir DIR: net-snmp's persistent directory; a private temporary one if empty.
  std::string persistentDir;
  // --community-prefix P: serve the default VRF with community P and VRF v with "P-v".
  std::string communityPrefix;
  // --community-source ADDR: the source restriction of those communities.
  std::string communitySource = "127.0.0.1";
  // --neighbor-loss on|off, --neighbor-loss-reason TEXT, --neighbor-loss-delay SECONDS.
  bool neighborLossEnabled = true;
  std::string neighborLossReason;
  double neighborLossDelay = 0;
  // --trace SETTING: trace levels ("PimSnmpAgent/8,Pim*MIB/0-2").
  std::string trace;
  // --snmp-debug TOKENS: net-snmp debug tokens.
  std::string snmpDebug;
  // --log stderr|syslog.
  LogTarget log = LogTarget::toStderr;
  // --simulate: keep the served state moving (demo).
  bool simulate = false;
  // --simulate-period SECONDS: one simulation step per period.
  double simulatePeriod = 1.0;
  // --max-line BYTES: longest feed line accepted.
  size_t maxLine = kDefaultMaxLine;
  // --pid-file FILE.
  std::string pidFile;
};

struct ParsedArgs {
  std::optional<Options> options;  // set when the daemon should run
  bool help = false;
  bool version = false;
  std::string error;  // set when the command line is wrong
};

ParsedArgs parseArgs(const std::vector<std::string>& args);

// The --help text.
std::string usage(const std::string& program);

}  // namespace PimSnmpd
