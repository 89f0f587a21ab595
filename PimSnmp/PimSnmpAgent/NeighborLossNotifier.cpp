#include "PimSnmp/PimSnmpAgent/NeighborLossNotifier.h"

namespace Routing::Pim::SnmpAgent {

namespace {

NeighborLossNotifier*& installed() {
  static NeighborLossNotifier* notifier = nullptr;
  return notifier;
}

}  // namespace

NeighborLossNotifier& neighborLossNotifier() {
  NeighborLossNotifier* n = installed();
  return n ? *n : moduleNeighborLossNotifier();
}

void neighborLossNotifierIs(NeighborLossNotifier* notifier) {
  installed() = notifier;
}

ScopedNeighborLossNotifier::ScopedNeighborLossNotifier(NeighborLossNotifier& notifier)
    : previous_(installed()) {
  installed() = &notifier;
}

ScopedNeighborLossNotifier::~ScopedNeighborLossNotifier() {
  installed() = previous_;
}

}  // namespace Routing::Pim::SnmpAgent
