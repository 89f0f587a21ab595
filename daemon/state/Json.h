#pragma once

// The JSON value type of pimsnmpd: nlohmann::json, except for how objects order their members.

#include <cstddef>
#include <cstdint>
#include <map>
#include <string_view>

#include <nlohmann/json.hpp>

#include "platform/Lanet/ByteOrder.h"

namespace PimSnmpd {

namespace detail {

// The first `n` bytes of two names compared as unsigned bytes, eight at a time inline: negative,
// zero or positive.
[[gnu::always_inline]] inline int compareNameBytes(const char* a, const char* b,
                                                   size_t n) noexcept {
  const auto* pa = reinterpret_cast<const uint8_t*>(a);
  const auto* pb = reinterpret_cast<const uint8_t*>(b);
  size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    const uint64_t x = Lanet::detail::loadBe64(pa + i);
    const uint64_t y = Lanet::detail::loadBe64(pb + i);
    if (x != y) return x < y ? -1 : 1;
  }
  for (; i < n; ++i) {
    if (pa[i] != pb[i]) return pa[i] < pb[i] ? -1 : 1;
  }
  return 0;
}

}  // namespace detail

// Orders member names exactly as std::string's operator< does (bytewise, unsigned; a prefix
// first) but without a library call. A feed patch's route is looked up by its key in maps of
// 100k members a few times over; the library call per comparison was the daemon's largest
// single cost.
struct MemberNameLess {
  using is_transparent = void;

  bool operator()(std::string_view a, std::string_view b) const noexcept {
    const size_t n = a.size() < b.size() ? a.size() : b.size();
    const int c = detail::compareNameBytes(a.data(), b.data(), n);
    return c != 0 ? c < 0 : a.size() < b.size();
  }
};

// Whether two member names are equal, inline: the library call costs more than the few bytes of
// a name.
inline bool sameMemberName(std::string_view a, std::string_view b) noexcept {
  return a.size() == b.size() && detail::compareNameBytes(a.data(), b.data(), a.size()) == 0;
}

template <class Key, class T, class IgnoredLess, class Allocator>
using JsonObjectMap = std::map<Key, T, MemberNameLess, Allocator>;

using Json = nlohmann::basic_json<JsonObjectMap>;

inline constexpr size_t kFewMembers = 4;

// The members of object `obj`, to loop over (none when it is not an object): items() builds two
// strings for every loop, and get_ref's type check is an out-of-line call with a throw path.
// These readers run by the hundred per patch.
inline const Json::object_t& membersOf(const Json& obj) {
  static const Json::object_t kNone;
  const Json::object_t* members = obj.get_ptr<const Json::object_t*>();
  return members != nullptr ? *members : kNone;
}
inline Json::object_t& membersOf(Json& obj) {
  // Nothing is ever inserted through this one: callers loop over it.
  static Json::object_t none;
  Json::object_t* members = obj.get_ptr<Json::object_t*>();
  return members != nullptr ? *members : none;
}

// The value of member `name` of `obj` (null values included), or null when `obj` is not an
// object or has no such member. Searches the object's map directly: nlohmann's find() and its
// iterators cost as much again as the search, on walks that look members up by the thousand.
inline const Json* findMember(const Json* obj, std::string_view name) {
  const Json::object_t* found = obj != nullptr ? obj->get_ptr<const Json::object_t*>() : nullptr;
  if (found == nullptr) return nullptr;
  const Json::object_t& members = *found;
  // A hint or a record has a few members: comparing lengths first rejects most names at once,
  // where each step of a search compares bytes.
  if (members.size() <= kFewMembers) {
    for (const auto& [key, value] : members) {
      if (sameMemberName(key, name)) return &value;
    }
    return nullptr;
  }
  auto it = members.find(name);
  return it == members.end() ? nullptr : &it->second;
}

// Empties `v` (an object or an array) depth first and leaves it empty. nlohmann's destructor
// moves a tree onto a heap-allocated stack to bound its recursion on any input; the trees this
// daemon frees are at most kMaxDepth deep (the parser refuses deeper text), and freeing them
// child first costs less than half as much. Deeper levels, if any, take the library's way.
inline void clearTree(Json& v, int depth = 0) {
  constexpr int kMaxDepth = 64;
  if (v.is_object()) {
    Json::object_t& members = v.get_ref<Json::object_t&>();
    if (depth < kMaxDepth) {
      for (auto& [name, child] : members) clearTree(child, depth + 1);
    }
    members.clear();
  } else if (v.is_array()) {
    Json::array_t& items = v.get_ref<Json::array_t&>();
    if (depth < kMaxDepth) {
      for (Json& item : items) clearTree(item, depth + 1);
    }
    items.clear();
  }
}

// Frees a tree the clearTree way when the scope that owns it ends, on every way out.
class ClearTreeOnExit {
 public:
  explicit ClearTreeOnExit(Json& v) : v_(v) {}
  ~ClearTreeOnExit() { clearTree(v_); }
  ClearTreeOnExit(const ClearTreeOnExit&) = delete;
  ClearTreeOnExit& operator=(const ClearTreeOnExit&) = delete;

 private:
  Json& v_;
};

}  // namespace PimSnmpd
