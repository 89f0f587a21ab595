// Interface, neighbor and component rows of one IPv4 VRF, driven through the platform's PIM
// interface records, the interface-status directory and IfMib.

#include <gtest/gtest.h>

#include <vector>

#include "PimSnmp/PimSnmp/PimMib.h"
#include "PimSnmp/PimSnmpAgent/IntfSm.h"
#include "platform/Clock/Clock.h"
#include "platform/Interface/AllIntfStatusDir.h"
#include "platform/IntfSnmp/IfMib.h"
#include "platform/Routing/Pim/Bsr/Config.h"
#include "platform/Routing/Pim/Bsr/Status.h"
#include "platform/Routing/Pim/Status.h"
#include "platform/Trace/Capture.h"
#include "tests/unit/agent_sm/AgentTestUtil.h"

namespace {

using namespace AgentSmTest;
using Lanet::IntfId;
using Routing::Pim::SnmpAgent::IntfSm;

class IntfSmTest : public ::testing::Test {
 protected:
  IntfSmTest()
      : clock_(Ent::make<Plat::ManualClock>(1000.0)),
        scopedClock_(clock_),
        scopedNotifier_(notifier_),
        vrf_("red"),
        mib_(Routing::Pim::Snmp::pimMibFactory("red")),
        ifMib_(Ent::make<IntfSnmp::IfMib>()),
        intfStatus_(Ent::make<Interface::AllIntfStatusDir>()),
        pimStatus_(Ent::make<Routing::Pim::Status>(vrf_)),
        bsrStatus_(Ent::make<Routing::Pim::Bsr::Status>(vrf_)),
        bsrConfig_(Ent::make<Routing::Pim::Bsr::Config>(vrf_)) {}

  Ent::Ptr<IntfSm> makeSm() {
    auto sm = Routing::Pim::SnmpAgent::IntfSmIs(mib_, ifMib_, intfStatus_, pimStatus_, bsrStatus_,
                                                bsrConfig_);
    sm->handleInitialized();
    return sm;
  }
  Ent::Ptr<Routing::Pim::Intf> intf(const char* name, uint32_t ifIndex, const char* address) {
    if (ifIndex) ifMib_->ifIndexByIntfIdIs(IntfId(name), ifIndex);
    auto i = pimStatus_->pimIntfIs(IntfId(name));
    i->addressIs(addr(address), 24);
    i->modeIs(Routing::Pim::modeSparse);
    return i;
  }
  static Ent::Ptr<Routing::Pim::Neighbor> neighbor(Routing::Pim::Intf& i, const char* address,
                                                   double created = 900) {
    auto n = Ent::make<Routing::Pim::Neighbor>(addr(address));
    n->creationTimeIs(created);
    n->holdTimeIs(105);
    i.activeNeighborIs(n);
    return n;
  }

  Ent::Ptr<Plat::ManualClock> clock_;
  Plat::ScopedClock scopedClock_;
  RecordingNotifier notifier_;
  Routing::Pim::SnmpAgent::ScopedNeighborLossNotifier scopedNotifier_;
  L3::VrfName vrf_;
  Ent::Ptr<Routing::Pim::Snmp::PimMib> mib_;
  Ent::Ptr<IntfSnmp::IfMib> ifMib_;
  Ent::Ptr<Interface::AllIntfStatusDir> intfStatus_;
  Ent::Ptr<Routing::Pim::Status> pimStatus_;
  Ent::Ptr<Routing::Pim::Bsr::Status> bsrStatus_;
  Ent::Ptr<Routing::Pim::Bsr::Config> bsrConfig_;
};

TEST_F(IntfSmTest, InterfaceRowsAndComponentRowFollowPimInterfaces) {
  Trace::Capture trace("PimSnmpAgent/8");
  auto e1 = intf("Ethernet1", 11, "10.1.0.1");  // present before the machine starts
  auto sm = makeSm();
  ASSERT_NE(mib_->pimInterfaceTable(11), nullptr);
  EXPECT_EQ(mib_->pimInterfaceTable(11)->intf(), e1);
  EXPECT_EQ(mib_->pimInterfaceTable(11)->bsrStatus(), bsrStatus_);
  ASSERT_NE(mib_->pimComponentTable(1), nullptr);
  EXPECT_EQ(mib_->pimComponentTable(1)->bsrConfig(), bsrConfig_);
  EXPECT_EQ(trace.count("adding an entry to PimComponent Table with index:1"), 1u);

  intf("Ethernet2", 12, "10.2.0.1");
  EXPECT_EQ(mib_->pimInterfaceTable().size(), 2u);
  EXPECT_EQ(trace.count("adding an entry to PimComponent Table with index:1"), 1u)
      << "one component row for the VRF";

  pimStatus_->pimIntfDel(IntfId("Ethernet1"));
  EXPECT_EQ(mib_->pimInterfaceTable(11), nullptr);
  EXPECT_NE(mib_->pimComponentTable(1), nullptr) << "another interface is still in PIM";
  EXPECT_EQ(sm->rxPimIntf(IntfId("Ethernet1")), nullptr);

  pimStatus_->pimIntfDel(IntfId("Ethernet2"));
  EXPECT_TRUE(mib_->pimInterfaceTable().empty());
  EXPECT_EQ(mib_->pimComponentTable(1), nullptr) << "the last interface took row 1 along";
  EXPECT_TRUE(trace.contains("Removing an entry from PimComponentTable with index:1"));

  intf("Ethernet3", 13, "10.3.0.1");
  EXPECT_NE(mib_->pimComponentTable(1), nullptr) << "row 1 comes back with a new interface";
}

TEST_F(IntfSmTest, InterfaceWithoutIfIndexIsMirroredAfterItsStatusChanges) {
  Trace::Capture trace("PimSnmpAgent/8");
  auto sm = makeSm();
  auto e1 = intf("Ethernet1", 0, "10.1.0.1");
  auto n = neighbor(*e1, "10.1.0.2");
  EXPECT_TRUE(mib_->pimInterfaceTable().empty());
  EXPECT_TRUE(mib_->pimNeighborTable().empty()) << "no row for a neighbor without an ifIndex";
  EXPECT_TRUE(trace.contains("skipping processing of Ethernet1 because of invalid index."));

  ifMib_->ifIndexByIntfIdIs(IntfId("Ethernet1"), 7);
  EXPECT_TRUE(mib_->pimInterfaceTable().empty()) << "IfMib itself is not followed";
  intfStatus_->intfOperStatusIs(IntfId("Ethernet1"), Interface::operUp);
  ASSERT_NE(mib_->pimInterfaceTable(7), nullptr);
  auto row = mib_->pimNeighborTable(addr("10.1.0.2"));
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(row->neighbor(), n);
  EXPECT_EQ(row->interfaceIndex(), 7);
  EXPECT_EQ(row->mode(), Routing::Pim::modeSparse);
  EXPECT_TRUE(trace.contains("adding an entry to pimNeighborTable with address:10.1.0.2"));

  // Status changes of interfaces that are not in PIM touch nothing.
  intfStatus_->intfOperStatusIs(IntfId("Ethernet9"), Interface::operUp);
  EXPECT_EQ(mib_->pimInterfaceTable().size(), 1u);
}

TEST_F(IntfSmTest, OnlyTheLowestAddressedNeighborReportsItsLoss) {
  Trace::Capture trace("PimSnmpAgent/8");
  auto sm = makeSm();
  // The router's own address is above its neighbors': the neighbors are compared with the lost
  // one's address, not with the router's.
  auto e1 = intf("Ethernet1", 7, "10.0.0.9");
  for (const char* a : {"10.0.0.2", "10.0.0.3", "10.0.0.4"}) neighbor(*e1, a);
  EXPECT_EQ(mib_->pimNeighborTable().size(), 3u);

  e1->activeNeighborDel(addr("10.0.0.3"));
  EXPECT_TRUE(notifier_.losses.empty()) << "10.0.0.2 is still there and lower";
  EXPECT_EQ(mib_->pimNeighborTable(addr("10.0.0.3")), nullptr);
  EXPECT_TRUE(trace.contains("removing an entry from pimNeighborTable with address:10.0.0.3"));

  e1->activeNeighborDel(addr("10.0.0.2"));
  ASSERT_EQ(notifier_.losses.size(), 1u);
  EXPECT_EQ(notifier_.losses[0], (NeighborLoss{7, *Lanet::IpAddr::parse("10.0.0.2"), "", "red"}));
  EXPECT_TRUE(
      trace.contains("Raising an SNMP Trap for neighbor with index: 7and address: 10.0.0.2"));

  e1->activeNeighborDel(addr("10.0.0.4"));
  ASSERT_EQ(notifier_.losses.size(), 2u) << "the last neighbor reports its loss";
  EXPECT_EQ(notifier_.losses[1].address, *Lanet::IpAddr::parse("10.0.0.4"));
  EXPECT_TRUE(mib_->pimNeighborTable().empty());

  sm->neighborTrapEnabledIs(false);
  neighbor(*e1, "10.0.0.5");
  e1->activeNeighborDel(addr("10.0.0.5"));
  EXPECT_EQ(notifier_.losses.size(), 2u) << "notifications switched off";
  EXPECT_TRUE(mib_->pimNeighborTable().empty());
}

TEST_F(IntfSmTest, ReappearingNeighborKeepsItsRowAndUpTime) {
  auto sm = makeSm();
  auto e1 = intf("Ethernet1", 7, "10.0.0.1");
  auto e2 = intf("Ethernet2", 8, "10.0.1.1");
  neighbor(*e1, "10.0.0.2", 900);
  auto row = mib_->pimNeighborTable(addr("10.0.0.2"));
  ASSERT_NE(row, nullptr);
  EXPECT_DOUBLE_EQ(row->upTime(), 100.0);

  clock_->advance(50);
  // The same address shows up again (another interface, a new record) while the row exists.
  neighbor(*e2, "10.0.0.2", 1050);
  intfStatus_->intfOperStatusIs(IntfId("Ethernet1"), Interface::operUp);
  EXPECT_EQ(mib_->pimNeighborTable(addr("10.0.0.2")), row) << "the row is not re-created";
  EXPECT_EQ(row->interfaceIndex(), 7);
  EXPECT_DOUBLE_EQ(row->upTime(), 150.0);
  EXPECT_TRUE(notifier_.losses.empty());
}

TEST_F(IntfSmTest, ReplacedInterfaceRecordRebindsItsRow) {
  auto sm = makeSm();
  auto old = intf("Ethernet1", 7, "10.0.0.1");
  neighbor(*old, "10.0.0.2");
  neighbor(*old, "10.0.0.3");

  auto fresh = Ent::make<Routing::Pim::Intf>(IntfId("Ethernet1"));
  fresh->addressIs(addr("10.0.0.1"), 24);
  neighbor(*fresh, "10.0.0.3");
  pimStatus_->pimIntfIs(fresh);

  ASSERT_NE(mib_->pimInterfaceTable(7), nullptr);
  EXPECT_EQ(mib_->pimInterfaceTable(7)->intf(), fresh);
  EXPECT_EQ(mib_->pimNeighborTable(addr("10.0.0.2")), nullptr) << "gone with the old record";
  EXPECT_NE(mib_->pimNeighborTable(addr("10.0.0.3")), nullptr);
  ASSERT_EQ(notifier_.losses.size(), 1u);
  EXPECT_EQ(notifier_.losses[0].address, *Lanet::IpAddr::parse("10.0.0.2"));

  fresh->activeNeighborDel(addr("10.0.0.3"));
  EXPECT_TRUE(mib_->pimNeighborTable().empty()) << "the new record is followed";
}

TEST_F(IntfSmTest, TeardownRemovesEveryRowWithoutNotifying) {
  auto sm = makeSm();
  auto e1 = intf("Ethernet1", 7, "10.0.0.1");
  auto e2 = intf("Ethernet2", 8, "10.0.1.1");
  neighbor(*e1, "10.0.0.2");
  neighbor(*e2, "10.0.1.2");
  // An interface that leaves PIM leaves its neighbor rows behind until tear-down.
  pimStatus_->pimIntfDel(IntfId("Ethernet2"));
  EXPECT_NE(mib_->pimNeighborTable(addr("10.0.1.2")), nullptr);

  sm->doTeardown();
  EXPECT_TRUE(mib_->pimInterfaceTable().empty());
  EXPECT_TRUE(mib_->pimNeighborTable().empty());
  EXPECT_TRUE(mib_->pimComponentTable().empty());
  EXPECT_TRUE(notifier_.losses.empty());
  EXPECT_EQ(pimStatus_->reactorCount(), 0u);
  EXPECT_EQ(e1->reactorCount(), 0u);
  EXPECT_EQ(intfStatus_->reactorCount(), 0u);

  // Nothing is followed any more.
  neighbor(*e1, "10.0.0.3");
  intf("Ethernet3", 9, "10.0.2.1");
  EXPECT_TRUE(mib_->pimNeighborTable().empty());
  EXPECT_TRUE(mib_->pimInterfaceTable().empty());
}

}  // namespace
