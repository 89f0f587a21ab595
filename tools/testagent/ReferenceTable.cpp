#include "tools/testagent/ReferenceTable.h"

#include <cstring>
#include <stdexcept>
#include <type_traits>

#include "platform/Snmp/Converters.h"

namespace TestAgent {

// One row: its index OID and every served column's value, ready for snmp_set_var_typed_value.
// `index` comes first so that the container's netsnmp_index* is the row's address.
struct ReferenceTable::Row {
  netsnmp_index index;
  oid* oids;
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

counter64 toCounter64(uint64_t v) {
  counter64 c;
  c.high = static_cast<u_long>(v >> 32);
  c.low = static_cast<u_long>(v & 0xFFFFFFFFu);
  return c;
}

int handler(netsnmp_mib_handler*, netsnmp_handler_registration*,
            netsnmp_agent_request_info* reqinfo, netsnmp_request_info* requests) {
  // Registered read-only: net-snmp refuses SETs before they get here.
  if (reqinfo->mode != MODE_GET) return SNMP_ERR_NOERROR;
  for (netsnmp_request_info* r = requests; r; r = r->next) {
    if (r->processed) continue;
    auto* row = reinterpret_cast<ReferenceTable::Row*>(netsnmp_container_table_row_extract(r));
    netsnmp_table_request_info* info = netsnmp_extract_table_info(r);
    if (!row || !info) continue;
    netsnmp_variable_list* vb = r->requestvb;
    switch (info->colnum) {
      case 7:
        snmp_set_var_typed_value(vb, ASN_INTEGER, &row->upstreamType, sizeof(long));
        break;
      case 8:
        snmp_set_var_typed_value(vb, ASN_OCTET_STR, row->upstream, row->upstreamLength);
        break;
      case 9:
        snmp_set_var_typed_value(vb, ASN_INTEGER, &row->inIfIndex, sizeof(long));
        break;
      case 10:
        snmp_set_var_typed_value(vb, ASN_TIMETICKS, &row->timeStamp, sizeof(u_long));
        break;
      case 18:
        snmp_set_var_typed_value(vb, ASN_COUNTER64, &row->octets, sizeof(counter64));
        break;
      case 19:
        snmp_set_var_typed_value(vb, ASN_COUNTER64, &row->pkts, sizeof(counter64));
        break;
      default:
        netsnmp_set_request_error(reqinfo, r, SNMP_NOSUCHOBJECT);
        break;
    }
  }
  return SNMP_ERR_NOERROR;
}

}  // namespace

ReferenceTable::ReferenceTable(const Routing::Pim::Snmp::PimMib& store) {
  for (const auto& e : store.ipMcastRouteTable()) {
    auto row = std::make_unique<Row>();
    const Routing::Pim::Snmp::IpMcastRouteEntryIndex& k = e->index();

    // The index OID as net-snmp itself builds it from typed index values.
    long groupType = static_cast<long>(k.groupAddr.type());
    u_long groupLength = k.groupLength;
    long sourceType = static_cast<long>(k.sourceAddr.type());
    u_long sourceLength = k.sourceLength;
    netsnmp_variable_list* vars = nullptr;
    snmp_varlist_add_variable(&vars, nullptr, 0, ASN_INTEGER, &groupType, sizeof groupType);
    snmp_varlist_add_variable(&vars, nullptr, 0, ASN_OCTET_STR, k.groupAddr.octets().data(),
                              k.groupAddr.octets().size());
    snmp_varlist_add_variable(&vars, nullptr, 0, ASN_UNSIGNED, &groupLength, sizeof groupLength);
    snmp_varlist_add_variable(&vars, nullptr, 0, ASN_INTEGER, &sourceType, sizeof sourceType);
    snmp_varlist_add_variable(&vars, nullptr, 0, ASN_OCTET_STR, k.sourceAddr.octets().data(),
                              k.sourceAddr.octets().size());
    snmp_varlist_add_variable(&vars, nullptr, 0, ASN_UNSIGNED, &sourceLength, sizeof sourceLength);
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
    const auto upstream = e->upstreamNeighbor().octets();
    std::memcpy(row->upstream, upstream.data(), upstream.size());
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

  tableInfo_ = SNMP_MALLOC_TYPEDEF(netsnmp_table_registration_info);
  netsnmp_table_helper_add_indexes(tableInfo_, ASN_INTEGER, ASN_OCTET_STR, ASN_UNSIGNED,
                                   ASN_INTEGER, ASN_OCTET_STR, ASN_UNSIGNED, 0);
  tableInfo_->min_column = 7;
  tableInfo_->max_column = 19;
  static netsnmp_column_info columns{};
  columns.isRange = 0;
  columns.list_count = static_cast<char>(std::size(kServedColumns));
  columns.details.list = kServedColumns;
  tableInfo_->valid_columns = &columns;

  reg_ = netsnmp_create_handler_registration("referenceMcastRouteTable", handler, kOid,
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

ReferenceTable::~ReferenceTable() {
  if (reg_) netsnmp_container_table_unregister(reg_);
  netsnmp_table_registration_info_free(tableInfo_);
}

}  // namespace TestAgent
