#include <gtest/gtest.h>

#include <string>

#include "platform/Ent/Dir.h"
#include "platform/Snmp/Config.h"
#include "platform/Snmp/RegVoidColl.h"
#include "platform/SnmpUtil/SnmpUtil.h"

namespace {

class Thing : public Ent::Entity {
 public:
  using Ent::Entity::Entity;
  std::string_view typeName() const override { return "Test::Thing"; }
};

TEST(NotificationStatusTest, EveryReasonForNotSending) {
  Snmp::Config config;
  auto status = [&] { return config.notificationStatus("pim", "pimNeighborLoss"); };
  EXPECT_EQ(status().reason, "notification group pim is not configured");

  auto pim = config.notificationConfigIs("pim");
  EXPECT_EQ(config.notificationConfigIs("pim"), pim);  // created once
  EXPECT_FALSE(status().send);
  EXPECT_EQ(status().reason, "notification pimNeighborLoss is not registered in group pim");

  pim->notificationIs("pimNeighborLoss");
  EXPECT_TRUE(status().send);
  EXPECT_EQ(status().reason, "enabled");

  pim->notificationIs("pimNeighborLoss", false);
  EXPECT_FALSE(status().send);
  EXPECT_EQ(status().reason, "notification pimNeighborLoss disabled by configuration");
  pim->notificationIs("pimNeighborLoss", false, "disabled by the operator");
  EXPECT_EQ(status().reason, "disabled by the operator");

  // The global switch wins over an enabled notification.
  pim->notificationIs("pimNeighborLoss", true);
  config.notificationsEnabledIs(false);
  EXPECT_FALSE(status().send);
  EXPECT_EQ(status().reason, "notifications disabled by configuration");
  config.notificationsEnabledIs(true);
  EXPECT_TRUE(status().send);

  EXPECT_EQ(pim->delay("pimNeighborLoss"), 0.0);  // none configured
  pim->delayIs("pimNeighborLoss", 5);
  EXPECT_EQ(pim->delayMap().get("pimNeighborLoss"), 5.0);
}

TEST(SnmpUtilTest, EntityRootResolvesQuotedPathsAndCollections) {
  auto root = Ent::make<Ent::Dir>("testRoot");
  SnmpUtil::ScopedEntityRoot scoped(root);
  EXPECT_FALSE(SnmpUtil::getEntityRelative("snmp/pim/snmpPimMIB/default"));

  auto store = Ent::make<Thing>("red/blue");
  root->mkdirs("snmp/pim/snmpPimMIB")->entityIs(store);
  EXPECT_EQ(SnmpUtil::getEntityRelative("snmp/pim/snmpPimMIB/" + Ent::urlQuote("red/blue")),
            Ent::Ptr<Ent::Entity>(store));

  auto config = Ent::make<Snmp::Config>();
  auto pim = config->notificationConfigIs("pim");
  root->mkdir("snmp")->entityIs(config);
  EXPECT_EQ(SnmpUtil::getEntityRelative("snmp/config.notificationConfig/pim"),
            Ent::Ptr<Ent::Entity>(pim));
  EXPECT_FALSE(SnmpUtil::getEntityRelative("snmp/config.notificationConfig/bgp"));
}

TEST(RegVoidCollTest, RecordsStayPutUntilDeleted) {
  Snmp::RegVoidCollByContext coll;
  auto a = Ent::make<Thing>("a");
  auto b = Ent::make<Thing>("b");
  void* red = coll.addRegVoid("red", "pimNeighborTable", a);
  void* def = coll.addRegVoid("", "pimNeighborTable", b);
  EXPECT_NE(red, def);
  EXPECT_EQ(Snmp::RegVoidCollByContext::entityOf(red), a.get());
  EXPECT_EQ(a->refCount(), 2u);  // the record holds the entity

  // Adding a name again keeps the record: net-snmp already holds its pointer.
  EXPECT_EQ(coll.addRegVoid("red", "pimNeighborTable", b), red);
  EXPECT_EQ(Snmp::RegVoidCollByContext::entityOf(red), b.get());
  EXPECT_EQ(a->refCount(), 1u);

  // Growth must not move existing records.
  for (int i = 0; i < 200; ++i) coll.addRegVoid("red", "t" + std::to_string(i), a);
  EXPECT_EQ(coll.regVoid("red", "pimNeighborTable"), red);
  EXPECT_EQ(coll.count("red"), 201u);
  EXPECT_EQ(coll.count("re"), 0u);

  EXPECT_FALSE(coll.delRegVoid("red", "noSuchTable"));  // harmless
  EXPECT_FALSE(coll.delRegVoid("blue", "pimNeighborTable"));
  EXPECT_TRUE(coll.delRegVoid("red", "pimNeighborTable"));
  EXPECT_EQ(coll.regVoid("", "pimNeighborTable"), def);  // other context untouched
  EXPECT_EQ(coll.delContext("red"), 200u);
  EXPECT_EQ(a->refCount(), 1u);
  EXPECT_EQ(coll.size(), 1u);
}

}  // namespace
