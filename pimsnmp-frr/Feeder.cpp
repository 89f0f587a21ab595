#include "pimsnmp-frr/Feeder.h"

#include <poll.h>

#include <algorithm>
#include <functional>

#include "daemon/state/MergePatch.h"
#include "pimsnmp-frr/Log.h"

namespace PimSnmpFrr {
namespace {

using namespace std::chrono_literals;

// FRR's CMD_WARNING.
constexpr int kCmdWarning = 1;

// "show ip pim assert" in the default VRF, "show ip pim vrf red assert" in another.
std::string vrfForm(std::string_view before, const std::string& vrf, std::string_view after) {
  std::string c(before);
  if (vrf != "default") c += " vrf " + vrf;
  c += after;
  return c;
}

using VrfAllParser = std::function<void(const FrrJson&, VrfState&)>;

struct VrfAllCommand {
  const char* command;
  VrfAllParser parse;
};

// The `vrf all` JSON commands of each poll; the VRFs themselves come from the interface listing.
const VrfAllCommand kInterfaceGroup[] = {
    {"show ip pim vrf all rp-info json",
     [](const FrrJson& j, VrfState& v) { v.staticRps = parseStaticRps(j); }},
    {"show ip multicast count vrf all json",
     [](const FrrJson& j, VrfState& v) { v.vifs = parseMulticastCount(j); }},
};
const VrfAllCommand kNeighborGroup[] = {
    {"show ip pim vrf all neighbor json",
     [](const FrrJson& j, VrfState& v) { v.neighbors = parseNeighbors(j); }},
};
const VrfAllCommand kRouteGroup[] = {
    {"show ip pim vrf all upstream json",
     [](const FrrJson& j, VrfState& v) { v.upstream = parseUpstream(j); }},
    {"show ip pim vrf all rpf json", [](const FrrJson& j, VrfState& v) { v.rpf = parseRpf(j); }},
    {"show ip pim vrf all join json",
     [](const FrrJson& j, VrfState& v) { v.channels = parseJoin(j); }},
    {"show ip mroute vrf all json", [](const FrrJson& j, VrfState& v) { v.oil = parseMroute(j); }},
};

void applyVrfAll(const FrrJson& all, const VrfAllCommand& c,
                 std::map<std::string, VrfState>& vrfs) {
  static const FrrJson kNone = FrrJson::object();
  const auto split = splitVrfs(all);
  for (auto& [vrf, v] : vrfs) {
    const auto it = split.find(vrf);
    c.parse(it == split.end() ? kNone : *it->second, v);
  }
}

}  // namespace

int64_t SystemClock::unixSeconds() {
  return std::chrono::duration_cast<std::chrono::seconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

Feeder::Feeder(Options options, Kernel::Source& kernel, Clock& clock)
    : o_(std::move(options)),
      kernel_(kernel),
      clock_(clock),
      pimd_(o_.vtyDir + "/pimd.vty", o_.vtyTimeout),
      zebra_(o_.vtyDir + "/zebra.vty", o_.vtyTimeout),
      feed_(o_.feedPath, o_.feedTimeout),
      routes_(o_.routeDelay, o_.routeMinGap, o_.routePeriod) {}

std::optional<std::string> Feeder::pimd(const std::string& command, bool json) {
  // A lost session is opened again only by reconnect(), which also resynchronizes.
  if (!pimd_.connected()) return std::nullopt;
  auto r = pimd_.run(command);
  if (!r) {
    pimdLost();
    return std::nullopt;
  }
  // pimd 8.4 ends `show ip pim vrf all join json` with CMD_WARNING (1) after a complete
  // answer: a JSON answer with a warning status is still read.
  if (r->status != 0 && !(json && r->status == kCmdWarning && r->text.find('{') != r->text.npos)) {
    logLine("pimd: '" + command + "' failed (status " + std::to_string(r->status) + ")");
    return std::nullopt;
  }
  return std::move(r->text);
}

std::optional<FrrJson> Feeder::pimdJson(const std::string& command) {
  const auto text = pimd(command, true);
  return text ? parseFrrJson(*text, command) : std::nullopt;
}

void Feeder::pimdLost() {
  if (pimd_.connected() || pimdDownSince_) return;
  pimdDownSince_ = clock_.now();
  logLine("pimd is not answering on " + pimd_.path());
}

void Feeder::pimdAnswered() {
  pimdAnswered_ = true;
  // Back after an outage: nothing pimd said before counts, and pimsnmpd gets the whole state.
  if (pimdDownSince_ || withdrawn_) synced_ = false;
  pimdDownSince_.reset();
  withdrawn_ = false;
  frr_.vrfs.clear();
  frr_.bsr = {};
}

void Feeder::reconnect(TimePoint now) {
  if (!o_.kernelOnly) {
    if (!pimd_.connected()) {
      if (pimd_.connect()) {
        logLine("connected to pimd at " + pimd_.path());
        // pimd counts as back once it answers (pimdAnswered): a stalled pimd still accepts.
        pimdAnswered_ = false;
        nextInterfaces_ = nextNeighbors_ = now;
        routes_.runNow(now);
      } else {
        pimdLost();
      }
    }
    if (!zebra_.connected() && zebra_.connect()) {
      logLine("connected to zebra at " + zebra_.path());
      nextInterfaces_ = now;
    }
    if (pimdDownSince_ && !withdrawn_ && now - *pimdDownSince_ >= o_.grace) {
      logLine("pimd away for longer than the grace time: its VRFs are withdrawn");
      withdrawn_ = true;
    }
  }
  if (!o_.feedPath.empty() && !feed_.alive()) {
    if (feed_.connect()) {
      logLine("connected to pimsnmpd at " + feed_.path());
      synced_ = false;
      feedAwayLogged_ = false;
    } else if (!feedAwayLogged_) {
      logLine("pimsnmpd is not listening at " + feed_.path() + "; retrying");
      feedAwayLogged_ = true;
    }
  }
}

void Feeder::pollInterfaces() {
  if (!o_.kernelOnly) {
    if (zebra_.connected()) {
      if (auto r = zebra_.run("show interface vrf all json"); r && r->status == 0) {
        if (auto j = parseFrrJson(r->text, "show interface vrf all json")) {
          frr_.interfaces = parseZebraInterfaces(*j);
        }
      }
      if (auto r = zebra_.run("show vrf"); r && r->status == 0) {
        frr_.tables = parseVrfTables(r->text);
      }
    }
    if (auto j = pimdJson("show ip pim vrf all interface json")) {
      if (!pimdAnswered_) pimdAnswered();
      const auto parts = splitVrfs(*j);
      std::erase_if(frr_.vrfs, [&](const auto& v) { return !parts.contains(v.first); });
      for (const auto& [vrf, part] : parts) {
        VrfState& v = frr_.vrfs[vrf];
        auto listed = parsePimInterfaces(*part);
        for (auto& [name, p] : listed) {
          // The per-interface form: `show ip pim interface detail json` crashes pimd 8.4.
          const std::string cmd = vrfForm("show ip pim", vrf, " interface " + name + " json");
          if (auto d = pimdJson(cmd)) parsePimInterfaceDetail(*d, name, p);
        }
        v.interfaces = std::move(listed);
        if (auto t = pimd(vrfForm("show ip multicast", vrf, ""))) v.multicast = parseMulticast(*t);
        const std::string bsrp = vrfForm("show ip pim bsrp-info", vrf, " json");
        if (auto b = pimdJson(bsrp)) v.bsrRps = parseBsrpInfo(*b);
        if (auto t = pimd(vrfForm("show ip pim", vrf, " assert"))) v.asserts = parseAssert(*t);
        if (auto t = pimd(vrfForm("show ip pim", vrf, " assert-winner-metric"))) {
          v.assertMetrics = parseAssertWinnerMetric(*t);
        }
      }
      for (const auto& c : kInterfaceGroup) {
        if (auto all = pimdJson(c.command)) applyVrfAll(*all, c, frr_.vrfs);
      }
      // FRR 8.4 has this for the default VRF only.
      if (auto b = pimdJson("show ip pim bsr json")) frr_.bsr = parseBsr(*b);
    }
  }
  readKernelInterfaces();
}

void Feeder::pollNeighbors() {
  for (const auto& c : kNeighborGroup) {
    if (auto j = pimdJson(c.command)) applyVrfAll(*j, c, frr_.vrfs);
  }
}

void Feeder::pollRoutes() {
  if (!o_.kernelOnly) {
    for (const auto& c : kRouteGroup) {
      if (auto j = pimdJson(c.command)) applyVrfAll(*j, c, frr_.vrfs);
    }
  }
  readKernelInterfaces();
  dumpMfc();
}

void Feeder::readKernelInterfaces() {
  kview_.vifs = kernel_.vifs();
  kview_.mcForwarding = kernel_.mcForwarding();
  kview_.operState.clear();
  kview_.ifIndex.clear();
  auto read = [&](const std::string& name) {
    if (kview_.operState.contains(name)) return;
    kview_.operState[name] = kernel_.operState(name);
    if (const auto i = kernel_.ifIndex(name)) kview_.ifIndex[name] = *i;
  };
  for (const auto& [name, z] : frr_.interfaces) read(name);
  for (const auto& vif : kview_.vifs) read(vif.name);
}

void Feeder::dumpMfc() {
  if (auto mfc = kernel_.dumpMfc()) kview_.mfc = std::move(*mfc);
}

Json Feeder::snapshot() {
  const int64_t now = clock_.unixSeconds();
  Json doc =
      o_.kernelOnly ? buildKernelOnlyDocument(kview_, now) : buildDocument(frr_, kview_, now);
  stabilizeTimes(doc, daemon_, now);
  if (withdrawn_) withdrawPim(doc);
  if (daemon_.contains("$schema")) doc["$schema"] = daemon_["$schema"];
  return doc;
}

bool Feeder::resync() {
  auto reply = feed_.request("dump");
  if (!reply) return false;
  const auto doc = reply->find("document");
  if (reply->value("ok", false) != true || doc == reply->end() || !doc->is_object()) {
    logLine("pimsnmpd refused 'dump': " + reply->dump());
    return false;
  }
  if (*doc != daemon_) logLine("pimsnmpd's document differs from the last one sent: resending");
  daemon_ = std::move(*doc);
  synced_ = true;
  return true;
}

void Feeder::publish() {
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (!feed_.connected()) return;
    if (!synced_ && !resync()) return;
    Json doc = snapshot();
    const Json patch = PimSnmpd::mergePatchDiff(daemon_, doc);
    if (patch.empty()) return;
    const auto reply = feed_.request(patch.dump());
    if (!reply) {
      synced_ = false;
      return;
    }
    if (reply->value("ok", false) == true) {
      daemon_ = std::move(doc);
      ++patchesSent_;
      return;
    }
    // pimsnmpd's document is not what the feeder thought: read it again and retry once.
    logLine("pimsnmpd refused an update: " + reply->dump());
    synced_ = false;
  }
}

TimePoint Feeder::runDue() {
  const TimePoint now = clock_.now();
  bool changed = false;
  if (now >= nextReconnect_) {
    const bool wasWithdrawn = withdrawn_;
    reconnect(now);
    nextReconnect_ = now + o_.reconnectPeriod;
    changed |= withdrawn_ != wasWithdrawn;
  }
  if (now >= nextInterfaces_) {
    pollInterfaces();
    nextInterfaces_ = now + o_.interfacePeriod;
    changed = true;
  }
  if (!o_.kernelOnly && now >= nextNeighbors_) {
    pollNeighbors();
    nextNeighbors_ = now + o_.neighborPeriod;
    changed = true;
  }
  if (now >= routes_.due()) {
    pollRoutes();
    routes_.ran(now);
    nextCounters_ = now + o_.counterPeriod;
    changed = true;
  } else if (now >= nextCounters_) {
    dumpMfc();
    nextCounters_ = now + o_.counterPeriod;
    changed = true;
  }
  // pimsnmpd's document may also change without the feeder (its state file re-read, another
  // client): compare with it again at the reconcile period.
  if (now >= nextResync_) {
    if (nextResync_ != TimePoint{}) synced_ = false;
    nextResync_ = now + o_.routePeriod;
  }
  if (changed || !synced_) publish();
  TimePoint next =
      std::min({nextReconnect_, nextInterfaces_, routes_.due(), nextCounters_, nextResync_});
  if (!o_.kernelOnly) next = std::min(next, nextNeighbors_);
  return next;
}

void Feeder::kernelEvent() {
  if (kernel_.drainEvents()) routes_.event(clock_.now());
}

Json Feeder::snapshotOnce() {
  const TimePoint now = clock_.now();
  reconnect(now);
  pollInterfaces();
  if (!o_.kernelOnly) pollNeighbors();
  pollRoutes();
  return snapshot();
}

int Feeder::run(int stopFd) {
  for (;;) {
    const TimePoint next = runDue();
    const auto wait = std::chrono::duration_cast<Millis>(next - clock_.now());
    const int timeout = static_cast<int>(std::clamp<int64_t>(wait.count(), 0, 60000));
    pollfd fds[2] = {{stopFd, POLLIN, 0}, {kernel_.eventFd(), POLLIN, 0}};
    const nfds_t n = fds[1].fd >= 0 ? 2 : 1;
    if (::poll(fds, n, timeout) < 0 && errno != EINTR) {
      logLine("poll failed");
      return 1;
    }
    if (fds[0].revents) return 0;
    if (n == 2 && fds[1].revents) kernelEvent();
  }
}

}  // namespace PimSnmpFrr
