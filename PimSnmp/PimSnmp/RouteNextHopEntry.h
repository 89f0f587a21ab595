#pragma once

// Rows of ipMRouteNextHopTable, ipMcastRouteNextHopTable and pimIpMRouteNextHopTable.

#include <cstdint>
#include <tuple>
#include <utility>

#include "PimSnmp/PimSnmp/Index.h"
#include "PimSnmp/PimSnmp/NextHopState.h"
#include "PimSnmp/PimSnmp/StoreRow.h"
#include "platform/Ent/Ptr.h"
#include "platform/Routing/Pim/SparseMode/Intf.h"
#include "platform/Snmp/InetAddress.h"

namespace Routing::Pim::Snmp {

// The forwarding state of an IPMROUTE-STD-MIB or IP-MCAST-MIB next hop. Immutable: the
// writer replaces the row to change it.
template <class Row>
class RouteNextHopEntryBase : public StoreRow<Row> {
 public:
  explicit RouteNextHopEntryBase(NextHopState state) : state_(state) {}
  NextHopState state() const { return state_; }
  auto inputs() const { return std::tie(state_); }

 protected:
  ~RouteNextHopEntryBase() = default;

 private:
  const NextHopState state_;
};

// ipMRouteNextHopTable row (IPv4 only).
class IpMRouteNextHopEntry final : public RouteNextHopEntryBase<IpMRouteNextHopEntry> {
 public:
  IpMRouteNextHopEntry(const PimIpMrouteNextHopEntryIndex& index, NextHopState state)
      : RouteNextHopEntryBase(state), index_(index) {}

  const PimIpMrouteNextHopEntryIndex& index() const { return index_; }
  const PimIpMrouteNextHopEntryIndex& key() const { return index_; }

 private:
  const PimIpMrouteNextHopEntryIndex index_;
};

// ipMcastRouteNextHopTable row.
class IpMcastRouteNextHopEntry final : public RouteNextHopEntryBase<IpMcastRouteNextHopEntry> {
 public:
  IpMcastRouteNextHopEntry(const IpMcastRouteNextHopEntryIndex& index, NextHopState state)
      : RouteNextHopEntryBase(state), index_(index) {}

  const IpMcastRouteNextHopEntryIndex& index() const { return index_; }
  const IpMcastRouteNextHopEntryIndex& key() const { return index_; }
  const ::Snmp::InetAddress& groupAddr() const { return index_.groupAddr; }
  const ::Snmp::InetAddress& sourceAddr() const { return index_.sourceAddr; }
  const ::Snmp::InetAddress& addr() const { return index_.addr; }

 private:
  const IpMcastRouteNextHopEntryIndex index_;
};

// pimIpMRouteNextHopTable row (IPv4 only): a forwarding interface of a route, with the
// interface's live (S,G,I) state.
class PimIpMrouteNextHopEntry final : public StoreRow<PimIpMrouteNextHopEntry> {
 public:
  // pimIpMRouteNextHopPruneReason values.
  static constexpr uint32_t kPruneReasonPrune = 2;
  static constexpr uint32_t kPruneReasonAssert = 3;

  PimIpMrouteNextHopEntry(const PimIpMrouteNextHopEntryIndex& index,
                          Ent::Ptr<const SparseMode::Intf> intf)
      : index_(index), intf_(std::move(intf)) {}

  const PimIpMrouteNextHopEntryIndex& index() const { return index_; }
  const PimIpMrouteNextHopEntryIndex& key() const { return index_; }
  const Ent::Ptr<const SparseMode::Intf>& intf() const { return intf_; }
  auto inputs() const { return std::tie(intf_); }

  // assert(3) when the interface lost an assert, else prune(2).
  uint32_t nextHopPruneReason() const {
    return intf_ && intf_->assertState() == SparseMode::assertStateLoser ? kPruneReasonAssert
                                                                         : kPruneReasonPrune;
  }

 private:
  const PimIpMrouteNextHopEntryIndex index_;
  const Ent::Ptr<const SparseMode::Intf> intf_;
};

}  // namespace Routing::Pim::Snmp
