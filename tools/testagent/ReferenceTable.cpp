#include "tools/testagent/ReferenceTable.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>
#include <stdexcept>
#include <type_traits>

#include "platform/Snmp/Converters.h"
#include "platform/Snmp/Registration.h"

namespace TestAgent {

namespace {

// One index column's value, ready for snmp_set_var_typed_value: integer-like ones as a long.
struct IndexValue {
  u_char type = ASN_NULL;
  u_char bytes[Snmp::InetAddress::kMaxOctets] = {};
  size_t length = 0;

  void setLong(u_char t, long v) {
    static_assert(sizeof v <= sizeof bytes);
    type = t;
    std::memcpy(bytes, &v, sizeof v);
    length = sizeof v;
  }
  void setOctets(std::span<const uint8_t> octets) {
    type = ASN_OCTET_STR;
    std::memcpy(bytes, octets.data(), octets.size());
    length = octets.size();
  }
};

}  // namespace

// One row: its index OID, its index values and every served column's value.
// `index` comes first so that the container's netsnmp_index* is the row's address.
struct ReferenceTable::Row {
  netsnmp_index index;
  oid* oids;
  // ipMcastRouteGroupAddressType, GroupAddress, GroupPrefixLength, SourceAddressType,
  // SourceAddress, SourcePrefixLength.
  std::array<IndexValue, 6> indexValues;
  long upstreamType;
  u_char upstream[Snmp::InetAddress::kMaxOctets];
  size_t upstreamLength;
  long inIfIndex;
  u_long timeStamp;
  counter64 octets;
  counter64 pkts;

  Row() = default;
  ~Row() { delete[] oids; }
  Row(const Row&) = delete;
  Row& operator=(const Row&) = delete;
};

namespace {

static_assert(std::is_standard_layout_v<ReferenceTable::Row>);

// The served columns of ipMcastRouteTable; the table helper skips the others.
unsigned int kServedColumns[] = {7, 8, 9, 10, 18, 19};

netsnmp_column_info* servedColumns() {
  static netsnmp_column_info columns{};
  columns.isRange = 0;
  columns.list_count = static_cast<char>(std::size(kServedColumns));
  columns.details.list = kServedColumns;
  return &columns;
}

// ipMcastRouteTable's index columns and column range; valid_columns is static (net-snmp never
// frees it).
netsnmp_table_registration_info* newTableInfo() {
  auto* info = SNMP_MALLOC_TYPEDEF(netsnmp_table_registration_info);
  if (!info) throw std::runtime_error("out of memory for a reference table");
  netsnmp_table_helper_add_indexes(info, ASN_INTEGER, ASN_OCTET_STR, ASN_UNSIGNED, ASN_INTEGER,
                                   ASN_OCTET_STR, ASN_UNSIGNED, 0);
  info->min_column = 7;
  info->max_column = 19;
  info->valid_columns = servedColumns();
  return info;
}

counter64 toCounter64(uint64_t v) {
  counter64 c;
  c.high = static_cast<u_long>(v >> 32);
  c.low = static_cast<u_long>(v & 0xFFFFFFFFu);
  return c;
}

// Answers the GETs of a row's served columns; both tables end in it.
void answer(netsnmp_agent_request_info* reqinfo, netsnmp_request_info* r,
            const ReferenceTable::Row& row, unsigned column) {
  netsnmp_variable_list* vb = r->requestvb;
  switch (column) {
    case 7:
      snmp_set_var_typed_value(vb, ASN_INTEGER, &row.upstreamType, sizeof(long));
      break;
    case 8:
      snmp_set_var_typed_value(vb, ASN_OCTET_STR, row.upstream, row.upstreamLength);
      break;
    case 9:
      snmp_set_var_typed_value(vb, ASN_INTEGER, &row.inIfIndex, sizeof(long));
      break;
    case 10:
      snmp_set_var_typed_value(vb, ASN_TIMETICKS, &row.timeStamp, sizeof(u_long));
      break;
    case 18:
      snmp_set_var_typed_value(vb, ASN_COUNTER64, &row.octets, sizeof(counter64));
      break;
    case 19:
      snmp_set_var_typed_value(vb, ASN_COUNTER64, &row.pkts, sizeof(counter64));
      break;
    default:
      netsnmp_set_request_error(reqinfo, r, SNMP_NOSUCHOBJECT);
      break;
  }
}

int containerHandler(netsnmp_mib_handler*, netsnmp_handler_registration*,
                     netsnmp_agent_request_info* reqinfo, netsnmp_request_info* requests) {
  // Registered read-only: net-snmp refuses SETs before they get here.
  if (reqinfo->mode != MODE_GET) return SNMP_ERR_NOERROR;
  for (netsnmp_request_info* r = requests; r; r = r->next) {
    if (r->processed) continue;
    auto* row = reinterpret_cast<ReferenceTable::Row*>(netsnmp_container_table_row_extract(r));
    netsnmp_table_request_info* info = netsnmp_extract_table_info(r);
    if (!row || !info) continue;
    answer(reqinfo, r, *row, info->colnum);
  }
  return SNMP_ERR_NOERROR;
}

// The iterator floor. Its loop context is the position in the row array, so a walk allocates
// nothing; its data context is the row itself.
using RowPtr = const std::unique_ptr<ReferenceTable::Row>;

struct FloorRows {
  RowPtr* begin;
  RowPtr* end;
};

FloorRows floorRows(const netsnmp_iterator_info* iinfo) {
  const auto& rows = *static_cast<const ReferenceTable::Rows*>(iinfo->myvoid);
  return {rows.data(), rows.data() + rows.size()};
}

// Writes the row's index values; a value the varbind holds already is left alone, as
// consecutive rows share most of them.
netsnmp_variable_list* putIndex(const ReferenceTable::Row& row, netsnmp_variable_list* vars) {
  netsnmp_variable_list* v = vars;
  for (const IndexValue& value : row.indexValues) {
    if (!v) break;
    if (v->type != value.type || v->val_len != value.length || !v->val.string ||
        std::memcmp(v->val.string, value.bytes, value.length) != 0) {
      snmp_set_var_typed_value(v, value.type, value.bytes, value.length);
    }
    v = v->next_variable;
  }
  return vars;
}

netsnmp_variable_list* floorAt(RowPtr* at, const FloorRows& rows, void** loopContext,
                               void** dataContext, netsnmp_variable_list* vars) {
  *loopContext = const_cast<std::unique_ptr<ReferenceTable::Row>*>(at);
  if (at == rows.end) {
    *dataContext = nullptr;
    return nullptr;
  }
  *dataContext = at->get();
  return putIndex(**at, vars);
}

netsnmp_variable_list* floorFirst(void** loopContext, void** dataContext,
                                  netsnmp_variable_list* vars, netsnmp_iterator_info* iinfo) {
  const FloorRows rows = floorRows(iinfo);
  RowPtr* at = rows.begin;
  // net-snmp's hint: on the first pass the first request's table_info, null on the later
  // passes of a GETNEXT that ran off the end of a column (the loop context of the pass before
  // is "freed" and cleared by the iterator).
  if (const auto* info = static_cast<const netsnmp_table_request_info*>(*loopContext)) {
    at = std::lower_bound(rows.begin, rows.end, info, [](RowPtr& row, const auto* i) {
      return snmp_oid_compare(row->index.oids, row->index.len, i->index_oid, i->index_oid_len) < 0;
    });
  }
  return floorAt(at, rows, loopContext, dataContext, vars);
}

netsnmp_variable_list* floorNext(void** loopContext, void** dataContext,
                                 netsnmp_variable_list* vars, netsnmp_iterator_info* iinfo) {
  const FloorRows rows = floorRows(iinfo);
  auto* at = static_cast<RowPtr*>(*loopContext);
  return floorAt(at == rows.end ? at : at + 1, rows, loopContext, dataContext, vars);
}

// Nothing to free; set so that the iterator clears the loop context after each pass, which is
// how floorFirst tells a hint from the position of the pass before.
void floorEndOfPass(void*, netsnmp_iterator_info*) {}

int floorHandler(netsnmp_mib_handler*, netsnmp_handler_registration*,
                 netsnmp_agent_request_info* reqinfo, netsnmp_request_info* requests) {
  if (reqinfo->mode != MODE_GET) return SNMP_ERR_NOERROR;
  for (netsnmp_request_info* r = requests; r; r = r->next) {
    if (r->processed) continue;
    auto* row = static_cast<ReferenceTable::Row*>(netsnmp_extract_iterator_context(r));
    netsnmp_table_request_info* info = netsnmp_extract_table_info(r);
    if (!row || !info) continue;
    answer(reqinfo, r, *row, info->colnum);
  }
  return SNMP_ERR_NOERROR;
}

}  // namespace

ReferenceTable::ReferenceTable(const Routing::Pim::Snmp::PimMib& store) {
  for (const auto& e : store.ipMcastRouteTable()) {
    auto row = std::make_unique<Row>();
    const Routing::Pim::Snmp::IpMcastRouteEntryIndex& k = e->index();

    auto& idx = row->indexValues;
    idx[0].setLong(ASN_INTEGER, static_cast<long>(k.groupAddr.type()));
    idx[1].setOctets(k.groupAddr.octets());
    idx[2].setLong(ASN_UNSIGNED, static_cast<long>(k.groupLength));
    idx[3].setLong(ASN_INTEGER, static_cast<long>(k.sourceAddr.type()));
    idx[4].setOctets(k.sourceAddr.octets());
    idx[5].setLong(ASN_UNSIGNED, static_cast<long>(k.sourceLength));
    // The index OID as net-snmp itself builds it from typed index values.
    netsnmp_variable_list* vars = nullptr;
    for (const IndexValue& v : idx) {
      snmp_varlist_add_variable(&vars, nullptr, 0, v.type, v.bytes, v.length);
    }
    oid buf[MAX_OID_LEN];
    size_t length = 0;
    const int built = build_oid_noalloc(buf, MAX_OID_LEN, &length, nullptr, 0, vars);
    snmp_free_varbind(vars);
    if (built != SNMPERR_SUCCESS) throw std::runtime_error("cannot build a reference index");
    row->oids = new oid[length];
    std::memcpy(row->oids, buf, length * sizeof(oid));
    row->index.oids = row->oids;
    row->index.len = length;

    row->upstreamType = static_cast<long>(e->upstreamNeighborType());
    // By value: octets() views the address it is called on.
    const Snmp::InetAddress upstream = e->upstreamNeighbor();
    std::memcpy(row->upstream, upstream.octets().data(), upstream.size());
    row->upstreamLength = upstream.size();
    row->inIfIndex = e->inIfIndex();
    uint8_t ticks[sizeof(u_long)];
    if (Snmp::NowSecondsToUptimeTimeTicks(e->timeStamp(), ticks, sizeof ticks) < 0) {
      throw std::runtime_error("cannot convert a reference time stamp");
    }
    std::memcpy(&row->timeStamp, ticks, sizeof(u_long));
    row->octets = toCounter64(e->octets());
    row->pkts = toCounter64(e->pkts());
    rows_.push_back(std::move(row));
  }
  // The store is in index order, and so are index OIDs: both tables rely on it.
  if (!std::is_sorted(rows_.begin(), rows_.end(), [](const auto& a, const auto& b) {
        return snmp_oid_compare(a->oids, a->index.len, b->oids, b->index.len) < 0;
      })) {
    throw std::runtime_error("reference rows out of order");
  }

  registerContainerTable();
  try {
    registerIteratorFloor();
  } catch (...) {
    netsnmp_container_table_unregister(reg_);
    netsnmp_table_registration_info_free(tableInfo_);
    throw;
  }
}

void ReferenceTable::registerContainerTable() {
  netsnmp_container* container = netsnmp_container_find("table_container");
  if (!container) throw std::runtime_error("net-snmp has no table_container");
  // Without the duplicate check an insert never sorts: the rows come in index order and
  // the array is sorted (once) on its first look-up.
  int rc = 0;
  CONTAINER_SET_OPTIONS(container, CONTAINER_KEY_ALLOW_DUPLICATES, rc);
  container->compare = netsnmp_compare_netsnmp_index;
  container->ncompare = netsnmp_ncompare_netsnmp_index;
  for (const auto& row : rows_) CONTAINER_INSERT(container, &row->index);
  CONTAINER_SET_OPTIONS(container, 0, rc);
  (void)rc;  // binary_array supports both settings

  tableInfo_ = newTableInfo();
  reg_ = netsnmp_create_handler_registration("referenceMcastRouteTable", containerHandler, kOid,
                                             std::size(kOid), HANDLER_CAN_RONLY);
  if (netsnmp_container_table_register(reg_, tableInfo_, container,
                                       TABLE_CONTAINER_KEY_NETSNMP_INDEX) != 0) {
    // The registration (and with it the container) is gone.
    reg_ = nullptr;
    netsnmp_table_registration_info_free(tableInfo_);
    tableInfo_ = nullptr;
    throw std::runtime_error("cannot register the reference table");
  }
}

void ReferenceTable::registerIteratorFloor() {
  auto* iinfo = SNMP_MALLOC_TYPEDEF(netsnmp_iterator_info);
  if (!iinfo) throw std::runtime_error("out of memory for the iterator floor");
  iinfo->myvoid = &rows_;
  iinfo->get_first_data_point = floorFirst;
  iinfo->get_next_data_point = floorNext;
  iinfo->free_loop_context_at_end = floorEndOfPass;
  iinfo->table_reginfo = newTableInfo();
  // The registration frees the iterator info and its table_info.
  iinfo->flags = NETSNMP_ITERATOR_FLAG_SORTED | NETSNMP_HANDLER_OWNS_IINFO;

  floorReg_ =
      netsnmp_create_handler_registration("iteratorFloorMcastRouteTable", floorHandler, kFloorOid,
                                          std::size(kFloorOid), HANDLER_CAN_RONLY);
  if (netsnmp_register_table_iterator(floorReg_, iinfo) != MIB_REGISTERED_OK) {
    floorReg_ = nullptr;  // freed, and the iterator info with it
    throw std::runtime_error("cannot register the iterator floor table");
  }
}

ReferenceTable::~ReferenceTable() {
  if (floorReg_) Snmp::unregisterHandler(floorReg_);
  if (reg_) netsnmp_container_table_unregister(reg_);
  netsnmp_table_registration_info_free(tableInfo_);
}

}  // namespace TestAgent
