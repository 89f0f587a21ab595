#include "daemon/Communities.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <fmt/format.h>

#include <vector>

#include "daemon/Log.h"

// Declared by no installed header.
extern "C" int snmp_config_when(char* line, int when);

namespace PimSnmpd {

std::string communityFor(std::string_view prefix, std::string_view context) {
  if (context.empty()) return std::string(prefix);
  return fmt::format("{}-{}", prefix, context);
}

std::optional<std::string> communityLine(std::string_view prefix, std::string_view source,
                                         std::string_view context) {
  for (unsigned char ch : context) {
    if (ch <= 0x20 || ch == 0x7f || ch == '"' || ch == '\'' || ch == '#' || ch == '\\') {
      return std::nullopt;
    }
  }
  if (context.empty()) return fmt::format("rocommunity {} {}", prefix, source);
  // OID .1: the whole tree, restricted to the context.
  return fmt::format("rocommunity {} {} .1 {}", communityFor(prefix, context), source, context);
}

CommunityMapper::CommunityMapper(Ent::Ptr<const Snmp::MibContexts> contexts, std::string prefix,
                                 std::string source, Configure configure)
    : Ent::ReactorOf<Snmp::MibContexts>(std::move(contexts)),
      prefix_(std::move(prefix)),
      source_(std::move(source)),
      configure_(std::move(configure)) {}

void CommunityMapper::syncAll() {
  if (!notifier()) return;
  for (const std::string& context : notifier()->contexts()) map(context);
}

void CommunityMapper::remapAll() {
  mapped_.clear();
  syncAll();
}

void CommunityMapper::onChange(const Ent::Change& change) {
  if (change.attr != Snmp::MibContexts::attrContext || !change.key || !notifier()) return;
  const auto& context = change.keyAs<std::string>();
  if (!notifier()->modules(context).empty()) map(context);
}

void CommunityMapper::map(const std::string& context) {
  if (mapped_.contains(context)) return;
  const auto line = communityLine(prefix_, source_, context);
  if (!line) {
    Log::warning(
        "no v2c community for context '{}': the name cannot be written in snmpd.conf; "
        "use SNMPv3 with -n",
        context);
    mapped_.insert(context);
    return;
  }
  if (!configure_(*line)) {
    Log::warning("net-snmp did not accept '{}'", *line);
    return;
  }
  mapped_.insert(context);
  Log::info("v2c community '{}' serves context '{}'", communityFor(prefix_, context), context);
}

bool netsnmpConfigure(const std::string& line) {
  std::vector<char> buf(line.begin(), line.end());
  buf.push_back('\0');
  if (!netsnmp_ds_get_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_HAVE_READ_CONFIG)) {
    return netsnmp_config(buf.data()) == SNMPERR_SUCCESS;
  }
  // Applied now and not remembered: net-snmp would replay a remembered line at the next
  // re-read only (and then forget it); CommunityMapper::remapAll adds every line again.
  return snmp_config_when(buf.data(), NORMAL_CONFIG) == SNMPERR_SUCCESS;
}

}  // namespace PimSnmpd
