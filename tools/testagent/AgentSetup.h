#pragma once

// An embedded net-snmp master serving PIM-MIB, IPMROUTE-STD-MIB and IP-MCAST-MIB per VRF: the
// entity-root records the modules look up, the notification settings pimNeighborLoss needs,
// the agent host, and the per-context module registrations. Knows nothing of what the stores
// hold (that is the fixture's business), so a host process can reuse it as is.

#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "PimSnmp/PimSnmp/PimMib.h"
#include "platform/Routing/Multicast/Fib/Config.h"
#include "platform/Routing/Pim/Config.h"
#include "platform/SnmpUtil/AgentHost.h"

namespace TestAgent {

enum class Module { pimMib, ipMRouteStdMib, ipMcastMib };

// "PimMIB", "ipMRouteStdMIB", "ipMcastMIB".
const char* moduleName(Module m);
// The module named `name` (as moduleName); false when there is none.
bool moduleFromName(const std::string& name, Module& out);

// The SNMP context of a VRF: "" for "default", else the VRF name.
std::string contextOf(const std::string& vrf);

// The records the modules read for one VRF, placed where they look them up.
struct VrfRecords {
  std::string vrf;
  std::string context;
  Ent::Ptr<Routing::Pim::Snmp::PimMib> store;
  Ent::Ptr<Routing::Pim::Config> pimConfig;
  Ent::Ptr<Routing::Multicast::Fib::Config> mfibConfig;
};

struct AgentSetupOptions {
  Snmp::AgentHostOptions host;
  // pimNeighborLoss: whether it is sent, the reason given while it is not, and how long it
  // is held back (seconds).
  bool neighborLossEnabled = true;
  std::string neighborLossReason;
  double neighborLossDelay = 0;
};

class AgentSetup {
 public:
  explicit AgentSetup(AgentSetupOptions options);
  // Unregisters every module of every context, then shuts the agent down.
  ~AgentSetup();
  AgentSetup(const AgentSetup&) = delete;
  AgentSetup& operator=(const AgentSetup&) = delete;

  // Installs a fresh entity root and SNMP configuration, then brings the agent up. False with
  // error() set when the agent cannot start (the port is taken, say).
  bool start();
  const std::string& error() const { return error_; }

  // The records of `vrf`, created (with multicast routing enabled) on first use.
  VrfRecords& vrfIs(const std::string& vrf);
  VrfRecords* vrf(const std::string& vrf);

  // Register or withdraw one module in the VRF's context; false when it already was (or was
  // not) registered there, or the VRF is unknown.
  bool registerModule(Module m, const std::string& vrf);
  bool unregisterModule(Module m, const std::string& vrf);
  void registerAll(const std::string& vrf);
  bool registered(Module m, const std::string& vrf) const {
    return registered_.count({m, vrf}) != 0;
  }

  // pimNeighborLoss settings at run time.
  void neighborLossEnabledIs(bool enabled, const std::string& reason);
  void neighborLossDelayIs(double seconds);

  Snmp::AgentHost& host() { return *host_; }

 private:
  AgentSetupOptions options_;
  std::string error_;
  std::unique_ptr<Snmp::AgentHost> host_;
  std::map<std::string, VrfRecords> vrfs_;
  std::set<std::pair<Module, std::string>> registered_;
};

}  // namespace TestAgent
