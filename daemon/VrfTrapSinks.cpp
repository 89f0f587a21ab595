#include "daemon/VrfTrapSinks.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <net-snmp/agent/agent_callbacks.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "daemon/Communities.h"
#include "daemon/Log.h"
#include "platform/Snmp/TrapManager.h"

namespace PimSnmpd::VrfTrapSinks {

namespace {

constexpr const char* kDirective = "vrftrap2sink";

struct OpenSink {
  Sink sink;
  netsnmp_session* session;
};

std::vector<OpenSink>& sinks() {
  static std::vector<OpenSink> open;
  return open;
}

bool isSpace(char c) {
  return c == ' ' || c == '\t';
}

std::string_view nextWord(std::string_view& s) {
  while (!s.empty() && isSpace(s.front())) s.remove_prefix(1);
  size_t end = 0;
  while (end < s.size() && !isSpace(s[end])) ++end;
  std::string_view word = s.substr(0, end);
  s.remove_prefix(end);
  return word;
}

void parseLine(const char*, char* line) {
  std::string error;
  std::optional<Sink> sink = parse(line ? line : "", error);
  if (!sink) {
    netsnmp_config_error("%s: %s", kDirective, error.c_str());
    return;
  }
  netsnmp_transport* transport = netsnmp_transport_open_client("snmptrap", sink->address.c_str());
  if (!transport) {
    netsnmp_config_error("%s: cannot reach %s", kDirective, sink->address.c_str());
    return;
  }
  netsnmp_session s;
  snmp_sess_init(&s);
  s.version = SNMP_VERSION_2c;
  s.callback = nullptr;
  s.community = reinterpret_cast<u_char*>(sink->prefix.data());
  s.community_len = sink->prefix.size();
  netsnmp_session* session = snmp_add(&s, transport, nullptr, nullptr);
  if (!session) {
    netsnmp_config_error("%s: cannot open a session to %s", kDirective, sink->address.c_str());
    return;
  }
  sinks().push_back({std::move(*sink), session});
}

void sendTo(const OpenSink& sink, const netsnmp_pdu* notification) {
  netsnmp_pdu* pdu = snmp_clone_pdu(const_cast<netsnmp_pdu*>(notification));
  if (!pdu) return;
  // The VRF that raised it; a notification queued without one goes by its context.
  const std::string* origin = Snmp::TrapManager::sendingOrigin();
  const std::string context =
      origin ? *origin
             : std::string(notification->contextName ? notification->contextName : "",
                           notification->contextName ? notification->contextNameLen : 0);
  const std::string community = communityFor(sink.sink.prefix, context);
  pdu->command = SNMP_MSG_TRAP2;
  pdu->version = SNMP_VERSION_2c;
  SNMP_FREE(pdu->community);
  pdu->community = static_cast<u_char*>(malloc(community.size()));
  if (!pdu->community) {
    snmp_free_pdu(pdu);
    return;
  }
  std::memcpy(pdu->community, community.data(), community.size());
  pdu->community_len = community.size();
  pdu->reqid = snmp_get_next_reqid();
  pdu->msgid = snmp_get_next_msgid();
  if (snmp_send(sink.session, pdu) == 0) {
    snmp_free_pdu(pdu);
    Log::warning("{} {}: notification not sent", kDirective, sink.sink.address);
  }
}

// net-snmp calls this with each v2 notification after its own sinks got it.
int sendToAll(int, int, void* pdu, void*) {
  if (!pdu) return SNMP_ERR_NOERROR;
  for (const OpenSink& sink : sinks()) sendTo(sink, static_cast<const netsnmp_pdu*>(pdu));
  return SNMP_ERR_NOERROR;
}

}  // namespace

std::optional<Sink> parse(std::string_view args, std::string& error) {
  Sink sink;
  sink.address = std::string(nextWord(args));
  sink.prefix = std::string(nextWord(args));
  if (sink.address.empty() || sink.prefix.empty()) {
    error = "takes HOST[:PORT] COMMUNITY-PREFIX";
    return std::nullopt;
  }
  if (!nextWord(args).empty()) {
    error = "takes HOST[:PORT] COMMUNITY-PREFIX and nothing more";
    return std::nullopt;
  }
  return sink;
}

void registerDirective() {
  snmpd_register_config_handler(kDirective, parseLine, clear, "host[:port] community-prefix");
  snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_SEND_TRAP2, sendToAll, nullptr);
}

size_t count() {
  return sinks().size();
}

void clear() {
  for (OpenSink& sink : sinks()) snmp_close(sink.session);
  sinks().clear();
}

}  // namespace PimSnmpd::VrfTrapSinks
