#include "PimSnmp/Converters/Converters.h"

#include "platform/Snmp/Converters.h"

namespace Routing::Pim::Snmp {

int ModeToAsnInteger(uint8_t mode, uint8_t* buf, size_t capacity) {
  return ::Snmp::S32ToAsnInteger(mode == 1 ? kPimModeSparse : kPimModeDense, buf, capacity);
}

int NextHopStateToAsnInteger(NextHopState state, uint8_t* buf, size_t capacity) {
  return ::Snmp::S32ToAsnInteger(state == nhStateForwarding ? kNextHopForwarding : kNextHopPruned,
                                 buf, capacity);
}

}  // namespace Routing::Pim::Snmp
