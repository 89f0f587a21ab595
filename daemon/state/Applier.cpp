#include "daemon/state/Applier.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "daemon/state/Description.h"
#include "daemon/state/DocumentSchema.h"
#include "daemon/state/FreeMemory.h"
#include "daemon/state/Hint.h"
#include "platform/Clock/Clock.h"
#include "platform/Lanet/IntfId.h"
#include "platform/Lanet/IpGenAddr.h"
#include "platform/Lanet/IpGenPrefix.h"
#include "platform/Routing/Pim/RouteKeyConversion.h"

namespace PimSnmpd {

namespace {

using Lanet::AddressFamily;
using Lanet::IntfId;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
namespace Pim = Routing::Pim;
namespace Sm = Routing::Pim::SparseMode;
using Shtab::Multicast::Fib::OifIndex;

// The walks below read validated documents: every value has the type and range the validator
// checked, so the readers convert without checking again.

using Hint::childHint;
using Hint::member;
using Hint::touched;

// Which members forEachKey visits: those that go away, those that stay or arrive, or both.
enum class Pass { removals, upserts, both };

// The old side's members, asked for in the hint's (sorted) order. What a patch replaced (the
// merge's undo) holds exactly the patch's members, so stepping along it beside the hint finds
// each one without a search; an old map much larger than the hint is searched instead.
class OldMembers {
 public:
  OldMembers(const Json* oldMap, const Json& hint) {
    if (oldMap == nullptr || !oldMap->is_object()) return;
    map_ = &oldMap->get_ref<const Json::object_t&>();
    step_ = map_->size() <= 2 * hint.size() + 8;
    at_ = map_->begin();
  }
  // Names must be asked for in increasing order.
  const Json* find(const std::string& name) {
    if (map_ == nullptr) return nullptr;
    if (!step_) return member(name);
    const MemberNameLess less;
    while (at_ != map_->end() && less(at_->first, name)) ++at_;
    if (at_ == map_->end() || at_->first != name || at_->second.is_null()) return nullptr;
    return &at_->second;
  }

 private:
  const Json* member(const std::string& name) const {
    auto it = map_->find(name);
    return it == map_->end() || it->second.is_null() ? nullptr : &it->second;
  }

  const Json::object_t* map_ = nullptr;
  bool step_ = false;
  Json::object_t::const_iterator at_;
};

// Calls f(name, oldValue, newValue, childHint) for the members of two maps that may differ:
// those the hint names, or without a hint all members of either. A side without the member
// passes null; a member absent on both sides is skipped. Removals come first, so that a record
// that takes over something (an ifIndex, a key) from a removed one never meets it.
// `landings` (the merge's, when `hint` is its patch) finds members of large maps without a
// search by name.
template <class F>
void forEachKey(const Json* oldMap, Json* newMap, const Json* hint, F&& f, Pass pass = Pass::both,
                const MergeLandings* landings = nullptr) {
  const bool removals = pass != Pass::upserts;
  const bool upserts = pass != Pass::removals;
  auto newMember = [&](const std::string& name, const Json& h) {
    return const_cast<Json*>(landedMember(newMap, name, &h, landings));
  };
  if (hint != nullptr) {
    if (removals) {
      OldMembers old(oldMap, *hint);
      for (const auto& [name, h] : membersOf(*hint)) {
        const Json* o = old.find(name);
        if (o != nullptr && newMember(name, h) == nullptr) f(name, o, nullptr, nullptr);
      }
    }
    if (upserts) {
      OldMembers old(oldMap, *hint);
      for (const auto& [name, h] : membersOf(*hint)) {
        if (Json* n = newMember(name, h)) f(name, old.find(name), n, h.is_object() ? &h : nullptr);
      }
    }
    return;
  }
  if (removals && oldMap != nullptr && oldMap->is_object()) {
    for (const auto& [name, o] : membersOf(*oldMap)) {
      if (!o.is_null() && member(newMap, name) == nullptr) f(name, &o, nullptr, nullptr);
    }
  }
  if (upserts && newMap != nullptr && newMap->is_object()) {
    for (auto& [name, n] : membersOf(*newMap)) f(name, member(oldMap, name), &n, nullptr);
  }
}

uint64_t unsignedValue(const Json& v) {
  return v.is_number_float() ? static_cast<uint64_t>(v.get<double>()) : v.get<uint64_t>();
}
uint64_t unsignedOr(const Json& obj, std::string_view name, uint64_t otherwise) {
  const Json* v = member(&obj, name);
  return v != nullptr ? unsignedValue(*v) : otherwise;
}
std::string_view stringOr(const Json& obj, std::string_view name, std::string_view otherwise) {
  const Json* v = member(&obj, name);
  return v != nullptr ? std::string_view(v->get_ref<const std::string&>()) : otherwise;
}
bool boolOr(const Json& obj, std::string_view name, bool otherwise) {
  const Json* v = member(&obj, name);
  return v != nullptr ? v->get<bool>() : otherwise;
}
template <class T, size_t N>
T enumOr(const Json& obj, std::string_view name, const Schema::Named<T> (&table)[N],
         std::string_view otherwise) {
  return *Schema::valueOf(table, stringOr(obj, name, otherwise));
}
IpGenAddr address(const std::string& text) {
  return *IpGenAddr::parse(text);
}
IpGenPrefix prefix(const std::string& text) {
  return *IpGenPrefix::parse(text);
}

// The time `name` of an item: as written, else the item's previous value, else `fallback`;
// a resolved value is written into the item so that it sticks.
double resolveTime(Json& item, std::string_view name, const Json* oldItem, double fallback) {
  if (const Json* v = member(&item, name)) return v->get<double>();
  if (const Json* old = member(oldItem, name)) {
    item[name] = *old;
    return old->get<double>();
  }
  item[name] = fallback;
  return fallback;
}

class Sync {
 public:
  // Called with a VRF's name and the family's position in Schema::kFamilies just before that
  // family's records are brought in line with the new document, and once they are.
  using FamilyHook = std::function<void(const std::string&, size_t)>;
  struct FamilyHooks {
    FamilyHook start;
    FamilyHook done;
  };

  Sync(PlatformState& state, double now, const MergeLandings* landings = nullptr,
       FamilyHooks hooks = {})
      : st_(state), now_(now), landings_(landings), hooks_(std::move(hooks)) {}

  // `oldDoc` is the previous document (without a hint) or what the patch `hint` replaced.
  void run(const Json* oldDoc, Json& newDoc, const Json* hint) {
    const bool interfaces = touched(hint, "interfaces");
    const Json* oldIfs = member(oldDoc, "interfaces");
    Json* newIfs = member(&newDoc, "interfaces");
    const Json* ifHint = childHint(hint, "interfaces");
    if (interfaces) {
      std::vector<IntfId> renumbered;
      forEachKey(oldIfs, newIfs, ifHint,
                 [&](const std::string& name, const Json* o, Json* n, auto) {
                   if (o != nullptr && n != nullptr &&
                       unsignedOr(*o, "ifIndex", 0) != unsignedOr(*n, "ifIndex", 0)) {
                     renumbered.emplace_back(name);
                   }
                 });
      // Rows are keyed by ifIndex and the agent does not re-key them: an interface whose ifIndex
      // changes leaves every record that names it and returns under the new ifIndex.
      Parked parked;
      try {
        park(renumbered, parked);
        forEachKey(oldIfs, newIfs, ifHint,
                   [&](const std::string& name, const Json*, Json* n, auto) {
                     if (n != nullptr) upsertInterface(name, *n);
                   });
      } catch (...) {
        // Whatever was taken out goes back before the update is taken back.
        unpark(parked);
        throw;
      }
      unpark(parked);
    }
    if (touched(hint, "vrfs")) {
      forEachKey(member(oldDoc, "vrfs"), member(&newDoc, "vrfs"), childHint(hint, "vrfs"),
                 [&](const std::string& name, const Json* o, Json* n, const Json* h) {
                   vrf(L3::VrfName(name), o, n, o != nullptr ? h : nullptr);
                 });
    }
    if (interfaces) {
      forEachKey(oldIfs, newIfs, ifHint, [&](const std::string& name, const Json*, Json* n, auto) {
        if (n == nullptr) removeInterface(name);
      });
    }
  }

 private:
  // -- interfaces

  // The records that name interfaces, taken out of their collections while the interfaces
  // are renumbered.
  struct Parked {
    std::vector<std::pair<Ent::Ptr<Pim::Status>, Ent::Ptr<Pim::Intf>>> pimIntfs;
    std::vector<std::pair<Ent::Ptr<Pim::Intf>, Ent::Ptr<Pim::Neighbor>>> neighbors;
    std::vector<std::pair<Ent::Ptr<Sm::Route>, Ent::Ptr<Sm::Intf>>> routeIntfs;
    std::vector<std::pair<Ent::Ptr<Sm::Route>, Ent::Ptr<const Sm::UpstreamInfo>>> upstreams;
    std::vector<std::tuple<Ent::Ptr<PlatformState::FibTable>, OifIndex, IntfId>> oifs;
    // FIB routes as they were before they lost the parked OIFs.
    std::vector<std::tuple<Ent::Ptr<PlatformState::FibTable>,
                           Routing::Multicast::Fib::IpGenRouteKey, Shtab::Multicast::Fib::Route>>
        fibRoutes;
  };

  // Costs a pass over every route table: renumbering an interface is rare. Each record is
  // noted before it is taken out, so that a failure part way can put back all that went.
  void park(const std::vector<IntfId>& ids, Parked& p) {
    if (ids.empty()) return;
    for (const auto& [name, af] : Schema::kFamilies) {
      for (const auto& status : st_.pimGlobalStatus(af)->vrfStatus()) {
        for (const IntfId& id : ids) {
          if (Ent::Ptr<Pim::Intf> intf{status->pimIntf().find(id)}) {
            p.pimIntfs.emplace_back(status, intf);
            pimIntfDel(*status, id, &p);
          }
        }
      }
    }
    for (const auto& [key, table] : st_.fibTablesByVrf()) {
      const size_t first = p.oifs.size();
      for (const auto& [index, intf] : table->oifIndexIntf()) {
        if (std::find(ids.begin(), ids.end(), intf) != ids.end()) {
          p.oifs.emplace_back(table, index, intf);
        }
      }
      if (first == p.oifs.size()) continue;
      // Routes forwarding out of the interface lose it first (the agent builds next hops from
      // the routes' OIF bits), then the mapping goes.
      std::vector<std::pair<Routing::Multicast::Fib::IpGenRouteKey, Shtab::Multicast::Fib::Route>>
          using_;
      for (const auto& [key, route] : table->route()) {
        for (size_t i = first; i < p.oifs.size(); ++i) {
          if (route.oif(std::get<1>(p.oifs[i]))) {
            using_.emplace_back(key, route);
            break;
          }
        }
      }
      for (const auto& [key, route] : using_) {
        p.fibRoutes.emplace_back(table, key, route);
        Shtab::Multicast::Fib::Route without = route;
        for (size_t i = first; i < p.oifs.size(); ++i) without.oifIs(std::get<1>(p.oifs[i]), false);
        table->routeIs(key, without);
      }
      for (size_t i = first; i < p.oifs.size(); ++i) table->oifIndexIntfDel(std::get<1>(p.oifs[i]));
    }
    for (const auto& [key, table] : st_.routeTablesByVrf()) {
      for (const auto& route : table->route()) {
        for (const IntfId& id : ids) {
          if (Ent::Ptr<Sm::Intf> intf{route->routeIntf().find(id)}) {
            p.routeIntfs.emplace_back(route, intf);
            route->routeIntfDel(id);
          }
          const auto up = route->upstreamInfo();
          if (up && up->iif() == id) {
            p.upstreams.emplace_back(route, up);
            route->upstreamInfoDel();
          }
        }
      }
    }
  }

  // Takes a PIM interface out, its neighbors first: the agent keeps a neighbor's row while the
  // neighbor stays, whatever happens to its interface. Highest address first, so that the
  // interface reports one pimNeighborLoss, as it does when it goes down. `parked`, if given,
  // notes each neighbor before it goes.
  static void pimIntfDel(Pim::Status& status, const IntfId& id, Parked* parked = nullptr) {
    if (Ent::Ptr<Pim::Intf> intf{status.pimIntf().find(id)}) {
      std::vector<Ent::Ptr<Pim::Neighbor>> nbrs;
      for (const auto& n : intf->activeNeighbor()) nbrs.push_back(n);
      for (auto it = nbrs.rbegin(); it != nbrs.rend(); ++it) {
        if (parked != nullptr) parked->neighbors.emplace_back(intf, *it);
        intf->activeNeighborDel((*it)->key());
      }
    }
    status.pimIntfDel(id);
  }

  static void unpark(const Parked& p) {
    for (const auto& [intf, nbr] : p.neighbors) intf->activeNeighborIs(nbr);
    for (const auto& [table, index, id] : p.oifs) table->oifIndexIntfIs(index, id);
    for (const auto& [table, key, route] : p.fibRoutes) {
      // The counters may have moved meanwhile: only the OIFs come back.
      Shtab::Multicast::Fib::Route with = route;
      const Shtab::Multicast::Fib::Route now = table->route(key);
      with.countersIs(now.packets(), now.bytes());
      table->routeIs(key, with);
    }
    for (const auto& [route, up] : p.upstreams) route->upstreamInfoIs(up);
    for (const auto& [route, intf] : p.routeIntfs) route->routeIntfIs(intf);
    for (const auto& [status, intf] : p.pimIntfs) status->pimIntfIs(intf);
  }

  void upsertInterface(const std::string& name, const Json& n) {
    const IntfId id(name);
    st_.ifMib()->ifIndexByIntfIdIs(id, static_cast<uint32_t>(unsignedOr(n, "ifIndex", 0)));
    st_.allIntfStatusDir()->intfOperStatusIs(
        id, enumOr(n, "operStatus", Schema::kOperStatuses, Schema::kDefaultOperStatus));
  }

  void removeInterface(const std::string& name) {
    const IntfId id(name);
    st_.ifMib()->ifIndexByIntfIdDel(id);
    st_.allIntfStatusDir()->intfStatusDel(id);
  }

  // -- VRFs and families

  void vrf(const L3::VrfName& vrf, const Json* o, Json* n, const Json* h) {
    for (size_t i = 0; i < std::size(Schema::kFamilies); ++i) {
      const auto& [name, af] = Schema::kFamilies[i];
      if (!touched(h, name)) continue;
      if (hooks_.start) hooks_.start(vrf.str(), i);
      const Json* of = member(o, name);
      if (Json* nf = member(n, name)) {
        family(af, vrf, of, *nf, of != nullptr ? childHint(h, name) : nullptr);
      } else if (of != nullptr) {
        removeFamily(af, vrf);
      }
      if (hooks_.done) hooks_.done(vrf.str(), i);
    }
  }

  void family(AddressFamily af, const L3::VrfName& vrf, const Json* o, Json& n, const Json* h) {
    // The inputs the hint touches, in one pass over its few members rather than a look-up of
    // each input in it, twice.
    std::array<bool, std::size(kInputs)> touchedInputs;
    touchedInputs.fill(h == nullptr);
    if (h != nullptr && h->is_object()) {
      for (const auto& [name, ignored] : membersOf(*h)) {
        for (size_t i = 0; i < std::size(kInputs); ++i) {
          touchedInputs[i] = touchedInputs[i] || kInputs[i].name == name;
        }
      }
    }
    for (size_t i = 0; i < std::size(kInputs); ++i) {
      const Input& in = kInputs[i];
      if (touchedInputs[i] && member(&n, in.name) == nullptr) (this->*in.remove)(af, vrf);
    }
    // Routes that go away leave before their FIB entries; new routes arrive after theirs. Either
    // way the agent reconciles a route once, with its FIB entry in place or already gone, rather
    // than once for the route and again for its FIB entry.
    const Json* ro = member(o, "routes");
    const Json* routesHint = ro != nullptr ? childHint(h, "routes") : nullptr;
    if (touched(h, "routes")) routes(af, vrf, ro, member(&n, "routes"), routesHint, Pass::removals);
    if (touched(h, "fib")) {
      const Json* fo = member(o, "fib");
      fib(af, vrf, fo, member(&n, "fib"), fo != nullptr ? childHint(h, "fib") : nullptr);
    }
    if (touched(h, "routes")) routes(af, vrf, ro, member(&n, "routes"), routesHint, Pass::upserts);
    for (size_t i = 0; i < std::size(kInputs); ++i) {
      const Input& in = kInputs[i];
      if (!touchedInputs[i]) continue;
      if (Json* m = member(&n, in.name)) {
        const Json* om = member(o, in.name);
        (this->*in.upsert)(af, vrf, om, *m, om != nullptr ? childHint(h, in.name) : nullptr);
      }
    }
  }

  void removeFamily(AddressFamily af, const L3::VrfName& vrf) {
    for (const Input& in : kInputs) (this->*in.remove)(af, vrf);
    st_.routeTableDel(af, vrf);
    st_.fibTableDel(af, vrf);
  }

  // Each input: update the platform's record in place when it has one (the hint applies only
  // when the old document had the member too), else build a record in full and insert it.

  // -- pimConfig

  void pimConfigIs(AddressFamily af, const L3::VrfName& vrf, const Json*, Json& n, const Json* h) {
    Pim::ConfigColl& coll = *st_.pimConfigColl(af);
    auto fill = [&](Pim::Config& c, const Json* hint) {
      if (touched(hint, "joinPruneInterval")) {
        c.joinPruneIntervalIs(static_cast<uint16_t>(
            unsignedOr(n, "joinPruneInterval", Schema::kDefaultJoinPruneInterval)));
      }
    };
    if (Pim::Config* c = coll.vrfConfig().find(vrf)) return fill(*c, h);
    auto c = Ent::make<Pim::Config>(vrf);
    fill(*c, nullptr);
    coll.vrfConfigIs(c);
  }
  void pimConfigDel(AddressFamily af, const L3::VrfName& vrf) {
    st_.pimConfigColl(af)->vrfConfigDel(vrf);
  }

  // -- pimStatus

  void pimStatusIs(AddressFamily af, const L3::VrfName& vrf, const Json* o, Json& n,
                   const Json* h) {
    Pim::GlobalStatus& coll = *st_.pimGlobalStatus(af);
    if (Pim::Status* s = coll.vrfStatus().find(vrf)) return fillPimStatus(*s, o, n, h);
    auto s = Ent::make<Pim::Status>(vrf);
    fillPimStatus(*s, nullptr, n, nullptr);
    coll.vrfStatusIs(s);
  }
  void pimStatusDel(AddressFamily af, const L3::VrfName& vrf) {
    st_.pimGlobalStatus(af)->vrfStatusDel(vrf);
  }

  void fillPimStatus(Pim::Status& s, const Json* o, Json& n, const Json* h) {
    if (touched(h, "mode")) s.modeIs(enumOr(n, "mode", Schema::kVrfModes, Schema::kDefaultVrfMode));
    if (!touched(h, "interfaces")) return;
    forEachKey(member(o, "interfaces"), member(&n, "interfaces"), childHint(h, "interfaces"),
               [&](const std::string& name, const Json* io, Json* in, const Json* ih) {
                 const IntfId id(name);
                 if (in == nullptr) {
                   pimIntfDel(s, id);
                 } else if (Pim::Intf* intf = s.pimIntf().find(id)) {
                   fillPimIntf(*intf, io, *in, io != nullptr ? ih : nullptr);
                 } else {
                   auto made = Ent::make<Pim::Intf>(id);
                   fillPimIntf(*made, nullptr, *in, nullptr);
                   s.pimIntfIs(made);
                 }
               });
  }

  void fillPimIntf(Pim::Intf& intf, const Json* o, Json& n, const Json* h) {
    if (touched(h, "address")) {
      const IpGenPrefix p = prefix(n["address"].get<std::string>());
      intf.addressIs(p.address(), p.maskLen());
    }
    if (touched(h, "mode")) {
      intf.modeIs(enumOr(n, "mode", Schema::kIntfModes, Schema::kDefaultIntfMode));
    }
    if (touched(h, "dr")) {
      const Json* dr = member(&n, "dr");
      intf.drAddrIs(dr != nullptr ? address(dr->get<std::string>()) : IpGenAddr());
    }
    if (touched(h, "helloInterval")) {
      intf.helloIntervalIs(
          static_cast<uint16_t>(unsignedOr(n, "helloInterval", Schema::kDefaultHelloInterval)));
    }
    if (touched(h, "joinPruneInterval")) {
      intf.jpIntervalIs(static_cast<uint16_t>(
          unsignedOr(n, "joinPruneInterval", Schema::kDefaultJoinPruneInterval)));
    }
    if (!touched(h, "neighbors")) return;
    forEachKey(member(o, "neighbors"), member(&n, "neighbors"), childHint(h, "neighbors"),
               [&](const std::string& name, const Json* no, Json* nn, const Json* nh) {
                 const IpGenAddr a = address(name);
                 if (nn == nullptr) {
                   intf.activeNeighborDel(a);
                 } else if (Pim::Neighbor* nbr = intf.activeNeighbor().find(a)) {
                   fillNeighbor(*nbr, no, *nn, no != nullptr ? nh : nullptr);
                 } else {
                   auto made = Ent::make<Pim::Neighbor>(a);
                   fillNeighbor(*made, no, *nn, nullptr);
                   intf.activeNeighborIs(made);
                 }
               });
  }

  void fillNeighbor(Pim::Neighbor& nbr, const Json* o, Json& n, const Json* h) {
    const double created = resolveTime(n, "created", o, now_);
    const double refreshed = resolveTime(n, "lastRefresh", o, now_);
    if (touched(h, "created")) nbr.creationTimeIs(created);
    if (touched(h, "lastRefresh")) nbr.lastRefreshTimeIs(refreshed);
    if (touched(h, "holdTime")) {
      nbr.holdTimeIs(
          static_cast<uint16_t>(unsignedOr(n, "holdTime", Schema::kDefaultNeighborHoldTime)));
    }
  }

  // -- bsrConfig

  void bsrConfigIs(AddressFamily af, const L3::VrfName& vrf, const Json*, Json& n, const Json* h) {
    Pim::Bsr::ConfigColl& coll = *st_.bsrConfigColl(af);
    auto fill = [&](Pim::Bsr::Config& c, const Json* hint) {
      if (touched(hint, "bootstrapTimeout")) {
        c.bootstrapTimeoutIs(static_cast<uint32_t>(
            unsignedOr(n, "bootstrapTimeout", Schema::kDefaultBootstrapTimeout)));
      }
      if (touched(hint, "candidateRpConfigs")) {
        c.candidateRpConfigCountIs(static_cast<uint32_t>(
            unsignedOr(n, "candidateRpConfigs", Schema::kDefaultCandidateRpConfigs)));
      }
    };
    if (Pim::Bsr::Config* c = coll.vrfConfig().find(vrf)) return fill(*c, h);
    auto c = Ent::make<Pim::Bsr::Config>(vrf);
    fill(*c, nullptr);
    coll.vrfConfigIs(c);
  }
  void bsrConfigDel(AddressFamily af, const L3::VrfName& vrf) {
    st_.bsrConfigColl(af)->vrfConfigDel(vrf);
  }

  // -- bsrStatus

  void bsrStatusIs(AddressFamily af, const L3::VrfName& vrf, const Json* o, Json& n,
                   const Json* h) {
    Pim::Bsr::StatusColl& coll = *st_.bsrStatusColl(af);
    if (Pim::Bsr::Status* s = coll.vrfStatus().find(vrf)) return fillBsrStatus(*s, o, n, h);
    auto s = Ent::make<Pim::Bsr::Status>(vrf);
    fillBsrStatus(*s, nullptr, n, nullptr);
    coll.vrfStatusIs(s);
  }
  void bsrStatusDel(AddressFamily af, const L3::VrfName& vrf) {
    st_.bsrStatusColl(af)->vrfStatusDel(vrf);
  }

  // The BSR records can only be created empty in place, so new ones are filled right after.
  void fillBsrStatus(Pim::Bsr::Status& s, const Json* o, Json& n, const Json* h) {
    if (touched(h, "candidateBsrs")) {
      forEachKey(
          member(o, "candidateBsrs"), member(&n, "candidateBsrs"), childHint(h, "candidateBsrs"),
          [&](const std::string& name, const Json* co, Json* cn, const Json* ch) {
            const IpGenPrefix p = prefix(name);
            if (cn == nullptr) {
              s.cbsrDel(p);
              return;
            }
            const Json* hint = co != nullptr ? ch : nullptr;
            Ent::Ptr<Pim::Bsr::CandidateBsr> c = s.cbsrIs(p);
            if (touched(hint, "interface"))
              c->intfIdIs(IntfId((*cn)["interface"].get<std::string>()));
            if (touched(hint, "priority")) {
              c->priorityIs(
                  static_cast<uint16_t>(unsignedOr(*cn, "priority", Schema::kDefaultCbsrPriority)));
            }
          });
    }
    if (touched(h, "electedBsrs")) {
      forEachKey(member(o, "electedBsrs"), member(&n, "electedBsrs"), childHint(h, "electedBsrs"),
                 [&](const std::string& name, const Json*, Json* en, const Json*) {
                   const IpGenPrefix p = prefix(name);
                   if (en == nullptr) {
                     s.electedBsrDel(p);
                   } else {
                     s.electedBsrIs(p)->bsrAddressIs(address((*en)["address"].get<std::string>()));
                   }
                 });
    }
    if (touched(h, "candidateRps")) {
      forEachKey(member(o, "candidateRps"), member(&n, "candidateRps"),
                 childHint(h, "candidateRps"),
                 [&](const std::string& name, const Json*, Json* rn, const Json*) {
                   if (rn == nullptr) {
                     s.crpDel(address(name));
                   } else {
                     s.crpIs(address(name));
                   }
                 });
    }
  }

  // -- candidateRpStatus, staticRpStatus

  void crpStatusIs(AddressFamily af, const L3::VrfName& vrf, const Json* o, Json& n,
                   const Json* h) {
    rpStatusIs(*st_.crpStatusColl(af), Schema::kDefaultCandidateRpType, vrf, o, n, h);
  }
  void crpStatusDel(AddressFamily af, const L3::VrfName& vrf) {
    st_.crpStatusColl(af)->vrfStatusDel(vrf);
  }
  void staticRpStatusIs(AddressFamily af, const L3::VrfName& vrf, const Json* o, Json& n,
                        const Json* h) {
    rpStatusIs(*st_.staticRpStatusColl(af), Schema::kDefaultStaticRpType, vrf, o, n, h);
  }
  void staticRpStatusDel(AddressFamily af, const L3::VrfName& vrf) {
    st_.staticRpStatusColl(af)->vrfStatusDel(vrf);
  }

  void rpStatusIs(Pim::RpCandidateStatusColl& coll, std::string_view defaultType,
                  const L3::VrfName& vrf, const Json* o, Json& n, const Json* h) {
    if (Pim::RpCandidateStatus* s = coll.vrfStatus().find(vrf)) {
      return fillRpStatus(*s, defaultType, o, n, h);
    }
    auto s =
        Ent::make<Pim::RpCandidateStatus>(vrf, enumOr(n, "rpType", Schema::kRpTypes, defaultType));
    fillRpStatus(*s, defaultType, nullptr, n, nullptr);
    coll.vrfStatusIs(s);
  }

  void fillRpStatus(Pim::RpCandidateStatus& s, std::string_view defaultType, const Json* o, Json& n,
                    const Json* h) {
    if (touched(h, "rpType")) s.rpTypeIs(enumOr(n, "rpType", Schema::kRpTypes, defaultType));
    if (!touched(h, "groups")) return;
    forEachKey(member(o, "groups"), member(&n, "groups"), childHint(h, "groups"),
               [&](const std::string& name, const Json* go, Json* gn, const Json* gh) {
                 const IpGenPrefix p = prefix(name);
                 if (gn == nullptr) {
                   s.crpSetDel(p);
                 } else if (Pim::RpCandidateSet* set = s.crpSet().find(p)) {
                   fillRpSet(*set, go, *gn, go != nullptr ? gh : nullptr);
                 } else {
                   auto made = Ent::make<Pim::RpCandidateSet>(p);
                   fillRpSet(*made, nullptr, *gn, nullptr);
                   s.crpSetIs(made);
                 }
               });
  }

  void fillRpSet(Pim::RpCandidateSet& set, const Json* o, Json& n, const Json* h) {
    forEachKey(o, &n, h, [&](const std::string& name, const Json* ro, Json* rn, const Json* rh) {
      const IpGenAddr a = address(name);
      if (rn == nullptr) {
        set.rpCandidateDel(a);
      } else if (Pim::RpCandidate* rp = set.rpCandidate().find(a)) {
        fillRp(*rp, ro, *rn, ro != nullptr ? rh : nullptr);
      } else {
        auto made = Ent::make<Pim::RpCandidate>(a);
        fillRp(*made, ro, *rn, nullptr);
        set.rpCandidateIs(made);
      }
    });
  }

  void fillRp(Pim::RpCandidate& rp, const Json* o, Json& n, const Json* h) {
    const auto hold = static_cast<uint32_t>(unsignedOr(n, "holdTime", Schema::kDefaultRpHoldTime));
    // An RP learnt now expires one hold time from now.
    const double expiry = resolveTime(n, "expiry", o, now_ + hold);
    if (touched(h, "holdTime")) rp.holdTimeIs(hold);
    if (touched(h, "expiry")) rp.expiryTimeIs(expiry);
  }

  // -- mfibConfig

  void mfibConfigIs(AddressFamily af, const L3::VrfName& vrf, const Json*, Json& n, const Json* h) {
    Routing::Multicast::Fib::VrfConfig& coll = *st_.mfibVrfConfig(af);
    const bool fresh = coll.config().find(vrf.str()) == nullptr;
    Ent::Ptr<Routing::Multicast::Fib::Config> c = coll.configIs(vrf.str());
    if (fresh || touched(h, "routing")) {
      c->routingIs(boolOr(n, "routing", Schema::kDefaultMfibRouting));
    }
  }
  void mfibConfigDel(AddressFamily af, const L3::VrfName& vrf) {
    st_.mfibVrfConfig(af)->configDel(vrf.str());
  }

  // -- routes

  void routes(AddressFamily af, const L3::VrfName& vrf, const Json* o, Json* n, const Json* h,
              Pass pass) {
    if (n == nullptr) {
      if (pass == Pass::removals) st_.routeTableDel(af, vrf);
      return;
    }
    Ent::Ptr<PlatformState::RouteTable> table =
        pass == Pass::removals ? st_.routeTable(af, vrf) : st_.routeTableIs(af, vrf);
    if (!table) return;
    forEachKey(
        o, n, h,
        [&](const std::string& name, const Json* ro, Json* rn, const Json* rh) {
          const Pim::RouteKey key = *parseRouteKey(name, af);
          // The records hold what the previous document held: a route new to the document is
          // new to the table, and needs no look-up there.
          if (rn == nullptr) {
            table->routeDel(key);
          } else if (Sm::Route* r = ro != nullptr ? table->route().find(key) : nullptr) {
            fillRoute(af, *r, ro, *rn, ro != nullptr ? rh : nullptr);
          } else {
            auto made = Ent::make<Sm::Route>(key);
            fillRoute(af, *made, ro, *rn, nullptr);
            table->routeIs(made);
          }
        },
        pass, landings_);
  }

  void fillRoute(AddressFamily af, Sm::Route& r, const Json* o, Json& n, const Json* h) {
    const double created = resolveTime(n, "created", o, now_);
    if (touched(h, "created")) r.creationTimeIs(created);
    if (touched(h, "upstream")) {
      if (const Json* up = member(&n, "upstream")) {
        const Json* rpf = member(up, "rpfNeighbor");
        // Shared with every route of the same upstream.
        r.upstreamInfoIs(st_.upstreamInfoPool().upstreamInfo(
            IntfId((*up)["interface"].get<std::string>()),
            rpf != nullptr ? address(rpf->get<std::string>()) : IpGenAddr::unspecified(af)));
      } else {
        r.upstreamInfoDel();
      }
    }
    if (touched(h, "flags")) {
      uint8_t flags = 0;
      if (const Json* f = member(&n, "flags")) {
        for (const Json& flag : *f) {
          flags |= *Schema::valueOf(Schema::kRouteFlags, flag.get_ref<const std::string&>());
        }
      }
      r.flagsIs(flags);
    }
    if (!touched(h, "interfaces")) return;
    forEachKey(member(o, "interfaces"), member(&n, "interfaces"), childHint(h, "interfaces"),
               [&](const std::string& name, const Json* io, Json* in, const Json* ih) {
                 const IntfId id(name);
                 if (in == nullptr) {
                   r.routeIntfDel(id);
                 } else if (Sm::Intf* intf = r.routeIntf().find(id)) {
                   fillRouteIntf(*intf, *in, io != nullptr ? ih : nullptr);
                 } else {
                   auto made = Ent::make<Sm::Intf>(id);
                   fillRouteIntf(*made, *in, nullptr);
                   r.routeIntfIs(made);
                 }
               });
  }

  static void fillRouteIntf(Sm::Intf& intf, const Json& n, const Json* h) {
    if (touched(h, "assertState")) {
      intf.assertStateIs(
          enumOr(n, "assertState", Schema::kAssertStates, Schema::kDefaultAssertState));
    }
    if (touched(h, "assertMetric")) {
      intf.assertMetricIs(static_cast<uint32_t>(unsignedOr(n, "assertMetric", 0)));
    }
    if (touched(h, "assertMetricPref")) {
      intf.assertMetricPrefIs(static_cast<uint32_t>(unsignedOr(n, "assertMetricPref", 0)));
    }
    if (touched(h, "assertRptBit")) intf.assertRptBitIs(boolOr(n, "assertRptBit", false));
    if (touched(h, "rptState")) {
      intf.rptStateIs(enumOr(n, "rptState", Schema::kRptStates, Schema::kDefaultRptState));
    }
    if (touched(h, "forward")) intf.forwardIs(boolOr(n, "forward", Schema::kDefaultForward));
  }

  // -- fib

  void fib(AddressFamily af, const L3::VrfName& vrf, const Json* o, Json* n, const Json* h) {
    if (n == nullptr) {
      st_.fibTableDel(af, vrf);
      return;
    }
    Ent::Ptr<PlatformState::FibTable> table = st_.fibTableIs(af, vrf);
    const Json* indexes = member(n, "oifIndexes");
    bool remapped = false;
    if (touched(h, "oifIndexes")) {
      remapped = syncOifIndexes(*table, member(o, "oifIndexes"), indexes);
    }
    if (!touched(h, "routes") && !remapped) return;
    // A moved OIF index changes the OIF bits of every route using it: check them all.
    const Json* hint = remapped ? nullptr : childHint(h, "routes");
    forEachKey(
        member(o, "routes"), member(n, "routes"), hint,
        [&](const std::string& name, const Json* ro, Json* rn, const Json*) {
          const auto key = Pim::pimRouteKeyToMfibKey(*parseRouteKey(name, af));
          if (rn == nullptr) {
            table->routeDel(key);
          } else {
            upsertFibRoute(*table, indexes, key, *rn, ro != nullptr);
          }
        },
        Pass::both, landings_);
  }

  // Puts the table's OIF map in line with `indexes` (interface -> index); returns whether an
  // interface kept in the map moved to another index.
  static bool syncOifIndexes(PlatformState::FibTable& table, const Json* oldIndexes,
                             const Json* indexes) {
    std::map<uint16_t, std::string> wanted;
    if (indexes != nullptr) {
      for (const auto& [name, v] : indexes->items()) {
        wanted.emplace(static_cast<uint16_t>(unsignedValue(v)), name);
      }
    }
    // Stale entries go first: the agent drops both directions of a mapping it is told is gone,
    // which would undo the new mapping of an interface that moved.
    std::vector<OifIndex> stale;
    for (const auto& [index, intf] : table.oifIndexIntf()) {
      auto it = wanted.find(index.value);
      if (it == wanted.end() || it->second != intf.name()) stale.push_back(index);
    }
    for (OifIndex index : stale) table.oifIndexIntfDel(index);
    for (const auto& [index, name] : wanted) table.oifIndexIntfIs(OifIndex(index), IntfId(name));

    bool moved = false;
    if (oldIndexes != nullptr && oldIndexes->is_object()) {
      for (const auto& [name, v] : oldIndexes->items()) {
        const Json* now = member(indexes, name);
        if (!v.is_null() && now != nullptr && unsignedValue(*now) != unsignedValue(v)) moved = true;
      }
    }
    return moved;
  }

  // `known`: the previous document had the route, so the table may too (else it has not).
  static void upsertFibRoute(PlatformState::FibTable& table, const Json* indexes,
                             const Routing::Multicast::Fib::IpGenRouteKey& key, const Json& n,
                             bool known) {
    Shtab::Multicast::Fib::Route route;
    if (const Json* oifs = member(&n, "oifs")) {
      for (const Json& oif : *oifs) {
        route.oifIs(OifIndex(
            static_cast<uint16_t>(unsignedValue((*indexes)[oif.get_ref<const std::string&>()]))));
      }
    }
    const uint64_t packets = unsignedOr(n, "packets", 0);
    const uint64_t bytes = unsignedOr(n, "bytes", 0);
    auto it = known ? table.route().find(key) : table.route().end();
    if (it == table.route().end()) {
      route.countersIs(packets, bytes);
      table.routeIs(key, route);
      return;
    }
    // Counters move without announcements: compare the rest with the old counters.
    route.countersIs(it->second.packets(), it->second.bytes());
    if (!(route == it->second)) table.routeIs(key, route);
    table.routeCountersIs(key, packets, bytes);
  }

  using Upsert = void (Sync::*)(AddressFamily, const L3::VrfName&, const Json*, Json&, const Json*);
  using Remove = void (Sync::*)(AddressFamily, const L3::VrfName&);
  struct Input {
    std::string_view name;
    Upsert upsert;
    Remove remove;
  };
  // The seven inputs of a VRF, in the order the agent checks them.
  static constexpr Input kInputs[] = {
      {"pimConfig", &Sync::pimConfigIs, &Sync::pimConfigDel},
      {"pimStatus", &Sync::pimStatusIs, &Sync::pimStatusDel},
      {"bsrStatus", &Sync::bsrStatusIs, &Sync::bsrStatusDel},
      {"candidateRpStatus", &Sync::crpStatusIs, &Sync::crpStatusDel},
      {"staticRpStatus", &Sync::staticRpStatusIs, &Sync::staticRpStatusDel},
      {"bsrConfig", &Sync::bsrConfigIs, &Sync::bsrConfigDel},
      {"mfibConfig", &Sync::mfibConfigIs, &Sync::mfibConfigDel},
  };

 public:
  // Exactly the members the description marks as inputs.
  static constexpr bool inputsDescribed() {
    size_t described = 0;
    for (const Description::Member& m : Description::kFamilyMembers) {
      if (!m.input) continue;
      ++described;
      bool found = false;
      for (const Input& in : kInputs) found = found || in.name == m.name;
      if (!found) return false;
    }
    return described == std::size(kInputs);
  }

 private:
  PlatformState& st_;
  const double now_;
  const MergeLandings* landings_;
  FamilyHooks hooks_;
};

static_assert(Sync::inputsDescribed());

}  // namespace

void apply(Document& current, Document next, PlatformState& state) {
  // A whole document is diffed in full, one VRF's family at a time: its routes are in both
  // trees while its records follow them, and packed again right after.
  const Sync::FamilyHooks hooks{[&](const std::string& vrf, size_t family) {
                                  current.unsettleScope(vrf, family);
                                  next.unsettleScope(vrf, family);
                                },
                                [&](const std::string& vrf, size_t family) {
                                  current.settleScope(vrf, family);
                                  next.settleScope(vrf, family);
                                }};
  try {
    Sync(state, Plat::now(), nullptr, hooks)
        .run(&DocumentTimes::json(current), DocumentTimes::json(next), nullptr);
  } catch (...) {
    // The records are somewhere between the two documents: diff them back in full.
    Sync(state, Plat::now())
        .run(&DocumentTimes::loosened(next), DocumentTimes::loosened(current), nullptr);
    current.settle();
    throw;
  }
  current = std::move(next);
  current.settle();
  // What is left of the trees (and of the document's text, freed by now) goes back to the
  // system.
  releaseFreeMemory();
}

ApplyResult applyText(Document& current, std::string_view text, PlatformState& state) {
  ParseResult parsed = Document::parse(text);
  if (!parsed.document) return {false, std::move(parsed.errors)};
  apply(current, std::move(*parsed.document), state);
  return {true, {}};
}

ApplyResult applyTextTaking(Document& current, std::string text, PlatformState& state) {
  ParseResult parsed = Document::parse(text);
  // A state file's text is as large as its tree: gone before the records are built, its pages
  // serve them.
  std::string().swap(text);
  if (!parsed.document) return {false, std::move(parsed.errors)};
  apply(current, std::move(*parsed.document), state);
  return {true, {}};
}

namespace {

// Takes back a patch whose records failed part way: the document returns to what it was, and
// the records follow it back over the patch's members. Those records are partly changed, which
// the walk allows for: it looks each record up, updates what is there and builds what is not.
void revert(Document& current, const Json& patch, const Json& before, PlatformState& state) {
  Json& doc = DocumentTimes::json(current);
  // What the patch made of its members, for the walk back: the same shape as `before`.
  Json after = mergePatchInPlaceWithUndo(doc, before);
  mergePatchInPlace(doc, after);
  current.revertPatch(patch, before);
  Sync(state, Plat::now()).run(&after, doc, &before);
}

// `patch` is taken: its values move into the document and it is left as the change's hint.
ApplyResult applyPatchTaking(Document& current, Json& patch, PlatformState& state) {
  Json before;
  const ClearTreeOnExit freeBefore(before);
  MergeLandings landings;
  ValidationErrors errors = current.mergePatchTaking(patch, &before, &landings);
  if (!errors.empty()) {
    current.settle();
    return {false, std::move(errors)};
  }
  try {
    Sync(state, Plat::now(), &landings).run(&before, DocumentTimes::json(current), &patch);
  } catch (...) {
    revert(current, patch, before, state);
    current.settle();
    throw;
  }
  current.settle();
  return {true, {}};
}

}  // namespace

ApplyResult applyPatch(Document& current, const Json& patch, PlatformState& state) {
  Json copy = patch;
  return applyPatchTaking(current, copy, state);
}

ApplyResult applyPatchText(Document& current, std::string_view patchText, PlatformState& state) {
  JsonParseResult parsed = parseJson(patchText);
  if (!parsed.value) return {false, std::move(parsed.errors)};
  const ClearTreeOnExit freePatch(*parsed.value);
  return applyPatchTaking(current, *parsed.value, state);
}

}  // namespace PimSnmpd
