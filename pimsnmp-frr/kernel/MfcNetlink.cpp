#include "pimsnmp-frr/kernel/MfcNetlink.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <cstring>

namespace PimSnmpFrr::Kernel {

namespace {

// Netlink data has no alignment guarantee once it sits in a test file or a shifted buffer.
template <class T>
T load(std::span<const uint8_t> bytes, size_t offset = 0) {
  T value;
  std::memcpy(&value, bytes.data() + offset, sizeof(T));
  return value;
}

// Netlink error codes are negative errno values; anything else is shown as a number.
std::string errnoText(int code) {
  if (code >= 0 || code < -4095) return fmt::format("error code {}", code);
  return std::strerror(-code);
}

constexpr size_t align4(size_t n) {
  return (n + 3) & ~size_t{3};
}

// One step over a run of length-prefixed records (nlmsghdr, rtattr and rtnexthop all start with
// a 16-bit or 32-bit length that counts the header). Returns the record's length, or 0 with
// `reason` set when it does not fit.
template <class Len>
size_t recordAt(std::span<const uint8_t> run, size_t offset, size_t headerSize, const char* what,
                std::string& reason) {
  const size_t left = run.size() - offset;
  if (left < headerSize) {
    reason = fmt::format("{} truncated: {} bytes left, header needs {}", what, left, headerSize);
    return 0;
  }
  const size_t len = load<Len>(run, offset);
  if (len < headerSize || len > left) {
    reason = fmt::format("{} length {} outside the {} bytes left", what, len, left);
    return 0;
  }
  return len;
}

bool loadU32(std::span<const uint8_t> value, const char* name, uint32_t& out, std::string& reason) {
  if (value.size() != 4) {
    reason = fmt::format("{} of {} bytes, 4 expected", name, value.size());
    return false;
  }
  out = load<uint32_t>(value);
  return true;
}

bool parseMultipath(std::span<const uint8_t> value, std::vector<int>& oifs, std::string& reason) {
  for (size_t off = 0; off < value.size();) {
    const size_t len = recordAt<uint16_t>(value, off, sizeof(rtnexthop), "rtnexthop", reason);
    if (len == 0) return false;
    oifs.push_back(load<rtnexthop>(value, off).rtnh_ifindex);
    off += align4(len);
  }
  return true;
}

}  // namespace

std::vector<uint8_t> mfcDumpRequest(uint32_t seq) {
  struct {
    nlmsghdr header;
    rtmsg route;
  } request{};
  request.header.nlmsg_len = sizeof(request);
  request.header.nlmsg_type = RTM_GETROUTE;
  request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request.header.nlmsg_seq = seq;
  request.route.rtm_family = kFamilyIpmr;
  const auto* bytes = reinterpret_cast<const uint8_t*>(&request);
  return {bytes, bytes + sizeof(request)};
}

std::optional<MfcEntry> parseMfcRoute(std::span<const uint8_t> payload, std::string& reason) {
  if (payload.size() < sizeof(rtmsg)) {
    reason =
        fmt::format("route message of {} bytes, rtmsg needs {}", payload.size(), sizeof(rtmsg));
    return std::nullopt;
  }
  const auto route = load<rtmsg>(payload);
  if (route.rtm_family != kFamilyIpmr) {
    reason = fmt::format("route family {}, not IPMR", route.rtm_family);
    return std::nullopt;
  }
  MfcEntry entry;
  entry.table = route.rtm_table;
  bool hasGroup = false;
  static_assert(sizeof(rtmsg) % 4 == 0, "attributes follow rtmsg without padding");
  const auto attrs = payload.subspan(sizeof(rtmsg));
  for (size_t off = 0; off < attrs.size();) {
    const size_t len = recordAt<uint16_t>(attrs, off, sizeof(rtattr), "route attribute", reason);
    if (len == 0) return std::nullopt;
    const uint16_t type = load<rtattr>(attrs, off).rta_type & NLA_TYPE_MASK;
    const auto value = attrs.subspan(off + sizeof(rtattr), len - sizeof(rtattr));
    bool ok = true;
    uint32_t u32 = 0;
    switch (type) {
      case RTA_TABLE:
        ok = loadU32(value, "RTA_TABLE", entry.table, reason);
        break;
      case RTA_SRC:
        ok = loadU32(value, "RTA_SRC", u32, reason);
        entry.source = ntohl(u32);
        break;
      case RTA_DST:
        ok = loadU32(value, "RTA_DST", u32, reason);
        entry.group = ntohl(u32);
        hasGroup = ok;
        break;
      case RTA_IIF:
        ok = loadU32(value, "RTA_IIF", u32, reason);
        entry.iifIndex = static_cast<int>(u32);
        break;
      case RTA_MULTIPATH:
        entry.oifIndexes.clear();
        ok = parseMultipath(value, entry.oifIndexes, reason);
        break;
      case RTA_MFC_STATS: {
        if (value.size() < sizeof(rta_mfc_stats)) {
          reason = fmt::format("RTA_MFC_STATS of {} bytes, {} expected", value.size(),
                               sizeof(rta_mfc_stats));
          return std::nullopt;
        }
        const auto stats = load<rta_mfc_stats>(value);
        entry.packets = stats.mfcs_packets;
        entry.bytes = stats.mfcs_bytes;
        entry.wrongIf = stats.mfcs_wrong_if;
        break;
      }
      default:  // RTA_EXPIRES, RTA_PAD and anything newer
        break;
    }
    if (!ok) return std::nullopt;
    off += align4(len);
  }
  if (!hasGroup) {
    reason = "route without a group (RTA_DST)";
    return std::nullopt;
  }
  return entry;
}

MfcDumpReader::Status MfcDumpReader::refuse(std::string reason) {
  reason_ = std::move(reason);
  entries_.clear();
  return status_ = Status::refused;
}

MfcDumpReader::Status MfcDumpReader::feed(std::span<const uint8_t> datagram) {
  if (status_ != Status::more) return status_;
  std::string reason;
  for (size_t off = 0; off < datagram.size();) {
    const size_t len =
        recordAt<uint32_t>(datagram, off, sizeof(nlmsghdr), "netlink message", reason);
    if (len == 0) return refuse(std::move(reason));
    const auto header = load<nlmsghdr>(datagram, off);
    const auto payload = datagram.subspan(off + NLMSG_HDRLEN, len - NLMSG_HDRLEN);
    off += align4(len);
    if (header.nlmsg_seq != seq_) {
      ++skipped_;
      continue;
    }
    if (header.nlmsg_flags & NLM_F_DUMP_INTR) interrupted_ = true;
    switch (header.nlmsg_type) {
      case NLMSG_DONE:
        // The kernel puts the dump's final error code in NLMSG_DONE.
        if (payload.size() >= sizeof(int) && load<int>(payload) < 0) {
          return refuse(fmt::format("dump ended with error: {}", errnoText(load<int>(payload))));
        }
        return status_ = Status::done;
      case NLMSG_ERROR: {
        if (payload.size() < sizeof(int)) return refuse("NLMSG_ERROR without an error code");
        const int error = load<int>(payload);
        if (error == 0) continue;  // an acknowledgement
        return refuse(fmt::format("kernel refused the dump: {}", errnoText(error)));
      }
      case RTM_NEWROUTE: {
        if (payload.size() >= 1 && payload[0] != kFamilyIpmr) {
          ++skipped_;
          continue;
        }
        auto entry = parseMfcRoute(payload, reason);
        if (!entry) return refuse(std::move(reason));
        entries_.push_back(std::move(*entry));
        continue;
      }
      default:
        ++skipped_;
    }
  }
  return status_;
}

}  // namespace PimSnmpFrr::Kernel
