#include "platform/Snmp/Oid.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace Snmp {

namespace {

constexpr SubId kMaxUint32 = 0xffffffffULL;

// Copies `count` octet sub-identifiers from the front of `in` into `out`; false if any
// exceeds 255. Does not consume.
bool peekOctets(std::span<const SubId> in, size_t count, uint8_t* out) {
  for (size_t i = 0; i < count; ++i) {
    if (in[i] > 255) return false;
    out[i] = static_cast<uint8_t>(in[i]);
  }
  return true;
}

}  // namespace

void appendIpAddress(Oid& oid, const Lanet::IpGenAddr& addr) {
  if (!addr.isV4()) {
    throw std::invalid_argument(
        fmt::format("IpAddress index needs an IPv4 address, got {} ({})", addr, addr.af()));
  }
  const auto bytes = addr.bytes();
  oid.insert(oid.end(), bytes.begin(), bytes.end());
}

bool readIpAddress(std::span<const SubId>& in, Lanet::IpGenAddr& out) {
  std::array<uint8_t, 4> bytes;
  if (in.size() < bytes.size() || !peekOctets(in, bytes.size(), bytes.data())) return false;
  out = Lanet::IpAddr::fromBytes(bytes);
  in = in.subspan(bytes.size());
  return true;
}

void appendInt32(Oid& oid, int32_t value) {
  oid.push_back(static_cast<uint32_t>(value));
}

bool readInt32(std::span<const SubId>& in, int32_t& out) {
  uint32_t raw;
  if (!readUnsigned32(in, raw)) return false;
  out = static_cast<int32_t>(raw);
  return true;
}

void appendUnsigned32(Oid& oid, uint32_t value) {
  oid.push_back(value);
}

bool readUnsigned32(std::span<const SubId>& in, uint32_t& out) {
  if (in.empty() || in.front() > kMaxUint32) return false;
  out = static_cast<uint32_t>(in.front());
  in = in.subspan(1);
  return true;
}

void appendInetAddressType(Oid& oid, InetAddressType type) {
  oid.push_back(static_cast<SubId>(type));
}

bool readInetAddressType(std::span<const SubId>& in, InetAddressType& out) {
  if (in.empty() || in.front() > kMaxUint32 ||
      !isValidInetAddressType(static_cast<uint32_t>(in.front()))) {
    return false;
  }
  out = static_cast<InetAddressType>(in.front());
  in = in.subspan(1);
  return true;
}

void appendInetAddress(Oid& oid, const InetAddress& addr) {
  oid.push_back(addr.size());
  const auto octets = addr.octets();
  oid.insert(oid.end(), octets.begin(), octets.end());
}

bool readInetAddress(std::span<const SubId>& in, InetAddressType type, InetAddress& out) {
  if (in.empty() || in.front() > InetAddress::kMaxOctets) return false;
  const auto count = static_cast<size_t>(in.front());
  std::array<uint8_t, InetAddress::kMaxOctets> octets;
  if (in.size() < 1 + count || !peekOctets(in.subspan(1), count, octets.data())) return false;
  if (!isValidInetAddressType(static_cast<uint32_t>(type))) return false;
  out = InetAddress(type, std::span<const uint8_t>(octets.data(), count));
  in = in.subspan(1 + count);
  return true;
}

void appendTypedInetAddress(Oid& oid, const InetAddress& addr) {
  appendInetAddressType(oid, addr.type());
  appendInetAddress(oid, addr);
}

bool readTypedInetAddress(std::span<const SubId>& in, InetAddress& out) {
  std::span<const SubId> rest = in;
  InetAddressType type;
  if (!readInetAddressType(rest, type) || !readInetAddress(rest, type, out)) return false;
  in = rest;
  return true;
}

int compareOid(std::span<const SubId> a, std::span<const SubId> b) {
  const size_t n = std::min(a.size(), b.size());
  for (size_t i = 0; i < n; ++i) {
    if (a[i] != b[i]) return a[i] < b[i] ? -1 : 1;
  }
  if (a.size() == b.size()) return 0;
  return a.size() < b.size() ? -1 : 1;
}

std::string oidToString(std::span<const SubId> oid) {
  return fmt::format("{}", fmt::join(oid, "."));
}

}  // namespace Snmp
