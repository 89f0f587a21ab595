#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "platform/Ent/Coll.h"
#include "platform/Ent/Entity.h"
#include "platform/Lanet/IntfId.h"

namespace IntfSnmp {

// The IF-MIB ifIndex the SNMP agent assigned to each interface.
class IfMib : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId { attrIfIndexByIntfId = 1 };
  using IfIndexMap = Ent::ValueMap<Lanet::IntfId, uint32_t>;

  explicit IfMib(std::string name = "ifMib")
      : Ent::Entity(std::move(name)), ifIndexByIntfId_(this, attrIfIndexByIntfId) {}
  std::string_view typeName() const override { return "IntfSnmp::IfMib"; }

  const IfIndexMap& ifIndexByIntfId() const { return ifIndexByIntfId_; }
  // The ifIndex of `intf`; 0 when it has none.
  uint32_t ifIndexByIntfId(const Lanet::IntfId& intf) const { return ifIndexByIntfId_.get(intf); }
  void ifIndexByIntfIdIs(const Lanet::IntfId& intf, uint32_t ifIndex) {
    ifIndexByIntfId_.set(intf, ifIndex);
  }
  bool ifIndexByIntfIdDel(const Lanet::IntfId& intf) { return ifIndexByIntfId_.erase(intf); }
  void ifIndexByIntfIdDelAll() { ifIndexByIntfId_.clear(); }

 private:
  IfIndexMap ifIndexByIntfId_;
};

}  // namespace IntfSnmp
