#pragma once

// SNMPv2c reaches a VRF's context only through a community mapped to it. With a prefix P the
// default VRF ("" context) is served under community P and VRF V under "P-V". A master agent
// adds the mapping for every context as it comes up (net-snmp parses the configuration line at
// run time); for a stock snmpd master the same lines go into its snmpd.conf.

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "platform/Ent/Entity.h"
#include "platform/Snmp/MibContext.h"

namespace PimSnmpd {

// The community of `context`: P for "", "P-<context>" otherwise.
std::string communityFor(std::string_view prefix, std::string_view context);

// The snmpd.conf line mapping the community of `context`, or nullopt when the context name
// cannot be written in that syntax (whitespace, quotes, control characters).
std::optional<std::string> communityLine(std::string_view prefix, std::string_view source,
                                         std::string_view context);

class CommunityMapper : public Ent::ReactorOf<Snmp::MibContexts> {
 public:
  // Hands one configuration line to net-snmp; returns false when it was not accepted.
  using Configure = std::function<bool(const std::string& line)>;

  CommunityMapper(Ent::Ptr<const Snmp::MibContexts> contexts, std::string prefix,
                  std::string source, Configure configure);

  // Maps every context served now (the constructor does not, so that it can be built before
  // the agent is up).
  void syncAll();
  // Maps every context served now again: the configuration was re-read, which dropped the
  // lines added at run time.
  void remapAll();
  // The contexts mapped so far (a mapping is never withdrawn: the context may come back, and
  // a community for a context that is not served reaches nothing).
  const std::set<std::string>& mapped() const { return mapped_; }

  void onChange(const Ent::Change& change) override;

 private:
  void map(const std::string& context);

  std::string prefix_;
  std::string source_;
  Configure configure_;
  std::set<std::string> mapped_;
};

// Runs the line through net-snmp's configuration parser.
bool netsnmpConfigure(const std::string& line);

}  // namespace PimSnmpd
