// pimsnmp-testagent: the three MIB modules in an embedded net-snmp master on 127.0.0.1, over
// stores filled with fixture records, for end-to-end tests and the table-walk benchmark.
//
//   pimsnmp-testagent --port N [--config FILE] [--persistent-dir DIR] [--contexts]
//                     [--routes N] [--table-rows N] [--bare] [--reference] [--control] [--trace
//                     SETTING]
//                     [--debug TOKENS] [--neighbor-loss-delay S] [--neighbor-loss-disabled REASON]
//
// --routes N adds N generated IPv4 routes to the default VRF; --table-rows N adds N generated
// rows to each of its thirteen tables (the routes included); --bare leaves out its fixture
// rows (only the generated routes); --reference also registers the stock yardstick tables of
// the walk benchmark (ReferenceTable.h) over the default VRF's ipMcastRouteTable.
//
// Prints "ready port=N" on stdout once it answers. With --control it reads commands from
// stdin (see Control.h) and ends at end of input; otherwise it runs until SIGTERM or SIGINT.

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "platform/Clock/Clock.h"
#include "platform/Snmp/Converters.h"
#include "platform/Trace/Trace.h"
#include "tools/testagent/AgentSetup.h"
#include "tools/testagent/Control.h"
#include "tools/testagent/Fixture.h"
#include "tools/testagent/ReferenceTable.h"

namespace {

std::atomic<bool> stopRequested{false};

void onSignal(int) {
  stopRequested = true;
}

struct Options {
  int port = 0;
  std::string configFile;
  std::string persistentDir;
  bool contexts = false;
  size_t routes = 0;
  size_t tableRows = 0;
  bool bare = false;
  bool reference = false;
  bool control = false;
  std::string trace;
  std::string debug;
  double neighborLossDelay = 0;
  bool neighborLossEnabled = true;
  std::string neighborLossReason;
};

[[noreturn]] void usage(const char* why) {
  std::fprintf(stderr,
               "pimsnmp-testagent: %s\n"
               "usage: pimsnmp-testagent --port N [--config FILE] [--persistent-dir DIR]\n"
               "         [--contexts] [--routes N] [--table-rows N] [--bare] [--reference]\n"
               "         [--control]\n"
               "         [--trace SETTING]\n"
               "         [--debug TOKENS] [--neighbor-loss-delay S]\n"
               "         [--neighbor-loss-disabled REASON]\n",
               why);
  std::exit(2);
}

Options parse(int argc, char** argv) {
  Options o;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    auto value = [&]() -> std::string {
      if (i + 1 >= argc) usage(("missing value for " + a).c_str());
      return argv[++i];
    };
    if (a == "--port") {
      o.port = std::atoi(value().c_str());
    } else if (a == "--config") {
      o.configFile = value();
    } else if (a == "--persistent-dir") {
      o.persistentDir = value();
    } else if (a == "--contexts") {
      o.contexts = true;
    } else if (a == "--routes") {
      o.routes = std::strtoul(value().c_str(), nullptr, 10);
    } else if (a == "--table-rows") {
      o.tableRows = std::strtoul(value().c_str(), nullptr, 10);
    } else if (a == "--bare") {
      o.bare = true;
    } else if (a == "--reference") {
      o.reference = true;
    } else if (a == "--control") {
      o.control = true;
    } else if (a == "--trace") {
      o.trace = value();
    } else if (a == "--debug") {
      o.debug = value();
    } else if (a == "--neighbor-loss-delay") {
      o.neighborLossDelay = std::atof(value().c_str());
    } else if (a == "--neighbor-loss-disabled") {
      o.neighborLossEnabled = false;
      o.neighborLossReason = value();
    } else {
      usage(("unknown option " + a).c_str());
    }
  }
  if (o.port <= 0 || o.port > 65535) usage("--port is required");
  if (o.routes > 0 && o.tableRows > 0) usage("--routes and --table-rows generate the same routes");
  return o;
}

}  // namespace

int main(int argc, char** argv) {
  const Options o = parse(argc, argv);
  if (!o.trace.empty() && !Trace::enable(o.trace)) usage("bad --trace setting");

  // A private persistent directory when none is given: net-snmp writes there.
  std::string ownDir;
  std::string persistentDir = o.persistentDir;
  if (persistentDir.empty()) {
    char tmpl[] = "/tmp/pimsnmp-testagent-XXXXXX";
    if (!mkdtemp(tmpl)) {
      std::perror("mkdtemp");
      return 1;
    }
    ownDir = persistentDir = tmpl;
  }

  std::signal(SIGTERM, onSignal);
  std::signal(SIGINT, onSignal);
  std::signal(SIGPIPE, SIG_IGN);

  int status = 0;
  {
    TestAgent::AgentSetupOptions setup;
    setup.host.appName = "pimsnmp-testagent";
    setup.host.listen =
        "udp:127.0.0.1:" + std::to_string(o.port) + ",tcp:127.0.0.1:" + std::to_string(o.port);
    setup.host.configFile = o.configFile;
    setup.host.persistentDir = persistentDir;
    setup.host.persistState = false;
    setup.host.debugTokens = o.debug;
    setup.neighborLossEnabled = o.neighborLossEnabled;
    setup.neighborLossReason = o.neighborLossReason;
    setup.neighborLossDelay = o.neighborLossDelay;

    TestAgent::AgentSetup agent(setup);
    if (!agent.start()) {
      std::fprintf(stderr, "pimsnmp-testagent: %s\n", agent.error().c_str());
      status = 1;
    } else {
      const double now = Plat::now();
      Snmp::agentStartTimeIs(now - TestAgent::kAgentAge);
      std::map<std::string, std::unique_ptr<TestAgent::FixtureVrf>> fixtures;
      auto& def = *fixtures
                       .emplace("default", std::make_unique<TestAgent::FixtureVrf>(
                                               agent.vrfIs("default"), now))
                       .first->second;
      if (!o.bare) def.fillDefault();
      def.generatedRoutesIs(o.routes);
      if (o.tableRows > 0) def.generatedTablesIs(o.tableRows);
      agent.registerAll("default");
      if (o.contexts) {
        auto& red =
            *fixtures
                 .emplace("red", std::make_unique<TestAgent::FixtureVrf>(agent.vrfIs("red"), now))
                 .first->second;
        red.fillRed();
        agent.registerAll("red");
      }
      std::unique_ptr<TestAgent::ReferenceTable> reference;
      if (o.reference) {
        reference = std::make_unique<TestAgent::ReferenceTable>(*agent.vrf("default")->store);
      }

      TestAgent::Control control(agent, fixtures);
      std::unique_ptr<TestAgent::ControlChannel> channel;
      if (o.control) channel = std::make_unique<TestAgent::ControlChannel>(control, 0, 1);
      std::printf("ready port=%d\n", o.port);
      std::fflush(stdout);

      while (!stopRequested && !control.quitRequested() && !(channel && channel->closed())) {
        agent.host().runOnce(0.2);
      }
      channel.reset();
      reference.reset();
    }
  }
  if (!ownDir.empty()) {
    std::error_code ec;
    std::filesystem::remove_all(ownDir, ec);
  }
  return status;
}
