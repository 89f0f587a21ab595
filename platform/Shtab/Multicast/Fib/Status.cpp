#include "platform/Shtab/Multicast/Fib/Status.h"

#include <fmt/format.h>

#include "platform/Ent/Dir.h"

namespace Shtab::Multicast::Fib {

std::string Status::mountPath(Lanet::AddressFamily af, const L3::VrfName& vrf,
                              std::string_view role) {
  return Ent::childPath(
      Ent::childPath(fmt::format("shtab/multicast/fib/{}", Lanet::toString(af)), vrf.str()), role);
}

Route Status::route(const RouteKey& k) const {
  auto it = route_.find(k);
  return it == route_.end() ? Route() : it->second;
}

void Status::routeIs(const RouteKey& k, const Route& r) {
  auto [it, inserted] = route_.try_emplace(k, r);
  if (!inserted) {
    if (it->second == r) return;
    it->second = r;
  }
  notify(attrRoute, &it->first);
}

bool Status::routeCountersIs(const RouteKey& k, uint64_t packets, uint64_t bytes) {
  auto it = route_.find(k);
  if (it == route_.end()) return false;
  it->second.countersIs(packets, bytes);
  return true;
}

bool Status::routeDel(const RouteKey& k) {
  auto it = route_.find(k);
  if (it == route_.end()) return false;
  const RouteKey key = it->first;
  route_.erase(it);
  notify(attrRoute, &key);
  return true;
}

void Status::routeDelAll() {
  while (!route_.empty()) routeDel(RouteKey(route_.begin()->first));
}

}  // namespace Shtab::Multicast::Fib
