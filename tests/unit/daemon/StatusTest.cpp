#include <gtest/gtest.h>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include "PimSnmp/PimSnmp/PimMib.h"
#include "daemon/Status.h"
#include "platform/Clock/Clock.h"
#include "platform/Snmp/Config.h"
#include "platform/Snmp/MibContext.h"
#include "platform/Snmp/TrapManager.h"

namespace PimSnmpd {
namespace {

TEST(Status, ListsTheContextsOfEachModule) {
  Snmp::MibContexts contexts;
  contexts.moduleIs("ipMcastMIB", "");
  contexts.moduleIs("PimMIB", "");
  contexts.moduleIs("ipMcastMIB", "blue");
  contexts.moduleIs("ipMcastMIB", "red");
  contexts.moduleIs("PimMIB", "red");
  EXPECT_EQ(Status::modules(contexts), Json::parse(R"({"PimMIB": ["", "red"], "ipMRouteStdMIB": [],
                            "ipMcastMIB": ["", "blue", "red"]})"));
}

TEST(Status, CountsTheRowsOfTheServedModulesOnly) {
  Snmp::MibContexts contexts;
  contexts.moduleIs("ipMcastMIB", "");
  contexts.moduleIs("ipMcastMIB", "blue");
  contexts.moduleIs("PimMIB", "blue");
  auto root = Ent::make<Ent::Dir>("snmpPimMIB");
  // The default VRF's store is named "default" and served in the empty context.
  root->entityIs(Routing::Pim::Snmp::pimMibFactory("default"));
  const Json out = Status::contexts(contexts, root.get());

  EXPECT_EQ(out[""]["vrf"], "default");
  EXPECT_EQ(out[""]["modules"], Json::array({"ipMcastMIB"}));
  EXPECT_EQ(out[""]["tables"], Json::parse(R"({"ipMcastMIB": {"ipMcastInterfaceTable": 0,
      "ipMcastRouteTable": 0, "ipMcastRouteNextHopTable": 0}})"));
  // A context whose store is missing still shows its modules, without counts.
  EXPECT_EQ(out["blue"]["vrf"], "blue");
  EXPECT_EQ(out["blue"]["modules"], Json::array({"PimMIB", "ipMcastMIB"}));
  EXPECT_TRUE(out["blue"]["tables"].empty());
}

TEST(Status, ShowsTheTrapQueueInSendingOrder) {
  auto clock = Ent::make<Plat::ManualClock>(1000.0);
  Plat::ScopedClock scoped(clock);
  Snmp::TrapManager traps;
  const auto varbinds = [] {
    netsnmp_variable_list* vars = nullptr;
    const oid trapOid[] = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
    const oid value[] = {1, 3, 6, 1, 3, 61, 1, 0, 1};
    snmp_varlist_add_variable(&vars, trapOid, OID_LENGTH(trapOid), ASN_OBJECT_ID,
                              reinterpret_cast<const u_char*>(value), sizeof(value));
    return vars;
  };
  traps.enqueueTrap(varbinds(), "red", 1005.0);
  traps.enqueueTrap(varbinds(), "", 0);
  const Json out = Status::traps(traps);
  EXPECT_EQ(out["queued"], 2);
  EXPECT_EQ(out["sent"], 0);
  EXPECT_EQ(out["pending"], Json::parse(R"([{"due": 1000.0, "context": ""},
                                            {"due": 1005.0, "context": "red"}])"));
}

TEST(Status, GivesTheEffectiveNotificationSetting) {
  Snmp::Config config;
  auto pim = config.notificationConfigIs("pim");
  pim->notificationIs("pimNeighborLoss", false, "maintenance");
  pim->delayIs("pimNeighborLoss", 2.5);
  Json out = Status::notifications(config);
  EXPECT_EQ(out["groups"]["pim"]["pimNeighborLoss"],
            Json::parse(R"({"enabled": false, "reason": "maintenance", "delay": 2.5})"));

  // The global switch wins over an enabled notification.
  pim->notificationIs("pimNeighborLoss", true);
  config.notificationsEnabledIs(false);
  out = Status::notifications(config);
  EXPECT_EQ(out["enabled"], false);
  EXPECT_EQ(out["groups"]["pim"]["pimNeighborLoss"]["enabled"], false);
}

}  // namespace
}  // namespace PimSnmpd
