#include "platform/Routing/Pim/SparseMode/Shtab/RouteShtabReaderSm.h"

#include <utility>

#include "platform/Ent/Error.h"
#include "platform/Routing/Pim/Shtab/CollMirror.h"
#include "platform/Trace/Trace.h"

DEFAULT_TRACE_HANDLE("PimShtab")

namespace Routing::Pim::SparseMode::Shtab {

bool mirrorRoute(const Status& table, SparseMode::Status& local, const RouteKey& key) {
  // The generic mirror looks the key up on both sides first; a route of the table goes
  // straight to routeIs instead, which inserts first and leaves a record it holds already
  // alone: one descent of the local status for a new route, not two.
  if (Route* r = table.route().find(key)) return local.routeIs(Ent::Ptr<Route>(r));
  return local.routeDel(key) != nullptr;
}

std::optional<RouteKey> mirrorNextRoute(const Status& table, SparseMode::Status& local,
                                        const std::optional<RouteKey>& after, bool* changed) {
  return Pim::Shtab::mirrorNext<RouteKey>(
      table.route(), local.route(), after, [&](Ent::Ptr<Route> r) { local.routeIs(std::move(r)); },
      [&](const RouteKey& k) { local.routeDel(k); }, changed);
}

RouteShtabReaderSm::RouteShtabReaderSm(Ent::Ptr<SparseMode::Status> routeStatus,
                                       Ent::Ptr<const Status> routeShtabStatus)
    : Ent::Entity("routeShtabReaderSm"),
      routeStatus_(std::move(routeStatus)),
      routeShtabStatus_(std::move(routeShtabStatus)),
      rxRouteShtabStatus_(this, routeShtabStatus_) {
  if (!routeStatus_ || !routeShtabStatus_) {
    throw Ent::NullArgument("RouteShtabReaderSm: null route status");
  }
  handleResync();
}

RouteShtabReaderSm::~RouteShtabReaderSm() {
  isDeletingIs(true);
}

void RouteShtabReaderSm::handleRoute(const RouteKey& key) {
  TRACE9("vrf {}, route {}", routeStatus_->vrfName(), key);
  ++keysExamined_;
  mirrorRoute(*routeShtabStatus_, *routeStatus_, key);
}

size_t RouteShtabReaderSm::handleResync() {
  size_t changes = 0;
  bool changed = false;
  std::optional<RouteKey> at;
  while ((at = mirrorNextRoute(*routeShtabStatus_, *routeStatus_, at, &changed))) {
    ++keysExamined_;
    changes += changed ? 1 : 0;
  }
  TRACE8("vrf {}, {} routes changed", routeStatus_->vrfName(), changes);
  return changes;
}

void RouteShtabReaderSm::RxRouteShtabStatus::onChange(const Ent::Change& change) {
  if (owner_->isDeleting() || change.attr != Status::attrRoute) return;
  const RouteKey key = change.keyAs<RouteKey>();
  owner_->handleRoute(key);
}

}  // namespace Routing::Pim::SparseMode::Shtab
