#pragma once

// Every platform record a PlatformState holds, as sorted text lines: two states hold the same
// records exactly when their dumps are equal (what a refused update must leave unchanged, and
// what a fresh state built from the final document must match).

#include <fmt/format.h>

#include <string>
#include <vector>

#include "daemon/state/PlatformState.h"
#include "daemon/state/StateDocument.h"
#include "platform/Routing/Pim/RouteKeyConversion.h"

namespace StateDocTest {

inline std::string recordsDump(const PimSnmpd::PlatformState& st) {
  std::vector<std::string> out;
  auto line = [&](std::string text) { out.push_back(std::move(text)); };
  for (const auto& [id, ifIndex] : st.ifMib()->ifIndexByIntfId()) {
    line(fmt::format("ifIndex {} {}", id.name(), ifIndex));
  }
  for (const auto& status : st.allIntfStatusDir()->intfStatus()) {
    line(fmt::format("operStatus {} {}", status->key().name(),
                     static_cast<int>(status->operStatus())));
  }
  for (Lanet::AddressFamily af : {Lanet::AddressFamily::ipv4, Lanet::AddressFamily::ipv6}) {
    const std::string f(Lanet::toString(af));
    for (const auto& c : st.pimConfigColl(af)->vrfConfig()) {
      line(fmt::format("{} pimConfig {} {}", f, c->vrfName(), c->joinPruneInterval()));
    }
    for (const auto& s : st.pimGlobalStatus(af)->vrfStatus()) {
      const std::string v = f + " " + s->vrfName().str();
      line(fmt::format("{} pimStatus {}", v, static_cast<int>(s->mode())));
      for (const auto& [id, i] : s->pimIntf()) {
        line(fmt::format("{} pimIntf {} {}/{} {} {} {} {}", v, id.name(), i->address().toString(),
                         i->maskLen(), static_cast<int>(i->mode()), i->drAddr().toString(),
                         i->helloInterval(), i->jpInterval()));
        for (const auto& n : i->activeNeighbor()) {
          line(fmt::format("{} neighbor {} {} {} {} {}", v, id.name(), n->address().toString(),
                           n->creationTime(), n->lastRefreshTime(), n->holdTime()));
        }
      }
    }
    for (const auto& c : st.bsrConfigColl(af)->vrfConfig()) {
      line(fmt::format("{} bsrConfig {} {} {}", f, c->vrfName(), c->bootstrapTimeout(),
                       c->candidateRpConfigCount()));
    }
    for (const auto& s : st.bsrStatusColl(af)->vrfStatus()) {
      const std::string v = f + " " + s->vrfName().str();
      line(fmt::format("{} bsrStatus", v));
      for (const auto& c : s->cbsr()) {
        line(fmt::format("{} cbsr {} {} {}", v, c->prefix().toString(), c->intfId().name(),
                         c->priority()));
      }
      for (const auto& e : s->electedBsr()) {
        line(fmt::format("{} electedBsr {} {}", v, e->prefix().toString(),
                         e->bsrAddress().toString()));
      }
      for (const auto& c : s->crp()) line(fmt::format("{} crp {}", v, c->key().toString()));
    }
    for (const auto* coll : {&st.crpStatusColl(af), &st.staticRpStatusColl(af)}) {
      for (const auto& s : (*coll)->vrfStatus()) {
        const std::string v = fmt::format("{} {} {}", f, (*coll)->name(), s->vrfName());
        line(fmt::format("{} rpType {}", v, static_cast<int>(s->rpType())));
        for (const auto& [group, set] : s->crpSet()) {
          for (const auto& rp : set->rpCandidate()) {
            line(fmt::format("{} rp {} {} {} {}", v, set->group().toString(),
                             rp->address().toString(), rp->holdTime(), rp->expiryTime()));
          }
        }
      }
    }
    for (const auto& c : st.mfibVrfConfig(af)->config()) {
      line(fmt::format("{} mfibConfig {} {}", f, c->vrfName(), c->routing()));
    }
  }
  for (const auto& [key, table] : st.routeTablesByVrf()) {
    const std::string v = fmt::format("{} {}", Lanet::toString(key.first), key.second);
    line(v + " routeTable");
    for (const auto& r : table->route()) {
      const std::string k = PimSnmpd::routeKeyText(r->key());
      const auto& up = r->upstreamInfo();
      line(fmt::format("{} route {} {} {} {} {}", v, k, r->creationTime(), r->flags(),
                       up ? up->iif().name() : "-", up ? up->rpfNeighbor().toString() : "-"));
      for (const auto& i : r->routeIntf()) {
        line(fmt::format("{} routeIntf {} {} {} {} {} {} {} {}", v, k, i->intfId().name(),
                         i->assertState(), i->assertMetric(), i->assertMetricPref(),
                         i->assertRptBit(), i->rptState(), i->forward()));
      }
    }
  }
  for (const auto& [key, table] : st.fibTablesByVrf()) {
    const std::string v = fmt::format("{} {}", Lanet::toString(key.first), key.second);
    line(v + " fibTable");
    for (const auto& [index, intf] : table->oifIndexIntf()) {
      line(fmt::format("{} oifIndex {} {}", v, index.value, intf.name()));
    }
    for (const auto& [k, route] : table->route()) {
      std::string oifs;
      for (uint16_t i = 0; i < Shtab::Multicast::Fib::OifIndex::kCount; ++i) {
        if (route.oif(Shtab::Multicast::Fib::OifIndex(i))) oifs += fmt::format(" {}", i);
      }
      line(fmt::format("{} fibRoute {} {} {}{}", v,
                       PimSnmpd::routeKeyText(Routing::Pim::mfibKeyToPimRouteKey(k)),
                       route.packets(), route.bytes(), oifs));
    }
  }
  std::sort(out.begin(), out.end());
  std::string text;
  for (const std::string& l : out) text += l + "\n";
  return text;
}

}  // namespace StateDocTest
