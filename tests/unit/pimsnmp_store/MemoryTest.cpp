// The store's footprint per route: it has to hold 100k routes, so a route with its rows in the
// three route tables and two OIFs' worth of next hops (six rows) must stay under 1.5 KiB.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <new>
#include <vector>

#include "PimSnmp/PimSnmp/Index.h"
#include "PimSnmp/PimSnmp/PimMib.h"
#include "platform/IntfSnmp/IfMib.h"
#include "platform/Lanet/IntfId.h"
#include "platform/Routing/Pim/SparseMode/Route.h"

namespace {

bool counting = false;
// Live bytes allocated while counting (allocations minus frees).
long long heapBytes = 0;

// What glibc's allocator really takes for a request: an 8-byte header, 16-byte granules, and
// a 32-byte minimum. Modelled rather than measured so the figure is the same under ASan.
long long chunkSize(size_t n) {
  const size_t c = (n + 8 + 15) & ~size_t{15};
  return static_cast<long long>(c < 32 ? 32 : c);
}

// Every block carries its request size and whether it was counted in a 16-byte prefix, so
// frees of counted blocks are subtracted whatever their delete form.
struct Prefix {
  size_t size;
  bool counted;
};
static_assert(sizeof(Prefix) <= 16);

}  // namespace

void* operator new(size_t n) {
  void* raw = std::malloc(n + 16);
  if (!raw) throw std::bad_alloc();
  *static_cast<Prefix*>(raw) = {n, counting};
  if (counting) heapBytes += chunkSize(n);
  return static_cast<char*>(raw) + 16;
}
void operator delete(void* p) noexcept {
  if (!p) return;
  void* raw = static_cast<char*>(p) - 16;
  const Prefix prefix = *static_cast<Prefix*>(raw);
  if (prefix.counted) heapBytes -= chunkSize(prefix.size);
  std::free(raw);
}
void operator delete(void* p, size_t) noexcept {
  operator delete(p);
}

namespace {

using namespace Routing::Pim::Snmp;
using Routing::Pim::RouteKey;

TEST(MemoryTest, Ipv4RouteWithTwoOifsUnderBudget) {
  constexpr int kRoutes = 2000;
  constexpr long long kBudget = 1536;
  auto ifMib = Ent::make<IntfSnmp::IfMib>();
  const Lanet::IntfId intfs[2] = {Lanet::IntfId("Ethernet1/1"), Lanet::IntfId("Ethernet2/1")};
  std::vector<Ent::Ptr<Routing::Pim::SparseMode::Route>> routes;
  for (int i = 0; i < kRoutes; ++i) {
    const RouteKey key{Lanet::IpGenAddr::v4(0x0A000000u + static_cast<uint32_t>(i)),
                       Lanet::IpGenAddr::v4(0xEF010101u)};
    auto r = Ent::make<Routing::Pim::SparseMode::Route>(key);
    for (const auto& intf : intfs) r->routeIntfIs(intf);
    routes.push_back(r);
  }
  auto mib = pimMibFactory("default");

  counting = true;
  heapBytes = 0;
  for (const auto& r : routes) {
    const RouteKey& key = r->key();
    const auto pimIndex = pimIpMrouteEntryIndexFromRouteKey(key);
    auto mcast = mib->ipMcastRouteTableIs(r, ifMib, IpMcastRouteEntryIndex::fromRouteKey(key));
    mib->ipMRouteTableIs(r, ifMib, pimIndex);
    mib->pimIpMrouteTableIs(pimIndex, r);
    for (int n = 0; n < 2; ++n) {
      const int32_t ifIndex = n + 1;
      const auto hop = IpMcastRouteNextHopEntryIndex::fromRouteKeyAndIfIndex(key, ifIndex);
      mib->ipMcastRouteNextHopTableIs(nhStateForwarding, hop);
      mcast->nextHopIndexIs({hop, intfs[n]});
      const auto pimHop = pimIpMrouteNextHopEntryIndexFromRouteKey(key, ifIndex);
      mib->ipMRouteNextHopTableIs(nhStateForwarding, pimHop);
      mib->pimIpMrouteNextHopTableIs(pimHop, r->routeIntf(intfs[n]));
    }
  }
  counting = false;

  const long long perRoute = heapBytes / kRoutes;
  RecordProperty("bytesPerRoute", static_cast<int>(perRoute));
  EXPECT_LT(perRoute, kBudget);
  EXPECT_EQ(mib->ipMcastRouteNextHopTable().size(), 2u * kRoutes);
}

}  // namespace
