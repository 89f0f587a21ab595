#include "daemon/state/Validator.h"

#include <array>
#include <bit>
#include <cmath>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "daemon/state/Description.h"
#include "daemon/state/Hint.h"
#include "daemon/state/Syntax.h"

namespace PimSnmpd {

namespace {

namespace D = Description;
using Hint::childHint;
using Hint::member;
using Hint::touched;
using Lanet::AddressFamily;
using Syntax::AddrKind;

// "'a', 'b' or 'c'", for messages.
std::string namesOf(std::span<const std::string_view> names) {
  std::string out;
  for (size_t i = 0; i < names.size(); ++i) {
    if (i > 0) out += i + 1 == names.size() ? " or " : ", ";
    out += "'" + std::string(names[i]) + "'";
  }
  return out;
}

bool oneOf(std::span<const std::string_view> names, std::string_view text) {
  for (std::string_view n : names) {
    if (n == text) return true;
  }
  return false;
}

// Walks a document along the description. Maps whose rules span all their entries
// (interfaces, OIF indexes) are checked whole when touched: they are small.
class Validator {
 public:
  Validator(const Json& root, ValidationErrors& errors, const MergeLandings* landings)
      : errors_(errors), landings_(landings), interfaces_(member(&root, "interfaces")) {
    // As deep as a document goes, in one allocation rather than one per doubling.
    path_.reserve(16);
  }

  void run(const Json& root, const Json* hint) {
    if (!root.is_object()) return typeError(root, "an object");
    object(D::kDocument, root, hint);
  }

  void finish() {
    if (dropped_ > 0) errors_.push_back({"", fmt::format("{} more errors not shown", dropped_)});
  }

 private:
  // One token of the current path: a member name (viewing the checked document, which
  // outlives the walk) or an array index.
  struct Token {
    std::string_view name;
    size_t index = 0;
    bool isIndex = false;
  };

  // Appends one token to the current path for its lifetime. The path's text is only built
  // for an error: most members pass.
  class Seg {
   public:
    Seg(Validator& v, std::string_view name) : v_(v) { v.path_.push_back({name}); }
    Seg(Validator& v, size_t index) : v_(v) { v.path_.push_back({{}, index, true}); }
    ~Seg() { v_.path_.pop_back(); }
    Seg(const Seg&) = delete;
    Seg& operator=(const Seg&) = delete;

   private:
    Validator& v_;
  };

  std::string pathText() const {
    std::string text;
    for (const Token& t : path_) {
      text += '/';
      if (t.isIndex) {
        text += std::to_string(t.index);
      } else {
        Syntax::appendPointerToken(text, t.name);
      }
    }
    return text;
  }

  void fail(std::string reason) {
    if (errors_.size() < kMaxReportedErrors) {
      errors_.push_back({pathText(), std::move(reason)});
    } else {
      ++dropped_;
    }
  }
  void failAt(std::string_view name, std::string reason) {
    Seg s(*this, name);
    fail(std::move(reason));
  }
  void typeError(const Json& v, std::string_view expected) {
    if (v.is_null()) {
      fail(fmt::format(
          "null is not a value here (in a merge patch null deletes a member); expected {}",
          expected));
    } else {
      fail(fmt::format("expected {}, found {}", expected, Syntax::typeDescription(v)));
    }
  }
  bool isObject(const Json& v) {
    if (v.is_object()) return true;
    typeError(v, "an object");
    return false;
  }
  const std::string* text(const Json& v) {
    if (v.is_string()) return &v.get_ref<const std::string&>();
    typeError(v, "a string");
    return nullptr;
  }

  // -- objects and maps

  void object(const D::Object& d, const Json& v, const Json* hint) {
    if (hint != nullptr && hint->is_object() && d.members.size() <= 64) {
      return touchedMembers(d, v, hint->get_ref<const Json::object_t&>());
    }
    allowOnly(d, v, hint);
    for (const D::Member& m : d.members) {
      if (touched(hint, m.name)) objectMember(m, v, childHint(hint, m.name));
    }
  }

  // A patch names few of an object's members: each is found in the description, instead of
  // every described member being looked up in the patch. The same checks in the same order
  // as a walk over the description: unknown members first, then the rest as described.
  void touchedMembers(const D::Object& d, const Json& v, const Json::object_t& hint) {
    uint64_t seen = 0;
    std::array<const Json*, 64> hints;
    for (const auto& [name, h] : hint) {
      const D::Member* m = d.find(name);
      if (m == nullptr) {
        if (findMember(&v, name) != nullptr) unknownMember(d, name);
        continue;
      }
      const auto i = static_cast<size_t>(m - d.members.data());
      seen |= uint64_t{1} << i;
      hints[i] = h.is_object() ? &h : nullptr;
    }
    for (; seen != 0; seen &= seen - 1) {
      const auto i = static_cast<size_t>(std::countr_zero(seen));
      objectMember(d.members[i], v, hints[i]);
    }
  }

  void objectMember(const D::Member& m, const Json& v, const Json* hint) {
    const Json* mv = findMember(&v, m.name);
    if (mv == nullptr) {
      if (m.required) failAt(m.name, "required member is missing");
      return;
    }
    Seg s(*this, m.name);
    if (m.value.type == D::Type::section) af_ = *Schema::valueOf(Schema::kFamilies, m.name);
    value(m.value, *mv, hint);
  }

  void unknownMember(const D::Object& d, std::string_view name) {
    std::string list;
    for (const D::Member& m : d.members) list += (list.empty() ? "" : ", ") + std::string(m.name);
    failAt(name, fmt::format("unknown member (allowed here: {})", list));
  }

  void allowOnly(const D::Object& d, const Json& obj, const Json* hint) {
    auto check = [&](const std::string& name) {
      if (d.find(name) == nullptr) unknownMember(d, name);
    };
    if (hint != nullptr) {
      for (const auto& [name, h] : hint->items()) {
        if (findMember(&obj, name) != nullptr) check(name);
      }
    } else {
      for (const auto& [name, v] : membersOf(obj)) check(name);
    }
  }

  void map(const D::Value& d, const Json& v, const Json* hint) {
    if (d.rule != D::Rule::none) hint = nullptr;
    std::map<uint64_t, std::string_view> seen;
    auto visit = [&](const std::string& name, const Json& entry, const Json* h) {
      Seg s(*this, name);
      key(d.key, name);
      const Json* childHint = h != nullptr && h->is_object() ? h : nullptr;
      value(*d.item, entry, childHint);
      if (d.rule != D::Rule::none) unique(d.rule, name, entry, seen);
    };
    if (hint == nullptr) {
      for (const auto& [name, entry] : membersOf(v)) visit(name, entry, nullptr);
      return;
    }
    for (const auto& [name, h] : membersOf(*hint)) {
      if (const Json* entry = landings_ != nullptr ? landings_->find(&h) : nullptr) {
        visit(name, *entry, &h);
      } else if (const Json* entry = findMember(&v, name)) {
        visit(name, *entry, &h);
      }
    }
  }

  void value(const D::Value& d, const Json& v, const Json* hint) {
    switch (d.type) {
      case D::Type::text:
        text(v);
        return;
      case D::Type::integer:
        integer(v, d.min, d.max);
        return;
      case D::Type::time:
        if (!v.is_number()) {
          typeError(v, "a time in Unix seconds");
        } else if (v.get<double>() < 0) {
          fail(fmt::format("{} is negative; times are Unix seconds", v.dump()));
        }
        return;
      case D::Type::boolean:
        if (!v.is_boolean()) typeError(v, "true or false");
        return;
      case D::Type::enumeration:
        if (const std::string* t = text(v); t != nullptr && !oneOf(d.names, *t)) {
          fail(fmt::format("'{}' is not one of {}", *t, namesOf(d.names)));
        }
        return;
      case D::Type::address:
        if (const std::string* t = text(v)) {
          std::string why;
          const auto kind = d.unspecifiedOk ? AddrKind::unicastOrUnspecified : AddrKind::unicast;
          if (!Syntax::readHostAddress(*t, af_, kind, why)) fail(why);
        }
        return;
      case D::Type::interfaceAddress:
        if (const std::string* t = text(v)) interfaceAddress(*t);
        return;
      case D::Type::interfaceRef:
        if (const std::string* t = text(v)) intfRef(*t);
        return;
      case D::Type::flags:
      case D::Type::oifs:
        stringSet(v, [&](const std::string& t) { listed(d, t); });
        return;
      case D::Type::object:
      case D::Type::section:
        if (isObject(v)) {
          if (d.type == D::Type::section) oifIndexes_ = member(member(&v, "fib"), "oifIndexes");
          object(*d.object, v, hint);
        }
        return;
      case D::Type::map:
        if (isObject(v)) map(d, v, hint);
        return;
    }
  }

  std::optional<uint64_t> integer(const Json& v, uint64_t min, uint64_t max) {
    if (!v.is_number()) {
      typeError(v, "an integer");
      return std::nullopt;
    }
    const auto u = Syntax::asUnsigned(v);
    if (!u && v.is_number_float() && std::floor(v.get<double>()) != v.get<double>()) {
      fail(fmt::format("expected an integer, found {}", v.dump()));
      return std::nullopt;
    }
    if (!u || *u < min || *u > max) {
      fail(fmt::format("{} is out of range {}..{}", v.dump(), min, max));
      return std::nullopt;
    }
    return u;
  }

  // An array of distinct strings; calls f(text) for each string.
  template <class F>
  void stringSet(const Json& v, F&& f) {
    if (!v.is_array()) return typeError(v, "an array");
    // Short arrays (a route's OIFs) are checked for repeats by comparing with the earlier
    // elements, long ones with a set.
    constexpr size_t kShort = 16;
    std::set<std::string_view> seen;
    auto repeated = [&](size_t i, std::string_view t) {
      if (v.size() > kShort) return !seen.insert(t).second;
      for (size_t j = 0; j < i; ++j) {
        if (v[j].is_string() && v[j].get_ref<const std::string&>() == t) return true;
      }
      return false;
    };
    for (size_t i = 0; i < v.size(); ++i) {
      Seg s(*this, i);
      const std::string* t = text(v[i]);
      if (t == nullptr) continue;
      if (repeated(i, *t)) {
        fail(fmt::format("'{}' is listed twice", *t));
        continue;
      }
      f(*t);
    }
  }

  // -- hooks: rules across members

  void key(D::Key k, const std::string& name) {
    std::string why;
    bool ok = true;
    switch (k) {
      case D::Key::interfaceName:
        ok = Syntax::validIntfName(name, why);
        break;
      case D::Key::interfaceRef:
        return intfRef(name);
      case D::Key::vrfName:
        ok = Syntax::validVrfName(name, why);
        vrf_ = name;
        break;
      case D::Key::routeKey:
        routeKey_ = Syntax::readRouteKey(name, af_, why);
        ok = routeKey_.has_value();
        break;
      case D::Key::groupRange: {
        const auto p = Syntax::readGroupRange(name, af_, why);
        ok = p && Syntax::canonical(name, p->toString(), why);
        break;
      }
      case D::Key::address: {
        const auto a = Syntax::readHostAddress(name, af_, AddrKind::unicast, why);
        ok = a && Syntax::canonical(name, a->toString(), why);
        break;
      }
    }
    if (!ok) fail(why);
  }

  void interfaceAddress(const std::string& t) {
    std::string why;
    const auto p = Syntax::readPrefix(t, af_, why);
    if (!p) {
      fail(why);
    } else if (p->address().isMulticast() || p->address().isUnspecified()) {
      fail(fmt::format("'{}' is not a unicast interface address", t));
    }
  }

  // A reference to an interface of /interfaces.
  void intfRef(const std::string& name) {
    if (member(interfaces_, name) == nullptr) {
      fail(fmt::format("unknown interface '{}': it is not defined in /interfaces", name));
    }
  }

  // An element of a flags or OIF list.
  void listed(const D::Value& d, const std::string& t) {
    if (d.type == D::Type::oifs) {
      if (member(oifIndexes_, t) == nullptr) {
        fail(fmt::format("interface '{}' has no OIF index in /vrfs/{}/{}/fib/oifIndexes", t,
                         pointerToken(vrf_), Syntax::familyName(af_)));
      }
    } else if (!oneOf(d.names, t)) {
      fail(fmt::format("'{}' is not one of {}", t, namesOf(d.names)));
    } else if (t == "wildcard" && routeKey_ && !routeKey_->isStarG()) {
      fail("'wildcard' marks (*,G) routes; this is an (S,G) route");
    }
  }

  void unique(D::Rule rule, const std::string& name, const Json& entry,
              std::map<uint64_t, std::string_view>& seen) {
    const bool ifIndex = rule == D::Rule::uniqueIfIndex;
    const Json* v = ifIndex ? member(&entry, "ifIndex") : &entry;
    const D::Value& d = ifIndex ? D::kInterface.find("ifIndex")->value : D::kOifIndexValue;
    const auto n = v != nullptr && v->is_number() ? Syntax::asUnsigned(*v) : std::nullopt;
    if (!n || *n < d.min || *n > d.max) return;  // reported as a value
    auto [it, fresh] = seen.emplace(*n, name);
    if (fresh) return;
    if (ifIndex) {
      failAt("ifIndex", fmt::format("ifIndex {} is also the ifIndex of '{}'", *n, it->second));
    } else {
      fail(fmt::format("OIF index {} is also the index of '{}'", *n, it->second));
    }
  }

  ValidationErrors& errors_;
  const MergeLandings* landings_;
  // /interfaces, which every interface reference is checked against.
  const Json* interfaces_;
  size_t dropped_ = 0;
  std::vector<Token> path_;
  // The section being checked, its FIB's OIF map and the route being checked.
  std::string vrf_;
  AddressFamily af_ = AddressFamily::unknown;
  const Json* oifIndexes_ = nullptr;
  std::optional<Routing::Pim::RouteKey> routeKey_;
};

}  // namespace

void validateTouched(const Json& root, const Json* hint, const MergeLandings* landings,
                     ValidationErrors& errors) {
  Validator v(root, errors, landings);
  v.run(root, hint);
  v.finish();
}

ValidationErrors validate(const Json& doc) {
  ValidationErrors errors;
  validateTouched(doc, nullptr, nullptr, errors);
  return errors;
}

}  // namespace PimSnmpd
