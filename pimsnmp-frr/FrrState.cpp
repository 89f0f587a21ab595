#include "pimsnmp-frr/FrrState.h"

#include "pimsnmp-frr/Log.h"

namespace PimSnmpFrr {
namespace {

bool isPimReg(const std::string& name) {
  return name.rfind("pimreg", 0) == 0;
}

// Calls f(key, entry) for every "G" -> "S" -> object of a route listing (upstream, rpf, mroute),
// skipping the listing's other members (rpf's cache counters, say).
template <class F>
void forEachRoute(const FrrJson& groups, const char* command, F&& f) {
  if (!groups.is_object()) return;
  for (const auto& [g, sources] : groups.items()) {
    if (!sources.is_object()) continue;
    for (const auto& [s, entry] : sources.items()) {
      if (!entry.is_object()) continue;
      const auto key = routeKey(s, g);
      if (!key) {
        logLine(std::string(command) + ": unexpected route '" + s + "," + g + "'; skipped");
        continue;
      }
      f(*key, entry);
    }
  }
}

std::optional<int64_t> hmsMember(const FrrJson& obj, std::string_view name) {
  const auto s = stringMember(obj, name);
  return s ? parseHms(*s) : std::nullopt;
}

}  // namespace

std::map<std::string, const FrrJson*> splitVrfs(const FrrJson& root) {
  std::map<std::string, const FrrJson*> out;
  if (!root.is_object()) return out;
  for (const auto& [name, value] : root.items()) {
    if (value.is_object()) out.emplace(name, &value);
  }
  return out;
}

ZebraInterfaces parseZebraInterfaces(const FrrJson& root) {
  ZebraInterfaces out;
  auto add = [&](const std::string& name, const FrrJson& z, const std::string& vrf) {
    const auto index = intMember(z, "index");
    if (!index || *index <= 0 || *index > 0x7fffffff) return;
    ZebraInterface i;
    i.index = static_cast<int>(*index);
    i.vrf = stringMember(z, "vrfName").value_or(vrf);
    if (const FrrJson* addrs = member(z, "ipAddresses"); addrs && addrs->is_array()) {
      for (const auto& a : *addrs) {
        const auto text = stringMember(a, "address");
        if (!text || intMember(a, "secondary").value_or(0) != 0) continue;
        if (auto c = canonicalIfAddress(*text)) {
          i.address = std::move(c);
          break;
        }
      }
    }
    out[name] = std::move(i);
  };
  if (!root.is_object()) return out;
  for (const auto& [name, value] : root.items()) {
    if (!value.is_object()) continue;
    if (member(value, "index")) {
      add(name, value, "default");
      continue;
    }
    // Some versions nest `vrf all` answers by VRF.
    for (const auto& [inner, z] : value.items()) {
      if (z.is_object() && member(z, "index")) add(inner, z, name);
    }
  }
  return out;
}

std::map<IfName, PimInterface> parsePimInterfaces(const FrrJson& vrf) {
  std::map<IfName, PimInterface> out;
  for (const auto& [name, value] : vrf.items()) {
    if (value.is_object() && !isPimReg(name)) out.emplace(name, PimInterface{});
  }
  return out;
}

void parsePimInterfaceDetail(const FrrJson& root, const IfName& name, PimInterface& out) {
  const FrrJson* d = member(root, name);
  if (!d) return;
  if (const auto dr = stringMember(*d, "drAddress")) out.dr = canonicalIpv4(*dr);
  if (const auto h = intMember(*d, "helloPeriod"); h && *h >= 0 && *h <= 65535) {
    out.helloPeriod = static_cast<int>(*h);
  }
}

std::map<IfName, std::map<std::string, PimNeighbor>> parseNeighbors(const FrrJson& vrf) {
  std::map<IfName, std::map<std::string, PimNeighbor>> out;
  for (const auto& [ifName, nbrs] : vrf.items()) {
    if (!nbrs.is_object()) continue;
    for (const auto& [addr, n] : nbrs.items()) {
      const auto a = canonicalIpv4(addr);
      if (!a || !n.is_object()) {
        logLine("show ip pim neighbor json: unexpected neighbor '" + addr + "' on " + ifName +
                "; skipped");
        continue;
      }
      PimNeighbor nb;
      nb.upTime = hmsMember(n, "upTime");
      nb.holdLeft = hmsMember(n, "holdTime");
      if (const auto m = intMember(n, "holdTimeMax"); m && *m >= 0 && *m <= 65535) nb.holdMax = *m;
      out[ifName][*a] = nb;
    }
  }
  return out;
}

std::map<std::string, std::map<std::string, int64_t>> parseBsrpInfo(const FrrJson& vrf) {
  std::map<std::string, std::map<std::string, int64_t>> out;
  for (const auto& [range, rps] : vrf.items()) {
    if (!rps.is_object()) continue;  // "BSR Address"
    const auto r = canonicalGroupRange(range);
    if (!r) {
      logLine("show ip pim bsrp-info json: unexpected group range '" + range + "'; skipped");
      continue;
    }
    for (const auto& [rp, e] : rps.items()) {
      const auto a = canonicalIpv4(rp);
      const auto hold = intMember(e, "Rp HoldTime");
      // Members such as "Pending RP count" are neither addresses nor objects.
      if (!a || !e.is_object() || !hold || *hold < 0 || *hold > 0xffffffffLL) continue;
      out[*r][*a] = *hold;
    }
  }
  return out;
}

std::map<std::string, std::set<std::string>> parseStaticRps(const FrrJson& vrf) {
  std::map<std::string, std::set<std::string>> out;
  for (const auto& [rp, list] : vrf.items()) {
    const auto a = canonicalIpv4(rp);
    if (!a || !list.is_array()) continue;
    for (const auto& item : list) {
      if (stringMember(item, "source").value_or("") != "Static") continue;
      // A range given by prefix-list has no "group" and is not expanded.
      const auto g = stringMember(item, "group");
      if (!g) continue;
      if (const auto r = canonicalGroupRange(*g)) {
        out[*r].insert(*a);
      } else {
        logLine("show ip pim rp-info json: unexpected group '" + *g + "'; skipped");
      }
    }
  }
  return out;
}

std::map<IfName, int> parseMulticastCount(const FrrJson& vrf) {
  std::map<IfName, int> out;
  for (const auto& [name, e] : vrf.items()) {
    const auto vif = intMember(e, "vif");
    if (!e.is_object() || !vif || *vif < 0 || *vif > 511 || isPimReg(name)) continue;
    out[name] = static_cast<int>(*vif);
  }
  return out;
}

std::map<RouteKeyText, Upstream> parseUpstream(const FrrJson& vrf) {
  std::map<RouteKeyText, Upstream> out;
  forEachRoute(vrf, "show ip pim upstream json", [&](const std::string& key, const FrrJson& e) {
    Upstream u;
    u.upTime = hmsMember(e, "upTime");
    u.spt = intMember(e, "sptBit").value_or(0) != 0;
    u.inbound = stringMember(e, "inboundInterface").value_or("");
    out[key] = std::move(u);
  });
  return out;
}

std::map<RouteKeyText, Rpf> parseRpf(const FrrJson& vrf) {
  std::map<RouteKeyText, Rpf> out;
  forEachRoute(vrf, "show ip pim rpf json", [&](const std::string& key, const FrrJson& e) {
    Rpf r;
    r.interface = stringMember(e, "rpfInterface").value_or("");
    r.address = canonicalIpv4(stringMember(e, "rpfAddress").value_or("")).value_or("0.0.0.0");
    out[key] = std::move(r);
  });
  return out;
}

std::map<RouteKeyText, std::map<IfName, Channel>> parseJoin(const FrrJson& vrf) {
  std::map<RouteKeyText, std::map<IfName, Channel>> out;
  for (const auto& [ifName, groups] : vrf.items()) {
    if (!groups.is_object()) continue;
    for (const auto& [g, sources] : groups.items()) {
      // The interface's own members ("name", "address", ...) sit beside its groups.
      if (!sources.is_object() || !canonicalIpv4(g)) continue;
      for (const auto& [s, c] : sources.items()) {
        const auto key = routeKey(s, g);
        if (!key || !c.is_object()) {
          logLine("show ip pim join json: unexpected channel '" + s + "," + g + "'; skipped");
          continue;
        }
        Channel ch;
        ch.state = stringMember(c, "channelJoinName").value_or("NOINFO");
        ch.igmp = intMember(c, "protocolIgmp").value_or(0) != 0;
        out[*key][ifName] = std::move(ch);
      }
    }
  }
  return out;
}

std::map<RouteKeyText, std::set<IfName>> parseMroute(const FrrJson& vrf) {
  std::map<RouteKeyText, std::set<IfName>> out;
  forEachRoute(vrf, "show ip mroute json", [&](const std::string& key, const FrrJson& e) {
    auto& oil = out[key];
    if (const FrrJson* o = member(e, "oil"); o && o->is_object()) {
      for (const auto& [name, v] : o->items()) {
        if (!isPimReg(name)) oil.insert(name);
      }
    }
  });
  return out;
}

BsrState parseBsr(const FrrJson& root) {
  BsrState b;
  const auto addr = canonicalIpv4(stringMember(root, "bsr").value_or(""));
  const auto state = stringMember(root, "state").value_or("");
  if (addr && *addr != "0.0.0.0" && state == "ACCEPT_PREFERRED") {
    b.address = *addr;
    b.lastBsmSeen = hmsMember(root, "lastBsmSeen");
  }
  return b;
}

}  // namespace PimSnmpFrr
