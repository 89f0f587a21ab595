#pragma once

#include <string_view>

#include "platform/Ent/Dir.h"
#include "platform/Ent/Ptr.h"
#include "platform/Snmp/Config.h"
#include "platform/Snmp/Status.h"

// Process-wide access points of the SNMP agent framework.
namespace SnmpUtil {

// The agent's entity root, against which MIB modules resolve their store paths. Created empty
// on first use; tests and the daemon may install their own.
Ent::Ptr<Ent::Dir> entityRoot();
void entityRootIs(Ent::Ptr<Ent::Dir> root);

// entityRoot()->lookup(path): null when nothing is there.
Ent::Ptr<Ent::Entity> getEntityRelative(std::string_view path);

// The agent's SNMP configuration and status, each created on first use. The setters replace
// them (tests; a daemon that builds its configuration before the agent starts).
Ent::Ptr<Snmp::Config> getSnmpConfig();
void snmpConfigIs(Ent::Ptr<Snmp::Config> config);
Ent::Ptr<Snmp::Status> getSnmpStatus();
void snmpStatusIs(Ent::Ptr<Snmp::Status> status);

// Installs an entity root for the lifetime of a scope.
class ScopedEntityRoot {
 public:
  explicit ScopedEntityRoot(Ent::Ptr<Ent::Dir> root) : previous_(entityRoot()) {
    entityRootIs(std::move(root));
  }
  ~ScopedEntityRoot() { entityRootIs(previous_); }
  ScopedEntityRoot(const ScopedEntityRoot&) = delete;
  ScopedEntityRoot& operator=(const ScopedEntityRoot&) = delete;

 private:
  Ent::Ptr<Ent::Dir> previous_;
};

}  // namespace SnmpUtil
