#pragma once

// What the feeder reads from the Linux kernel: the IPv4 multicast forwarding cache over
// rtnetlink, the multicast VIF table and interface facts from /proc and /sys, and a
// notification socket that says when any of them may have changed.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace PimSnmpFrr::Kernel {

// One kernel multicast forwarding cache entry (IPv4).
struct MfcEntry {
  // RTA_TABLE: 253 (RT_TABLE_DEFAULT) is the default VRF's table.
  uint32_t table = 0;
  // Host byte order; source 0 = (*,G).
  uint32_t source = 0, group = 0;
  // Ifindex of the incoming interface, 0 if none.
  int iifIndex = 0;
  // Ifindexes of RTA_MULTIPATH, as the kernel has them (iif and pimreg included).
  std::vector<int> oifIndexes;
  uint64_t packets = 0, bytes = 0, wrongIf = 0;

  bool operator==(const MfcEntry&) const = default;
};

struct Vif {
  int vif;
  std::string name;
  int ifIndex;

  bool operator==(const Vif&) const = default;
};

// What the feeder reads from the kernel; a fake implements it in tests.
class Source {
 public:
  virtual ~Source() = default;
  // Nullopt, with the reason logged, when the dump fails.
  virtual std::optional<std::vector<MfcEntry>> dumpMfc() = 0;
  // /proc/net/ip_mr_vif.
  virtual std::vector<Vif> vifs() = 0;
  // /sys/class/net/<if>/operstate, "" if none.
  virtual std::string operState(const std::string& ifName) = 0;
  // /sys/class/net/<if>/ifindex.
  virtual std::optional<int> ifIndex(const std::string& ifName) = 0;
  // /proc/sys/net/ipv4/conf/all/mc_forwarding.
  virtual bool mcForwarding() = 0;
  // Readable when MFC / link / address events arrived (-1: none).
  virtual int eventFd() = 0;
  // True when something changed or the socket overflowed (then re-dump).
  virtual bool drainEvents() = 0;
};

struct LinuxSourceOptions {
  std::string procRoot = "/proc";
  std::string sysRoot = "/sys";
  // Receive buffer of the notification socket; SO_RCVBUFFORCE first (needs CAP_NET_ADMIN),
  // SO_RCVBUF (capped by net.core.rmem_max) when that is refused.
  int receiveBufferBytes = 16 * 1024 * 1024;
  // Whether to open the notification socket at all (eventFd() is -1 without it).
  bool events = true;
  // Where failures are reported; stderr when empty.
  std::function<void(std::string_view)> log;
};

std::unique_ptr<Source> makeLinuxSource(LinuxSourceOptions options = {});

}  // namespace PimSnmpFrr::Kernel
