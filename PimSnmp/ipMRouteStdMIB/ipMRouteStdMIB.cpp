#include "PimSnmp/ipMRouteStdMIB/ipMRouteStdMIB.h"

#include "PimSnmp/Converters/Converters.h"
#include "PimSnmp/MibTable/IndexParts.h"
#include "PimSnmp/MibTable/MibModule.h"
#include "PimSnmp/MibTable/MibScalar.h"
#include "PimSnmp/MibTable/MibTable.h"
#include "PimSnmp/MibTable/MibTc.h"
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

// BoolToAsnInteger writes true as 1, false as 2.
Mib::Syntax enableSyntax() {
  return Mib::enumeration({{1, "enabled"}, {2, "disabled"}});
}

// The one protocol the interfaces report (IANAipMRouteProtocol numbering).
Mib::Syntax protocolSyntax() {
  return Mib::enumeration({{1, "other"}, {IpMRouteInterfaceEntry::kProtocol, "pimSparseMode"}});
}

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
      indexParts<Index>({
          {"ipMRouteGroup", "gAddr=",
           Mib::indexColumn(1, Mib::base(Mib::Base::kIpAddress), "Group address of the route.")},
          {"ipMRouteSource", "sAddr=",
           Mib::indexColumn(2, Mib::base(Mib::Base::kIpAddress),
                            "Source address of the route; 0.0.0.0 for a (*,G) route.")},
          {"ipMRouteSourceMask", "sMask=",
           Mib::indexColumn(3, Mib::base(Mib::Base::kIpAddress),
                            "Source mask of the route; 0.0.0.0 for a (*,G) route.")},
      }),
      {
          PIMSNMP_COLUMN(
              4, "ipMRouteUpstreamNeighbor", "upstreamNeighbor", LanetIpGenAddrToAsnOctetString,
              ASN_IPADDRESS, e.upstreamNeighbor(),
              Mib::object(
                  Mib::base(Mib::Base::kIpAddress),
                  "The route's RPF neighbor; 0.0.0.0 when the source is directly connected.")),
          PIMSNMP_COLUMN(5, "ipMRouteInIfIndex", "inIfIndex", S32ToAsnInteger, ASN_INTEGER,
                         e.inIfIndex(),
                         Mib::object(Mib::tc(Mib::interfaceIndexOrZero()),
                                     "The route's incoming (RPF) interface.")),
          PIMSNMP_COLUMN(
              6, "ipMRouteUpTime", "upTime", SecondsToTimeTicks, ASN_TIMETICKS, e.upTime(),
              Mib::object(Mib::base(Mib::Base::kTimeTicks), "How long the route has existed.")),
          PIMSNMP_COLUMN(
              8, "ipMRoutePkts", "pkts", U64ToCounter32, ASN_COUNTER, e.pkts(),
              Mib::object(Mib::base(Mib::Base::kCounter32),
                          "Packets the forwarding plane received on the route (low 32 bits).",
                          "packets")),
          PIMSNMP_COLUMN(
              10, "ipMRouteOctets", "octets", U64ToCounter32, ASN_COUNTER, e.octets(),
              Mib::object(Mib::base(Mib::Base::kCounter32),
                          "Octets the forwarding plane received on the route (low 32 bits).",
                          "octets")),
          PIMSNMP_COLUMN(
              16, "ipMRouteHCOctets", "octets", U64ToCounter64, ASN_COUNTER64, e.octets(),
              Mib::object(Mib::base(Mib::Base::kCounter64),
                          "Octets the forwarding plane received on the route.", "octets")),
      },
      [](const PimMib& m) -> const Def::Coll& { return m.ipMRouteTable(); },
      &defaultTraceHandle(),
      "The VRF's IPv4 multicast routes, with the forwarding plane's counters.",
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
      indexParts<Index>({
          {"ipMRouteNextHopGroup", "gAddr=",
           Mib::indexColumn(1, Mib::base(Mib::Base::kIpAddress),
                            "Group address of the next hop's route.")},
          {"ipMRouteNextHopSource", "sAddr=",
           Mib::indexColumn(2, Mib::base(Mib::Base::kIpAddress),
                            "Source address of the next hop's route.")},
          {"ipMRouteNextHopSourceMask", "sMask=",
           Mib::indexColumn(3, Mib::base(Mib::Base::kIpAddress),
                            "Source mask of the next hop's route.")},
          {"ipMRouteNextHopIfIndex", "ifIndex=",
           Mib::indexColumn(4, Mib::tc(Mib::interfaceIndex()),
                            "Outgoing interface of the next hop.")},
          {"ipMRouteNextHopAddress", "address=",
           Mib::indexColumn(
               5, Mib::base(Mib::Base::kIpAddress),
               "Address of the next hop; the group address on a broadcast interface.")},
      }),
      {
          PIMSNMP_COLUMN(6, "ipMRouteNextHopState", "state", NextHopStateToAsnInteger, ASN_INTEGER,
                         e.state(),
                         Mib::object(nextHopStateSyntax(),
                                     "forwarding(2) while the route forwards out of the interface, "
                                     "pruned(1) otherwise.")),
      },
      [](const PimMib& m) -> const Def::Coll& { return m.ipMRouteNextHopTable(); },
      &defaultTraceHandle(),
      "The outgoing interfaces of each IPv4 multicast route of the VRF.",
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
      indexParts<Index>(
          {{"ipMRouteInterfaceIfIndex", "index=",
            Mib::indexColumn(1, Mib::tc(Mib::interfaceIndex()),
                             "ifIndex of a multicast-routing interface of the VRF.")}}),
      {
          PIMSNMP_COLUMN(2, "ipMRouteInterfaceTtl", "", S32ToAsnInteger, ASN_INTEGER, e.ttl(),
                         Mib::object(Mib::integer32(0, 255),
                                     "The TTL threshold for forwarding out of the interface; "
                                     "always 0 (no threshold)."),
                         true),
          PIMSNMP_COLUMN(
              3, "ipMRouteInterfaceProtocol", "", S32ToAsnInteger, ASN_INTEGER, e.protocol(),
              Mib::object(protocolSyntax(),
                          "The routing protocol running on the interface: pimSparseMode(8).")),
          PIMSNMP_COLUMN(
              4, "ipMRouteInterfaceRateLimit", "", S32ToAsnInteger, ASN_INTEGER, e.rateLimit(),
              Mib::object(Mib::integer32(0, INT32_MAX),
                          "The rate limit of forwarded multicast traffic; always 0 (none).",
                          "kilobits per second"),
              true),
      },
      [](const PimMib& m) -> const Def::Coll& { return m.ipMRouteInterfaceTable(); },
      &defaultTraceHandle(),
      "The VRF's multicast-routing interfaces.",
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
      Mib::object(enableSyntax(), "enabled(1) when multicast routing is on in the VRF."),
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
      Mib::object(Mib::base(Mib::Base::kGauge32), "The number of rows of ipMRouteTable in the VRF.",
                  "routes"),
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

const Routing::Pim::Snmp::Mib::Module& ipMRouteStdMIBModule() {
  static const Mib::Module m{
      "PIMSNMP-IPMROUTE-MIB",
      "ipMRouteStdMIB",
      {1, 3, 6, 1, 2, 1, 83},
      "202611230000Z",
      "The IPMROUTE-STD-MIB objects pimsnmpd serves, read-only, for each IPv4 VRF in the VRF's "
      "SNMP context; generated from the agent's own table descriptors.",
      {
          {"ipMRouteMIBObjects", {1, 3, 6, 1, 2, 1, 83, 1}},
          {"ipMRoute", {1, 3, 6, 1, 2, 1, 83, 1, 1}},
      },
      {Mib::scalarOf(ipMRouteEnableDef()), Mib::scalarOf(ipMRouteEntryCountDef())},
      {
          Mib::tableOf(IpMRouteTableTraits::def()),
          Mib::tableOf(IpMRouteNextHopTableTraits::def()),
          Mib::tableOf(IpMRouteInterfaceTableTraits::def()),
      },
      {},
  };
  return m;
}
