#pragma once

// net-snmp finds a context by scanning its list of every context ever registered, several
// times per varbind, and keeps a lookup cache per context in another such list; neither
// forgets a context that went. This keeps both short where it counts: once per PDU, before
// access control, the PDU's context moves to the front of the list (and the lookup caches are
// dropped when the context changed), so each varbind finds it first; a context that went
// leaves the list. Before that, a v1/v2c PDU's community and source get their com2sec entry
// from CommunityMapper.

#include <netinet/in.h>

#include <optional>
#include <string>
#include <string_view>

#include "platform/Ent/Entity.h"
#include "platform/Snmp/MibContext.h"

namespace PimSnmpd {

class CommunityMapper;

class ContextLookup : public Ent::ReactorOf<Snmp::MibContexts> {
 public:
  // `communities` may be null (net-snmp's com2sec list is left alone). The PDU hook is installed
  // only when `perPdu` (a master agent: a subagent's PDUs pass no access control).
  ContextLookup(Ent::Ptr<const Snmp::MibContexts> contexts, CommunityMapper* communities,
                bool perPdu);
  ~ContextLookup() override;
  ContextLookup(const ContextLookup&) = delete;
  ContextLookup& operator=(const ContextLookup&) = delete;

  // Once per PDU: a v1/v2c PDU's community before access control, every PDU's context after.
  // `from`: the IPv4 source of a UDP or TCP request, nullopt for any other.
  void onCommunity(std::string_view community, std::optional<in_addr_t> from);
  void onContext(std::string_view context);

  void onChange(const Ent::Change& change) override;

  // The contexts in net-snmp's list, in scan order.
  static std::vector<std::string> netsnmpContexts();
  // Takes out the contexts that have no registration left but net-snmp's own placeholders;
  // returns how many.
  static size_t pruneNetsnmpContexts();

 private:
  void moveToFront(std::string_view context);
  void prune();

  CommunityMapper* communities_;
  bool perPdu_;
  std::string last_;
  bool prunePending_ = false;
};

}  // namespace PimSnmpd
