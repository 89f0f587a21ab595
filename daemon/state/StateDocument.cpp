#include "daemon/state/StateDocument.h"

#include <array>
#include <map>
#include <span>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "daemon/state/Description.h"
#include "daemon/state/DocumentSchema.h"
#include "daemon/state/FreeMemory.h"
#include "daemon/state/Hint.h"
#include "daemon/state/MergePatch.h"
#include "daemon/state/Syntax.h"
#include "daemon/state/Validator.h"

namespace PimSnmpd {

namespace D = Description;
using Hint::childHint;
using Hint::member;
using Hint::touched;
using Lanet::AddressFamily;

std::string ValidationError::toString() const {
  return (path.empty() ? std::string("(document)") : path) + ": " + reason;
}

std::string pointerToken(std::string_view name) {
  std::string out;
  Syntax::appendPointerToken(out, name);
  return out;
}

namespace {

// Whether a value of kind `d` can hold a reference to an interface anywhere below it.
bool holdsRefs(const D::Value& d) {
  switch (d.type) {
    case D::Type::interfaceRef:
    case D::Type::oifs:
      return true;
    case D::Type::object:
    case D::Type::section:
      for (const D::Member& m : d.object->members) {
        if (holdsRefs(m.value)) return true;
      }
      return false;
    case D::Type::map:
      return d.key == D::Key::interfaceRef || holdsRefs(*d.item);
    default:
      return false;
  }
}

// The members of the description that hold no reference anywhere below them: a walk for
// references skips them (most of a route's interface, the configs and statuses of a family).
bool refFree(const D::Member& m) {
  static const std::unordered_set<const D::Member*> kRefFree = [] {
    std::unordered_set<const D::Member*> out;
    auto collect = [&](auto& self, const D::Value& d) -> void {
      if (d.type == D::Type::map) return self(self, *d.item);
      if (d.type != D::Type::object && d.type != D::Type::section) return;
      for (const D::Member& member : d.object->members) {
        if (!holdsRefs(member.value)) out.insert(&member);
        self(self, member.value);
      }
    };
    collect(collect, D::Value{.type = D::Type::object, .object = &D::kDocument});
    return out;
  }();
  return kRefFree.contains(&m);
}

// Visits every reference to an interface in a document (restricted to what a hint touches),
// along the description: interface names as values and map keys refer to /interfaces, FIB
// OIF lists to their family's fib/oifIndexes.
template <class F>
class RefWalk {
 public:
  RefWalk(const MergeLandings* landings, F& f) : landings_(landings), f_(f) {}

  void object(const D::Object& d, const Json& v, const Json* hint) {
    if (hint != nullptr && hint->is_object()) {
      // A patch names few of an object's members: find each in the description rather than
      // look every described member up in the patch. The order does not matter to a count.
      for (const auto& [name, h] : membersOf(*hint)) {
        const D::Member* m = d.find(name);
        if (m != nullptr) objectMember(*m, v, h.is_object() ? &h : nullptr);
      }
      return;
    }
    for (const D::Member& m : d.members) {
      if (touched(hint, m.name)) objectMember(m, v, childHint(hint, m.name));
    }
  }

 private:
  void objectMember(const D::Member& m, const Json& v, const Json* hint) {
    if (refFree(m)) return;
    const Json* mv = member(&v, m.name);
    if (mv == nullptr) return;
    if (m.value.type == D::Type::section) af_ = *Schema::valueOf(Schema::kFamilies, m.name);
    value(m.value, *mv, hint);
  }

  void value(const D::Value& d, const Json& v, const Json* hint) {
    switch (d.type) {
      case D::Type::interfaceRef:
        if (v.is_string()) f_("", AddressFamily::unknown, v.get_ref<const std::string&>());
        return;
      case D::Type::oifs:
        if (!v.is_array()) return;
        for (const Json& oif : v) {
          if (oif.is_string()) f_(vrf_, af_, oif.get_ref<const std::string&>());
        }
        return;
      case D::Type::object:
      case D::Type::section:
        if (v.is_object()) object(*d.object, v, hint);
        return;
      case D::Type::map:
        Hint::forEachTouched(landings_, &v, hint,
                             [&](const std::string& name, const Json& entry, const Json* h) {
                               if (d.key == D::Key::interfaceRef) {
                                 f_("", AddressFamily::unknown, name);
                               } else if (d.key == D::Key::vrfName) {
                                 vrf_ = name;
                               }
                               value(*d.item, entry, h);
                             });
        return;
      default:
        return;
    }
  }

  const MergeLandings* landings_;
  F& f_;
  std::string_view vrf_;
  AddressFamily af_ = AddressFamily::unknown;
};

template <class F>
void forEachRef(const Json& doc, const Json* hint, const MergeLandings* landings, F&& f) {
  RefWalk<F> walk(landings, f);
  if (doc.is_object()) walk.object(D::kDocument, doc, hint);
}

// Adds up references without copying names: a patch of a thousand routes names a handful of
// interfaces thousands of times. The views point into the documents walked, which outlive it.
class RefTally {
 public:
  using RefView = Document::RefView;

  void add(std::string_view vrf, AddressFamily af, std::string_view name, int64_t sign) {
    const RefView key{vrf, af, name};
    if (const size_t i = inPlace(key); i < size_) {
      entries_[i].n += sign;
    } else if (size_ < entries_.size()) {
      entries_[size_++] = {key, sign};
    } else {
      addTo(more_, key, sign);
    }
  }
  int64_t count(const RefView& key) const {
    if (const size_t i = inPlace(key); i < size_) return entries_[i].n;
    auto it = more_.find(key);
    return it == more_.end() ? 0 : it->second;
  }
  // Adds every count to `out`, zeros included.
  void foldInto(Document::RefCounts& out) const {
    forEach([&](const RefView& key, int64_t n) { addTo(out, key, n); });
  }
  // Adds the counts to a document's index, which holds no zeros.
  void applyTo(Document::RefCounts& refs) const {
    forEach([&](const RefView& key, int64_t n) {
      if (n == 0) return;
      auto it = addTo(refs, key, n);
      if (it->second == 0) refs.erase(it);
    });
  }

 private:
  // Where `key` is among the in-place entries, or size_; the name differs first, most often.
  size_t inPlace(const RefView& key) const {
    for (size_t i = 0; i < size_; ++i) {
      const RefView& k = entries_[i].key;
      if (k.name == key.name && k.af == key.af && k.vrf == key.vrf) return i;
    }
    return size_;
  }
  template <class F>
  void forEach(F&& f) const {
    for (size_t i = 0; i < size_; ++i) f(entries_[i].key, entries_[i].n);
    for (const auto& [key, n] : more_) f(RefView{key.vrf, key.af, key.name}, n);
  }
  static Document::RefCounts::iterator addTo(Document::RefCounts& out, const RefView& key,
                                             int64_t n) {
    auto it = out.lower_bound(key);
    if (it == out.end() || Document::RefLess()(key, it->first)) {
      return out.emplace_hint(
          it, Document::RefKey{std::string(key.vrf), key.af, std::string(key.name)}, n);
    }
    it->second += n;
    return it;
  }

  // Beyond this many distinct names the linear search would cost more than the map.
  static constexpr size_t kMaxEntries = 32;
  struct Entry {
    RefView key;
    int64_t n = 0;
  };
  // In place: a patch names a few interfaces, and the tally is built for each.
  std::array<Entry, kMaxEntries> entries_;
  size_t size_ = 0;
  Document::RefCounts more_;
};

// Whether `key`'s interface is defined where it must be.
bool defined(const Json& doc, const Document::RefView& key) {
  if (key.af == AddressFamily::unknown) {
    return member(member(&doc, "interfaces"), key.name) != nullptr;
  }
  const Json* fam = member(member(member(&doc, "vrfs"), key.vrf), Syntax::familyName(key.af));
  return member(member(member(fam, "fib"), "oifIndexes"), key.name) != nullptr;
}

}  // namespace

std::string routeKeyText(const Routing::Pim::RouteKey& key) {
  return (key.isStarG() ? std::string("*") : key.source.toString()) + "," + key.group.toString();
}

std::optional<Routing::Pim::RouteKey> parseRouteKey(std::string_view text, AddressFamily af) {
  std::string why;
  return Syntax::readRouteKey(text, af, why);
}

Document::Document() : json_(Json::object()) {}

ParseResult Document::parse(std::string_view text) {
  // A VRF's family is checked and its routes packed as soon as it is read, so that a document
  // of a million routes is never a tree of a million routes: each family's tree is freed for
  // the next one to reuse. Its routes look interfaces up in /interfaces, so this needs
  // /interfaces read first (as a dump writes it); otherwise, and for a family with errors,
  // the routes stay in the tree for the whole-document check below, which then reports every
  // error where it is.
  std::map<Scope, RouteStore> packed;
  RefCounts refs;
  const ObjectDone familyDone{
      3, [&](std::span<const std::string_view> path, Json& family, const Json& root) {
        const auto index = Schema::indexOf(Schema::kFamilies, path[2]);
        if (path[0] != "vrfs" || !index || member(&root, "interfaces") == nullptr) return;
        Json* routes = member(&family, "routes");
        Json* fibRoutes = member(member(&family, "fib"), "routes");
        if (routes != nullptr && !routes->is_object()) routes = nullptr;
        if (fibRoutes != nullptr && !fibRoutes->is_object()) fibRoutes = nullptr;
        if (routes == nullptr && fibRoutes == nullptr) return;
        // Touches the family's routes and FIB routes, and nothing else.
        Json scope = Json::object();
        if (routes != nullptr) scope["routes"] = nullptr;
        if (fibRoutes != nullptr) scope["fib"]["routes"] = nullptr;
        Json hint;
        hint["vrfs"][std::string(path[1])][std::string(path[2])] = std::move(scope);
        ValidationErrors errors;
        validateTouched(root, &hint, nullptr, errors);
        if (!errors.empty()) return;
        countRefs(root, &hint, 1, refs);
        packed[Scope(std::string(path[1]), *index)].take(routes, fibRoutes);
      }};
  JsonParseResult parsed = parseJson(text, familyDone);
  if (!parsed.value) return {std::nullopt, std::move(parsed.errors)};
  // What is still in the tree: everything but the packed routes.
  Json& json = *parsed.value;
  ValidationErrors errors = validate(json);
  if (!errors.empty()) return {std::nullopt, std::move(errors)};
  countRefs(json, nullptr, 1, refs);
  Document document(std::move(json), std::move(refs));
  document.packed_ = std::move(packed);
  document.settle();
  return {std::move(document), {}};
}

ParseResult Document::fromJson(Json json) {
  ValidationErrors errors = validate(json);
  if (!errors.empty()) return {std::nullopt, std::move(errors)};
  RefCounts refs;
  countRefs(json, nullptr, 1, refs);
  return {Document(std::move(json), std::move(refs)), {}};
}

namespace {

void tallyRefs(const Json& doc, const Json* hint, int sign, RefTally& tally,
               const MergeLandings* landings = nullptr) {
  forEachRef(doc, hint, landings,
             [&](std::string_view vrf, AddressFamily af, std::string_view name) {
               tally.add(vrf, af, name, sign);
             });
}

}  // namespace

void Document::countRefs(const Json& doc, const Json* hint, int sign, RefCounts& out,
                         const MergeLandings* landings) {
  RefTally tally;
  tallyRefs(doc, hint, sign, tally, landings);
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
  // The undo holds the patch's members in the patch's order: step along it beside the patch.
  const Json::object_t* undone =
      undo.is_object() ? &undo.get_ref<const Json::object_t&>() : nullptr;
  auto next = undone != nullptr ? undone->begin() : Json::object_t::const_iterator();
  for (auto& [name, value] : patch.get_ref<Json::object_t&>()) {
    const Json* old = nullptr;
    if (undone != nullptr && next != undone->end() && next->first == name) {
      old = &(next++)->second;
    } else {
      old = findMember(&undo, name);
    }
    if (!value.is_object()) continue;
    if (old == nullptr || !old->is_object()) {
      value = Json();
    } else {
      wholeWhereNew(value, *old);
    }
  }
}

}  // namespace

void Document::revertPatch(const Json& patch, const Json& before) {
  // The tally's views point into the document: the index is updated before the merge.
  RefTally delta;
  tallyRefs(json_, &patch, -1, delta);
  tallyRefs(before, &patch, 1, delta);
  delta.applyTo(refs_);
  mergePatchInPlace(json_, before);
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
  settle();
  loosen(patch);
  MergeLandings local;
  MergeLandings& landed = landings != nullptr ? *landings : local;
  Json undo = mergePatchInPlaceWithUndoTaking(json_, patch, &landed);
  wholeWhereNew(patch, undo);

  ValidationErrors errors;
  validateTouched(json_, &patch, &landed, errors);

  // Views into the patched document and the undo, both kept until the index is updated.
  RefTally delta;
  if (errors.empty()) {
    tallyRefs(json_, &patch, 1, delta, &landed);
    tallyRefs(undo, &patch, -1, delta);
    // References the patch added were checked where they occur; what remains is a definition
    // that the patch removed while something it did not touch still names it.
    auto dangling = [&](const RefView& key) {
      auto it = refs_.find(key);
      const int64_t n = (it == refs_.end() ? 0 : it->second) + delta.count(key);
      return n > 0 && !defined(json_, key);
    };
    auto view = [](const RefKey& k) { return RefView{k.vrf, k.af, k.name}; };
    // Every definition of a scope (vrf, af): those in the index, which holds all in use.
    auto anyDanglingIn = [&](std::string_view vrf, AddressFamily af) {
      for (auto it = refs_.lower_bound(RefView{vrf, af, ""});
           it != refs_.end() && it->first.vrf == vrf && it->first.af == af; ++it) {
        if (dangling(view(it->first))) return true;
      }
      return false;
    };
    bool bad = false;
    if (touched(&patch, "interfaces")) {
      if (const Json* h = childHint(&patch, "interfaces")) {
        for (const auto& [name, ignored] : membersOf(*h)) {
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
          if (key.af != AddressFamily::unknown && dangling(view(key))) bad = true;
        }
      } else {
        for (const auto& [vrf, vh] : membersOf(*vrfsHint)) {
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
              for (const auto& [intf, ignored] : membersOf(*h)) {
                bad = bad || dangling({vrf, af, intf});
              }
            }
          }
        }
      }
    }
    if (bad) {
      // Rare: pay for a full pass to name every place that still uses what went away.
      errors = validate(json());
      if (errors.empty()) errors.push_back({"", "an interface in use would be removed"});
    }
  }
  if (!errors.empty()) {
    mergePatchInPlace(json_, undo);
    return errors;
  }
  delta.applyTo(refs_);
  if (before != nullptr) *before = std::move(undo);
  return {};
}

namespace {

// A family's two route objects in a tree, when it has them.
Json* familyOf(Json& doc, const std::string& vrf, size_t family) {
  return member(member(member(&doc, "vrfs"), vrf), Schema::kFamilies[family].name);
}
Json* routesOf(Json* family) {
  return member(family, "routes");
}
Json* fibRoutesOf(Json* family) {
  return member(member(family, "fib"), "routes");
}

// Packing a large document frees most of its tree: hand the pages back to the system.
constexpr size_t kTrimAfter = 4096;

}  // namespace

Json Document::json() const {
  Json out = json_;
  for (const auto& [scope, store] : packed_) {
    Json* family = familyOf(out, scope.first, scope.second);
    store.copyTo(routesOf(family), fibRoutesOf(family));
  }
  return out;
}

namespace {

void writeValue(const Json& v, std::string& out) {
  out += v.dump(-1, ' ', false, Json::error_handler_t::replace);
}

// Writes an object member by member; `member(name, value)` writes a value.
template <class F>
void writeObject(const Json& obj, std::string& out, F&& member) {
  out += '{';
  bool first = true;
  for (const auto& [name, value] : obj.get_ref<const Json::object_t&>()) {
    if (!first) out += ',';
    first = false;
    writeValue(Json(name), out);
    out += ':';
    member(name, value);
  }
  out += '}';
}

// A routes object: the members in the tree (a document between updates has none) and the
// packed ones, merged in key order as one object holds them.
void writeRoutes(const Json& tree, const RouteStore& store, RouteStore::Part part,
                 std::string& out) {
  const Json::object_t& loose = tree.get_ref<const Json::object_t&>();
  auto next = loose.begin();
  const MemberNameLess less;
  bool first = true;
  auto write = [&](std::string_view key, const Json& value) {
    out += first ? '{' : ',';
    first = false;
    writeValue(Json(key), out);
    out += ':';
    writeValue(value, out);
  };
  store.forEach(part, [&](std::string_view key, const Json& value) {
    for (; next != loose.end() && less(next->first, key); ++next) write(next->first, next->second);
    // Never both: a key is in the tree or in the store. The tree would be the newer.
    if (next != loose.end() && next->first == key) return;
    write(key, value);
  });
  for (; next != loose.end(); ++next) write(next->first, next->second);
  out += first ? "{}" : "}";
}

}  // namespace

void Document::writeJson(std::string& out) const {
  writeObject(json_, out, [&](const std::string& name, const Json& vrfs) {
    if (name != "vrfs" || !vrfs.is_object()) return writeValue(vrfs, out);
    writeObject(vrfs, out, [&](const std::string& vrf, const Json& sections) {
      if (!sections.is_object()) return writeValue(sections, out);
      writeObject(sections, out, [&](const std::string& section, const Json& family) {
        const auto index = Schema::indexOf(Schema::kFamilies, section);
        auto store = index ? packed_.find(Scope(vrf, *index)) : packed_.end();
        if (store == packed_.end() || !family.is_object()) return writeValue(family, out);
        writeObject(family, out, [&](const std::string& m, const Json& v) {
          if (m == "routes" && v.is_object()) {
            return writeRoutes(v, store->second, RouteStore::Part::route, out);
          }
          if (m != "fib" || !v.is_object()) return writeValue(v, out);
          writeObject(v, out, [&](const std::string& f, const Json& fv) {
            if (f != "routes" || !fv.is_object()) return writeValue(fv, out);
            writeRoutes(fv, store->second, RouteStore::Part::fibRoute, out);
          });
        });
      });
    });
  });
}

size_t Document::packScope(const std::string& vrf, size_t family) {
  Json* f = familyOf(json_, vrf, family);
  Json* routes = routesOf(f);
  Json* fibRoutes = fibRoutesOf(f);
  const size_t n =
      (routes != nullptr ? routes->size() : 0) + (fibRoutes != nullptr ? fibRoutes->size() : 0);
  auto it = packed_.find(Scope(vrf, family));
  if (n > 0) {
    if (it == packed_.end()) it = packed_.emplace(Scope(vrf, family), RouteStore()).first;
    it->second.take(routes, fibRoutes);
  }
  if (it != packed_.end() && (f == nullptr || it->second.empty())) packed_.erase(it);
  return n;
}

void Document::settleScope(const std::string& vrf, size_t family) {
  packScope(vrf, family);
}

void Document::unsettleScope(const std::string& vrf, size_t family) {
  auto it = packed_.find(Scope(vrf, family));
  if (it == packed_.end()) return;
  Json* f = familyOf(json_, vrf, family);
  it->second.giveAll(routesOf(f), fibRoutesOf(f));
  packed_.erase(it);
}

void Document::settle() {
  size_t packed = 0;
  if (allLoose_) {
    if (const Json* vrfs = member(&json_, "vrfs")) {
      for (const auto& [vrf, ignored] : vrfs->items()) {
        for (size_t i = 0; i < std::size(Schema::kFamilies); ++i) packed += packScope(vrf, i);
      }
    }
  } else {
    for (const auto& [vrf, family] : loose_) packed += packScope(vrf, family);
  }
  allLoose_ = false;
  loose_.clear();
  if (packed >= kTrimAfter) releaseFreeMemory();
}

void Document::loosenAll() {
  for (auto& [scope, store] : packed_) {
    Json* family = familyOf(json_, scope.first, scope.second);
    store.giveAll(routesOf(family), fibRoutesOf(family));
  }
  packed_.clear();
  allLoose_ = true;
}

void Document::loosenScope(const std::string& vrf, size_t family, const Json* familyPatch) {
  loose_.emplace_back(vrf, family);
  auto it = packed_.find(Scope(vrf, family));
  if (it == packed_.end()) return;
  RouteStore& store = it->second;
  Json* f = familyOf(json_, vrf, family);
  Json* routes = routesOf(f);
  Json* fibRoutes = fibRoutesOf(f);
  // A member the patch replaces as a whole (null, or not an object) may drop or change any
  // route; so does an OIF index, which every FIB route's OIFs go by.
  auto replaces = [](const Json* obj, std::string_view name) {
    const Json* v = findMember(obj, name);
    return v != nullptr && !v->is_object();
  };
  const Json* fibPatch = findMember(familyPatch, "fib");
  const bool whole = familyPatch == nullptr || !familyPatch->is_object() ||
                     replaces(familyPatch, "routes") || replaces(familyPatch, "fib") ||
                     (fibPatch != nullptr && (replaces(fibPatch, "routes") ||
                                              findMember(fibPatch, "oifIndexes") != nullptr));
  const Json* routesPatch = whole ? nullptr : member(familyPatch, "routes");
  const Json* fibRoutesPatch = whole ? nullptr : member(member(familyPatch, "fib"), "routes");
  if (whole) {
    store.giveAll(routes, fibRoutes);
  } else {
    for (const Json* p : {routesPatch, fibRoutesPatch}) {
      if (p == nullptr) continue;
      for (const auto& [key, ignored] : membersOf(*p)) store.give(key, routes, fibRoutes);
    }
  }
  if (store.empty()) packed_.erase(it);
}

void Document::loosen(const Json& patch) {
  const Json* vrfs = allLoose_ ? nullptr : findMember(&patch, "vrfs");
  if (vrfs == nullptr) return;
  if (!vrfs->is_object()) {
    loosenAll();
    return;
  }
  for (const auto& [vrf, vrfPatch] : vrfs->get_ref<const Json::object_t&>()) {
    for (size_t i = 0; i < std::size(Schema::kFamilies); ++i) {
      if (!vrfPatch.is_object()) {
        loosenScope(vrf, i, nullptr);
      } else if (const Json* familyPatch = findMember(&vrfPatch, Schema::kFamilies[i].name)) {
        loosenScope(vrf, i, familyPatch);
      }
    }
  }
}

}  // namespace PimSnmpd
