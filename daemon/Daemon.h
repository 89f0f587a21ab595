#pragma once

// pimsnmpd: the SNMP agent (master or AgentX subagent) over the platform inputs that the state
// document describes, with the feed socket, the state file follower, signal handling and the
// demo simulation, all on the agent's one event loop.
//
// Bring-up: logging and trace; the SNMP configuration (notification settings); the platform
// inputs and the state file; the agent's state machines (AgentTree); the net-snmp agent, which
// sets Snmp::Status `initialized` and so lets the VRF trackers register every complete VRF;
// then the feed socket, the file follower and the simulation. Tear-down is the reverse.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "daemon/Options.h"

namespace PimSnmpd {

class Daemon {
 public:
  explicit Daemon(Options options);
  ~Daemon();
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  // Runs until SIGTERM or SIGINT; returns the process exit code.
  int run();

  struct Impl;

 private:
  std::unique_ptr<Impl> impl_;
};

}  // namespace PimSnmpd
