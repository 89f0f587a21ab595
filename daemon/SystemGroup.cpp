#include "daemon/SystemGroup.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <net-snmp/agent/agent_callbacks.h>

#include <cstring>

#include "daemon/Log.h"

// net-snmp's MIB modules (libnetsnmpmibs) do not install their headers.
extern "C" {
void init_system_mib(void);
void init_snmpEngine(void);
}

namespace PimSnmpd {

namespace {

// The default context's registrations of the group, in the order net-snmp made them; they
// live as long as the agent library.
std::vector<netsnmp_handler_registration*>& models() {
  static std::vector<netsnmp_handler_registration*> regs;
  return regs;
}

int rememberRegistration(int, int, void* params, void*) {
  const auto* p = static_cast<const register_parameters*>(params);
  if (p && p->reginfo && (!p->contextName || !*p->contextName)) {
    models().push_back(p->reginfo);
  }
  return SNMP_ERR_NOERROR;
}

int registrationFlags(const netsnmp_handler_registration* reg) {
  // As netsnmp_register_handler derives them.
  for (const netsnmp_mib_handler* h = reg->handler; h; h = h->next) {
    if (h->flags & MIB_HANDLER_INSTANCE) return FULLY_QUALIFIED_INSTANCE;
  }
  return 0;
}

}  // namespace

size_t SystemGroup::registerDefaults() {
  models().clear();
  snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_REGISTER_OID,
                         rememberRegistration, nullptr);
  init_system_mib();
  init_snmpEngine();
  snmp_unregister_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_REGISTER_OID,
                           rememberRegistration, nullptr, 0);
  return models().size();
}

SystemGroup::SystemGroup(Ent::Ptr<const Snmp::MibContexts> contexts)
    : Ent::ReactorOf<Snmp::MibContexts>(std::move(contexts)) {}

SystemGroup::~SystemGroup() {
  while (!copies_.empty()) remove(copies_.begin()->first);
}

void SystemGroup::syncAll() {
  if (!notifier()) return;
  for (const std::string& context : notifier()->contexts()) add(context);
}

std::vector<std::string> SystemGroup::contexts() const {
  std::vector<std::string> out;
  for (const auto& [context, regs] : copies_) out.push_back(context);
  return out;
}

void SystemGroup::onChange(const Ent::Change& change) {
  if (change.attr != Snmp::MibContexts::attrContext || !change.key || !notifier()) return;
  const auto& context = change.keyAs<std::string>();
  if (notifier()->modules(context).empty()) {
    remove(context);
  } else {
    add(context);
  }
}

void SystemGroup::add(const std::string& context) {
  // The default context has net-snmp's own registrations.
  if (context.empty() || copies_.contains(context)) return;
  std::vector<netsnmp_handler_registration*>& regs = copies_[context];
  for (netsnmp_handler_registration* model : models()) {
    netsnmp_handler_registration* copy = netsnmp_handler_registration_dup(model);
    if (!copy) continue;
    SNMP_FREE(copy->contextName);
    copy->contextName = strdup(context.c_str());
    // The copy already holds the handlers netsnmp_register_handler would add.
    const int rc =
        netsnmp_register_mib(copy->handlerName, nullptr, 0, 0, copy->rootoid, copy->rootoid_len,
                             copy->priority, copy->range_subid, copy->range_ubound, nullptr,
                             copy->contextName, copy->timeout, registrationFlags(copy), copy, 1);
    if (rc == MIB_REGISTERED_OK) {
      regs.push_back(copy);
    } else {
      // A failed registration has been freed by the registry.
      Log::warning("system group: cannot register {} in context '{}' ({})",
                   model->handlerName ? model->handlerName : "?", context, rc);
    }
  }
}

void SystemGroup::remove(const std::string& context) {
  auto it = copies_.find(context);
  if (it == copies_.end()) return;
  for (netsnmp_handler_registration* reg : it->second) {
    // unregister_mib_context frees the registration while it still reads the OID and context
    // it was given: hand it copies (netsnmp_unregister_handler passes the registration's own).
    const std::vector<oid> name(reg->rootoid, reg->rootoid + reg->rootoid_len);
    unregister_mib_context(const_cast<oid*>(name.data()), name.size(), reg->priority,
                           reg->range_subid, reg->range_ubound, context.c_str());
  }
  copies_.erase(it);
}

}  // namespace PimSnmpd
