// The pimNeighborLoss notification as queued with the trap manager.

#include "PimSnmp/PimMIB/PimMIB.h"
#include "platform/Clock/Clock.h"
#include "platform/Snmp/TrapManager.h"
#include "platform/SnmpUtil/SnmpUtil.h"
#include "platform/Trace/Capture.h"
#include "tests/unit/mib_modules/Harness.h"

namespace MibTest {
namespace {

class NeighborLossTest : public ::testing::Test {
 protected:
  void SetUp() override {
    previous_ = SnmpUtil::getSnmpConfig();
    SnmpUtil::snmpConfigIs(config_);
    group_ = config_->notificationConfigIs("pim");
    group_->notificationIs("pimNeighborLoss");
    traps().clear();
  }
  void TearDown() override {
    traps().clear();
    SnmpUtil::snmpConfigIs(previous_);
  }

  static Snmp::TrapManager& traps() { return Snmp::TrapManager::instance(); }

  Ent::Ptr<Snmp::Config> previous_;
  Ent::Ptr<Snmp::Config> config_ = Ent::make<Snmp::Config>();
  Ent::Ptr<Snmp::NotificationConfig> group_;
  Ent::Ptr<Plat::ManualClock> clock_ = Ent::make<Plat::ManualClock>(1000.0);
  Plat::ScopedClock scopedClock_{clock_};
};

Oids objid(const netsnmp_variable_list& v) {
  return Oids(v.val.objid, v.val.objid + v.val_len / sizeof(oid));
}

TEST_F(NeighborLossTest, QueuesTrapOidAndTheNeighborsIfIndex) {
  Trace::Capture capture("PimMIB/4");
  EXPECT_EQ(Snmp::pimNeighborLossNotify(7, Lanet::IpAddr(0x0A000002), "red"), 0);
  const auto pending = traps().pending();
  ASSERT_EQ(pending.size(), 1u);
  EXPECT_EQ(pending[0].context, "red");
  EXPECT_LE(pending[0].due, clock_->now());  // at once
  const netsnmp_variable_list* v = pending[0].vars;
  ASSERT_NE(v, nullptr);
  EXPECT_EQ(Oids(v->name, v->name + v->name_length), (Oids{1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0}));
  EXPECT_EQ(v->type, ASN_OBJECT_ID);
  EXPECT_EQ(objid(*v), (Oids{1, 3, 6, 1, 3, 61, 1, 0, 1}));
  v = v->next_variable;
  ASSERT_NE(v, nullptr);
  EXPECT_EQ(Oids(v->name, v->name + v->name_length),
            (Oids{1, 3, 6, 1, 3, 61, 1, 1, 3, 1, 2, 10, 0, 0, 2}));
  EXPECT_EQ(v->type, ASN_INTEGER);
  EXPECT_EQ(*v->val.integer, 7);
  EXPECT_EQ(v->next_variable, nullptr);
  EXPECT_TRUE(capture.contains("Adding pimNeighborLoss notification to trap queue"));
}

TEST_F(NeighborLossTest, ConfiguredDelayPostponesIt) {
  group_->delayIs("pimNeighborLoss", 5);
  Snmp::pimNeighborLossNotify(1, Lanet::IpAddr(0x0A000002), "");
  ASSERT_EQ(traps().pending().size(), 1u);
  EXPECT_DOUBLE_EQ(traps().pending()[0].due, 1005);
}

TEST_F(NeighborLossTest, DisabledNotificationIsTracedAndDropped) {
  group_->notificationIs("pimNeighborLoss", false, "switched off by the operator");
  const std::string reason = config_->notificationStatus("pim", "pimNeighborLoss").reason;
  Trace::Capture capture("PimMIB/4");
  EXPECT_EQ(Snmp::pimNeighborLossNotify(7, Lanet::IpAddr(0x0A000002), ""), 0);
  EXPECT_EQ(traps().queueLength(), 0u);
  EXPECT_TRUE(capture.contains(
      "pimNeighborLoss notification not sent. notificationStatus returned " + reason));
  EXPECT_FALSE(capture.contains("Adding pimNeighborLoss"));
}

TEST_F(NeighborLossTest, MissingConfigurationIsAStartUpFault) {
  group_->notificationDel("pimNeighborLoss");
  EXPECT_DEATH(Snmp::pimNeighborLossNotify(7, Lanet::IpAddr(0x0A000002), ""),
               "Assertion `snmpConfig->notificationConfig\\( \"pim\" \\)->notification\\( "
               "\"pimNeighborLoss\" \\) && \"You need to register pimNeighborLoss traps from your "
               "DefaultConfigPlugin\"' failed");
  config_->notificationConfigDel("pim");
  EXPECT_DEATH(Snmp::pimNeighborLossNotify(7, Lanet::IpAddr(0x0A000002), ""),
               "Assertion `snmpConfig->notificationConfig\\( \"pim\" \\) && \"You need to register "
               "pim traps from your DefaultConfigPlugin\"' failed");
}

}  // namespace
}  // namespace MibTest
