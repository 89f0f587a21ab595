#include "PimSnmp/ipMcastMIB/ipMcastMIB.h"

#include "PimSnmp/Converters/Converters.h"
#include "PimSnmp/MibTable/IndexParts.h"
#include "PimSnmp/MibTable/MibScalar.h"
#include "PimSnmp/MibTable/MibTable.h"
#include "platform/Snmp/Converters.h"
#include "platform/Snmp/MibContext.h"
#include "platform/SnmpUtil/SnmpUtil.h"

DEFAULT_TRACE_HANDLE("ipMcastMIB")

namespace {

using namespace Routing::Pim::Snmp;
using ::Snmp::BoolToAsnInteger;
using ::Snmp::BytesToAsnOctetString;
using ::Snmp::NowSecondsToUptimeTimeTicks;
using ::Snmp::S32ToAsnInteger;
using ::Snmp::U64ToCounter64;

// StorageType readOnly(5): nothing here can be changed through SNMP.
constexpr int32_t kDeviceConfigStorageType = 5;
// The largest InetAddress an upstream neighbor may be sent as.
constexpr size_t kMaxUpstreamNeighborLength = 255;

ModuleRegistry& registry() {
  static ModuleRegistry r("ipMcastMIB");
  return r;
}

struct IpMcastInterfaceTableTraits
    : TableTraits<IpMcastInterfaceEntry, IpMcastInterfaceEntryIndex> {
  static const Def& def();
};
struct IpMcastRouteTableTraits : TableTraits<IpMcastRouteEntry, IpMcastRouteEntryIndex> {
  static const Def& def();
};
struct IpMcastRouteNextHopTableTraits
    : TableTraits<IpMcastRouteNextHopEntry, IpMcastRouteNextHopEntryIndex> {
  static const Def& def();
};

const IpMcastInterfaceTableTraits::Def& IpMcastInterfaceTableTraits::def() {
  using Entry = IpMcastInterfaceEntry;
  // TTL and rate limit are Unsigned32 in the MIB, the storage type a StorageType INTEGER;
  // the constant columns trace no attribute word.
  static const Def d{
      "ipMcastInterfaceTable",
      "IpMcastInterfaceEntryIndex",
      {1, 3, 6, 1, 2, 1, 168, 1, 3},
      HANDLER_CAN_RWRITE,
      3,
      5,
      {3, 4, 5},
      {
          ipVersionIndex<Index, &Index::ipVersion>("ipMcastInterfaceIPVersion", "ipVersion="),
          s32Index<Index, &Index::ifIndex>("ipMcastInterfaceIfIndex", "ifIndex="),
      },
      {
          PIMSNMP_COLUMN(3, "ipMcastInterfaceTtl", "", S32ToAsnInteger, ASN_UNSIGNED, e.ttl(),
                         true),
          PIMSNMP_COLUMN(4, "ipMcastInterfaceRateLimit", "", S32ToAsnInteger, ASN_UNSIGNED,
                         e.rateLimit(), true),
          PIMSNMP_COLUMN(5, "ipMcastInterfaceStorageType", "", S32ToAsnInteger, ASN_INTEGER,
                         e.storageType(), true),
      },
      [](const PimMib& m) -> const Def::Coll& { return m.ipMcastInterfaceTable(); },
      &defaultTraceHandle(),
  };
  return d;
}

const IpMcastRouteTableTraits::Def& IpMcastRouteTableTraits::def() {
  using Entry = IpMcastRouteEntry;
  static const Def d{
      "ipMcastRouteTable",
      "IpMcastRouteEntryIndex",
      {1, 3, 6, 1, 2, 1, 168, 1, 5},
      HANDLER_CAN_RONLY,
      7,
      24,
      {7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24},
      {
          inetAddressTypeIndex<Index, &Index::groupAddr>("ipMcastRouteGroupAddressType",
                                                         "groupType="),
          inetAddressIndex<Index, &Index::groupAddr>("ipMcastRouteGroup", "group="),
          unsignedIndex<Index, &Index::groupLength>("ipMcastRouteGroupPrefixLength", "groupLen="),
          inetAddressTypeIndex<Index, &Index::sourceAddr>("ipMcastRouteSourceAddressType",
                                                          "sourceType="),
          inetAddressIndex<Index, &Index::sourceAddr>("ipMcastRouteSource", "source="),
          unsignedIndex<Index, &Index::sourceLength>("ipMcastRouteSourcePrefixLength",
                                                     "sourceLen="),
      },
      {
          PIMSNMP_COLUMN(7, "ipMcastRouteUpstreamNeighborType", "upstreamNeighborType",
                         S32ToAsnInteger, ASN_INTEGER,
                         static_cast<int32_t>(e.upstreamNeighborType())),
          PIMSNMP_COLUMN(8, "ipMcastRouteUpstreamNeighbor", "upstreamNeighbor",
                         BytesToAsnOctetString, ASN_OCTET_STR, e.upstreamNeighbor().octets(), false,
                         kMaxUpstreamNeighborLength),
          PIMSNMP_COLUMN(9, "ipMcastRouteInIfIndex", "inIfIndex", S32ToAsnInteger, ASN_INTEGER,
                         e.inIfIndex()),
          PIMSNMP_COLUMN(10, "ipMcastRouteTimeStamp", "timeStamp", NowSecondsToUptimeTimeTicks,
                         ASN_TIMETICKS, e.timeStamp()),
          PIMSNMP_COLUMN(18, "ipMcastRouteOctets", "octets", U64ToCounter64, ASN_COUNTER64,
                         e.octets()),
          PIMSNMP_COLUMN(19, "ipMcastRoutePkts", "pkts", U64ToCounter64, ASN_COUNTER64, e.pkts()),
      },
      [](const PimMib& m) -> const Def::Coll& { return m.ipMcastRouteTable(); },
      &defaultTraceHandle(),
  };
  return d;
}

const IpMcastRouteNextHopTableTraits::Def& IpMcastRouteNextHopTableTraits::def() {
  using Entry = IpMcastRouteNextHopEntry;
  static const Def d{
      "ipMcastRouteNextHopTable",
      "IpMcastRouteNextHopEntryIndex",
      {1, 3, 6, 1, 2, 1, 168, 1, 6},
      HANDLER_CAN_RONLY,
      10,
      16,
      {10, 11, 12, 13, 14, 15, 16},
      {
          inetAddressTypeIndex<Index, &Index::groupAddr>("ipMcastRouteNextHopGroupAddressType",
                                                         "groupType="),
          inetAddressIndex<Index, &Index::groupAddr>("ipMcastRouteNextHopGroup", "group="),
          unsignedIndex<Index, &Index::groupLength>("ipMcastRouteNextHopGroupPrefixLength",
                                                    "groupLen="),
          inetAddressTypeIndex<Index, &Index::sourceAddr>("ipMcastRouteNextHopSourceAddressType",
                                                          "sourceType="),
          inetAddressIndex<Index, &Index::sourceAddr>("ipMcastRouteNextHopSource", "source="),
          unsignedIndex<Index, &Index::sourceLength>("ipMcastRouteNextHopSourcePrefixLength",
                                                     "sourceLen="),
          s32Index<Index, &Index::ifIndex>("ipMcastRouteNextHopIfIndex", "ifIndex="),
          inetAddressTypeIndex<Index, &Index::addr>("ipMcastRouteNextHopAddressType",
                                                    "addressType="),
          inetAddressIndex<Index, &Index::addr>("ipMcastRouteNextHopAddress", "address="),
      },
      {
          PIMSNMP_COLUMN(10, "ipMcastRouteNextHopState", "state", NextHopStateToAsnInteger,
                         ASN_INTEGER, e.state()),
      },
      [](const PimMib& m) -> const Def::Coll& { return m.ipMcastRouteNextHopTable(); },
      &defaultTraceHandle(),
  };
  return d;
}

int handle_ipMcastEnabled(netsnmp_mib_handler*, netsnmp_handler_registration*,
                          netsnmp_agent_request_info*, netsnmp_request_info*);
int handle_ipMcastRouteEntryCount(netsnmp_mib_handler*, netsnmp_handler_registration*,
                                  netsnmp_agent_request_info*, netsnmp_request_info*);
int handle_ipMcastDeviceConfigStorageType(netsnmp_mib_handler*, netsnmp_handler_registration*,
                                          netsnmp_agent_request_info*, netsnmp_request_info*);

const ScalarDef& ipMcastEnabledDef() {
  static const ScalarDef d{
      "ipMcastEnabled",
      {1, 3, 6, 1, 2, 1, 168, 1, 1},
      &handle_ipMcastEnabled,
      &storePath,
      "Routing::Pim::Snmp::PimMib",
      &isEntityOf<PimMib>,
      "ipMcastEnabled",
      "BoolToAsnInteger",
      ASN_INTEGER,
      [](const Ent::Entity* e, uint8_t* buf, size_t capacity) {
        return BoolToAsnInteger(static_cast<const PimMib*>(e)->ipMcastEnabled(), buf, capacity);
      },
      nullptr,
      &defaultTraceHandle(),
  };
  return d;
}

const ScalarDef& ipMcastRouteEntryCountDef() {
  static const ScalarDef d{
      "ipMcastRouteEntryCount",
      {1, 3, 6, 1, 2, 1, 168, 1, 2},
      &handle_ipMcastRouteEntryCount,
      &storePath,
      "Routing::Pim::Snmp::PimMib",
      &isEntityOf<PimMib>,
      "ipMcastRouteTables",
      "S32ToAsnInteger",
      ASN_GAUGE,
      [](const Ent::Entity* e, uint8_t* buf, size_t capacity) {
        return S32ToAsnInteger(countValue(static_cast<const PimMib*>(e)->ipMcastRouteTables()), buf,
                               capacity);
      },
      nullptr,
      &defaultTraceHandle(),
  };
  return d;
}

const ScalarDef& ipMcastDeviceConfigStorageTypeDef() {
  static const ScalarDef d{
      "ipMcastDeviceConfigStorageType",
      {1, 3, 6, 1, 2, 1, 168, 1, 11},
      &handle_ipMcastDeviceConfigStorageType,
      nullptr,
      nullptr,
      nullptr,
      "",
      "S32ToAsnInteger",
      ASN_INTEGER,
      [](const Ent::Entity*, uint8_t* buf, size_t capacity) {
        return S32ToAsnInteger(kDeviceConfigStorageType, buf, capacity);
      },
      "5",
      &defaultTraceHandle(),
  };
  return d;
}

PIMSNMP_SCALAR_HANDLER(ipMcastEnabled, ipMcastEnabledDef())
PIMSNMP_SCALAR_HANDLER(ipMcastRouteEntryCount, ipMcastRouteEntryCountDef())
PIMSNMP_SCALAR_HANDLER(ipMcastDeviceConfigStorageType, ipMcastDeviceConfigStorageTypeDef())

}  // namespace

PIMSNMP_MIB_TABLE(ipMcastInterfaceTable, IpMcastInterfaceTableTraits, registry())
PIMSNMP_MIB_TABLE(ipMcastRouteTable, IpMcastRouteTableTraits, registry())
PIMSNMP_MIB_TABLE(ipMcastRouteNextHopTable, IpMcastRouteNextHopTableTraits, registry())

void init_ipMcastMIB(const std::string& context) {
  const Ent::Ptr<::Snmp::Config> config = SnmpUtil::getSnmpConfig();
  DEBUGMSGTL(("ipMcastMIB", "Initializing in context \"%s\"\n", context.c_str()));
  registerScalar(ipMcastEnabledDef(), context, registry(), "init_ipMcastMIB");
  registerScalar(ipMcastRouteEntryCountDef(), context, registry(), "init_ipMcastMIB");
  registerScalar(ipMcastDeviceConfigStorageTypeDef(), context, registry(), "init_ipMcastMIB");
  initialize_table_ipMcastInterfaceTable(config, context);
  initialize_table_ipMcastRouteTable(config, context);
  initialize_table_ipMcastRouteNextHopTable(config, context);
  ::Snmp::registerMibContext("ipMcastMIB", context);
}

void unregister_ipMcastMIB(const std::string& context) {
  TRACE2("Unregistering ipMcastMIB in context \"{}\"", context);
  registry().unregisterContext(context);
  ::Snmp::unregisterMibContext("ipMcastMIB", context);
}

const ModuleRegistry& ipMcastMIBRegistry() {
  return registry();
}
