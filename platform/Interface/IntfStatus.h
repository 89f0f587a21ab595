#pragma once

#include <cstdint>
#include <string_view>

#include "platform/Ent/Entity.h"
#include "platform/Lanet/IntfId.h"

namespace Interface {

// IF-MIB ifOperStatus values.
enum OperStatus : uint8_t {
  operUp = 1,
  operDown = 2,
  operTesting = 3,
  operUnknown = 4,
  operDormant = 5,
  operNotPresent = 6,
  operLowerLayerDown = 7,
};

// The operational status of one interface.
class IntfStatus : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId { attrOperStatus = 1 };

  explicit IntfStatus(const Lanet::IntfId& intfId) : Ent::Entity(intfId.name()), intfId_(intfId) {}
  std::string_view typeName() const override { return "Interface::IntfStatus"; }

  const Lanet::IntfId& intfId() const { return intfId_; }
  const Lanet::IntfId& key() const { return intfId_; }

  OperStatus operStatus() const { return operStatus_; }
  void operStatusIs(OperStatus s) {
    if (s == operStatus_) return;
    operStatus_ = s;
    notify(attrOperStatus);
  }

 private:
  const Lanet::IntfId intfId_;
  OperStatus operStatus_ = operDown;
};

}  // namespace Interface
