#include "pimsnmp-frr/FrrText.h"

#include <arpa/inet.h>

#include <cctype>
#include <charconv>
#include <sstream>

#include "pimsnmp-frr/Log.h"

namespace PimSnmpFrr {
namespace {

std::optional<int64_t> digits(std::string_view s) {
  if (s.empty() || s.size() > 12) return std::nullopt;
  int64_t v = 0;
  const auto [p, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
  if (ec != std::errc() || p != s.data() + s.size() || v < 0) return std::nullopt;
  return v;
}

std::string normalName(std::string_view s) {
  std::string out;
  for (char c : s) {
    if (c == ' ' || c == '_' || c == '-') continue;
    out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return out;
}

std::optional<uint32_t> ipv4(std::string_view text) {
  if (text.size() > 15) return std::nullopt;
  in_addr a{};
  if (inet_pton(AF_INET, std::string(text).c_str(), &a) != 1) return std::nullopt;
  return ntohl(a.s_addr);
}

std::string ipv4Text(uint32_t host) {
  in_addr a{htonl(host)};
  char buf[INET_ADDRSTRLEN];
  inet_ntop(AF_INET, &a, buf, sizeof buf);
  return buf;
}

std::optional<std::pair<uint32_t, int>> prefix(std::string_view text) {
  const auto slash = text.find('/');
  if (slash == std::string_view::npos) return std::nullopt;
  const auto addr = ipv4(text.substr(0, slash));
  const auto len = digits(text.substr(slash + 1));
  if (!addr || !len || *len > 32) return std::nullopt;
  return std::pair{*addr, static_cast<int>(*len)};
}

bool isMulticast(uint32_t a) {
  return (a >> 28) == 0xe;
}

std::vector<std::string> words(std::string_view line) {
  std::istringstream in{std::string(line)};
  std::vector<std::string> out;
  for (std::string w; in >> w;) out.push_back(std::move(w));
  return out;
}

template <class F>
void forEachLine(std::string_view text, F&& f) {
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    f(text.substr(start, end - start));
    start = end + 1;
  }
}

std::optional<uint32_t> u32(std::string_view s) {
  const auto v = digits(s);
  if (!v || *v > 0xffffffffLL) return std::nullopt;
  return static_cast<uint32_t>(*v);
}

}  // namespace

std::optional<int64_t> parseHms(std::string_view text) {
  int64_t total = 0;
  int fields = 0;
  size_t start = 0;
  for (;;) {
    const size_t colon = text.find(':', start);
    const auto v =
        digits(text.substr(start, colon == std::string_view::npos ? colon : colon - start));
    if (!v) return std::nullopt;
    // Only the leading field may exceed 59 (hours past 99, or minutes of "MM:SS").
    if (fields > 0 && *v > 59) return std::nullopt;
    total = total * 60 + *v;
    ++fields;
    if (colon == std::string_view::npos) break;
    start = colon + 1;
  }
  if (fields < 2 || fields > 3) return std::nullopt;
  return total;
}

std::optional<FrrJson> parseFrrJson(std::string_view text, std::string_view command) {
  const size_t brace = text.find('{');
  if (brace == std::string_view::npos) {
    logLine("'" + std::string(command) + "': no JSON object in the output; skipped");
    return std::nullopt;
  }
  FrrJson j = FrrJson::parse(text.substr(brace), nullptr, /*allow_exceptions=*/false);
  if (j.is_discarded() || !j.is_object()) {
    logLine("'" + std::string(command) + "': malformed JSON; skipped");
    return std::nullopt;
  }
  return j;
}

const FrrJson* member(const FrrJson& obj, std::string_view name) {
  if (!obj.is_object()) return nullptr;
  const auto it = obj.find(std::string(name));
  if (it != obj.end()) return &*it;
  const std::string want = normalName(name);
  for (const auto& [k, v] : obj.items()) {
    if (normalName(k) == want) return &v;
  }
  return nullptr;
}

std::optional<std::string> stringMember(const FrrJson& obj, std::string_view name) {
  const FrrJson* m = member(obj, name);
  if (!m || !m->is_string()) return std::nullopt;
  return m->get<std::string>();
}

std::optional<int64_t> intMember(const FrrJson& obj, std::string_view name) {
  const FrrJson* m = member(obj, name);
  if (!m) return std::nullopt;
  if (m->is_number_integer()) return m->get<int64_t>();
  if (m->is_number_float()) return static_cast<int64_t>(m->get<double>());
  if (m->is_boolean()) return m->get<bool>() ? 1 : 0;
  if (m->is_string()) return digits(m->get_ref<const std::string&>());
  return std::nullopt;
}

std::optional<std::string> canonicalIpv4(std::string_view text) {
  const auto a = ipv4(text);
  if (!a) return std::nullopt;
  return ipv4Text(*a);
}

std::optional<std::string> canonicalGroupRange(std::string_view text) {
  const auto p = prefix(text);
  if (!p || p->second < 4 || !isMulticast(p->first)) return std::nullopt;
  const uint32_t mask = p->second == 0 ? 0 : ~uint32_t{0} << (32 - p->second);
  if ((p->first & ~mask) != 0) return std::nullopt;
  return ipv4Text(p->first) + "/" + std::to_string(p->second);
}

std::optional<std::string> canonicalIfAddress(std::string_view text) {
  const auto p = prefix(text);
  if (!p) return std::nullopt;
  return ipv4Text(p->first) + "/" + std::to_string(p->second);
}

std::optional<std::string> routeKey(std::string_view source, std::string_view group) {
  const auto g = ipv4(group);
  if (!g || !isMulticast(*g)) return std::nullopt;
  if (source == "*") return "*," + ipv4Text(*g);
  const auto s = ipv4(source);
  if (!s) return std::nullopt;
  if (*s == 0) return "*," + ipv4Text(*g);
  if (isMulticast(*s) || (*s >> 28) == 0xf) return std::nullopt;
  return ipv4Text(*s) + "," + ipv4Text(*g);
}

std::vector<AssertRow> parseAssert(std::string_view text) {
  std::vector<AssertRow> rows;
  forEachLine(text, [&](std::string_view line) {
    const auto w = words(line);
    if (w.size() < 6 || w[0] == "Interface") return;
    auto key = routeKey(w[2], w[3]);
    if (!key || (w[4] != "WINNER" && w[4] != "LOSER" && w[4] != "NOINFO")) {
      logLine("'show ip pim assert': unexpected line '" + std::string(line) + "'; skipped");
      return;
    }
    rows.push_back({w[0], std::move(*key), w[4]});
  });
  return rows;
}

std::vector<AssertMetricRow> parseAssertWinnerMetric(std::string_view text) {
  std::vector<AssertMetricRow> rows;
  forEachLine(text, [&](std::string_view line) {
    const auto w = words(line);
    if (w.size() < 7 || w[0] == "Interface") return;
    if (w[5] == "INFI" || w[6] == "INFI") return;
    auto key = routeKey(w[2], w[3]);
    const auto pref = u32(w[5]);
    const auto metric = u32(w[6]);
    if (!key || !pref || !metric || (w[4] != "yes" && w[4] != "no")) {
      logLine("'show ip pim assert-winner-metric': unexpected line '" + std::string(line) +
              "'; skipped");
      return;
    }
    rows.push_back({w[0], std::move(*key), w[4] == "yes", *pref, *metric});
  });
  return rows;
}

MulticastInfo parseMulticast(std::string_view text) {
  MulticastInfo info;
  constexpr std::string_view kJoin = "Upstream Join Timer:";
  constexpr std::string_view kSocket = "Mroute socket descriptor:";
  forEachLine(text, [&](std::string_view line) {
    while (!line.empty() && line.front() == ' ') line.remove_prefix(1);
    if (line.starts_with(kJoin)) {
      const auto w = words(line.substr(kJoin.size()));
      if (!w.empty()) {
        const auto v = digits(w[0]);
        if (v && *v <= 65535) info.joinPruneInterval = static_cast<int>(*v);
      }
    } else if (line.starts_with(kSocket)) {
      const auto w = words(line.substr(kSocket.size()));
      info.mrouteSocket = !w.empty() && !w[0].starts_with("-");
    }
  });
  return info;
}

std::map<uint32_t, std::string> parseVrfTables(std::string_view text) {
  std::map<uint32_t, std::string> tables;
  forEachLine(text, [&](std::string_view line) {
    const auto w = words(line);
    if (w.size() < 2 || w[0] != "vrf") return;
    for (size_t i = 2; i + 1 < w.size(); ++i) {
      if (w[i] != "table") continue;
      if (const auto t = u32(w[i + 1])) tables[*t] = w[1];
    }
  });
  return tables;
}

}  // namespace PimSnmpFrr
