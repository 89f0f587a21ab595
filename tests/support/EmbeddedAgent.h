#pragma once

// The test programs' own net-snmp master agent: one per process, on a free loopback UDP port,
// started on first use and shut down (its files removed) when the test program ends.

#include <memory>
#include <string>
#include <vector>

#include "platform/SnmpUtil/AgentHost.h"

namespace TestSupport {

struct EmbeddedAgent {
  std::string dir;  // private directory of the configuration and persistent files
  int port = 0;
  std::unique_ptr<Snmp::AgentHost> host;  // null when no port could be bound
};

// The process's agent; the first call starts it with `configLines` as its configuration under
// `appName`, later calls return it as it is.
EmbeddedAgent& embeddedAgent(const std::string& appName,
                             const std::vector<std::string>& configLines);

}  // namespace TestSupport
