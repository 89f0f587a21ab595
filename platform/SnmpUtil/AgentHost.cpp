#include "platform/SnmpUtil/AgentHost.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <vector>

#include "platform/Plat/AgentLoopClock.h"
#include "platform/Snmp/TrapManager.h"
#include "platform/SnmpUtil/SnmpUtil.h"
#include "platform/Trace/Trace.h"

DEFAULT_TRACE_HANDLE("SnmpAgent")

namespace Snmp {

namespace {

AgentHost* liveHost = nullptr;

void noop(unsigned int, void* fired) {
  *static_cast<bool*>(fired) = true;
}

// The host whose logCallback gets net-snmp's messages. Not passed as the callback's client
// argument: snmp_shutdown's clear_callback free()s every client argument it finds.
AgentHost* loggingHost = nullptr;

int forwardLog(int, int, void* message, void*) {
  const auto* m = static_cast<const snmp_log_message*>(message);
  if (!m || !m->msg || !loggingHost) return 0;
  const auto& callback = loggingHost->options().logCallback;
  if (callback) callback(m->priority, m->msg);
  return 0;
}

struct timeval toTimeval(double seconds) {
  struct timeval tv;
  tv.tv_sec = static_cast<time_t>(seconds);
  tv.tv_usec = static_cast<suseconds_t>((seconds - static_cast<double>(tv.tv_sec)) * 1e6);
  return tv;
}

}  // namespace

AgentHost::AgentHost(AgentHostOptions options) : options_(std::move(options)) {}

AgentHost::~AgentHost() {
  shutdown();
}

bool AgentHost::init(const std::function<void()>& beforeSnmpInit) {
  if (initialized_) return true;
  error_.clear();
  if (liveHost) {
    error_ = "another agent host is already running in this process";
    return false;
  }
  if (options_.persistentDir.empty()) {
    error_ = "a private persistent directory is required";
    return false;
  }
  std::error_code ec;
  std::filesystem::create_directories(options_.persistentDir, ec);
  if (ec) {
    error_ = "cannot create " + options_.persistentDir + ": " + ec.message();
    return false;
  }
  const bool master = options_.role == AgentHostOptions::Role::master;
  if (!master && options_.agentxSocket.empty()) {
    error_ = "a subagent needs the master's AgentX socket";
    return false;
  }

  // MIB files only serve names in messages; loading them costs start-up time and reads
  // system directories.
  setenv("MIBS", "", 1);

  snmp_disable_log();
  switch (options_.log) {
    case AgentHostOptions::Log::toStderr:
      snmp_enable_stderrlog();
      break;
    case AgentHostOptions::Log::toSyslog:
      snmp_enable_syslog_ident(options_.appName.c_str(), LOG_DAEMON);
      break;
    case AgentHostOptions::Log::off:
      // With no handler at all net-snmp falls back to stderr; this one drops everything.
      netsnmp_register_loghandler(NETSNMP_LOGHANDLER_NONE, LOG_DEBUG);
      break;
    case AgentHostOptions::Log::callback:
      netsnmp_register_loghandler(NETSNMP_LOGHANDLER_CALLBACK, LOG_DEBUG);
      loggingHost = this;
      snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, forwardLog, nullptr);
      break;
  }
  if (!options_.debugTokens.empty()) {
    std::vector<char> tokens(options_.debugTokens.begin(), options_.debugTokens.end());
    tokens.push_back('\0');
    debug_register_tokens(tokens.data());
    snmp_set_do_debugging(1);
  }

  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
  if (!options_.configFile.empty()) {
    netsnmp_ds_set_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_OPTIONALCONFIG,
                          options_.configFile.c_str());
  }
  netsnmp_ds_set_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_PERSISTENT_DIR,
                        options_.persistentDir.c_str());
  if (!options_.persistState) {
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_LOAD, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_SAVE, 1);
  }
  netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_DONT_LOG_TCPWRAPPERS_CONNECTS,
                         1);
  netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE, master ? 0 : 1);
  if (master) {
    netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_PORTS,
                          options_.listen.c_str());
  } else {
    netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET,
                          options_.agentxSocket.c_str());
  }

  // Its result only reports /dev/kmem access, which the agent does not need.
  (void)init_agent(options_.appName.c_str());
  if (!master) {
    // init_agent resets the interval, so it is set afterwards.
    netsnmp_ds_set_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_AGENTX_PING_INTERVAL,
                       options_.agentxPingInterval);
  }
  liveHost = this;
  initialized_ = true;
  if (master) {
    // A master would also open SMUX on 0.0.0.0:199; the agent listens on its configured
    // addresses only.
    char noSmux[] = "-smux";
    add_to_init_list(noSmux);
  }
  if (beforeSnmpInit) beforeSnmpInit();
  init_snmp(options_.appName.c_str());
  if (master && init_master_agent() != 0) {
    error_ = "cannot listen on " + options_.listen;
    shutdown();
    return false;
  }
  TrapManager::instance().attachToAgentLoop();
  Plat::attachClockToAgentLoop();
  SnmpUtil::getSnmpStatus()->initializedIs(true);
  TRACE2("agent {} up as {} ({})", options_.appName, master ? "master" : "subagent",
         master ? options_.listen : options_.agentxSocket);
  return true;
}

int AgentHost::runOnce(double timeoutSeconds) {
  if (!initialized_) return -1;
  if (!(timeoutSeconds > 0)) return agent_check_and_process(0);
  // agent_check_and_process(1) sleeps until a packet or the next alarm; a private alarm
  // bounds the wait.
  bool fired = false;
  const unsigned int wake = snmp_alarm_register_hr(toTimeval(timeoutSeconds), 0, noop, &fired);
  const int count = agent_check_and_process(1);
  if (!fired && wake) snmp_alarm_unregister(wake);
  return count;
}

void AgentHost::run(const std::atomic<bool>& stop, double tickSeconds) {
  while (initialized_ && !stop.load()) runOnce(tickSeconds);
}

void AgentHost::shutdown() {
  if (!initialized_) return;
  SnmpUtil::getSnmpStatus()->initializedIs(false);
  TrapManager& traps = TrapManager::instance();
  traps.detachFromAgentLoop();
  Plat::detachClockFromAgentLoop();
  traps.clear();
  const bool master = options_.role == AgentHostOptions::Role::master;
  snmp_shutdown(options_.appName.c_str());
  if (master) shutdown_master_agent();
  shutdown_agent();
  if (options_.log == AgentHostOptions::Log::callback) {
    snmp_unregister_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, forwardLog, nullptr, 1);
    loggingHost = nullptr;
  }
  initialized_ = false;
  liveHost = nullptr;
  TRACE2("agent {} down", options_.appName);
}

}  // namespace Snmp
