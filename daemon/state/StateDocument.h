#pragma once

// The platform state document fed to pimsnmpd: one JSON object holding every interface and, per
// VRF and address family, every platform input the agent follows (docs/state-document.md).
// A Document is always valid: it is only built by parsing or validating, and a merge patch
// that would make it invalid is refused without changing it.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "daemon/state/Json.h"
#include "daemon/state/MergePatch.h"
#include "daemon/state/RouteStore.h"

#include "platform/Lanet/AddressFamily.h"
#include "platform/Routing/Pim/RouteKey.h"

namespace PimSnmpd {

// One problem of a document or patch: where (an RFC 6901 JSON pointer, "" for the whole text)
// and why.
struct ValidationError {
  std::string path;
  std::string reason;

  // "<path>: <reason>", with "(document)" for the empty path.
  std::string toString() const;
  bool operator==(const ValidationError&) const = default;
};
using ValidationErrors = std::vector<ValidationError>;

// Validation stops collecting after this many errors and adds one entry saying how many more
// there were.
inline constexpr size_t kMaxReportedErrors = 100;
// Deeper nesting is refused while parsing (the document itself is 11 levels deep), which keeps
// every later recursive walk shallow.
inline constexpr size_t kMaxJsonDepth = 64;

struct JsonParseResult {
  std::optional<Json> value;
  ValidationErrors errors;
};

// Parses JSON text. A syntax error is reported at path "" with its line and column; a member
// name that occurs twice in one object is reported at its path (JSON parsers disagree on which
// one wins, so the text is refused rather than guessed at).
JsonParseResult parseJson(std::string_view text);

// Called by the parse as each object `depth` members below the root is complete: `path` holds
// the member names leading to it, `root` the document so far. It may change the object (take
// members out of it, say), which lets a large document be consumed while it is read.
struct ObjectDone {
  size_t depth = 0;
  std::function<void(std::span<const std::string_view> path, Json& object, const Json& root)> f;
};
JsonParseResult parseJson(std::string_view text, const ObjectDone& done);

// Checks a whole document; empty when it is valid.
ValidationErrors validate(const Json& doc);

// "S,G" / "*,G" in canonical form, of family `af`; nullopt for anything else.
std::optional<Routing::Pim::RouteKey> parseRouteKey(std::string_view text, Lanet::AddressFamily af);
// The canonical key text: "10.1.1.1,239.1.1.1", "*,ff0e::1".
std::string routeKeyText(const Routing::Pim::RouteKey& key);

// RFC 6901 escaping of one pointer token ("~" -> "~0", "/" -> "~1").
std::string pointerToken(std::string_view name);

struct ParseResult;

class Document {
 public:
  // Something a route or PIM record names by interface: the interface must be defined in
  // /interfaces (af unknown, vrf empty) or, for a FIB OIF, in that family's fib/oifIndexes.
  struct RefKey {
    std::string vrf;
    Lanet::AddressFamily af = Lanet::AddressFamily::unknown;
    std::string name;
    auto operator<=>(const RefKey& o) const {
      return std::tie(vrf, af, name) <=> std::tie(o.vrf, o.af, o.name);
    }
    bool operator==(const RefKey&) const = default;
  };
  // A RefKey's parts viewed where they are: what looks the index up without copying names.
  struct RefView {
    std::string_view vrf;
    Lanet::AddressFamily af = Lanet::AddressFamily::unknown;
    std::string_view name;
  };
  // RefKey's order, between keys and views alike; each part is compared once (a tuple's <
  // compares each part both ways).
  struct RefLess {
    using is_transparent = void;
    template <class A, class B>
    bool operator()(const A& a, const B& b) const {
      if (const int c = std::string_view(a.vrf).compare(b.vrf); c != 0) return c < 0;
      if (a.af != b.af) return a.af < b.af;
      return std::string_view(a.name) < std::string_view(b.name);
    }
  };
  using RefCounts = std::map<RefKey, int64_t, RefLess>;

  // The empty document {}: no interfaces, no VRFs.
  Document();

  static ParseResult parse(std::string_view text);
  static ParseResult fromJson(Json json);

  // The whole document as one JSON tree: a copy, built at a cost of O(size of the document).
  Json json() const;
  std::string dump(int indent = 2) const { return json().dump(indent); }
  // Appends the document's compact JSON text, the same as json().dump() gives, written one
  // packed route at a time: a large document is never built as a whole tree to be dumped.
  void writeJson(std::string& out) const;
  // The document's tree without its packed routes (see settle()): what a reader that does not
  // look at routes (the VRFs and their families, say) reads without a copy.
  const Json& outline() const { return json_; }

  // Routes live packed (RouteStore) and move into the tree only while an update touches
  // them. Packs every route that is in the tree; the applier calls this when an update is
  // done, and mergePatch before it starts one.
  void settle();
  // Packs the routes of one VRF's family (Schema::kFamilies[family]) that are in the tree: a
  // whole-document apply calls this as each family's records are done, so that a large
  // document never holds every route both as a tree and as records, and the records reuse the
  // tree's memory as it goes.
  void settleScope(const std::string& vrf, size_t family);
  // Moves the scope's packed routes into the tree, for the time its records are updated.
  void unsettleScope(const std::string& vrf, size_t family);

  // Applies an RFC 7396 merge patch when the patched document is valid, checking only what the
  // patch touches (plus the references to what it removes). Returns the errors and leaves the
  // document unchanged otherwise. On success `before`, if given, receives what the patch
  // replaced: an object of the patch's shape whose leaves are the old values (null where there
  // was none), which is what an applier diffs the patched subtrees against.
  ValidationErrors mergePatch(const Json& patch, Json* before = nullptr);
  // The same, taking the patch's values instead of copying them (a feed's patch is parsed for
  // this one use): afterwards `patch` still has its shape and serves as the hint of the change
  // (see mergePatchInPlaceWithUndoTaking), but not as a patch.
  // `landings`, if given, receives where the patch's members went (see MergeLandings); it is
  // only valid when the patch was applied.
  ValidationErrors mergePatchTaking(Json& patch, Json* before = nullptr,
                                    MergeLandings* landings = nullptr);

  // Takes back a patch that mergePatchTaking applied: `patch` is the hint it left, `before`
  // what it returned. Times resolved into the patched members since are dropped with them.
  void revertPatch(const Json& patch, const Json& before);

  // How often the document names `name` (see RefKey): a consistency index kept up to date by
  // mergePatch, so that removing an interface still in use is caught without a full scan.
  int64_t refCount(const RefKey& key) const;
  const RefCounts& refCounts() const { return refs_; }

  // Counts the references in `doc`, or with a hint (a merge patch) only in the subtrees it
  // touches, adding `sign` per reference. Exposed for tests of the index.
  static void countRefs(const Json& doc, const Json* hint, int sign, RefCounts& out,
                        const MergeLandings* landings = nullptr);

 private:
  friend struct DocumentTimes;
  Document(Json json, RefCounts refs) : json_(std::move(json)), refs_(std::move(refs)) {}

  // A VRF's family: the VRF's name and the family's position in Schema::kFamilies.
  using Scope = std::pair<std::string, size_t>;
  // Moves into the tree every packed route that `patch` may touch (all of a family when the
  // patch replaces its routes, its FIB or the FIB's OIF indexes), and notes the families it
  // touches so that settle() packs what lands there.
  void loosen(const Json& patch);
  void loosenScope(const std::string& vrf, size_t family, const Json* familyPatch);
  // Every packed route moves into the tree.
  void loosenAll();
  // Packs what of the scope is in the tree; returns how many routes that was.
  size_t packScope(const std::string& vrf, size_t family);

  Json json_;
  RefCounts refs_;
  std::map<Scope, RouteStore> packed_;
  std::vector<Scope> loose_;
  // Every family may have routes in the tree (a document just parsed).
  bool allLoose_ = true;
};

struct ParseResult {
  std::optional<Document> document;
  ValidationErrors errors;
  bool ok() const { return document.has_value(); }
};

// The applier's access to the document's times: omitted times are resolved in place when an
// item is first applied (adding a time member never affects validity or the reference index).
struct DocumentTimes {
  static Json& json(Document& d) { return d.json_; }
  // The tree with every route in it, for a walk over the whole document.
  static Json& loosened(Document& d) {
    d.loosenAll();
    return d.json_;
  }
};

}  // namespace PimSnmpd
