#pragma once

// The plug-in's own varbind converters, same contract as platform/Snmp/Converters.h: the value
// as a long for an INTEGER varbind, returning the length or a negative number.

#include <cstddef>
#include <cstdint>

#include "PimSnmp/MibTable/MibObject.h"
#include "PimSnmp/PimSnmp/NextHopState.h"

namespace Routing::Pim::Snmp {

// pimInterfaceMode / pimNeighborMode values.
inline constexpr int32_t kPimModeDense = 1;
inline constexpr int32_t kPimModeSparse = 2;
inline constexpr int32_t kPimModeSparseDense = 3;

// ipMRouteNextHopState / ipMcastRouteNextHopState values, and their labels.
inline constexpr int32_t kNextHopPruned = 1;
inline constexpr int32_t kNextHopForwarding = 2;
inline Mib::Syntax nextHopStateSyntax() {
  return Mib::enumeration({{kNextHopPruned, "pruned"}, {kNextHopForwarding, "forwarding"}});
}

// pimInterfaceMode / pimNeighborMode: the platform's sparse mode (1) reads sparse(2); every
// other mode reads dense(1). sparseDense(3) is never produced.
int ModeToAsnInteger(uint8_t mode, uint8_t* buf, size_t capacity);

// ipMRouteNextHopState / ipMcastRouteNextHopState: forwarding reads forwarding(2); pruned, and
// any value that is not a NextHopState, reads pruned(1).
int NextHopStateToAsnInteger(NextHopState state, uint8_t* buf, size_t capacity);

}  // namespace Routing::Pim::Snmp
