#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "platform/Ent/Coll.h"
#include "platform/Ent/Entity.h"
#include "platform/L3/VrfName.h"
#include "platform/Lanet/AddressFamily.h"
#include "platform/Lanet/IntfId.h"
#include "platform/Routing/Multicast/Fib/IpGenRouteKey.h"
#include "platform/Shtab/Multicast/Fib/OifIndex.h"
#include "platform/Shtab/Multicast/Fib/Route.h"

namespace Shtab::Multicast::Fib {

// The multicast FIB of one VRF and family as mounted from shared memory: routes by key, and
// the interface behind each OIF index.
class Status : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId {
    attrRoute = 1,
    attrOifIndexIntf = 2,
  };
  using RouteKey = Routing::Multicast::Fib::IpGenRouteKey;
  using RouteMap = std::unordered_map<RouteKey, Route>;
  using OifIndexIntfMap = Ent::ValueMap<OifIndex, Lanet::IntfId>;

  // Named by `role`, the last component of mountPath().
  Status(Lanet::AddressFamily af, const L3::VrfName& vrfName, std::string role = "sparsemode")
      : Ent::Entity(std::move(role)),
        af_(af),
        vrfName_(vrfName),
        oifIndexIntf_(this, attrOifIndexIntf) {}
  std::string_view typeName() const override { return "Shtab::Multicast::Fib::Status"; }

  // Where the table of `af`, `vrf` and `role` is mounted in the state directory.
  static std::string mountPath(Lanet::AddressFamily af, const L3::VrfName& vrf,
                               std::string_view role);

  Lanet::AddressFamily af() const { return af_; }
  const L3::VrfName& vrfName() const { return vrfName_; }

  const RouteMap& route() const { return route_; }
  // The route of `k`; the empty route when there is none.
  Route route(const RouteKey& k) const;
  bool hasRoute(const RouteKey& k) const { return route_.count(k) != 0; }
  // Stores the route of `k`; notifies when its value changed.
  void routeIs(const RouteKey& k, const Route& r);
  // Updates the counters of an existing route without notifying: counters move with every
  // packet and nothing follows them. Returns false when there is no such route.
  bool routeCountersIs(const RouteKey& k, uint64_t packets, uint64_t bytes);
  bool routeDel(const RouteKey& k);
  void routeDelAll();

  const OifIndexIntfMap& oifIndexIntf() const { return oifIndexIntf_; }
  // The interface of OIF index `i`; the empty id when unmapped.
  Lanet::IntfId oifIndexIntf(OifIndex i) const { return oifIndexIntf_.get(i); }
  void oifIndexIntfIs(OifIndex i, const Lanet::IntfId& intf) { oifIndexIntf_.set(i, intf); }
  bool oifIndexIntfDel(OifIndex i) { return oifIndexIntf_.erase(i); }
  void oifIndexIntfDelAll() { oifIndexIntf_.clear(); }

 private:
  const Lanet::AddressFamily af_;
  const L3::VrfName vrfName_;
  RouteMap route_;
  OifIndexIntfMap oifIndexIntf_;
};

}  // namespace Shtab::Multicast::Fib
