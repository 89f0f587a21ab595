#pragma once

// The rtnetlink side of the IPv4 multicast forwarding cache as pure functions over bytes: the
// dump request, and a reader that turns the kernel's answer (RTM_NEWROUTE messages of family
// RTNL_FAMILY_IPMR, possibly spread over many datagrams) into MfcEntry values. Anything
// malformed refuses the whole dump with a reason: a half-read table would withdraw routes.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "pimsnmp-frr/kernel/Kernel.h"

namespace PimSnmpFrr::Kernel {

inline constexpr uint8_t kFamilyIpmr = 128;  // RTNL_FAMILY_IPMR

// An RTM_GETROUTE dump request for every IPMR table, with sequence number `seq`.
std::vector<uint8_t> mfcDumpRequest(uint32_t seq);

// Parses the payload of one RTM_NEWROUTE / RTM_DELROUTE message of family RTNL_FAMILY_IPMR
// (what follows the nlmsghdr). Nullopt with `reason` set when it is malformed.
std::optional<MfcEntry> parseMfcRoute(std::span<const uint8_t> payload, std::string& reason);

// Reads the answer to the dump request `seq`, one datagram at a time.
class MfcDumpReader {
 public:
  enum class Status { more, done, refused };

  explicit MfcDumpReader(uint32_t seq) : seq_(seq) {}

  // Takes one received datagram. After `done` or `refused` further datagrams are ignored.
  Status feed(std::span<const uint8_t> datagram);

  Status status() const { return status_; }
  // Why the dump was refused.
  const std::string& reason() const { return reason_; }
  // The kernel flagged the dump as inconsistent (the tables changed while it ran): ask again.
  bool interrupted() const { return interrupted_; }
  // Messages passed over: other sequence numbers (an earlier request's leftovers), other
  // families, other types.
  size_t skipped() const { return skipped_; }
  std::vector<MfcEntry>& entries() { return entries_; }

 private:
  Status refuse(std::string reason);

  uint32_t seq_;
  Status status_ = Status::more;
  std::string reason_;
  bool interrupted_ = false;
  size_t skipped_ = 0;
  std::vector<MfcEntry> entries_;
};

}  // namespace PimSnmpFrr::Kernel
