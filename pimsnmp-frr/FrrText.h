#pragma once

// Reading FRR's vty output: its JSON with the quirks of 8.4 (blank lines before the JSON, member
// names that differ between versions only by case, spaces or underscores, "HH:MM:SS" times), and
// the commands that only have a text form.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace PimSnmpFrr {

using FrrJson = nlohmann::json;

// Seconds of FRR's "HH:MM:SS" (hours may pass 99) or "MM:SS"; nullopt for "--:--:--" (timer
// not running) and anything else.
std::optional<int64_t> parseHms(std::string_view text);

// The JSON object of a command's output, or nullopt (logged with the command) when it is not
// one. Text before the first '{' (blank lines, a warning) is skipped.
std::optional<FrrJson> parseFrrJson(std::string_view text, std::string_view command);

// obj's member `name`, matched exactly or else ignoring case, spaces and underscores ("Rp
// HoldTime" finds "rpHoldTime"); nullptr when absent or `obj` is not an object.
const FrrJson* member(const FrrJson& obj, std::string_view name);
std::optional<std::string> stringMember(const FrrJson& obj, std::string_view name);
// An integer member, also when FRR wrote it as a string of digits or as a boolean.
std::optional<int64_t> intMember(const FrrJson& obj, std::string_view name);

// Dotted-quad IPv4 text in canonical form ("10.0.0.1"), or nullopt.
std::optional<std::string> canonicalIpv4(std::string_view text);
// An IPv4 group range "224.0.0.0/4" in canonical form: within 224.0.0.0/4, no host bits.
std::optional<std::string> canonicalGroupRange(std::string_view text);
// An interface address with its prefix length, "10.0.0.1/24".
std::optional<std::string> canonicalIfAddress(std::string_view text);
// The route key "S,G" / "*,G" of FRR's source ("*" or 0.0.0.0 for (*,G)) and group; nullopt
// unless S is unicast and G multicast.
std::optional<std::string> routeKey(std::string_view source, std::string_view group);

// `show ip pim assert`: Interface Address Source Group State Winner Uptime Timer.
struct AssertRow {
  std::string interface, routeKey, state;  // state: WINNER, LOSER, NOINFO
};
std::vector<AssertRow> parseAssert(std::string_view text);

// `show ip pim assert-winner-metric`: Interface Address Source Group RPT Pref Metric Address;
// rows with INFI (no assert) are left out.
struct AssertMetricRow {
  std::string interface, routeKey;
  bool rpt = false;
  uint32_t pref = 0, metric = 0;
};
std::vector<AssertMetricRow> parseAssertWinnerMetric(std::string_view text);

// `show ip multicast`.
struct MulticastInfo {
  std::optional<int> joinPruneInterval;  // "Upstream Join Timer: 60 secs"
  bool mrouteSocket = false;             // "Mroute socket descriptor: 9(default)", not -1
};
MulticastInfo parseMulticast(std::string_view text);

// zebra `show vrf`: "vrf NAME id N table T" lines, as table id -> VRF name.
std::map<uint32_t, std::string> parseVrfTables(std::string_view text);

}  // namespace PimSnmpFrr
