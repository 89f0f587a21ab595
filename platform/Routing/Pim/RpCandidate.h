#pragma once

#include <cstdint>
#include <string_view>

#include "platform/Ent/Entity.h"
#include "platform/Lanet/IpGenAddr.h"

namespace Routing::Pim {

// One RP for a group range, keyed by the RP's address.
class RpCandidate : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId {
    attrHoldTime = 1,
    attrExpiryTime = 2,
  };

  explicit RpCandidate(const Lanet::IpGenAddr& address)
      : Ent::Entity(address.toString()), address_(address) {}
  std::string_view typeName() const override { return "Routing::Pim::RpCandidate"; }

  const Lanet::IpGenAddr& address() const { return address_; }
  const Lanet::IpGenAddr& key() const { return address_; }

  // Seconds, as advertised.
  uint32_t holdTime() const { return holdTime_; }
  void holdTimeIs(uint32_t s) {
    if (s == holdTime_) return;
    holdTime_ = s;
    notify(attrHoldTime);
  }
  // The time (platform clock, seconds) at which the RP expires unless refreshed.
  double expiryTime() const { return expiryTime_; }
  void expiryTimeIs(double t) {
    if (t == expiryTime_) return;
    expiryTime_ = t;
    notify(attrExpiryTime);
  }

 private:
  const Lanet::IpGenAddr address_;
  uint32_t holdTime_ = 0;
  double expiryTime_ = 0;
};

}  // namespace Routing::Pim
