// Route mirroring at scale: 100k IPv4 routes, each with an upstream interface and two OIFs.
//
//   1. Event rate: routes arrive after the startup review finished, as the platform publishes
//      them (route, upstream, two interfaces with RPT state and forward flag, FIB route): nine
//      events per route, timed until all six route tables and their next hops are in place.
//   2. Store bytes per route: the heap the store gives back when its tables are emptied.
//   3. Startup review: the same routes present at start, reviewed in 0.1 s slices.
//
// Usage: mroute_bench [routes [repeats]]   (default 100000 routes, best of 3 runs)

#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "PimSnmp/PimSnmp/PimMib.h"
#include "PimSnmp/PimSnmpAgent/MrouteSm.h"
#include "bench/CountingHeap.h"
#include "platform/Clock/Clock.h"
#include "platform/IntfSnmp/IfMib.h"
#include "platform/L3/VrfName.h"
#include "platform/Routing/Pim/RouteKeyConversion.h"
#include "platform/Routing/Pim/SparseMode/Status.h"
#include "platform/Routing/Pim/SparseMode/UpstreamInfoPool.h"
#include "platform/Shtab/Multicast/Fib/Status.h"

namespace {

using Routing::Pim::RouteKey;
using Routing::Pim::SnmpAgent::MrouteSm;
namespace Snmp = Routing::Pim::Snmp;
namespace SparseMode = Routing::Pim::SparseMode;
namespace Fib = Shtab::Multicast::Fib;

// Process CPU time: the machine may be shared, and the figures are about our own work.
double cpuNow() {
  timespec ts{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

constexpr int kIntfs = 64;  // 32 upstream interfaces, 2 x 16 downstream

// A clock that runs with our CPU time while work is done and jumps over idle waits: the
// review's 0.1 s quantum is measured on real handling time, and the gaps the review timer asks
// for cost no time.
class BenchClock : public Plat::Clock {
 public:
  BenchClock() : Plat::Clock("benchClock"), origin_(cpuNow()) {}
  std::string_view typeName() const override { return "BenchClock"; }
  double now() const override { return 1000.0 + skipped_ + (cpuNow() - origin_); }
  // Moves to `t` if that is ahead and runs the timers due.
  void runUntil(double t) {
    const double n = now();
    if (t > n) skipped_ += t - n;
    runDueTimers();
  }

 private:
  double origin_;
  double skipped_ = 0;
};

Lanet::IntfId eth(int n) {
  return Lanet::IntfId("Ethernet" + std::to_string(n));
}

RouteKey routeKey(int i) {
  const uint32_t u = static_cast<uint32_t>(i);
  return {Lanet::IpGenAddr::v4(0x0A000000u + u), Lanet::IpGenAddr::v4(0xEF010000u + u % 4096)};
}

struct Inputs {
  Ent::Ptr<Snmp::PimMib> mib = Snmp::pimMibFactory("default");
  Ent::Ptr<IntfSnmp::IfMib> ifMib = Ent::make<IntfSnmp::IfMib>();
  Ent::Ptr<SparseMode::Status> status = Ent::make<SparseMode::Status>(L3::VrfName("default"));
  Ent::Ptr<Fib::Status> fib =
      Ent::make<Fib::Status>(Lanet::AddressFamily::ipv4, L3::VrfName("default"));
  SparseMode::UpstreamInfoPool upstreams;

  Inputs() {
    for (int n = 1; n <= kIntfs; ++n) {
      ifMib->ifIndexByIntfIdIs(eth(n), static_cast<uint32_t>(n));
      fib->oifIndexIntfIs(Fib::OifIndex(static_cast<uint16_t>(n - 1)), eth(n));
    }
  }

  // Publishes route i as nine events; returns the number of events.
  int publish(int i) {
    const RouteKey k = routeKey(i);
    Ent::Ptr<SparseMode::Route> r = status->routeIs(k);
    // Shared records, as the applier hands them out.
    r->upstreamInfoIs(upstreams.upstreamInfo(
        eth(1 + i % 32), Lanet::IpGenAddr::v4(0x0B000001u + static_cast<uint32_t>(i % 32))));
    Fib::Route fr;
    for (int n : {33 + i % 16, 49 + i % 16}) {
      Ent::Ptr<SparseMode::Intf> intf = r->routeIntfIs(eth(n));
      intf->rptStateIs(SparseMode::rptStateNoInfo);
      intf->forwardIs(true);
      fr.oifIs(Fib::OifIndex(static_cast<uint16_t>(n - 1)));
    }
    fib->routeIs(Routing::Pim::pimRouteKeyToMfibKey(k), fr);
    return 9;
  }
};

bool complete(const Snmp::PimMib& mib, size_t routes) {
  return mib.ipMcastRouteTable().size() == routes && mib.ipMRouteTable().size() == routes &&
         mib.pimIpMrouteTable().size() == routes &&
         mib.ipMcastRouteNextHopTable().size() == 2 * routes &&
         mib.ipMRouteNextHopTable().size() == 2 * routes &&
         mib.pimIpMrouteNextHopTable().size() == 2 * routes;
}

// The store's route and next-hop tables, emptied one at a time to measure each.
constexpr int kStoreParts = 6;
constexpr const char* kStorePartNames[kStoreParts] = {"ipMcastRouteNextHopTable",
                                                      "ipMRouteNextHopTable",
                                                      "pimIpMRouteNextHopTable",
                                                      "ipMcastRouteTable (with its next-hop set)",
                                                      "ipMRouteTable",
                                                      "pimIpMRouteTable"};

// Heap the store returns when its route and interface tables are emptied, in all and per
// table (next hops first, as the writer removes them).
long long storeBytes(Snmp::PimMib& mib, long long (&parts)[kStoreParts]) {
  const long long before = Bench::heapBytes();
  static constexpr void (Snmp::PimMib::*delAll[kStoreParts])() = {
      &Snmp::PimMib::ipMcastRouteNextHopTableDelAll,
      &Snmp::PimMib::ipMRouteNextHopTableDelAll,
      &Snmp::PimMib::pimIpMrouteNextHopTableDelAll,
      &Snmp::PimMib::ipMcastRouteTableDelAll,
      &Snmp::PimMib::ipMRouteTableDelAll,
      &Snmp::PimMib::pimIpMrouteTableDelAll};
  long long* part = parts;
  for (auto del : delAll) {
    const long long heap = Bench::heapBytes();
    std::invoke(del, mib);
    *part++ = heap - Bench::heapBytes();
  }
  mib.ipMcastInterfaceTableDelAll();
  mib.ipMRouteInterfaceTableDelAll();
  return before - Bench::heapBytes();
}

struct Run {
  double producer = 0;  // CPU seconds of the events with nobody following them
  double elapsed = 0;   // CPU seconds of the events with the machine following them
  long long events = 0;
  long long platformBytes = 0, totalBytes = 0, machineBytes = 0, storeBytes = 0;
  long long storeParts[kStoreParts] = {};
};

// One run of the event phase on fresh inputs; false when the tables came out incomplete.
bool eventRun(int routes, BenchClock& clock, Run& run) {
  {
    Inputs in;
    const long long heap0 = Bench::heapBytes();
    const double t0 = cpuNow();
    for (int i = 0; i < routes; ++i) in.publish(i);
    run.producer = cpuNow() - t0;
    run.platformBytes = Bench::heapBytes() - heap0;
  }
  Inputs in;
  auto sm = Routing::Pim::SnmpAgent::mrouteSmFactory(Lanet::AddressFamily::ipv4, in.mib, in.ifMib,
                                                     in.status, in.fib);
  sm->handleInitialized();
  clock.runUntil(clock.nextDeadline());
  if (!sm->reviewCompleted()) return false;
  const long long heap0 = Bench::heapBytes();
  const double t0 = cpuNow();
  for (int i = 0; i < routes; ++i) run.events += in.publish(i);
  run.elapsed = cpuNow() - t0;
  if (!complete(*in.mib, static_cast<size_t>(routes))) return false;
  run.totalBytes = Bench::heapBytes() - heap0;
  // The machine first (its reactors and bookkeeping), then the store it filled.
  const long long heap1 = Bench::heapBytes();
  sm.reset();
  run.machineBytes = heap1 - Bench::heapBytes();
  run.storeBytes = storeBytes(*in.mib, run.storeParts);
  return true;
}

int eventRate(int routes, int repeats) {
  auto clock = Ent::make<BenchClock>();
  Plat::ScopedClock scoped(clock);
  // Best of several runs: the machine may be shared, and other load only ever adds time.
  Run best;
  for (int r = 0; r < repeats; ++r) {
    Run run;
    if (!eventRun(routes, *clock, run)) {
      std::fprintf(stderr, "tables incomplete\n");
      return 1;
    }
    std::printf("run %d: %.0f route events/s\n", r + 1,
                static_cast<double>(run.events) / run.elapsed);
    if (r == 0 || run.elapsed < best.elapsed) best = run;
  }
  const double perRoute = routes;
  std::printf("routes                          %d\n", routes);
  std::printf("route events                    %lld (9 per route)\n", best.events);
  std::printf("CPU time, events handled        %.3f s (best of %d)\n", best.elapsed, repeats);
  std::printf("route events/s                  %.0f\n",
              static_cast<double>(best.events) / best.elapsed);
  std::printf("  producer alone (no follower)  %.3f s\n", best.producer);
  std::printf("store bytes per route           %.0f\n",
              static_cast<double>(best.storeBytes) / perRoute);
  for (int i = 0; i < kStoreParts; ++i) {
    std::printf("  %-41s %.0f\n", kStorePartNames[i],
                static_cast<double>(best.storeParts[i]) / perRoute);
  }
  std::printf("MrouteSm bytes per route        %.0f\n",
              static_cast<double>(best.machineBytes) / perRoute);
  std::printf("platform records per route      %.0f (%.0f without a follower)\n",
              static_cast<double>(best.totalBytes - best.machineBytes - best.storeBytes) / perRoute,
              static_cast<double>(best.platformBytes) / perRoute);
  return 0;
}

int reviewTime(int routes) {
  auto clock = Ent::make<BenchClock>();
  Plat::ScopedClock scoped(clock);
  Inputs in;
  for (int i = 0; i < routes; ++i) in.publish(i);

  const double t0 = cpuNow();
  const double c0 = clock->now();
  auto sm = Routing::Pim::SnmpAgent::mrouteSmFactory(Lanet::AddressFamily::ipv4, in.mib, in.ifMib,
                                                     in.status, in.fib);
  sm->handleInitialized();
  int slices = 0;
  while (!sm->reviewCompleted() && slices < 1000000) {
    clock->runUntil(clock->nextDeadline());
    ++slices;
  }
  const double cpu = cpuNow() - t0;
  if (!sm->reviewCompleted() || !complete(*in.mib, static_cast<size_t>(routes))) {
    std::fprintf(stderr, "review incomplete\n");
    return 1;
  }
  std::printf("startup review, %d routes       %.3f s on the clock, %.3f s CPU, %d slices\n",
              routes, clock->now() - c0, cpu, slices);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const int routes = argc > 1 ? std::atoi(argv[1]) : 100000;
  const int repeats = argc > 2 ? std::atoi(argv[2]) : 3;
  if (routes <= 0 || repeats <= 0) return 2;
  if (int rc = eventRate(routes, repeats)) return rc;
  return reviewTime(routes);
}
