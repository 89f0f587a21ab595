#pragma once

// The state document's shape, declared once: per object kind, a table of its members (name,
// value type, range or enumeration, default, whether required, and the platform input it
// feeds). The validator walks documents and patches with it, the JSON Schema
// (docs/state.schema.json) is generated from it, and the applier takes its defaults from the
// same constants. Rules that span members (interface references, unique ifIndex and OIF
// index, canonical key spellings, "wildcard" only on (*,G)) are hand-written hooks in the
// validator, named here by Rule and Key.

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string_view>

#include "daemon/state/DocumentSchema.h"

namespace PimSnmpd::Description {

enum class Type : uint8_t {
  text,              // any string
  integer,           // an integer in min..max (an integral float counts)
  time,              // Unix seconds, >= 0, fractions allowed
  boolean,           //
  enumeration,       // one of `names`
  address,           // an address of the section's family (unicast, or also unspecified)
  interfaceAddress,  // a unicast address of the section's family with its prefix length
  interfaceRef,      // the name of an interface of /interfaces
  flags,             // an array of distinct `names`
  oifs,              // an array of distinct interfaces of the family's fib/oifIndexes
  object,            // the members of `object`
  section,           // the same, for the family its member name names ("ipv4", "ipv6")
  map,               // members named by `key`, each an `item`
};

// What a map's member names are.
enum class Key : uint8_t {
  interfaceName,  // defines an interface
  interfaceRef,   // names an interface of /interfaces
  vrfName,        // 1..32 bytes, no control characters
  routeKey,       // "S,G" or "*,G" of the section's family, canonical
  groupRange,     // a multicast prefix without host bits, canonical
  address,        // a unicast address of the section's family, canonical
};

// Checks across the members of a map.
enum class Rule : uint8_t {
  none,
  uniqueIfIndex,   // the entries' ifIndex values are distinct
  uniqueOifIndex,  // the entries' values are distinct
};

struct Object;

struct Value {
  Type type = Type::text;
  uint64_t min = 0;
  uint64_t max = 0;
  std::span<const std::string_view> names{};
  const Object* object = nullptr;  // object, section
  const Value* item = nullptr;     // map
  Key key = Key::interfaceName;    // map
  bool unspecifiedOk = false;      // address: 0.0.0.0 / :: allowed ("none")
  Rule rule = Rule::none;          // map
};

// The value of an omitted member.
struct Default {
  enum class Kind : uint8_t { none, integer, boolean, name, time } kind = Kind::none;
  uint64_t integer = 0;
  std::string_view name{};
  std::string_view time{};  // how an omitted time is resolved, for the schema
};

struct Member {
  std::string_view name;
  Value value;
  Default fallback{};
  bool required = false;
  // One of the seven inputs the agent requires before it serves a VRF.
  bool input = false;
  std::string_view description{};
  // The platform input or MIB objects the member feeds.
  std::string_view feeds{};
};

struct Object {
  std::string_view name;
  std::span<const Member> members;

  const Member* find(std::string_view member) const {
    for (const Member& m : members) {
      if (m.name == member) return &m;
    }
    return nullptr;
  }
};

// -- Building blocks

template <const auto& table>
inline constexpr auto kNames = [] {
  std::array<std::string_view, std::size(table)> out{};
  for (size_t i = 0; i < out.size(); ++i) out[i] = table[i].name;
  return out;
}();

constexpr Value integer(uint64_t min, uint64_t max) {
  return {.type = Type::integer, .min = min, .max = max};
}
constexpr Value enumeration(std::span<const std::string_view> names) {
  return {.type = Type::enumeration, .names = names};
}
constexpr Value of(Type type) {
  return {.type = type};
}
constexpr Value address(bool unspecifiedOk) {
  return {.type = Type::address, .unspecifiedOk = unspecifiedOk};
}
constexpr Value object(const Object& o) {
  return {.type = Type::object, .object = &o};
}
constexpr Value map(Key key, const Value& item, Rule rule = Rule::none) {
  return {.type = Type::map, .item = &item, .key = key, .rule = rule};
}
constexpr Default byDefault(uint64_t n) {
  return {.kind = Default::Kind::integer, .integer = n};
}
constexpr Default byDefaultBool(bool b) {
  return {.kind = Default::Kind::boolean, .integer = b ? 1u : 0u};
}
constexpr Default byDefault(std::string_view name) {
  return {.kind = Default::Kind::name, .name = name};
}
constexpr Default resolvedTime(std::string_view how) {
  return {.kind = Default::Kind::time, .time = how};
}

inline constexpr uint64_t kU16 = std::numeric_limits<uint16_t>::max();
inline constexpr uint64_t kU32 = std::numeric_limits<uint32_t>::max();
inline constexpr uint64_t kU64 = std::numeric_limits<uint64_t>::max();
inline constexpr std::string_view kNow = "the time the item is first applied";

// -- /interfaces

inline constexpr Member kInterfaceMembers[] = {
    {"ifIndex",
     integer(1, Schema::kMaxIfIndex),
     {},
     true,
     false,
     {},
     "every ifIndex column and index of the three MIBs"},
    {"operStatus",
     enumeration(kNames<Schema::kOperStatuses>),
     byDefault(Schema::kDefaultOperStatus),
     false,
     false,
     {},
     "IF-MIB ifOperStatus"},
};
inline constexpr Object kInterface{"interface", kInterfaceMembers};

// -- pimConfig

inline constexpr Member kPimConfigMembers[] = {
    {"joinPruneInterval", integer(0, kU16), byDefault(Schema::kDefaultJoinPruneInterval), false,
     false, "Seconds.", "pimJoinPruneInterval"},
};
inline constexpr Object kPimConfig{"pimConfig", kPimConfigMembers};

// -- pimStatus

inline constexpr Member kNeighborMembers[] = {
    {"created", of(Type::time), resolvedTime(kNow), false, false, {}, "pimNeighborUpTime"},
    {"lastRefresh", of(Type::time), resolvedTime(kNow), false, false, {}, "pimNeighborExpiryTime"},
    {"holdTime",
     integer(0, kU16),
     byDefault(Schema::kDefaultNeighborHoldTime),
     false,
     false,
     {},
     "pimNeighborExpiryTime"},
};
inline constexpr Object kNeighbor{"neighbor", kNeighborMembers};
inline constexpr Value kNeighborValue = object(kNeighbor);

inline constexpr Member kPimIntfMembers[] = {
    {"address",
     of(Type::interfaceAddress),
     {},
     true,
     false,
     "Primary address (unicast: neither multicast nor unspecified) with its prefix length.",
     "pimInterfaceAddress, pimInterfaceNetMask"},
    {"mode",
     enumeration(kNames<Schema::kIntfModes>),
     byDefault(Schema::kDefaultIntfMode),
     false,
     false,
     {},
     "pimInterfaceMode, pimNeighborMode"},
    {"dr", address(true), {}, false, false, "Designated router.", "pimInterfaceDR"},
    {"helloInterval",
     integer(0, kU16),
     byDefault(Schema::kDefaultHelloInterval),
     false,
     false,
     {},
     "pimInterfaceHelloInterval"},
    {"joinPruneInterval",
     integer(0, kU16),
     byDefault(Schema::kDefaultJoinPruneInterval),
     false,
     false,
     {},
     "pimInterfaceJoinPruneInterval"},
    {"neighbors",
     map(Key::address, kNeighborValue),
     {},
     false,
     false,
     "Active PIM neighbors by address.",
     "pimNeighborTable"},
};
inline constexpr Object kPimIntf{"PIM interface", kPimIntfMembers};
inline constexpr Value kPimIntfValue = object(kPimIntf);

inline constexpr Member kPimStatusMembers[] = {
    {"mode", enumeration(kNames<Schema::kVrfModes>), byDefault(Schema::kDefaultVrfMode), false,
     false, "Mode of the VRF's PIM instance; only sparse VRFs are served.",
     "whether the VRF is served"},
    {"interfaces",
     map(Key::interfaceRef, kPimIntfValue),
     {},
     false,
     false,
     "PIM interfaces; each must be defined in /interfaces.",
     "pimInterfaceTable"},
};
inline constexpr Object kPimStatus{"pimStatus", kPimStatusMembers};

// -- bsrConfig

inline constexpr Member kBsrConfigMembers[] = {
    {"bootstrapTimeout", integer(0, kU32), byDefault(Schema::kDefaultBootstrapTimeout), false,
     false, "Seconds.", "pimComponentBSRExpiryTime"},
    {"candidateRpConfigs", integer(0, kU32), byDefault(Schema::kDefaultCandidateRpConfigs), false,
     false, "How many candidate-RP configurations the VRF has.", "pimComponentCRPHoldTime"},
};
inline constexpr Object kBsrConfig{"bsrConfig", kBsrConfigMembers};

// -- bsrStatus

inline constexpr Member kCandidateBsrMembers[] = {
    {"interface", of(Type::interfaceRef), {}, true, false, {}, "pimInterfaceCBSRPreference"},
    {"priority",
     integer(0, Schema::kMaxCbsrPriority),
     byDefault(Schema::kDefaultCbsrPriority),
     false,
     false,
     {},
     "pimInterfaceCBSRPreference"},
};
inline constexpr Object kCandidateBsr{"candidate BSR", kCandidateBsrMembers};
inline constexpr Value kCandidateBsrValue = object(kCandidateBsr);

inline constexpr Member kElectedBsrMembers[] = {
    {"address", address(false), {}, true, false, {}, "pimComponentBSRAddress"},
};
inline constexpr Object kElectedBsr{"elected BSR", kElectedBsrMembers};
inline constexpr Value kElectedBsrValue = object(kElectedBsr);

inline constexpr Object kCandidateRp{"candidate RP", {}};
inline constexpr Value kCandidateRpValue = object(kCandidateRp);

inline constexpr Member kBsrStatusMembers[] = {
    {"candidateBsrs",
     map(Key::groupRange, kCandidateBsrValue),
     {},
     false,
     false,
     "This router as candidate BSR, by group range.",
     {}},
    {"electedBsrs",
     map(Key::groupRange, kElectedBsrValue),
     {},
     false,
     false,
     "The elected BSR, by group range.",
     {}},
    {"candidateRps",
     map(Key::address, kCandidateRpValue),
     {},
     false,
     false,
     "The addresses this router advertises as candidate RP.",
     "pimCandidateRPTable"},
};
inline constexpr Object kBsrStatus{"bsrStatus", kBsrStatusMembers};

// -- candidateRpStatus, staticRpStatus

inline constexpr Member kRpMembers[] = {
    {"holdTime", integer(0, kU32), byDefault(Schema::kDefaultRpHoldTime), false, false,
     "Seconds, from the candidate-RP advertisement.", "pimRPSetHoldTime"},
    {"expiry", of(Type::time), resolvedTime("now + holdTime when first applied"), false, false,
     "When the RP expires.", "pimRPSetExpiryTime"},
};
inline constexpr Object kRp{"RP", kRpMembers};
inline constexpr Value kRpValue = object(kRp);
inline constexpr Value kRpSetValue = map(Key::address, kRpValue);

inline constexpr Member kRpGroups = {"groups",
                                     map(Key::groupRange, kRpSetValue),
                                     {},
                                     false,
                                     false,
                                     "Group range -> RP address -> RP.",
                                     "pimRPSetTable"};
inline constexpr Member kCandidateRpStatusMembers[] = {
    {"rpType",
     enumeration(kNames<Schema::kRpTypes>),
     byDefault(Schema::kDefaultCandidateRpType),
     false,
     false,
     "How the RPs were learnt.",
     {}},
    kRpGroups,
};
inline constexpr Object kCandidateRpStatus{"candidateRpStatus", kCandidateRpStatusMembers};
inline constexpr Member kStaticRpStatusMembers[] = {
    {"rpType",
     enumeration(kNames<Schema::kRpTypes>),
     byDefault(Schema::kDefaultStaticRpType),
     false,
     false,
     "How the RPs were learnt.",
     {}},
    kRpGroups,
};
inline constexpr Object kStaticRpStatus{"staticRpStatus", kStaticRpStatusMembers};

// -- mfibConfig

inline constexpr Member kMfibConfigMembers[] = {
    {"routing",
     of(Type::boolean),
     byDefaultBool(Schema::kDefaultMfibRouting),
     false,
     false,
     {},
     "ipMRouteEnable, ipMcastEnabled"},
};
inline constexpr Object kMfibConfig{"mfibConfig", kMfibConfigMembers};

// -- routes

inline constexpr Member kUpstreamMembers[] = {
    {"interface", of(Type::interfaceRef), {}, true, false, {}, "ipMRouteInIfIndex"},
    {"rpfNeighbor",
     address(true),
     {},
     false,
     false,
     "Default: the unspecified address.",
     "ipMRouteUpstreamNeighbor"},
};
inline constexpr Object kUpstream{"upstream", kUpstreamMembers};

inline constexpr Member kRouteIntfMembers[] = {
    {"assertState",
     enumeration(kNames<Schema::kAssertStates>),
     byDefault(Schema::kDefaultAssertState),
     false,
     false,
     {},
     "pimIpMRouteNextHopPruneReason"},
    {"assertMetric", integer(0, kU32), byDefault(0), false, false, {}, "pimIpMRouteAssertMetric"},
    {"assertMetricPref",
     integer(0, kU32),
     byDefault(0),
     false,
     false,
     {},
     "pimIpMRouteAssertMetricPref"},
    {"assertRptBit",
     of(Type::boolean),
     byDefaultBool(false),
     false,
     false,
     {},
     "pimIpMRouteAssertRPTBit"},
    {"rptState",
     enumeration(kNames<Schema::kRptStates>),
     byDefault(Schema::kDefaultRptState),
     false,
     false,
     {},
     "pimIpMRouteNextHopTable"},
    {"forward",
     of(Type::boolean),
     byDefaultBool(Schema::kDefaultForward),
     false,
     false,
     {},
     "pimIpMRouteNextHopTable"},
};
inline constexpr Object kRouteIntf{"route interface", kRouteIntfMembers};
inline constexpr Value kRouteIntfValue = object(kRouteIntf);

inline constexpr Member kRouteMembers[] = {
    {"created", of(Type::time), resolvedTime(kNow), false, false, {}, "ipMRouteUpTime"},
    {"upstream", object(kUpstream), {}, false, false, {}, "ipMRouteInIfIndex"},
    {"flags",
     {.type = Type::flags, .names = kNames<Schema::kRouteFlags>},
     {},
     false,
     false,
     "\"wildcard\" only on (*,G) routes.",
     "pimIpMRouteFlags"},
    {"interfaces",
     map(Key::interfaceRef, kRouteIntfValue),
     {},
     false,
     false,
     "The route's (S,G,I) state per interface.",
     "next hops"},
};
inline constexpr Object kRoute{"route", kRouteMembers};
inline constexpr Value kRouteValue = object(kRoute);

// -- fib

inline constexpr Member kFibRouteMembers[] = {
    {"oifs",
     of(Type::oifs),
     {},
     false,
     false,
     "Each must be in oifIndexes.",
     "ipMRouteNextHopState, ipMcastRouteNextHopState"},
    {"packets", integer(0, kU64), byDefault(0), false, false, {}, "ipMRoutePkts"},
    {"bytes", integer(0, kU64), byDefault(0), false, false, {}, "ipMRouteOctets"},
};
inline constexpr Object kFibRoute{"FIB route", kFibRouteMembers};
inline constexpr Value kFibRouteValue = object(kFibRoute);
inline constexpr Value kOifIndexValue = integer(0, 511);

inline constexpr Member kFibMembers[] = {
    {"oifIndexes",
     map(Key::interfaceRef, kOifIndexValue, Rule::uniqueOifIndex),
     {},
     false,
     false,
     "OIF index of each interface; indexes are unique.",
     {}},
    {"routes",
     map(Key::routeKey, kFibRouteValue),
     {},
     false,
     false,
     "Forwarding entries by \"S,G\" or \"*,G\".",
     "counters, next-hop states"},
};
inline constexpr Object kFib{"fib", kFibMembers};

// -- a VRF's family, a VRF, the document

inline constexpr Member kFamilyMembers[] = {
    {"pimConfig",
     object(kPimConfig),
     {},
     false,
     true,
     "PIM configuration of the VRF (a required input).",
     {}},
    {"pimStatus",
     object(kPimStatus),
     {},
     false,
     true,
     "PIM status of the VRF (a required input).",
     {}},
    {"bsrConfig", object(kBsrConfig), {}, false, true, "BSR configuration (a required input).", {}},
    {"bsrStatus", object(kBsrStatus), {}, false, true, "BSR status (a required input).", {}},
    {"candidateRpStatus",
     object(kCandidateRpStatus),
     {},
     false,
     true,
     "RPs learnt from BSR (a required input).",
     {}},
    {"staticRpStatus",
     object(kStaticRpStatus),
     {},
     false,
     true,
     "Configured RPs (a required input).",
     {}},
    {"mfibConfig",
     object(kMfibConfig),
     {},
     false,
     true,
     "Multicast routing configuration (a required input).",
     {}},
    {"routes",
     map(Key::routeKey, kRouteValue),
     {},
     false,
     false,
     "PIM sparse-mode routes by \"S,G\" or \"*,G\".",
     "ipMRouteTable, ipMcastRouteTable"},
    {"fib", object(kFib), {}, false, false, "The multicast FIB (role sparsemode).", {}},
};
inline constexpr Object kFamily{"family", kFamilyMembers};

inline constexpr Member kVrfMembers[] = {
    {"ipv4", {.type = Type::section, .object = &kFamily}, {}, false, false, {}, {}},
    {"ipv6", {.type = Type::section, .object = &kFamily}, {}, false, false, {}, {}},
};
inline constexpr Object kVrf{"VRF", kVrfMembers};
inline constexpr Value kVrfValue = object(kVrf);
inline constexpr Value kInterfaceValue = object(kInterface);

inline constexpr Member kDocumentMembers[] = {
    {"$schema", of(Type::text), {}, false, false, {}, {}},
    {"interfaces",
     map(Key::interfaceName, kInterfaceValue, Rule::uniqueIfIndex),
     {},
     false,
     false,
     "Interfaces by name.",
     {}},
    {"vrfs",
     map(Key::vrfName, kVrfValue),
     {},
     false,
     false,
     "VRFs by name: 1 to 32 bytes, an SNMP context name's limit (the schema can only count "
     "characters; the daemon counts UTF-8 bytes), without control characters (C0, DEL, C1).",
     {}},
};
inline constexpr Object kDocument{"document", kDocumentMembers};

}  // namespace PimSnmpd::Description
