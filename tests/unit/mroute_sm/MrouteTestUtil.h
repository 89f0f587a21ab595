#pragma once

// A route state machine over real platform records: a sparse-mode status, a FIB status with
// an OIF map, an IfMib and a manual clock. Interfaces "EthernetN" have ifIndex N and, where
// mapped, OIF index N - 1.

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <optional>
#include <string>

#include "PimSnmp/PimSnmp/PimMib.h"
#include "PimSnmp/PimSnmpAgent/MrouteSm.h"
#include "platform/Clock/Clock.h"
#include "platform/IntfSnmp/IfMib.h"
#include "platform/L3/VrfName.h"
#include "platform/Routing/Pim/RouteKeyConversion.h"
#include "platform/Routing/Pim/SparseMode/Status.h"
#include "platform/Shtab/Multicast/Fib/Status.h"
#include "platform/Snmp/InetVersion.h"
#include "platform/Trace/Capture.h"

namespace MrouteSmTest {

using Lanet::AddressFamily;
using Lanet::IntfId;
using Routing::Pim::RouteKey;
using Routing::Pim::Snmp::NextHopState;
using Routing::Pim::Snmp::nhStateForwarding;
using Routing::Pim::Snmp::nhStatePruned;
using Routing::Pim::SnmpAgent::MrouteSm;
namespace Snmp = Routing::Pim::Snmp;
namespace SparseMode = Routing::Pim::SparseMode;
namespace Fib = Shtab::Multicast::Fib;

inline RouteKey key(const char* source, const char* group) {
  return {*Lanet::IpGenAddr::parse(source), *Lanet::IpGenAddr::parse(group)};
}
inline IntfId eth(int n) {
  return IntfId("Ethernet" + std::to_string(n));
}

class MrouteFixture : public ::testing::Test {
 protected:
  // The machine is made by start(), after the test has put its routes in place.
  void start(AddressFamily af = AddressFamily::ipv4) {
    if (af != fib->af()) fib = makeFib(af);
    sm = Routing::Pim::SnmpAgent::mrouteSmFactory(af, mib, ifMib, status, fib);
    sm->handleInitialized();
  }
  // Runs review slices until the review is complete.
  void review() {
    for (int i = 0; i < 1000 && !sm->reviewCompleted(); ++i) {
      clock->nowIs(std::max(clock->now(), clock->nextDeadline()));
    }
    ASSERT_TRUE(sm->reviewCompleted());
  }
  void startAndReview(AddressFamily af = AddressFamily::ipv4) {
    start(af);
    review();
  }

  // An interface of `route` with (S,G,I) state; `joined` makes it a PIM next hop.
  Ent::Ptr<SparseMode::Intf> intfIs(const RouteKey& k, int n, bool joined = false) {
    Ent::Ptr<SparseMode::Intf> intf = status->routeIs(k)->routeIntfIs(eth(n));
    if (joined) {
      intf->rptStateIs(SparseMode::rptStateNoInfo);
      intf->forwardIs(true);
    }
    return intf;
  }
  // The FIB route of `k` with OIFs of the given interface numbers (none: counters only).
  void fibIs(const RouteKey& k, std::initializer_list<int> oifs) {
    Fib::Route r;
    for (int n : oifs) r.oifIs(Fib::OifIndex(static_cast<uint16_t>(n - 1)));
    if (oifs.size() == 0) r.countersIs(1, 100);
    fib->routeIs(Routing::Pim::pimRouteKeyToMfibKey(k), r);
  }

  std::optional<NextHopState> mcastHop(const RouteKey& k, int ifIndex) const {
    auto e = mib->ipMcastRouteNextHopTable(
        Snmp::IpMcastRouteNextHopEntryIndex::fromRouteKeyAndIfIndex(k, ifIndex));
    return e ? std::optional(e->state()) : std::nullopt;
  }
  std::optional<NextHopState> mrouteHop(const RouteKey& k, int ifIndex) const {
    auto e = mib->ipMRouteNextHopTable(Snmp::pimIpMrouteNextHopEntryIndexFromRouteKey(k, ifIndex));
    return e ? std::optional(e->state()) : std::nullopt;
  }
  bool pimHop(const RouteKey& k, int ifIndex) const {
    return static_cast<bool>(
        mib->pimIpMrouteNextHopTable(Snmp::pimIpMrouteNextHopEntryIndexFromRouteKey(k, ifIndex)));
  }
  Ent::Ptr<Snmp::IpMcastRouteEntry> mcastRow(const RouteKey& k) const {
    return mib->ipMcastRouteTable(Snmp::IpMcastRouteEntryIndex::fromRouteKey(k));
  }
  bool hasMcastIntf(::Snmp::InetVersion v, int ifIndex) const {
    return static_cast<bool>(
        mib->ipMcastInterfaceTable(Snmp::IpMcastInterfaceEntryIndex(v, ifIndex)));
  }
  // Rows of the route, next hop and interface tables together.
  size_t rowCount() const {
    return mib->ipMcastRouteTable().size() + mib->ipMRouteTable().size() +
           mib->pimIpMrouteTable().size() + mib->ipMcastRouteNextHopTable().size() +
           mib->ipMRouteNextHopTable().size() + mib->pimIpMrouteNextHopTable().size() +
           mib->ipMcastInterfaceTable().size() + mib->ipMRouteInterfaceTable().size();
  }

  Ent::Ptr<Plat::ManualClock> clock = Ent::make<Plat::ManualClock>(1000.0);
  Plat::ScopedClock scopedClock{clock};
  Ent::Ptr<Snmp::PimMib> mib = Snmp::pimMibFactory("red");
  Ent::Ptr<IntfSnmp::IfMib> ifMib = [] {
    auto m = Ent::make<IntfSnmp::IfMib>();
    for (int n = 1; n <= 9; ++n) m->ifIndexByIntfIdIs(eth(n), static_cast<uint32_t>(n));
    return m;
  }();
  Ent::Ptr<SparseMode::Status> status = Ent::make<SparseMode::Status>(L3::VrfName("red"));
  static Ent::Ptr<Fib::Status> makeFib(AddressFamily af) {
    auto f = Ent::make<Fib::Status>(af, L3::VrfName("red"));
    for (int n = 1; n <= 4; ++n)
      f->oifIndexIntfIs(Fib::OifIndex(static_cast<uint16_t>(n - 1)), eth(n));
    return f;
  }
  Ent::Ptr<Fib::Status> fib = makeFib(AddressFamily::ipv4);
  Ent::Ptr<MrouteSm> sm;
};

}  // namespace MrouteSmTest
