#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/Clock/Clock.h"
#include "platform/Ent/Entity.h"
#include "platform/Plat/Timer.h"
#include "platform/Routing/Pim/RouteKey.h"
#include "platform/Routing/Pim/SparseMode/Shtab/Status.h"
#include "platform/Routing/Pim/SparseMode/Status.h"

namespace Routing::Pim::SparseMode::Shtab {

// Resynchronises the local copy of a shared-memory route table after its writer restarts.
// A restarted writer may rebuild the table without announcing each route and then bumps
// writerGeneration (see Status). On that bump this machine walks the table and the copy
// together in key order and fixes every key that differs: routes the new writer no longer
// has are removed, new ones added, replaced records swapped in. Keys that agree cost a lookup
// and make no change, so followers of the copy hear only the real differences.
//
// The walk runs in slices of sliceSize() keys: the first slice at once, the rest from a timer
// on `clock`, one slice per run of its due timers, so that a large table does not hold the
// event loop. Per-key changes during the walk still reach the copy through RouteShtabReaderSm;
// another restart during the walk starts it over. `tableType` is the platform's table type,
// kept as given.
class RouteShtabRestartSm : public Ent::Entity {
 public:
  static constexpr size_t kDefaultSliceSize = 1024;

  // A null clock means the process clock. Throws Ent::NullArgument for a null status or table.
  RouteShtabRestartSm(Ent::Ptr<SparseMode::Status> routeStatus,
                      Ent::Ptr<const Status> routeShtabStatus, int tableType,
                      Ent::Ptr<Plat::Clock> clock = nullptr);
  ~RouteShtabRestartSm() override;
  std::string_view typeName() const override {
    return "Routing::Pim::SparseMode::Shtab::RouteShtabRestartSm";
  }

  const Ent::Ptr<SparseMode::Status>& routeStatus() const { return routeStatus_; }
  const Ent::Ptr<const Status>& routeShtabStatus() const { return routeShtabStatus_; }
  int tableType() const { return tableType_; }
  const Ent::Ptr<Plat::Clock>& clock() const { return timer_->clock(); }

  // The writer generation the copy was last synchronised for.
  uint64_t writerGeneration() const { return writerGeneration_; }
  bool resyncing() const { return resyncing_; }
  // Completed resynchronisations, and keys changed by them in all.
  uint64_t resyncCount() const { return resyncCount_; }
  uint64_t resyncChanges() const { return resyncChanges_; }

  size_t sliceSize() const { return sliceSize_; }
  void sliceSizeIs(size_t n) { sliceSize_ = n ? n : 1; }

  void handleWriterGeneration();
  // Processes up to sliceSize() keys; re-arms the timer while keys remain.
  void doResyncSlice();

 private:
  class RxRouteShtabStatus : public Ent::ReactorOf<Status> {
   public:
    RxRouteShtabStatus(RouteShtabRestartSm* owner, Ent::Ptr<const Status> s)
        : ReactorOf(std::move(s)), owner_(owner) {}
    void onChange(const Ent::Change& change) override;

   private:
    RouteShtabRestartSm* owner_;
  };
  class RxTimer : public Ent::ReactorOf<Plat::Timer> {
   public:
    RxTimer(RouteShtabRestartSm* owner, Ent::Ptr<const Plat::Timer> t)
        : ReactorOf(std::move(t)), owner_(owner) {}
    void onChange(const Ent::Change& change) override;

   private:
    RouteShtabRestartSm* owner_;
  };

  const Ent::Ptr<SparseMode::Status> routeStatus_;
  const Ent::Ptr<const Status> routeShtabStatus_;
  const int tableType_;
  const Ent::Ptr<Plat::Timer> timer_;
  uint64_t writerGeneration_;
  bool resyncing_ = false;
  uint64_t walk_ = 0;  // numbers the walks, so a slice notices that a new one began
  std::optional<RouteKey> bookmark_;
  size_t sliceSize_ = kDefaultSliceSize;
  uint64_t resyncCount_ = 0;
  uint64_t resyncChanges_ = 0;
  RxRouteShtabStatus rxRouteShtabStatus_;
  RxTimer rxTimer_;
};

}  // namespace Routing::Pim::SparseMode::Shtab
