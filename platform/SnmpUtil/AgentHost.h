#pragma once

#include <atomic>
#include <functional>
#include <string>

namespace Snmp {

struct AgentHostOptions {
  enum class Role { master, subagent };
  enum class Log { toStderr, toSyslog, off, callback };

  Role role = Role::master;
  // net-snmp application name: names the persistent file and the syslog ident.
  std::string appName = "pimsnmpd";
  // Master: the addresses to listen on.
  std::string listen = "udp:127.0.0.1:1161,tcp:127.0.0.1:1161";
  // Subagent: the master's AgentX socket, and how often to ping it (seconds, 0 = never).
  std::string agentxSocket;
  int agentxPingInterval = 15;
  // The only configuration file read (community and user lines, trap sinks); empty = none.
  std::string configFile;
  // Where net-snmp keeps persistent state; created when absent. Required: the library would
  // otherwise use a system directory.
  std::string persistentDir;
  bool persistState = true;
  Log log = Log::toStderr;
  // Log::callback: every piece of text net-snmp logs, with its syslog priority (a line may
  // come in several pieces).
  std::function<void(int priority, const char* text)> logCallback;
  // net-snmp debug tokens ("table_iterator,helper:table"); empty = none.
  std::string debugTokens;
};

// Brings the net-snmp agent library up as an embedded master or an AgentX subagent that reads
// no system configuration and loads no MIB files, drives its event loop, and takes it down.
// net-snmp is process-global, so at most one host is initialised at a time.
class AgentHost {
 public:
  explicit AgentHost(AgentHostOptions options);
  ~AgentHost();
  AgentHost(const AgentHost&) = delete;
  AgentHost& operator=(const AgentHost&) = delete;

  // Initialises the library; `beforeSnmpInit` runs after init_agent and before init_snmp (the
  // place for registrations that must exist when the configuration is read). A master then
  // opens its listening addresses; a subagent connects (and keeps retrying if the master is
  // not there). Attaches the TrapManager and the process clock's timers (Plat::Timer) to the
  // loop and sets Snmp::Status `initialized`.
  // Returns false with error() set on failure, leaving the library shut down.
  bool init(const std::function<void()>& beforeSnmpInit = {});

  // One turn of the event loop: waits at most `timeoutSeconds` (0 = poll) for requests or a
  // due alarm and serves them. Returns agent_check_and_process's count (-1 on a select error,
  // including an interrupting signal).
  int runOnce(double timeoutSeconds);
  // Turns the loop until `stop` is set (from a signal handler, say); `stop` is looked at
  // least every `tickSeconds`.
  void run(const std::atomic<bool>& stop, double tickSeconds = 0.5);

  // Frees queued notifications, clears `initialized` and shuts the library down. Idempotent.
  void shutdown();

  bool initialized() const { return initialized_; }
  const AgentHostOptions& options() const { return options_; }
  const std::string& error() const { return error_; }

 private:
  AgentHostOptions options_;
  std::string error_;
  bool initialized_ = false;
};

}  // namespace Snmp
