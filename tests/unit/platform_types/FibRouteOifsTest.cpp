// The FIB route's OIF set, kept inline for a few OIFs and on the heap beyond: checked against a
// plain bit set through random changes, across the inline limit both ways, at the index edges,
// and through copies and moves between the two representations.

#include <gtest/gtest.h>

#include <bitset>
#include <cstdint>
#include <initializer_list>
#include <random>
#include <utility>
#include <vector>

#include "platform/Shtab/Multicast/Fib/Route.h"

namespace {

using Shtab::Multicast::Fib::OifIndex;
using Shtab::Multicast::Fib::Route;

constexpr uint16_t kInline = Route::kInlineOifs;

std::vector<uint16_t> walk(const Route& r) {
  std::vector<uint16_t> out;
  // Bounded, so that a walk that fails to advance ends.
  for (OifIndex i = r.firstOif(); i.valid() && out.size() <= OifIndex::kCount; i = r.nextOif(i)) {
    out.push_back(i.value);
  }
  return out;
}

Route withOifs(std::initializer_list<uint16_t> oifs, uint64_t packets = 0) {
  Route r;
  for (uint16_t i : oifs) r.oifIs(OifIndex(i));
  r.countersIs(packets, packets * 100);
  return r;
}

std::vector<uint16_t> range(uint16_t from, uint16_t to) {
  std::vector<uint16_t> out;
  for (uint16_t i = from; i < to; ++i) out.push_back(i);
  return out;
}

// Every query of `r` agrees with the bit set `model`.
void expectMatches(const Route& r, const std::bitset<OifIndex::kCount>& model) {
  std::vector<uint16_t> want;
  for (uint16_t i = 0; i < OifIndex::kCount; ++i) {
    if (model[i]) want.push_back(i);
  }
  ASSERT_EQ(walk(r), want);
  EXPECT_EQ(r.oifCount(), model.count());
  EXPECT_EQ(r.hasOif(), model.any());
  for (uint16_t i = 0; i < OifIndex::kCount; ++i) {
    ASSERT_EQ(r.oif(OifIndex(i)), model[i]) << i;
    // From an index outside the set too.
    uint16_t next = i + 1;
    while (next < OifIndex::kCount && !model[next]) ++next;
    ASSERT_EQ(r.nextOif(OifIndex(i)).value, next) << i;
  }
}

TEST(FibRouteOifsTest, RandomChangesMatchABitSet) {
  std::mt19937 rng(7);
  for (int round = 0; round < 20; ++round) {
    Route r;
    std::bitset<OifIndex::kCount> model;
    // Narrow ranges keep the set around the inline limit; the wide one fills it far past it.
    const uint16_t span = round % 4 == 3 ? OifIndex::kCount : static_cast<uint16_t>(2 * kInline);
    std::uniform_int_distribution<uint16_t> pick(0, span);  // span itself may be 512: ignored
    for (int step = 0; step < 400; ++step) {
      const uint16_t i = pick(rng);
      const bool on = rng() % 3 != 0;
      r.oifIs(OifIndex(i), on);
      if (i < OifIndex::kCount) model[i] = on;
      if (step % 50 == 0) {
        ASSERT_NO_FATAL_FAILURE(expectMatches(r, model));
      }
    }
    ASSERT_NO_FATAL_FAILURE(expectMatches(r, model));
    const Route copy = r;
    EXPECT_EQ(copy, r);
    ASSERT_NO_FATAL_FAILURE(expectMatches(copy, model));
  }
}

TEST(FibRouteOifsTest, GrowsPastTheInlineArrayAndShrinksBack) {
  Route r;
  // Descending, so that every insertion shifts the whole set.
  for (uint16_t i = 3 * kInline; i-- > 0;) r.oifIs(OifIndex(static_cast<uint16_t>(i * 7)));
  ASSERT_EQ(r.oifCount(), 3u * kInline);
  std::vector<uint16_t> want;
  for (uint16_t i = 0; i < 3 * kInline; ++i) want.push_back(static_cast<uint16_t>(i * 7));
  EXPECT_EQ(walk(r), want);

  // Lowest first: down to one past the limit, then to the limit, then to nothing.
  const size_t keep = kInline + 1u;
  for (size_t n = 0; n < want.size() - keep; ++n) r.oifIs(OifIndex(want[n]), false);
  EXPECT_EQ(walk(r), std::vector<uint16_t>(want.end() - kInline - 1, want.end()));
  r.oifIs(OifIndex(want[want.size() - keep]), false);
  EXPECT_EQ(walk(r), std::vector<uint16_t>(want.end() - kInline, want.end()));
  Route built;
  for (size_t n = want.size() - kInline; n < want.size(); ++n) built.oifIs(OifIndex(want[n]));
  EXPECT_EQ(r, built) << "a route that shrank equals one built inline";
  for (uint16_t i : want) r.oifIs(OifIndex(i), false);
  EXPECT_TRUE(r.empty());
  EXPECT_EQ(r, Route());
}

TEST(FibRouteOifsTest, EqualityIgnoresHowTheSetWasBuilt) {
  Route grown;
  for (uint16_t i : range(0, 40)) grown.oifIs(OifIndex(i));
  for (uint16_t i : range(2, 40)) grown.oifIs(OifIndex(i), false);
  const Route direct = withOifs({1, 0});
  EXPECT_EQ(grown, direct);
  EXPECT_EQ(direct, grown);

  Route bigger = withOifs({0, 1, 2, 3, 4, 5});
  Route same = withOifs({5, 4, 3, 2, 1, 0});
  EXPECT_EQ(bigger, same);
  same.oifIs(OifIndex(6));
  EXPECT_NE(bigger, same) << "one more OIF";
  bigger.oifIs(OifIndex(7));
  EXPECT_NE(bigger, same) << "same count, another OIF";

  EXPECT_NE(withOifs({1}), withOifs({1}, 1)) << "counters count";
  EXPECT_NE(withOifs({1}), withOifs({1, 2}));
  EXPECT_NE(withOifs({1, 2}), withOifs({1}));
}

TEST(FibRouteOifsTest, EdgeIndexesAndInvalidOnes) {
  Route r = withOifs({511, 0});
  r.oifIs(OifIndex(512));
  r.oifIs(OifIndex(UINT16_MAX));
  r.oifIs(OifIndex(512), false);
  EXPECT_EQ(walk(r), (std::vector<uint16_t>{0, 511}));
  EXPECT_FALSE(r.oif(OifIndex(512)));
  EXPECT_FALSE(r.oif(OifIndex::end()));
  EXPECT_EQ(r.nextOif(OifIndex(0)).value, 511);
  EXPECT_EQ(r.nextOif(OifIndex(511)), OifIndex::end());
  EXPECT_EQ(r.nextOif(OifIndex::end()), OifIndex::end());
  EXPECT_EQ(r.nextOif(OifIndex(600)), OifIndex::end());
  // Adding twice and removing what is absent change nothing.
  r.oifIs(OifIndex(0));
  r.oifIs(OifIndex(5), false);
  EXPECT_EQ(r, withOifs({0, 511}));
  EXPECT_EQ(Route().firstOif(), OifIndex::end());
  EXPECT_EQ(OifIndex().value, 512) << "the default index is the end marker";
  EXPECT_FALSE(withOifs({}, 1).empty()) << "counters alone make a route";

  Route all;
  for (uint16_t i : range(0, OifIndex::kCount)) all.oifIs(OifIndex(i));
  EXPECT_EQ(all.oifCount(), size_t{OifIndex::kCount});
  EXPECT_EQ(walk(all), range(0, OifIndex::kCount));
  for (uint16_t i : range(0, OifIndex::kCount)) all.oifIs(OifIndex(i), false);
  EXPECT_TRUE(all.empty());
}

TEST(FibRouteOifsTest, CopiesAndMovesBetweenRepresentations) {
  const Route small = withOifs({3, 1}, 2);
  const Route large = withOifs({9, 8, 7, 6, 5, 4, 3, 2}, 3);
  for (const Route* from : {&small, &large}) {
    for (const Route* into : {&small, &large}) {
      Route target = *into;
      target = *from;
      EXPECT_EQ(target, *from);
      EXPECT_EQ(walk(target), walk(*from));

      Route source = *from;
      Route moved = *into;
      moved = std::move(source);
      EXPECT_EQ(moved, *from);
      // A moved-from route is still a route.
      source.oifIs(OifIndex(1));
      EXPECT_EQ(walk(source), std::vector<uint16_t>{1});
    }
    Route self = *from;
    const Route& alias = self;
    self = alias;
    EXPECT_EQ(self, *from);
    Route constructed(std::move(self));
    EXPECT_EQ(constructed, *from);
  }
  // Changing a copy leaves the original alone.
  Route copy = large;
  copy.oifIs(OifIndex(2), false);
  EXPECT_TRUE(large.oif(OifIndex(2)));
}

}  // namespace
