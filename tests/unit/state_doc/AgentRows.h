#pragma once

// The SNMP rows a PlatformState's records make: the agent's state machines over the records,
// the three MIB modules registered in an embedded net-snmp master (one per test binary), and a
// GETBULK walk of every served context through it.

#include <map>
#include <memory>
#include <string>

#include "daemon/AgentTree.h"
#include "daemon/state/PlatformState.h"
#include "platform/Clock/Clock.h"
#include "platform/Ent/Dir.h"
#include "platform/SnmpUtil/SnmpUtil.h"

namespace StateDocTest {

// Every served object of every context: "<context>|<oid>" -> "<type> <value>". Time columns
// (Timeticks) are left out: they count from when each agent saw a row appear.
using Rows = std::map<std::string, std::string>;

// "" when equal, else the first few rows that differ ("-" only in `a`, "+" only in `b`).
std::string rowDifferences(const Rows& a, const Rows& b);

// The agent over one PlatformState, whose records live under `root` (made the process's entity
// root for the agent's lifetime: the modules find stores and configs by path there).
class Agent {
 public:
  Agent(Ent::Ptr<Ent::Dir> root, PimSnmpd::PlatformState& state, Ent::Ptr<Plat::Clock> clock);
  ~Agent();
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

  // Lets the clock run `seconds` with net-snmp's loop turning (the start-up review of routes).
  void settle(double seconds);
  Rows rows();

 private:
  SnmpUtil::ScopedEntityRoot root_;
  Ent::Ptr<Plat::Clock> clock_;
  Ent::Ptr<Snmp::Status> status_;
  PimSnmpd::AgentTree tree_;
};

}  // namespace StateDocTest
