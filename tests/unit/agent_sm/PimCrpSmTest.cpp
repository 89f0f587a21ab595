// RP-set and candidate-RP rows of one VRF, from its candidate-RP and static-RP status.

#include <gtest/gtest.h>

#include "PimSnmp/PimSnmp/Index.h"
#include "PimSnmp/PimSnmp/PimMib.h"
#include "PimSnmp/PimSnmpAgent/PimCrpSm.h"
#include "platform/Routing/Pim/Bsr/Status.h"
#include "platform/Routing/Pim/RpCandidateStatus.h"
#include "platform/Trace/Capture.h"
#include "tests/unit/agent_sm/AgentTestUtil.h"

namespace {

using namespace AgentSmTest;
using Routing::Pim::RpCandidateStatus;
using Routing::Pim::Snmp::maskFromLength;
using Routing::Pim::Snmp::PimCandidateRPEntryIndex;
using Routing::Pim::Snmp::PimRPSetEntryIndex;
using Routing::Pim::SnmpAgent::PimCrpSm;

PimRPSetEntryIndex rpSet(const char* group, uint32_t len, const char* rp) {
  return {1, addr(group), maskFromLength(len), addr(rp)};
}
PimCandidateRPEntryIndex candidate(const char* group, uint32_t len) {
  return {addr(group), maskFromLength(len)};
}

class PimCrpSmTest : public ::testing::Test {
 protected:
  PimCrpSmTest()
      : vrf_("red"),
        mib_(Routing::Pim::Snmp::pimMibFactory("red")),
        bsrStatus_(Ent::make<Routing::Pim::Bsr::Status>(vrf_)),
        crpStatus_(Ent::make<RpCandidateStatus>(vrf_, Routing::Pim::rpTypeBsr)),
        staticStatus_(Ent::make<RpCandidateStatus>(vrf_, Routing::Pim::rpTypeStatic)) {}

  Ent::Ptr<PimCrpSm> makeSm(Ent::Ptr<RpCandidateStatus> status) {
    auto sm =
        Routing::Pim::SnmpAgent::PimCrpSmIs(Lanet::AddressFamily::ipv4, mib_, bsrStatus_, status);
    sm->handleInitialized();
    return sm;
  }
  static void rp(RpCandidateStatus& s, const char* group, const char* address) {
    s.crpSetIs(prefix(group))->rpCandidateIs(addr(address))->holdTimeIs(150);
  }

  L3::VrfName vrf_;
  Ent::Ptr<Routing::Pim::Snmp::PimMib> mib_;
  Ent::Ptr<Routing::Pim::Bsr::Status> bsrStatus_;
  Ent::Ptr<RpCandidateStatus> crpStatus_;
  Ent::Ptr<RpCandidateStatus> staticStatus_;
};

TEST_F(PimCrpSmTest, BothInstancesWriteRowsOfTheirOwnRpType) {
  Trace::Capture trace("PimSnmpAgent/8");
  rp(*crpStatus_, "224.0.0.0/4", "1.1.1.1");  // there before the machine starts
  auto bsrSm = makeSm(crpStatus_);
  auto staticSm = makeSm(staticStatus_);
  rp(*staticStatus_, "239.1.0.0/16", "2.2.2.2");

  ASSERT_EQ(mib_->pimRPSetTable().size(), 2u);
  auto bsrRow = mib_->pimRPSetTable(rpSet("224.0.0.0", 4, "1.1.1.1"));
  auto staticRow = mib_->pimRPSetTable(rpSet("239.1.0.0", 16, "2.2.2.2"));
  ASSERT_NE(bsrRow, nullptr);
  ASSERT_NE(staticRow, nullptr);
  EXPECT_EQ(bsrRow->rpType(), Routing::Pim::rpTypeBsr);
  EXPECT_EQ(bsrRow->holdTime(), 150u);
  EXPECT_EQ(staticRow->rpType(), Routing::Pim::rpTypeStatic);
  EXPECT_EQ(staticRow->holdTime(), 0u) << "only BSR-learnt RPs show a hold time";
  EXPECT_EQ(staticRow->rp(),
            staticStatus_->crpSet(prefix("239.1.0.0/16"))->rpCandidate(addr("2.2.2.2")));
  EXPECT_TRUE(
      trace.contains(" adding an entry to pimRPSetTable for group: 239.1.0.0and rp: 2.2.2.2"));
  EXPECT_TRUE(mib_->pimCandidateRPTable().empty()) << "neither RP is this router's candidate";

  // Each instance removes the rows of its own status.
  staticStatus_->crpSetDel(prefix("239.1.0.0/16"));
  EXPECT_EQ(mib_->pimRPSetTable(rpSet("239.1.0.0", 16, "2.2.2.2")), nullptr);
  EXPECT_NE(mib_->pimRPSetTable(rpSet("224.0.0.0", 4, "1.1.1.1")), nullptr);
  EXPECT_TRUE(trace.contains(
      " removing an entry from pimRPSetTable for group: 239.1.0.0/16and rp: 2.2.2.2"));
}

TEST_F(PimCrpSmTest, AnyRpOfAGroupTakesTheGroupsCandidateRowAlong) {
  Trace::Capture trace("PimSnmpAgent/8");
  bsrStatus_->crpIs(addr("1.1.1.1"));  // this router advertises 1.1.1.1
  auto sm = makeSm(crpStatus_);
  rp(*crpStatus_, "224.1.0.0/16", "1.1.1.1");
  rp(*crpStatus_, "224.1.0.0/16", "3.3.3.3");
  auto row = mib_->pimCandidateRPTable(candidate("224.1.0.0", 16));
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(row->rpAddress(), addr("1.1.1.1"));
  EXPECT_EQ(mib_->pimCandidateRPTable().size(), 1u);
  EXPECT_EQ(mib_->pimRPSetTable().size(), 2u);

  crpStatus_->crpSetIs(prefix("224.1.0.0/16"))->rpCandidateDel(addr("3.3.3.3"));
  EXPECT_TRUE(mib_->pimCandidateRPTable().empty())
      << "the candidate row is keyed by group only: another RP's removal takes it";
  EXPECT_TRUE(
      trace.contains(" removing an entry from pimCandidateRpTable for group: 224.1.0.0/16"));
  EXPECT_EQ(mib_->pimRPSetTable().size(), 1u);
}

TEST_F(PimCrpSmTest, OnlyIpv4GroupRangesAreMirrored) {
  auto sm = makeSm(crpStatus_);
  rp(*crpStatus_, "ff0e::/16", "2001:db8::1");
  EXPECT_TRUE(mib_->pimRPSetTable().empty());
  crpStatus_->crpSetDel(prefix("ff0e::/16"));
  rp(*crpStatus_, "0.0.0.0/0", "4.4.4.4");
  EXPECT_NE(mib_->pimRPSetTable(rpSet("0.0.0.0", 0, "4.4.4.4")), nullptr)
      << "length 0 gives mask 0";
}

TEST_F(PimCrpSmTest, ReplacedRecordsGetNewRowsAndTeardownRemovesAll) {
  bsrStatus_->crpIs(addr("1.1.1.1"));
  auto sm = makeSm(crpStatus_);
  rp(*crpStatus_, "224.1.0.0/16", "1.1.1.1");
  rp(*crpStatus_, "225.0.0.0/8", "5.5.5.5");

  auto fresh = Ent::make<Routing::Pim::RpCandidate>(addr("1.1.1.1"));
  crpStatus_->crpSetIs(prefix("224.1.0.0/16"))->rpCandidateIs(fresh);
  EXPECT_EQ(mib_->pimRPSetTable(rpSet("224.1.0.0", 16, "1.1.1.1"))->rp(), fresh);
  EXPECT_EQ(mib_->pimCandidateRPTable(candidate("224.1.0.0", 16))->rp(), fresh);

  auto freshSet = Ent::make<Routing::Pim::RpCandidateSet>(prefix("225.0.0.0/8"));
  freshSet->rpCandidateIs(addr("6.6.6.6"));
  crpStatus_->crpSetIs(freshSet);
  EXPECT_EQ(mib_->pimRPSetTable(rpSet("225.0.0.0", 8, "5.5.5.5")), nullptr);
  EXPECT_NE(mib_->pimRPSetTable(rpSet("225.0.0.0", 8, "6.6.6.6")), nullptr);

  sm->doTeardown();
  EXPECT_TRUE(mib_->pimRPSetTable().empty());
  EXPECT_TRUE(mib_->pimCandidateRPTable().empty());
  EXPECT_EQ(crpStatus_->reactorCount(), 0u);
  EXPECT_EQ(freshSet->reactorCount(), 0u);
  rp(*crpStatus_, "226.0.0.0/8", "7.7.7.7");
  EXPECT_TRUE(mib_->pimRPSetTable().empty()) << "nothing is followed after tear-down";
}

}  // namespace
