// Routes the applier builds share one upstream record per (interface, RPF neighbor), and the
// shared records do not pile up as routes and neighbors come and go.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "daemon/state/Applier.h"
#include "daemon/state/PlatformState.h"
#include "daemon/state/StateDocument.h"
#include "tests/unit/state_doc/StateDocTestUtil.h"

namespace {

using PimSnmpd::Json;
using PimSnmpd::PlatformState;
using Routing::Pim::SparseMode::UpstreamInfoPool;
using StateDocTest::describe;

class UpstreamSharingTest : public ::testing::Test {
 protected:
  UpstreamSharingTest() : state_(Ent::make<Ent::Dir>("root")) {
    const auto r = PimSnmpd::applyText(doc_, StateDocTest::kBaseDocument, state_);
    EXPECT_TRUE(r.ok) << describe(r.errors);
  }

  void patch(const Json& p) {
    const auto r = PimSnmpd::applyPatch(doc_, p, state_);
    ASSERT_TRUE(r.ok) << describe(r.errors);
  }
  // Sets route `key` of VRF red to `value` (null removes it).
  void route(const std::string& key, Json value) {
    Json p;
    p["vrfs"]["red"]["ipv4"]["routes"][key] = std::move(value);
    patch(p);
  }
  static Json upstream(const char* intf, const std::string& rpf) {
    return {{"upstream", {{"interface", intf}, {"rpfNeighbor", rpf}}}};
  }
  Ent::Ptr<const Routing::Pim::SparseMode::UpstreamInfo> upstreamOf(const std::string& key) {
    auto r = state_.routeTable(Lanet::AddressFamily::ipv4, L3::VrfName("red"))
                 ->route(*PimSnmpd::parseRouteKey(key, Lanet::AddressFamily::ipv4));
    return r ? r->upstreamInfo() : nullptr;
  }

  PimSnmpd::Document doc_;
  PlatformState state_;
};

TEST_F(UpstreamSharingTest, EqualUpstreamsShareARecord) {
  // "*,239.1.1.1" of the base document comes from Ethernet1 via 10.0.1.2.
  const auto base = upstreamOf("*,239.1.1.1");
  ASSERT_TRUE(base);
  for (int i = 1; i <= 3; ++i) {
    route("10.0.1." + std::to_string(10 + i) + ",239.2.0.1", upstream("Ethernet1", "10.0.1.2"));
  }
  for (int i = 1; i <= 3; ++i) {
    EXPECT_EQ(upstreamOf("10.0.1." + std::to_string(10 + i) + ",239.2.0.1"), base) << i;
  }

  // A route that changes its neighbor gets the other value's record, and back.
  route("10.0.1.11,239.2.0.1", upstream("Ethernet1", "10.0.1.3"));
  const auto moved = upstreamOf("10.0.1.11,239.2.0.1");
  ASSERT_TRUE(moved);
  EXPECT_NE(moved, base);
  EXPECT_EQ(moved->rpfNeighbor(), *Lanet::IpGenAddr::parse("10.0.1.3"));
  route("10.0.1.12,239.2.0.1", upstream("Ethernet1", "10.0.1.3"));
  EXPECT_EQ(upstreamOf("10.0.1.12,239.2.0.1"), moved);
  route("10.0.1.11,239.2.0.1", upstream("Ethernet1", "10.0.1.2"));
  EXPECT_EQ(upstreamOf("10.0.1.11,239.2.0.1"), base);

  // A whole document read again keeps sharing: nothing changed, so no route takes a new record.
  PimSnmpd::Document again = doc_;
  PimSnmpd::apply(doc_, std::move(again), state_);
  EXPECT_EQ(upstreamOf("10.0.1.13,239.2.0.1"), base);
  EXPECT_EQ(upstreamOf("*,239.1.1.1"), base);
}

// Each patch brings a route with a neighbor never seen before and drops the previous one: the
// pool holds a bounded number of records, not one per neighbor ever named.
TEST_F(UpstreamSharingTest, ChurnOfNeighborsLeavesThePoolBounded) {
  const std::string key = "10.0.2.77,239.2.0.1";
  size_t largest = 0;
  for (int i = 0; i < 3000; ++i) {
    const std::string rpf = "10.7." + std::to_string(i / 250) + "." + std::to_string(i % 250);
    route(key, upstream("Ethernet2", rpf));
    ASSERT_EQ(upstreamOf(key)->rpfNeighbor(), *Lanet::IpGenAddr::parse(rpf));
    largest = std::max(largest, state_.upstreamInfoPool().size());
  }
  EXPECT_LE(largest, UpstreamInfoPool::kMinSweep);
}

}  // namespace
