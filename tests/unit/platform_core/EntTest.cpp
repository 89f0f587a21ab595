#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <new>
#include <random>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "platform/Ent/Coll.h"

namespace {

using Ent::Change;
using Ent::Ptr;

struct Row : Ent::RefCounted {
  explicit Row(int k, bool* dead = nullptr) : k_(k), dead_(dead) {}
  ~Row() override {
    if (dead_) *dead_ = true;
  }
  const int& key() const { return k_; }
  int k_;
  bool* dead_;
};
struct Derived : Row {
  using Row::Row;
};
// Linked into an OrderedColl's tree itself.
struct HookedRow : Row, Ent::OrderedHook {
  using Row::Row;
};

class Owner : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId { attrRow = 1, attrByName = 2, attrFlag = 3, attrHFlag = 4 };
  explicit Owner(bool* dead = nullptr) : Entity("owner"), dead_(dead) {}
  ~Owner() override {
    if (dead_) *dead_ = true;
  }
  std::string_view typeName() const override { return "Test::Owner"; }
  Ent::OrderedColl<int, Row> rows{this, attrRow};
  Ent::OrderedColl<int, HookedRow> hookedRows{this, attrRow};
  Ent::OrderedColl<int, HookedRow, &HookedRow::key, std::hash<int>> hashedRows{this, attrRow};
  template <class R>
  Ent::OrderedColl<int, R>& rowsOf() {
    if constexpr (std::is_same_v<R, HookedRow>) {
      return hookedRows;
    } else {
      return rows;
    }
  }
  Ent::HashColl<std::string, Row> byName{this, attrByName};
  Ent::ValueMap<int, int> flags{this, attrFlag};
  Ent::HashValueMap<std::string, bool> hflags{this, attrHFlag};
  bool* dead_;
};

// Records each change as "attr:key" and runs an optional hook.
class Rec : public Ent::ReactorOf<Owner> {
 public:
  using ReactorOf::ReactorOf;
  void onChange(const Change& c) override {
    const bool text = c.attr == Owner::attrByName || c.attr == Owner::attrHFlag;
    std::string key = !c.key ? "-" : text ? c.keyAs<std::string>() : std::to_string(c.keyAs<int>());
    seen.push_back(std::to_string(c.attr) + ":" + key);
    if (hook) hook(c);
  }
  std::vector<std::string> seen;
  std::function<void(const Change&)> hook;
};
using Seen = std::vector<std::string>;

// A make() for findOrInsert that counts its calls.
template <class R = Row>
auto maker(int& made, int k) {
  return [&made, k] { return ++made, Ent::make<R>(k); };
}

TEST(PtrTest, CountsConvertsAndTheLastReleaseDeletes) {
  bool dead = false;
  Ptr<Derived> d = Ent::make<Derived>(1, &dead);
  Ptr<Row> base = d;  // converting copy
  Ptr<const Row> cbase = base;
  EXPECT_EQ(d->refCount(), 3u);
  Ptr<Row> moved = std::move(d);  // converting move keeps the count
  EXPECT_FALSE(d);
  EXPECT_EQ(moved->refCount(), 3u);
  Ptr<Row>& alias = moved;
  moved = alias;  // self-assignment keeps the entry
  EXPECT_EQ(Ent::ptrCast<Derived>(base).get(), moved.get());
  EXPECT_EQ(Ent::ptrCast<Derived>(Ent::make<Row>(1)), nullptr);
  EXPECT_EQ(std::hash<Ptr<Row>>()(base), std::hash<Ptr<Row>>()(moved));
  base.reset();
  Row* raw = moved.release();  // gives up ownership, keeps the count
  EXPECT_FALSE(moved);
  EXPECT_EQ(raw->refCount(), 2u);
  raw->unref();
  EXPECT_FALSE(dead);
  cbase = Ent::make<Row>(2);  // assigning over the last reference deletes
  EXPECT_TRUE(dead);
}

struct CollTest : ::testing::Test {
  Ptr<Owner> owner = Ent::make<Owner>();
  Rec rec{owner};
};

// The same rules whether the tree has a node per entry or links the entries themselves.
template <class R>
struct OrderedCollTest : ::testing::Test {
  using Row = R;
  Ptr<Owner> owner = Ent::make<Owner>();
  Rec rec{owner};
  Ent::OrderedColl<int, R>& rows = owner->template rowsOf<R>();
  void fill(std::initializer_list<int> keys) {
    for (int k : keys) rows.insert(Ent::make<R>(k));
    rec.seen.clear();
  }
  std::vector<int> keys() const {
    std::vector<int> out;
    for (const auto& r : rows) out.push_back(r->key());
    return out;
  }
};

using RowTypes = ::testing::Types<Row, HookedRow>;
TYPED_TEST_SUITE(OrderedCollTest, RowTypes);

TYPED_TEST(OrderedCollTest, InsertKeepsKeyOrderAndBuildsOnlyWhenAbsent) {
  this->fill({30, 10});
  int made = 0;
  auto [e, inserted] = this->rows.findOrInsert(10, maker<TypeParam>(made, 10));
  EXPECT_FALSE(inserted);
  EXPECT_EQ(e, this->rows.find(10));
  EXPECT_FALSE(this->rows.insert(Ent::make<TypeParam>(30)).second);
  EXPECT_EQ(made, 0);
  EXPECT_EQ(this->rows.version(), 2u);
  EXPECT_TRUE(this->rec.seen.empty());
  // Before the first, after the last and in between: the hint must not matter.
  for (int k : {5, 40, 20})
    EXPECT_TRUE(this->rows.findOrInsert(k, maker<TypeParam>(made, k)).second);
  EXPECT_EQ(made, 3);
  EXPECT_EQ(this->keys(), (std::vector<int>{5, 10, 20, 30, 40}));
  EXPECT_EQ(this->rec.seen, (Seen{"1:5", "1:40", "1:20"}));
  EXPECT_THROW(this->rows.findOrInsert(7, [] { return Ptr<TypeParam>(); }), Ent::NullArgument);
  EXPECT_THROW(this->rows.insert(nullptr), Ent::NullArgument);
  EXPECT_EQ(this->rows[7], nullptr);
}

TYPED_TEST(OrderedCollTest, EraseReturnsTheEntryAndNotifiesOnlyOnChange) {
  this->fill({10, 20});
  const uint64_t v = this->rows.version();
  EXPECT_EQ(this->rows.erase(15), nullptr);
  EXPECT_EQ(this->rows.version(), v);
  this->rec.hook = [&](const Change& c) { EXPECT_FALSE(this->rows.contains(c.keyAs<int>())); };
  Ptr<TypeParam> gone =
      this->rows.erase(this->rows.find(10)->key());  // key read from the erased entry
  EXPECT_EQ(gone->key(), 10);
  EXPECT_EQ(this->rows.version(), v + 1);
  EXPECT_EQ(this->rec.seen, (Seen{"1:10"}));
  this->rec.hook = nullptr;
  this->fill({3, 1, 2});
  this->rows.clear();
  EXPECT_EQ(this->rec.seen, (Seen{"1:1", "1:2", "1:3", "1:20"}));
}

TYPED_TEST(OrderedCollTest, NeighbourQueriesAtTheEdges) {
  EXPECT_EQ(this->rows.findNext(0), nullptr);
  EXPECT_EQ(this->rows.lowerBound(0), this->rows.end());
  this->fill({10, 20, 30});
  EXPECT_EQ(this->rows.findNext(-1)->key(), 10);
  EXPECT_EQ(this->rows.findNext(10)->key(), 20);
  EXPECT_EQ(this->rows.findNext(25)->key(), 30);
  EXPECT_EQ(this->rows.findNext(30), nullptr);
  EXPECT_EQ((*this->rows.lowerBound(20))->key(), 20);
  EXPECT_EQ((*this->rows.upperBound(20))->key(), 30);
  EXPECT_EQ(this->rows.lowerBound(31), this->rows.end());
  EXPECT_EQ(this->rows.upperBound(30), this->rows.end());
  EXPECT_EQ(this->rows.lowerBound(-5), this->rows.begin());
}

TYPED_TEST(OrderedCollTest, WalkSurvivesErasingTheHeldEntry) {
  bool dead = false;
  this->rows.insert(Ent::make<TypeParam>(20, &dead));
  this->fill({10, 30});
  std::vector<int> walked;
  for (Ptr<TypeParam> cur = this->rows.find(10); cur; cur = this->rows.findNext(cur->key())) {
    walked.push_back(cur->key());
    if (cur->key() == 20) this->rows.erase(20);  // only `cur` keeps it now
  }
  EXPECT_EQ(walked, (std::vector<int>{10, 20, 30}));
  EXPECT_TRUE(dead);
  EXPECT_EQ(this->keys(), (std::vector<int>{10, 30}));
}

TEST(HookedCollTest, AnEntryIsInOneCollectionAtATimeAndEachHoldsOneCount) {
  Ptr<Owner> owner = Ent::make<Owner>();
  Ent::OrderedColl<int, HookedRow> other;
  bool dead = false;
  Ptr<HookedRow> row = Ent::make<HookedRow>(1, &dead);
  owner->hookedRows.insert(row);
  EXPECT_EQ(row->refCount(), 2u);
  EXPECT_THROW(other.insert(row), Ent::Error);
  EXPECT_TRUE(other.empty()) << "a refusal changes nothing";
  EXPECT_EQ(row->refCount(), 2u);
  {
    auto it = owner->hookedRows.begin();
    EXPECT_EQ(it->get(), row.get());
    EXPECT_EQ(row->refCount(), 3u) << "a dereferenced iterator holds the entry";
  }
  EXPECT_EQ(row->refCount(), 2u);
  owner->hookedRows.erase(1);
  EXPECT_EQ(row->refCount(), 1u);
  other.insert(row);  // free again
  EXPECT_EQ((*other.begin())->key(), 1);
  row.reset();
  EXPECT_FALSE(dead);
  owner.reset();
  other.clear();
  EXPECT_TRUE(dead) << "the collection let go of the last count";
  Ptr<HookedRow> kept = Ent::make<HookedRow>(2, &dead);
  {
    Ent::OrderedColl<int, HookedRow> dropped;
    dropped.insert(kept);
  }
  EXPECT_EQ(kept->refCount(), 1u) << "a destroyed collection releases its entries";
  EXPECT_NO_THROW(other.insert(kept));
}

// Every key in one probe run, all with the same stored hash bits: only key compares tell
// entries apart.
struct CollidingHash {
  size_t operator()(int) const { return 42; }
};

// Exact look-ups through the hash index must agree with the tree through growth, erasures,
// clean-outs of erased slots and shrinking, for either tree and for a hash that collides.
template <class P>
struct HashedCollTest : ::testing::Test {};
template <class R, class H, int N>
struct Hashed {
  using Row = R;
  using Hash = H;
  static constexpr int kKeys = N;
};
using HashedTypes =
    ::testing::Types<Hashed<Row, std::hash<int>, 3000>, Hashed<HookedRow, std::hash<int>, 3000>,
                     Hashed<HookedRow, CollidingHash, 200>>;
TYPED_TEST_SUITE(HashedCollTest, HashedTypes);

TYPED_TEST(HashedCollTest, ExactLookupsAgreeWithTheTreeThroughChurn) {
  using R = typename TypeParam::Row;
  constexpr int n = TypeParam::kKeys;
  Ent::OrderedColl<int, R, &R::key, typename TypeParam::Hash> rows;
  std::set<int> model;
  std::mt19937 rng(11);
  auto check = [&] {
    ASSERT_EQ(rows.size(), model.size());
    for (int k = -1; k <= n; ++k) {
      const bool in = model.count(k) > 0;
      ASSERT_EQ(rows.contains(k), in) << k;
      ASSERT_EQ(rows.findIter(k), in ? rows.lowerBound(k) : rows.end()) << k;
      if (in) {
        ASSERT_EQ(rows.find(k)->key(), k);
      }
    }
  };
  // Fill to about 3/4 of the key space, churn at that size, then drain to a few.
  for (int phase = 0; phase < 3; ++phase) {
    for (int step = 0; step < 8 * n; ++step) {
      const int k = static_cast<int>(rng() % n);
      const bool add = phase == 0 ? rng() % 4 != 0 : phase == 1 ? model.size() < 3 * n / 4 : false;
      if (add) {
        EXPECT_EQ(rows.insert(Ent::make<R>(k)).second, model.insert(k).second);
      } else {
        EXPECT_EQ(rows.erase(k) != nullptr, model.erase(k) > 0);
      }
    }
    check();
  }
  EXPECT_LT(model.size(), 10u);
  rows.clear();
  EXPECT_FALSE(rows.contains(0));
}

// Inserts in runs of neighbours take their place from the entry inserted last: runs that
// continue, jump back, hit a present key right behind it, or follow an erasure must all land
// where a descent would put them.
TYPED_TEST(HashedCollTest, InsertsInRunsLandWhereADescentWould) {
  using R = typename TypeParam::Row;
  Ent::OrderedColl<int, R, &R::key, typename TypeParam::Hash> rows;
  std::set<int> model;
  std::mt19937 rng(5);
  int next = 0;
  for (int step = 0; step < 4000; ++step) {
    const unsigned roll = rng() % 16;
    if (roll == 0) {
      next = static_cast<int>(rng() % 500);  // a jump, usually behind the last insert
    } else if (roll == 1 && !model.empty()) {
      const int k = static_cast<int>(rng() % 500);
      EXPECT_EQ(rows.erase(k) != nullptr, model.erase(k) > 0);
      continue;
    }
    const int k = next;
    next += 1 + static_cast<int>(rng() % 2);  // sometimes a gap, so later runs fill it
    ASSERT_EQ(rows.insert(Ent::make<R>(k)).second, model.insert(k).second) << k;
  }
  ASSERT_EQ(rows.size(), model.size());
  auto it = model.begin();
  for (const auto& row : rows) {
    ASSERT_EQ(row->key(), *it);
    ASSERT_EQ(rows.find(*it), row.get());
    ++it;
  }
}

// A reactor may change the collection from an insert's notification, even erase the entry it
// announces: the next insert must not take its place from that entry.
TEST(HashedCollTest, AnEntryErasedFromItsOwnNotificationGivesNoPlace) {
  Ptr<Owner> owner = Ent::make<Owner>();
  Rec rec{owner};
  auto& rows = owner->hashedRows;
  rec.hook = [&](const Change& c) {
    if (c.keyAs<int>() == 5 && rows.contains(5)) rows.erase(5);
  };
  for (int k : {4, 5, 6, 7}) rows.insert(Ent::make<HookedRow>(k));
  std::vector<int> keys;
  for (const auto& r : rows) keys.push_back(r->key());
  EXPECT_EQ(keys, (std::vector<int>{4, 6, 7}));
}

// A reader that keeps a position between calls tells collections apart by address, serial
// and version: a collection built where another was has the same address and version.
TEST(HashedCollTest, ACollectionRebuiltInPlaceHasANewSerial) {
  using Coll = Ent::OrderedColl<int, Row, &Row::key, std::hash<int>>;
  alignas(Coll) unsigned char storage[sizeof(Coll)];
  auto* first = new (storage) Coll;
  const uint64_t serial = first->serial();
  const uint64_t version = first->version();
  first->~Coll();
  auto* second = new (storage) Coll;
  EXPECT_EQ(second->version(), version);
  EXPECT_NE(second->serial(), serial);
  second->~Coll();
}

TEST(PointerIndexTest, CapacityFollowsTheSizeBothWays) {
  std::vector<Ptr<Row>> held;
  Ent::PointerIndex<int, Row, &Row::key, std::hash<int>> index;
  for (int k = 0; k < 1000; ++k) {
    held.push_back(Ent::make<Row>(k));
    index.insert(held.back().get());
  }
  EXPECT_GE(index.capacity() * 7, 1000u * 8) << "at most 7/8 full";
  EXPECT_LE(index.capacity(), 2048u);
  for (int k = 5; k < 1000; ++k) index.erase(held[k].get());
  EXPECT_EQ(index.size(), 5u);
  EXPECT_LE(index.capacity(), 64u) << "a drained table gives its slots back";
  EXPECT_EQ(index.find(4), held[4].get());
  EXPECT_EQ(index.find(5), nullptr);
  index.erase(held[5].get());  // not held: no change
  EXPECT_EQ(index.size(), 5u);
  for (int k = 0; k < 5; ++k) index.erase(held[k].get());
  EXPECT_EQ(index.capacity(), 0u);
}

// Past 2^19 slots the stored hash bits no longer name a home slot: growing and shrinking read
// the entries' keys instead.
TEST(PointerIndexTest, LargeTablesRehashFromTheKeys) {
  struct Plain {
    int64_t k;
    const int64_t& key() const { return k; }
  };
  constexpr int64_t n = 600000;
  std::vector<Plain> rows(n);
  Ent::PointerIndex<int64_t, Plain, &Plain::key, std::hash<int64_t>> index;
  for (int64_t k = 0; k < n; ++k) {
    rows[k].k = k;
    index.insert(&rows[k]);
  }
  EXPECT_GT(index.capacity(), size_t{1} << 19);
  for (int64_t k = 0; k < n; k += 7) ASSERT_EQ(index.find(k), &rows[k]) << k;
  for (int64_t k = 0; k < n; ++k) {
    if (k % 1000) index.erase(&rows[k]);
  }
  EXPECT_EQ(index.size(), 600u);
  EXPECT_LE(index.capacity(), 8192u);
  for (int64_t k = 0; k < n; k += 500) EXPECT_EQ(index.find(k), k % 1000 ? nullptr : &rows[k]);
}

TEST_F(CollTest, HashCollSetReplacesAndNullRemoves) {
  auto& m = owner->byName;
  bool oldDead = false;
  Ptr<Row> first = Ent::make<Row>(1, &oldDead);
  m.set("a", first);
  m.set("a", first);  // same entry: no change
  EXPECT_EQ(m.version(), 1u);
  first.reset();
  m.set("a", Ent::make<Row>(2));
  EXPECT_TRUE(oldDead);
  EXPECT_EQ(m.find("a")->key(), 2);
  m.set("b", nullptr);  // absent: nothing happens
  m.set("a", nullptr);
  EXPECT_FALSE(m.contains("a"));
  EXPECT_EQ(rec.seen, (Seen{"2:a", "2:a", "2:a"}));
  int made = 0;
  m.findOrInsert("c", maker(made, 3));
  EXPECT_FALSE(m.findOrInsert("c", maker(made, 4)).second);
  EXPECT_EQ(made, 1);
  EXPECT_EQ(m.find("c")->key(), 3);
}

TEST_F(CollTest, ValueMapsNotifyOnlyOnRealChanges) {
  auto& f = owner->flags;
  EXPECT_EQ(f.get(1), 0);
  f.set(1, 5);
  f.set(1, 5);
  f.set(1, 6);
  EXPECT_FALSE(f.erase(2));
  EXPECT_TRUE(f.erase(1));
  EXPECT_EQ(rec.seen, (Seen{"3:1", "3:1", "3:1"}));
  owner->hflags.set("x", false);  // a new key with the default value is a change
  owner->hflags.set("x", false);
  EXPECT_EQ(owner->hflags.version(), 1u);
}

struct ReactorTest : ::testing::Test {
  Ptr<Owner> owner = Ent::make<Owner>();
  Rec a{owner}, b{owner};
  std::unique_ptr<Rec> c = std::make_unique<Rec>(owner);
};

TEST_F(ReactorTest, AttachDetachAndNotificationSwitch) {
  EXPECT_EQ(owner->reactorCount(), 3u);
  EXPECT_EQ(a.notifier(), owner.get());
  b.notifierIs(nullptr);
  c.reset();
  EXPECT_EQ(owner->reactorCount(), 1u);
  owner->notify(9);
  EXPECT_EQ(a.seen, (Seen{"9:-"}));
  EXPECT_TRUE(b.seen.empty());
  owner->hasNotificationActiveIs(false);
  owner->rows.insert(Ent::make<Row>(1));
  owner->hasNotificationActiveIs(true);
  EXPECT_EQ(a.seen.size(), 1u);
}

TEST(EntityTest, NamedAndUnnamed) {
  struct Unnamed : Ent::Entity {
    std::string_view typeName() const override { return "Test::Unnamed"; }
  };
  EXPECT_EQ(Ent::make<Owner>()->name(), "owner");
  EXPECT_EQ(Ent::make<Unnamed>()->name(), "");
}

TEST_F(ReactorTest, DetachingDuringNotificationSkipsTheDetached) {
  a.hook = [&](const Change& ch) {
    if (ch.attr != 1) return;
    a.notifierIs(nullptr);
    c.reset();              // destroyed before its turn
    owner->notify(2);       // nested: only b remains
    b.notifierIs(nullptr);  // after its nested call, before its outer one
  };
  owner->notify(1);
  EXPECT_EQ(a.seen, (Seen{"1:-"}));
  EXPECT_EQ(b.seen, (Seen{"2:-"}));
  EXPECT_EQ(owner->reactorCount(), 0u);
  b.notifierIs(owner);
  owner->notify(3);
  EXPECT_EQ(b.seen, (Seen{"2:-", "3:-"}));
}

TEST_F(ReactorTest, ReactorAttachedDuringNotificationWaitsForTheNextChange) {
  Rec late;
  a.hook = [&](const Change&) { late.notifierIs(owner); };
  owner->notify(1);
  EXPECT_TRUE(late.seen.empty());
  a.hook = nullptr;
  owner->notify(2);
  EXPECT_EQ(late.seen, (Seen{"2:-"}));
}

TEST(ReactorLifetimeTest, FollowersKeepTheNotifierAliveEvenMidNotification) {
  bool dead = false;
  auto first = std::make_unique<Rec>(Ent::make<Owner>(&dead));
  const Owner* owner = first->notifier();
  Rec second{Ptr<const Owner>(owner)};
  first.reset();
  EXPECT_FALSE(dead);
  second.hook = [&](const Change&) { second.notifierIs(nullptr); };  // drops the last reference
  owner->notify(1);
  EXPECT_TRUE(dead);
  EXPECT_EQ(second.seen, (Seen{"1:-"}));
}

}  // namespace
