#pragma once

// The yardstick of the table-walk benchmark: a stock net-snmp table with the rows, index
// columns and served columns of a store's ipMcastRouteTable, at 1.3.6.1.4.1.99999.1 in the
// default context. It is net-snmp's own container table (table_container over its sorted
// binary array, the machinery under tdata) with every value computed once up front, so a walk
// of it costs only net-snmp's request processing and one binary search per varbind.

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <cstddef>
#include <memory>
#include <vector>

#include "PimSnmp/PimSnmp/PimMib.h"

namespace TestAgent {

class ReferenceTable {
 public:
  static constexpr oid kOid[] = {1, 3, 6, 1, 4, 1, 99999, 1};

  // Copies the store's rows as they are now and registers the table.
  explicit ReferenceTable(const Routing::Pim::Snmp::PimMib& store);
  // Unregisters the table.
  ~ReferenceTable();
  ReferenceTable(const ReferenceTable&) = delete;
  ReferenceTable& operator=(const ReferenceTable&) = delete;

  bool registered() const { return reg_ != nullptr; }
  size_t rows() const { return rows_.size(); }

  struct Row;

 private:
  std::vector<std::unique_ptr<Row>> rows_;
  netsnmp_handler_registration* reg_ = nullptr;
  netsnmp_table_registration_info* tableInfo_ = nullptr;
};

}  // namespace TestAgent
