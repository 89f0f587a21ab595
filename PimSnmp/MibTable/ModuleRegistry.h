#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Ent/Entity.h"
#include "platform/Ent/Ptr.h"

namespace Routing::Pim::Snmp {

// What one MIB module registered in each SNMP context: its handler
// registrations, the column-info records of its tables and the entities its
// scalars read, so that `unregister_<module>(context)` removes exactly what
// `init_<module>` added.
class ModuleRegistry {
 public:
  explicit ModuleRegistry(std::string module) : module_(std::move(module)) {}
  ModuleRegistry(const ModuleRegistry&) = delete;
  ModuleRegistry& operator=(const ModuleRegistry&) = delete;

  const std::string& module() const { return module_; }

  void registrationAdd(const std::string& context, netsnmp_handler_registration* reg);
  // Forgets a registration that never reached net-snmp (abandoned part way).
  void registrationDrop(const std::string& context, netsnmp_handler_registration* reg);
  void columnInfoAdd(const std::string& context, netsnmp_column_info* info);
  // Keeps `entity` alive while the context is registered: a scalar's `my_reg_void` points
  // at it without a platform registration record.
  void entityHold(const std::string& context, Ent::Ptr<Ent::Entity> entity);

  // Unregisters every handler of `context` (dropping each object's platform
  // registration record), frees its column-info records, releases held entities and
  // forgets the context.
  void unregisterContext(const std::string& context);

  bool hasContext(const std::string& context) const { return registrations_.count(context) != 0; }
  size_t registrationCount(const std::string& context) const;
  // Registration names of `context`, in registration order.
  std::vector<std::string> registrationNames(const std::string& context) const;
  size_t columnInfoCount(const std::string& context) const;
  std::vector<std::string> contexts() const;

 private:
  std::string module_;
  std::map<std::string, std::vector<netsnmp_handler_registration*>> registrations_;
  std::map<std::string, std::vector<netsnmp_column_info*>> columnInfo_;
  std::map<std::string, std::vector<Ent::Ptr<Ent::Entity>>> held_;
};

// Writes a start-up configuration fault to stderr and aborts: a missing store or
// config entity at registration means the host brought the agent up wrongly.
[[noreturn]] void registrationFault(const std::string& message, const char* assertion);

// An assertion that stays on in every build: prints the expression, where it failed, and
// aborts.
[[noreturn]] void assertionFailed(const char* expression, const char* file, int line,
                                  const char* function);

// Path helpers shared by tables and scalars; every context becomes a path through these.
// The VRF served in `context`: "default" for "", else the context itself.
std::string contextVrf(const std::string& context);
// "<dir>/<the VRF of context, quoted by Ent::childPath>".
std::string contextPath(std::string_view dir, const std::string& context);
// contextPath("snmp/pim/snmpPimMIB", context).
std::string storePath(const std::string& context);

}  // namespace Routing::Pim::Snmp

#define PIMSNMP_ASSERT(expression) \
  ((expression)                    \
       ? static_cast<void>(0)      \
       : ::Routing::Pim::Snmp::assertionFailed(#expression, __FILE__, __LINE__, __func__))
