#include "pimsnmp-frr/Snapshot.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

#include "pimsnmp-frr/Log.h"

namespace PimSnmpFrr {
namespace {

bool skippedInterface(const std::string& name) {
  return name == "lo" || name.rfind("pimreg", 0) == 0;
}

// What each join state of `show ip pim join json` makes of a route interface; nullptr: none.
const Json* channelShape(const std::string& state) {
  static const Json kForward = Json::object();
  static const Json kPruned = {{"forward", false}};
  static const Json kRptPruned = {{"rptState", "pruned"}, {"forward", false}};
  static const Json kRptPending = {{"rptState", "prunePending"}};
  static const std::map<std::string, const Json*, std::less<>> kStates = {
      {"JOIN", &kForward},          {"NOINFO", &kForward},      {"PRUNE", &kPruned},
      {"PRUNEP", &kPruned},         {"PRUNET", &kPruned},       {"PRUNEPT", &kPruned},
      {"SGRpt(P)", &kRptPruned},    {"SGRpt(P')", &kRptPruned}, {"SGRpt(PP)", &kRptPending},
      {"SGRpt(PP')", &kRptPending},
  };
  const auto it = kStates.find(state);
  return it == kStates.end() ? nullptr : it->second;
}

Json baseFamily(int joinPruneInterval) {
  return {
      {"pimConfig", {{"joinPruneInterval", joinPruneInterval}}},
      {"pimStatus", {{"mode", "sparse"}, {"interfaces", Json::object()}}},
      {"bsrConfig", {{"bootstrapTimeout", 130}, {"candidateRpConfigs", 0}}},
      {"bsrStatus",
       {{"candidateBsrs", Json::object()},
        {"electedBsrs", Json::object()},
        {"candidateRps", Json::object()}}},
      {"candidateRpStatus", {{"rpType", "bsr"}, {"groups", Json::object()}}},
      {"staticRpStatus", {{"rpType", "static"}, {"groups", Json::object()}}},
      {"mfibConfig", {{"routing", true}}},
      {"routes", Json::object()},
      {"fib", {{"oifIndexes", Json::object()}, {"routes", Json::object()}}},
  };
}

std::string mfcKey(const Kernel::MfcEntry& e) {
  auto quad = [](uint32_t a) {
    return std::to_string(a >> 24) + "." + std::to_string((a >> 16) & 255) + "." +
           std::to_string((a >> 8) & 255) + "." + std::to_string(a & 255);
  };
  return (e.source == 0 ? std::string("*") : quad(e.source)) + "," + quad(e.group);
}

// A FIB route: the entry's OIFs by name, without its incoming interface and anything the
// family's oifIndexes does not number (pimreg).
Json fibRoute(const Kernel::MfcEntry& e, const std::map<int, std::string>& names,
              const Json& oifIndexes) {
  std::vector<std::string> oifs;
  for (int ifx : e.oifIndexes) {
    if (ifx == e.iifIndex) continue;
    const auto it = names.find(ifx);
    if (it == names.end() || !oifIndexes.contains(it->second)) continue;
    oifs.push_back(it->second);
  }
  std::sort(oifs.begin(), oifs.end());
  oifs.erase(std::unique(oifs.begin(), oifs.end()), oifs.end());
  return {{"oifs", oifs}, {"packets", e.packets}, {"bytes", e.bytes}};
}

std::map<int, std::string> namesByIfIndex(const Json& interfaces) {
  std::map<int, std::string> out;
  for (const auto& [name, i] : interfaces.items()) out[i["ifIndex"].get<int>()] = name;
  return out;
}

void addInterface(Json& interfaces, const std::string& name, int index, const KernelView& k) {
  const auto idx = k.ifIndex.find(name);
  const auto op = k.operState.find(name);
  interfaces[name] = {
      {"ifIndex", idx != k.ifIndex.end() && idx->second > 0 ? idx->second : index},
      {"operStatus", ifOperStatus(op == k.operState.end() ? std::string("up") : op->second)}};
}

// Unique ifIndexes are a rule of the document: of two interfaces claiming one (a moment of
// interface churn), the later name in order is left out until the next snapshot.
void dropDuplicateIfIndexes(Json& interfaces) {
  std::map<int, std::string> seen;
  std::vector<std::string> drop;
  for (const auto& [name, i] : interfaces.items()) {
    if (!seen.emplace(i["ifIndex"].get<int>(), name).second) drop.push_back(name);
  }
  for (const auto& name : drop) {
    logLine("interface " + name + " shares its ifIndex with another; left out for now");
    interfaces.erase(name);
  }
}

void addRouteInterfaces(Json& route, const std::string& key, const VrfState& v,
                        const Json& interfaces) {
  Json& ifs = route["interfaces"];
  auto known = [&](const std::string& n) { return interfaces.contains(n); };
  if (const auto c = v.channels.find(key); c != v.channels.end()) {
    for (const auto& [name, ch] : c->second) {
      if (!known(name)) continue;
      if ((ch.state == "NOINFO" && !ch.igmp) || ch.state == "SGRpt(NI)") continue;
      const Json* shape = channelShape(ch.state);
      if (!shape) {
        logLine("route " + key + ": unknown join state '" + ch.state + "' on " + name +
                "; skipped");
        continue;
      }
      ifs[name].update(*shape);
      if (ch.state.rfind("SGRpt", 0) == 0) {
        auto& flags = route["flags"];
        if (std::find(flags.begin(), flags.end(), "rpt") == flags.end()) flags.push_back("rpt");
      }
    }
  }
  if (const auto o = v.oil.find(key); o != v.oil.end()) {
    for (const auto& name : o->second) {
      if (known(name) && !ifs.contains(name)) ifs[name] = Json::object();
    }
  }
}

void addAsserts(Json& routes, const VrfState& v, const Json& interfaces) {
  for (const auto& a : v.asserts) {
    if (a.state == "NOINFO" || !routes.contains(a.routeKey) || !interfaces.contains(a.interface)) {
      continue;
    }
    Json& route = routes[a.routeKey];
    Json& e = route["interfaces"][a.interface];
    if (e.is_null()) e = Json::object();
    e["assertState"] = a.state == "WINNER" ? "winner" : "loser";
    // The loser's upstream interface: it does not forward there.
    if (route.contains("upstream") && route["upstream"]["interface"] == a.interface) {
      e["forward"] = false;
    }
  }
  for (const auto& m : v.assertMetrics) {
    if (!routes.contains(m.routeKey)) continue;
    Json& ifs = routes[m.routeKey]["interfaces"];
    if (!ifs.contains(m.interface) || !ifs[m.interface].contains("assertState")) continue;
    ifs[m.interface].update(
        {{"assertRptBit", m.rpt}, {"assertMetricPref", m.pref}, {"assertMetric", m.metric}});
  }
}

Json buildRoutes(const VrfState& v, const Json& interfaces, int64_t now) {
  Json routes = Json::object();
  for (const auto& [key, u] : v.upstream) {
    Json r = {{"interfaces", Json::object()}};
    if (u.upTime) r["created"] = now - *u.upTime;
    const auto rpf = v.rpf.find(key);
    const std::string ifc =
        rpf != v.rpf.end() && !rpf->second.interface.empty() ? rpf->second.interface : u.inbound;
    if (interfaces.contains(ifc)) {
      r["upstream"] = {{"interface", ifc},
                       {"rpfNeighbor", rpf != v.rpf.end() ? rpf->second.address : "0.0.0.0"}};
    }
    const bool wildcard = key.front() == '*';
    r["flags"] = wildcard ? Json::array({"wildcard", "rpt"})
                          : (u.spt ? Json::array({"spt"}) : Json::array());
    addRouteInterfaces(r, key, v, interfaces);
    routes[key] = std::move(r);
  }
  addAsserts(routes, v, interfaces);
  return routes;
}

Json buildPimInterfaces(const VrfState& v, const FrrState& frr, const Json& interfaces,
                        int joinPrune, int64_t now) {
  Json out = Json::object();
  for (const auto& [name, p] : v.interfaces) {
    const auto z = frr.interfaces.find(name);
    if (!interfaces.contains(name) || z == frr.interfaces.end() || !z->second.address) continue;
    const bool up = interfaces[name]["operStatus"] == "up";
    Json e = {{"address", *z->second.address},
              {"mode", "sparse"},
              // FRR keeps the last DR of a link that went down.
              {"dr", up && p.dr ? *p.dr : "0.0.0.0"},
              {"helloInterval", p.helloPeriod.value_or(30)},
              {"joinPruneInterval", joinPrune},
              {"neighbors", Json::object()}};
    if (const auto n = v.neighbors.find(name); n != v.neighbors.end()) {
      for (const auto& [addr, nb] : n->second) {
        Json x = {{"holdTime", nb.holdMax}};
        if (nb.upTime) x["created"] = now - *nb.upTime;
        x["lastRefresh"] =
            now - (nb.holdLeft ? std::max<int64_t>(0, nb.holdMax - *nb.holdLeft) : 0);
        e["neighbors"][addr] = std::move(x);
      }
    }
    out[name] = std::move(e);
  }
  return out;
}

void buildFib(Json& fam, const std::map<int, std::string>& names, const KernelView& k,
              uint32_t table) {
  const Json& routes = fam["routes"];
  Json& fibRoutes = fam["fib"]["routes"];
  const Json& oifIndexes = fam["fib"]["oifIndexes"];
  for (const auto& e : k.mfc) {
    if (e.table != table) continue;
    const std::string key = mfcKey(e);
    // pimd's blackhole entries for unwanted traffic make no rows.
    if (!routes.contains(key)) continue;
    fibRoutes[key] = fibRoute(e, names, oifIndexes);
  }
}

}  // namespace

std::string ifOperStatus(const std::string& s) {
  static const std::map<std::string, std::string, std::less<>> kNames = {
      {"up", "up"},
      {"down", "down"},
      {"lowerlayerdown", "lowerLayerDown"},
      {"dormant", "dormant"},
      {"notpresent", "notPresent"},
      {"testing", "testing"},
      {"unknown", "unknown"},
      {"", "notPresent"},
  };
  const auto it = kNames.find(s);
  return it == kNames.end() ? "unknown" : it->second;
}

Json buildDocument(const FrrState& frr, const KernelView& k, int64_t now) {
  Json doc = {{"interfaces", Json::object()}, {"vrfs", Json::object()}};
  Json& interfaces = doc["interfaces"];
  for (const auto& [name, z] : frr.interfaces) {
    if (!skippedInterface(name)) addInterface(interfaces, name, z.index, k);
  }
  dropDuplicateIfIndexes(interfaces);
  const auto names = namesByIfIndex(interfaces);

  std::map<std::string, uint32_t> tableOf = {{"default", kDefaultMfcTable}};
  for (const auto& [t, vrf] : frr.tables) tableOf[vrf] = t;

  for (const auto& [vrf, v] : frr.vrfs) {
    const int jp = v.multicast.joinPruneInterval.value_or(60);
    Json fam = baseFamily(jp);
    fam["pimStatus"]["interfaces"] = buildPimInterfaces(v, frr, interfaces, jp, now);
    if (vrf == "default" && !frr.bsr.address.empty()) {
      fam["bsrStatus"]["electedBsrs"]["224.0.0.0/4"] = {{"address", frr.bsr.address}};
    }
    const bool bsrKnown = vrf == "default" && !frr.bsr.address.empty() && frr.bsr.lastBsmSeen;
    for (const auto& [range, rps] : v.bsrRps) {
      for (const auto& [rp, hold] : rps) {
        Json e = {{"holdTime", hold}};
        // FRR hides the RP timer: it runs from the last BSM that carried the RP set.
        if (bsrKnown) e["expiry"] = std::max<int64_t>(0, now - *frr.bsr.lastBsmSeen + hold);
        fam["candidateRpStatus"]["groups"][range][rp] = std::move(e);
      }
    }
    for (const auto& [range, rps] : v.staticRps) {
      for (const auto& rp : rps) fam["staticRpStatus"]["groups"][range][rp] = Json::object();
    }
    fam["mfibConfig"]["routing"] = vrf == "default" ? k.mcForwarding : v.multicast.mrouteSocket;
    fam["routes"] = buildRoutes(v, interfaces, now);

    Json& oifIndexes = fam["fib"]["oifIndexes"];
    for (const auto& [name, vif] : v.vifs) {
      if (interfaces.contains(name)) oifIndexes[name] = vif;
    }
    if (oifIndexes.empty() && vrf == "default") {
      for (const auto& vif : k.vifs) {
        if (interfaces.contains(vif.name)) oifIndexes[vif.name] = vif.vif;
      }
    }
    if (const auto t = tableOf.find(vrf); t != tableOf.end()) buildFib(fam, names, k, t->second);
    doc["vrfs"][vrf]["ipv4"] = std::move(fam);
  }
  return doc;
}

Json buildKernelOnlyDocument(const KernelView& k, int64_t now) {
  (void)now;
  Json doc = {{"interfaces", Json::object()}, {"vrfs", Json::object()}};
  Json& interfaces = doc["interfaces"];
  for (const auto& vif : k.vifs) {
    if (!skippedInterface(vif.name) && vif.ifIndex > 0) {
      addInterface(interfaces, vif.name, vif.ifIndex, k);
    }
  }
  dropDuplicateIfIndexes(interfaces);
  const auto names = namesByIfIndex(interfaces);
  Json fam = baseFamily(60);
  fam["mfibConfig"]["routing"] = k.mcForwarding;
  for (const auto& vif : k.vifs) {
    if (interfaces.contains(vif.name)) fam["fib"]["oifIndexes"][vif.name] = vif.vif;
  }
  for (const auto& e : k.mfc) {
    const auto iif = names.find(e.iifIndex);
    if (e.table != kDefaultMfcTable || e.group == 0 || iif == names.end()) continue;
    const std::string key = mfcKey(e);
    Json fib = fibRoute(e, names, fam["fib"]["oifIndexes"]);
    Json r = {{"upstream", {{"interface", iif->second}, {"rpfNeighbor", "0.0.0.0"}}},
              {"flags", e.source == 0 ? Json::array({"wildcard", "rpt"}) : Json::array()},
              {"interfaces", Json::object()}};
    for (const auto& oif : fib["oifs"]) r["interfaces"][oif.get<std::string>()] = Json::object();
    fam["routes"][key] = std::move(r);
    fam["fib"]["routes"][key] = std::move(fib);
  }
  doc["vrfs"]["default"]["ipv4"] = std::move(fam);
  return doc;
}

namespace {

enum class TimeRule { created, moving };

struct TimedMember {
  std::array<std::string_view, 5> path;  // below a VRF family; "*" is any member, "" ends
  std::string_view member;
  TimeRule rule;
};

constexpr TimedMember kTimedMembers[] = {
    {{"pimStatus", "interfaces", "*", "neighbors", "*"}, "created", TimeRule::created},
    {{"pimStatus", "interfaces", "*", "neighbors", "*"}, "lastRefresh", TimeRule::moving},
    {{"candidateRpStatus", "groups", "*", "*", ""}, "expiry", TimeRule::moving},
    {{"routes", "*", "", "", ""}, "created", TimeRule::created},
};

constexpr double kTimeSlack = 2;

void settle(Json& item, const Json* old, const TimedMember& t, int64_t now) {
  const std::string m(t.member);
  const Json* before =
      old && old->is_object() && old->contains(m) && (*old)[m].is_number() ? &(*old)[m] : nullptr;
  if (!item.contains(m)) {
    if (before) {
      item[m] = *before;
    } else {
      item[m] = m == "expiry" ? now + item.value("holdTime", int64_t{0}) : now;
    }
    return;
  }
  if (!before) return;
  const double v = item[m].get<double>(), b = before->get<double>();
  const bool keep =
      t.rule == TimeRule::created ? v <= b + kTimeSlack : std::fabs(v - b) <= kTimeSlack;
  if (keep) item[m] = *before;
}

void walk(Json& node, const Json* old, const TimedMember& t, size_t depth, int64_t now) {
  if (depth == t.path.size() || t.path[depth].empty()) {
    if (node.is_object()) settle(node, old, t, now);
    return;
  }
  if (!node.is_object()) return;
  auto step = [&](const std::string& name, Json& child) {
    const Json* o = old && old->is_object() && old->contains(name) ? &(*old)[name] : nullptr;
    walk(child, o, t, depth + 1, now);
  };
  if (t.path[depth] == "*") {
    for (auto& [name, child] : node.items()) step(name, child);
  } else if (node.contains(std::string(t.path[depth]))) {
    const std::string name(t.path[depth]);
    step(name, node[name]);
  }
}

}  // namespace

void stabilizeTimes(Json& doc, const Json& previous, int64_t now) {
  if (!doc.contains("vrfs")) return;
  for (auto& [vrf, families] : doc["vrfs"].items()) {
    for (auto& [af, fam] : families.items()) {
      const Json* old = nullptr;
      if (previous.contains("vrfs") && previous["vrfs"].contains(vrf) &&
          previous["vrfs"][vrf].contains(af)) {
        old = &previous["vrfs"][vrf][af];
      }
      for (const auto& t : kTimedMembers) walk(fam, old, t, 0, now);
    }
  }
}

void withdrawPim(Json& doc) {
  if (!doc.contains("vrfs")) return;
  for (auto& [vrf, families] : doc["vrfs"].items()) {
    for (auto& [af, fam] : families.items()) fam.erase("pimStatus");
  }
}

}  // namespace PimSnmpFrr
