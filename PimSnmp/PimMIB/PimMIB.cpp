#include "PimSnmp/PimMIB/PimMIB.h"

#include "PimSnmp/Converters/Converters.h"
#include "PimSnmp/MibTable/IndexParts.h"
#include "PimSnmp/MibTable/MibScalar.h"
#include "PimSnmp/MibTable/MibTable.h"
#include "platform/Ent/Dir.h"
#include "platform/Routing/Pim/Config.h"
#include "platform/Snmp/Converters.h"
#include "platform/Snmp/MibContext.h"
#include "platform/SnmpUtil/SnmpUtil.h"

DEFAULT_TRACE_HANDLE("PimMIB")

namespace {

using namespace Routing::Pim::Snmp;
using ::Snmp::BoolToAsnInteger;
using ::Snmp::LanetIpGenAddrToAsnOctetString;
using ::Snmp::S32ToAsnInteger;
using ::Snmp::SecondsToTimeTicks;
using ::Snmp::U32ToAsnOctets;
using ::Snmp::U32ToAsnUnsigned;
using ::Snmp::U32ToTimeTicks;

ModuleRegistry& registry() {
  static ModuleRegistry r("PimMIB");
  return r;
}

struct PimInterfaceTableTraits : TableTraits<PimInterfaceEntry, int32_t> {
  static const Def& def();
};
struct PimNeighborTableTraits : TableTraits<PimNeighborEntry, Lanet::IpGenAddr> {
  static const Def& def();
};
struct PimIpMRouteTableTraits : TableTraits<PimIpMrouteEntry, PimIpMrouteEntryIndex> {
  static const Def& def();
};
struct PimRPSetTableTraits : TableTraits<PimRPSetEntry, PimRPSetEntryIndex> {
  static const Def& def();
};
struct PimIpMRouteNextHopTableTraits
    : TableTraits<PimIpMrouteNextHopEntry, PimIpMrouteNextHopEntryIndex> {
  static const Def& def();
};
struct PimCandidateRPTableTraits : TableTraits<PimCandidateRPEntry, PimCandidateRPEntryIndex> {
  static const Def& def();
};
struct PimComponentTableTraits : TableTraits<PimComponentEntry, int32_t> {
  static const Def& def();
};

const PimInterfaceTableTraits::Def& PimInterfaceTableTraits::def() {
  using Entry = PimInterfaceEntry;
  static const Def d{
      "pimInterfaceTable",
      "S32",
      {1, 3, 6, 1, 3, 61, 1, 1, 2},
      HANDLER_CAN_RWRITE,
      2,
      9,
      {2, 3, 4, 5, 6, 7, 8, 9},
      {s32Index<Index>("pimInterfaceIfIndex", "index=")},
      {
          PIMSNMP_COLUMN(2, "pimInterfaceAddress", "address", LanetIpGenAddrToAsnOctetString,
                         ASN_IPADDRESS, e.address()),
          // A network-order mask goes out as its 4 octets (docs/decisions.md).
          PIMSNMP_COLUMN(3, "pimInterfaceNetMask", "interfaceNetMask", U32ToAsnOctets,
                         ASN_IPADDRESS, e.interfaceNetMask()),
          PIMSNMP_COLUMN(4, "pimInterfaceMode", "mode", ModeToAsnInteger, ASN_INTEGER, e.mode(),
                         true),
          PIMSNMP_COLUMN(5, "pimInterfaceDR", "drAddr", LanetIpGenAddrToAsnOctetString,
                         ASN_IPADDRESS, e.drAddr()),
          PIMSNMP_COLUMN(6, "pimInterfaceHelloInterval", "helloInterval", U32ToAsnUnsigned,
                         ASN_INTEGER, e.helloInterval(), true),
          PIMSNMP_COLUMN(7, "pimInterfaceStatus", "rowStatus", S32ToAsnInteger, ASN_INTEGER,
                         e.rowStatus(), true),
          PIMSNMP_COLUMN(8, "pimInterfaceJoinPruneInterval", "jpInterval", U32ToAsnUnsigned,
                         ASN_INTEGER, e.jpInterval(), true),
          PIMSNMP_COLUMN(9, "pimInterfaceCBSRPreference", "csbrPreference", S32ToAsnInteger,
                         ASN_INTEGER, e.csbrPreference(), true),
      },
      [](const PimMib& m) -> const Def::Coll& { return m.pimInterfaceTable(); },
      &defaultTraceHandle(),
  };
  return d;
}

const PimNeighborTableTraits::Def& PimNeighborTableTraits::def() {
  using Entry = PimNeighborEntry;
  static const Def d{
      "pimNeighborTable",
      "Lanet::IpGenAddr",
      {1, 3, 6, 1, 3, 61, 1, 1, 3},
      HANDLER_CAN_RONLY,
      2,
      5,
      {2, 3, 4, 5},
      {ipAddressIndex<Index>("pimNeighborAddress", "index=")},
      {
          PIMSNMP_COLUMN(2, "pimNeighborIfIndex", "interfaceIndex", S32ToAsnInteger, ASN_INTEGER,
                         e.interfaceIndex()),
          PIMSNMP_COLUMN(3, "pimNeighborUpTime", "upTime", SecondsToTimeTicks, ASN_TIMETICKS,
                         e.upTime()),
          PIMSNMP_COLUMN(4, "pimNeighborExpiryTime", "expiryTime", SecondsToTimeTicks,
                         ASN_TIMETICKS, e.expiryTime()),
          PIMSNMP_COLUMN(5, "pimNeighborMode", "mode", ModeToAsnInteger, ASN_INTEGER, e.mode()),
      },
      [](const PimMib& m) -> const Def::Coll& { return m.pimNeighborTable(); },
      &defaultTraceHandle(),
  };
  return d;
}

const PimIpMRouteTableTraits::Def& PimIpMRouteTableTraits::def() {
  using Entry = PimIpMrouteEntry;
  static const Def d{
      "pimIpMRouteTable",
      "PimIpMrouteEntryIndex",
      {1, 3, 6, 1, 3, 61, 1, 1, 4},
      HANDLER_CAN_RONLY,
      1,
      5,
      {1, 2, 3, 4, 5},
      {
          ipAddressIndex<Index, &Index::group>("ipMRouteGroup", "gAddr="),
          ipAddressIndex<Index, &Index::source>("ipMRouteSource", "sAddr="),
          maskIndex<Index, &Index::sMask>("ipMRouteSourceMask", "sMask="),
      },
      {
          PIMSNMP_COLUMN(1, "pimIpMRouteUpstreamAssertTimer", "upstreamAssertTimer", U32ToTimeTicks,
                         ASN_TIMETICKS, e.upstreamAssertTimer()),
          PIMSNMP_COLUMN(2, "pimIpMRouteAssertMetric", "assertMetric", S32ToAsnInteger, ASN_INTEGER,
                         static_cast<int32_t>(e.assertMetric())),
          PIMSNMP_COLUMN(3, "pimIpMRouteAssertMetricPref", "assertMetricPref", S32ToAsnInteger,
                         ASN_INTEGER, static_cast<int32_t>(e.assertMetricPref())),
          PIMSNMP_COLUMN(4, "pimIpMRouteAssertRPTBit", "assertRptBit", BoolToAsnInteger,
                         ASN_INTEGER, e.assertRptBit()),
          // The flags' bytes as laid out in memory (docs/decisions.md).
          PIMSNMP_COLUMN(5, "pimIpMRouteFlags", "mrouteFlags", U32ToAsnOctets, ASN_OCTET_STR,
                         e.mrouteFlags()),
      },
      [](const PimMib& m) -> const Def::Coll& { return m.pimIpMrouteTable(); },
      &defaultTraceHandle(),
  };
  return d;
}

const PimRPSetTableTraits::Def& PimRPSetTableTraits::def() {
  using Entry = PimRPSetEntry;
  static const Def d{
      "pimRPSetTable",
      "PimRPSetEntryIndex",
      {1, 3, 6, 1, 3, 61, 1, 1, 6},
      HANDLER_CAN_RONLY,
      4,
      5,
      {4, 5},
      {
          nonNegativeIntegerIndex<Index, &Index::pimComponentId>("pimRPSetComponent",
                                                                 "pimComponentId="),
          ipAddressIndex<Index, &Index::group>("pimRPSetGroupAddress", "group="),
          maskIndex<Index, &Index::gMask>("pimRPSetGroupMask", "gMask="),
          ipAddressIndex<Index, &Index::rpAddr>("pimRPSetAddress", "rpAddr="),
      },
      {
          PIMSNMP_COLUMN(4, "pimRPSetHoldTime", "holdTime", U32ToAsnUnsigned, ASN_INTEGER,
                         e.holdTime()),
          PIMSNMP_COLUMN(5, "pimRPSetExpiryTime", "expiryTime", SecondsToTimeTicks, ASN_TIMETICKS,
                         e.expiryTime()),
      },
      [](const PimMib& m) -> const Def::Coll& { return m.pimRPSetTable(); },
      &defaultTraceHandle(),
  };
  return d;
}

const PimIpMRouteNextHopTableTraits::Def& PimIpMRouteNextHopTableTraits::def() {
  using Entry = PimIpMrouteNextHopEntry;
  static const Def d{
      "pimIpMRouteNextHopTable",
      "PimIpMrouteNextHopEntryIndex",
      {1, 3, 6, 1, 3, 61, 1, 1, 7},
      HANDLER_CAN_RONLY,
      2,
      2,
      {2},
      {
          ipAddressIndex<Index, &Index::group>("ipMRouteNextHopGroup", "gAddr="),
          ipAddressIndex<Index, &Index::source>("ipMRouteNextHopSource", "sAddr="),
          maskIndex<Index, &Index::sMask>("ipMRouteNextHopSourceMask", "sMask="),
          s32Index<Index, &Index::ifIndex>("ipMRouteNextHopIfIndex", "ifIndex="),
          ipAddressIndex<Index, &Index::address>("ipMRouteNextHopAddress", "address="),
      },
      {
          PIMSNMP_COLUMN(2, "pimIpMRouteNextHopPruneReason", "nextHopPruneReason", U32ToAsnUnsigned,
                         ASN_INTEGER, e.nextHopPruneReason() & 0xFFu),
      },
      [](const PimMib& m) -> const Def::Coll& { return m.pimIpMrouteNextHopTable(); },
      &defaultTraceHandle(),
  };
  return d;
}

const PimCandidateRPTableTraits::Def& PimCandidateRPTableTraits::def() {
  using Entry = PimCandidateRPEntry;
  static const Def d{
      "pimCandidateRPTable",
      "PimCandidateRPEntryIndex",
      {1, 3, 6, 1, 3, 61, 1, 1, 11},
      HANDLER_CAN_RWRITE,
      3,
      4,
      {3, 4},
      {
          ipAddressIndex<Index, &Index::group>("pimCandidateRPGroupAddress", "group="),
          maskIndex<Index, &Index::gMask>("pimCandidateRPGroupMask", "gMask="),
      },
      {
          PIMSNMP_COLUMN(3, "pimCandidateRPAddress", "rp", LanetIpGenAddrToAsnOctetString,
                         ASN_IPADDRESS, e.rpAddress(), true),
          PIMSNMP_COLUMN(4, "pimCandidateRPRowStatus", "rowStatus", S32ToAsnInteger, ASN_INTEGER,
                         e.rowStatus(), true),
      },
      [](const PimMib& m) -> const Def::Coll& { return m.pimCandidateRPTable(); },
      &defaultTraceHandle(),
  };
  return d;
}

const PimComponentTableTraits::Def& PimComponentTableTraits::def() {
  using Entry = PimComponentEntry;
  static const Def d{
      "pimComponentTable",
      "S32",
      {1, 3, 6, 1, 3, 61, 1, 1, 12},
      HANDLER_CAN_RWRITE,
      2,
      5,
      {2, 3, 4, 5},
      {s32Index<Index>("pimComponentIndex", "index=")},
      {
          PIMSNMP_COLUMN(2, "pimComponentBSRAddress", "bsrAddr", LanetIpGenAddrToAsnOctetString,
                         ASN_IPADDRESS, e.bsrAddr()),
          PIMSNMP_COLUMN(3, "pimComponentBSRExpiryTime", "bsTimeout", SecondsToTimeTicks,
                         ASN_TIMETICKS, e.bsTimeout()),
          PIMSNMP_COLUMN(4, "pimComponentCRPHoldTime", "crpHoldTime", U32ToAsnUnsigned, ASN_INTEGER,
                         e.crpHoldTime(), true),
          PIMSNMP_COLUMN(5, "pimComponentStatus", "rowStatus", S32ToAsnInteger, ASN_INTEGER,
                         e.rowStatus(), true),
      },
      [](const PimMib& m) -> const Def::Coll& { return m.pimComponentTable(); },
      &defaultTraceHandle(),
  };
  return d;
}

// pimJoinPruneInterval: the VRF's PIM config must exist, but the value is always the
// protocol default of 60 seconds.
constexpr int32_t kJoinPruneInterval = 60;

std::string pimConfigPath(const std::string& context) {
  // The collection's keys are quoted VRF names: "'red'".
  return Ent::childPath("Stadb/routing/pim/config.vrfConfig", "'" + contextVrf(context) + "'");
}

int handle_pimJoinPruneInterval(netsnmp_mib_handler*, netsnmp_handler_registration*,
                                netsnmp_agent_request_info*, netsnmp_request_info*);

const ScalarDef& pimJoinPruneIntervalDef() {
  static const ScalarDef d{
      "pimJoinPruneInterval",
      {1, 3, 6, 1, 3, 61, 1, 1, 1},
      &handle_pimJoinPruneInterval,
      &pimConfigPath,
      "Routing::Pim::Config",
      &isEntityOf<Routing::Pim::Config>,
      "joinPruneIntervalDefault",
      "S32ToAsnInteger",
      ASN_INTEGER,
      [](const Ent::Entity*, uint8_t* buf, size_t capacity) {
        return S32ToAsnInteger(kJoinPruneInterval, buf, capacity);
      },
      nullptr,
      &defaultTraceHandle(),
  };
  return d;
}

PIMSNMP_SCALAR_HANDLER(pimJoinPruneInterval, pimJoinPruneIntervalDef())

}  // namespace

PIMSNMP_MIB_TABLE(pimInterfaceTable, PimInterfaceTableTraits, registry())
PIMSNMP_MIB_TABLE(pimNeighborTable, PimNeighborTableTraits, registry())
PIMSNMP_MIB_TABLE(pimIpMRouteTable, PimIpMRouteTableTraits, registry())
PIMSNMP_MIB_TABLE(pimRPSetTable, PimRPSetTableTraits, registry())
PIMSNMP_MIB_TABLE(pimIpMRouteNextHopTable, PimIpMRouteNextHopTableTraits, registry())
PIMSNMP_MIB_TABLE(pimCandidateRPTable, PimCandidateRPTableTraits, registry())
PIMSNMP_MIB_TABLE(pimComponentTable, PimComponentTableTraits, registry())

void init_PimMIB(const std::string& context) {
  const Ent::Ptr<::Snmp::Config> config = SnmpUtil::getSnmpConfig();
  DEBUGMSGTL(("PimMIB", "Initializing in context \"%s\"\n", context.c_str()));
  registerScalar(pimJoinPruneIntervalDef(), context, registry(), "init_PimMIB");
  initialize_table_pimInterfaceTable(config, context);
  initialize_table_pimNeighborTable(config, context);
  initialize_table_pimIpMRouteTable(config, context);
  initialize_table_pimRPSetTable(config, context);
  initialize_table_pimIpMRouteNextHopTable(config, context);
  initialize_table_pimCandidateRPTable(config, context);
  initialize_table_pimComponentTable(config, context);
  ::Snmp::registerMibContext("PimMIB", context);
}

void unregister_PimMIB(const std::string& context) {
  TRACE2("Unregistering PimMIB in context \"{}\"", context);
  registry().unregisterContext(context);
  ::Snmp::unregisterMibContext("PimMIB", context);
}

const ModuleRegistry& PimMIBRegistry() {
  return registry();
}
