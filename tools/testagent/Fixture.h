#pragma once

// Fixture rows for the test agent: real platform records (PIM interfaces, neighbors, sparse-mode
// routes, BSR and RP records, IfMib, multicast FIB tables with counters) entered into a VRF's
// store through its `...Is` operations. The values are fixed so that a client can check every
// column (see tests/e2e/testagent_lib.py for what they read as).

#include <cstddef>
#include <cstdint>
#include <map>

#include "platform/IntfSnmp/IfMib.h"
#include "platform/Lanet/IpGenAddr.h"
#include "platform/McastCommon/FibMrouteCounterHelper.h"
#include "platform/Routing/Pim/Bsr/Config.h"
#include "platform/Routing/Pim/Bsr/Status.h"
#include "platform/Routing/Pim/RouteKey.h"
#include "platform/Routing/Pim/SparseMode/Route.h"
#include "platform/Shtab/Multicast/Fib/Status.h"
#include "tools/testagent/AgentSetup.h"

namespace TestAgent {

// Times in the fixture are set against `now`, the moment it is filled: routes were created
// 60 s before, neighbors 120 s before. The agent's start is kAgentAge seconds before `now`
// (the caller sets Snmp::agentStartTimeIs), so the fixture's time stamps are exact.
constexpr double kAgentAge = 1000;

class FixtureVrf {
 public:
  FixtureVrf(VrfRecords& vrf, double now);
  // Takes the VRF's FIB tables back out of the process's counter helpers.
  ~FixtureVrf();
  FixtureVrf(const FixtureVrf&) = delete;
  FixtureVrf& operator=(const FixtureVrf&) = delete;

  // The rows of the default VRF and of VRF "red".
  void fillDefault();
  void fillRed();
  // `n` IPv4 (S,G) routes (172.16.0.1, 232.x.y.z), x.y.z counting from 0.0.1, in the three
  // route tables, with FIB counters; for table-walk measurements.
  void generatedRoutesIs(size_t n);
  // `n` generated rows in every one of the thirteen tables: the routes above, one forwarding
  // next hop each (on ifIndex 4), and n interfaces, neighbors, RP-set, candidate-RP and
  // component rows, for per-table cost measurements.
  void generatedTablesIs(size_t n);

  // A route in pimIpMRouteTable and ipMRouteTable (IPv4 only) and ipMcastRouteTable, with
  // its FIB counters, upstream `iif` (empty: none) and RPF neighbor.
  void routeIs(const Routing::Pim::RouteKey& key, const Lanet::IntfId& iif,
               const Lanet::IpGenAddr& rpfNeighbor, uint64_t packets, uint64_t bytes);
  // Removes the route's rows (and next hops) from every table; false when it is not there.
  bool routeDel(const Routing::Pim::RouteKey& key);
  // A pimNeighborTable row on interface `ifIndex` (sparse mode).
  void neighborIs(int32_t ifIndex, const Lanet::IpGenAddr& address);
  bool neighborDel(const Lanet::IpGenAddr& address);

 private:
  Shtab::Multicast::Fib::Status& fib(Lanet::AddressFamily af);
  void interfaceIs(int32_t ifIndex, const char* name, const char* address, uint8_t length,
                   Routing::Pim::Mode mode, const char* dr, uint16_t hello, uint16_t joinPrune);
  void nextHopIs(const Routing::Pim::RouteKey& key, int32_t ifIndex, const char* name,
                 bool forwarding, bool assertLoser);

  VrfRecords& vrf_;
  double now_;
  Ent::Ptr<IntfSnmp::IfMib> ifMib_ = Ent::make<IntfSnmp::IfMib>();
  Ent::Ptr<Routing::Pim::Bsr::Status> bsrStatus_;
  Ent::Ptr<Shtab::Multicast::Fib::Status> fib4_;
  Ent::Ptr<Shtab::Multicast::Fib::Status> fib6_;
  std::map<Routing::Pim::RouteKey, Ent::Ptr<Routing::Pim::SparseMode::Route>> routes_;
};

// Installs the process's counter helpers (FIB-backed, IPv4 and IPv6) on first use.
McastCommonMrouteCounterHelper::FibMrouteCounterHelper& counterHelper(Lanet::AddressFamily af);

}  // namespace TestAgent
