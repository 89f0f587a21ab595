#pragma once

// Recorded kernel data (tests/lab/record_kernel.py) and a builder for crafted netlink messages.

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "pimsnmp-frr/kernel/Kernel.h"

namespace PimSnmpFrr::Kernel::Testing {

using Bytes = std::vector<uint8_t>;

std::string dataPath(const std::string& name);
std::string readText(const std::string& path);
// The datagrams of a NAME.mfc recording (u32 little-endian length, then the bytes).
std::vector<Bytes> readDatagrams(const std::string& path);

// One line of /proc/net/ip_mr_cache, with VIF numbers (not ifindexes).
struct CacheLine {
  uint32_t group = 0, origin = 0;  // host order
  int iifVif = 0;
  uint64_t packets = 0, bytes = 0, wrongIf = 0;
  std::vector<int> oifVifs;
};
// Keyed by (origin, group).
std::map<std::pair<uint32_t, uint32_t>, CacheLine> parseCache(const std::string& text);

// Builds netlink messages field by field, for the shapes the kernel never sends.
class MessageBuilder {
 public:
  // Starts a message; the length is fixed up by finish().
  MessageBuilder& header(uint16_t type, uint32_t seq, uint16_t flags = NLM_F_MULTI);
  MessageBuilder& route(uint8_t family = 128, uint8_t table = RT_TABLE_DEFAULT);
  MessageBuilder& attr(uint16_t type, const void* data, size_t size);
  MessageBuilder& u32Attr(uint16_t type, uint32_t value) { return attr(type, &value, 4); }
  // An IPv4 address attribute from host order.
  MessageBuilder& addrAttr(uint16_t type, uint32_t hostOrder);
  MessageBuilder& multipath(const std::vector<int>& ifindexes);
  MessageBuilder& stats(uint64_t packets, uint64_t bytes, uint64_t wrongIf);
  MessageBuilder& raw(const void* data, size_t size);
  // Closes the current message (length, padding); more can follow in the same datagram.
  MessageBuilder& finish();
  Bytes datagram() const { return bytes_; }

 private:
  Bytes bytes_;
  size_t start_ = 0;
};

// A datagram that ends a dump with sequence `seq` (NLMSG_DONE, error code `error`).
Bytes doneMessage(uint32_t seq, int error = 0);

}  // namespace PimSnmpFrr::Kernel::Testing
