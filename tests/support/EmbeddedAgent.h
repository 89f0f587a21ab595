#pragma once

// The test programs' own net-snmp master agent: one per process, on a free loopback UDP port,
// started on first use and shut down (its files removed) when the test program ends.

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "platform/SnmpUtil/AgentHost.h"

struct snmp_pdu;

namespace TestSupport {

struct EmbeddedAgent {
  std::string dir;  // private directory of the configuration and persistent files
  int port = 0;
  std::unique_ptr<Snmp::AgentHost> host;  // null when no port could be bound
};

// A free UDP port on 127.0.0.1: the kernel's pick, released again for the caller to use.
int freeUdpPort();

// The process's agent; the first call starts it with `configLines` as its configuration under
// `appName`, later calls return it as it is.
EmbeddedAgent& embeddedAgent(const std::string& appName,
                             const std::vector<std::string>& configLines);

// Sends `pdu` (taken over) as SNMPv2c with `community` to the agent on 127.0.0.1:`port` and
// turns `host`'s loop (which serves both ends) until the answer arrives or `timeout` passes.
// The answer, for the caller to snmp_free_pdu, or null.
snmp_pdu* exchange(Snmp::AgentHost& host, int port, const std::string& community, snmp_pdu* pdu,
                   std::chrono::milliseconds timeout = std::chrono::milliseconds(1500));

}  // namespace TestSupport
