// The state document's own memory and parse cost: the heap the daemon's copy of the document
// holds for N IPv4 routes (the feed benchmark's routes: an upstream with its RPF neighbor, two
// route interfaces, its creation time as the daemon resolves it, a FIB route with two OIFs and
// its counters), measured by counting the allocations of Document::parse and settle(), after
// which the document holds exactly what the daemon's holds between updates.
//
// Usage: feed_document_bench [routes]   (default 100000)

#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench/CountingHeap.h"
#include "daemon/state/StateDocument.h"

namespace {

double cpuNow() {
  timespec ts{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

// bench/feed_bench.py's route_key().
std::string routeKey(int n) {
  const int s = n % 250;
  const int g = n / 250;
  return "10.1." + std::to_string(s / 250) + "." + std::to_string(s % 250 + 1) + ",239." +
         std::to_string(g / 250 % 250 + 1) + "." + std::to_string(g % 250) + ".1";
}

std::string documentText(int routes) {
  std::string text = R"({"interfaces": {"Ethernet1": {"ifIndex": 1}, "Ethernet2": {"ifIndex": 2},
    "Ethernet3": {"ifIndex": 3}}, "vrfs": {"default": {"ipv4": {
    "fib": {"oifIndexes": {"Ethernet1": 1, "Ethernet2": 2, "Ethernet3": 3}, "routes": {)";
  for (int n = 0; n < routes; ++n) {
    text += (n ? ",\"" : "\"") + routeKey(n) + R"(":{"oifs":["Ethernet2","Ethernet3"],"packets":)" +
            std::to_string(n) + ",\"bytes\":" + std::to_string(n * 1000LL) + "}";
  }
  text += "}}, \"routes\": {";
  for (int n = 0; n < routes; ++n) {
    text += (n ? ",\"" : "\"") + routeKey(n) +
            R"(":{"created":1763900000.25,)"
            R"("upstream":{"interface":"Ethernet1","rpfNeighbor":"10.0.1.2"},)"
            R"("interfaces":{"Ethernet2":{},"Ethernet3":{}}})";
  }
  text += "}}}}}";
  return text;
}

}  // namespace

int main(int argc, char** argv) {
  const int routes = argc > 1 ? std::atoi(argv[1]) : 100000;
  const std::string text = documentText(routes);
  const long long before = Bench::heapBytes();
  const double started = cpuNow();
  auto parsed = PimSnmpd::Document::parse(text);
  if (!parsed.ok()) {
    std::fprintf(stderr, "refused: %s\n", parsed.errors.front().toString().c_str());
    return 1;
  }
  parsed.document->settle();
  const double cpu = cpuNow() - started;
  const long long held = Bench::heapBytes() - before;
  std::printf(
      "%d routes: the document holds %lld bytes = %.0f bytes per route "
      "(text %zu bytes = %.0f per route); parsed, validated and packed in %.3f s CPU "
      "(%.0f routes/s)\n",
      routes, held, static_cast<double>(held) / routes, text.size(),
      static_cast<double>(text.size()) / routes, cpu, routes / cpu);
  return 0;
}
