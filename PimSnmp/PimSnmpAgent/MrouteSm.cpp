#include "PimSnmp/PimSnmpAgent/MrouteSm.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "platform/Ent/Error.h"
#include "platform/Routing/Pim/RouteKeyConversion.h"
#include "platform/Trace/Trace.h"

DEFAULT_TRACE_HANDLE("PimSnmpAgent")

namespace Routing::Pim::SnmpAgent {

using Snmp::IpMcastRouteEntry;
using Snmp::IpMcastRouteEntryIndex;

MrouteSm::MrouteSm(Lanet::AddressFamily af, Ent::Ptr<Snmp::PimMib> pimMib,
                   Ent::Ptr<const IntfSnmp::IfMib> ifMib,
                   Ent::Ptr<const SparseMode::Status> routeStatus,
                   Ent::Ptr<const FibStatus> mfibShtabStatus)
    : Ent::Entity("mrouteSm"),
      af_(af),
      pimMib_(std::move(pimMib)),
      ifMib_(std::move(ifMib)),
      routeStatus_(this, std::move(routeStatus)),
      mfibShtabStatus_(this, std::move(mfibShtabStatus)),
      reviewBookmark_(
          RouteKey{Lanet::IpGenAddr::unspecified(af), Lanet::IpGenAddr::unspecified(af)}),
      intfIdToOifIndex_(this, attrIntfIdToOifIndex),
      oifIndexToIntfId_(this, attrOifIndexToIntfId) {
  // The parameters, moved from, hide the accessors here.
  if (!pimMib_ || !this->routeStatus() || !this->mfibShtabStatus()) {
    throw Ent::NullArgument("MrouteSm: needs a store, a sparse-mode status and a FIB status");
  }
  // Routes present now raise no event: follow them here so that the review can walk them and
  // their later changes are seen.
  for (const auto& r : this->routeStatus()->route()) routeIs(r);
  // The OIF map is only followed incrementally from here on; start from its full contents.
  handleOifIndexIntf();
}

MrouteSm::~MrouteSm() {
  // Rows stay in the store; only the followers go, and none of them may act meanwhile.
  isDeletingIs(true);
  // Nothing keeps the rows' FIB entries current from here on.
  for (const RxRoute& rx : route_) fibRouteUnbind(rx.key());
  clock_.reset();
  reviewTimer_.reset();
  timer_.reset();
  routeDelAll();
  routeStatus_.notifierIs(nullptr);
  mfibShtabStatus_.notifierIs(nullptr);
}

// ---- reactors

void MrouteSm::RxRouteStatus::onChange(const Ent::Change& change) {
  if (owner_->isDeleting() || change.attr != SparseMode::Status::attrRoute || !change.key) return;
  const RouteKey key = change.keyAs<RouteKey>();
  // The machine never writes the platform's records, so the record looked up once here is the
  // one handleMroute sees; and a route it reconciled is followed already.
  Ent::Ptr<const SparseMode::Route> route = notifier()->route(key);
  const RxRoute* followed = owner_->handleMroute(key, route);
  if (!route) {
    owner_->routeDel(key);
  } else if (followed == nullptr || followed->notifier() != route.get()) {
    owner_->routeIs(std::move(route));
  }
}

void MrouteSm::RxMfibShtabStatus::onChange(const Ent::Change& change) {
  if (!change.key) return;
  if (owner_->isDeleting()) {
    // Nothing is reconciled now, but no row may keep reading an entry that may have left.
    if (change.attr == FibStatus::attrRoute) {
      owner_->fibRouteUnbind(mfibKeyToPimRouteKey(change.keyAs<MfibRouteKey>()));
    }
    return;
  }
  switch (change.attr) {
    case FibStatus::attrRoute:
      owner_->handleMfibRoute(change.keyAs<MfibRouteKey>());
      break;
    case FibStatus::attrOifIndexIntf:
      owner_->handleOifIndexIntf(change.keyAs<OifIndex>());
      break;
    default:
      break;
  }
}

MrouteSm::RxRoute::RxRoute(MrouteSm* owner, Ent::Ptr<const SparseMode::Route> route)
    : ReactorOf(route), owner_(owner) {
  routeIntf_.reserve(route->routeIntf().size());
  // The route's collection iterates in interface order, so the vector comes out sorted.
  for (const auto& intf : route->routeIntf()) {
    routeIntf_.push_back(std::make_unique<RxRouteIntf>(this, intf));
  }
}

void MrouteSm::RxRoute::onChange(const Ent::Change& change) {
  if (owner_->isDeleting()) return;
  switch (change.attr) {
    case SparseMode::Route::attrRouteIntf: {
      if (!change.key) return;
      const Lanet::IntfId intfId = change.keyAs<Lanet::IntfId>();
      routeIntfSync(intfId);
      handleRouteIntf(intfId);
      break;
    }
    case SparseMode::Route::attrUpstreamInfo:
      owner_->handleRouteUpstream(key());
      break;
    default:
      break;
  }
}

namespace {

template <class Vec>
auto intfLowerBound(Vec& v, const Lanet::IntfId& intfId) {
  return std::lower_bound(v.begin(), v.end(), intfId, [](const auto& rx, const Lanet::IntfId& id) {
    return rx->intfId() < id;
  });
}

}  // namespace

const MrouteSm::RxRouteIntf* MrouteSm::RxRoute::routeIntf(const Lanet::IntfId& intfId) const {
  auto it = intfLowerBound(routeIntf_, intfId);
  return it != routeIntf_.end() && (*it)->intfId() == intfId ? it->get() : nullptr;
}

void MrouteSm::RxRoute::routeIntfSync(const Lanet::IntfId& intfId) {
  Ent::Ptr<const SparseMode::Intf> intf = notifier()->routeIntf(intfId);
  auto it = intfLowerBound(routeIntf_, intfId);
  const bool present = it != routeIntf_.end() && (*it)->intfId() == intfId;
  if (!intf) {
    if (present) routeIntf_.erase(it);
    return;
  }
  if (!present) {
    routeIntf_.insert(it, std::make_unique<RxRouteIntf>(this, std::move(intf)));
  } else if ((*it)->notifier() != intf.get()) {
    (*it)->notifierIs(std::move(intf));
  }
}

void MrouteSm::RxRoute::routeSync(Ent::Ptr<const SparseMode::Route> route) {
  routeIntf_.clear();
  notifierIs(route);
  for (const auto& intf : route->routeIntf()) {
    routeIntf_.push_back(std::make_unique<RxRouteIntf>(this, intf));
  }
}

void MrouteSm::RxRoute::handleRouteIntf(const Lanet::IntfId& intfId) {
  const RouteKey& k = key();
  if (!owner_->reviewCompleted() && !reviewed_) {
    TRACE8("Startup review is in process and has not processed {}", k);
    return;
  }
  if (k.source.af() != owner_->af()) {
    TRACE8("Address family not supported: {}", k);
    return;
  }
  TRACE8("{}, for intf {}", k, intfId);
  owner_->routeIntfUpdate(*this, intfId);
}

void MrouteSm::RxRouteIntf::onChange(const Ent::Change& change) {
  if (owner_->owner()->isDeleting()) return;
  switch (change.attr) {
    case SparseMode::Intf::attrRptState:
      handleRptState();
      break;
    case SparseMode::Intf::attrForward:
      handleForward();
      break;
    default:
      break;
  }
}

void MrouteSm::RxRouteIntf::handleRptState() {
  TRACE8("{} {}", owner_->key(), intfId());
  owner_->handleRouteIntf(intfId());
}

void MrouteSm::RxRouteIntf::handleForward() {
  TRACE8("{} {}", owner_->key(), intfId());
  owner_->handleRouteIntf(intfId());
}

// ---- route reactors

MrouteSm::RxRoute* MrouteSm::routeFind(const RouteKey& key) const {
  auto it = route_.find(key);
  return it == route_.end() ? nullptr : const_cast<RxRoute*>(&*it);
}

const MrouteSm::RxRoute* MrouteSm::route(const RouteKey& key) const {
  return routeFind(key);
}

MrouteSm::RxRoute& MrouteSm::routeIs(Ent::Ptr<const SparseMode::Route> route) {
  const RouteKey& key = route->key();
  auto it = route_.lower_bound(key);
  if (it != route_.end() && it->key() == key) {
    RxRoute& rx = *it;
    // A new record under the same key replaces the old one.
    if (rx.notifier() != route.get()) rx.routeSync(std::move(route));
    return rx;
  }
  return *route_.insert_before(it, *new RxRoute(this, std::move(route)));
}

void MrouteSm::routeDel(const RouteKey& key) {
  auto it = route_.find(key);
  if (it == route_.end()) return;
  reviewedIs(*it, false);
  route_.erase_and_dispose(it, std::default_delete<RxRoute>());
}

void MrouteSm::routeDelAll() {
  route_.clear_and_dispose(std::default_delete<RxRoute>());
  reviewedRoutes_ = 0;
}

// ---- reviewed routes

bool MrouteSm::reviewedRoute(const RouteKey& key) const {
  const RxRoute* rx = routeFind(key);
  return rx != nullptr && rx->reviewed_;
}

void MrouteSm::reviewedRouteIs(const RouteKey& key, bool reviewed) {
  if (RxRoute* rx = routeFind(key)) reviewedIs(*rx, reviewed);
}

void MrouteSm::reviewedIs(RxRoute& rx, bool reviewed) {
  if (rx.reviewed_ == reviewed) return;
  rx.reviewed_ = reviewed;
  if (reviewed) {
    ++reviewedRoutes_;
  } else {
    --reviewedRoutes_;
  }
}

void MrouteSm::reviewedRouteDelAll() {
  for (RxRoute& rx : route_) rx.reviewed_ = false;
  reviewedRoutes_ = 0;
}

void MrouteSm::routeIntfUpdate(RxRoute& rx, const Lanet::IntfId& intfId) {
  // doUpdateIpMrouteNextHop then doUpdatePimIpMrouteNextHop, sharing their lookups.
  const RouteKey& key = rx.key();
  if (!rx.mcastRow_ || rx.mcastRow_->pimMib() != pimMib_.get()) {
    rx.mcastRow_ = pimMib_->ipMcastRouteTable(IpMcastRouteEntryIndex::fromRouteKey(key));
  }
  // The followed record is the status's record of the key: routeIs rebinds on every
  // replacement, and handleMroute repairs rows left on a record replaced unseen.
  const SparseMode::Route* route = rx.notifier();
  if (rx.mcastRow_) {
    nextHopUpdate(key, *rx.mcastRow_, route, mfibShtabStatus()->route(pimRouteKeyToMfibKey(key)),
                  intfId);
  } else {
    TRACE0("no ipMcastRouteEntry for {}", key);
  }
  pimNextHopUpdate(key, route, intfId);
}

// ---- reconciling one route

void MrouteSm::handleMfibRoute(const MfibRouteKey& key) {
  TRACE8("MFGK {}", key);
  handleMroute(mfibKeyToPimRouteKey(key));
}

void MrouteSm::handleMroute(const RouteKey& key) {
  // Every route of the status is followed (from its first event, or from the start), so a key
  // without a reactor has no record to look up: a FIB entry ahead of its route, say.
  handleMroute(key, routeFind(key) != nullptr ? routeStatus()->route(key) : nullptr);
}

MrouteSm::RxRoute* MrouteSm::handleMroute(const RouteKey& key,
                                          const Ent::Ptr<const SparseMode::Route>& route) {
  TRACE8("{}", key);
  if (!reviewCompleted_ && !reviewedRoute(key)) {
    TRACE8("Startup review is in process and has not processed {}", key);
    return nullptr;
  }
  if (key.source.af() != af_) {
    TRACE8("Address family not supported: {}", key);
    // The review counts reviewed routes against the status: a foreign route that left must
    // not stay counted.
    if (!route) reviewedRouteDel(key);
    return nullptr;
  }
  const bool v4 = af_ == Lanet::AddressFamily::ipv4;
  const IpMcastRouteEntryIndex mcastIndex = IpMcastRouteEntryIndex::fromRouteKey(key);
  // The IPMROUTE and PIM route tables are IPv4's only.
  const Snmp::PimIpMrouteEntryIndex pimIndex =
      v4 ? Snmp::pimIpMrouteEntryIndexFromRouteKey(key) : Snmp::PimIpMrouteEntryIndex();
  // Rows are only made for a followed route, and its reactor goes after them: without a
  // record and a reactor there is no row either.
  RxRoute* const followed = route ? nullptr : routeFind(key);
  Ent::Ptr<IpMcastRouteEntry> row =
      route || followed ? pimMib_->ipMcastRouteTable(mcastIndex) : nullptr;
  // Without a route and a row there is nothing to build or remove (a FIB entry that arrives
  // before its route ends here): the route's other rows only exist beside its
  // ipMcastRouteTable row, so the FIB look-up and the deletions are skipped.
  const bool rows = row != nullptr;
  const FibRoute* const fibEntry = route || rows ? fibRouteFind(key) : nullptr;
  const FibRoute fibRoute = fibEntry ? *fibEntry : FibRoute();

  // Rows read their route record live, so a row left on an old record (a replacement that
  // raised no event) is rebuilt rather than kept.
  if (row && route && row->route() != route) {
    TRACE8("Route record of {} was replaced; rebuilding its entries", key);
    removeRouteEntries(key, *row, fibRoute);
    pimMib_->ipMcastRouteTableDel(mcastIndex);
    if (v4) {
      pimMib_->pimIpMrouteTableDel(pimIndex);
      pimMib_->ipMRouteTableDel(pimIndex);
    }
    row = nullptr;
  }

  if (!route) {
    if (row) removeRouteEntries(key, *row, fibRoute);
    TRACE8("Remove ipMcastRoute entry for {}", key);
    if (rows) pimMib_->ipMcastRouteTableDel(mcastIndex);
    if (v4) {
      TRACE8("Remove Pim Mroute entry for {}", key);
      if (rows) pimMib_->pimIpMrouteTableDel(pimIndex);
      TRACE8("Remove Mroute entry for {}", key);
      if (rows) pimMib_->ipMRouteTableDel(pimIndex);
    }
    // Only a followed route can be marked reviewed: dropping the mark is part of this.
    if (followed != nullptr) {
      upstreamSync(*followed, nullptr);
      followed->mcastRow_ = nullptr;
      reviewedIs(*followed, false);
    }
    reviewedIntfIdDelAll();
    return nullptr;
  }

  bool made = false;
  if (!row) {
    if (!v4 && af_ != Lanet::AddressFamily::ipv6) {
      TRACE8("Address family not supported: {}", key);
      return nullptr;
    }
    TRACE8("Add ipMcastRoute entry for {}", key);
    row = pimMib_->ipMcastRouteTableIs(route, ifMib_, mcastIndex);
    made = true;
  }
  // Every reconciliation rebinds the counter columns: this is where a FIB entry that came,
  // went or was replaced is seen.
  row->fibRouteIs(fibEntry);
  if (v4) {
    // The other two rows only exist beside the ipMcastRouteTable row: beside one made just now
    // there are none to look up.
    if (made || !pimMib_->pimIpMrouteTable(pimIndex)) {
      TRACE8("Add Pim Mroute entry for {}", key);
      pimMib_->pimIpMrouteTableIs(pimIndex, route);
    }
    Ent::Ptr<Snmp::IpMRouteEntry> mroute = made ? nullptr : pimMib_->ipMRouteTable(pimIndex);
    if (!mroute) {
      TRACE8("Add Mroute entry for {}", key);
      mroute = pimMib_->ipMRouteTableIs(route, ifMib_, pimIndex);
    }
    mroute->fibRouteIs(fibEntry);
  }
  RxRoute& rx = routeIs(route);
  rx.mcastRow_ = row;
  upstreamSync(rx, route.get());

  for (const auto& intf : route->routeIntf()) {
    nextHopUpdate(key, *row, route.get(), fibRoute, intf->intfId());
    reviewedIntfIdIs(intf->intfId());
    pimNextHopUpdate(key, route.get(), intf->intfId());
  }
  // Next hops of interfaces the route lost (collected first: the update edits the set).
  pendingIntfId_.clear();
  for (const auto& member : row->nextHopIndex()) {
    if (!reviewedIntfId(member.intfId)) pendingIntfId_.push_back(member.intfId);
  }
  for (const Lanet::IntfId& intfId : pendingIntfId_) {
    if (reviewedIntfId(intfId)) continue;
    nextHopUpdate(key, *row, route.get(), fibRoute, intfId);
    reviewedIntfIdIs(intfId);
  }
  // OIFs of the FIB without (S,G,I) state.
  for (OifIndex oif = fibRoute.firstOif(); oif.valid(); oif = fibRoute.nextOif(oif)) {
    const Lanet::IntfId intfId = oifIndexToIntfId(oif);
    if (intfId.empty() || reviewedIntfId(intfId)) continue;
    nextHopUpdate(key, *row, route.get(), fibRoute, intfId);
    reviewedIntfIdIs(intfId);
  }
  reviewedIntfIdDelAll();
  reviewedIs(rx, true);
  return &rx;
}

const MrouteSm::FibRoute* MrouteSm::fibRouteFind(const RouteKey& key) const {
  const FibStatus::RouteMap& fib = mfibShtabStatus()->route();
  auto it = fib.find(pimRouteKeyToMfibKey(key));
  return it == fib.end() ? nullptr : &it->second;
}

void MrouteSm::fibRouteUnbind(const RouteKey& key) {
  // Rows of the other family are another machine's.
  if (key.source.af() != af_) return;
  if (Ent::Ptr<IpMcastRouteEntry> row =
          pimMib_->ipMcastRouteTable(IpMcastRouteEntryIndex::fromRouteKey(key))) {
    row->fibRouteDel();
  }
  if (af_ != Lanet::AddressFamily::ipv4) return;
  if (auto row = pimMib_->ipMRouteTable(Snmp::pimIpMrouteEntryIndexFromRouteKey(key))) {
    row->fibRouteDel();
  }
}

void MrouteSm::removeRouteEntries(const RouteKey& key, IpMcastRouteEntry& row,
                                  const FibRoute& fibRoute) {
  for (const auto& member : row.nextHopIndexCopy()) {
    nextHopUpdate(key, row, nullptr, fibRoute, member.intfId);
    reviewedIntfIdIs(member.intfId);
  }
  if (const Ent::Ptr<const SparseMode::Route>& old = row.route()) {
    for (const auto& intf : old->routeIntf()) {
      pimNextHopUpdate(key, nullptr, intf->intfId());
      if (reviewedIntfId(intf->intfId())) continue;
      nextHopUpdate(key, row, nullptr, fibRoute, intf->intfId());
      reviewedIntfIdIs(intf->intfId());
    }
  }
  reviewedIntfIdDelAll();
}

void MrouteSm::handleRouteUpstream(const RouteKey& key) {
  TRACE8("{}", key);
  RxRoute* rx = routeFind(key);
  if (!rx || (!reviewCompleted_ && !reviewedRoute(key))) return;
  // Only routes with rows in the store count their upstream interface.
  if (!rx->mcastRow_ || rx->mcastRow_->pimMib() != pimMib_.get()) return;
  upstreamSync(*rx, rx->notifier());
}

void MrouteSm::upstreamSync(RxRoute& rx, const SparseMode::Route* route) {
  int32_t want = 0;
  if (route && route->upstreamInfo() && !route->upstreamInfo()->iif().empty()) {
    want = ifIndexOf(route->upstreamInfo()->iif());
  }
  if (want == rx.upstreamIfIndex_) return;
  // Count the new use first so that an interface staying in use keeps its rows.
  intfUse(want);
  intfRelease(rx.upstreamIfIndex_);
  rx.upstreamIfIndex_ = want;
}

// ---- scratch set

bool MrouteSm::reviewedIntfId(const Lanet::IntfId& intfId) const {
  return std::find(reviewedIntfId_.begin(), reviewedIntfId_.end(), intfId) != reviewedIntfId_.end();
}

void MrouteSm::reviewedIntfIdIs(const Lanet::IntfId& intfId) {
  if (!reviewedIntfId(intfId)) reviewedIntfId_.push_back(intfId);
}

// ---- factories

Ent::Ptr<MrouteSm> mrouteSmFactory(Lanet::AddressFamily af, Ent::Ptr<Snmp::PimMib> pimMib,
                                   Ent::Ptr<const IntfSnmp::IfMib> ifMib,
                                   Ent::Ptr<const SparseMode::Status> routeStatus,
                                   Ent::Ptr<const Shtab::Multicast::Fib::Status> mfibShtabStatus) {
  auto sm = Ent::make<MrouteSm>(af, std::move(pimMib), std::move(ifMib), std::move(routeStatus),
                                std::move(mfibShtabStatus));
  sm->hasNotificationActiveIs(true);
  return sm;
}

Ent::Ptr<MrouteSm> MrouteSmIs(Lanet::AddressFamily af, Ent::Ptr<Snmp::PimMib> pimMib,
                              Ent::Ptr<const IntfSnmp::IfMib> ifMib,
                              Ent::Ptr<const SparseMode::Status> routeStatus,
                              Ent::Ptr<const Shtab::Multicast::Fib::Status> mfibShtabStatus) {
  return mrouteSmFactory(af, std::move(pimMib), std::move(ifMib), std::move(routeStatus),
                         std::move(mfibShtabStatus));
}

}  // namespace Routing::Pim::SnmpAgent
