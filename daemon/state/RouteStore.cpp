#include "daemon/state/RouteStore.h"

#include <cstdint>
#include <utility>

#include "daemon/state/Description.h"
#include "daemon/state/Packed.h"

namespace PimSnmpd {

namespace {

// After the key and its NUL: a byte of the parts present, the route's packed length (a
// varint) and the route when it is present, then the FIB route to the end.
constexpr uint8_t kHasRoute = 1;
constexpr uint8_t kHasFibRoute = 2;

std::string entry(std::string_view key, const Json* route, const Json* fibRoute) {
  std::string out(key);
  out.push_back('\0');
  out.push_back(static_cast<char>((route != nullptr ? kHasRoute : 0) |
                                  (fibRoute != nullptr ? kHasFibRoute : 0)));
  if (route != nullptr) {
    std::string packed;
    Packed::pack(Description::kRouteValue, *route, packed);
    Packed::putVarint(out, packed.size());
    out += packed;
  }
  if (fibRoute != nullptr) Packed::pack(Description::kFibRouteValue, *fibRoute, out);
  out.shrink_to_fit();
  return out;
}

Json::object_t* objectOf(Json* j) {
  return j != nullptr && j->is_object() ? &j->get_ref<Json::object_t&>() : nullptr;
}

}  // namespace

void RouteStore::take(Json* routes, Json* fibRoutes) {
  Json::object_t* r = objectOf(routes);
  Json::object_t* f = objectOf(fibRoutes);
  // Both objects are sorted by key: walk them side by side, pairing a key's two parts.
  auto ri = r != nullptr ? r->begin() : Json::object_t::iterator();
  auto fi = f != nullptr ? f->begin() : Json::object_t::iterator();
  const MemberNameLess less;
  auto hint = entries_.begin();
  while ((r != nullptr && ri != r->end()) || (f != nullptr && fi != f->end())) {
    const bool rLeft = r != nullptr && ri != r->end();
    const bool fLeft = f != nullptr && fi != f->end();
    const Json* route = nullptr;
    const Json* fibRoute = nullptr;
    std::string_view key;
    if (rLeft && (!fLeft || !less(fi->first, ri->first))) {
      key = ri->first;
      route = &ri->second;
    }
    if (fLeft && (!rLeft || !less(ri->first, fi->first))) {
      key = fi->first;
      fibRoute = &fi->second;
    }
    if (route != nullptr && route->is_null()) route = nullptr;
    if (fibRoute != nullptr && fibRoute->is_null()) fibRoute = nullptr;
    if (route != nullptr || fibRoute != nullptr) {
      const size_t before = entries_.size();
      hint = entries_.insert(hint, entry(key, route, fibRoute));
      if (entries_.size() == before) {
        // Never meant to happen (a key is in the tree or here, not both); the tree is newer.
        hint = entries_.erase(hint);
        hint = entries_.insert(hint, entry(key, route, fibRoute));
      }
      ++hint;
    }
    if (rLeft && key == ri->first) ++ri;
    if (fLeft && key == fi->first) ++fi;
  }
  if (r != nullptr) r->clear();
  if (f != nullptr) f->clear();
}

void RouteStore::unpackInto(const std::string& e, Json* routes, Json* fibRoutes) {
  const std::string_view key = keyOf(e);
  std::string_view rest(e);
  rest.remove_prefix(key.size() + 1);
  const auto parts = static_cast<uint8_t>(rest.front());
  rest.remove_prefix(1);
  if ((parts & kHasRoute) != 0) {
    const size_t n = Packed::takeVarint(rest);
    if (Json::object_t* r = objectOf(routes)) {
      r->emplace(std::string(key), Packed::unpack(Description::kRouteValue, rest.substr(0, n)));
    }
    rest.remove_prefix(n);
  }
  if ((parts & kHasFibRoute) != 0) {
    if (Json::object_t* f = objectOf(fibRoutes)) {
      f->emplace(std::string(key), Packed::unpack(Description::kFibRouteValue, rest));
    }
  }
}

void RouteStore::give(std::string_view key, Json* routes, Json* fibRoutes) {
  auto it = entries_.find(key);
  if (it == entries_.end()) return;
  unpackInto(*it, routes, fibRoutes);
  entries_.erase(it);
}

void RouteStore::giveAll(Json* routes, Json* fibRoutes) {
  copyTo(routes, fibRoutes);
  entries_.clear();
}

void RouteStore::copyTo(Json* routes, Json* fibRoutes) const {
  for (const std::string& e : entries_) unpackInto(e, routes, fibRoutes);
}

}  // namespace PimSnmpd
