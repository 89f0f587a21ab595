#pragma once

#include <cstdint>
#include <string_view>
#include <utility>

#include "platform/Ent/Coll.h"
#include "platform/Ent/Entity.h"
#include "platform/Lanet/IntfId.h"
#include "platform/Lanet/IpGenAddr.h"
#include "platform/Routing/Pim/RouteKey.h"
#include "platform/Routing/Pim/SparseMode/Intf.h"
#include "platform/Routing/Pim/SparseMode/UpstreamInfo.h"

namespace Routing::Pim::SparseMode {

// A PIM sparse-mode route with its per-interface state. Records carry no entity name (there
// may be 100k of them); key() identifies one.
class Route : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId {
    attrCreationTime = 1,
    attrUpstreamInfo = 2,
    attrFlags = 3,
    attrRouteIntf = 4,
  };
  // Bits of flags().
  static constexpr uint8_t kFlagWildcard = 1;  // (*,G) entry
  static constexpr uint8_t kFlagRpt = 2;       // forwarded on the shared tree
  static constexpr uint8_t kFlagSpt = 4;       // switched to the shortest-path tree
  using IntfColl = Ent::OrderedColl<Lanet::IntfId, Intf>;

  explicit Route(const RouteKey& key) : key_(key), routeIntf_(this, attrRouteIntf) {}
  std::string_view typeName() const override { return "Routing::Pim::SparseMode::Route"; }

  const RouteKey& key() const { return key_; }

  // Seconds on the platform clock.
  double creationTime() const { return creationTime_; }
  void creationTimeIs(double t) {
    if (t == creationTime_) return;
    creationTime_ = t;
    notify(attrCreationTime);
  }

  // Null while the route has no RPF information.
  const Ent::Ptr<const UpstreamInfo>& upstreamInfo() const { return upstreamInfo_; }
  void upstreamInfoIs(Ent::Ptr<const UpstreamInfo> u) {
    if (u == upstreamInfo_ || (u && upstreamInfo_ && *u == *upstreamInfo_)) return;
    upstreamInfo_ = std::move(u);
    notify(attrUpstreamInfo);
  }
  void upstreamInfoIs(const Lanet::IntfId& iif, const Lanet::IpGenAddr& rpfNeighbor) {
    upstreamInfoIs(Ent::make<UpstreamInfo>(iif, rpfNeighbor));
  }
  void upstreamInfoDel() { upstreamInfoIs(nullptr); }

  uint8_t flags() const { return flags_; }
  void flagsIs(uint8_t f) {
    if (f == flags_) return;
    flags_ = f;
    notify(attrFlags);
  }

  const IntfColl& routeIntf() const { return routeIntf_; }
  Ent::Ptr<const Intf> routeIntf(const Lanet::IntfId& id) const { return routeIntf_.find(id); }
  // The interface state of `id`, created when absent.
  Ent::Ptr<Intf> routeIntfIs(const Lanet::IntfId& id) {
    return routeIntf_.findOrInsert(id, [&] { return Ent::make<Intf>(id); }).first;
  }
  // Stores a fully built record, replacing another one of its interface.
  void routeIntfIs(Ent::Ptr<Intf> intf) {
    if (!intf) throw Ent::NullArgument("Route::routeIntfIs: null interface");
    const Intf* cur = routeIntf_.find(intf->key());
    if (cur == intf.get()) return;
    if (cur) routeIntf_.erase(intf->key());
    routeIntf_.insert(std::move(intf));
  }
  Ent::Ptr<Intf> routeIntfDel(const Lanet::IntfId& id) { return routeIntf_.erase(id); }
  void routeIntfDelAll() { routeIntf_.clear(); }

 private:
  const RouteKey key_;
  double creationTime_ = 0;
  Ent::Ptr<const UpstreamInfo> upstreamInfo_;
  uint8_t flags_ = 0;
  IntfColl routeIntf_;
};

}  // namespace Routing::Pim::SparseMode
