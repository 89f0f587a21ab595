#pragma once

#include <string_view>
#include <utility>

#include "platform/Ent/Coll.h"
#include "platform/Ent/Entity.h"
#include "platform/L3/VrfName.h"
#include "platform/Routing/Pim/RouteKey.h"
#include "platform/Routing/Pim/SparseMode/Route.h"
#include "platform/Routing/Pim/Status.h"

namespace Routing::Pim::SparseMode {

// The sparse-mode routes of one VRF and family, ordered by RouteKey, and the VRF's PIM status
// they belong to.
class Status : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId {
    attrRoute = 1,
    attrPimStatus = 2,
  };
  using RouteColl = Ent::OrderedColl<RouteKey, Route>;

  explicit Status(const L3::VrfName& vrfName)
      : Ent::Entity(vrfName.str()), vrfName_(vrfName), route_(this, attrRoute) {}
  std::string_view typeName() const override { return "Routing::Pim::SparseMode::Status"; }

  const L3::VrfName& vrfName() const { return vrfName_; }

  const RouteColl& route() const { return route_; }
  Ent::Ptr<const Route> route(const RouteKey& k) const { return route_.find(k); }
  // The route of `k`, created when absent.
  Ent::Ptr<Route> routeIs(const RouteKey& k) {
    return route_.findOrInsert(k, [&] { return Ent::make<Route>(k); }).first;
  }
  // Stores a fully built route, replacing another one of its key.
  // Returns whether the collection changed (false when it held this very record already).
  bool routeIs(Ent::Ptr<Route> r) {
    if (!r) throw Ent::NullArgument("SparseMode::Status::routeIs: null route");
    // A new key, the usual case, costs one descent.
    const auto [cur, inserted] = route_.insert(r);
    if (inserted) return true;
    if (cur == r.get()) return false;
    route_.erase(r->key());
    route_.insert(std::move(r));
    return true;
  }
  Ent::Ptr<Route> routeDel(const RouteKey& k) { return route_.erase(k); }
  void routeDelAll() { route_.clear(); }

  const Ent::Ptr<const Pim::Status>& pimStatus() const { return pimStatus_; }
  void pimStatusIs(Ent::Ptr<const Pim::Status> s) {
    if (s == pimStatus_) return;
    pimStatus_ = std::move(s);
    notify(attrPimStatus);
  }

 private:
  const L3::VrfName vrfName_;
  RouteColl route_;
  Ent::Ptr<const Pim::Status> pimStatus_;
};

}  // namespace Routing::Pim::SparseMode
