#include "platform/Routing/Pim/SparseMode/Shtab/RouteShtabRestartSm.h"

#include <utility>

#include "platform/Ent/Error.h"
#include "platform/Routing/Pim/SparseMode/Shtab/RouteShtabReaderSm.h"
#include "platform/Trace/Trace.h"

DEFAULT_TRACE_HANDLE("PimShtab")

namespace Routing::Pim::SparseMode::Shtab {

namespace {
const Status& requiredTable(const Ent::Ptr<const Status>& s) {
  if (!s) throw Ent::NullArgument("RouteShtabRestartSm: null route table");
  return *s;
}
}  // namespace

RouteShtabRestartSm::RouteShtabRestartSm(Ent::Ptr<SparseMode::Status> routeStatus,
                                         Ent::Ptr<const Status> routeShtabStatus, int tableType,
                                         Ent::Ptr<Plat::Clock> clock)
    : Ent::Entity("routeShtabRestartSm"),
      routeStatus_(std::move(routeStatus)),
      routeShtabStatus_(std::move(routeShtabStatus)),
      tableType_(tableType),
      timer_(Ent::make<Plat::Timer>(clock ? std::move(clock) : Plat::currentClockPtr(),
                                    "routeShtabRestart")),
      // The reader copies the table as it is now: only a later restart needs a walk.
      writerGeneration_(requiredTable(routeShtabStatus_).writerGeneration()),
      rxRouteShtabStatus_(this, routeShtabStatus_),
      rxTimer_(this, timer_) {
  if (!routeStatus_) throw Ent::NullArgument("RouteShtabRestartSm: null route status");
}

RouteShtabRestartSm::~RouteShtabRestartSm() {
  isDeletingIs(true);
  timer_->deadlineIs(Plat::kNever);
}

void RouteShtabRestartSm::handleWriterGeneration() {
  const uint64_t g = routeShtabStatus_->writerGeneration();
  if (g == writerGeneration_) return;
  TRACE8("vrf {}, table type {}: writer generation {} -> {}, {}", routeStatus_->vrfName(),
         tableType_, writerGeneration_, g, resyncing_ ? "restarting resync" : "resyncing");
  writerGeneration_ = g;
  ++walk_;
  resyncing_ = true;
  bookmark_.reset();
  doResyncSlice();
}

void RouteShtabRestartSm::doResyncSlice() {
  if (!resyncing_) return;
  timer_->deadlineIs(Plat::kNever);
  const uint64_t walk = walk_;
  for (size_t n = 0; n < sliceSize_; ++n) {
    bool changed = false;
    std::optional<RouteKey> at =
        mirrorNextRoute(*routeShtabStatus_, *routeStatus_, bookmark_, &changed);
    // A follower of the copy may have started a new walk from inside this step.
    if (walk != walk_ || !resyncing_) return;
    if (!at) {
      resyncing_ = false;
      bookmark_.reset();
      ++resyncCount_;
      TRACE8("vrf {}: resync done, {} changes in all", routeStatus_->vrfName(), resyncChanges_);
      return;
    }
    if (changed) ++resyncChanges_;
    bookmark_ = std::move(at);
  }
  TRACE9("vrf {}: resync suspended at {}", routeStatus_->vrfName(), *bookmark_);
  timer_->deadlineIs(timer_->clock()->now());
}

void RouteShtabRestartSm::RxRouteShtabStatus::onChange(const Ent::Change& change) {
  if (owner_->isDeleting() || change.attr != Status::attrWriterGeneration) return;
  owner_->handleWriterGeneration();
}

void RouteShtabRestartSm::RxTimer::onChange(const Ent::Change& change) {
  if (owner_->isDeleting() || change.attr != Plat::Timer::attrFired) return;
  owner_->doResyncSlice();
}

}  // namespace Routing::Pim::SparseMode::Shtab
