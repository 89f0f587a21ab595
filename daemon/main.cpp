// pimsnmpd: see docs/pimsnmpd.md. `pimsnmpd ctl ...` is the companion CLI (pimsnmpctl).

#include <cstdio>
#include <string>
#include <vector>

#include "daemon/Daemon.h"
#include "daemon/Options.h"
#include "daemon/Version.h"
#include "daemon/ctl/Ctl.h"

int main(int argc, char** argv) {
  if (argc >= 2 && std::string(argv[1]) == "ctl") {
    return PimSnmpd::Ctl::main(argc - 1, argv + 1, "pimsnmpd ctl");
  }
  std::vector<std::string> args(argv + 1, argv + argc);
  const PimSnmpd::ParsedArgs parsed = PimSnmpd::parseArgs(args);
  if (parsed.help) {
    std::fputs(PimSnmpd::usage("pimsnmpd").c_str(), stdout);
    return 0;
  }
  if (parsed.version) {
    std::printf("pimsnmpd %s\n", PimSnmpd::kVersion);
    return 0;
  }
  if (!parsed.options) {
    std::fprintf(stderr, "pimsnmpd: %s\nTry 'pimsnmpd --help'.\n", parsed.error.c_str());
    return 2;
  }
  PimSnmpd::Daemon daemon(*parsed.options);
  return daemon.run();
}
