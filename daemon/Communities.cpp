#include "daemon/Communities.h"

#include <arpa/inet.h>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <fmt/format.h>

#include <charconv>
#include <vector>

#include "daemon/Log.h"

#include <net-snmp/library/snmpUDPDomain.h>

// Declared by no installed header.
extern "C" int snmp_config_when(char* line, int when);

namespace PimSnmpd {
namespace {

// The security name, group and view every per-VRF community shares.
constexpr std::string_view kSecName = "pimsnmpVrf";
constexpr std::string_view kView = "pimsnmpVrfAll";

}  // namespace

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
  const std::string community = communityFor(prefix, context);
  if (context.empty()) return fmt::format("com2sec {} {} {}", kSecName, source, community);
  return fmt::format("com2sec -Cn {} {} {} {}", context, kSecName, source, community);
}

std::vector<std::string> sharedCommunityLines() {
  return {
      fmt::format("group {} v1 {}", kSecName, kSecName),
      fmt::format("group {} v2c {}", kSecName, kSecName),
      fmt::format("view {} included .1", kView),
      // Context "" by prefix: every context; the com2sec entry already chose one.
      fmt::format("access {} \"\" any noauth prefix {} none none", kSecName, kView),
  };
}

CommunityMapper::CommunityMapper(Ent::Ptr<const Snmp::MibContexts> contexts, std::string prefix,
                                 CommunityBackend backend)
    : Ent::ReactorOf<Snmp::MibContexts>(std::move(contexts)),
      prefix_(std::move(prefix)),
      backend_(std::move(backend)) {}

CommunityMapper::~CommunityMapper() {
  deactivate();
}

void CommunityMapper::syncAll() {
  if (!shared_) {
    shared_ = true;
    for (const std::string& line : sharedCommunityLines()) {
      if (!backend_.configure(line)) {
        Log::warning("net-snmp did not accept '{}'", line);
        shared_ = false;
      }
    }
  }
  if (!notifier()) return;
  for (const std::string& context : notifier()->contexts()) map(context);
}

void CommunityMapper::remapAll() {
  // net-snmp freed the entry with the rest of its list.
  activeHandle_ = nullptr;
  active_.clear();
  shared_ = false;
  syncAll();
}

void CommunityMapper::onChange(const Ent::Change& change) {
  if (change.attr != Snmp::MibContexts::attrContext || !change.key || !notifier()) return;
  const auto& context = change.keyAs<std::string>();
  if (notifier()->modules(context).empty()) {
    unmap(context);
  } else {
    map(context);
  }
}

void CommunityMapper::map(const std::string& context) {
  if (mapped_.contains(context)) return;
  // The same mapping as a stock master's snmpd.conf could hold (pimsnmpctl communities).
  if (!communityLine(prefix_, "default", context)) {
    if (unspellable_.insert(context).second) {
      Log::warning(
          "no v2c community for context '{}': the name cannot be written in snmpd.conf; "
          "use SNMPv3 with -n",
          context);
    }
    return;
  }
  mapped_.insert(context);
  const std::string community = communityFor(prefix_, context);
  contextOf_[community] = context;
  Log::info("v2c community '{}' serves context '{}'", community, context);
}

void CommunityMapper::unmap(const std::string& context) {
  unspellable_.erase(context);
  if (!mapped_.erase(context)) return;
  const std::string community = communityFor(prefix_, context);
  contextOf_.erase(community);
  if (active_ == community) deactivate();
}

void CommunityMapper::deactivate() {
  if (activeHandle_) backend_.remove(activeHandle_);
  activeHandle_ = nullptr;
  active_.clear();
}

const std::string* CommunityMapper::activate(std::string_view community) {
  const auto it = contextOf_.find(std::string(community));
  if (it == contextOf_.end()) return nullptr;
  if (activeHandle_ && active_ == community) return &it->second;
  deactivate();
  activeHandle_ = backend_.add(it->first, it->second);
  if (!activeHandle_) {
    Log::warning("net-snmp did not accept community '{}' for context '{}'", it->first, it->second);
    return nullptr;
  }
  active_ = it->first;
  return &it->second;
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

std::optional<CommunityBackend> netsnmpCommunityBackend(std::string_view source) {
  in_addr network{}, mask{};
  if (source != "default") {
    const auto slash = source.find('/');
    const std::string address(source.substr(0, slash));
    if (inet_pton(AF_INET, address.c_str(), &network) != 1) return std::nullopt;
    mask.s_addr = INADDR_NONE;
    if (slash != std::string_view::npos) {
      const std::string_view text = source.substr(slash + 1);
      unsigned length = 0;
      const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), length);
      if (ec == std::errc() && end == text.data() + text.size() && length <= 32) {
        mask.s_addr = length == 0 ? 0 : htonl(~uint32_t{0} << (32 - length));
      } else if (inet_pton(AF_INET, std::string(text).c_str(), &mask) != 1) {
        return std::nullopt;
      }
    }
    if (network.s_addr & ~mask.s_addr) return std::nullopt;
  }
  CommunityBackend backend;
  backend.configure = netsnmpConfigure;
  backend.add = [network, mask](const std::string& community,
                                const std::string& context) -> CommunityBackend::Handle {
    com2SecEntry* entry = nullptr;
    in_addr n = network, m = mask;
    const std::string secName(kSecName);
    if (netsnmp_udp_com2SecEntry_create(&entry, community.c_str(), secName.c_str(), context.c_str(),
                                        &n, &m, 0) != 0) {
      return nullptr;
    }
    return entry;
  };
  backend.remove = [](CommunityBackend::Handle entry) {
    auto* e = static_cast<com2SecEntry*>(entry);
    if (netsnmp_udp_com2SecList_remove(e) == 0) netsnmp_udp_com2Sec_free(e);
  };
  return backend;
}

}  // namespace PimSnmpd
