#pragma once

// The kernel's multicast facts that live in /proc and /sys, read under configurable roots so
// tests can point them at a directory of recorded files.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pimsnmp-frr/kernel/Kernel.h"

namespace PimSnmpFrr::Kernel {

// The rows of /proc/net/ip_mr_vif ("vif name bytesIn pktsIn bytesOut pktsOut flags local
// remote" after a header line), ifIndex left 0. Lines that do not start with a VIF number and
// a name are skipped.
std::vector<Vif> parseVifTable(std::string_view text);

// The first line of a sysfs/procfs attribute without its newline; nullopt when unreadable.
std::optional<std::string> readFirstLine(const std::string& path);

// Whether an interface name can be used as one path element under /sys/class/net.
bool validIfName(std::string_view name);

class ProcFiles {
 public:
  ProcFiles(std::string procRoot, std::string sysRoot)
      : procRoot_(std::move(procRoot)), sysRoot_(std::move(sysRoot)) {}

  // The VIF table with each VIF's current ifindex (0 when its interface has gone).
  std::vector<Vif> vifs() const;
  std::string operState(std::string_view ifName) const;
  std::optional<int> ifIndex(std::string_view ifName) const;
  bool mcForwarding() const;

 private:
  std::optional<std::string> netAttribute(std::string_view ifName, std::string_view attr) const;

  std::string procRoot_;
  std::string sysRoot_;
};

}  // namespace PimSnmpFrr::Kernel
