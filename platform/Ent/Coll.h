#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <type_traits>
#include <unordered_map>
#include <utility>

#include <boost/intrusive/set.hpp>

#include "platform/Ent/Entity.h"
#include "platform/Ent/Error.h"
#include "platform/Ent/PointerIndex.h"

namespace Ent {

namespace detail {

// A number no other collection of its kind has had, for as long as the process runs.
inline uint64_t nextCollSerial() {
  static std::atomic<uint64_t> last{0};
  return last.fetch_add(1, std::memory_order_relaxed) + 1;
}

// Reads an element's key through KeyFn (`&V::key`), which must return a reference
// to the key stored in the element: the collection hands out its address.
template <auto KeyFn, class V>
decltype(auto) keyOf(const V& v) {
  return std::invoke(KeyFn, v);
}

// Announces a collection change on the owning entity, if there is one.
class CollBase {
 public:
  CollBase(const Entity* owner, AttrId attr) : owner_(owner), attr_(attr) {}
  uint64_t version() const { return version_; }

 protected:
  void changed(const void* key) {
    ++version_;
    if (owner_) owner_->notify(attr_, key);
  }

 private:
  const Entity* owner_;
  AttrId attr_;
  uint64_t version_ = 0;
};

// Entries in a std::set of counted references: a tree node per entry.
template <class K, class V, auto KeyFn>
class NodeSet {
  struct Less {
    using is_transparent = void;
    bool operator()(const Ptr<V>& a, const Ptr<V>& b) const {
      return keyOf<KeyFn>(*a) < keyOf<KeyFn>(*b);
    }
    bool operator()(const Ptr<V>& a, const K& b) const { return keyOf<KeyFn>(*a) < b; }
    bool operator()(const K& a, const Ptr<V>& b) const { return a < keyOf<KeyFn>(*b); }
  };
  using Set = std::set<Ptr<V>, Less>;

 public:
  using const_iterator = typename Set::const_iterator;

  ~NodeSet() { set_.clear(); }
  const_iterator find(const K& k) const { return set_.find(k); }
  const_iterator lower_bound(const K& k) const { return set_.lower_bound(k); }
  const_iterator upper_bound(const K& k) const { return set_.upper_bound(k); }
  const_iterator begin() const { return set_.begin(); }
  const_iterator end() const { return set_.end(); }
  size_t size() const { return set_.size(); }
  bool empty() const { return set_.empty(); }
  static V* get(const_iterator it) { return it->get(); }
  const_iterator iteratorTo(const V* v) const { return set_.find(keyOf<KeyFn>(*v)); }
  // `v` goes right before `pos`, which must keep the order.
  const_iterator insertBefore(const_iterator pos, Ptr<V> v) {
    return set_.insert(pos, std::move(v));
  }
  Ptr<V> erase(const_iterator it) {
    Ptr<V> v = *it;
    set_.erase(it);
    return v;
  }

 private:
  Set set_;
};

}  // namespace detail

// Base of an entry type that an OrderedColl links into its tree itself, sparing the separate
// node (and its allocation) per entry. Such an entry is in at most one collection at a time.
using OrderedHook =
    boost::intrusive::set_base_hook<boost::intrusive::optimize_size<true>,
                                    boost::intrusive::link_mode<boost::intrusive::safe_link>>;

namespace detail {

// Entries linked through their OrderedHook; the set holds one count of each entry.
template <class K, class V, auto KeyFn>
class HookSet {
  struct KeyOf {
    using type = K;
    const K& operator()(const V& v) const { return keyOf<KeyFn>(v); }
  };
  using Set = boost::intrusive::set<V, boost::intrusive::base_hook<OrderedHook>,
                                    boost::intrusive::key_of_value<KeyOf>,
                                    boost::intrusive::constant_time_size<true>>;
  using SetIter = typename Set::const_iterator;

 public:
  // Dereferences to a counted reference, as NodeSet's iterators do; it holds the count of
  // the entry it last yielded.
  class const_iterator {
   public:
    using iterator_category = std::bidirectional_iterator_tag;
    using value_type = Ptr<V>;
    using difference_type = std::ptrdiff_t;
    using pointer = const Ptr<V>*;
    using reference = const Ptr<V>&;

    const_iterator() = default;
    explicit const_iterator(SetIter it) : it_(it) {}
    reference operator*() const {
      cur_ = Ptr<V>(const_cast<V*>(&*it_));
      return cur_;
    }
    pointer operator->() const { return &**this; }
    const_iterator& operator++() {
      ++it_;
      return *this;
    }
    const_iterator operator++(int) {
      const_iterator old = *this;
      ++it_;
      return old;
    }
    const_iterator& operator--() {
      --it_;
      return *this;
    }
    const_iterator operator--(int) {
      const_iterator old = *this;
      --it_;
      return old;
    }
    bool operator==(const const_iterator& o) const { return it_ == o.it_; }

   private:
    friend class HookSet;
    SetIter it_;
    mutable Ptr<V> cur_;
  };

  ~HookSet() {
    set_.clear_and_dispose([](V* v) { v->unref(); });
  }
  const_iterator find(const K& k) const { return const_iterator(set_.find(k)); }
  const_iterator lower_bound(const K& k) const { return const_iterator(set_.lower_bound(k)); }
  const_iterator upper_bound(const K& k) const { return const_iterator(set_.upper_bound(k)); }
  // lower_bound(k), trying first the position right after `near` (an entry of this set, or
  // null), which costs one or two comparisons instead of a descent.
  const_iterator lowerBoundNear(const V* near, const K& k) const {
    if (near != nullptr && keyOf<KeyFn>(*near) < k) {
      SetIter next = std::next(set_.iterator_to(*near));
      if (next == set_.end() || !(keyOf<KeyFn>(*next) < k)) return const_iterator(next);
    }
    return lower_bound(k);
  }
  const_iterator begin() const { return const_iterator(set_.begin()); }
  const_iterator end() const { return const_iterator(set_.end()); }
  size_t size() const { return set_.size(); }
  bool empty() const { return set_.empty(); }
  static V* get(const_iterator it) { return const_cast<V*>(&*it.it_); }
  // The entry's own position, from its hook: no descent.
  const_iterator iteratorTo(const V* v) const { return const_iterator(set_.iterator_to(*v)); }
  const_iterator insertBefore(const_iterator pos, Ptr<V> v) {
    if (v->is_linked()) throw Error("OrderedColl: entry is in another collection");
    V* raw = v.release();  // the set's count
    return const_iterator(set_.insert_before(pos.it_, *raw));
  }
  Ptr<V> erase(const_iterator it) {
    Ptr<V> v(get(it));
    set_.erase(it.it_);
    v->unref();  // the set's count; `v` keeps the entry alive
    return v;
  }

 private:
  Set set_;
};

template <class K, class V, auto KeyFn>
using OrderedSet = std::conditional_t<std::is_base_of_v<OrderedHook, V>, HookSet<K, V, KeyFn>,
                                      NodeSet<K, V, KeyFn>>;

}  // namespace detail

// Ordered collection of counted entries keyed by a key that each entry stores
// itself (read through KeyFn), so a key is held once per row. Iteration is in
// key order; every insert and erase bumps the version and notifies the owner's
// reactors with the attribute and key. Entries deriving from OrderedHook are
// linked into the tree themselves.
//
// With a Hash (a functor of K), exact-key look-ups (find, contains, findIter, erase by key)
// go through a PointerIndex beside the tree instead of descending it, for 9-18 bytes per
// entry: for large collections read at random keys.
template <class K, class V, auto KeyFn = &V::key, class Hash = void>
class OrderedColl : public detail::CollBase {
  using Set = detail::OrderedSet<K, V, KeyFn>;
  static constexpr bool kHashed = !std::is_void_v<Hash>;
  // Keeps the place of its last insert (see placeOf): hashed, so large, and with hooked entries,
  // whose position costs nothing to get back.
  static constexpr bool kNear = kHashed && std::is_base_of_v<OrderedHook, V>;
  struct NoIndex {};
  using Index = std::conditional_t<kHashed, PointerIndex<K, V, KeyFn, Hash>, NoIndex>;

 public:
  using key_type = K;
  using value_type = V;
  using const_iterator = typename Set::const_iterator;

  explicit OrderedColl(const Entity* owner = nullptr, AttrId attr = 0) : CollBase(owner, attr) {
    if constexpr (kHashed) serial_ = detail::nextCollSerial();
  }
  OrderedColl(const OrderedColl&) = delete;
  OrderedColl& operator=(const OrderedColl&) = delete;

  V* find(const K& k) const {
    if constexpr (kHashed) {
      return index_.find(k);
    } else {
      auto it = set_.find(k);
      return it == set_.end() ? nullptr : Set::get(it);
    }
  }
  Ptr<V> operator[](const K& k) const { return Ptr<V>(find(k)); }
  bool contains(const K& k) const { return find(k) != nullptr; }
  // The position of the entry of `k`, or end().
  const_iterator findIter(const K& k) const {
    if constexpr (kHashed) {
      V* v = index_.find(k);
      return v ? set_.iteratorTo(v) : set_.end();
    } else {
      return set_.find(k);
    }
  }

  // Returns the entry of `k`, building it with `make()` (which must return a
  // Ptr<V> whose key is `k`) only when absent: one tree descent either way.
  template <class Make>
  std::pair<V*, bool> findOrInsert(const K& k, Make&& make) {
    // The descent that finds an insert's place answers the presence question as well: the
    // hash index would only add a look-up to every insert. Its slot is fetched meanwhile.
    [[maybe_unused]] uint64_t h = 0;
    if constexpr (kHashed) h = index_.prepare(k);
    auto it = placeOf(k);
    if (it != set_.end() && !(k < detail::keyOf<KeyFn>(*Set::get(it)))) {
      return {Set::get(it), false};
    }
    Ptr<V> v = make();
    if (!v) throw NullArgument("OrderedColl: null entry");
    if (k < detail::keyOf<KeyFn>(*v) || detail::keyOf<KeyFn>(*v) < k) {
      throw Error("OrderedColl: entry built under another key");
    }
    auto pos = set_.insertBefore(it, std::move(v));
    V* inserted = Set::get(pos);
    if constexpr (kHashed) {
      try {
        index_.insert(inserted, h);
      } catch (...) {
        set_.erase(pos);  // all or nothing
        throw;
      }
    }
    // The version once changed() has bumped it: a reactor that changes the collection from
    // the notification (and might erase this entry) leaves it higher, and the entry unused.
    const uint64_t settled = version() + 1;
    changed(&detail::keyOf<KeyFn>(*inserted));
    if constexpr (kNear) near_ = {inserted, settled};
    return {inserted, true};
  }

  // Inserts `v` under its own key unless an entry with that key exists.
  std::pair<V*, bool> insert(Ptr<V> v) {
    if (!v) throw NullArgument("OrderedColl: null entry");
    const K& k = detail::keyOf<KeyFn>(*v);
    return findOrInsert(k, [&] { return std::move(v); });
  }

  // Removes the entry of `k`; returns it, or null when absent (no change then).
  Ptr<V> erase(const K& k) {
    auto it = findIter(k);
    if (it == set_.end()) return nullptr;
    return erase(it);
  }
  Ptr<V> erase(const_iterator it) {
    // The index's slot is fetched while the tree unlinks and rebalances.
    [[maybe_unused]] uint64_t h = 0;
    if constexpr (kHashed) h = index_.prepare(detail::keyOf<KeyFn>(*Set::get(it)));
    Ptr<V> v = set_.erase(it);
    if constexpr (kHashed) index_.erase(v.get(), h);
    changed(&detail::keyOf<KeyFn>(*v));
    return v;
  }
  void clear() {
    while (!set_.empty()) erase(set_.begin());
  }

  const_iterator begin() const { return set_.begin(); }
  const_iterator end() const { return set_.end(); }
  // First entry whose key is not less than / greater than `k`.
  const_iterator lowerBound(const K& k) const { return set_.lower_bound(k); }
  const_iterator upperBound(const K& k) const { return set_.upper_bound(k); }
  // The entry with the smallest key greater than `k`, or null.
  V* findNext(const K& k) const {
    auto it = set_.upper_bound(k);
    return it == set_.end() ? nullptr : Set::get(it);
  }
  size_t size() const { return set_.size(); }
  bool empty() const { return set_.empty(); }

  // Tells this collection from every other that lived at the same address (hashed, that is
  // large, collections only). A position kept between calls is still good while the
  // collection's address, serial and version() are all unchanged.
  uint64_t serial() const requires kHashed { return serial_; }

 private:
  struct NoSerial {};
  struct NoNear {};
  struct Near {
    const V* entry = nullptr;
    uint64_t version = 0;
  };

  // Where `k` is or would go. Inserts come in runs of neighbours (a route's next hops, one
  // after the other; routes fed in index order): when `k` falls right after the entry last
  // inserted, and the collection has not changed since, its place is the next
  // position, without a descent. Otherwise one descent, one or two comparisons dearer.
  const_iterator placeOf(const K& k) const {
    if constexpr (kNear) {
      return set_.lowerBoundNear(near_.version == version() ? near_.entry : nullptr, k);
    } else {
      return set_.lower_bound(k);
    }
  }

  Set set_;
  [[no_unique_address]] Index index_;
  [[no_unique_address]] std::conditional_t<kHashed, uint64_t, NoSerial> serial_{};
  [[no_unique_address]] std::conditional_t<kNear, Near, NoNear> near_{};
};

// Hash collection of counted entries by key (the key is stored beside the entry).
template <class K, class V, class Hash = std::hash<K>>
class HashColl : public detail::CollBase {
  using Map = std::unordered_map<K, Ptr<V>, Hash>;

 public:
  using key_type = K;
  using value_type = V;
  using const_iterator = typename Map::const_iterator;

  explicit HashColl(const Entity* owner = nullptr, AttrId attr = 0) : CollBase(owner, attr) {}
  HashColl(const HashColl&) = delete;
  HashColl& operator=(const HashColl&) = delete;

  V* find(const K& k) const {
    auto it = map_.find(k);
    return it == map_.end() ? nullptr : it->second.get();
  }
  Ptr<V> operator[](const K& k) const { return Ptr<V>(find(k)); }
  bool contains(const K& k) const { return map_.count(k) != 0; }

  template <class Make>
  std::pair<V*, bool> findOrInsert(const K& k, Make&& make) {
    auto it = map_.find(k);
    if (it != map_.end()) return {it->second.get(), false};
    Ptr<V> v = make();
    if (!v) throw NullArgument("HashColl: null entry");
    auto [pos, inserted] = map_.emplace(k, std::move(v));
    changed(&pos->first);
    return {pos->second.get(), true};
  }

  // Stores `v` under `k`, replacing a different entry; a null `v` removes the key.
  void set(const K& k, Ptr<V> v) {
    if (!v) {
      erase(k);
      return;
    }
    auto it = map_.find(k);
    if (it != map_.end()) {
      if (it->second == v) return;
      it->second = std::move(v);
      changed(&it->first);
      return;
    }
    auto pos = map_.emplace(k, std::move(v)).first;
    changed(&pos->first);
  }

  Ptr<V> erase(const K& k) {
    auto it = map_.find(k);
    if (it == map_.end()) return nullptr;
    const K key = it->first;
    Ptr<V> v = std::move(it->second);
    map_.erase(it);
    changed(&key);
    return v;
  }
  void clear() {
    while (!map_.empty()) erase(K(map_.begin()->first));
  }

  const_iterator begin() const { return map_.begin(); }
  const_iterator end() const { return map_.end(); }
  size_t size() const { return map_.size(); }
  bool empty() const { return map_.empty(); }

 private:
  Map map_;
};

// A notifying map of plain values (flags, indexes, bookkeeping state).
template <class K, class V, class Map = std::map<K, V>>
class ValueMap : public detail::CollBase {
 public:
  using key_type = K;
  using mapped_type = V;
  using const_iterator = typename Map::const_iterator;

  explicit ValueMap(const Entity* owner = nullptr, AttrId attr = 0) : CollBase(owner, attr) {}

  // The value of `k`, or a default-constructed value when absent.
  V get(const K& k) const {
    auto it = map_.find(k);
    return it == map_.end() ? V{} : it->second;
  }
  const V* find(const K& k) const {
    auto it = map_.find(k);
    return it == map_.end() ? nullptr : &it->second;
  }
  bool contains(const K& k) const { return map_.find(k) != map_.end(); }

  // Inserts or overwrites; notifies only when something changed.
  void set(const K& k, V v) {
    auto [it, inserted] = map_.try_emplace(k, v);
    if (!inserted) {
      if (it->second == v) return;
      it->second = std::move(v);
    }
    changed(&it->first);
  }
  bool erase(const K& k) {
    auto it = map_.find(k);
    if (it == map_.end()) return false;
    const K key = it->first;
    map_.erase(it);
    changed(&key);
    return true;
  }
  void clear() {
    while (!map_.empty()) erase(K(map_.begin()->first));
  }

  const_iterator begin() const { return map_.begin(); }
  const_iterator end() const { return map_.end(); }
  size_t size() const { return map_.size(); }
  bool empty() const { return map_.empty(); }

 private:
  Map map_;
};

template <class K, class V, class Hash = std::hash<K>>
using HashValueMap = ValueMap<K, V, std::unordered_map<K, V, Hash>>;

}  // namespace Ent
