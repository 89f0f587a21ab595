// pimsnmp-frr's own cost at scale, from a lab capture (bench/frr_lab_bench.py --capture DIR):
// r4's answers to the feeder's vty commands and its kernel MFC dump, replicated to more (S,G)
// by copying the scaled flows' groups (239.2.0.0/16) into 239.3/16, 239.4/16, ...
//
//   frr_adapter_bench CAPTURE_DIR [COPIES...]     (default 1 5: the capture and 5x it)
//   frr_adapter_bench --kernel N...               kernel MFC dumps of N entries (root: a
//                                                 private network namespace)
//
// Per size: CPU of one routes poll's parsing, one full snapshot (document build plus time
// stabilisation), the diff of two snapshots whose counters all moved, the diff of two equal
// ones, the bytes of the full document and of the counters' patch.

#include <arpa/inet.h>
#include <fmt/format.h>
#include <linux/mroute.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "daemon/state/MergePatch.h"
#include "pimsnmp-frr/FrrState.h"
#include "pimsnmp-frr/FrrText.h"
#include "pimsnmp-frr/Snapshot.h"
#include "pimsnmp-frr/kernel/Kernel.h"
#include "pimsnmp-frr/kernel/MfcNetlink.h"
#include "pimsnmp-frr/kernel/ProcFiles.h"

namespace {

using namespace PimSnmpFrr;

double cpuMs() {
  timespec t;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return t.tv_sec * 1e3 + t.tv_nsec / 1e6;
}

// Median CPU ms of `rounds` runs of `f`.
double measure(int rounds, const std::function<void()>& f) {
  std::vector<double> ms;
  for (int i = 0; i < rounds; ++i) {
    const double t0 = cpuMs();
    f();
    ms.push_back(cpuMs() - t0);
  }
  std::sort(ms.begin(), ms.end());
  return ms[ms.size() / 2];
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

std::string commandFile(const std::string& dir, std::string command) {
  std::replace(command.begin(), command.end(), ' ', '_');
  return readFile(dir + "/" + command + ".txt");
}

// "239.2.x.y" -> "239.<2+copy>.x.y" in every string (keys and values) of `j`.
constexpr std::string_view kScaled = "239.2.";
std::string shifted(const std::string& s, int copy) {
  if (s.compare(0, kScaled.size(), kScaled) != 0) return s;
  return fmt::format("239.{}.{}", 2 + copy, s.substr(kScaled.size()));
}
FrrJson shiftedJson(const FrrJson& j, int copy) {
  if (j.is_string()) return shifted(j.get<std::string>(), copy);
  if (j.is_object()) {
    FrrJson o = FrrJson::object();
    for (const auto& [k, v] : j.items()) o[shifted(k, copy)] = shiftedJson(v, copy);
    return o;
  }
  if (j.is_array()) {
    FrrJson a = FrrJson::array();
    for (const auto& v : j) a.push_back(shiftedJson(v, copy));
    return a;
  }
  return j;
}
// Adds `copies - 1` shifted copies of the scaled groups found `depth` levels below the root.
void replicate(FrrJson& node, int depth, int copies) {
  if (!node.is_object()) return;
  if (depth > 0) {
    for (auto& [k, v] : node.items()) replicate(v, depth - 1, copies);
    return;
  }
  std::vector<std::pair<std::string, FrrJson>> added;
  for (const auto& [k, v] : node.items()) {
    if (k.compare(0, kScaled.size(), kScaled) != 0) continue;
    for (int c = 1; c < copies; ++c) added.emplace_back(shifted(k, c), shiftedJson(v, c));
  }
  for (auto& [k, v] : added) node[k] = std::move(v);
}

struct Capture {
  std::string dir;
  std::vector<std::string> routeTexts;  // upstream, rpf, join, mroute, already replicated
  FrrState frr;
  KernelView kernel;
};

const char* const kRouteCommands[] = {
    "show ip pim vrf all upstream json", "show ip pim vrf all rpf json",
    "show ip pim vrf all join json", "show ip mroute vrf all json"};
// Where the groups are in each route command's `vrf all` answer: vrf -> G (join: vrf -> IF -> G).
const int kGroupDepth[] = {1, 1, 2, 1};

const FrrJson& defaultVrf(const FrrJson& all) {
  static const FrrJson kNone = FrrJson::object();
  const auto parts = splitVrfs(all);
  const auto it = parts.find("default");
  return it == parts.end() ? kNone : *it->second;
}

FrrJson parsed(const std::string& text, const char* command) {
  auto j = parseFrrJson(text, command);
  if (!j) throw std::runtime_error(std::string("unparsable capture of ") + command);
  return std::move(*j);
}

void parseRoutes(const std::vector<std::string>& texts, VrfState& v) {
  v.upstream = parseUpstream(defaultVrf(parsed(texts[0], kRouteCommands[0])));
  v.rpf = parseRpf(defaultVrf(parsed(texts[1], kRouteCommands[1])));
  v.channels = parseJoin(defaultVrf(parsed(texts[2], kRouteCommands[2])));
  v.oil = parseMroute(defaultVrf(parsed(texts[3], kRouteCommands[3])));
}

Capture load(const std::string& dir, int copies) {
  Capture c;
  c.dir = dir;
  for (size_t i = 0; i < std::size(kRouteCommands); ++i) {
    FrrJson j = parsed(commandFile(dir, kRouteCommands[i]), kRouteCommands[i]);
    replicate(j, kGroupDepth[i], copies);
    c.routeTexts.push_back(j.dump());
  }
  c.frr.interfaces =
      parseZebraInterfaces(parsed(commandFile(dir, "show interface vrf all json"), "zebra"));
  auto& v = c.frr.vrfs["default"];
  v.interfaces = parsePimInterfaces(
      defaultVrf(parsed(commandFile(dir, "show ip pim vrf all interface json"), "interface")));
  v.neighbors = parseNeighbors(
      defaultVrf(parsed(commandFile(dir, "show ip pim vrf all neighbor json"), "neighbor")));
  v.staticRps = parseStaticRps(
      defaultVrf(parsed(commandFile(dir, "show ip pim vrf all rp-info json"), "rp-info")));
  v.vifs = parseMulticastCount(
      defaultVrf(parsed(commandFile(dir, "show ip multicast count vrf all json"), "count")));
  c.frr.bsr = parseBsr(parsed(commandFile(dir, "show ip pim bsr json"), "bsr"));
  parseRoutes(c.routeTexts, v);

  // The kernel: the recorded dump, its scaled entries copied like the routes.
  const std::string mfc = readFile(dir + "/r4.mfc");
  Kernel::MfcDumpReader reader(4242);
  for (size_t off = 0; off + 4 <= mfc.size();) {
    uint32_t len;
    std::memcpy(&len, mfc.data() + off, 4);
    reader.feed({reinterpret_cast<const uint8_t*>(mfc.data()) + off + 4, len});
    off += 4 + len;
  }
  if (reader.status() != Kernel::MfcDumpReader::Status::done) {
    throw std::runtime_error("recorded MFC dump: " + reader.reason());
  }
  for (const auto& e : reader.entries()) {
    c.kernel.mfc.push_back(e);
    if ((e.group >> 16) != 0xEF02) continue;
    for (int k = 1; k < copies; ++k) {
      auto copy = e;
      copy.group += static_cast<uint32_t>(k) << 16;
      c.kernel.mfc.push_back(copy);
    }
  }
  c.kernel.vifs = Kernel::parseVifTable(readFile(dir + "/r4.vif"));
  std::istringstream ifindex(readFile(dir + "/r4.ifindex"));
  std::string name;
  int index;
  while (ifindex >> name >> index) {
    c.kernel.ifIndex[name] = index;
    c.kernel.operState[name] = "up";
  }
  for (auto& vif : c.kernel.vifs) vif.ifIndex = c.kernel.ifIndex[vif.name];
  c.kernel.mcForwarding = true;
  return c;
}

void adapter(const std::string& dir, int copies, int rounds) {
  Capture c = load(dir, copies);
  const int64_t now = 1'800'000'000;
  Json previous = buildDocument(c.frr, c.kernel, now);
  stabilizeTimes(previous, Json::object(), now);
  const size_t routes = previous["vrfs"]["default"]["ipv4"].value("routes", Json::object()).size();

  VrfState scratch;
  const double parseMs = measure(rounds, [&] { parseRoutes(c.routeTexts, scratch); });
  Json doc;
  const double snapshotMs = measure(rounds, [&] {
    doc = buildDocument(c.frr, c.kernel, now + 1);
    stabilizeTimes(doc, previous, now + 1);
  });
  Json same;
  const double sameDiffMs =
      measure(rounds, [&] { same = PimSnmpd::mergePatchDiff(previous, doc); });
  for (auto& e : c.kernel.mfc) {
    e.packets += 50;
    e.bytes += 6400;
  }
  Json counted = buildDocument(c.frr, c.kernel, now + 10);
  stabilizeTimes(counted, previous, now + 10);
  Json patch;
  const double counterDiffMs =
      measure(rounds, [&] { patch = PimSnmpd::mergePatchDiff(previous, counted); });
  size_t bytes = 0;
  for (const auto& t : c.routeTexts) bytes += t.size();
  fmt::print(
      "{{\"sg_copies\": {}, \"routes\": {}, \"mfc_entries\": {}, \"route_answers_bytes\": {}, "
      "\"routes_parse_ms\": {:.2f}, \"snapshot_ms\": {:.2f}, \"diff_counters_ms\": {:.2f}, "
      "\"diff_unchanged_ms\": {:.2f}, \"document_bytes\": {}, \"counters_patch_bytes\": {}, "
      "\"unchanged_patch_bytes\": {}}}\n",
      copies, routes, c.kernel.mfc.size(), bytes, parseMs, snapshotMs, counterDiffMs, sameDiffMs,
      doc.dump().size(), patch.dump().size(), same.dump().size());
}

// ---- kernel dumps in a private namespace ---------------------------------------------------

int kernelChild(int entries, int rounds) {
  if (::unshare(CLONE_NEWNET) != 0) {
    std::perror("unshare (needs root)");
    return 1;
  }
  const int fd = ::socket(AF_INET, SOCK_RAW, IPPROTO_IGMP);
  const int one = 1;
  vifctl vif{};
  vif.vifc_flags = VIFF_REGISTER;
  vif.vifc_threshold = 1;
  if (fd < 0 || ::setsockopt(fd, IPPROTO_IP, MRT_INIT, &one, sizeof(one)) != 0 ||
      ::setsockopt(fd, IPPROTO_IP, MRT_ADD_VIF, &vif, sizeof(vif)) != 0) {
    std::perror("mroute socket");
    return 1;
  }
  vif.vifc_vifi = 1;
  vif.vifc_flags = VIFF_USE_IFINDEX;
  vif.vifc_lcl_ifindex = static_cast<int>(::if_nametoindex("lo"));
  ::setsockopt(fd, IPPROTO_IP, MRT_ADD_VIF, &vif, sizeof(vif));
  for (int i = 0; i < entries; ++i) {
    mfcctl mfc{};
    mfc.mfcc_origin.s_addr = htonl(0x0A000000u + static_cast<uint32_t>(i / 200));
    mfc.mfcc_mcastgrp.s_addr = htonl(0xEF020000u + static_cast<uint32_t>(i % 200));
    mfc.mfcc_parent = 1;
    mfc.mfcc_ttls[0] = 1;
    if (::setsockopt(fd, IPPROTO_IP, MRT_ADD_MFC, &mfc, sizeof(mfc)) != 0) {
      std::perror("MRT_ADD_MFC");
      return 1;
    }
  }
  Kernel::LinuxSourceOptions options;
  options.events = false;
  auto source = Kernel::makeLinuxSource(options);
  size_t got = 0;
  const double ms = measure(rounds, [&] {
    const auto dump = source->dumpMfc();
    got = dump ? dump->size() : 0;
  });
  fmt::print("{{\"kernel_entries\": {}, \"dumped\": {}, \"dump_ms\": {:.2f}}}\n", entries, got, ms);
  std::fflush(stdout);
  return got == static_cast<size_t>(entries) ? 0 : 1;
}

int kernel(int entries, int rounds) {
  const pid_t pid = ::fork();
  if (pid == 0) std::_Exit(kernelChild(entries, rounds));
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s CAPTURE_DIR [COPIES...] | --kernel N...\n", argv[0]);
    return 2;
  }
  const std::string first = argv[1];
  std::vector<int> sizes;
  for (int i = 2; i < argc; ++i) sizes.push_back(std::atoi(argv[i]));
  try {
    if (first == "--kernel") {
      int rc = 0;
      for (int n : sizes) rc |= kernel(n, 20);
      return rc;
    }
    if (sizes.empty()) sizes = {1, 5};
    for (int copies : sizes) adapter(first, copies, 7);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "frr_adapter_bench: %s\n", e.what());
    return 1;
  }
  return 0;
}
