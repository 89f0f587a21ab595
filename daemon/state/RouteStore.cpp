#include "daemon/state/RouteStore.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <new>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "daemon/state/Description.h"
#include "daemon/state/Packed.h"

namespace PimSnmpd {

namespace {

// After the key's length and text: a byte of the parts present, the route's packed length (a
// varint) and the route when it is present, then the FIB route to the end.
constexpr uint8_t kHasRoute = 1;
constexpr uint8_t kHasFibRoute = 2;

// Writes the entry's bytes into `out` and `scratch`, both reused from entry to entry: the
// entry block copies them once, at their exact size.
void entryBytes(std::string_view key, const Json* route, const Json* fibRoute, std::string& out,
                std::string& scratch) {
  out.clear();
  Packed::putVarint(out, key.size());
  out += key;
  out.push_back(static_cast<char>((route != nullptr ? kHasRoute : 0) |
                                  (fibRoute != nullptr ? kHasFibRoute : 0)));
  if (route != nullptr) {
    scratch.clear();
    Packed::pack(Description::kRouteValue, *route, scratch);
    Packed::putVarint(out, scratch.size());
    out += scratch;
  }
  if (fibRoute != nullptr) Packed::pack(Description::kFibRouteValue, *fibRoute, out);
}

Json::object_t* objectOf(Json* j) {
  return j != nullptr && j->is_object() ? &j->get_ref<Json::object_t&>() : nullptr;
}

}  // namespace

RouteStore::RouteStore(const RouteStore& other) {
  try {
    for (const Entry& e : other.entries_) entries_.push_back(*newEntry(e.bytes()));
  } catch (...) {
    entries_.clear_and_dispose(deleteEntry);
    throw;
  }
}

RouteStore& RouteStore::operator=(RouteStore other) {
  entries_.swap(other.entries_);
  return *this;
}

RouteStore::~RouteStore() {
  entries_.clear_and_dispose(deleteEntry);
}

RouteStore::Entry* RouteStore::newEntry(std::string_view bytes) {
  if (bytes.size() > UINT32_MAX) throw std::length_error("route entry too long");
  // Where the bytes start, right after `size` (the hook makes offsetof unusable).
  static const size_t offset = [] {
    const Entry probe;
    return static_cast<size_t>(probe.data() - reinterpret_cast<const char*>(&probe));
  }();
  auto* e = new (::operator new(std::max(sizeof(Entry), offset + bytes.size()))) Entry;
  e->size = static_cast<uint32_t>(bytes.size());
  std::memcpy(const_cast<char*>(e->data()), bytes.data(), bytes.size());
  return e;
}

void RouteStore::deleteEntry(Entry* e) {
  e->~Entry();
  ::operator delete(e);
}

void RouteStore::take(Json* routes, Json* fibRoutes) {
  Json::object_t* r = objectOf(routes);
  Json::object_t* f = objectOf(fibRoutes);
  // Both objects are sorted by key: walk them side by side, pairing a key's two parts.
  auto ri = r != nullptr ? r->begin() : Json::object_t::iterator();
  auto fi = f != nullptr ? f->begin() : Json::object_t::iterator();
  const MemberNameLess less;
  auto hint = entries_.begin();
  // Kept from call to call: a feed's patch packs its one or few routes in a call of its own.
  thread_local std::string bytes;
  thread_local std::string scratch;
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
      Entries::insert_commit_data commit;
      auto [at, fresh] = entries_.insert_check(hint, key, commit);
      if (!fresh) {
        // Never meant to happen (a key is in the tree or here, not both); the tree is newer.
        hint = entries_.erase_and_dispose(at, deleteEntry);
        std::tie(at, fresh) = entries_.insert_check(hint, key, commit);
      }
      entryBytes(key, route, fibRoute, bytes, scratch);
      hint = std::next(entries_.insert_commit(*newEntry(bytes), commit));
    }
    if (rLeft && key == ri->first) ++ri;
    if (fLeft && key == fi->first) ++fi;
  }
  if (r != nullptr) clearTree(*routes);
  if (f != nullptr) clearTree(*fibRoutes);
  // A route of thousands of OIFs must not hold its size for the daemon's lifetime.
  constexpr size_t kKeep = 64 * 1024;
  if (bytes.capacity() > kKeep) std::string().swap(bytes);
  if (scratch.capacity() > kKeep) std::string().swap(scratch);
}

std::string_view RouteStore::Entry::longKey() const {
  std::string_view rest = bytes();
  const size_t n = Packed::takeVarint(rest);
  return rest.substr(0, n);
}

RouteStore::Parts RouteStore::partsOf(std::string_view e) {
  Parts p;
  std::string_view rest(e);
  const size_t n = Packed::takeVarint(rest);
  p.key = rest.substr(0, n);
  rest.remove_prefix(n);
  const auto parts = static_cast<uint8_t>(rest.front());
  rest.remove_prefix(1);
  if ((parts & kHasRoute) != 0) {
    const size_t n = Packed::takeVarint(rest);
    p.route = rest.substr(0, n);
    rest.remove_prefix(n);
  }
  if ((parts & kHasFibRoute) != 0) p.fibRoute = rest;
  return p;
}

void RouteStore::unpackInto(std::string_view e, Json* routes, Json* fibRoutes) {
  const Parts p = partsOf(e);
  if (Json::object_t* r = objectOf(routes); r != nullptr && p.route) {
    r->emplace(std::string(p.key), Packed::unpack(Description::kRouteValue, *p.route));
  }
  if (Json::object_t* f = objectOf(fibRoutes); f != nullptr && p.fibRoute) {
    f->emplace(std::string(p.key), Packed::unpack(Description::kFibRouteValue, *p.fibRoute));
  }
}

void RouteStore::give(std::string_view key, Json* routes, Json* fibRoutes) {
  auto it = entries_.find(key);
  if (it == entries_.end()) return;
  unpackInto(it->bytes(), routes, fibRoutes);
  entries_.erase_and_dispose(it, deleteEntry);
}

void RouteStore::giveAll(Json* routes, Json* fibRoutes) {
  copyTo(routes, fibRoutes);
  entries_.clear_and_dispose(deleteEntry);
}

void RouteStore::forEach(Part part,
                         const std::function<void(std::string_view, const Json&)>& f) const {
  for (const Entry& e : entries_) {
    const Parts p = partsOf(e.bytes());
    if (part == Part::route && p.route) {
      f(p.key, Packed::unpack(Description::kRouteValue, *p.route));
    } else if (part == Part::fibRoute && p.fibRoute) {
      f(p.key, Packed::unpack(Description::kFibRouteValue, *p.fibRoute));
    }
  }
}

void RouteStore::copyTo(Json* routes, Json* fibRoutes) const {
  for (const Entry& e : entries_) unpackInto(e.bytes(), routes, fibRoutes);
}

}  // namespace PimSnmpd
