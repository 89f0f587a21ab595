#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "platform/Ent/Entity.h"
#include "platform/Ent/Ptr.h"

namespace Snmp {

// The record behind a handler registration's private pointer (`my_reg_void`): the entity that
// the registration serves, held by a counted reference for as long as it is registered.
struct RegVoid {
  std::string context;
  std::string name;
  Ent::Ptr<Ent::Entity> entity;
};

// Every registration record, by SNMP context and registered object name. Records are
// allocated individually so the pointer handed to net-snmp stays valid until delRegVoid.
class RegVoidCollByContext {
 public:
  // The process's collection, created on first use.
  static RegVoidCollByContext& instance();

  RegVoidCollByContext() = default;
  RegVoidCollByContext(const RegVoidCollByContext&) = delete;
  RegVoidCollByContext& operator=(const RegVoidCollByContext&) = delete;

  // Returns the record for (context, name), holding `entity`. Adding a name again replaces
  // the entity but keeps the record (and so the pointer already given to net-snmp).
  void* addRegVoid(std::string_view context, std::string_view name, Ent::Ptr<Ent::Entity> entity);
  // Drops the record; false (and nothing else) for an unknown name.
  bool delRegVoid(std::string_view context, std::string_view name);
  // Drops every record of `context`; returns how many.
  size_t delContext(std::string_view context);

  const RegVoid* regVoid(std::string_view context, std::string_view name) const;
  size_t count(std::string_view context) const;
  size_t size() const { return records_.size(); }
  void clear() { records_.clear(); }

  // The entity behind a `my_reg_void` pointer returned by addRegVoid (null for null).
  static Ent::Entity* entityOf(const void* regVoid) {
    return regVoid ? static_cast<const RegVoid*>(regVoid)->entity.get() : nullptr;
  }

 private:
  using Key = std::pair<std::string, std::string>;
  struct Less {
    using is_transparent = void;
    template <class A, class B>
    bool operator()(const A& a, const B& b) const {
      return std::pair<std::string_view, std::string_view>(a.first, a.second) <
             std::pair<std::string_view, std::string_view>(b.first, b.second);
    }
  };
  using View = std::pair<std::string_view, std::string_view>;
  std::map<Key, std::unique_ptr<RegVoid>, Less> records_;
};

}  // namespace Snmp
