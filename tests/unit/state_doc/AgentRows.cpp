#include "tests/unit/state_doc/AgentRows.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "PimSnmp/PimSnmpAgent/NeighborLossNotifier.h"
#include "platform/Snmp/MibContext.h"
#include "platform/SnmpUtil/AgentHost.h"
#include "tests/support/EmbeddedAgent.h"

namespace StateDocTest {

namespace {

// The contexts the tests' documents use, each reached by its own v2c community.
constexpr const char* kContexts[] = {"", "red", "blue"};

using Host = TestSupport::EmbeddedAgent;

std::string community(const std::string& context) {
  return context.empty() ? "public" : "public-" + context;
}

Host& theHost() {
  std::vector<std::string> lines;
  for (const char* c : kContexts) {
    lines.push_back("rocommunity " + community(c) + " 127.0.0.1" +
                    (*c ? std::string(" .1 ") + c : std::string()));
  }
  return TestSupport::embeddedAgent("pimsnmp-state-doc-test", lines);
}

// Neighbor losses are not what these tests look at.
class Quiet : public Routing::Pim::SnmpAgent::NeighborLossNotifier {
 public:
  void pimNeighborLossNotify(int32_t, Lanet::IpAddr, const std::string&) override {}
};
Quiet quiet;

// One GETBULK of 50 in `context`; the answer (for snmp_free_pdu), or null.
netsnmp_pdu* bulk(Host& h, const std::string& context, const std::vector<oid>& from) {
  netsnmp_pdu* pdu = snmp_pdu_create(SNMP_MSG_GETBULK);
  pdu->non_repeaters = 0;
  pdu->max_repetitions = 50;
  snmp_add_null_var(pdu, from.data(), from.size());
  return TestSupport::exchange(*h.host, h.port, community(context), pdu);
}

std::string oidText(const oid* name, size_t length) {
  std::string out;
  for (size_t i = 0; i < length; ++i) out += "." + std::to_string(name[i]);
  return out;
}

std::string valueText(const netsnmp_variable_list& v) {
  std::string out = std::to_string(v.type) + " ";
  if (v.type == ASN_OCTET_STR || v.type == ASN_IPADDRESS) {
    for (size_t i = 0; i < v.val_len; ++i) out += fmt::format("{:02x}", v.val.string[i]);
  } else if (v.type == ASN_COUNTER64) {
    out += std::to_string((uint64_t{v.val.counter64->high} << 32) | v.val.counter64->low);
  } else if (v.val.integer != nullptr && v.val_len == sizeof(long)) {
    out += std::to_string(*v.val.integer);
  }
  return out;
}

}  // namespace

std::string rowDifferences(const Rows& a, const Rows& b) {
  std::string out;
  int shown = 0;
  auto show = [&](char sign, const std::string& key, const std::string& value) {
    if (shown++ < 12) out += fmt::format("\n  {} {} = {}", sign, key, value);
  };
  for (const auto& [key, value] : a) {
    auto it = b.find(key);
    if (it == b.end() || it->second != value) show('-', key, value);
  }
  for (const auto& [key, value] : b) {
    auto it = a.find(key);
    if (it == a.end() || it->second != value) show('+', key, value);
  }
  return out;
}

Agent::Agent(Ent::Ptr<Ent::Dir> root, PimSnmpd::PlatformState& state, Ent::Ptr<Plat::Clock> clock)
    : root_(std::move(root)),
      clock_(std::move(clock)),
      status_(Ent::make<Snmp::Status>()),
      tree_(state, status_, clock_) {
  theHost();
  Routing::Pim::SnmpAgent::neighborLossNotifierIs(&quiet);
  tree_.bringUp();
  status_->initializedIs(true);
}

Agent::~Agent() {
  tree_.tearDown();
  Routing::Pim::SnmpAgent::neighborLossNotifierIs(nullptr);
}

void Agent::settle(double seconds) {
  auto manual = Ent::ptrCast<Plat::ManualClock>(clock_);
  for (double t = 0; manual && t < seconds; t += 1) manual->stepTo(manual->now() + 1);
}

Rows Agent::rows() {
  Host& h = theHost();
  Rows out;
  if (!h.host) {
    // Two empty walks would compare equal: no agent must fail the comparison, not pass it.
    ADD_FAILURE() << "no embedded agent on 127.0.0.1";
    return out;
  }
  for (const std::string& context : Snmp::mibContexts()->contexts()) {
    for (const std::vector<oid>& root :
         {std::vector<oid>{1, 3, 6, 1, 3, 61}, std::vector<oid>{1, 3, 6, 1, 2, 1, 83},
          std::vector<oid>{1, 3, 6, 1, 2, 1, 168}}) {
      std::vector<oid> at = root;
      for (bool more = true; more;) {
        netsnmp_pdu* response = bulk(h, context, at);
        more = response && response->variables;
        for (auto* v = response ? response->variables : nullptr; v; v = v->next_variable) {
          const bool inside = v->name_length >= root.size() &&
                              std::equal(root.begin(), root.end(), v->name) &&
                              v->type != SNMP_ENDOFMIBVIEW;
          if (!inside) {
            more = false;
            break;
          }
          at.assign(v->name, v->name + v->name_length);
          if (v->type == ASN_TIMETICKS) continue;
          out[context + "|" + oidText(v->name, v->name_length)] = valueText(*v);
        }
        if (response) snmp_free_pdu(response);
      }
    }
  }
  return out;
}

}  // namespace StateDocTest
