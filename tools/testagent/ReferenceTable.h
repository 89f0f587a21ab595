#pragma once

// The yardsticks of the table-walk benchmark: two stock net-snmp tables with the rows, index
// columns and served columns of a store's ipMcastRouteTable, in the default context, over one
// array of rows in index order with every value computed once up front.
//
// 1.3.6.1.4.1.99999.1, the reference: net-snmp's own container table (table_container over its
// sorted binary array, the machinery under tdata). A walk costs only net-snmp's request
// processing and one binary search per varbind.
//
// 1.3.6.1.4.1.99999.2, the iterator floor: a stock netsnmp_register_table_iterator table with
// NETSNMP_ITERATOR_FLAG_SORTED. get_first_data_point takes net-snmp's own hint (the table_info
// of the batch's first request) to a binary search over the row index OIDs, get_next_data_point
// steps through the array, and neither allocates: no table_iterator table does less per row,
// so it shows what the iterator helper itself costs. That hint is right for a batch of one
// request, which is what a walk sends. A GETNEXT of several varbinds whose first is not the
// smallest may skip rows, and a GET of a missing row walks to the end of the table (both are
// what stock net-snmp does): a yardstick for walks, not a table to serve.

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
  static constexpr oid kFloorOid[] = {1, 3, 6, 1, 4, 1, 99999, 2};

  // Copies the store's rows as they are now and registers both tables.
  explicit ReferenceTable(const Routing::Pim::Snmp::PimMib& store);
  // Unregisters them.
  ~ReferenceTable();
  ReferenceTable(const ReferenceTable&) = delete;
  ReferenceTable& operator=(const ReferenceTable&) = delete;

  bool registered() const { return reg_ != nullptr && floorReg_ != nullptr; }
  size_t rows() const { return rows_.size(); }

  struct Row;
  using Rows = std::vector<std::unique_ptr<Row>>;

 private:
  void registerContainerTable();
  void registerIteratorFloor();

  Rows rows_;
  netsnmp_handler_registration* reg_ = nullptr;
  netsnmp_table_registration_info* tableInfo_ = nullptr;
  netsnmp_handler_registration* floorReg_ = nullptr;
};

}  // namespace TestAgent
