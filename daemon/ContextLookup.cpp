#include "daemon/ContextLookup.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <net-snmp/agent/agent_callbacks.h>

#include <net-snmp/library/snmpTCPDomain.h>

#include <cstdlib>
#include <cstring>
#include <utility>

#include "daemon/Communities.h"

// net-snmp's list of contexts; declared by no installed header.
extern "C" {
extern subtree_context_cache* context_subtrees;
void clear_lookup_cache(void);
void clear_subtree(netsnmp_subtree* sub);
}

namespace PimSnmpd {
namespace {

const netsnmp_pdu* pduOf(void* serverArg) {
  const auto* parms = static_cast<view_parameters*>(serverArg);
  return parms ? parms->pdu : nullptr;
}

// The source net-snmp matches com2sec entries against: the IPv4 peer of a UDP or TCP request
// (the transports whose requests VACM looks up in that list).
std::optional<in_addr_t> ipv4Source(const netsnmp_pdu& pdu) {
  if (pdu.tDomain != netsnmpUDPDomain && pdu.tDomain != netsnmp_snmpTCPDomain) return std::nullopt;
  if (!pdu.transport_data || pdu.transport_data_length != sizeof(netsnmp_indexed_addr_pair)) {
    return std::nullopt;
  }
  const auto* pair = static_cast<const netsnmp_indexed_addr_pair*>(pdu.transport_data);
  if (pair->remote_addr.sa.sa_family != AF_INET) return std::nullopt;
  return pair->remote_addr.sin.sin_addr.s_addr;
}

// Before VACM's check: the community and source get their com2sec entry.
int beforeAccessCheck(int, int, void* serverArg, void* clientArg) {
  const netsnmp_pdu* pdu = pduOf(serverArg);
  if (!clientArg || !pdu) return SNMPERR_SUCCESS;
  if (pdu->version == SNMP_VERSION_1 || pdu->version == SNMP_VERSION_2c) {
    static_cast<ContextLookup*>(clientArg)->onCommunity(
        std::string_view(reinterpret_cast<const char*>(pdu->community),
                         pdu->community ? pdu->community_len : 0),
        ipv4Source(*pdu));
  }
  return SNMPERR_SUCCESS;
}

// After it: the PDU's context is known, whichever com2sec line or v3 header named it.
int afterAccessCheck(int, int, void* serverArg, void* clientArg) {
  const netsnmp_pdu* pdu = pduOf(serverArg);
  if (!clientArg || !pdu) return SNMPERR_SUCCESS;
  static_cast<ContextLookup*>(clientArg)->onContext(std::string_view(
      pdu->contextName ? pdu->contextName : "", pdu->contextName ? pdu->contextNameLen : 0));
  return SNMPERR_SUCCESS;
}

constexpr std::pair<SNMPCallback*, int> kHooks[] = {
    {beforeAccessCheck, NETSNMP_CALLBACK_HIGHEST_PRIORITY},
    {afterAccessCheck, NETSNMP_CALLBACK_LOWEST_PRIORITY}};

// net-snmp puts "null" registrations (.0, .1, .2 and the gaps of a split) in every context it
// loads a subtree into and never takes them out: a context holding nothing else is gone.
bool servesSomething(const netsnmp_subtree* first) {
  for (const netsnmp_subtree* t = first; t; t = t->next) {
    for (const netsnmp_subtree* c = t; c; c = c->children) {
      const netsnmp_mib_handler* h = c->reginfo ? c->reginfo->handler : nullptr;
      if (!h || !h->handler_name || strcmp(h->handler_name, "null") != 0) return true;
    }
  }
  return false;
}

}  // namespace

ContextLookup::ContextLookup(Ent::Ptr<const Snmp::MibContexts> contexts,
                             CommunityMapper* communities, bool perPdu)
    : Ent::ReactorOf<Snmp::MibContexts>(std::move(contexts)),
      communities_(communities),
      perPdu_(perPdu) {
  // Around VACM's own check (default priority), which resolves the community.
  if (!perPdu_) return;
  for (const auto& [hook, priority] : kHooks) {
    netsnmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_ACM_CHECK_INITIAL, hook,
                              this, priority);
  }
}

ContextLookup::~ContextLookup() {
  if (!perPdu_) return;
  for (const auto& [hook, priority] : kHooks) {
    snmp_unregister_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_ACM_CHECK_INITIAL, hook,
                             this, 1);
  }
}

void ContextLookup::onCommunity(std::string_view community, std::optional<in_addr_t> from) {
  if (communities_) communities_->activate(community, from);
}

void ContextLookup::onContext(std::string_view context) {
  if (prunePending_) prune();
  moveToFront(context);
}

void ContextLookup::moveToFront(std::string_view context) {
  subtree_context_cache* head = context_subtrees;
  if (head && head->context_name && context == head->context_name) return;
  for (subtree_context_cache *prev = head, *it = head ? head->next : nullptr; it;
       prev = it, it = it->next) {
    if (it->context_name && context == it->context_name) {
      prev->next = it->next;
      it->next = context_subtrees;
      context_subtrees = it;
      break;
    }
  }
  // The lookup caches' list is rebuilt in first-use order: the new context comes first.
  if (last_ != context) {
    clear_lookup_cache();
    last_.assign(context);
  }
}

void ContextLookup::onChange(const Ent::Change& change) {
  if (change.attr != Snmp::MibContexts::attrContext) return;
  // Other reactors may unregister after this one: the next PDU looks again.
  prune();
  prunePending_ = true;
}

void ContextLookup::prune() {
  if (pruneNetsnmpContexts() > 0) {
    clear_lookup_cache();
    last_.clear();
  }
  prunePending_ = false;
}

std::vector<std::string> ContextLookup::netsnmpContexts() {
  std::vector<std::string> out;
  for (auto* it = context_subtrees; it; it = it->next) {
    out.emplace_back(it->context_name ? it->context_name : "");
  }
  return out;
}

size_t ContextLookup::pruneNetsnmpContexts() {
  size_t pruned = 0;
  for (subtree_context_cache** link = &context_subtrees; *link;) {
    subtree_context_cache* it = *link;
    if (servesSomething(it->first_subtree)) {
      link = &it->next;
      continue;
    }
    *link = it->next;
    for (netsnmp_subtree *t = it->first_subtree, *next = nullptr; t; t = next) {
      next = t->next;
      clear_subtree(t);
    }
    free(const_cast<char*>(it->context_name));
    free(it);
    ++pruned;
  }
  return pruned;
}

}  // namespace PimSnmpd
