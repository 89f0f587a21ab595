#pragma once

// The vocabulary of the state document: the names its enumerations accept, the platform values
// they stand for, and the values of omitted members. The description (Description.h) takes its
// enumerations and defaults from here, and the applier converts with the same tables.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/Interface/IntfStatus.h"
#include "platform/Lanet/AddressFamily.h"
#include "platform/Routing/Pim/Mode.h"
#include "platform/Routing/Pim/RpType.h"
#include "platform/Routing/Pim/SparseMode/Intf.h"
#include "platform/Routing/Pim/SparseMode/Route.h"

namespace PimSnmpd::Schema {

template <class T>
struct Named {
  std::string_view name;
  T value;
};

template <class T, size_t N>
std::optional<size_t> indexOf(const Named<T> (&table)[N], std::string_view name) {
  for (size_t i = 0; i < N; ++i) {
    if (table[i].name == name) return i;
  }
  return std::nullopt;
}

template <class T, size_t N>
std::optional<T> valueOf(const Named<T> (&table)[N], std::string_view name) {
  const auto i = indexOf(table, name);
  return i ? std::optional<T>(table[*i].value) : std::nullopt;
}

// The two sections of a VRF.
inline constexpr Named<Lanet::AddressFamily> kFamilies[] = {
    {"ipv4", Lanet::AddressFamily::ipv4},
    {"ipv6", Lanet::AddressFamily::ipv6},
};

// pimStatus.mode: the mode of the VRF's PIM instance. "sparse" is the instance the agent serves
// (Routing::Pim::modeVrfSparse, 3); a VRF of another mode is published but not served.
inline constexpr Named<Routing::Pim::Mode> kVrfModes[] = {
    {"sparse", Routing::Pim::modeVrfSparse},
    {"dense", Routing::Pim::modeDense},
    {"none", Routing::Pim::modeNone},
};
// pimStatus.interfaces.*.mode.
inline constexpr Named<Routing::Pim::Mode> kIntfModes[] = {
    {"sparse", Routing::Pim::modeSparse},
    {"dense", Routing::Pim::modeDense},
};
inline constexpr Named<Routing::Pim::RpType> kRpTypes[] = {
    {"none", Routing::Pim::rpTypeNone},
    {"static", Routing::Pim::rpTypeStatic},
    {"bsr", Routing::Pim::rpTypeBsr},
    {"autoRp", Routing::Pim::rpTypeAutoRp},
};
inline constexpr Named<uint8_t> kAssertStates[] = {
    {"none", Routing::Pim::SparseMode::assertStateNoInfo},
    {"winner", Routing::Pim::SparseMode::assertStateWinner},
    {"loser", Routing::Pim::SparseMode::assertStateLoser},
};
inline constexpr Named<uint8_t> kRptStates[] = {
    {"noInfo", Routing::Pim::SparseMode::rptStateNoInfo},
    {"pruned", Routing::Pim::SparseMode::rptStatePruned},
    {"prunePending", Routing::Pim::SparseMode::rptStatePrunePending},
};
inline constexpr Named<uint8_t> kRouteFlags[] = {
    {"wildcard", Routing::Pim::SparseMode::Route::kFlagWildcard},
    {"rpt", Routing::Pim::SparseMode::Route::kFlagRpt},
    {"spt", Routing::Pim::SparseMode::Route::kFlagSpt},
};
inline constexpr Named<Interface::OperStatus> kOperStatuses[] = {
    {"up", Interface::operUp},
    {"down", Interface::operDown},
    {"testing", Interface::operTesting},
    {"unknown", Interface::operUnknown},
    {"dormant", Interface::operDormant},
    {"notPresent", Interface::operNotPresent},
    {"lowerLayerDown", Interface::operLowerLayerDown},
};

// Ranges.
inline constexpr uint64_t kMaxIfIndex = 2147483647;
inline constexpr size_t kMaxIntfNameLen = 64;
// A VRF other than "default" is served in the SNMP context named after it, and net-snmp (like
// SNMP-VIEW-BASED-ACM-MIB's vacmContextName) takes context names of at most 32 bytes: a longer
// one is answered with noSuchContext. Such a VRF could never be served, so it is refused.
inline constexpr size_t kMaxVrfNameLen = 32;
inline constexpr uint64_t kMaxCbsrPriority = 255;

// Values of omitted members.
inline constexpr std::string_view kDefaultOperStatus = "up";
inline constexpr std::string_view kDefaultVrfMode = "sparse";
inline constexpr std::string_view kDefaultIntfMode = "sparse";
inline constexpr uint16_t kDefaultJoinPruneInterval = 60;
inline constexpr uint16_t kDefaultHelloInterval = 30;
inline constexpr uint16_t kDefaultNeighborHoldTime = 105;
inline constexpr uint32_t kDefaultBootstrapTimeout = 130;
inline constexpr uint32_t kDefaultCandidateRpConfigs = 0;
inline constexpr uint16_t kDefaultCbsrPriority = 64;
inline constexpr std::string_view kDefaultCandidateRpType = "bsr";
inline constexpr std::string_view kDefaultStaticRpType = "static";
inline constexpr uint32_t kDefaultRpHoldTime = 0;
inline constexpr bool kDefaultMfibRouting = true;
inline constexpr std::string_view kDefaultAssertState = "none";
inline constexpr std::string_view kDefaultRptState = "noInfo";
inline constexpr bool kDefaultForward = true;

}  // namespace PimSnmpd::Schema
