#include "platform/Snmp/MibContext.h"

namespace Snmp {

bool MibContexts::moduleIs(std::string_view module, std::string_view context) {
  const std::string key(context);
  Modules modules = contexts_.get(key);
  if (!modules.emplace(module).second) return false;
  contexts_.set(key, std::move(modules));
  return true;
}

bool MibContexts::moduleDel(std::string_view module, std::string_view context) {
  const std::string key(context);
  const Modules* current = contexts_.find(key);
  if (!current) return false;
  auto it = current->find(module);
  if (it == current->end()) return false;
  Modules modules = *current;
  modules.erase(std::string(module));
  if (modules.empty()) {
    contexts_.erase(key);
  } else {
    contexts_.set(key, std::move(modules));
  }
  return true;
}

bool MibContexts::served(std::string_view module, std::string_view context) const {
  const Modules* modules = contexts_.find(std::string(context));
  return modules && modules->find(module) != modules->end();
}

std::vector<std::string> MibContexts::contexts() const {
  std::vector<std::string> out;
  out.reserve(contexts_.size());
  for (const auto& [context, modules] : contexts_) out.push_back(context);
  return out;
}

Ent::Ptr<MibContexts> mibContexts() {
  static Ent::Ptr<MibContexts> registry = Ent::make<MibContexts>();
  return registry;
}

void registerMibContext(std::string_view module, std::string_view context) {
  mibContexts()->moduleIs(module, context);
}

void unregisterMibContext(std::string_view module, std::string_view context) {
  mibContexts()->moduleDel(module, context);
}

}  // namespace Snmp
