#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "platform/Ent/Entity.h"

namespace Routing::Multicast::Fib {

// Multicast-routing configuration of one VRF. The VRF is named by a plain string, as
// configured: it is only checked against the VRF-name limit by whoever converts it.
class Config : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId { attrRouting = 1 };

  explicit Config(std::string vrfName) : Ent::Entity(vrfName), vrfName_(std::move(vrfName)) {}
  std::string_view typeName() const override { return "Routing::Multicast::Fib::Config"; }

  const std::string& vrfName() const { return vrfName_; }
  const std::string& key() const { return vrfName_; }

  // Multicast routing is enabled in the VRF.
  bool routing() const { return routing_; }
  void routingIs(bool on) {
    if (on == routing_) return;
    routing_ = on;
    notify(attrRouting);
  }

 private:
  const std::string vrfName_;
  bool routing_ = false;
};

}  // namespace Routing::Multicast::Fib
