#include "PimSnmp/ipMcastMIB/ipMcastMIB.h"

#include "PimSnmp/Converters/Converters.h"
#include "PimSnmp/MibTable/IndexParts.h"
#include "PimSnmp/MibTable/MibModule.h"
#include "PimSnmp/MibTable/MibScalar.h"
#include "PimSnmp/MibTable/MibTable.h"
#include "PimSnmp/MibTable/MibTc.h"
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

// An InetAddress index: the lengths of the address types it can hold keep the OID short.
Mib::Syntax indexAddressSyntax() {
  return Mib::tc(Mib::inetAddress()).restricted({{0, 0}, {4, 4}, {8, 8}, {16, 16}, {20, 20}});
}

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
      indexParts<Index>({
          {"ipMcastInterfaceIPVersion", "ipVersion=",
           Mib::indexColumn(1, Mib::tc(Mib::inetVersion()),
                            "IP version of the interface row: ipv4(1) or ipv6(2).")},
          {"ipMcastInterfaceIfIndex", "ifIndex=",
           Mib::indexColumn(2, Mib::tc(Mib::interfaceIndex()),
                            "ifIndex of a multicast-routing interface of the VRF.")},
      }),
      {
          PIMSNMP_COLUMN(3, "ipMcastInterfaceTtl", "", S32ToAsnInteger, ASN_UNSIGNED, e.ttl(),
                         Mib::object(Mib::base(Mib::Base::kUnsigned32, {{0, 256}}),
                                     "The TTL threshold for forwarding out of the interface; "
                                     "always 0 (no threshold)."),
                         true),
          PIMSNMP_COLUMN(
              4, "ipMcastInterfaceRateLimit", "", S32ToAsnInteger, ASN_UNSIGNED, e.rateLimit(),
              Mib::object(Mib::base(Mib::Base::kUnsigned32),
                          "The rate limit of forwarded multicast traffic; always 0 (none).",
                          "kilobits per second"),
              true),
          PIMSNMP_COLUMN(5, "ipMcastInterfaceStorageType", "", S32ToAsnInteger, ASN_INTEGER,
                         e.storageType(),
                         Mib::object(Mib::tc(Mib::storageType()),
                                     "Always readOnly(5): the rows follow the router, not SNMP."),
                         true),
      },
      [](const PimMib& m) -> const Def::Coll& { return m.ipMcastInterfaceTable(); },
      &defaultTraceHandle(),
      "The VRF's multicast-routing interfaces, per IP version.",
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
      indexParts<Index>({
          {"ipMcastRouteGroupAddressType", "groupType=",
           Mib::indexColumn(1, Mib::tc(Mib::inetAddressType()),
                            "Address type of the route's group: ipv4(1) or ipv6(2).")},
          {"ipMcastRouteGroup",
           "group=", Mib::indexColumn(2, indexAddressSyntax(), "Group address of the route.")},
          {"ipMcastRouteGroupPrefixLength", "groupLen=",
           Mib::indexColumn(3, Mib::tc(Mib::inetAddressPrefixLength()),
                            "Prefix length of the route's group: the full address length.")},
          {"ipMcastRouteSourceAddressType", "sourceType=",
           Mib::indexColumn(4, Mib::tc(Mib::inetAddressType()),
                            "Address type of the route's source.")},
          {"ipMcastRouteSource", "source=",
           Mib::indexColumn(5, indexAddressSyntax(),
                            "Source address of the route; all zeros for a (*,G) route.")},
          {"ipMcastRouteSourcePrefixLength", "sourceLen=",
           Mib::indexColumn(6, Mib::tc(Mib::inetAddressPrefixLength()),
                            "Prefix length of the route's source; 0 for a (*,G) route.")},
      }),
      {
          PIMSNMP_COLUMN(
              7, "ipMcastRouteUpstreamNeighborType", "upstreamNeighborType", S32ToAsnInteger,
              ASN_INTEGER, static_cast<int32_t>(e.upstreamNeighborType()),
              Mib::object(Mib::tc(Mib::inetAddressType()),
                          "Address type of the upstream neighbor; unknown(0) when there is none.")),
          PIMSNMP_COLUMN(8, "ipMcastRouteUpstreamNeighbor", "upstreamNeighbor",
                         BytesToAsnOctetString, ASN_OCTET_STR, e.upstreamNeighbor().octets(),
                         Mib::object(Mib::tc(Mib::inetAddress()),
                                     "The route's RPF neighbor, of the type beside it."),
                         false, kMaxUpstreamNeighborLength),
          PIMSNMP_COLUMN(9, "ipMcastRouteInIfIndex", "inIfIndex", S32ToAsnInteger, ASN_INTEGER,
                         e.inIfIndex(),
                         Mib::object(Mib::tc(Mib::interfaceIndexOrZero()),
                                     "The route's incoming (RPF) interface.")),
          PIMSNMP_COLUMN(
              10, "ipMcastRouteTimeStamp", "timeStamp", NowSecondsToUptimeTimeTicks, ASN_TIMETICKS,
              e.timeStamp(),
              Mib::object(Mib::tc(Mib::timeStamp()), "sysUpTime when the route was created.")),
          PIMSNMP_COLUMN(
              18, "ipMcastRouteOctets", "octets", U64ToCounter64, ASN_COUNTER64, e.octets(),
              Mib::object(Mib::base(Mib::Base::kCounter64),
                          "Octets the forwarding plane received on the route.", "octets")),
          PIMSNMP_COLUMN(
              19, "ipMcastRoutePkts", "pkts", U64ToCounter64, ASN_COUNTER64, e.pkts(),
              Mib::object(Mib::base(Mib::Base::kCounter64),
                          "Packets the forwarding plane received on the route.", "packets")),
      },
      [](const PimMib& m) -> const Def::Coll& { return m.ipMcastRouteTable(); },
      &defaultTraceHandle(),
      "The VRF's IPv4 and IPv6 multicast routes, with the forwarding plane's counters.",
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
      indexParts<Index>({
          {"ipMcastRouteNextHopGroupAddressType", "groupType=",
           Mib::indexColumn(1, Mib::tc(Mib::inetAddressType()),
                            "Address type of the next hop's group.")},
          {"ipMcastRouteNextHopGroup", "group=",
           Mib::indexColumn(2, indexAddressSyntax(), "Group address of the next hop's route.")},
          {"ipMcastRouteNextHopGroupPrefixLength", "groupLen=",
           Mib::indexColumn(3, Mib::tc(Mib::inetAddressPrefixLength()),
                            "Prefix length of the next hop's group.")},
          {"ipMcastRouteNextHopSourceAddressType", "sourceType=",
           Mib::indexColumn(4, Mib::tc(Mib::inetAddressType()),
                            "Address type of the next hop's source.")},
          {"ipMcastRouteNextHopSource", "source=",
           Mib::indexColumn(5, indexAddressSyntax(), "Source address of the next hop's route.")},
          {"ipMcastRouteNextHopSourcePrefixLength", "sourceLen=",
           Mib::indexColumn(6, Mib::tc(Mib::inetAddressPrefixLength()),
                            "Prefix length of the next hop's source.")},
          {"ipMcastRouteNextHopIfIndex", "ifIndex=",
           Mib::indexColumn(7, Mib::tc(Mib::interfaceIndex()),
                            "Outgoing interface of the next hop.")},
          {"ipMcastRouteNextHopAddressType", "addressType=",
           Mib::indexColumn(8, Mib::tc(Mib::inetAddressType()), "Address type of the next hop.")},
          {"ipMcastRouteNextHopAddress", "address=",
           Mib::indexColumn(
               9, indexAddressSyntax(),
               "Address of the next hop; the group address on a broadcast interface.")},
      }),
      {
          PIMSNMP_COLUMN(10, "ipMcastRouteNextHopState", "state", NextHopStateToAsnInteger,
                         ASN_INTEGER, e.state(),
                         Mib::object(nextHopStateSyntax(),
                                     "forwarding(2) while the route forwards out of the interface, "
                                     "pruned(1) otherwise.")),
      },
      [](const PimMib& m) -> const Def::Coll& { return m.ipMcastRouteNextHopTable(); },
      &defaultTraceHandle(),
      "The outgoing interfaces of each multicast route of the VRF.",
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
      Mib::object(Mib::tc(Mib::truthValue()), "true(1) when the VRF has multicast routing state."),
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
      Mib::object(Mib::base(Mib::Base::kGauge32),
                  "The number of rows of ipMcastRouteTable in the VRF.", "routes"),
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
      Mib::object(Mib::tc(Mib::storageType()),
                  "Always readOnly(5): the configuration follows the router, not SNMP."),
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

const Routing::Pim::Snmp::Mib::Module& ipMcastMIBModule() {
  static const Mib::Module m{
      "PIMSNMP-IPMCAST-MIB",
      "ipMcastMIB",
      {1, 3, 6, 1, 2, 1, 168},
      "202611230000Z",
      "The IP-MCAST-MIB objects pimsnmpd serves, read-only, for each VRF (IPv4 and IPv6) in the "
      "VRF's SNMP context; generated from the agent's own table descriptors.",
      {{"ipMcastMIBObjects", {1, 3, 6, 1, 2, 1, 168, 1}}},
      {
          Mib::scalarOf(ipMcastEnabledDef()),
          Mib::scalarOf(ipMcastRouteEntryCountDef()),
          Mib::scalarOf(ipMcastDeviceConfigStorageTypeDef()),
      },
      {
          Mib::tableOf(IpMcastInterfaceTableTraits::def()),
          Mib::tableOf(IpMcastRouteTableTraits::def()),
          Mib::tableOf(IpMcastRouteNextHopTableTraits::def()),
      },
      {},
  };
  return m;
}
