#include <gtest/gtest.h>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <string>
#include <utility>
#include <vector>

#include "platform/Clock/Clock.h"
#include "platform/Snmp/TrapManager.h"

namespace {

// A notification whose second varbind carries `tag`, so tests can tell them apart.
netsnmp_variable_list* trap(int tag) {
  const oid trapOid[] = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
  const oid neighborLoss[] = {1, 3, 6, 1, 3, 61, 1, 0, 1};
  const oid ifIndex[] = {1, 3, 6, 1, 3, 61, 1, 1, 3, 1, 2};
  netsnmp_variable_list* vars = nullptr;
  snmp_varlist_add_variable(&vars, trapOid, OID_LENGTH(trapOid), ASN_OBJECT_ID, neighborLoss,
                            sizeof neighborLoss);
  snmp_varlist_add_variable(&vars, ifIndex, OID_LENGTH(ifIndex), ASN_INTEGER, &tag, sizeof tag);
  return vars;
}

long tagOf(const netsnmp_variable_list* vars) {
  return *vars->next_variable->val.integer;
}

class TrapManagerTest : public ::testing::Test {
 protected:
  TrapManagerTest() {
    traps_.senderIs([this](netsnmp_variable_list* vars, const std::string& context) {
      sent_.emplace_back(context, tagOf(vars));
    });
  }
  using Sent = std::vector<std::pair<std::string, long>>;

  Ent::Ptr<Plat::ManualClock> clock_ = Ent::make<Plat::ManualClock>(1000.0);
  Plat::ScopedClock scoped_{clock_};
  Snmp::TrapManager traps_;
  Sent sent_;
};

TEST_F(TrapManagerTest, SendsInDueOrderThenQueueOrder) {
  traps_.enqueueTrap(trap(1), "red", 1005.0);
  traps_.enqueueTrap(trap(2), "", 0);  // at once
  traps_.enqueueTrap(trap(3), "blue", 1002.0);
  traps_.enqueueTrap(trap(4), "red", 1005.0);  // same due time as 1: after it
  traps_.enqueueTrap(trap(5), "", 999.0);      // already past: at once, behind 2
  traps_.enqueueTrap(nullptr, "", 0);          // nothing to send
  std::vector<long> order;
  for (const auto& p : traps_.pending()) order.push_back(tagOf(p.vars));
  EXPECT_EQ(order, (std::vector<long>{2, 5, 3, 1, 4}));
  EXPECT_TRUE(sent_.empty());  // nothing goes out from enqueueTrap itself

  EXPECT_EQ(traps_.processDue(1000.0), 2u);
  EXPECT_EQ(sent_, (Sent{{"", 2}, {"", 5}}));
  EXPECT_EQ(traps_.processDue(1001.9), 0u);
  EXPECT_EQ(traps_.nextDueTime(), 1002.0);
  EXPECT_EQ(traps_.processDue(2000.0), 3u);
  EXPECT_EQ(sent_, (Sent{{"", 2}, {"", 5}, {"blue", 3}, {"red", 1}, {"red", 4}}));
  EXPECT_FALSE(traps_.nextDueTime());

  // Unsent entries are freed by clear() and by the destructor (ASan checks both).
  traps_.enqueueTrap(trap(6), "", 5000);
  EXPECT_EQ(traps_.clear(), 1u);
  traps_.enqueueTrap(trap(7), "red", 5000);
}

TEST_F(TrapManagerTest, OriginFollowsEachNotificationToItsSending) {
  std::vector<std::string> origins;
  traps_.senderIs([&](netsnmp_variable_list*, const std::string&) {
    const std::string* o = Snmp::TrapManager::sendingOrigin();
    origins.push_back(o ? *o : "(none)");
  });
  traps_.enqueueTrap(trap(1), "", 1003.0);
  {
    Snmp::TrapManager::OriginScope red("red");
    traps_.enqueueTrap(trap(2), "", 1002.0);
    {
      Snmp::TrapManager::OriginScope def("");
      ASSERT_NE(Snmp::TrapManager::queuingOrigin(), nullptr);
      EXPECT_EQ(*Snmp::TrapManager::queuingOrigin(), "");
      traps_.enqueueTrap(trap(3), "", 1001.0);
    }
    EXPECT_EQ(*Snmp::TrapManager::queuingOrigin(), "red");  // the outer scope again
  }
  EXPECT_EQ(Snmp::TrapManager::queuingOrigin(), nullptr);
  EXPECT_EQ(traps_.processDue(2000.0), 3u);
  // Sent later than queued and in another order, each still carries its own origin.
  EXPECT_EQ(origins, (std::vector<std::string>{"", "red", "(none)"}));
  EXPECT_EQ(Snmp::TrapManager::sendingOrigin(), nullptr);
}

TEST_F(TrapManagerTest, DelayIsMeasuredOnThePlatformClock) {
  traps_.enqueueTrap(trap(1), "", Plat::now() + 5);
  clock_->advance(4.9);
  EXPECT_EQ(traps_.processDue(Plat::now()), 0u);
  clock_->advance(0.1);
  EXPECT_EQ(traps_.processDue(Plat::now()), 1u);

  // "At once" is the enqueue time, so later entries never overtake it.
  traps_.enqueueTrap(trap(2), "", 0);
  clock_->advance(10);
  traps_.enqueueTrap(trap(3), "", Plat::now() - 20);
  EXPECT_EQ(traps_.pending().front().due, 1005.0);
  EXPECT_EQ(traps_.processDue(Plat::now()), 2u);
  EXPECT_EQ(sent_.back().second, 3);
}

}  // namespace
