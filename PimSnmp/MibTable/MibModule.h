#pragma once

// A MIB module as its file describes it, read off the descriptors the agent serves from
// (TableDef, ScalarDef, the notification's): what tools/mibgen writes out.

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <cstdint>
#include <vector>

#include "PimSnmp/MibTable/MibObject.h"
#include "PimSnmp/MibTable/MibScalar.h"
#include "PimSnmp/MibTable/TableDef.h"

namespace Routing::Pim::Snmp::Mib {

// A served column or an index object; `object` points into the descriptor it came from.
struct Column {
  const char* name;
  unsigned number;  // 0: an index object another table defines
  u_char asnType;   // the varbind type the agent sends
  const ObjectType* object;
};

struct Table {
  const char* name;
  std::vector<oid> at;
  const char* description;
  std::vector<Column> indexes;  // in INDEX order
  std::vector<Column> columns;  // served columns, in column order
};

struct Scalar {
  const char* name;
  std::vector<oid> at;  // without the ".0" instance
  u_char asnType;
  const ObjectType* object;
};

struct Notification {
  const char* name;
  std::vector<oid> at;
  std::vector<const char*> objects;  // its varbinds after sysUpTime.0 and snmpTrapOID.0
  const char* description;
};

// A named OID node of the module's tree (objects group, notifications prefix).
struct Node {
  const char* name;
  std::vector<oid> at;
};

struct Module {
  const char* name;  // the file's module name: "PIMSNMP-PIM-MIB"
  const char* identity;
  std::vector<oid> identityOid;
  const char* lastUpdated;  // "YYYYMMDDhhmmZ"
  const char* description;
  std::vector<Node> nodes;
  std::vector<Scalar> scalars;
  std::vector<Table> tables;
  std::vector<Notification> notifications;
};

template <class Def>
Table tableOf(const Def& d) {
  Table t{d.name, d.tableOid, d.description, {}, {}};
  for (const auto& part : d.indexes) {
    t.indexes.push_back({part.name, part.column.number, part.asnType, &part.column.object});
  }
  for (const auto& c : d.columns) t.columns.push_back({c.name, c.number, c.asnType, &c.object});
  return t;
}

inline Scalar scalarOf(const ScalarDef& d) {
  return {d.name, d.scalarOid, d.asnType, &d.object};
}

}  // namespace Routing::Pim::Snmp::Mib
