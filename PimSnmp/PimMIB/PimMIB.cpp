#include "PimSnmp/PimMIB/PimMIB.h"

#include "PimSnmp/Converters/Converters.h"
#include "PimSnmp/MibTable/IndexParts.h"
#include "PimSnmp/MibTable/MibModule.h"
#include "PimSnmp/MibTable/MibScalar.h"
#include "PimSnmp/MibTable/MibTable.h"
#include "PimSnmp/MibTable/MibTc.h"
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

// pimInterfaceMode labels; ModeToAsnInteger produces dense and sparse.
Mib::Syntax pimModeSyntax() {
  return Mib::enumeration(
      {{kPimModeDense, "dense"}, {kPimModeSparse, "sparse"}, {kPimModeSparseDense, "sparseDense"}});
}

Mib::Syntax neighborModeSyntax() {
  return Mib::enumeration({{kPimModeDense, "dense"}, {kPimModeSparse, "sparse"}});
}

Mib::Syntax pruneReasonSyntax() {
  return Mib::enumeration({{1, "other"},
                           {PimIpMrouteNextHopEntry::kPruneReasonPrune, "prune"},
                           {PimIpMrouteNextHopEntry::kPruneReasonAssert, "assert"}});
}

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
      indexParts<Index>({{"pimInterfaceIfIndex", "index=",
                          Mib::indexColumn(1, Mib::tc(Mib::interfaceIndex()),
                                           "ifIndex of a PIM interface of the VRF.")}}),
      {
          PIMSNMP_COLUMN(2, "pimInterfaceAddress", "address", LanetIpGenAddrToAsnOctetString,
                         ASN_IPADDRESS, e.address(),
                         Mib::object(Mib::base(Mib::Base::kIpAddress),
                                     "The interface's IPv4 address that PIM uses.")),
          // A network-order mask goes out as its 4 octets (docs/decisions.md).
          PIMSNMP_COLUMN(3, "pimInterfaceNetMask", "interfaceNetMask", U32ToAsnOctets,
                         ASN_IPADDRESS, e.interfaceNetMask(),
                         Mib::object(Mib::base(Mib::Base::kIpAddress),
                                     "The network mask of the interface's address.")),
          PIMSNMP_COLUMN(4, "pimInterfaceMode", "mode", ModeToAsnInteger, ASN_INTEGER, e.mode(),
                         Mib::object(pimModeSyntax(),
                                     "The PIM mode the interface runs: sparse(2) for a sparse-mode "
                                     "interface, dense(1) otherwise."),
                         true),
          PIMSNMP_COLUMN(5, "pimInterfaceDR", "drAddr", LanetIpGenAddrToAsnOctetString,
                         ASN_IPADDRESS, e.drAddr(),
                         Mib::object(Mib::base(Mib::Base::kIpAddress),
                                     "The designated router elected on the interface.")),
          PIMSNMP_COLUMN(
              6, "pimInterfaceHelloInterval", "helloInterval", U32ToAsnUnsigned, ASN_INTEGER,
              e.helloInterval(),
              Mib::object(Mib::integer32(0, 65535),
                          "How often the router sends PIM Hellos on the interface.", "seconds"),
              true),
          PIMSNMP_COLUMN(7, "pimInterfaceStatus", "rowStatus", S32ToAsnInteger, ASN_INTEGER,
                         e.rowStatus(),
                         Mib::object(Mib::tc(Mib::rowStatus()),
                                     "Always active(1): rows exist while the interface runs PIM."),
                         true),
          PIMSNMP_COLUMN(
              8, "pimInterfaceJoinPruneInterval", "jpInterval", U32ToAsnUnsigned, ASN_INTEGER,
              e.jpInterval(),
              Mib::object(Mib::integer32(0, 65535),
                          "How often the router sends Join/Prune messages on the interface.",
                          "seconds"),
              true),
          PIMSNMP_COLUMN(
              9, "pimInterfaceCBSRPreference", "csbrPreference", S32ToAsnInteger, ASN_INTEGER,
              e.csbrPreference(),
              Mib::object(
                  Mib::integer32(-1, 255),
                  "The interface's candidate-BSR priority, -1 when it is not a candidate BSR."),
              true),
      },
      [](const PimMib& m) -> const Def::Coll& { return m.pimInterfaceTable(); },
      &defaultTraceHandle(),
      "The VRF's PIM interfaces.",
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
      indexParts<Index>({{"pimNeighborAddress", "index=",
                          Mib::indexColumn(1, Mib::base(Mib::Base::kIpAddress),
                                           "IPv4 address of a PIM neighbor.")}}),
      {
          PIMSNMP_COLUMN(2, "pimNeighborIfIndex", "interfaceIndex", S32ToAsnInteger, ASN_INTEGER,
                         e.interfaceIndex(),
                         Mib::object(Mib::tc(Mib::interfaceIndex()),
                                     "The interface the neighbor was heard on.")),
          PIMSNMP_COLUMN(
              3, "pimNeighborUpTime", "upTime", SecondsToTimeTicks, ASN_TIMETICKS, e.upTime(),
              Mib::object(Mib::base(Mib::Base::kTimeTicks), "How long the neighbor has been up.")),
          PIMSNMP_COLUMN(4, "pimNeighborExpiryTime", "expiryTime", SecondsToTimeTicks,
                         ASN_TIMETICKS, e.expiryTime(),
                         Mib::object(Mib::base(Mib::Base::kTimeTicks),
                                     "Time left before the neighbor's hold time runs out.")),
          PIMSNMP_COLUMN(5, "pimNeighborMode", "mode", ModeToAsnInteger, ASN_INTEGER, e.mode(),
                         Mib::object(neighborModeSyntax(),
                                     "The neighbor's PIM mode, as its interface runs it.")),
      },
      [](const PimMib& m) -> const Def::Coll& { return m.pimNeighborTable(); },
      &defaultTraceHandle(),
      "The PIM neighbors heard on the VRF's interfaces.",
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
      indexParts<Index>({
          {"ipMRouteGroup", "gAddr=", Mib::kImported},
          {"ipMRouteSource", "sAddr=", Mib::kImported},
          {"ipMRouteSourceMask", "sMask=", Mib::kImported},
      }),
      {
          PIMSNMP_COLUMN(1, "pimIpMRouteUpstreamAssertTimer", "upstreamAssertTimer", U32ToTimeTicks,
                         ASN_TIMETICKS, e.upstreamAssertTimer(),
                         Mib::object(Mib::base(Mib::Base::kTimeTicks),
                                     "Time left on the upstream assert timer; 0 when none runs.")),
          PIMSNMP_COLUMN(2, "pimIpMRouteAssertMetric", "assertMetric", S32ToAsnInteger, ASN_INTEGER,
                         static_cast<int32_t>(e.assertMetric()),
                         Mib::object(Mib::integer32(0, INT32_MAX),
                                     "The metric of the upstream interface's assert winner.")),
          PIMSNMP_COLUMN(
              3, "pimIpMRouteAssertMetricPref", "assertMetricPref", S32ToAsnInteger, ASN_INTEGER,
              static_cast<int32_t>(e.assertMetricPref()),
              Mib::object(Mib::integer32(0, INT32_MAX),
                          "The metric preference of the upstream interface's assert winner.")),
          PIMSNMP_COLUMN(4, "pimIpMRouteAssertRPTBit", "assertRptBit", BoolToAsnInteger,
                         ASN_INTEGER, e.assertRptBit(),
                         Mib::object(Mib::tc(Mib::truthValue()),
                                     "The RPT bit of the upstream interface's assert winner.")),
          // The flags' bytes as laid out in memory (docs/decisions.md).
          PIMSNMP_COLUMN(5, "pimIpMRouteFlags", "mrouteFlags", U32ToAsnOctets, ASN_OCTET_STR,
                         e.mrouteFlags(),
                         Mib::object(Mib::base(Mib::Base::kOctetString, {{4, 4}}),
                                     "The route's shortest-path-tree flag as a 32-bit word in the "
                                     "agent's byte order: 1 on the SPT, 0 otherwise.")),
      },
      [](const PimMib& m) -> const Def::Coll& { return m.pimIpMrouteTable(); },
      &defaultTraceHandle(),
      "PIM state of the VRF's IPv4 multicast routes, beside ipMRouteTable's rows.",
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
      indexParts<Index>({
          {"pimRPSetComponent", "pimComponentId=",
           Mib::indexColumn(6, Mib::integer32(1, 255),
                            "The PIM domain component the RP-set entry belongs to.")},
          {"pimRPSetGroupAddress", "group=",
           Mib::indexColumn(1, Mib::base(Mib::Base::kIpAddress),
                            "Group prefix address of the RP-set entry.")},
          {"pimRPSetGroupMask", "gMask=",
           Mib::indexColumn(2, Mib::base(Mib::Base::kIpAddress),
                            "Group prefix mask of the RP-set entry.")},
          {"pimRPSetAddress", "rpAddr=",
           Mib::indexColumn(3, Mib::base(Mib::Base::kIpAddress), "IPv4 address of the RP.")},
      }),
      {
          PIMSNMP_COLUMN(
              4, "pimRPSetHoldTime", "holdTime", U32ToAsnUnsigned, ASN_INTEGER, e.holdTime(),
              Mib::object(Mib::integer32(0, 255),
                          "The RP's hold time as last advertised; 0 for a static RP.", "seconds")),
          PIMSNMP_COLUMN(
              5, "pimRPSetExpiryTime", "expiryTime", SecondsToTimeTicks, ASN_TIMETICKS,
              e.expiryTime(),
              Mib::object(Mib::base(Mib::Base::kTimeTicks),
                          "Time left before the RP-set entry expires; 0 for a static RP.")),
      },
      [](const PimMib& m) -> const Def::Coll& { return m.pimRPSetTable(); },
      &defaultTraceHandle(),
      "The rendezvous points the VRF knows for each group prefix, learned or static.",
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
      indexParts<Index>({
          {"ipMRouteNextHopGroup", "gAddr=", Mib::kImported},
          {"ipMRouteNextHopSource", "sAddr=", Mib::kImported},
          {"ipMRouteNextHopSourceMask", "sMask=", Mib::kImported},
          {"ipMRouteNextHopIfIndex", "ifIndex=", Mib::kImported},
          {"ipMRouteNextHopAddress", "address=", Mib::kImported},
      }),
      {
          PIMSNMP_COLUMN(2, "pimIpMRouteNextHopPruneReason", "nextHopPruneReason", U32ToAsnUnsigned,
                         ASN_INTEGER, e.nextHopPruneReason() & 0xFFu,
                         Mib::object(pruneReasonSyntax(),
                                     "Why the next hop is pruned: assert(3) when the interface "
                                     "lost an assert, prune(2) otherwise.")),
      },
      [](const PimMib& m) -> const Def::Coll& { return m.pimIpMrouteNextHopTable(); },
      &defaultTraceHandle(),
      "Why each pruned next hop of ipMRouteNextHopTable is pruned.",
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
      indexParts<Index>({
          {"pimCandidateRPGroupAddress", "group=",
           Mib::indexColumn(1, Mib::base(Mib::Base::kIpAddress),
                            "Group prefix address the router is a candidate RP for.")},
          {"pimCandidateRPGroupMask", "gMask=",
           Mib::indexColumn(2, Mib::base(Mib::Base::kIpAddress),
                            "Group prefix mask the router is a candidate RP for.")},
      }),
      {
          PIMSNMP_COLUMN(
              3, "pimCandidateRPAddress", "rp", LanetIpGenAddrToAsnOctetString, ASN_IPADDRESS,
              e.rpAddress(),
              Mib::object(Mib::base(Mib::Base::kIpAddress),
                          "The address the router advertises as candidate RP for the prefix."),
              true),
          PIMSNMP_COLUMN(4, "pimCandidateRPRowStatus", "rowStatus", S32ToAsnInteger, ASN_INTEGER,
                         e.rowStatus(), Mib::object(Mib::tc(Mib::rowStatus()), "Always active(1)."),
                         true),
      },
      [](const PimMib& m) -> const Def::Coll& { return m.pimCandidateRPTable(); },
      &defaultTraceHandle(),
      "The group prefixes the router is a candidate RP for in the VRF.",
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
      indexParts<Index>(
          {{"pimComponentIndex", "index=",
            Mib::indexColumn(1, Mib::integer32(1, 255), "A PIM domain component of the VRF.")}}),
      {
          PIMSNMP_COLUMN(2, "pimComponentBSRAddress", "bsrAddr", LanetIpGenAddrToAsnOctetString,
                         ASN_IPADDRESS, e.bsrAddr(),
                         Mib::object(Mib::base(Mib::Base::kIpAddress),
                                     "The bootstrap router elected for the component.")),
          PIMSNMP_COLUMN(3, "pimComponentBSRExpiryTime", "bsTimeout", SecondsToTimeTicks,
                         ASN_TIMETICKS, e.bsTimeout(),
                         Mib::object(Mib::base(Mib::Base::kTimeTicks),
                                     "Time left before the bootstrap router times out.")),
          PIMSNMP_COLUMN(
              4, "pimComponentCRPHoldTime", "crpHoldTime", U32ToAsnUnsigned, ASN_INTEGER,
              e.crpHoldTime(),
              Mib::object(Mib::integer32(0, 255),
                          "The hold time the router advertises as candidate RP.", "seconds"),
              true),
          PIMSNMP_COLUMN(5, "pimComponentStatus", "rowStatus", S32ToAsnInteger, ASN_INTEGER,
                         e.rowStatus(), Mib::object(Mib::tc(Mib::rowStatus()), "Always active(1)."),
                         true),
      },
      [](const PimMib& m) -> const Def::Coll& { return m.pimComponentTable(); },
      &defaultTraceHandle(),
      "The VRF's PIM domain components and their bootstrap routers.",
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
      Mib::object(
          Mib::integer32(0, 65535),
          "The Join/Prune interval of the VRF's PIM instance (always the protocol default of 60).",
          "seconds"),
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

const Routing::Pim::Snmp::Mib::Module& PimMIBModule() {
  static const Mib::Module m{
      "PIMSNMP-PIM-MIB",
      "pimMIB",
      {1, 3, 6, 1, 3, 61},
      "202611230000Z",
      "The PIM-MIB objects pimsnmpd serves, read-only, for each VRF in the VRF's SNMP context; "
      "generated from the agent's own table descriptors.",
      {
          {"pimMIBObjects", {1, 3, 6, 1, 3, 61, 1}},
          {"pimTraps", {1, 3, 6, 1, 3, 61, 1, 0}},
          {"pim", {1, 3, 6, 1, 3, 61, 1, 1}},
      },
      {Mib::scalarOf(pimJoinPruneIntervalDef())},
      {
          Mib::tableOf(PimInterfaceTableTraits::def()),
          Mib::tableOf(PimNeighborTableTraits::def()),
          Mib::tableOf(PimIpMRouteTableTraits::def()),
          Mib::tableOf(PimRPSetTableTraits::def()),
          Mib::tableOf(PimIpMRouteNextHopTableTraits::def()),
          Mib::tableOf(PimCandidateRPTableTraits::def()),
          Mib::tableOf(PimComponentTableTraits::def()),
      },
      {::Snmp::pimNeighborLossNotification()},
  };
  return m;
}
