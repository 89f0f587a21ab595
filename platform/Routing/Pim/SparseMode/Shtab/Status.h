#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "platform/Ent/Coll.h"
#include "platform/Ent/Entity.h"
#include "platform/L3/VrfName.h"
#include "platform/Lanet/AddressFamily.h"
#include "platform/Routing/Pim/RouteKey.h"
#include "platform/Routing/Pim/SparseMode/Route.h"
#include "platform/Stadb/EntityManager.h"

namespace Routing::Pim::SparseMode::Shtab {

// The sparse-mode routes of one VRF and family as the PIM agent (the writer) publishes them in
// shared memory, and the writer's generation.
//
// Restart protocol: a restarted writer may rebuild the table without announcing each route
// (notification off); it then bumps writerGeneration, which is announced, and readers
// resynchronise their copies from the table (RouteShtabRestartSm). Changes made while
// notification is on are announced per key on attrRoute as usual.
class Status : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId {
    attrRoute = 1,
    attrWriterGeneration = 2,
  };
  using RouteColl = Ent::OrderedColl<RouteKey, Route>;
  static constexpr std::string_view kTypeName = "Routing::Pim::SparseMode::Shtab::Status";

  // Named by the VRF, the last component of its mount path.
  Status(Lanet::AddressFamily af, const L3::VrfName& vrfName)
      : Ent::Entity(vrfName.str()), af_(af), vrfName_(vrfName), route_(this, attrRoute) {}
  std::string_view typeName() const override { return kTypeName; }

  // "shtab/routing/pim/sparsemode/<af>/<vrf, URL-quoted>".
  static std::string mountPath(Lanet::AddressFamily af, const L3::VrfName& vrf);
  // An empty table for a path made by mountPath; null for any other path.
  static Ent::Ptr<Status> fromMountPath(std::string_view path);
  // Mounts the table at `path` through `manager` (an empty one when the writer has not
  // published it yet; see Stadb::EntityManager) and records the mount in `group` unless it is
  // null. The table depends on no other table, so it is the only mount made. Throws
  // Stadb::MountError when something else is at `path`.
  static Ent::Ptr<Status> mountInDependencyOrder(const Ent::Ptr<Stadb::EntityManager>& manager,
                                                 std::string_view path, Stadb::MountMode mode,
                                                 Stadb::MountGroup* group = nullptr);
  static Ent::Ptr<Status> mountInDependencyOrder(Stadb::EntityManager& manager,
                                                 std::string_view path, Stadb::MountMode mode,
                                                 Stadb::MountGroup* group = nullptr) {
    return mountInDependencyOrder(Ent::Ptr<Stadb::EntityManager>(&manager), path, mode, group);
  }

  Lanet::AddressFamily af() const { return af_; }
  const L3::VrfName& vrfName() const { return vrfName_; }

  const RouteColl& route() const { return route_; }
  Ent::Ptr<const Route> route(const RouteKey& k) const { return route_.find(k); }
  // The route of `k`, created when absent.
  Ent::Ptr<Route> routeIs(const RouteKey& k) {
    return route_.findOrInsert(k, [&] { return Ent::make<Route>(k); }).first;
  }
  // Stores a fully built route, replacing another one of its key (announced as a removal and
  // an insertion).
  void routeIs(Ent::Ptr<Route> r) {
    if (!r) throw Ent::NullArgument("SparseMode::Shtab::Status::routeIs: null route");
    // A new key, the usual case, costs one descent.
    const auto [cur, inserted] = route_.insert(r);
    if (inserted || cur == r.get()) return;
    route_.erase(r->key());
    route_.insert(std::move(r));
  }
  Ent::Ptr<Route> routeDel(const RouteKey& k) { return route_.erase(k); }
  void routeDelAll() { route_.clear(); }

  // Bumped by the writer each time it (re)starts.
  uint64_t writerGeneration() const { return writerGeneration_; }
  void writerGenerationIs(uint64_t g) {
    if (g == writerGeneration_) return;
    writerGeneration_ = g;
    notify(attrWriterGeneration);
  }

 private:
  const Lanet::AddressFamily af_;
  const L3::VrfName vrfName_;
  RouteColl route_;
  uint64_t writerGeneration_ = 0;
};

}  // namespace Routing::Pim::SparseMode::Shtab
