#pragma once

// The one scalar implementation behind the six scalars: a ScalarDef descriptor per scalar,
// registered per context by registerScalar and served by scalarHandler, which each
// `handle_<scalar>` calls with its descriptor (PIMSNMP_SCALAR_HANDLER below).

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "PimSnmp/MibTable/MibObject.h"
#include "PimSnmp/MibTable/ModuleRegistry.h"
#include "platform/Ent/Entity.h"
#include "platform/Trace/Trace.h"

namespace Routing::Pim::Snmp {

struct ScalarDef {
  const char* name;               // "ipMRouteEnable"
  std::vector<oid> scalarOid;     // without the ".0" instance
  Netsnmp_Node_Handler* handler;  // its handle_<name>
  // The entity read, by context; null for a scalar that reads none.
  std::string (*path)(const std::string& context);
  const char* typeName;  // the entity's expected type, as named in messages
  bool (*isType)(const Ent::Entity& entity);
  const char* attr;       // attribute word of the traces ("routing")
  const char* converter;  // converter name of the traces
  u_char asnType;
  // Encodes the value read from `entity` (null for a scalar that reads none).
  int (*encode)(const Ent::Entity* entity, uint8_t* buf, size_t capacity);
  // For a scalar that reads no entity: the value as traced ("returning 5").
  const char* constantText;
  Trace::Handle* trace;
  Mib::ObjectType object;  // SYNTAX, DESCRIPTION and UNITS of the module file
};

// Registers `def` in `context` as "<name>_<context>" into `registry`, with the entity it
// reads in `my_reg_void` (held by the registry), and traces "<initFunction> initializing oid".
// A missing entity, or one of another type, is a start-up fault (message and abort).
void registerScalar(const ScalarDef& def, const std::string& context, ModuleRegistry& registry,
                    const char* initFunction);

// The net-snmp handler of every scalar.
int scalarHandler(const ScalarDef& def, netsnmp_handler_registration* reginfo,
                  netsnmp_agent_request_info* reqinfo, netsnmp_request_info* requests);

// A table size as a Gauge32 count for S32ToAsnInteger, saturating.
inline int32_t countValue(size_t count) {
  return count > static_cast<size_t>(INT32_MAX) ? INT32_MAX : static_cast<int32_t>(count);
}

// A typical entity check for ScalarDef::isType.
template <class T>
bool isEntityOf(const Ent::Entity& entity) {
  return dynamic_cast<const T*>(&entity) != nullptr;
}

}  // namespace Routing::Pim::Snmp

// Defines handle_<X> calling scalarHandler with the descriptor `def` (an expression).
#define PIMSNMP_SCALAR_HANDLER(X, def)                                                  \
  int handle_##X(netsnmp_mib_handler*, netsnmp_handler_registration* reginfo,           \
                 netsnmp_agent_request_info* reqinfo, netsnmp_request_info* requests) { \
    return ::Routing::Pim::Snmp::scalarHandler(def, reginfo, reqinfo, requests);        \
  }
