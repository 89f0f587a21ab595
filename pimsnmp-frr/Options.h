#pragma once

// The command line of pimsnmp-frr.

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace PimSnmpFrr {

using Millis = std::chrono::milliseconds;

struct Options {
  std::string vtyDir = "/var/run/frr";
  std::string feedPath;  // empty with --once
  bool kernelOnly = false;
  bool once = false;  // print one snapshot on stdout and exit
  bool syslog = false;
  std::string pidFile;

  Millis neighborPeriod{1000};
  Millis interfacePeriod{5000};
  Millis routePeriod{30000};
  Millis routeDelay{300};
  Millis routeMinGap{2000};
  Millis counterPeriod{10000};
  Millis reconnectPeriod{1000};
  Millis grace{10000};
  Millis vtyTimeout{5000};
  Millis feedTimeout{10000};
};

struct ParsedOptions {
  std::optional<Options> options;  // nullopt: exit with `exitCode` after printing `message`
  int exitCode = 0;
  std::string message;
};

ParsedOptions parseOptions(const std::vector<std::string>& args);
std::string usageText();

}  // namespace PimSnmpFrr
