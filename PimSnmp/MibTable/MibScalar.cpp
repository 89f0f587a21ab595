#include "PimSnmp/MibTable/MibScalar.h"

#include <cstring>

#include "PimSnmp/MibTable/MibTable.h"
#include "platform/Snmp/Oid.h"
#include "platform/SnmpUtil/SnmpUtil.h"

namespace Routing::Pim::Snmp {

void registerScalar(const ScalarDef& def, const std::string& context, ModuleRegistry& registry,
                    const char* initFunction) {
  const Trace::Handle& tr = *def.trace;
  const std::string regName = std::string(def.name) + "_" + context;
  // Writable, so that SETs reach the handler and are traced there before being refused.
  netsnmp_handler_registration* reg = netsnmp_create_handler_registration(
      regName.c_str(), def.handler, def.scalarOid.data(), def.scalarOid.size(), HANDLER_CAN_RWRITE);
  if (!reg) registrationFault("creating the registration of scalar " + regName, "reg");
  if (!context.empty()) reg->contextName = strdup(context.c_str());

  if (def.path) {
    const std::string path = def.path(context);
    Ent::Ptr<Ent::Entity> entity = SnmpUtil::getEntityRelative(path);
    if (!entity) {
      registrationFault("Can not getEntityRelative(" + path + ") for scalar " + def.name +
                            ". Is this path correct?",
                        "entity");
    }
    if (!def.isType(*entity)) {
      registrationFault(entityText(*entity) + " does not appear to be of type " + def.typeName +
                            " for scalar " + def.name + ".",
                        "entity");
    }
    reg->my_reg_void = entity.get();
    registry.entityHold(context, std::move(entity));
  }
  registry.registrationAdd(context, reg);

  if (netsnmp_register_scalar(reg) != 0) {
    registrationFault("registering scalar " + regName, "result == 0");
  }
  TRACE_AT(tr, 2, "{} initializing oid {} in context \"{}\"", initFunction,
           ::Snmp::oidToString(def.scalarOid), context);
}

int scalarHandler(const ScalarDef& def, netsnmp_handler_registration* reginfo,
                  netsnmp_agent_request_info* reqinfo, netsnmp_request_info* requests) {
  const Trace::Handle& tr = *def.trace;
  switch (reqinfo->mode) {
    case MODE_GET:
      break;
#ifndef NETSNMP_NO_WRITE_SUPPORT
    case MODE_SET_RESERVE1:
    case MODE_SET_RESERVE2:
    case MODE_SET_ACTION:
    case MODE_SET_COMMIT:
    case MODE_SET_FREE:
    case MODE_SET_UNDO:
      TRACE_AT(tr, 2, "handle_{} - SET is not configured for {}", def.name, def.name);
      netsnmp_set_all_requests_error(reqinfo, requests, SNMP_ERR_NOTWRITABLE);
      return SNMP_ERR_NOERROR;
#endif
    default:
      TRACE_AT(tr, 0, "handle_{} - unknown mode from request: {}", def.name, reqinfo->mode);
      netsnmp_set_all_requests_error(reqinfo, requests, SNMP_ERR_GENERR);
      return SNMP_ERR_GENERR;
  }

  const auto* entity = static_cast<const Ent::Entity*>(reginfo->my_reg_void);
  const std::string context = reginfo->contextName ? reginfo->contextName : "";
  if (def.path && !entity) {
    TRACE_AT(tr, 0, "handle_{} - entity /<sysname>/{} is not of type {}", def.name, def.path(""),
             def.typeName);
    netsnmp_set_all_requests_error(reqinfo, requests, SNMP_ERR_GENERR);
    return SNMP_ERR_GENERR;
  }
  if (def.path) {
    TRACE_AT(tr, 2, "handle_{} - reading {}->{}()", def.name, def.path(context), def.attr);
  } else {
    TRACE_AT(tr, 2, "handle_{} - returning {}", def.name, def.constantText);
  }
  uint8_t buf[1024];
  const int n = def.encode(entity, buf, sizeof buf);
  if (def.path) {
    TRACE_AT(tr, 2, "handle_{} - {} returned {} bytes for {}->{}()", def.name, def.converter, n,
             def.path(context), def.attr);
  }
  if (n < 0) {
    TRACE_AT(tr, 0, "handle_{} - {} failed for: {}", def.name, def.converter, def.attr);
    netsnmp_set_all_requests_error(reqinfo, requests, SNMP_ERR_GENERR);
    return SNMP_ERR_GENERR;
  }
  // The scalar helper hands over only requests for the ".0" instance.
  for (netsnmp_request_info* request = requests; request; request = request->next) {
    snmp_set_var_typed_value(request->requestvb, def.asnType, buf, static_cast<size_t>(n));
  }
  return SNMP_ERR_NOERROR;
}

}  // namespace Routing::Pim::Snmp
