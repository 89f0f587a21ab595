#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/Ent/Entity.h"
#include "platform/Routing/Pim/RouteKey.h"
#include "platform/Routing/Pim/SparseMode/Shtab/Status.h"
#include "platform/Routing/Pim/SparseMode/Status.h"

namespace Routing::Pim::SparseMode::Shtab {

// Keeps a local sparse-mode status (`routeStatus`) holding exactly the routes of the mounted
// shared-memory table (`routeShtabStatus`): the same Route records, inserted, replaced and
// removed key by key as the table announces them (O(log n) each), after a full copy on
// construction. Changes inside a route need no copying: followers see them on the record.
// A writer restart that the table does not announce per route is RouteShtabRestartSm's job.
class RouteShtabReaderSm : public Ent::Entity {
 public:
  // Throws Ent::NullArgument for a null status or table.
  RouteShtabReaderSm(Ent::Ptr<SparseMode::Status> routeStatus,
                     Ent::Ptr<const Status> routeShtabStatus);
  ~RouteShtabReaderSm() override;
  std::string_view typeName() const override {
    return "Routing::Pim::SparseMode::Shtab::RouteShtabReaderSm";
  }

  const Ent::Ptr<SparseMode::Status>& routeStatus() const { return routeStatus_; }
  const Ent::Ptr<const Status>& routeShtabStatus() const { return routeShtabStatus_; }

  void handleRoute(const RouteKey& key);
  // Full copy; returns how many keys changed.
  size_t handleResync();
  // Keys looked at so far: one per announced change, plus every key of a full copy.
  uint64_t keysExamined() const { return keysExamined_; }

 private:
  class RxRouteShtabStatus : public Ent::ReactorOf<Status> {
   public:
    RxRouteShtabStatus(RouteShtabReaderSm* owner, Ent::Ptr<const Status> s)
        : ReactorOf(std::move(s)), owner_(owner) {}
    void onChange(const Ent::Change& change) override;

   private:
    RouteShtabReaderSm* owner_;
  };

  const Ent::Ptr<SparseMode::Status> routeStatus_;
  const Ent::Ptr<const Status> routeShtabStatus_;
  uint64_t keysExamined_ = 0;
  RxRouteShtabStatus rxRouteShtabStatus_;
};

// Puts the local copy of `table` in line with it for key `key`, or for the next key after
// `after` in a merge walk (see Routing::Pim::Shtab::mirrorNext). Shared by the reader and the
// restart handler.
bool mirrorRoute(const Status& table, SparseMode::Status& local, const RouteKey& key);
std::optional<RouteKey> mirrorNextRoute(const Status& table, SparseMode::Status& local,
                                        const std::optional<RouteKey>& after,
                                        bool* changed = nullptr);

}  // namespace Routing::Pim::SparseMode::Shtab
