#include "platform/Snmp/Registration.h"

#include <string>
#include <vector>

namespace Snmp {

int unregisterHandler(netsnmp_handler_registration* reginfo) {
  if (!reginfo) return MIB_UNREGISTERED_OK;
  std::vector<oid> name(reginfo->rootoid, reginfo->rootoid + reginfo->rootoid_len);
  const bool hasContext = reginfo->contextName != nullptr;
  const std::string context = hasContext ? reginfo->contextName : "";
  return unregister_mib_context(name.data(), name.size(), reginfo->priority, reginfo->range_subid,
                                reginfo->range_ubound, hasContext ? context.c_str() : nullptr);
}

}  // namespace Snmp
