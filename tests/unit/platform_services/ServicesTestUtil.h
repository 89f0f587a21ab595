#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "platform/Ent/Entity.h"
#include "platform/Lanet/IpGenAddr.h"
#include "platform/Routing/Pim/RouteKey.h"

namespace PlatformServicesTest {

// Counts the notifications of one entity, by attribute.
struct Counter : Ent::Reactor {
  explicit Counter(Ent::Ptr<const Ent::Entity> e) : Ent::Reactor(std::move(e)) {}
  void onChange(const Ent::Change& c) override { ++byAttr[c.attr]; }
  size_t total() const {
    size_t n = 0;
    for (auto& [a, k] : byAttr) n += k;
    return n;
  }
  std::map<Ent::AttrId, size_t> byAttr;
};

// (10.0.<i>, 239.1.1.1): distinct keys in key order for i = 0, 1, ...
inline Routing::Pim::RouteKey routeKey(uint32_t i) {
  return {Lanet::IpGenAddr::v4(0x0A000000u + i), Lanet::IpGenAddr::v4(0xEF010101u)};
}

}  // namespace PlatformServicesTest
