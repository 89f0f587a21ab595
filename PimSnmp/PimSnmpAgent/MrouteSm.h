#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <boost/intrusive/set.hpp>

#include "PimSnmp/PimSnmp/PimMib.h"
#include "platform/Clock/Clock.h"
#include "platform/Ent/Coll.h"
#include "platform/Ent/Entity.h"
#include "platform/IntfSnmp/IfMib.h"
#include "platform/Lanet/AddressFamily.h"
#include "platform/Lanet/IntfId.h"
#include "platform/Plat/ReviewTimer.h"
#include "platform/Plat/Timer.h"
#include "platform/Routing/Multicast/Fib/IpGenRouteKey.h"
#include "platform/Routing/Pim/RouteKey.h"
#include "platform/Routing/Pim/SparseMode/Intf.h"
#include "platform/Routing/Pim/SparseMode/Route.h"
#include "platform/Routing/Pim/SparseMode/Status.h"
#include "platform/Shtab/Multicast/Fib/OifIndex.h"
#include "platform/Shtab/Multicast/Fib/Route.h"
#include "platform/Shtab/Multicast/Fib/Status.h"

namespace Routing::Pim::SnmpAgent {

// Per-route cache record: a route key and whether the route is known to be deleted.
class RouteCache : public Ent::RefCounted {
 public:
  explicit RouteCache(const RouteKey& routeKey) : routeKey_(routeKey) {}

  const RouteKey& routeKey() const { return routeKey_; }
  const RouteKey& key() const { return routeKey_; }
  bool routeIsDeleted() const { return routeIsDeleted_; }
  void routeIsDeletedIs(bool deleted) { routeIsDeleted_ = deleted; }

 private:
  const RouteKey routeKey_;
  bool routeIsDeleted_ = false;
};

// Keeps the route tables of one VRF and family in a PimMib equal to the platform's
// sparse-mode routes joined with the multicast FIB: ipMcastRouteTable and
// ipMcastRouteNextHopTable for both families, and for IPv4 also ipMRouteTable,
// ipMRouteNextHopTable, pimIpMRouteTable and pimIpMRouteNextHopTable. It also keeps the
// ipMcastInterfaceTable rows of its family (and for IPv4 the ipMRouteInterfaceTable rows) of the
// interfaces its routes use (docs/decisions.md, "Multicast interface rows").
//
// Every event of either source ends in handleMroute(key), which reconciles one route. A
// rate-limited review walks the routes present at start; until it has seen a route, events
// for that route are ignored.
class MrouteSm : public Ent::Entity {
 public:
  using RouteKey = Routing::Pim::RouteKey;
  using MfibRouteKey = Routing::Multicast::Fib::IpGenRouteKey;
  using FibRoute = ::Shtab::Multicast::Fib::Route;
  using FibStatus = ::Shtab::Multicast::Fib::Status;
  using OifIndex = ::Shtab::Multicast::Fib::OifIndex;

  enum Attr : Ent::AttrId {
    attrReviewCompleted = 1,
    attrIntfIdToOifIndex = 3,
    attrOifIndexToIntfId = 4,
  };

  class RxRoute;

  // Follows the (S,G,I) state of one interface of a route.
  class RxRouteIntf : public Ent::ReactorOf<SparseMode::Intf> {
   public:
    RxRouteIntf(RxRoute* owner, Ent::Ptr<const SparseMode::Intf> intf)
        : ReactorOf(std::move(intf)), owner_(owner) {}
    const Lanet::IntfId& intfId() const { return notifier()->intfId(); }
    void onChange(const Ent::Change& change) override;
    void handleRptState();
    void handleForward();

   private:
    RxRoute* owner_;
  };

  // Links a route reactor into the machine's tree of them (no separate map node per route).
  using RouteHook = boost::intrusive::set_base_hook<boost::intrusive::optimize_size<true>>;

  // Follows one sparse-mode route: its interfaces and its upstream information.
  class RxRoute : public Ent::ReactorOf<SparseMode::Route>, public RouteHook {
   public:
    RxRoute(MrouteSm* owner, Ent::Ptr<const SparseMode::Route> route);
    const RouteKey& key() const { return notifier()->key(); }
    MrouteSm* owner() const { return owner_; }
    void onChange(const Ent::Change& change) override;

    // An interface of the route was added, removed or changed.
    void handleRouteIntf(const Lanet::IntfId& intfId);

    // The interface reactors, in interface order.
    size_t routeIntfs() const { return routeIntf_.size(); }
    const RxRouteIntf* routeIntf(const Lanet::IntfId& intfId) const;

    // The ifIndex counted as this route's upstream interface use; 0 when none is counted.
    int32_t upstreamIfIndex() const { return upstreamIfIndex_; }

   private:
    friend class MrouteSm;
    // Follows the route's current record of `intfId`, or stops following the interface.
    void routeIntfSync(const Lanet::IntfId& intfId);
    // Rebinds to another record of the same route and follows all of its interfaces.
    void routeSync(Ent::Ptr<const SparseMode::Route> route);

    MrouteSm* owner_;
    // Sorted by interface: lookups are a binary search, memory one pointer per interface.
    std::vector<std::unique_ptr<RxRouteIntf>> routeIntf_;
    // The route's ipMcastRouteTable row as last made or seen, to spare interface events a
    // lookup; trusted only while it is still in the store.
    Ent::Ptr<Snmp::IpMcastRouteEntry> mcastRow_;
    int32_t upstreamIfIndex_ = 0;
    // Whether the review, or an event after it, has processed the route (see reviewedRoute).
    bool reviewed_ = false;
  };

  MrouteSm(Lanet::AddressFamily af, Ent::Ptr<Snmp::PimMib> pimMib,
           Ent::Ptr<const IntfSnmp::IfMib> ifMib, Ent::Ptr<const SparseMode::Status> routeStatus,
           Ent::Ptr<const FibStatus> mfibShtabStatus);
  ~MrouteSm() override;
  std::string_view typeName() const override { return "Routing::Pim::SnmpAgent::MrouteSm"; }

  Lanet::AddressFamily af() const { return af_; }
  const Ent::Ptr<Snmp::PimMib>& pimMib() const { return pimMib_; }
  const Ent::Ptr<const IntfSnmp::IfMib>& ifMib() const { return ifMib_; }
  const SparseMode::Status* routeStatus() const { return routeStatus_.notifier(); }
  const FibStatus* mfibShtabStatus() const { return mfibShtabStatus_.notifier(); }

  // Starts the review: takes the process clock, makes the review timer and asks it for the
  // first review.
  void handleInitialized();

  // Reconciles the rows of one route with the sparse-mode status and the FIB.
  void handleMroute(const RouteKey& key);
  // The same with the route's current record (null when it has none) already looked up;
  // returns the reactor that follows the route when the route was reconciled.
  RxRoute* handleMroute(const RouteKey& key, const Ent::Ptr<const SparseMode::Route>& route);
  void handleMfibRoute(const MfibRouteKey& key);
  // The upstream information of a route changed: recounts its upstream interface use.
  void handleRouteUpstream(const RouteKey& key);

  // OIF index map: one index, or all of it (at start).
  void handleOifIndexIntf(OifIndex oifIndex);
  void handleOifIndexIntf();

  // Next hops of one route and interface. The ipMcastRouteTable row of `key` must exist.
  void doUpdateIpMrouteNextHop(const RouteKey& key, const Lanet::IntfId& intfId);
  void doUpdateIpMrouteNextHopWithRoutes(const RouteKey& key, const SparseMode::Route* route,
                                         const FibRoute& fibRoute, const Lanet::IntfId& intfId);
  void doUpdatePimIpMrouteNextHop(const RouteKey& key, const Lanet::IntfId& intfId);

  // One slice of the startup review (run when the review timer fires).
  void doMrouteReview();

  // `route`: one reactor per live sparse-mode route, in key order.
  const RxRoute* route(const RouteKey& key) const;
  size_t routes() const { return route_.size(); }
  // Follows `route` (and each of its interfaces); keeps an existing reactor of its key.
  RxRoute& routeIs(Ent::Ptr<const SparseMode::Route> route);
  void routeDel(const RouteKey& key);
  void routeDelAll();

  // Review state.
  const Ent::Ptr<Plat::Clock>& clock() const { return clockSource_; }
  const Ent::Ptr<Plat::ReviewTimer>& reviewTimer() const { return reviewTimer_; }
  void reviewTimerIs(Ent::Ptr<Plat::Timer> notifiee, float fillInterval, unsigned maxCredits,
                     float minDelay, float maxDelay);
  double reviewQuantum() const { return reviewQuantum_; }
  void reviewQuantumIs(double seconds) { reviewQuantum_ = seconds; }
  const RouteKey& reviewBookmark() const { return reviewBookmark_; }
  bool reviewCompleted() const { return reviewCompleted_; }

  // The routes the review (or an event after it) has processed. Only followed routes can be
  // reviewed, so the mark lives in the route's reactor: a route event costs no extra look-up
  // or allocation, and a reactor dropped takes its mark with it.
  size_t reviewedRoutes() const { return reviewedRoutes_; }
  bool reviewedRoute(const RouteKey& key) const;
  // Marks a followed route; a key without a reactor is ignored.
  void reviewedRouteIs(const RouteKey& key, bool reviewed);
  void reviewedRouteDel(const RouteKey& key) { reviewedRouteIs(key, false); }
  void reviewedRouteDelAll();

  // Scratch set of the interfaces handled within one handleMroute; empty between calls.
  bool reviewedIntfId(const Lanet::IntfId& intfId) const;
  void reviewedIntfIdIs(const Lanet::IntfId& intfId);
  void reviewedIntfIdDelAll() { reviewedIntfId_.clear(); }
  size_t reviewedIntfIds() const { return reviewedIntfId_.size(); }

  const Ent::ValueMap<Lanet::IntfId, OifIndex>& intfIdToOifIndex() const {
    return intfIdToOifIndex_;
  }
  OifIndex intfIdToOifIndex(const Lanet::IntfId& intfId) const {
    return intfIdToOifIndex_.get(intfId);
  }
  const Ent::ValueMap<OifIndex, Lanet::IntfId>& oifIndexToIntfId() const {
    return oifIndexToIntfId_;
  }
  Lanet::IntfId oifIndexToIntfId(OifIndex oifIndex) const {
    return oifIndexToIntfId_.get(oifIndex);
  }

  // Routes' uses of an interface (upstream interfaces and next hops), by ifIndex.
  uint32_t intfUseCount(int32_t ifIndex) const;

 private:
  class RxRouteStatus : public Ent::ReactorOf<SparseMode::Status> {
   public:
    RxRouteStatus(MrouteSm* owner, Ent::Ptr<const SparseMode::Status> status)
        : ReactorOf(std::move(status)), owner_(owner) {}
    void onChange(const Ent::Change& change) override;

   private:
    MrouteSm* owner_;
  };
  class RxMfibShtabStatus : public Ent::ReactorOf<FibStatus> {
   public:
    RxMfibShtabStatus(MrouteSm* owner, Ent::Ptr<const FibStatus> status)
        : ReactorOf(std::move(status)), owner_(owner) {}
    void onChange(const Ent::Change& change) override;

   private:
    MrouteSm* owner_;
  };
  // Runs a review slice each time the review timer fires.
  class RxClock : public Ent::ReactorOf<Plat::Timer> {
   public:
    RxClock(MrouteSm* owner, Ent::Ptr<const Plat::Timer> timer)
        : ReactorOf(std::move(timer)), owner_(owner) {}
    void onChange(const Ent::Change& change) override;

   private:
    MrouteSm* owner_;
  };
  // Route reactors by their route's key, read from the followed record: a reactor per route is
  // the largest cost of this machine, and a copy of the key in each would add a third to it.
  struct RouteKeyOf {
    using type = RouteKey;
    const RouteKey& operator()(const RxRoute& rx) const { return rx.key(); }
  };
  using RouteMap = boost::intrusive::set<RxRoute, boost::intrusive::base_hook<RouteHook>,
                                         boost::intrusive::key_of_value<RouteKeyOf>,
                                         boost::intrusive::constant_time_size<true>>;

  RxRoute* routeFind(const RouteKey& key) const;
  void reviewedIs(RxRoute& rx, bool reviewed);
  // Next hops of one interface of a followed route (its interface event).
  void routeIntfUpdate(RxRoute& rx, const Lanet::IntfId& intfId);
  double now() const;

  // The FIB entry of a route (null when the FIB has none). Entries stay put in their map
  // until erased, which notifies this machine.
  const FibRoute* fibRouteFind(const RouteKey& key) const;
  // Leaves the counter columns of the route's rows to the counter helper.
  void fibRouteUnbind(const RouteKey& key);
  // Removes the rows of a route whose ipMcastRouteTable row is `row`, next hops first.
  void removeRouteEntries(const RouteKey& key, Snmp::IpMcastRouteEntry& row,
                          const FibRoute& fibRoute);
  void nextHopUpdate(const RouteKey& key, Snmp::IpMcastRouteEntry& row,
                     const SparseMode::Route* route, const FibRoute& fibRoute,
                     const Lanet::IntfId& intfId);
  void nextHopAdd(const RouteKey& key, Snmp::IpMcastRouteEntry& row, const Lanet::IntfId& intfId,
                  Snmp::NextHopState state);
  void nextHopRemove(const RouteKey& key, Snmp::IpMcastRouteEntry& row, const Lanet::IntfId& intfId,
                     std::string_view reason);
  void nextHopMemberRemove(const RouteKey& key, Snmp::IpMcastRouteEntry& row,
                           const Snmp::NextHopEntryIndexWithIntfId& member,
                           std::string_view reason);
  // The row's member of `intfId`, preferring the one under `ifIndex`.
  std::optional<Snmp::NextHopEntryIndexWithIntfId> nextHopMember(const Snmp::IpMcastRouteEntry& row,
                                                                 const RouteKey& key,
                                                                 const Lanet::IntfId& intfId,
                                                                 int32_t ifIndex) const;
  void pimNextHopUpdate(const RouteKey& key, const SparseMode::Route* route,
                        const Lanet::IntfId& intfId);
  // Counts the route's upstream interface as it is now (0 when the route is null).
  void upstreamSync(RxRoute& rx, const SparseMode::Route* route);

  int32_t ifIndexOf(const Lanet::IntfId& intfId) const;
  void intfUse(int32_t ifIndex);
  void intfRelease(int32_t ifIndex);

  const Lanet::AddressFamily af_;
  const Ent::Ptr<Snmp::PimMib> pimMib_;
  const Ent::Ptr<const IntfSnmp::IfMib> ifMib_;
  RxRouteStatus routeStatus_;
  RxMfibShtabStatus mfibShtabStatus_;
  RouteMap route_;

  Ent::Ptr<Plat::Clock> clockSource_;
  Ent::Ptr<Plat::Timer> timer_;
  std::unique_ptr<RxClock> clock_;
  Ent::Ptr<Plat::ReviewTimer> reviewTimer_;
  double reviewQuantum_ = 0.1;
  RouteKey reviewBookmark_;
  bool reviewCompleted_ = false;
  size_t reviewedRoutes_ = 0;
  std::vector<Lanet::IntfId> reviewedIntfId_;
  std::vector<Lanet::IntfId> pendingIntfId_;  // scratch, reused to spare allocations

  Ent::ValueMap<Lanet::IntfId, OifIndex> intfIdToOifIndex_;
  Ent::ValueMap<OifIndex, Lanet::IntfId> oifIndexToIntfId_;
  std::unordered_map<int32_t, uint32_t> intfUseCount_;
};

// A new MrouteSm with notification on.
Ent::Ptr<MrouteSm> mrouteSmFactory(Lanet::AddressFamily af, Ent::Ptr<Snmp::PimMib> pimMib,
                                   Ent::Ptr<const IntfSnmp::IfMib> ifMib,
                                   Ent::Ptr<const SparseMode::Status> routeStatus,
                                   Ent::Ptr<const ::Shtab::Multicast::Fib::Status> mfibShtabStatus);
Ent::Ptr<MrouteSm> MrouteSmIs(Lanet::AddressFamily af, Ent::Ptr<Snmp::PimMib> pimMib,
                              Ent::Ptr<const IntfSnmp::IfMib> ifMib,
                              Ent::Ptr<const SparseMode::Status> routeStatus,
                              Ent::Ptr<const ::Shtab::Multicast::Fib::Status> mfibShtabStatus);

}  // namespace Routing::Pim::SnmpAgent
