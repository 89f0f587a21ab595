// pimsnmp-frr: feeds pimsnmpd the PIM and multicast state of a router running FRR.

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "pimsnmp-frr/Feeder.h"
#include "pimsnmp-frr/Log.h"
#include "pimsnmp-frr/Options.h"
#include "pimsnmp-frr/kernel/Kernel.h"

using namespace PimSnmpFrr;

int main(int argc, char** argv) {
  const auto parsed = parseOptions(std::vector<std::string>(argv + 1, argv + argc));
  if (!parsed.options) {
    std::fputs(parsed.message.c_str(), parsed.exitCode == 0 ? stdout : stderr);
    return parsed.exitCode;
  }
  const Options& o = *parsed.options;
  if (o.syslog) useSyslog();

  Kernel::LinuxSourceOptions ko;
  ko.events = !o.once;
  ko.log = [](std::string_view m) { logLine(m); };
  auto kernel = Kernel::makeLinuxSource(ko);
  if (!kernel) {
    logLine("cannot read the kernel's multicast state");
    return 1;
  }
  SystemClock clock;
  Feeder feeder(o, *kernel, clock);
  if (o.once) {
    std::cout << feeder.snapshotOnce().dump(1) << '\n';
    return 0;
  }

  sigset_t stop;
  sigemptyset(&stop);
  sigaddset(&stop, SIGTERM);
  sigaddset(&stop, SIGINT);
  sigprocmask(SIG_BLOCK, &stop, nullptr);
  const int stopFd = signalfd(-1, &stop, SFD_CLOEXEC);
  if (stopFd < 0) {
    logLine("signalfd failed");
    return 1;
  }
  if (!o.pidFile.empty()) {
    std::ofstream(o.pidFile) << getpid() << '\n';
  }
  logLine(o.kernelOnly ? "started (kernel only)" : "started, FRR vty sockets in " + o.vtyDir);
  const int status = feeder.run(stopFd);
  if (!o.pidFile.empty()) unlink(o.pidFile.c_str());
  logLine("stopped");
  return status;
}
