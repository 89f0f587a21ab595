#include "pimsnmp-frr/kernel/ProcFiles.h"

#include <charconv>
#include <fstream>
#include <sstream>

namespace PimSnmpFrr::Kernel {

namespace {

std::string_view nextToken(std::string_view& line) {
  const size_t start = line.find_first_not_of(" \t");
  if (start == std::string_view::npos) {
    line = {};
    return {};
  }
  line.remove_prefix(start);
  const size_t end = std::min(line.find_first_of(" \t"), line.size());
  std::string_view token = line.substr(0, end);
  line.remove_prefix(end);
  return token;
}

std::optional<int> toInt(std::string_view text) {
  int value = 0;
  auto [ptr, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc() || ptr != text.data() + text.size()) return std::nullopt;
  return value;
}

}  // namespace

std::vector<Vif> parseVifTable(std::string_view text) {
  std::vector<Vif> vifs;
  while (!text.empty()) {
    const size_t eol = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, eol);
    text.remove_prefix(std::min(eol + 1, text.size()));
    const auto vif = toInt(nextToken(line));
    const auto name = nextToken(line);
    if (!vif || *vif < 0 || !validIfName(name)) continue;  // the header, or a damaged line
    vifs.push_back({*vif, std::string(name), 0});
  }
  return vifs;
}

std::optional<std::string> readFirstLine(const std::string& path) {
  std::ifstream in(path);
  std::string line;
  if (!in || !std::getline(in, line)) return std::nullopt;
  return line;
}

bool validIfName(std::string_view name) {
  // Linux interface names: 1..15 bytes, no '/', no whitespace, not "." or "..".
  if (name.empty() || name.size() > 15 || name == "." || name == "..") return false;
  for (char c : name) {
    if (c == '/' || c == ':' || c <= ' ' || c == 0x7f) return false;
  }
  return true;
}

std::vector<Vif> ProcFiles::vifs() const {
  std::ifstream in(procRoot_ + "/net/ip_mr_vif");
  if (!in) return {};
  std::stringstream text;
  text << in.rdbuf();
  auto vifs = parseVifTable(text.str());
  for (auto& vif : vifs) vif.ifIndex = ifIndex(vif.name).value_or(0);
  return vifs;
}

std::optional<std::string> ProcFiles::netAttribute(std::string_view ifName,
                                                   std::string_view attr) const {
  if (!validIfName(ifName)) return std::nullopt;
  std::string path = sysRoot_;
  path.append("/class/net/").append(ifName).append("/").append(attr);
  return readFirstLine(path);
}

std::string ProcFiles::operState(std::string_view ifName) const {
  return netAttribute(ifName, "operstate").value_or("");
}

std::optional<int> ProcFiles::ifIndex(std::string_view ifName) const {
  auto text = netAttribute(ifName, "ifindex");
  if (!text) return std::nullopt;
  auto value = toInt(*text);
  if (!value || *value <= 0) return std::nullopt;
  return value;
}

bool ProcFiles::mcForwarding() const {
  auto text = readFirstLine(procRoot_ + "/sys/net/ipv4/conf/all/mc_forwarding");
  return text && toInt(*text).value_or(0) != 0;
}

}  // namespace PimSnmpFrr::Kernel
