#pragma once

// SNMPv1/v2c reaches a context through a com2sec entry: (community, source) -> security name
// and context. net-snmp scans its com2sec list, first match wins, for every varbind, so with a
// community per VRF that list must not hold them all. CommunityMapper holds every entry in a
// hash map by community and, once per PDU before access control (activate), puts the one entry
// net-snmp would have found in its list in place of the previous one.
//
// The entries come from two places. The configuration's com2sec and rocommunity lines are
// parsed by net-snmp and taken out of its list after each read (Com2SecList), kept in their
// order. With a prefix P (--community-prefix) the default VRF ("" context) is served under
// community P and VRF V under "P-V", all with one security name and one group whose access
// matches every context by prefix; those follow the served contexts and come after the
// configuration's entries, as if appended to it.

#include <netinet/in.h>

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/Ent/Entity.h"
#include "platform/Snmp/MibContext.h"

namespace PimSnmpd {

// The community of `context`: P for "", "P-<context>" otherwise.
std::string communityFor(std::string_view prefix, std::string_view context);

// The snmpd.conf line mapping the community of `context` (for a master agent that is not
// pimsnmpd), or nullopt when the context name cannot be written in that syntax (whitespace,
// quotes, control characters). The lines of `sharedCommunityLines` must come with them.
std::optional<std::string> communityLine(std::string_view prefix, std::string_view source,
                                         std::string_view context);

// The group, view and access lines every per-VRF community's security name shares.
std::vector<std::string> sharedCommunityLines();

// An IPv4 source as com2sec reads it, both in network byte order.
struct Com2SecSource {
  in_addr_t network = 0;
  in_addr_t mask = 0;
  bool operator==(const Com2SecSource&) const = default;
};

// ADDR (a /32), ADDR/LEN, ADDR/MASK or "default"; nullopt for anything else, and for an
// address with bits outside its mask.
std::optional<Com2SecSource> parseCom2SecSource(std::string_view text);

// One com2sec entry, as net-snmp holds it.
struct Com2SecEntry {
  std::string community;
  std::string secName;
  std::string context;
  Com2SecSource source;
  bool negate = false;  // "!SOURCE": a request from there is refused

  bool accepts(in_addr_t from) const { return (from & source.mask) == source.network; }
  bool operator==(const Com2SecEntry&) const = default;
};

// net-snmp's side of the mapping (netsnmpCommunityBackend); tests put a fake in its place.
struct CommunityBackend {
  using Handle = void*;
  // Hands one configuration line to net-snmp; false when it was not accepted.
  std::function<bool(const std::string& line)> configure;
  // Appends a copy of `entry` to net-snmp's com2sec list; null when refused.
  std::function<Handle(const Com2SecEntry& entry)> add;
  // Takes an entry `add` returned out of net-snmp's list and frees it.
  std::function<void(Handle)> remove;
};

class CommunityMapper : public Ent::ReactorOf<Snmp::MibContexts> {
 public:
  // `prefix` empty: no per-VRF communities, only the configuration's entries.
  CommunityMapper(Ent::Ptr<const Snmp::MibContexts> contexts, std::string prefix,
                  Com2SecSource prefixSource, CommunityBackend backend);
  ~CommunityMapper() override;

  // Maps every context served now (the constructor does not, so that it can be built before
  // the agent is up).
  void syncAll();
  // The configuration is being read again: net-snmp freed its com2sec list (the entry in use
  // with it) and its VACM lines.
  void forgetNetsnmpState();
  // After a read: the shared lines go in again.
  void remapAll();
  // The configuration's entries, in the order of its lines; replaces the previous ones.
  void configuredAre(std::vector<Com2SecEntry> entries);

  // Puts the entry net-snmp would pick for `community` from `from` (nullopt: not IPv4, which
  // the com2sec list never matches) in its list, alone; returns it, or null when none
  // accepts the request (the list is then left empty).
  const Com2SecEntry* activate(std::string_view community, std::optional<in_addr_t> from);

  // The contexts that have a prefix community now.
  const std::set<std::string>& mapped() const { return mapped_; }
  size_t configuredCount() const { return configuredCount_; }
  // The entry in net-snmp's list (null when none).
  const Com2SecEntry* active() const { return active_; }

  void onChange(const Ent::Change& change) override;

 private:
  const Com2SecEntry* select(std::string_view community, std::optional<in_addr_t> from) const;
  void map(const std::string& context);
  void unmap(const std::string& context);
  void deactivate();

  std::string prefix_;
  Com2SecSource prefixSource_;
  CommunityBackend backend_;
  bool shared_ = false;
  std::set<std::string> mapped_;
  std::set<std::string> unspellable_;  // warned about once while served
  // community -> its entries in the configuration's order
  std::unordered_map<std::string, std::vector<Com2SecEntry>> configured_;
  size_t configuredCount_ = 0;
  std::unordered_map<std::string, Com2SecEntry> prefixed_;  // community -> entry
  const Com2SecEntry* active_ = nullptr;
  CommunityBackend::Handle activeHandle_ = nullptr;
};

}  // namespace PimSnmpd
