#pragma once

// SNMPv2c notification receivers that learn the VRF from the community. The configuration
// line
//
//   vrftrap2sink HOST[:PORT] PREFIX
//
// sends every notification of the default VRF with community PREFIX and every notification of
// VRF V with community "PREFIX-V" (the --community-prefix scheme), varbinds unchanged. A plain
// v2c sink has one community for all VRFs; v3 sinks carry the VRF as the contextName.
// Master agent only: the lines are read with the rest of the configuration and re-read with it.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace PimSnmpd::VrfTrapSinks {

struct Sink {
  std::string address;  // HOST[:PORT], net-snmp transport syntax; port 162 by default
  std::string prefix;
};

// Parses the arguments of a `vrftrap2sink` line; nullopt with `error` set when wrong.
std::optional<Sink> parse(std::string_view args, std::string& error);

// Registers the directive and the hook that sends each notification to the sinks. Call
// between init_agent and init_snmp.
void registerDirective();
// The sinks configured now.
size_t count();
// Closes every sink (the agent shuts down).
void clear();

}  // namespace PimSnmpd::VrfTrapSinks
