#include "PimSnmp/PimSnmp/PimNeighborEntry.h"

#include <cmath>

#include "platform/Clock/Clock.h"

namespace Routing::Pim::Snmp {

double PimNeighborEntry::upTime() const {
  return neighbor_ ? Plat::now() - neighbor_->creationTime() : 0;
}

double PimNeighborEntry::expiryTime() const {
  if (!neighbor_) return 0;
  const double hold = neighbor_->holdTime();
  const double elapsed = std::round(Plat::now() - neighbor_->lastRefreshTime());
  return elapsed < hold ? hold - elapsed : 0;
}

}  // namespace Routing::Pim::Snmp
