#include "PimSnmp/PimMIB/PimMIB.h"
#include "PimSnmp/PimSnmpAgent/NeighborLossNotifier.h"

namespace Routing::Pim::SnmpAgent {

namespace {

class ModuleNeighborLossNotifier : public NeighborLossNotifier {
 public:
  void pimNeighborLossNotify(int32_t ifIndex, Lanet::IpAddr address,
                             const std::string& context) override {
    ::Snmp::pimNeighborLossNotify(ifIndex, address, context);
  }
};

}  // namespace

NeighborLossNotifier& moduleNeighborLossNotifier() {
  static ModuleNeighborLossNotifier notifier;
  return notifier;
}

}  // namespace Routing::Pim::SnmpAgent
