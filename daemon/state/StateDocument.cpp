#include "daemon/state/StateDocument.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <limits>
#include <set>
#include <utility>

#include <fmt/format.h>
#include <rapidjson/error/en.h>
#include <rapidjson/reader.h>

#include "daemon/state/DocumentSchema.h"
#include "daemon/state/MergePatch.h"
#include "platform/L3/VrfName.h"
#include "platform/Lanet/IpGenAddr.h"
#include "platform/Lanet/IpGenPrefix.h"
#include "platform/Shtab/Multicast/Fib/OifIndex.h"

namespace PimSnmpd {

using Lanet::AddressFamily;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;

std::string ValidationError::toString() const {
  return (path.empty() ? std::string("(document)") : path) + ": " + reason;
}

namespace {

// Appends the escaped token to `out`, without a temporary string.
void appendPointerToken(std::string& out, std::string_view name) {
  size_t from = 0;
  for (size_t i = 0; i < name.size(); ++i) {
    if (name[i] != '~' && name[i] != '/') continue;
    out.append(name.substr(from, i - from));
    out += name[i] == '~' ? "~0" : "~1";
    from = i + 1;
  }
  out.append(name.substr(from));
}

}  // namespace

std::string pointerToken(std::string_view name) {
  std::string out;
  appendPointerToken(out, name);
  return out;
}

namespace {

// ---------------------------------------------------------------------------------------------
// Parsing

// Builds the document tree from RapidJSON's SAX reader, whose tokenizer is several times
// faster than nlohmann's (a feed of routes is mostly text to scan), and refuses duplicate
// member names and excessive nesting, which a plain parse silently accepts.
class DomBuilder : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, DomBuilder> {
 public:
  explicit DomBuilder(ValidationErrors& errors) : errors_(errors) {}

  Json& root() { return root_; }
  // Whether the builder itself stopped the parse (its reason is in the errors).
  bool refused() const { return refused_; }

  bool Null() { return value(Json()); }
  bool Bool(bool v) { return value(Json(v)); }
  // Non-negative integers arrive as unsigned, negative ones as signed: nlohmann's own typing.
  bool Int(int v) { return value(Json(static_cast<Json::number_integer_t>(v))); }
  bool Uint(unsigned v) { return value(Json(static_cast<Json::number_unsigned_t>(v))); }
  bool Int64(int64_t v) { return value(Json(static_cast<Json::number_integer_t>(v))); }
  bool Uint64(uint64_t v) { return value(Json(static_cast<Json::number_unsigned_t>(v))); }
  bool Double(double v) { return value(Json(v)); }
  bool String(const char* text, rapidjson::SizeType length, bool) {
    return value(Json(std::string(text, length)));
  }

  bool StartObject() { return open(Json::object()); }
  bool EndObject(rapidjson::SizeType) { return close(); }
  bool StartArray() { return open(Json::array()); }
  bool EndArray(rapidjson::SizeType) { return close(); }

  bool Key(const char* text, rapidjson::SizeType length, bool) {
    // One descent places the member; a duplicate's later value replaces the earlier one, and
    // the error refuses the text anyway.
    Frame& f = stack_.back();
    auto [it, inserted] = f.node->get_ref<Json::object_t&>().try_emplace(std::string(text, length));
    f.member = &*it;
    if (!inserted) errors_.push_back({currentPath(), "duplicate member name"});
    return true;
  }

 private:
  struct Frame {
    Json* node;
    // The member being read, in an object (map nodes stay put while the object grows).
    Json::object_t::value_type* member = nullptr;
  };

  // The pointer of the value being read; only built for messages.
  std::string currentPath() const {
    std::string path;
    for (const Frame& f : stack_) {
      path += '/';
      if (f.node->is_array()) {
        path += std::to_string(f.node->size() - 1);
      } else if (f.member != nullptr) {
        appendPointerToken(path, f.member->first);
      }
    }
    return path;
  }

  // Where the next value goes.
  Json* slot() {
    if (stack_.empty()) return &root_;
    Frame& f = stack_.back();
    if (f.node->is_array()) {
      f.node->push_back(Json());
      return &f.node->back();
    }
    return &f.member->second;
  }

  bool value(Json v) {
    *slot() = std::move(v);
    return true;
  }

  bool open(Json container) {
    Json* node = slot();
    if (stack_.size() >= kMaxJsonDepth) {
      errors_.push_back(
          {currentPath(), fmt::format("nesting deeper than {} levels", kMaxJsonDepth)});
      refused_ = true;
      return false;
    }
    *node = std::move(container);
    stack_.push_back({node});
    return true;
  }

  bool close() {
    stack_.pop_back();
    return true;
  }

  bool refused_ = false;
  ValidationErrors& errors_;
  Json root_;
  std::vector<Frame> stack_;
};

// ---------------------------------------------------------------------------------------------
// Small readers shared by the validator and the reference counter

// `obj[name]` when `obj` is an object holding a non-null `name`.
const Json* member(const Json* obj, std::string_view name) {
  if (obj == nullptr || !obj->is_object()) return nullptr;
  auto it = obj->find(name);
  return it == obj->end() || it->is_null() ? nullptr : &*it;
}

// Whether a walk restricted by `hint` (a merge patch; null: no restriction) visits `name`.
bool touched(const Json* hint, std::string_view name) {
  return hint == nullptr || hint->contains(name);
}

// The hint for the subtree under `name`: the patch's object there, or null (visit everything)
// when the patch replaces the subtree as a whole.
const Json* childHint(const Json* hint, std::string_view name) {
  const Json* h = member(hint, name);
  return h != nullptr && h->is_object() ? h : nullptr;
}

// Calls f(name, value, childHint) for the members of object `obj` the hint touches (all of
// them without a hint); null values count as absent.
template <class F>
void forEachTouched(const MergeLandings* landings, const Json* obj, const Json* hint, F&& f) {
  if (obj == nullptr || !obj->is_object()) return;
  if (hint != nullptr) {
    for (const auto& [name, h] : hint->items()) {
      const Json* v = landedMember(obj, name, &h, landings);
      if (v != nullptr) f(name, *v, h.is_object() ? &h : nullptr);
    }
    return;
  }
  for (const auto& [name, v] : obj->items()) {
    if (!v.is_null()) f(name, v, static_cast<const Json*>(nullptr));
  }
}

std::string_view familyName(AddressFamily af) {
  return Lanet::toString(af);
}

std::string_view familyLabel(AddressFamily af) {
  return af == AddressFamily::ipv4 ? "IPv4" : af == AddressFamily::ipv6 ? "IPv6" : "unknown";
}

std::optional<uint64_t> asUnsigned(const Json& v) {
  if (v.is_number_unsigned()) return v.get<uint64_t>();
  if (v.is_number_integer()) {
    const int64_t i = v.get<int64_t>();
    if (i < 0) return std::nullopt;
    return static_cast<uint64_t>(i);
  }
  if (v.is_number_float()) {
    const double d = v.get<double>();
    // An integral float below 2^64 (1.0 is an integer to JSON Schema as well).
    if (d >= 0 && d < 18446744073709551616.0 && std::floor(d) == d) {
      return static_cast<uint64_t>(d);
    }
  }
  return std::nullopt;
}

std::string typeDescription(const Json& v) {
  switch (v.type()) {
    case Json::value_t::null:
      return "null";
    case Json::value_t::object:
      return "an object";
    case Json::value_t::array:
      return "an array";
    case Json::value_t::string:
      return "a string";
    case Json::value_t::boolean:
      return "a boolean";
    case Json::value_t::number_integer:
    case Json::value_t::number_unsigned:
      return "an integer";
    case Json::value_t::number_float:
      return "a number";
    default:
      return "a binary value";
  }
}

// ---------------------------------------------------------------------------------------------
// Address, prefix and key syntax

enum class AddrKind {
  unicast,  // a host address: neither multicast nor unspecified
  unicastOrUnspecified,
};

// Parses an address of family `af`; on failure returns the reason.
std::optional<IpGenAddr> readAddress(std::string_view text, AddressFamily af, std::string& why) {
  const auto a = IpGenAddr::parse(text);
  if (!a || a->af() == AddressFamily::unknown) {
    why = fmt::format("'{}' is not an IP address", text);
    return std::nullopt;
  }
  if (a->af() != af) {
    why = fmt::format("'{}' is an {} address, but this is the {} section", text,
                      familyLabel(a->af()), familyName(af));
    return std::nullopt;
  }
  return a;
}

std::optional<IpGenAddr> readHostAddress(std::string_view text, AddressFamily af, AddrKind kind,
                                         std::string& why) {
  auto a = readAddress(text, af, why);
  if (!a) return std::nullopt;
  if (a->isMulticast()) {
    why = fmt::format("'{}' is a multicast address; a unicast address is needed", text);
    return std::nullopt;
  }
  if (kind == AddrKind::unicast && a->isUnspecified()) {
    why = fmt::format("'{}' is the unspecified address; a unicast address is needed", text);
    return std::nullopt;
  }
  return a;
}

std::optional<IpGenPrefix> readPrefix(std::string_view text, AddressFamily af, std::string& why) {
  const auto p = IpGenPrefix::parse(text);
  if (!p || p->af() == AddressFamily::unknown) {
    why = fmt::format("'{}' is not an address with a prefix length (like '{}')", text,
                      af == AddressFamily::ipv6 ? "ff00::/8" : "224.0.0.0/4");
    return std::nullopt;
  }
  if (p->af() != af) {
    why = fmt::format("'{}' is an {} prefix, but this is the {} section", text,
                      familyLabel(p->af()), familyName(af));
    return std::nullopt;
  }
  // "/024" parses as 24; like addresses, lengths are written without leading zeros.
  const std::string_view length = text.substr(text.rfind('/') + 1);
  if (length.size() > 1 && length.front() == '0') {
    why = fmt::format("'{}' is not in canonical form; write '{}/{}'", text,
                      text.substr(0, text.rfind('/')), p->maskLen());
    return std::nullopt;
  }
  return p;
}

// A multicast group range with no host bits, as the group ranges of BSR and RP records are.
std::optional<IpGenPrefix> readGroupRange(std::string_view text, AddressFamily af,
                                          std::string& why) {
  auto p = readPrefix(text, af, why);
  if (!p) return std::nullopt;
  const uint8_t minLen = af == AddressFamily::ipv4 ? 4 : 8;
  if (!p->address().isMulticast() || p->maskLen() < minLen) {
    why = fmt::format("'{}' is not a multicast group range (within {})", text,
                      af == AddressFamily::ipv4 ? "224.0.0.0/4" : "ff00::/8");
    return std::nullopt;
  }
  if (!(p->masked() == *p)) {
    why = fmt::format("'{}' has host bits set; write '{}'", text, p->masked().toString());
    return std::nullopt;
  }
  return p;
}

// Member names that are addresses or prefixes must be written canonically, so that two
// spellings of one key cannot both occur in one map.
bool canonical(std::string_view text, const std::string& canonicalText, std::string& why) {
  if (text == canonicalText) return true;
  why = fmt::format("'{}' is not in canonical form; write '{}'", text, canonicalText);
  return false;
}

std::optional<Routing::Pim::RouteKey> readRouteKey(std::string_view text, AddressFamily af,
                                                   std::string& why) {
  const size_t comma = text.find(',');
  if (comma == std::string_view::npos || text.find(',', comma + 1) != std::string_view::npos) {
    why = fmt::format("'{}' is not a route key: write 'S,G' or '*,G'", text);
    return std::nullopt;
  }
  const std::string_view sourceText = text.substr(0, comma);
  const std::string_view groupText = text.substr(comma + 1);
  const auto group = readAddress(groupText, af, why);
  if (!group) return std::nullopt;
  if (!group->isMulticast()) {
    why = fmt::format("group '{}' is not a multicast address", groupText);
    return std::nullopt;
  }
  Routing::Pim::RouteKey key = Routing::Pim::RouteKey::starG(*group);
  if (sourceText != "*") {
    const auto source = readAddress(sourceText, af, why);
    if (!source) return std::nullopt;
    if (source->isMulticast() || source->isUnspecified()) {
      why = fmt::format("source '{}' is not a unicast address (write '*' for any source)",
                        sourceText);
      return std::nullopt;
    }
    key.source = *source;
  }
  // The IPv4 parser admits only the canonical dotted quad (no leading zeros), so only IPv6 text
  // can differ from its canonical form.
  if (af != AddressFamily::ipv4 && !canonical(text, routeKeyText(key), why)) return std::nullopt;
  return key;
}

// The offset of the first control character of `name` (a byte up to `highest`, DEL, or a C1
// control U+0080..U+009F, which UTF-8 writes as 0xC2 0x80..0x9F); the text is valid UTF-8.
std::optional<size_t> controlCharacter(std::string_view name, char highest) {
  for (size_t i = 0; i < name.size(); ++i) {
    const auto c = static_cast<unsigned char>(name[i]);
    if (c <= static_cast<unsigned char>(highest) || c == 0x7f) return i;
    if (c == 0xc2 && i + 1 < name.size() && static_cast<unsigned char>(name[i + 1]) <= 0x9f) {
      return i;
    }
  }
  return std::nullopt;
}

bool validIntfName(std::string_view name, std::string& why) {
  if (name.empty() || name.size() > Schema::kMaxIntfNameLen) {
    why = fmt::format("interface names are 1 to {} bytes long", Schema::kMaxIntfNameLen);
    return false;
  }
  if (const auto at = controlCharacter(name, ' ')) {
    why = fmt::format("interface names contain no spaces or control characters (byte {})", *at);
    return false;
  }
  return true;
}

bool validVrfName(std::string_view name, std::string& why) {
  if (name.empty()) {
    why = "VRF names are not empty";
    return false;
  }
  if (name.size() > Schema::kMaxVrfNameLen) {
    why = fmt::format(
        "VRF name is {} bytes long; at most {} are allowed (the VRF is served in the SNMP "
        "context of its name, and SNMP context names hold at most {} bytes)",
        name.size(), Schema::kMaxVrfNameLen, Schema::kMaxVrfNameLen);
    return false;
  }
  if (const auto at = controlCharacter(name, '\x1f')) {
    why = fmt::format("VRF names contain no control characters (byte {})", *at);
    return false;
  }
  return true;
}

// ---------------------------------------------------------------------------------------------
// Validation

// Checks a document, or with a hint (a merge patch applied to it) only the subtrees the patch
// touched. Interfaces and FIB OIF maps are always checked whole when touched: their
// uniqueness rules span all their entries, and they are small.
class Validator {
 public:
  Validator(const Json& root, ValidationErrors& errors, const MergeLandings* landings = nullptr)
      : root_(root),
        errors_(errors),
        landings_(landings),
        interfaces_(member(&root, "interfaces")) {}

  void run(const Json* hint) {
    if (!root_.is_object()) {
      typeError(root_, "an object");
      return;
    }
    allowOnly(root_, hint, {"$schema", "interfaces", "vrfs"});
    if (const Json* v = touchedMember(root_, hint, "$schema")) {
      Seg s(*this, "$schema");
      if (!v->is_string()) typeError(*v, "a string");
    }
    if (const Json* v = touchedMember(root_, hint, "interfaces")) {
      Seg s(*this, "interfaces");
      interfaces(*v);
    }
    if (const Json* v = touchedMember(root_, hint, "vrfs")) {
      Seg s(*this, "vrfs");
      vrfs(*v, childHint(hint, "vrfs"));
    }
  }

  void finish() {
    if (dropped_ > 0) {
      errors_.push_back({"", fmt::format("{} more errors not shown", dropped_)});
    }
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
        appendPointerToken(text, t.name);
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
      fail(
          fmt::format("null is not a value here (in a merge patch null deletes a member); "
                      "expected {}",
                      expected));
    } else {
      fail(fmt::format("expected {}, found {}", expected, typeDescription(v)));
    }
  }

  // `obj[name]` if the hint touches it and it is there (null included: it is an error).
  static const Json* touchedMember(const Json& obj, const Json* hint, std::string_view name) {
    if (!touched(hint, name)) return nullptr;
    auto it = obj.find(name);
    return it == obj.end() ? nullptr : &*it;
  }

  bool isObject(const Json& v) {
    if (v.is_object()) return true;
    typeError(v, "an object");
    return false;
  }

  void allowOnly(const Json& obj, const Json* hint, std::initializer_list<std::string_view> names) {
    auto check = [&](const std::string& name) {
      for (std::string_view n : names) {
        if (n == name) return;
      }
      std::string list;
      for (std::string_view n : names) list += (list.empty() ? "" : ", ") + std::string(n);
      failAt(name, fmt::format("unknown member (allowed here: {})", list));
    };
    if (hint != nullptr) {
      for (const auto& [name, h] : hint->items()) {
        if (obj.contains(name)) check(name);
      }
    } else {
      for (const auto& [name, v] : obj.items()) check(name);
    }
  }

  // Checks that a required member is there (a patch can only remove it by touching it).
  void require(const Json& obj, const Json* hint, std::string_view name) {
    if (touched(hint, name) && !obj.contains(name)) {
      failAt(name, "required member is missing");
    }
  }

  // The members of map `obj` to check: all, or those the hint names that are still there.
  template <class F>
  void entries(const Json& obj, const Json* hint, F&& f) {
    auto visit = [&](const std::string& name, const Json& v, const Json* h) {
      Seg s(*this, name);
      f(name, v, h != nullptr && h->is_object() ? h : nullptr);
    };
    if (hint != nullptr) {
      for (const auto& [name, h] : hint->items()) {
        if (const Json* v = landings_ != nullptr ? landings_->find(&h) : nullptr) {
          visit(name, *v, &h);
        } else if (auto it = obj.find(name); it != obj.end()) {
          visit(name, *it, &h);
        }
      }
    } else {
      for (const auto& [name, v] : obj.items()) visit(name, v, nullptr);
    }
  }

  std::optional<uint64_t> integer(const Json& v, uint64_t min, uint64_t max) {
    if (!v.is_number()) {
      typeError(v, "an integer");
      return std::nullopt;
    }
    const auto u = asUnsigned(v);
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
  void integerMember(const Json& obj, const Json* hint, std::string_view name, uint64_t min,
                     uint64_t max) {
    if (const Json* v = touchedMember(obj, hint, name)) {
      Seg s(*this, name);
      integer(*v, min, max);
    }
  }
  void timeMember(const Json& obj, const Json* hint, std::string_view name) {
    if (const Json* v = touchedMember(obj, hint, name)) {
      Seg s(*this, name);
      if (!v->is_number()) {
        typeError(*v, "a time in Unix seconds");
      } else if (v->get<double>() < 0) {
        fail(fmt::format("{} is negative; times are Unix seconds", v->dump()));
      }
    }
  }
  void boolMember(const Json& obj, const Json* hint, std::string_view name) {
    if (const Json* v = touchedMember(obj, hint, name)) {
      Seg s(*this, name);
      if (!v->is_boolean()) typeError(*v, "true or false");
    }
  }
  template <class T, size_t N>
  void enumMember(const Json& obj, const Json* hint, std::string_view name,
                  const Schema::Named<T> (&table)[N]) {
    if (const Json* v = touchedMember(obj, hint, name)) {
      Seg s(*this, name);
      if (!v->is_string()) {
        typeError(*v, "a string");
      } else if (!Schema::valueOf(table, v->get_ref<const std::string&>())) {
        fail(fmt::format("'{}' is not one of {}", v->get_ref<const std::string&>(),
                         Schema::namesOf(table)));
      }
    }
  }
  const std::string* stringMember(const Json& obj, const Json* hint, std::string_view name) {
    const Json* v = touchedMember(obj, hint, name);
    if (v == nullptr) return nullptr;
    if (!v->is_string()) {
      failAt(name, v->is_null() ? "null is not a value here"
                                : "expected a string, found " + typeDescription(*v));
      return nullptr;
    }
    return &v->get_ref<const std::string&>();
  }
  void addressMember(const Json& obj, const Json* hint, std::string_view name, AddrKind kind) {
    if (const std::string* text = stringMember(obj, hint, name)) {
      std::string why;
      if (!readHostAddress(*text, af_, kind, why)) failAt(name, why);
    }
  }

  // A reference to an interface of /interfaces.
  void intfRef(const std::string& name) {
    if (member(interfaces_, name) == nullptr) {
      fail(fmt::format("unknown interface '{}': it is not defined in /interfaces", name));
    }
  }
  void intfRefMember(const Json& obj, const Json* hint, std::string_view name) {
    if (const std::string* text = stringMember(obj, hint, name)) {
      Seg s(*this, name);
      intfRef(*text);
    }
  }

  // -- /interfaces

  void interfaces(const Json& v) {
    if (!isObject(v)) return;
    std::map<uint64_t, std::string> byIfIndex;
    for (const auto& [name, intf] : v.items()) {
      Seg s(*this, name);
      std::string why;
      if (!validIntfName(name, why)) fail(why);
      if (!isObject(intf)) continue;
      allowOnly(intf, nullptr, {"ifIndex", "operStatus"});
      require(intf, nullptr, "ifIndex");
      if (const Json* ifIndex = touchedMember(intf, nullptr, "ifIndex")) {
        Seg s2(*this, "ifIndex");
        if (auto i = integer(*ifIndex, 1, Schema::kMaxIfIndex)) {
          auto [it, fresh] = byIfIndex.emplace(*i, name);
          if (!fresh) fail(fmt::format("ifIndex {} is also the ifIndex of '{}'", *i, it->second));
        }
      }
      enumMember(intf, nullptr, "operStatus", Schema::kOperStatuses);
    }
  }

  // -- /vrfs

  void vrfs(const Json& v, const Json* hint) {
    if (!isObject(v)) return;
    entries(v, hint, [&](const std::string& name, const Json& vrf, const Json* h) {
      std::string why;
      if (!validVrfName(name, why)) fail(why);
      if (!isObject(vrf)) return;
      allowOnly(vrf, h, {"ipv4", "ipv6"});
      vrf_ = name;
      for (const auto& [familyName, af] : Schema::kFamilies) {
        if (const Json* f = touchedMember(vrf, h, familyName)) {
          Seg s(*this, familyName);
          af_ = af;
          family(*f, childHint(h, familyName));
        }
      }
    });
  }

  void family(const Json& v, const Json* hint) {
    if (!isObject(v)) return;
    allowOnly(v, hint,
              {"pimConfig", "pimStatus", "bsrConfig", "bsrStatus", "candidateRpStatus",
               "staticRpStatus", "mfibConfig", "routes", "fib"});
    using Check = void (Validator::*)(const Json&, const Json*);
    static constexpr std::pair<std::string_view, Check> kMembers[] = {
        {"pimConfig", &Validator::pimConfig},
        {"pimStatus", &Validator::pimStatus},
        {"bsrConfig", &Validator::bsrConfig},
        {"bsrStatus", &Validator::bsrStatus},
        {"candidateRpStatus", &Validator::rpStatus},
        {"staticRpStatus", &Validator::rpStatus},
        {"mfibConfig", &Validator::mfibConfig},
        {"routes", &Validator::routes},
        {"fib", &Validator::fib},
    };
    for (const auto& [name, check] : kMembers) {
      if (const Json* m = touchedMember(v, hint, name)) {
        Seg s(*this, name);
        if (isObject(*m)) (this->*check)(*m, childHint(hint, name));
      }
    }
  }

  void pimConfig(const Json& v, const Json* hint) {
    allowOnly(v, hint, {"joinPruneInterval"});
    integerMember(v, hint, "joinPruneInterval", 0, 65535);
  }

  void pimStatus(const Json& v, const Json* hint) {
    allowOnly(v, hint, {"mode", "interfaces"});
    enumMember(v, hint, "mode", Schema::kVrfModes);
    const Json* ifs = touchedMember(v, hint, "interfaces");
    if (ifs == nullptr) return;
    Seg s(*this, "interfaces");
    if (!isObject(*ifs)) return;
    entries(*ifs, childHint(hint, "interfaces"),
            [&](const std::string& name, const Json& intf, const Json* h) {
              intfRef(name);
              if (isObject(intf)) pimIntf(intf, h);
            });
  }

  void pimIntf(const Json& v, const Json* hint) {
    allowOnly(v, hint,
              {"address", "mode", "dr", "helloInterval", "joinPruneInterval", "neighbors"});
    require(v, hint, "address");
    if (const std::string* text = stringMember(v, hint, "address")) {
      std::string why;
      const auto p = readPrefix(*text, af_, why);
      if (!p) {
        failAt("address", why);
      } else if (p->address().isMulticast() || p->address().isUnspecified()) {
        failAt("address", fmt::format("'{}' is not a unicast interface address", *text));
      }
    }
    enumMember(v, hint, "mode", Schema::kIntfModes);
    addressMember(v, hint, "dr", AddrKind::unicastOrUnspecified);
    integerMember(v, hint, "helloInterval", 0, 65535);
    integerMember(v, hint, "joinPruneInterval", 0, 65535);
    const Json* nbrs = touchedMember(v, hint, "neighbors");
    if (nbrs == nullptr) return;
    Seg s(*this, "neighbors");
    if (!isObject(*nbrs)) return;
    entries(*nbrs, childHint(hint, "neighbors"),
            [&](const std::string& name, const Json& nbr, const Json* h) {
              std::string why;
              const auto a = readHostAddress(name, af_, AddrKind::unicast, why);
              if (!a || !canonical(name, a->toString(), why)) fail(why);
              if (!isObject(nbr)) return;
              allowOnly(nbr, h, {"created", "lastRefresh", "holdTime"});
              timeMember(nbr, h, "created");
              timeMember(nbr, h, "lastRefresh");
              integerMember(nbr, h, "holdTime", 0, 65535);
            });
  }

  void bsrConfig(const Json& v, const Json* hint) {
    allowOnly(v, hint, {"bootstrapTimeout", "candidateRpConfigs"});
    integerMember(v, hint, "bootstrapTimeout", 0, std::numeric_limits<uint32_t>::max());
    integerMember(v, hint, "candidateRpConfigs", 0, std::numeric_limits<uint32_t>::max());
  }

  // A map keyed by group range.
  template <class F>
  void groupRanges(const Json& obj, const Json* hint, std::string_view name, F&& f) {
    const Json* m = touchedMember(obj, hint, name);
    if (m == nullptr) return;
    Seg s(*this, name);
    if (!isObject(*m)) return;
    entries(*m, childHint(hint, name), [&](const std::string& key, const Json& v, const Json* h) {
      std::string why;
      if (!readGroupRange(key, af_, why) ||
          !canonical(key, IpGenPrefix::parse(key)->toString(), why)) {
        fail(why);
      }
      if (isObject(v)) f(v, h);
    });
  }

  void bsrStatus(const Json& v, const Json* hint) {
    allowOnly(v, hint, {"candidateBsrs", "electedBsrs", "candidateRps"});
    groupRanges(v, hint, "candidateBsrs", [&](const Json& cbsr, const Json* h) {
      allowOnly(cbsr, h, {"interface", "priority"});
      require(cbsr, h, "interface");
      intfRefMember(cbsr, h, "interface");
      integerMember(cbsr, h, "priority", 0, Schema::kMaxCbsrPriority);
    });
    groupRanges(v, hint, "electedBsrs", [&](const Json& bsr, const Json* h) {
      allowOnly(bsr, h, {"address"});
      require(bsr, h, "address");
      addressMember(bsr, h, "address", AddrKind::unicast);
    });
    const Json* crps = touchedMember(v, hint, "candidateRps");
    if (crps == nullptr) return;
    Seg s(*this, "candidateRps");
    if (!isObject(*crps)) return;
    entries(*crps, childHint(hint, "candidateRps"),
            [&](const std::string& name, const Json& crp, const Json* h) {
              std::string why;
              const auto a = readHostAddress(name, af_, AddrKind::unicast, why);
              if (!a || !canonical(name, a->toString(), why)) fail(why);
              if (isObject(crp)) allowOnly(crp, h, {});
            });
  }

  void rpStatus(const Json& v, const Json* hint) {
    allowOnly(v, hint, {"rpType", "groups"});
    enumMember(v, hint, "rpType", Schema::kRpTypes);
    groupRanges(v, hint, "groups", [&](const Json& rps, const Json* h) {
      entries(rps, h, [&](const std::string& name, const Json& rp, const Json* rh) {
        std::string why;
        const auto a = readHostAddress(name, af_, AddrKind::unicast, why);
        if (!a || !canonical(name, a->toString(), why)) fail(why);
        if (!isObject(rp)) return;
        allowOnly(rp, rh, {"holdTime", "expiry"});
        integerMember(rp, rh, "holdTime", 0, std::numeric_limits<uint32_t>::max());
        timeMember(rp, rh, "expiry");
      });
    });
  }

  void mfibConfig(const Json& v, const Json* hint) {
    allowOnly(v, hint, {"routing"});
    boolMember(v, hint, "routing");
  }

  // A route map; returns nothing, reports per key.
  template <class F>
  void routeMap(const Json& v, const Json* hint, F&& f) {
    entries(v, hint, [&](const std::string& name, const Json& route, const Json* h) {
      std::string why;
      const auto key = readRouteKey(name, af_, why);
      if (!key) fail(why);
      if (isObject(route)) f(key, route, h);
    });
  }

  // An array of distinct strings; calls f(index, text) for each string.
  template <class F>
  void stringSet(const Json& v, F&& f) {
    if (!v.is_array()) {
      typeError(v, "an array");
      return;
    }
    // Short arrays (a route's OIFs) are checked for repeats by comparing with the earlier
    // elements, long ones with a set.
    constexpr size_t kShort = 16;
    std::set<std::string_view> seen;
    auto repeated = [&](size_t i, std::string_view text) {
      if (v.size() > kShort) return !seen.insert(text).second;
      for (size_t j = 0; j < i; ++j) {
        if (v[j].is_string() && v[j].get_ref<const std::string&>() == text) return true;
      }
      return false;
    };
    for (size_t i = 0; i < v.size(); ++i) {
      Seg s(*this, i);
      if (!v[i].is_string()) {
        typeError(v[i], "a string");
        continue;
      }
      const std::string& text = v[i].get_ref<const std::string&>();
      if (repeated(i, text)) {
        fail(fmt::format("'{}' is listed twice", text));
        continue;
      }
      f(text);
    }
  }

  void routes(const Json& v, const Json* hint) {
    routeMap(v, hint, [&](const auto& key, const Json& route, const Json* h) {
      allowOnly(route, h, {"created", "upstream", "flags", "interfaces"});
      timeMember(route, h, "created");
      if (const Json* up = touchedMember(route, h, "upstream")) {
        Seg s(*this, "upstream");
        if (isObject(*up)) {
          const Json* uh = childHint(h, "upstream");
          allowOnly(*up, uh, {"interface", "rpfNeighbor"});
          require(*up, uh, "interface");
          intfRefMember(*up, uh, "interface");
          addressMember(*up, uh, "rpfNeighbor", AddrKind::unicastOrUnspecified);
        }
      }
      if (const Json* flags = touchedMember(route, h, "flags")) {
        Seg s(*this, "flags");
        stringSet(*flags, [&](const std::string& flag) {
          if (!Schema::valueOf(Schema::kRouteFlags, flag)) {
            fail(fmt::format("'{}' is not one of {}", flag, Schema::namesOf(Schema::kRouteFlags)));
          } else if (flag == "wildcard" && key && !key->isStarG()) {
            fail("'wildcard' marks (*,G) routes; this is an (S,G) route");
          }
        });
      }
      const Json* ifs = touchedMember(route, h, "interfaces");
      if (ifs == nullptr) return;
      Seg s(*this, "interfaces");
      if (!isObject(*ifs)) return;
      entries(*ifs, childHint(h, "interfaces"),
              [&](const std::string& name, const Json& intf, const Json* ih) {
                intfRef(name);
                if (!isObject(intf)) return;
                allowOnly(intf, ih,
                          {"assertState", "assertMetric", "assertMetricPref", "assertRptBit",
                           "rptState", "forward"});
                enumMember(intf, ih, "assertState", Schema::kAssertStates);
                integerMember(intf, ih, "assertMetric", 0, std::numeric_limits<uint32_t>::max());
                integerMember(intf, ih, "assertMetricPref", 0,
                              std::numeric_limits<uint32_t>::max());
                boolMember(intf, ih, "assertRptBit");
                enumMember(intf, ih, "rptState", Schema::kRptStates);
                boolMember(intf, ih, "forward");
              });
    });
  }

  void fib(const Json& v, const Json* hint) {
    allowOnly(v, hint, {"oifIndexes", "routes"});
    if (const Json* idx = touchedMember(v, hint, "oifIndexes")) {
      Seg s(*this, "oifIndexes");
      if (isObject(*idx)) {
        std::map<uint64_t, std::string> byIndex;
        for (const auto& [name, i] : idx->items()) {
          Seg s2(*this, name);
          intfRef(name);
          if (auto n = integer(i, 0, Shtab::Multicast::Fib::OifIndex::kCount - 1)) {
            auto [it, fresh] = byIndex.emplace(*n, name);
            if (!fresh) fail(fmt::format("OIF index {} is also the index of '{}'", *n, it->second));
          }
        }
      }
    }
    const Json* routes = touchedMember(v, hint, "routes");
    if (routes == nullptr) return;
    Seg s(*this, "routes");
    if (!isObject(*routes)) return;
    const Json* oifIndexes = member(&v, "oifIndexes");
    routeMap(
        *routes, childHint(hint, "routes"), [&](const auto&, const Json& route, const Json* h) {
          allowOnly(route, h, {"oifs", "packets", "bytes"});
          if (const Json* oifs = touchedMember(route, h, "oifs")) {
            Seg s2(*this, "oifs");
            stringSet(*oifs, [&](const std::string& name) {
              if (member(oifIndexes, name) == nullptr) {
                fail(fmt::format("interface '{}' has no OIF index in /vrfs/{}/{}/fib/oifIndexes",
                                 name, pointerToken(vrf_), familyName(af_)));
              }
            });
          }
          integerMember(route, h, "packets", 0, std::numeric_limits<uint64_t>::max());
          integerMember(route, h, "bytes", 0, std::numeric_limits<uint64_t>::max());
        });
  }

  const Json& root_;
  ValidationErrors& errors_;
  const MergeLandings* landings_;
  // /interfaces, which every interface reference is checked against.
  const Json* interfaces_;
  size_t dropped_ = 0;
  std::vector<Token> path_;
  // The section being checked.
  std::string vrf_;
  AddressFamily af_ = AddressFamily::unknown;
};

// ---------------------------------------------------------------------------------------------
// Reference index

// Visits every reference to an interface in `doc` (restricted to what `hint` touches).
template <class F>
void forEachRef(const Json& doc, const Json* hint, const MergeLandings* landings, F&& f) {
  const Json* vrfsHint = childHint(hint, "vrfs");
  if (!touched(hint, "vrfs")) return;
  forEachTouched(
      landings, member(&doc, "vrfs"), vrfsHint,
      [&](const std::string& vrf, const Json& vrfNode, const Json* vh) {
        for (const auto& [name, af] : Schema::kFamilies) {
          if (!touched(vh, name)) continue;
          const Json* fam = member(&vrfNode, name);
          if (fam == nullptr) continue;
          const Json* fh = childHint(vh, name);
          auto global = [&](std::string_view intf) { f("", AddressFamily::unknown, intf); };

          if (touched(fh, "pimStatus")) {
            const Json* sh = childHint(fh, "pimStatus");
            if (touched(sh, "interfaces")) {
              forEachTouched(
                  landings, member(member(fam, "pimStatus"), "interfaces"),
                  childHint(sh, "interfaces"),
                  [&](const std::string& intf, const Json&, const Json*) { global(intf); });
            }
          }
          if (touched(fh, "bsrStatus")) {
            const Json* bh = childHint(fh, "bsrStatus");
            if (touched(bh, "candidateBsrs")) {
              forEachTouched(landings, member(member(fam, "bsrStatus"), "candidateBsrs"),
                             childHint(bh, "candidateBsrs"),
                             [&](const std::string&, const Json& cbsr, const Json* ch) {
                               const Json* intf = member(&cbsr, "interface");
                               if (touched(ch, "interface") && intf && intf->is_string()) {
                                 global(intf->get_ref<const std::string&>());
                               }
                             });
            }
          }
          if (touched(fh, "routes")) {
            forEachTouched(
                landings, member(fam, "routes"), childHint(fh, "routes"),
                [&](const std::string&, const Json& route, const Json* rh) {
                  if (touched(rh, "upstream")) {
                    const Json* uh = childHint(rh, "upstream");
                    const Json* intf = member(member(&route, "upstream"), "interface");
                    if (touched(uh, "interface") && intf && intf->is_string()) {
                      global(intf->get_ref<const std::string&>());
                    }
                  }
                  if (touched(rh, "interfaces")) {
                    forEachTouched(
                        landings, member(&route, "interfaces"), childHint(rh, "interfaces"),
                        [&](const std::string& intf, const Json&, const Json*) { global(intf); });
                  }
                });
          }
          if (touched(fh, "fib")) {
            const Json* fibNode = member(fam, "fib");
            const Json* bh = childHint(fh, "fib");
            if (touched(bh, "oifIndexes")) {
              forEachTouched(
                  landings, member(fibNode, "oifIndexes"), childHint(bh, "oifIndexes"),
                  [&](const std::string& intf, const Json&, const Json*) { global(intf); });
            }
            if (touched(bh, "routes")) {
              forEachTouched(landings, member(fibNode, "routes"), childHint(bh, "routes"),
                             [&](const std::string&, const Json& route, const Json* rh) {
                               const Json* oifs = member(&route, "oifs");
                               if (!touched(rh, "oifs") || oifs == nullptr || !oifs->is_array()) {
                                 return;
                               }
                               for (const Json& oif : *oifs) {
                                 if (oif.is_string()) f(vrf, af, oif.get_ref<const std::string&>());
                               }
                             });
            }
          }
        }
      });
}

// Adds up references without copying names: a patch of a thousand routes names a handful of
// interfaces thousands of times. The views point into the documents walked, which outlive it.
class RefTally {
 public:
  void add(std::string_view vrf, AddressFamily af, std::string_view name, int sign) {
    for (Entry& e : entries_) {
      if (e.name == name && e.af == af && e.vrf == vrf) {
        e.n += sign;
        return;
      }
    }
    if (entries_.size() < kMaxEntries) {
      entries_.push_back({vrf, af, name, sign});
    } else {
      more_[Document::RefKey{std::string(vrf), af, std::string(name)}] += sign;
    }
  }
  void foldInto(Document::RefCounts& out) const {
    for (const Entry& e : entries_) {
      out[Document::RefKey{std::string(e.vrf), e.af, std::string(e.name)}] += e.n;
    }
    for (const auto& [key, n] : more_) out[key] += n;
  }

 private:
  // Beyond this many distinct names the linear search would cost more than the map.
  static constexpr size_t kMaxEntries = 32;
  struct Entry {
    std::string_view vrf;
    AddressFamily af;
    std::string_view name;
    int64_t n;
  };
  std::vector<Entry> entries_;
  Document::RefCounts more_;
};

// Whether `key`'s interface is defined where it must be.
bool defined(const Json& doc, const Document::RefKey& key) {
  if (key.af == AddressFamily::unknown) {
    return member(member(&doc, "interfaces"), key.name) != nullptr;
  }
  const Json* fam = member(member(member(&doc, "vrfs"), key.vrf), familyName(key.af));
  return member(member(member(fam, "fib"), "oifIndexes"), key.name) != nullptr;
}

}  // namespace

// ---------------------------------------------------------------------------------------------

namespace {

bool isAscii(std::string_view text) {
  // Eight bytes at a time: the compiler vectorizes the OR.
  uint64_t high = 0;
  size_t i = 0;
  for (; i + 8 <= text.size(); i += 8) {
    uint64_t word;
    std::memcpy(&word, text.data() + i, sizeof(word));
    high |= word;
  }
  for (; i < text.size(); ++i) high |= static_cast<unsigned char>(text[i]);
  return (high & 0x8080808080808080ULL) == 0;
}

// "invalid JSON: parse error at line 3, column 7: <why>", lines and columns counted from 1 in
// bytes.
std::string syntaxError(std::string_view text, size_t offset, std::string_view why) {
  offset = std::min(offset, text.size());
  size_t line = 1;
  size_t lineStart = 0;
  for (size_t i = 0; i < offset; ++i) {
    if (text[i] == '\n') {
      ++line;
      lineStart = i + 1;
    }
  }
  return fmt::format("invalid JSON: parse error at line {}, column {}: {}", line,
                     offset - lineStart + 1, why);
}

}  // namespace

JsonParseResult parseJson(std::string_view text) {
  JsonParseResult result;
  // The reader works on a NUL-terminated copy, in place: strings are unescaped where they lie,
  // sixteen bytes at a time, and the vector loads may look up to 15 bytes past the end, which
  // the padding keeps inside the buffer. A NUL byte is JSON nowhere (inside strings control
  // characters are escaped) and would end the copy early, so it is refused first.
  if (const size_t nul = text.find('\0'); nul != std::string_view::npos) {
    result.errors.push_back({"", syntaxError(text, nul, "NUL byte")});
    return result;
  }
  constexpr size_t kPadding = 16;
  std::string buffer;
  buffer.reserve(text.size() + kPadding);
  buffer.append(text);
  buffer.append(kPadding, '\0');
  DomBuilder builder(result.errors);
  rapidjson::InsituStringStream in(buffer.data());
  rapidjson::Reader reader;
  // Strict RFC 8259 text: valid UTF-8, one value, no comments, no NaN. Checking UTF-8 costs
  // the reader as much again as scanning strings; ASCII text, the usual feed, needs no check.
  constexpr unsigned kStrict = rapidjson::kParseInsituFlag | rapidjson::kParseFullPrecisionFlag;
  const bool parsed =
      isAscii(text) ? reader.Parse<kStrict>(in, builder)
                    : reader.Parse<kStrict | rapidjson::kParseValidateEncodingFlag>(in, builder);
  if (!parsed) {
    if (!builder.refused()) {
      result.errors.push_back(
          {"", syntaxError(text, reader.GetErrorOffset(),
                           rapidjson::GetParseError_En(reader.GetParseErrorCode()))});
    }
    return result;
  }
  if (result.errors.empty()) result.value = std::move(builder.root());
  return result;
}

ValidationErrors validate(const Json& doc) {
  ValidationErrors errors;
  Validator v(doc, errors);
  v.run(nullptr);
  v.finish();
  return errors;
}

std::string routeKeyText(const Routing::Pim::RouteKey& key) {
  return (key.isStarG() ? std::string("*") : key.source.toString()) + "," + key.group.toString();
}

std::optional<Routing::Pim::RouteKey> parseRouteKey(std::string_view text, AddressFamily af) {
  std::string why;
  return readRouteKey(text, af, why);
}

Document::Document() : json_(Json::object()) {}

ParseResult Document::parse(std::string_view text) {
  JsonParseResult parsed = parseJson(text);
  if (!parsed.value) return {std::nullopt, std::move(parsed.errors)};
  return fromJson(std::move(*parsed.value));
}

ParseResult Document::fromJson(Json json) {
  ValidationErrors errors = validate(json);
  if (!errors.empty()) return {std::nullopt, std::move(errors)};
  RefCounts refs;
  countRefs(json, nullptr, 1, refs);
  return {Document(std::move(json), std::move(refs)), {}};
}

void Document::countRefs(const Json& doc, const Json* hint, int sign, RefCounts& out,
                         const MergeLandings* landings) {
  RefTally tally;
  forEachRef(doc, hint, landings,
             [&](std::string_view vrf, AddressFamily af, std::string_view name) {
               tally.add(vrf, af, name, sign);
             });
  tally.foldInto(out);
}

int64_t Document::refCount(const RefKey& key) const {
  auto it = refs_.find(key);
  return it == refs_.end() ? 0 : it->second;
}

namespace {

// A patch object that landed where the document had no object (a route, a PIM interface, an
// upstream new to it) made that member anew: RFC 7396 merges {"x": null} into nothing as {}.
// As a hint it must then stand for the whole new member, so that validation checks all of it
// (its required members included) and the applier builds it in full: null in a hint means
// "walk everything below". `undo` holds the old values in the patch's shape.
void wholeWhereNew(Json& patch, const Json& undo) {
  for (auto& [name, value] : patch.items()) {
    if (!value.is_object()) continue;
    const Json* old = member(&undo, name);
    if (old == nullptr || !old->is_object()) {
      value = Json();
    } else {
      wholeWhereNew(value, *old);
    }
  }
}

}  // namespace

void Document::revertPatch(const Json& patch, const Json& before) {
  RefCounts delta;
  countRefs(json_, &patch, -1, delta);
  countRefs(before, &patch, 1, delta);
  mergePatchInPlace(json_, before);
  for (const auto& [key, d] : delta) {
    if (d == 0) continue;
    int64_t& n = refs_[key];
    n += d;
    if (n == 0) refs_.erase(key);
  }
}

ValidationErrors Document::mergePatch(const Json& patch, Json* before) {
  Json copy = patch;
  return mergePatchTaking(copy, before);
}

ValidationErrors Document::mergePatchTaking(Json& patch, Json* before, MergeLandings* landings) {
  if (!patch.is_object()) {
    // RFC 7396 replaces the whole document with a patch that is not an object, and a
    // document is an object.
    ValidationErrors errors = validate(patch);
    if (errors.empty()) errors.push_back({"", "a merge patch must be an object"});
    return errors;
  }
  if (patch.empty()) {
    if (before != nullptr) *before = Json::object();
    return {};
  }
  MergeLandings local;
  MergeLandings& landed = landings != nullptr ? *landings : local;
  Json undo = mergePatchInPlaceWithUndoTaking(json_, patch, &landed);
  wholeWhereNew(patch, undo);

  ValidationErrors errors;
  Validator v(json_, errors, &landed);
  v.run(&patch);
  v.finish();

  RefCounts delta;
  if (errors.empty()) {
    countRefs(json_, &patch, 1, delta, &landed);
    countRefs(undo, &patch, -1, delta);
    // References the patch added were checked where they occur; what remains is a definition
    // that the patch removed while something it did not touch still names it.
    auto dangling = [&](const RefKey& key) {
      const int64_t n = refCount(key) + [&] {
        auto it = delta.find(key);
        return it == delta.end() ? int64_t{0} : it->second;
      }();
      return n > 0 && !defined(json_, key);
    };
    // Every definition of a scope (vrf, af): those in the index, which holds all in use.
    auto anyDanglingIn = [&](const std::string& vrf, AddressFamily af) {
      for (auto it = refs_.lower_bound(RefKey{vrf, af, ""});
           it != refs_.end() && it->first.vrf == vrf && it->first.af == af; ++it) {
        if (dangling(it->first)) return true;
      }
      return false;
    };
    bool bad = false;
    if (touched(&patch, "interfaces")) {
      if (const Json* h = childHint(&patch, "interfaces")) {
        for (const auto& [name, ignored] : h->items()) {
          bad = bad || dangling({"", AddressFamily::unknown, name});
        }
      } else {
        bad = anyDanglingIn("", AddressFamily::unknown);
      }
    }
    if (!bad && touched(&patch, "vrfs")) {
      const Json* vrfsHint = childHint(&patch, "vrfs");
      if (vrfsHint == nullptr) {
        for (const auto& [key, n] : refs_) {
          if (key.af != AddressFamily::unknown && dangling(key)) bad = true;
        }
      } else {
        for (const auto& [vrf, vh] : vrfsHint->items()) {
          for (const auto& [name, af] : Schema::kFamilies) {
            // Walk down to the family's oifIndexes; a level the patch replaces as a whole may
            // have dropped any of its definitions.
            const Json* h = &vh;
            bool whole = false;
            for (std::string_view level :
                 {name, std::string_view("fib"), std::string_view("oifIndexes")}) {
              if (!h->is_object()) {
                whole = true;
                break;
              }
              auto it = h->find(level);
              if (it == h->end()) {
                h = nullptr;
                break;
              }
              h = &*it;
            }
            if (h == nullptr) continue;
            if (whole || !h->is_object()) {
              bad = bad || anyDanglingIn(vrf, af);
            } else {
              for (const auto& [intf, ignored] : h->items()) {
                bad = bad || dangling({vrf, af, intf});
              }
            }
          }
        }
      }
    }
    if (bad) {
      // Rare: pay for a full pass to name every place that still uses what went away.
      errors = validate(json_);
      if (errors.empty()) errors.push_back({"", "an interface in use would be removed"});
    }
  }
  if (!errors.empty()) {
    mergePatchInPlace(json_, undo);
    return errors;
  }
  for (const auto& [key, d] : delta) {
    if (d == 0) continue;
    int64_t& n = refs_[key];
    n += d;
    if (n == 0) refs_.erase(key);
  }
  if (before != nullptr) *before = std::move(undo);
  return {};
}

}  // namespace PimSnmpd
