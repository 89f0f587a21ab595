#pragma once

// Rows of ipMRouteTable, ipMcastRouteTable and pimIpMRouteTable. Columns other than the index
// are computed on each read from the live sparse-mode route the row references.

#include <compare>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <tuple>
#include <utility>
#include <vector>

#include "PimSnmp/PimSnmp/Index.h"
#include "PimSnmp/PimSnmp/StoreRow.h"
#include "platform/Ent/Ptr.h"
#include "platform/IntfSnmp/IfMib.h"
#include "platform/Lanet/AddressFamily.h"
#include "platform/Lanet/IntfId.h"
#include "platform/Lanet/IpGenAddr.h"
#include "platform/Routing/Pim/SparseMode/Route.h"
#include "platform/Shtab/Multicast/Fib/Route.h"
#include "platform/Snmp/InetAddress.h"

namespace Routing::Pim::Snmp {

class PimMib;

// Columns shared by the IPMROUTE-STD-MIB and IP-MCAST-MIB route rows. Not counted itself: each
// row type adds its own StoreRow.
class RouteEntryBase {
 public:
  using Route = SparseMode::Route;
  using FibRoute = ::Shtab::Multicast::Fib::Route;

  RouteEntryBase(Ent::Ptr<const Route> route, Ent::Ptr<const IntfSnmp::IfMib> ifMib)
      : route_(std::move(route)), ifMib_(std::move(ifMib)) {}

  const Ent::Ptr<const Route>& route() const { return route_; }
  const Ent::Ptr<const IntfSnmp::IfMib>& ifMib() const { return ifMib_; }
  auto inputs() const { return std::tie(route_, ifMib_); }
  // The store holding the row; null outside one.
  const PimMib* pimMib() const { return pimMib_; }

  // The family whose counter helper serves the row; the route key's family by default.
  virtual Lanet::AddressFamily af() const;

  // Seconds since the route was created; 0 when the clock reads no later than that.
  double upTime() const;
  // ifIndex of the upstream interface; 0 without upstream information, for the empty
  // interface id, or when IfMib has no row for it.
  int32_t inIfIndex() const;
  // Counters from the family's mroute counter helper; 0 without a helper, a route or a store.
  // Throws std::range_error when the store's name is too long for a VRF name.
  uint64_t pkts() const;
  uint64_t octets() const;

  // The FIB entry the counters are read from, bound by the route's writer so that a read
  // costs no look-up by VRF and key. The writer keeps it current: it rebinds whenever the
  // entry comes, goes or is replaced, and unbinds before it stops following the FIB. Bound
  // to null, the FIB has no entry for the route and the counters read 0; unbound, they come
  // from the family's counter helper. Either way no helper for the family means 0.
  bool fibRouteBound() const { return fibRoute_ != nullptr; }
  const FibRoute* fibRoute() const { return fibRoute_ == &kNoFibRoute ? nullptr : fibRoute_; }
  void fibRouteIs(const FibRoute* entry) { fibRoute_ = entry ? entry : &kNoFibRoute; }
  void fibRouteDel() { fibRoute_ = nullptr; }

 protected:
  ~RouteEntryBase() = default;

 private:
  template <class, class>
  friend class StoreTable;
  void pimMibIs(const PimMib* pimMib) { pimMib_ = pimMib; }

  static const FibRoute kNoFibRoute;

  Ent::Ptr<const Route> route_;
  Ent::Ptr<const IntfSnmp::IfMib> ifMib_;
  const PimMib* pimMib_ = nullptr;
  const FibRoute* fibRoute_ = nullptr;  // null: unbound; &kNoFibRoute: bound, no entry
};

// ipMRouteTable row (IPv4 only).
class IpMRouteEntry final : public StoreRow<IpMRouteEntry>, public RouteEntryBase {
 public:
  IpMRouteEntry(const PimIpMrouteEntryIndex& index, Ent::Ptr<const Route> route,
                Ent::Ptr<const IntfSnmp::IfMib> ifMib)
      : RouteEntryBase(std::move(route), std::move(ifMib)), index_(index) {}

  const PimIpMrouteEntryIndex& index() const { return index_; }
  const PimIpMrouteEntryIndex& key() const { return index_; }

  Lanet::AddressFamily af() const override { return Lanet::AddressFamily::ipv4; }

  // The RPF neighbor as an IPv4 address; 0.0.0.0 without upstream information or when the
  // neighbor is not IPv4.
  Lanet::IpGenAddr upstreamNeighbor() const;

 private:
  const PimIpMrouteEntryIndex index_;
};

// ipMcastRouteTable row. Also remembers the route's IP-MCAST next hops (`nextHopIndex`), so
// that the writer can remove them with the route.
class IpMcastRouteEntry final : public StoreRow<IpMcastRouteEntry>, public RouteEntryBase {
  // A member keeps only what differs from the row's own index (its next-hop address is the
  // group); the rest is rebuilt on read.
  struct NextHop {
    int32_t ifIndex;
    Lanet::IntfId intfId;
    auto operator<=>(const NextHop&) const = default;
  };

 public:
  IpMcastRouteEntry(const IpMcastRouteEntryIndex& index, Ent::Ptr<const Route> route,
                    Ent::Ptr<const IntfSnmp::IfMib> ifMib)
      : RouteEntryBase(std::move(route), std::move(ifMib)), index_(index) {}

  const IpMcastRouteEntryIndex& index() const { return index_; }
  const IpMcastRouteEntryIndex& key() const { return index_; }
  const ::Snmp::InetAddress& groupAddr() const { return index_.groupAddr; }
  const ::Snmp::InetAddress& sourceAddr() const { return index_.sourceAddr; }

  // From the group's address type: ipv4 and ipv6 map to their family, ipv4z, dns and other
  // values above ipv6z to unknown. unknown and ipv6z are a programming error (assertion).
  Lanet::AddressFamily af() const override;

  // The route's creation time on the platform clock.
  double timeStamp() const;
  // The RPF neighbor; without upstream information, the unspecified address of the route's
  // family.
  ::Snmp::InetAddress upstreamNeighbor() const;
  ::Snmp::InetAddressType upstreamNeighborType() const { return upstreamNeighbor().type(); }

  // Iterates the members in order, yielding NextHopEntryIndexWithIntfId values.
  class NextHopRange {
   public:
    class Iterator {
     public:
      using iterator_category = std::input_iterator_tag;
      using value_type = NextHopEntryIndexWithIntfId;
      using difference_type = std::ptrdiff_t;
      using reference = value_type;
      using pointer = void;
      Iterator() = default;
      Iterator(const IpMcastRouteEntry* row, std::vector<NextHop>::const_iterator it)
          : row_(row), it_(it) {}
      NextHopEntryIndexWithIntfId operator*() const { return row_->member(*it_); }
      Iterator& operator++() {
        ++it_;
        return *this;
      }
      Iterator operator++(int) {
        Iterator old = *this;
        ++it_;
        return old;
      }
      bool operator==(const Iterator& o) const { return it_ == o.it_; }

     private:
      const IpMcastRouteEntry* row_ = nullptr;
      std::vector<NextHop>::const_iterator it_;
    };

    explicit NextHopRange(const IpMcastRouteEntry* row) : row_(row) {}
    Iterator begin() const { return {row_, row_->nextHop_.begin()}; }
    Iterator end() const { return {row_, row_->nextHop_.end()}; }
    size_t size() const { return row_->nextHop_.size(); }
    bool empty() const { return row_->nextHop_.empty(); }

   private:
    const IpMcastRouteEntry* row_;
  };

  // Do not change the set while iterating it: iterate nextHopIndexCopy() instead.
  NextHopRange nextHopIndex() const { return NextHopRange(this); }
  std::vector<NextHopEntryIndexWithIntfId> nextHopIndexCopy() const {
    return {nextHopIndex().begin(), nextHopIndex().end()};
  }
  bool nextHopIndexHas(const NextHopEntryIndexWithIntfId& m) const;
  // Adds a member; false when it is already there. Members must be next hops of this route,
  // with its group as their address: any other is refused with Ent::Error.
  bool nextHopIndexIs(const NextHopEntryIndexWithIntfId& m);
  // Removes a member; false when it was not there.
  bool nextHopIndexDel(const NextHopEntryIndexWithIntfId& m);
  void nextHopIndexDelAll();

 private:
  bool ownRoutePart(const IpMcastRouteNextHopEntryIndex& i) const;
  NextHopEntryIndexWithIntfId member(const NextHop& n) const;

  const IpMcastRouteEntryIndex index_;
  std::vector<NextHop> nextHop_;  // sorted, unique
};

// pimIpMRouteTable row (IPv4 only).
class PimIpMrouteEntry final : public StoreRow<PimIpMrouteEntry> {
 public:
  using Route = SparseMode::Route;

  PimIpMrouteEntry(const PimIpMrouteEntryIndex& index, Ent::Ptr<const Route> route)
      : index_(index), route_(std::move(route)) {}

  const PimIpMrouteEntryIndex& index() const { return index_; }
  const PimIpMrouteEntryIndex& key() const { return index_; }
  const Ent::Ptr<const Route>& route() const { return route_; }
  auto inputs() const { return std::tie(route_); }

  // The platform publishes no upstream assert timer; the column reads 0.
  uint32_t upstreamAssertTimer() const { return 0; }
  // The assert state of the route's upstream interface; 0 (false) without upstream
  // information or when the route has no state for that interface.
  uint32_t assertMetric() const;
  uint32_t assertMetricPref() const;
  bool assertRptBit() const;
  // 1 when the route's SPT flag (bit value 4) is set, else 0.
  uint32_t mrouteFlags() const;

 private:
  Ent::Ptr<const SparseMode::Intf> upstreamIntf() const;

  const PimIpMrouteEntryIndex index_;
  const Ent::Ptr<const Route> route_;
};

}  // namespace Routing::Pim::Snmp
