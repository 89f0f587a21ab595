#pragma once

// The routes and FIB routes of one family of a VRF, packed (see Packed.h): one entry per route
// key holding the key's route, its FIB route, or both. The document keeps its routes here and
// moves into its JSON tree only those an update touches, for the time of the update.

#include <cstddef>
#include <set>
#include <string>
#include <string_view>

#include "daemon/state/Json.h"

namespace PimSnmpd {

class RouteStore {
 public:
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

 private:
  // An entry is the key's text, a NUL, then the packed parts (see RouteStore.cpp).
  static std::string_view keyOf(const std::string& entry) { return {entry.c_str()}; }
  struct KeyLess {
    using is_transparent = void;
    bool operator()(const std::string& a, const std::string& b) const {
      return MemberNameLess()(keyOf(a), keyOf(b));
    }
    bool operator()(const std::string& a, std::string_view b) const {
      return MemberNameLess()(keyOf(a), b);
    }
    bool operator()(std::string_view a, const std::string& b) const {
      return MemberNameLess()(a, keyOf(b));
    }
  };
  static void unpackInto(const std::string& entry, Json* routes, Json* fibRoutes);

  std::set<std::string, KeyLess> entries_;
};

}  // namespace PimSnmpd
