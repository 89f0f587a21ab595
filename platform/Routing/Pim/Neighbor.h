#pragma once

#include <cstdint>
#include <string_view>

#include "platform/Ent/Entity.h"
#include "platform/Lanet/IpGenAddr.h"

namespace Routing::Pim {

// A PIM neighbor learnt on one interface, keyed by its address.
class Neighbor : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId {
    attrCreationTime = 1,
    attrLastRefreshTime = 2,
    attrHoldTime = 3,
  };

  explicit Neighbor(const Lanet::IpGenAddr& address)
      : Ent::Entity(address.toString()), address_(address) {}
  std::string_view typeName() const override { return "Routing::Pim::Neighbor"; }

  const Lanet::IpGenAddr& address() const { return address_; }
  const Lanet::IpGenAddr& key() const { return address_; }

  // Seconds on the platform clock.
  double creationTime() const { return creationTime_; }
  void creationTimeIs(double t) {
    if (t == creationTime_) return;
    creationTime_ = t;
    notify(attrCreationTime);
  }
  double lastRefreshTime() const { return lastRefreshTime_; }
  void lastRefreshTimeIs(double t) {
    if (t == lastRefreshTime_) return;
    lastRefreshTime_ = t;
    notify(attrLastRefreshTime);
  }
  // Seconds the adjacency lives after a refresh.
  uint16_t holdTime() const { return holdTime_; }
  void holdTimeIs(uint16_t s) {
    if (s == holdTime_) return;
    holdTime_ = s;
    notify(attrHoldTime);
  }

 private:
  const Lanet::IpGenAddr address_;
  double creationTime_ = 0;
  double lastRefreshTime_ = 0;
  uint16_t holdTime_ = 0;
};

}  // namespace Routing::Pim
