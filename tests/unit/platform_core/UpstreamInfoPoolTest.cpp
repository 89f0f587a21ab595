// The shared upstream records: one per value while any route holds it, and a pool that stays
// bounded however many values come and go.

#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "platform/Lanet/IntfId.h"
#include "platform/Lanet/IpGenAddr.h"
#include "platform/Routing/Pim/SparseMode/UpstreamInfoPool.h"

namespace {

using Lanet::IntfId;
using Lanet::IpGenAddr;
using Routing::Pim::SparseMode::UpstreamInfo;
using Routing::Pim::SparseMode::UpstreamInfoPool;
using UpstreamPtr = Ent::Ptr<const UpstreamInfo>;

IpGenAddr v4(uint32_t n) {
  return IpGenAddr::v4(0x0A000000u + n);
}

TEST(UpstreamInfoPoolTest, EqualValuesShareOneRecord) {
  UpstreamInfoPool pool;
  const UpstreamPtr a = pool.upstreamInfo(IntfId("Ethernet1"), v4(1));
  EXPECT_EQ(a->iif(), IntfId("Ethernet1"));
  EXPECT_EQ(a->rpfNeighbor(), v4(1));
  EXPECT_EQ(pool.upstreamInfo(IntfId("Ethernet1"), v4(1)), a);

  // Either half differing, or the same unspecified neighbor of another family, is another value.
  const std::vector<UpstreamPtr> others = {
      pool.upstreamInfo(IntfId("Ethernet2"), v4(1)),
      pool.upstreamInfo(IntfId("Ethernet1"), v4(2)),
      pool.upstreamInfo(IntfId("Ethernet1"), IpGenAddr::unspecified(Lanet::AddressFamily::ipv4)),
      pool.upstreamInfo(IntfId("Ethernet1"), IpGenAddr::unspecified(Lanet::AddressFamily::ipv6)),
      pool.upstreamInfo(IntfId(""), v4(1)),
  };
  for (size_t i = 0; i < others.size(); ++i) {
    EXPECT_NE(others[i], a) << i;
    EXPECT_FALSE(*others[i] == *a) << i;
    for (size_t j = 0; j < i; ++j) EXPECT_NE(others[i], others[j]) << i << " " << j;
  }
  EXPECT_EQ(pool.size(), 1 + others.size());
}

TEST(UpstreamInfoPoolTest, SweepDropsOnlyRecordsNobodyElseHolds) {
  UpstreamInfoPool pool;
  std::vector<UpstreamPtr> held;
  for (uint32_t n = 0; n < 10; ++n) {
    UpstreamPtr u = pool.upstreamInfo(IntfId("Ethernet1"), v4(n));
    if (n % 2 == 0) held.push_back(u);
  }
  EXPECT_EQ(pool.size(), 10u);
  pool.sweep();
  EXPECT_EQ(pool.size(), held.size());
  for (const UpstreamPtr& u : held) {
    EXPECT_EQ(u->refCount(), 2u) << "the holder and the pool";
    EXPECT_EQ(pool.upstreamInfo(u->iif(), u->rpfNeighbor()), u) << "kept records are reused";
  }
  // A dropped value comes back as a new record, pooled again.
  const UpstreamPtr back = pool.upstreamInfo(IntfId("Ethernet1"), v4(1));
  EXPECT_EQ(back->rpfNeighbor(), v4(1));
  EXPECT_EQ(pool.size(), held.size() + 1);
  EXPECT_EQ(pool.upstreamInfo(IntfId("Ethernet1"), v4(1)), back);
}

// Routes come and go, each naming an upstream never seen before, with a window of them alive:
// the pool holds at most twice the live records (or the minimum before its first sweep), and a
// live record stays the one handed out for its value.
TEST(UpstreamInfoPoolTest, StaysBoundedUnderChurn) {
  for (size_t live : {size_t{1}, size_t{50}, size_t{1000}}) {
    UpstreamInfoPool pool;
    std::deque<UpstreamPtr> window;
    size_t largest = 0;
    for (uint32_t n = 0; n < 20000; ++n) {
      window.push_back(pool.upstreamInfo(IntfId("Vlan" + std::to_string(n % 4000)), v4(n)));
      if (window.size() > live) window.pop_front();
      largest = std::max(largest, pool.size());
      if (n % 997 == 0) {
        const UpstreamPtr& oldest = window.front();
        ASSERT_EQ(pool.upstreamInfo(oldest->iif(), oldest->rpfNeighbor()), oldest);
      }
    }
    EXPECT_LE(largest, std::max(UpstreamInfoPool::kMinSweep, 2 * live + 1)) << live;
    EXPECT_GE(pool.size(), live);
    window.clear();
    pool.sweep();
    EXPECT_EQ(pool.size(), 0u);
  }
}

}  // namespace
