#pragma once

// One table of the MIB store: an ordered collection of rows keyed by their SNMP index, with
// the store's create-or-get, conflict and removal rules written once for all tables.

#include <cstddef>
#include <functional>
#include <string_view>
#include <tuple>

#include <fmt/format.h>

#include "platform/Ent/Coll.h"
#include "platform/Ent/Entity.h"
#include "platform/Ent/Error.h"

namespace Routing::Pim::Snmp {

class PimMib;

// What the table handlers read: a store table without its write rules. GETs ask for rows at
// random keys, so every table keeps a hash index beside its tree: a GET of one row of a large
// table reads a couple of cache lines instead of a descent's worth.
template <class K, class V>
using StoreColl = Ent::OrderedColl<K, V, &V::key, std::hash<K>>;

// A row type V is built as V(key, inputs...) and answers inputs() with the same inputs (a
// tuple of references), so that a repeated create can tell the same row from a conflicting
// one. A row with a `pimMibIs(const PimMib*)` member gets a back pointer to its store while
// it is in the table, and loses it when it leaves.

template <class K, class V>
class StoreTable : public StoreColl<K, V> {
  using Coll = StoreColl<K, V>;

 public:
  using const_iterator = typename Coll::const_iterator;

  // `name` is the table's MIB name, quoted in conflicts; the store notifies with `attr`.
  template <class Store>
  StoreTable(const Store* store, Ent::AttrId attr, const char* name)
      : Coll(store, attr), store_(store), name_(name) {}
  ~StoreTable() {
    // Rows may outlive the store in a caller's hands: they must not reach back into it.
    for (const auto& row : *this) backPointerIs(*row, nullptr);
  }

  std::string_view name() const { return name_; }

  // The row of `key`, built from `inputs` when absent. A present row built from other inputs
  // throws Ent::Error and stays: inputs are immutable, a change replaces the row.
  template <class... In>
  Ent::Ptr<V> is(const K& key, const In&... inputs) {
    auto [row, inserted] = Coll::findOrInsert(key, [&] {
      Ent::Ptr<V> r = Ent::make<V>(key, inputs...);
      backPointerIs(*r, store_);
      return r;
    });
    if (!inserted && !(row->inputs() == std::tie(inputs...))) {
      throw Ent::Error(fmt::format("{}: entry {} exists with other values", name_, key));
    }
    return row;
  }

  // Remove the row and return it (null when absent, nothing changed then).
  Ent::Ptr<V> erase(const K& key) { return detached(Coll::erase(key)); }
  Ent::Ptr<V> erase(const_iterator it) { return detached(Coll::erase(it)); }
  void clear() {
    while (!this->empty()) erase(this->begin());
  }

 private:
  static void backPointerIs(V& row, const PimMib* store) {
    if constexpr (requires { row.pimMibIs(store); }) row.pimMibIs(store);
  }
  static Ent::Ptr<V> detached(Ent::Ptr<V> row) {
    if (row) backPointerIs(*row, nullptr);
    return row;
  }

  const PimMib* store_;
  const char* name_;
};

}  // namespace Routing::Pim::Snmp
