#pragma once

// net-snmp's com2sec list (the one its IPv4 UDP and TCP transports scan): CommunityMapper's
// entries go in and out of it one at a time, and the entries every read of the configuration
// creates (com2sec lines, and the com2sec half of rocommunity and rwcommunity lines) are taken
// out of it into CommunityMapper, in their order.

#include <optional>
#include <string>

#include "daemon/Communities.h"

namespace PimSnmpd {

// Runs the line through net-snmp's configuration parser.
bool netsnmpConfigure(const std::string& line);

// net-snmp's configuration parser and com2sec list.
CommunityBackend netsnmpCommunityBackend();

class Com2SecTakeover {
 public:
  // Watches net-snmp's configuration reads from now on: build it before the agent reads its
  // configuration, and destroy it before the agent shuts down. One at a time.
  explicit Com2SecTakeover(CommunityMapper& mapper);
  ~Com2SecTakeover();
  Com2SecTakeover(const Com2SecTakeover&) = delete;
  Com2SecTakeover& operator=(const Com2SecTakeover&) = delete;

  // Whether net-snmp's entries read back as written, which taking them over depends on; when
  // not (another net-snmp build), the configuration's entries stay in net-snmp's list.
  static bool layoutMatches();

  // Read hooks (also called by the tests in place of a real read).
  void beforeRead();
  void afterRead();

 private:
  CommunityMapper& mapper_;
  bool enabled_;
  void* marker_ = nullptr;  // the entry ahead of everything this read adds
};

}  // namespace PimSnmpd
