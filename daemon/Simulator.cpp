#include "daemon/Simulator.h"

#include <fmt/format.h>

#include <functional>

#include "platform/Lanet/IpGenAddr.h"

namespace PimSnmpd {

namespace {

const Json* member(const Json* obj, std::string_view name) {
  if (obj == nullptr || !obj->is_object()) return nullptr;
  auto it = obj->find(name);
  return it == obj->end() || it->is_null() ? nullptr : &*it;
}

const Json* family(const Json& doc, const std::string& vrf, const std::string& af) {
  return member(member(member(&doc, "vrfs"), vrf), af);
}

// A small per-route rate, stable across steps, so that the counters of different routes
// visibly differ.
uint64_t packetsPerStep(const std::string& key) {
  return 5 + std::hash<std::string>{}(key) % 46;
}

uint64_t readCounter(const Json& route, std::string_view name) {
  const Json* v = member(&route, name);
  if (v == nullptr) return 0;
  if (v->is_number_unsigned() || v->is_number_integer()) return v->get<uint64_t>();
  if (v->is_number_float()) return static_cast<uint64_t>(v->get<double>());
  return 0;
}

// "S,G" or "*,G" with a fresh source of the group's family.
std::string newRouteKey(const std::string& templateKey, uint64_t serial) {
  const std::string group = templateKey.substr(templateKey.find(',') + 1);
  const bool v6 = group.find(':') != std::string::npos;
  const uint64_t n = serial % 65000 + 1;
  const std::string source = v6 ? fmt::format("2001:db8:ffff::{:x}", n)
                                : fmt::format("10.255.{}.{}", n / 250, n % 250 + 1);
  return source + "," + group;
}

}  // namespace

Json Simulator::step(const Json& document) {
  ++step_;
  Json patch = Json::object();
  growCounters(document, patch);
  flap(document, patch);
  churn(document, patch);
  return patch;
}

void Simulator::growCounters(const Json& document, Json& patch) const {
  const Json* vrfs = member(&document, "vrfs");
  if (vrfs == nullptr) return;
  for (const auto& [vrf, v] : vrfs->items()) {
    for (const char* af : {"ipv4", "ipv6"}) {
      const Json* routes = member(member(member(&v, af), "fib"), "routes");
      if (routes == nullptr) continue;
      for (const auto& [key, route] : routes->items()) {
        const uint64_t packets = readCounter(route, "packets") + packetsPerStep(key);
        // Mid-sized datagrams: a plausible octet count per packet.
        const uint64_t bytes = readCounter(route, "bytes") + packetsPerStep(key) * 1200;
        patch["vrfs"][vrf][af]["fib"]["routes"][key] = {{"packets", packets}, {"bytes", bytes}};
      }
    }
  }
}

void Simulator::flap(const Json& document, Json& patch) {
  if (flap_) {
    // Back up after kFlapDown steps, unless the interface went away meanwhile.
    if (step_ % kFlapPeriod != kFlapDown) return;
    const Flap f = std::move(*flap_);
    flap_.reset();
    const Json* intf =
        member(member(member(family(document, f.vrf, f.af), "pimStatus"), "interfaces"), f.intf);
    if (intf == nullptr || member(member(intf, "neighbors"), f.address) != nullptr) return;
    Json restored = f.saved;
    // A neighbor that comes back is a new adjacency.
    restored.erase("created");
    restored.erase("lastRefresh");
    patch["vrfs"][f.vrf][f.af]["pimStatus"]["interfaces"][f.intf]["neighbors"][f.address] =
        std::move(restored);
    return;
  }
  if (step_ % kFlapPeriod != 0) return;
  const Json* vrfs = member(&document, "vrfs");
  if (vrfs == nullptr) return;
  for (const auto& [vrf, v] : vrfs->items()) {
    const Json* ifs = member(member(member(&v, "ipv4"), "pimStatus"), "interfaces");
    if (ifs == nullptr) continue;
    for (const auto& [intf, i] : ifs->items()) {
      const Json* nbrs = member(&i, "neighbors");
      if (nbrs == nullptr) continue;
      // The lowest address: pimNeighborLoss is only raised when no lower one remains.
      std::optional<Lanet::IpGenAddr> lowest;
      std::string lowestText;
      for (const auto& [addr, n] : nbrs->items()) {
        if (n.is_null()) continue;
        const auto a = Lanet::IpGenAddr::parse(addr);
        if (a && (!lowest || *a < *lowest)) {
          lowest = a;
          lowestText = addr;
        }
      }
      if (!lowest) continue;
      flap_ = Flap{vrf, "ipv4", intf, lowestText, (*nbrs)[lowestText]};
      patch["vrfs"][vrf]["ipv4"]["pimStatus"]["interfaces"][intf]["neighbors"][lowestText] =
          nullptr;
      return;
    }
  }
}

void Simulator::churn(const Json& document, Json& patch) {
  if (extra_) {
    if (step_ % kChurnPeriod != kChurnUp) return;
    const Extra e = std::move(*extra_);
    extra_.reset();
    const Json* fam = family(document, e.vrf, e.af);
    if (member(member(fam, "routes"), e.key) != nullptr) {
      patch["vrfs"][e.vrf][e.af]["routes"][e.key] = nullptr;
    }
    if (member(member(member(fam, "fib"), "routes"), e.key) != nullptr) {
      patch["vrfs"][e.vrf][e.af]["fib"]["routes"][e.key] = nullptr;
    }
    return;
  }
  if (step_ % kChurnPeriod != 0) return;
  const Json* vrfs = member(&document, "vrfs");
  if (vrfs == nullptr) return;
  for (const auto& [vrf, v] : vrfs->items()) {
    for (const char* af : {"ipv4", "ipv6"}) {
      const Json* fam = member(&v, af);
      const Json* routes = member(fam, "routes");
      const Json* fibRoutes = member(member(fam, "fib"), "routes");
      if (routes == nullptr || fibRoutes == nullptr) continue;
      for (const auto& [key, route] : routes->items()) {
        const Json* fibRoute = member(fibRoutes, key);
        if (route.is_null() || fibRoute == nullptr) continue;
        std::string newKey;
        // Skip sources already taken (by an earlier simulation or by the operator).
        for (int tries = 0; tries < 16; ++tries) {
          newKey = newRouteKey(key, ++routeSerial_);
          if (member(routes, newKey) == nullptr && member(fibRoutes, newKey) == nullptr) break;
          newKey.clear();
        }
        if (newKey.empty()) return;
        Json r = route;
        r.erase("created");
        if (Json* flags = r.contains("flags") ? &r["flags"] : nullptr; flags && flags->is_array()) {
          // 'wildcard' marks (*,G) routes only; the copy is an (S,G) route.
          Json kept = Json::array();
          for (const Json& f : *flags) {
            if (f != "wildcard") kept.push_back(f);
          }
          *flags = std::move(kept);
        }
        Json fr = *fibRoute;
        fr["packets"] = 0;
        fr["bytes"] = 0;
        patch["vrfs"][vrf][af]["routes"][newKey] = std::move(r);
        patch["vrfs"][vrf][af]["fib"]["routes"][newKey] = std::move(fr);
        extra_ = Extra{vrf, af, newKey};
        return;
      }
    }
  }
}

}  // namespace PimSnmpd
