#include <gtest/gtest.h>

#include <vector>

#include "platform/Clock/Clock.h"
#include "platform/Routing/Pim/AllStatusColl.h"
#include "platform/Routing/Pim/GlobalStatus.h"
#include "platform/Routing/Pim/GlobalStatusModeFilterSm.h"
#include "platform/Routing/Pim/Shtab/GlobalStatusReaderSm.h"
#include "platform/Routing/Pim/SparseMode/Shtab/RouteShtabReaderSm.h"
#include "platform/Routing/Pim/SparseMode/Shtab/RouteShtabRestartSm.h"
#include "platform/Routing/Pim/SparseMode/Shtab/Status.h"
#include "platform/Routing/Pim/SparseMode/Status.h"
#include "platform/Routing/Pim/StatusColl.h"
#include "tests/unit/platform_services/ServicesTestUtil.h"

namespace {

using PlatformServicesTest::Counter;
using PlatformServicesTest::routeKey;
using Routing::Pim::RouteKey;
namespace Pim = Routing::Pim;
namespace SmShtab = Routing::Pim::SparseMode::Shtab;
constexpr auto v4 = Lanet::AddressFamily::ipv4;

std::vector<std::string> vrfs(const Pim::VrfStatusColl<Pim::Status>& c) {
  std::vector<std::string> out;
  for (const auto& s : c.vrfStatus()) out.push_back(s->vrfName().str());
  return out;
}

// The copy holds the table's very records, key for key.
void expectSameRoutes(const SmShtab::Status& table, const Pim::SparseMode::Status& local) {
  ASSERT_EQ(table.route().size(), local.route().size());
  auto l = local.route().begin();
  for (const auto& r : table.route()) EXPECT_EQ(r.get(), (l++)->get()) << r->key();
}

TEST(GlobalStatusReaderSmTest, CopiesThenFollowsVrfsAndClearsOnlyWhenAsked) {
  auto global = Ent::make<Pim::GlobalStatus>(v4);
  auto red = global->vrfStatusIs(L3::VrfName("red"));
  global->vrfStatusIs(L3::VrfName("blue"));
  auto all = Ent::make<Pim::AllStatusColl>();
  all->vrfStatusIs(L3::VrfName("gone"));
  all->vrfStatusIs(L3::VrfName("red"));  // another record than the global one
  auto clock = Ent::make<Plat::ManualClock>();
  {
    auto reader =
        Ent::make<Pim::Shtab::GlobalStatusReaderSm>(v4, global, all, false, clock, nullptr);
    EXPECT_EQ(vrfs(*all), (std::vector<std::string>{"blue", "red"}));
    EXPECT_EQ(all->vrfStatus(L3::VrfName("red")), red);
    EXPECT_EQ(reader->keysExamined(), 3u);
    Counter rx(all);
    global->vrfStatusIs(L3::VrfName("green"));
    global->vrfStatusDel(L3::VrfName("blue"));
    red->modeIs(Pim::modeVrfSparse);  // inside a record: nothing to copy
    EXPECT_EQ(rx.total(), 2u);
    EXPECT_EQ(reader->keysExamined(), 3u + 2u);
    EXPECT_EQ(vrfs(*all), (std::vector<std::string>{"green", "red"}));
  }
  EXPECT_EQ(all->vrfStatus().size(), 2u);  // clearOnDelete false: the copy stays
  global->vrfStatusDel(L3::VrfName("red"));
  EXPECT_EQ(all->vrfStatus().size(), 2u);  // and is no longer followed
  {
    auto reader =
        Ent::make<Pim::Shtab::GlobalStatusReaderSm>(v4, global, all, true, clock, nullptr);
    EXPECT_EQ(vrfs(*all), (std::vector<std::string>{"green"}));
  }
  EXPECT_TRUE(all->vrfStatus().empty());
}

struct ModeFilterTest : ::testing::Test {
  Ent::Ptr<Pim::AllStatusColl> all = Ent::make<Pim::AllStatusColl>();
  Ent::Ptr<Pim::StatusColl> filtered = Ent::make<Pim::StatusColl>();
  Ent::Ptr<Pim::Status> add(const char* vrf, Pim::Mode m) {
    auto s = all->vrfStatusIs(L3::VrfName(vrf));
    s->modeIs(m);
    return s;
  }
};

TEST_F(ModeFilterTest, KeepsExactlyTheStatusesOfTheModeAcrossMembershipAndModeChanges) {
  auto a = add("a", Pim::modeVrfSparse);
  auto b = add("b", Pim::modeSparse);
  add("c", Pim::modeVrfSparse);
  filtered->vrfStatusIs(L3::VrfName("stale"));
  filtered->vrfStatusIs(L3::VrfName("b"));
  auto filter = Ent::make<Pim::GlobalStatusModeFilterSm>(all, filtered, Pim::modeVrfSparse);
  EXPECT_EQ(vrfs(*filtered), (std::vector<std::string>{"a", "c"}));
  EXPECT_EQ(filtered->vrfStatus(L3::VrfName("a")), a);

  Counter rx(filtered);
  b->modeIs(Pim::modeVrfSparse);  // in
  a->modeIs(Pim::modeDense);      // out
  a->modeIs(Pim::modeNone);       // out to out: no change
  EXPECT_EQ(rx.total(), 2u);
  EXPECT_EQ(vrfs(*filtered), (std::vector<std::string>{"b", "c"}));

  all->vrfStatusDel(L3::VrfName("c"));
  add("d", Pim::modeVrfSparse);  // enters once its mode is set
  EXPECT_EQ(vrfs(*filtered), (std::vector<std::string>{"b", "d"}));

  // A replaced record is followed instead of the old one.
  auto b2 = Ent::make<Pim::Status>(L3::VrfName("b"));
  all->vrfStatusIs(b2);
  EXPECT_EQ(vrfs(*filtered), (std::vector<std::string>{"d"}));
  b->modeIs(Pim::modeDense);
  b->modeIs(Pim::modeVrfSparse);  // the old record no longer counts
  EXPECT_EQ(vrfs(*filtered), (std::vector<std::string>{"d"}));
  b2->modeIs(Pim::modeVrfSparse);
  EXPECT_EQ(filtered->vrfStatus(L3::VrfName("b")), b2);

  filter.reset();
  a->modeIs(Pim::modeVrfSparse);  // no longer followed
  EXPECT_FALSE(filtered->vrfStatus(L3::VrfName("a")));
}

struct RouteShtabTest : ::testing::Test {
  Ent::Ptr<SmShtab::Status> table = Ent::make<SmShtab::Status>(v4, L3::VrfName("red"));
  Ent::Ptr<Pim::SparseMode::Status> local = Ent::make<Pim::SparseMode::Status>(L3::VrfName("red"));
  Ent::Ptr<Plat::ManualClock> clock = Ent::make<Plat::ManualClock>();
  void fill(uint32_t n) {
    for (uint32_t i = 0; i < n; ++i) table->routeIs(routeKey(2 * i));
  }
};

TEST_F(RouteShtabTest, ReaderCopiesOnceThenOneChangePerTableChange) {
  fill(1000);
  local->routeIs(routeKey(1));     // not in the table
  local->routeIs(routeKey(4000));  // nor this
  local->routeIs(routeKey(2));     // another record than the table's
  auto reader = Ent::make<SmShtab::RouteShtabReaderSm>(local, table);
  expectSameRoutes(*table, *local);
  EXPECT_EQ(reader->keysExamined(), 1002u);  // the union of both, once

  Counter rx(local);
  table->routeIs(routeKey(3));
  table->routeDel(routeKey(4));
  table->routeIs(Ent::make<Pim::SparseMode::Route>(routeKey(6)));          // replaced: out, then in
  table->routeIs(routeKey(3))->flagsIs(Pim::SparseMode::Route::kFlagSpt);  // inside a record
  EXPECT_EQ(rx.total(), 4u);
  EXPECT_EQ(reader->keysExamined(), 1002u + 4u);  // one key per change: no rescan
  expectSameRoutes(*table, *local);
  EXPECT_EQ(local->route(routeKey(3))->flags(), Pim::SparseMode::Route::kFlagSpt);

  reader.reset();
  table->routeDel(routeKey(0));
  EXPECT_TRUE(local->route(routeKey(0)));
}

// A writer that restarts rebuilds the table quietly and bumps its generation; the restart
// handler walks in slices and changes only what differs.
TEST_F(RouteShtabTest, RestartResyncsInSlicesAndTouchesOnlyTheDifferences) {
  fill(100);  // keys 0, 2, .., 198
  auto reader = Ent::make<SmShtab::RouteShtabReaderSm>(local, table);
  auto restart = Ent::make<SmShtab::RouteShtabRestartSm>(local, table, 2, clock);
  restart->sliceSizeIs(16);
  EXPECT_EQ(restart->tableType(), 2);

  table->hasNotificationActiveIs(false);
  for (uint32_t i = 0; i < 10; ++i) table->routeDel(routeKey(20 * i));    // 10 gone
  for (uint32_t i = 0; i < 5; ++i) table->routeIs(routeKey(1 + 40 * i));  // 5 new
  for (uint32_t i : {2u, 4u, 198u}) table->routeIs(Ent::make<Pim::SparseMode::Route>(routeKey(i)));
  table->hasNotificationActiveIs(true);

  Counter rx(local);
  table->writerGenerationIs(table->writerGeneration() + 1);
  EXPECT_TRUE(restart->resyncing());  // one slice ran at once, the rest waits for the clock
  clock->advance(0);
  clock->advance(0);  // a slice per run of the due timers
  EXPECT_TRUE(restart->resyncing());
  for (int i = 0; i < 20 && restart->resyncing(); ++i) clock->advance(0);
  EXPECT_FALSE(restart->resyncing());
  expectSameRoutes(*table, *local);
  EXPECT_EQ(rx.total(), 10u + 5u + 3u * 2u);
  EXPECT_EQ(restart->resyncChanges(), 18u);
  EXPECT_EQ(restart->resyncCount(), 1u);
  EXPECT_EQ(restart->writerGeneration(), table->writerGeneration());

  // Same generation again, or a restart that changed nothing: nothing to do.
  table->writerGenerationIs(table->writerGeneration());
  EXPECT_FALSE(restart->resyncing());
  restart->sliceSizeIs(1000);
  table->writerGenerationIs(table->writerGeneration() + 1);
  EXPECT_FALSE(restart->resyncing());
  EXPECT_EQ(restart->resyncChanges(), 18u);
  EXPECT_EQ(restart->resyncCount(), 2u);
}

TEST_F(RouteShtabTest, RestartDuringAWalkStartsItOverAndDeletionStopsIt) {
  fill(50);
  auto restart = Ent::make<SmShtab::RouteShtabRestartSm>(local, table, 2, clock);
  restart->sliceSizeIs(10);
  table->writerGenerationIs(1);  // local is empty: the walk copies everything
  clock->advance(0);
  EXPECT_EQ(local->route().size(), 20u);
  table->hasNotificationActiveIs(false);
  table->routeDel(routeKey(0));  // behind the walk: only a new walk sees it
  table->hasNotificationActiveIs(true);
  table->writerGenerationIs(2);
  while (restart->resyncing()) clock->advance(0);
  expectSameRoutes(*table, *local);
  EXPECT_EQ(restart->resyncCount(), 1u);  // the first walk never completed

  table->writerGenerationIs(3);
  table->hasNotificationActiveIs(false);
  table->routeDelAll();
  table->hasNotificationActiveIs(true);
  table->writerGenerationIs(4);
  EXPECT_TRUE(restart->resyncing());
  restart.reset();  // its timer goes with it
  EXPECT_EQ(clock->armedTimerCount(), 0u);
}

}  // namespace
