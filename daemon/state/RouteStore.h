#pragma once

// The routes and FIB routes of one family of a VRF, packed (see Packed.h): one entry per route
// key holding the key's route, its FIB route, or both. The document keeps its routes here and
// moves into its JSON tree only those an update touches, for the time of the update.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <boost/intrusive/set.hpp>

#include "daemon/state/Json.h"

namespace PimSnmpd {

class RouteStore {
 public:
  RouteStore() = default;
  RouteStore(const RouteStore& other);
  RouteStore(RouteStore&&) = default;
  RouteStore& operator=(RouteStore other);
  ~RouteStore();

  bool empty() const { return entries_.empty(); }
  size_t size() const { return entries_.size(); }

  // Moves every member of `routes` and `fibRoutes` (objects of the tree, either may be null)
  // into the store, leaving both empty. A key must not be both in the tree and in the store.
  void take(Json* routes, Json* fibRoutes);
  // Moves the entry `key`, if the store has it, into the tree objects.
  void give(std::string_view key, Json* routes, Json* fibRoutes);
  // Moves every entry into the tree objects.
  void giveAll(Json* routes, Json* fibRoutes);
  // Adds a copy of every entry to the tree objects.
  void copyTo(Json* routes, Json* fibRoutes) const;

  enum class Part { route, fibRoute };
  // Calls f(key, value) for every entry holding `part`, in key order, unpacking one value at a
  // time: what writes a document's text without building its tree.
  void forEach(Part part, const std::function<void(std::string_view, const Json&)>& f) const;

 private:
  // An entry is one allocation: its tree links, its length, then its bytes: the key's length
  // (a varint, one byte for any route key), its text and the packed parts (see
  // RouteStore.cpp). A route costs this and nothing else, so no separate tree node or string
  // buffer.
  struct Entry : boost::intrusive::set_base_hook<boost::intrusive::optimize_size<true>> {
    uint32_t size = 0;
    const char* data() const { return reinterpret_cast<const char*>(&size + 1); }
    std::string_view bytes() const { return {data(), size}; }
    // Read on every comparison of a tree descent: the one-byte length inline.
    std::string_view key() const {
      const auto n = static_cast<uint8_t>(data()[0]);
      return n < 0x80 ? std::string_view(data() + 1, n) : longKey();
    }
    std::string_view longKey() const;
  };
  struct KeyOf {
    using type = std::string_view;
    std::string_view operator()(const Entry& e) const { return e.key(); }
  };
  using Entries = boost::intrusive::set<Entry, boost::intrusive::key_of_value<KeyOf>,
                                        boost::intrusive::compare<MemberNameLess>,
                                        boost::intrusive::constant_time_size<true>>;
  static Entry* newEntry(std::string_view bytes);
  static void deleteEntry(Entry* e);
  // An entry's key and the packed forms of the parts it holds.
  struct Parts {
    std::string_view key;
    std::optional<std::string_view> route;
    std::optional<std::string_view> fibRoute;
  };
  static Parts partsOf(std::string_view entry);
  static void unpackInto(std::string_view entry, Json* routes, Json* fibRoutes);

  Entries entries_;
};

}  // namespace PimSnmpd
