#pragma once

// The system group (sysDescr, sysObjectID, sysUpTime, sysContact, sysName, sysLocation,
// sysServices) and the snmpEngine objects of a master agent, from net-snmp's own MIB modules,
// in the default context and in every context a VRF is served in. net-snmp registers them in
// the default context; each VRF context gets copies of those registrations (same handlers,
// same values) while it is served, so a request costs what it costs in the default context.
// In subagent mode the master serves them.

#include <map>
#include <string>
#include <vector>

#include "platform/Ent/Entity.h"
#include "platform/Snmp/MibContext.h"

struct netsnmp_handler_registration_s;

namespace PimSnmpd {

class SystemGroup : public Ent::ReactorOf<Snmp::MibContexts> {
 public:
  // Runs net-snmp's init_system_mib and init_snmpEngine and keeps their registrations as the
  // models of the copies. Call between init_agent and init_snmp: the configuration lines
  // (sysDescr, sysObjectID, sysContact, sysName, sysLocation, sysServices) must be known when
  // the configuration is read. Returns the number of registrations seen.
  static size_t registerDefaults();

  explicit SystemGroup(Ent::Ptr<const Snmp::MibContexts> contexts);
  // Removes every copy (before the agent shuts down).
  ~SystemGroup() override;
  SystemGroup(const SystemGroup&) = delete;
  SystemGroup& operator=(const SystemGroup&) = delete;

  // Copies the group into every context served now.
  void syncAll();
  // The VRF contexts that hold copies.
  std::vector<std::string> contexts() const;

  void onChange(const Ent::Change& change) override;

 private:
  void add(const std::string& context);
  void remove(const std::string& context);

  std::map<std::string, std::vector<netsnmp_handler_registration_s*>> copies_;
};

}  // namespace PimSnmpd
