#pragma once

#include <cstdint>
#include <string>

#include "platform/Lanet/IpAddr.h"

namespace Routing::Pim::SnmpAgent {

// Raises the pimNeighborLoss notification. A seam: the process default calls
// Snmp::pimNeighborLossNotify; tests install a recorder.
class NeighborLossNotifier {
 public:
  virtual ~NeighborLossNotifier() = default;
  virtual void pimNeighborLossNotify(int32_t ifIndex, Lanet::IpAddr address,
                                     const std::string& context) = 0;
};

// The notifier in use: the one installed by neighborLossNotifierIs, else the PIM-MIB module's.
NeighborLossNotifier& neighborLossNotifier();
// Installs `notifier` (not owned; null restores the module's).
void neighborLossNotifierIs(NeighborLossNotifier* notifier);
// The notifier that calls Snmp::pimNeighborLossNotify.
NeighborLossNotifier& moduleNeighborLossNotifier();

// Installs a notifier for the lifetime of a scope.
class ScopedNeighborLossNotifier {
 public:
  explicit ScopedNeighborLossNotifier(NeighborLossNotifier& notifier);
  ~ScopedNeighborLossNotifier();
  ScopedNeighborLossNotifier(const ScopedNeighborLossNotifier&) = delete;
  ScopedNeighborLossNotifier& operator=(const ScopedNeighborLossNotifier&) = delete;

 private:
  NeighborLossNotifier* previous_;
};

}  // namespace Routing::Pim::SnmpAgent
