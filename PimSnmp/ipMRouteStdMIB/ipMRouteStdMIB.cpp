#include "PimSnmp/ipMRouteStdMIB/ipMRouteStdMIB.h"

#include "PimSnmp/Converters/Converters.h"
#include "PimSnmp/MibTable/IndexParts.h"
#include "PimSnmp/MibTable/MibScalar.h"
#include "PimSnmp/MibTable/MibTable.h"
#include "platform/Routing/Multicast/Fib/Config.h"
#include "platform/Snmp/Converters.h"
#include "platform/Snmp/MibContext.h"
#include "platform/SnmpUtil/SnmpUtil.h"

DEFAULT_TRACE_HANDLE("ipMRouteStdMIB")

namespace {

using namespace Routing::Pim::Snmp;
using ::Snmp::BoolToAsnInteger;
using ::Snmp::LanetIpGenAddrToAsnOctetString;
using ::Snmp::S32ToAsnInteger;
using ::Snmp::SecondsToTimeTicks;
using ::Snmp::U64ToCounter32;
using ::Snmp::U64ToCounter64;

ModuleRegistry& registry() {
  static ModuleRegistry r("ipMRouteStdMIB");
  return r;
}

struct IpMRouteTableTraits : TableTraits<IpMRouteEntry, PimIpMrouteEntryIndex> {
  static const Def& def();
};
struct IpMRouteNextHopTableTraits
    : TableTraits<IpMRouteNextHopEntry, PimIpMrouteNextHopEntryIndex> {
  static const Def& def();
};
struct IpMRouteInterfaceTableTraits : TableTraits<IpMRouteInterfaceEntry, int32_t> {
  static const Def& def();
};

const IpMRouteTableTraits::Def& IpMRouteTableTraits::def() {
  using Entry = IpMRouteEntry;
  static const Def d{
      "ipMRouteTable",
      "PimIpMrouteEntryIndex",
      {1, 3, 6, 1, 2, 1, 83, 1, 1, 2},
      HANDLER_CAN_RONLY,
      4,
      16,
      {4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16},
      {
          ipAddressIndex<Index, &Index::group>("ipMRouteGroup", "gAddr="),
          ipAddressIndex<Index, &Index::source>("ipMRouteSource", "sAddr="),
          maskIndex<Index, &Index::sMask>("ipMRouteSourceMask", "sMask="),
      },
      {
          PIMSNMP_COLUMN(4, "ipMRouteUpstreamNeighbor", "upstreamNeighbor",
                         LanetIpGenAddrToAsnOctetString, ASN_IPADDRESS, e.upstreamNeighbor()),
          PIMSNMP_COLUMN(5, "ipMRouteInIfIndex", "inIfIndex", S32ToAsnInteger, ASN_INTEGER,
                         e.inIfIndex()),
          PIMSNMP_COLUMN(6, "ipMRouteUpTime", "upTime", SecondsToTimeTicks, ASN_TIMETICKS,
                         e.upTime()),
          PIMSNMP_COLUMN(8, "ipMRoutePkts", "pkts", U64ToCounter32, ASN_COUNTER, e.pkts()),
          PIMSNMP_COLUMN(10, "ipMRouteOctets", "octets", U64ToCounter32, ASN_COUNTER, e.octets()),
          PIMSNMP_COLUMN(16, "ipMRouteHCOctets", "octets", U64ToCounter64, ASN_COUNTER64,
                         e.octets()),
      },
      [](const PimMib& m) -> const Def::Coll& { return m.ipMRouteTable(); },
      &defaultTraceHandle(),
  };
  return d;
}

const IpMRouteNextHopTableTraits::Def& IpMRouteNextHopTableTraits::def() {
  using Entry = IpMRouteNextHopEntry;
  static const Def d{
      "ipMRouteNextHopTable",
      "PimIpMrouteNextHopEntryIndex",
      {1, 3, 6, 1, 2, 1, 83, 1, 1, 3},
      HANDLER_CAN_RONLY,
      6,
      11,
      {6, 7, 8, 9, 10, 11},
      {
          ipAddressIndex<Index, &Index::group>("ipMRouteNextHopGroup", "gAddr="),
          ipAddressIndex<Index, &Index::source>("ipMRouteNextHopSource", "sAddr="),
          maskIndex<Index, &Index::sMask>("ipMRouteNextHopSourceMask", "sMask="),
          s32Index<Index, &Index::ifIndex>("ipMRouteNextHopIfIndex", "ifIndex="),
          ipAddressIndex<Index, &Index::address>("ipMRouteNextHopAddress", "address="),
      },
      {
          PIMSNMP_COLUMN(6, "ipMRouteNextHopState", "state", NextHopStateToAsnInteger, ASN_INTEGER,
                         e.state()),
      },
      [](const PimMib& m) -> const Def::Coll& { return m.ipMRouteNextHopTable(); },
      &defaultTraceHandle(),
  };
  return d;
}

const IpMRouteInterfaceTableTraits::Def& IpMRouteInterfaceTableTraits::def() {
  using Entry = IpMRouteInterfaceEntry;
  // The constant columns trace no attribute word.
  static const Def d{
      "ipMRouteInterfaceTable",
      "S32",
      {1, 3, 6, 1, 2, 1, 83, 1, 1, 4},
      HANDLER_CAN_RWRITE,
      2,
      8,
      {2, 3, 4, 5, 6, 7, 8},
      {s32Index<Index>("ipMRouteInterfaceIfIndex", "index=")},
      {
          PIMSNMP_COLUMN(2, "ipMRouteInterfaceTtl", "", S32ToAsnInteger, ASN_INTEGER, e.ttl(),
                         true),
          PIMSNMP_COLUMN(3, "ipMRouteInterfaceProtocol", "", S32ToAsnInteger, ASN_INTEGER,
                         e.protocol()),
          PIMSNMP_COLUMN(4, "ipMRouteInterfaceRateLimit", "", S32ToAsnInteger, ASN_INTEGER,
                         e.rateLimit(), true),
      },
      [](const PimMib& m) -> const Def::Coll& { return m.ipMRouteInterfaceTable(); },
      &defaultTraceHandle(),
  };
  return d;
}

std::string mfibConfigPath(const std::string& context) {
  return contextPath("Stadb/routing/multicast/vrf/config.config", context);
}

int handle_ipMRouteEnable(netsnmp_mib_handler*, netsnmp_handler_registration*,
                          netsnmp_agent_request_info*, netsnmp_request_info*);
int handle_ipMRouteEntryCount(netsnmp_mib_handler*, netsnmp_handler_registration*,
                              netsnmp_agent_request_info*, netsnmp_request_info*);

const ScalarDef& ipMRouteEnableDef() {
  static const ScalarDef d{
      "ipMRouteEnable",
      {1, 3, 6, 1, 2, 1, 83, 1, 1, 1},
      &handle_ipMRouteEnable,
      &mfibConfigPath,
      "Routing::Multicast::Fib::Config",
      &isEntityOf<Routing::Multicast::Fib::Config>,
      "routing",
      "BoolToAsnInteger",
      ASN_INTEGER,
      [](const Ent::Entity* e, uint8_t* buf, size_t capacity) {
        return BoolToAsnInteger(static_cast<const Routing::Multicast::Fib::Config*>(e)->routing(),
                                buf, capacity);
      },
      nullptr,
      &defaultTraceHandle(),
  };
  return d;
}

const ScalarDef& ipMRouteEntryCountDef() {
  static const ScalarDef d{
      "ipMRouteEntryCount",
      {1, 3, 6, 1, 2, 1, 83, 1, 1, 7},
      &handle_ipMRouteEntryCount,
      &storePath,
      "Routing::Pim::Snmp::PimMib",
      &isEntityOf<PimMib>,
      "ipMRouteTables",
      "S32ToAsnInteger",
      ASN_GAUGE,
      [](const Ent::Entity* e, uint8_t* buf, size_t capacity) {
        return S32ToAsnInteger(countValue(static_cast<const PimMib*>(e)->ipMRouteTables()), buf,
                               capacity);
      },
      nullptr,
      &defaultTraceHandle(),
  };
  return d;
}

PIMSNMP_SCALAR_HANDLER(ipMRouteEnable, ipMRouteEnableDef())
PIMSNMP_SCALAR_HANDLER(ipMRouteEntryCount, ipMRouteEntryCountDef())

}  // namespace

PIMSNMP_MIB_TABLE(ipMRouteTable, IpMRouteTableTraits, registry())
PIMSNMP_MIB_TABLE(ipMRouteNextHopTable, IpMRouteNextHopTableTraits, registry())
PIMSNMP_MIB_TABLE(ipMRouteInterfaceTable, IpMRouteInterfaceTableTraits, registry())

void init_ipMRouteStdMIB(const std::string& context) {
  const Ent::Ptr<::Snmp::Config> config = SnmpUtil::getSnmpConfig();
  DEBUGMSGTL(("ipMRouteStdMIB", "Initializing in context \"%s\"\n", context.c_str()));
  registerScalar(ipMRouteEnableDef(), context, registry(), "init_ipMRouteStdMIB");
  registerScalar(ipMRouteEntryCountDef(), context, registry(), "init_ipMRouteStdMIB");
  initialize_table_ipMRouteTable(config, context);
  initialize_table_ipMRouteNextHopTable(config, context);
  initialize_table_ipMRouteInterfaceTable(config, context);
  ::Snmp::registerMibContext("ipMRouteStdMIB", context);
}

void unregister_ipMRouteStdMIB(const std::string& context) {
  TRACE2("Unregistering ipMRouteStdMIB in context \"{}\"", context);
  registry().unregisterContext(context);
  ::Snmp::unregisterMibContext("ipMRouteStdMIB", context);
}

const ModuleRegistry& ipMRouteStdMIBRegistry() {
  return registry();
}
