#include "PimSnmp/MibTable/ModuleRegistry.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "platform/Ent/Dir.h"
#include "platform/Snmp/RegVoidColl.h"
#include "platform/Snmp/Registration.h"

namespace Routing::Pim::Snmp {

void ModuleRegistry::registrationAdd(const std::string& context,
                                     netsnmp_handler_registration* reg) {
  registrations_[context].push_back(reg);
}

void ModuleRegistry::registrationDrop(const std::string& context,
                                      netsnmp_handler_registration* reg) {
  auto it = registrations_.find(context);
  if (it == registrations_.end()) return;
  std::erase(it->second, reg);
}

void ModuleRegistry::columnInfoAdd(const std::string& context, netsnmp_column_info* info) {
  columnInfo_[context].push_back(info);
}

void ModuleRegistry::entityHold(const std::string& context, Ent::Ptr<Ent::Entity> entity) {
  if (entity) held_[context].push_back(std::move(entity));
}

void ModuleRegistry::unregisterContext(const std::string& context) {
  if (auto it = registrations_.find(context); it != registrations_.end()) {
    for (netsnmp_handler_registration* reg : it->second) {
      std::string name = reg->handlerName ? reg->handlerName : "";
      name = name.substr(0, name.find('_'));
      // Scalars have no record; dropping an unknown one is harmless by design.
      ::Snmp::RegVoidCollByContext::instance().delRegVoid(context, name);
      // Not netsnmp_unregister_handler: it reads the context name after freeing it.
      ::Snmp::unregisterHandler(reg);
    }
    registrations_.erase(it);
  }
  // After the handlers: the table_info of each table points at its column-info record.
  if (auto it = columnInfo_.find(context); it != columnInfo_.end()) {
    for (netsnmp_column_info* info : it->second) free(info);
    columnInfo_.erase(it);
  }
  held_.erase(context);
}

size_t ModuleRegistry::registrationCount(const std::string& context) const {
  auto it = registrations_.find(context);
  return it == registrations_.end() ? 0 : it->second.size();
}

std::vector<std::string> ModuleRegistry::registrationNames(const std::string& context) const {
  std::vector<std::string> out;
  if (auto it = registrations_.find(context); it != registrations_.end()) {
    for (const netsnmp_handler_registration* reg : it->second) {
      out.emplace_back(reg->handlerName ? reg->handlerName : "");
    }
  }
  return out;
}

size_t ModuleRegistry::columnInfoCount(const std::string& context) const {
  auto it = columnInfo_.find(context);
  return it == columnInfo_.end() ? 0 : it->second.size();
}

std::vector<std::string> ModuleRegistry::contexts() const {
  std::vector<std::string> out;
  for (const auto& [ctx, regs] : registrations_) out.push_back(ctx);
  return out;
}

void registrationFault(const std::string& message, const char* assertion) {
  std::fputs(message.c_str(), stderr);
  std::fputc('\n', stderr);
  std::fprintf(stderr, "Assertion failed: %s\n", assertion);
  std::fflush(stderr);
  std::abort();
}

void assertionFailed(const char* expression, const char* file, int line, const char* function) {
  std::fprintf(stderr, "%s:%d: %s: Assertion `%s' failed.\n", file, line, function, expression);
  std::fflush(stderr);
  std::abort();
}

std::string contextVrf(const std::string& context) {
  return context.empty() ? std::string("default") : context;
}

std::string contextPath(std::string_view dir, const std::string& context) {
  return Ent::childPath(dir, contextVrf(context));
}

std::string storePath(const std::string& context) {
  return contextPath("snmp/pim/snmpPimMIB", context);
}

}  // namespace Routing::Pim::Snmp
