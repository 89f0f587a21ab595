#include "daemon/Communities.h"

#include <arpa/inet.h>

#include <fmt/format.h>

#include <charconv>

#include "daemon/Log.h"

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

std::optional<Com2SecSource> parseCom2SecSource(std::string_view text) {
  Com2SecSource out;
  if (text == "default") return out;
  in_addr network{}, mask{};
  const auto slash = text.find('/');
  if (inet_pton(AF_INET, std::string(text.substr(0, slash)).c_str(), &network) != 1) {
    return std::nullopt;
  }
  mask.s_addr = INADDR_NONE;
  if (slash != std::string_view::npos) {
    const std::string_view bits = text.substr(slash + 1);
    unsigned length = 0;
    const auto [end, ec] = std::from_chars(bits.data(), bits.data() + bits.size(), length);
    if (ec == std::errc() && end == bits.data() + bits.size() && length <= 32) {
      mask.s_addr = length == 0 ? 0 : htonl(~uint32_t{0} << (32 - length));
    } else if (inet_pton(AF_INET, std::string(bits).c_str(), &mask) != 1) {
      return std::nullopt;
    }
  }
  if (network.s_addr & ~mask.s_addr) return std::nullopt;
  out.network = network.s_addr;
  out.mask = mask.s_addr;
  return out;
}

CommunityMapper::CommunityMapper(Ent::Ptr<const Snmp::MibContexts> contexts, std::string prefix,
                                 Com2SecSource prefixSource, CommunityBackend backend)
    : Ent::ReactorOf<Snmp::MibContexts>(std::move(contexts)),
      prefix_(std::move(prefix)),
      prefixSource_(prefixSource),
      backend_(std::move(backend)) {}

CommunityMapper::~CommunityMapper() {
  deactivate();
}

void CommunityMapper::syncAll() {
  if (prefix_.empty()) return;
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

void CommunityMapper::forgetNetsnmpState() {
  // net-snmp freed the entry with the rest of its list.
  activeHandle_ = nullptr;
  active_ = nullptr;
  shared_ = false;
}

void CommunityMapper::remapAll() {
  forgetNetsnmpState();
  syncAll();
}

void CommunityMapper::configuredAre(std::vector<Com2SecEntry> entries) {
  deactivate();
  configured_.clear();
  configuredCount_ = entries.size();
  for (Com2SecEntry& e : entries) configured_[e.community].push_back(std::move(e));
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
  if (prefix_.empty() || mapped_.contains(context)) return;
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
  std::string community = communityFor(prefix_, context);
  Log::info("v2c community '{}' serves context '{}'", community, context);
  prefixed_[community] = {community, std::string(kSecName), context, prefixSource_, false};
}

void CommunityMapper::unmap(const std::string& context) {
  unspellable_.erase(context);
  if (!mapped_.erase(context)) return;
  const auto it = prefixed_.find(communityFor(prefix_, context));
  if (it == prefixed_.end()) return;
  if (active_ == &it->second) deactivate();
  prefixed_.erase(it);
}

void CommunityMapper::deactivate() {
  if (activeHandle_) backend_.remove(activeHandle_);
  activeHandle_ = nullptr;
  active_ = nullptr;
}

const Com2SecEntry* CommunityMapper::select(std::string_view community,
                                            std::optional<in_addr_t> from) const {
  if (!from) return nullptr;
  const std::string key(community);
  // net-snmp's order: the configuration's lines, first match wins, a negated one refuses.
  if (const auto it = configured_.find(key); it != configured_.end()) {
    for (const Com2SecEntry& e : it->second) {
      if (e.accepts(*from)) return e.negate ? nullptr : &e;
    }
  }
  const auto it = prefixed_.find(key);
  return it != prefixed_.end() && it->second.accepts(*from) ? &it->second : nullptr;
}

const Com2SecEntry* CommunityMapper::activate(std::string_view community,
                                              std::optional<in_addr_t> from) {
  const Com2SecEntry* entry = select(community, from);
  if (entry && entry == active_) return entry;
  deactivate();
  if (!entry) return nullptr;
  activeHandle_ = backend_.add(*entry);
  if (!activeHandle_) {
    Log::warning("net-snmp did not accept community '{}' for context '{}'", entry->community,
                 entry->context);
    return nullptr;
  }
  active_ = entry;
  return entry;
}

}  // namespace PimSnmpd
