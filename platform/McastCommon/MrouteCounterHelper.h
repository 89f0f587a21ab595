#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/Ent/Entity.h"
#include "platform/L3/VrfName.h"
#include "platform/Routing/Multicast/Fib/IpGenRouteKey.h"

namespace McastCommonMrouteCounterHelper {

// The platform's per-route multicast counters of one address family.
class MrouteCounterHelper : public Ent::Entity {
 public:
  struct Counters {
    uint64_t packets = 0;
    uint64_t bytes = 0;
    bool operator==(const Counters&) const = default;
  };

  using Ent::Entity::Entity;

  // The counters of route `key` in `vrf`; zero for an unknown VRF or route.
  virtual Counters counters(const L3::VrfName& vrf,
                            const Routing::Multicast::Fib::IpGenRouteKey& key) const = 0;
};

}  // namespace McastCommonMrouteCounterHelper
