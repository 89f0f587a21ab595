#pragma once

// SNMPv2c reaches a VRF's context only through a community mapped to it. With a prefix P the
// default VRF ("" context) is served under community P and VRF V under "P-V".
//
// Every such community maps to one security name and one group whose access matches every
// context by prefix, so VACM's group, access and view lists keep their size whatever the VRF
// count. net-snmp scans its com2sec list for every varbind, so the per-VRF entries wait in a
// hash map and only the entry of the community being served sits in that list (activate, called
// once per PDU before access control). A withdrawn context loses its community.

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>

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

// net-snmp's side of the mapping (netsnmpCommunityBackend); tests put a fake in its place.
struct CommunityBackend {
  using Handle = void*;
  // Hands one configuration line to net-snmp; false when it was not accepted.
  std::function<bool(const std::string& line)> configure;
  // Appends a com2sec entry mapping `community` to `context`; null when refused.
  std::function<Handle(const std::string& community, const std::string& context)> add;
  // Takes an entry `add` returned out of net-snmp's list and frees it.
  std::function<void(Handle)> remove;
};

class CommunityMapper : public Ent::ReactorOf<Snmp::MibContexts> {
 public:
  CommunityMapper(Ent::Ptr<const Snmp::MibContexts> contexts, std::string prefix,
                  CommunityBackend backend);
  ~CommunityMapper() override;

  // Maps every context served now (the constructor does not, so that it can be built before
  // the agent is up).
  void syncAll();
  // The configuration was re-read: net-snmp freed its com2sec entries and VACM lines, the
  // shared lines go in again.
  void remapAll();
  // Puts the entry of `community` in net-snmp's list in place of the previous one; returns
  // the context it reaches, or null when it is none of ours (the list is left as it was).
  const std::string* activate(std::string_view community);

  // The contexts that have a community now.
  const std::set<std::string>& mapped() const { return mapped_; }
  // The community whose entry is in net-snmp's list ("" when none).
  const std::string& active() const { return active_; }

  void onChange(const Ent::Change& change) override;

 private:
  void map(const std::string& context);
  void unmap(const std::string& context);
  void deactivate();

  std::string prefix_;
  CommunityBackend backend_;
  bool shared_ = false;
  std::set<std::string> mapped_;
  std::set<std::string> unspellable_;                       // warned about once while served
  std::unordered_map<std::string, std::string> contextOf_;  // community -> context
  std::string active_;
  CommunityBackend::Handle activeHandle_ = nullptr;
};

// Runs the line through net-snmp's configuration parser.
bool netsnmpConfigure(const std::string& line);

// net-snmp's configuration parser and com2sec list, the entries accepting requests from
// `source` (an IPv4 address with an optional /length or /mask, or "default"); nullopt when
// `source` is none of those.
std::optional<CommunityBackend> netsnmpCommunityBackend(std::string_view source);

}  // namespace PimSnmpd
