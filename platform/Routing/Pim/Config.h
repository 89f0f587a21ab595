#pragma once

#include <cstdint>
#include <string_view>

#include "platform/Ent/Entity.h"
#include "platform/L3/VrfName.h"

namespace Routing::Pim {

// PIM configuration of one VRF. The SNMP side only tests that it exists.
class Config : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId { attrJoinPruneInterval = 1 };
  static constexpr uint16_t kDefaultJoinPruneInterval = 60;

  explicit Config(const L3::VrfName& vrfName) : Ent::Entity(vrfName.str()), vrfName_(vrfName) {}
  std::string_view typeName() const override { return "Routing::Pim::Config"; }

  const L3::VrfName& vrfName() const { return vrfName_; }
  const L3::VrfName& key() const { return vrfName_; }

  // Seconds.
  uint16_t joinPruneInterval() const { return joinPruneInterval_; }
  void joinPruneIntervalIs(uint16_t s) {
    if (s == joinPruneInterval_) return;
    joinPruneInterval_ = s;
    notify(attrJoinPruneInterval);
  }

 private:
  const L3::VrfName vrfName_;
  uint16_t joinPruneInterval_ = kDefaultJoinPruneInterval;
};

}  // namespace Routing::Pim
