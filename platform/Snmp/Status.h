#pragma once

#include <string>
#include <string_view>

#include "platform/Ent/Entity.h"

namespace Snmp {

// The agent's own readiness. `initialized` turns true once the net-snmp agent is up, which is
// when MIB modules may register.
class Status : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId { attrInitialized = 1 };

  explicit Status(std::string name = "status") : Ent::Entity(std::move(name)) {}
  std::string_view typeName() const override { return "Snmp::Status"; }

  bool initialized() const { return initialized_; }
  // Notifies only on a change, so followers see each transition once.
  void initializedIs(bool on) {
    if (on == initialized_) return;
    initialized_ = on;
    notify(attrInitialized);
  }

 private:
  bool initialized_ = false;
};

}  // namespace Snmp
