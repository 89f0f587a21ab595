// PimMib: its named operations over the tables (the table rules themselves, index order and
// detaching rows: TableTest), the next-hop set of a route row, the FIB configuration.

#include <gtest/gtest.h>

#include <vector>

#include "PimSnmp/PimSnmp/Index.h"
#include "PimSnmp/PimSnmp/PimMib.h"
#include "platform/Ent/Error.h"
#include "platform/IntfSnmp/IfMib.h"
#include "platform/Routing/Multicast/Fib/Config.h"
#include "tests/unit/pimsnmp_store/StoreTestUtil.h"

namespace {

using namespace Routing::Pim::Snmp;
using namespace PimSnmpStoreTest;
using Lanet::AddressFamily;
using Lanet::IntfId;
using Routing::Pim::RouteKey;

class StoreTest : public ::testing::Test {
 protected:
  Ent::Ptr<PimMib> mib = pimMibFactory("red");
  Ent::Ptr<IntfSnmp::IfMib> ifMib = Ent::make<IntfSnmp::IfMib>();
};

TEST_F(StoreTest, DelByIteratorAndDelAll) {
  for (int32_t i : {3, 1, 2}) mib->pimInterfaceTableIs(i, nullptr, nullptr);
  ChangeLog<int32_t> log(mib, PimMib::attrPimInterfaceTable);
  auto removed = mib->pimInterfaceTableDel(mib->pimInterfaceTable().begin());
  EXPECT_EQ(removed->ifIndex(), 1);
  mib->pimInterfaceTableDelAll();
  EXPECT_TRUE(mib->pimInterfaceTable().empty());
  EXPECT_EQ(log.keys, (std::vector<int32_t>{1, 2, 3}));
}

TEST_F(StoreTest, NextHopIndexSetOfAMcastRoute) {
  const RouteKey key = sg("10.1.1.1", "239.1.1.1");
  auto row = mib->ipMcastRouteTableIs(route(key), ifMib, IpMcastRouteEntryIndex::fromRouteKey(key));
  const NextHopEntryIndexWithIntfId a(IpMcastRouteNextHopEntryIndex::fromRouteKeyAndIfIndex(key, 7),
                                      IntfId("Ethernet7"));
  const NextHopEntryIndexWithIntfId b(IpMcastRouteNextHopEntryIndex::fromRouteKeyAndIfIndex(key, 2),
                                      IntfId("Ethernet2"));
  EXPECT_TRUE(row->nextHopIndexIs(a));
  EXPECT_TRUE(row->nextHopIndexIs(b));
  EXPECT_FALSE(row->nextHopIndexIs(a)) << "a set";
  EXPECT_TRUE(row->nextHopIndexHas(a));

  std::vector<NextHopEntryIndexWithIntfId> members(row->nextHopIndex().begin(),
                                                   row->nextHopIndex().end());
  EXPECT_EQ(members, (std::vector{b, a})) << "members come back whole, in order";
  EXPECT_EQ(row->nextHopIndexCopy(), members);

  const RouteKey other = sg("10.1.1.2", "239.1.1.1");
  const NextHopEntryIndexWithIntfId foreign(
      IpMcastRouteNextHopEntryIndex::fromRouteKeyAndIfIndex(other, 7), IntfId("Ethernet7"));
  // The route's own part, but a next-hop address other than its group: not one of its own.
  auto otherAddress = IpMcastRouteNextHopEntryIndex::fromRouteKeyAndIfIndex(key, 7);
  otherAddress.addr = ::Snmp::InetAddress::parse("ipv4:10.9.9.9");
  for (const NextHopEntryIndexWithIntfId& m :
       {foreign, NextHopEntryIndexWithIntfId(otherAddress, IntfId("Ethernet7"))}) {
    EXPECT_THROW(row->nextHopIndexIs(m), Ent::Error) << m;
    EXPECT_FALSE(row->nextHopIndexHas(m)) << m;
    EXPECT_FALSE(row->nextHopIndexDel(m)) << m;
  }

  EXPECT_TRUE(row->nextHopIndexDel(b));
  EXPECT_FALSE(row->nextHopIndexDel(b));
  EXPECT_EQ(row->nextHopIndex().size(), 1u);
  row->nextHopIndexDelAll();
  EXPECT_TRUE(row->nextHopIndex().empty());

  // Removing the route leaves its next-hop set for the writer to act on.
  ASSERT_TRUE(row->nextHopIndexIs(a));
  auto removed = mib->ipMcastRouteTableDel(row->key());
  EXPECT_TRUE(removed->nextHopIndexHas(a));
}

TEST_F(StoreTest, IpMcastEnabledWhenAnyFamilyRoutes) {
  EXPECT_FALSE(mib->ipMcastEnabled()) << "no multicast-FIB configuration";
  ChangeLog<AddressFamily> log(mib, PimMib::attrMfibConfig);
  auto v4Config = Ent::make<Routing::Multicast::Fib::Config>("red");
  auto v6Config = Ent::make<Routing::Multicast::Fib::Config>("red");
  mib->mfibConfigIs(AddressFamily::ipv4, v4Config);
  mib->mfibConfigIs(AddressFamily::ipv4, v4Config);
  EXPECT_EQ(log.keys, std::vector{AddressFamily::ipv4}) << "storing the same config is silent";
  mib->mfibConfigIs(AddressFamily::ipv6, v6Config);
  EXPECT_FALSE(mib->ipMcastEnabled());
  v6Config->routingIs(true);
  EXPECT_TRUE(mib->ipMcastEnabled());
  mib->mfibConfigIs(AddressFamily::ipv6, nullptr);
  EXPECT_EQ(mib->mfibConfig(AddressFamily::ipv6), nullptr);
  EXPECT_FALSE(mib->ipMcastEnabled());
  mib->mfibConfigDelAll();
  EXPECT_TRUE(mib->mfibConfig().empty());
}

}  // namespace
