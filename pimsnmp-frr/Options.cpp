#include "pimsnmp-frr/Options.h"

#include <charconv>
#include <cmath>
#include <functional>
#include <map>

#include "pimsnmp-frr/FeedClient.h"

namespace PimSnmpFrr {
namespace {

std::optional<Millis> seconds(const std::string& text) {
  double v = 0;
  const auto [p, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
  if (ec != std::errc() || p != text.data() + text.size() || !(v > 0) || v > 86400) {
    return std::nullopt;
  }
  return Millis(static_cast<int64_t>(std::llround(v * 1000)));
}

struct DurationOption {
  const char* name;
  Millis Options::*field;
};

constexpr DurationOption kDurations[] = {
    {"--neighbor-period", &Options::neighborPeriod},
    {"--interface-period", &Options::interfacePeriod},
    {"--route-period", &Options::routePeriod},
    {"--route-delay", &Options::routeDelay},
    {"--route-min-gap", &Options::routeMinGap},
    {"--counter-period", &Options::counterPeriod},
    {"--reconnect-period", &Options::reconnectPeriod},
    {"--grace", &Options::grace},
    {"--vty-timeout", &Options::vtyTimeout},
    {"--feed-timeout", &Options::feedTimeout},
};

ParsedOptions usageError(const std::string& why) {
  return {std::nullopt, 2, "pimsnmp-frr: " + why + "\nTry 'pimsnmp-frr --help'.\n"};
}

}  // namespace

std::string usageText() {
  return R"(Usage: pimsnmp-frr --feed unix:PATH [OPTIONS]
       pimsnmp-frr --once [OPTIONS]

Keeps pimsnmpd's state document equal to FRR's PIM state (pimd, zebra) and the kernel's
multicast forwarding cache, through pimsnmpd's feed socket. Runs in the router's network
namespace, as a member of group frrvty.

  --feed unix:PATH        pimsnmpd's feed socket (required unless --once)
  --vty-dir DIR           where pimd.vty and zebra.vty are (default /var/run/frr)
  --kernel-only           no FRR: routes, incoming interfaces, OIFs and counters from the
                          kernel's multicast forwarding cache alone
  --once                  print one snapshot document on stdout and exit
  --log stderr|syslog     where messages go (default stderr)
  --pid-file FILE         write the process id; removed at exit
Cadences and limits, in seconds (fractions allowed):
  --neighbor-period S     PIM neighbors (default 1)
  --interface-period S    interfaces, DR, BSR, RP sets, asserts, join/prune interval (default 5)
  --route-delay S         routes this long after a kernel MFC or link event (default 0.3)
  --route-min-gap S       at most one route poll per S (default 2)
  --route-period S        routes at least this often without events (default 30)
  --counter-period S      FIB counters from the kernel (default 10)
  --reconnect-period S    retry pimd, zebra and pimsnmpd this often (default 1)
  --grace S               withdraw FRR's VRFs when pimd stays away this long (default 10)
  --vty-timeout S         longest wait for a vty answer (default 5)
  --feed-timeout S        longest wait for a pimsnmpd reply (default 10)
  -h, --help              this text

Exit status: 0 after SIGTERM or SIGINT (or --once done), 1 when it cannot start,
2 for a command-line error.
)";
}

ParsedOptions parseOptions(const std::vector<std::string>& args) {
  Options o;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    auto value = [&]() -> std::optional<std::string> {
      if (i + 1 >= args.size()) return std::nullopt;
      return args[++i];
    };
    if (a == "-h" || a == "--help") return {std::nullopt, 0, usageText()};
    if (a == "--kernel-only") {
      o.kernelOnly = true;
      continue;
    }
    if (a == "--once") {
      o.once = true;
      continue;
    }
    bool matched = false;
    for (const auto& d : kDurations) {
      if (a != d.name) continue;
      const auto v = value();
      const auto ms = v ? seconds(*v) : std::nullopt;
      if (!ms) return usageError(a + " needs a number of seconds above 0");
      o.*d.field = *ms;
      matched = true;
    }
    if (matched) continue;
    const auto v = value();
    if (!v) return usageError(a == "" ? "empty argument" : "unknown option or missing value: " + a);
    if (a == "--feed") {
      const auto p = feedSocketPath(*v);
      if (!p) return usageError("--feed takes unix:PATH");
      o.feedPath = *p;
    } else if (a == "--vty-dir") {
      o.vtyDir = *v;
    } else if (a == "--log") {
      if (*v != "stderr" && *v != "syslog") return usageError("--log takes stderr or syslog");
      o.syslog = *v == "syslog";
    } else if (a == "--pid-file") {
      o.pidFile = *v;
    } else {
      return usageError("unknown option: " + a);
    }
  }
  if (o.feedPath.empty() && !o.once) return usageError("--feed unix:PATH is required");
  return {o, 0, ""};
}

}  // namespace PimSnmpFrr
