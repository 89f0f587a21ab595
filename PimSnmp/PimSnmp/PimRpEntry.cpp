#include "PimSnmp/PimSnmp/PimRpEntry.h"

#include <cmath>

#include "platform/Clock/Clock.h"

namespace Routing::Pim::Snmp {

uint32_t PimRPSetEntry::holdTime() const {
  return rpType_ == rpTypeBsr && rp_ ? rp_->holdTime() : 0;
}

double PimRPSetEntry::expiryTime() const {
  if (rpType_ != rpTypeBsr || !rp_) return 0;
  return std::round(rp_->expiryTime() - Plat::now());
}

}  // namespace Routing::Pim::Snmp
