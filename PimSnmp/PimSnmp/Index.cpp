#include "PimSnmp/PimSnmp/Index.h"

#include <array>
#include <charconv>
#include <cstring>
#include <exception>
#include <initializer_list>
#include <stdexcept>
#include <string>

#include "platform/Lanet/Hash.h"

namespace Routing::Pim::Snmp {

namespace {

using ::Snmp::InetAddress;
using ::Snmp::InetVersion;
using ::Snmp::Oid;
using OidSpan = std::span<const uint64_t>;

// Reads "Value('Routing::Pim::Snmp::<type>', ** {'<k1>': <v1>, ..., '<kn>': <vn>})" one field at
// a time, in key order. A value runs to the next ", '<next key>': ", or for the last key to the
// closing "})" that must end the text; so values may contain anything but that separator.
class TextReader {
 public:
  TextReader(std::string_view text, std::string_view type,
             std::initializer_list<std::string_view> keys)
      : text_(text), rest_(text), type_(type) {
    // The braced list dies with the constructor call's full expression; keep copies.
    if (keys.size() > keys_.size()) throw std::logic_error("TextReader: too many keys");
    for (std::string_view key : keys) keys_[keyCount_++] = key;
    expect("Value('Routing::Pim::Snmp::");
    expect(type);
    expect("', ** {");
  }

  std::string_view next() {
    if (field_ == keyCount_) fail("no field left to read");
    if (field_ > 0) expect(", ");
    expect("'");
    expect(keys_[field_]);
    expect("': ");
    ++field_;
    std::string_view value;
    if (field_ == keyCount_) {
      if (!rest_.ends_with("})")) fail("missing closing \"})\" at the end");
      value = rest_.substr(0, rest_.size() - 2);
      rest_ = {};
    } else {
      const std::string separator = fmt::format(", '{}': ", keys_[field_]);
      const size_t end = rest_.find(separator);
      if (end == std::string_view::npos) fail(fmt::format("no \"{}\" follows", separator));
      value = rest_.substr(0, end);
      rest_ = rest_.substr(end);
    }
    return value;
  }

  [[noreturn]] void fail(std::string_view why) const {
    throw std::invalid_argument(
        fmt::format("Routing::Pim::Snmp::{} text '{}': {}", type_, text_, why));
  }

  Lanet::IpGenAddr ipGenAddr() {
    const std::string_view key = currentKey();
    const std::string_view value = next();
    const auto addr = Lanet::IpGenAddr::parse(value);
    if (!addr) failValue(key, value);
    return *addr;
  }

  InetAddress inetAddress() {
    const std::string_view key = currentKey();
    const std::string_view value = next();
    try {
      return InetAddress::parse(value);
    } catch (const std::exception& e) {
      failValue(key, value, e.what());
    }
  }

  uint32_t u32() {
    const std::string_view key = currentKey();
    const std::string_view value = next();
    return number<uint32_t>(key, value);
  }

  int32_t s32() {
    const std::string_view key = currentKey();
    const std::string_view value = next();
    return number<int32_t>(key, value);
  }

  InetVersion inetVersion() {
    const std::string_view key = currentKey();
    const std::string_view value = next();
    const auto version = ::Snmp::inetVersionFromString(value);
    if (!version) failValue(key, value);
    return *version;
  }

  Lanet::IntfId intfId() { return Lanet::IntfId(next()); }

  IpMcastRouteNextHopEntryIndex nestedNextHop() {
    const std::string_view key = currentKey();
    const std::string_view value = next();
    try {
      return IpMcastRouteNextHopEntryIndex(value);
    } catch (const std::invalid_argument& e) {
      failValue(key, value, e.what());
    }
  }

 private:
  void expect(std::string_view literal) {
    if (!rest_.starts_with(literal)) fail(fmt::format("expected \"{}\"", literal));
    rest_.remove_prefix(literal.size());
  }

  std::string_view currentKey() const {
    return field_ < keyCount_ ? keys_[field_] : std::string_view();
  }

  [[noreturn]] void failValue(std::string_view key, std::string_view value,
                              std::string_view why = {}) const {
    fail(why.empty() ? fmt::format("bad '{}' value '{}'", key, value)
                     : fmt::format("bad '{}' value '{}' ({})", key, value, why));
  }

  // Decimal digits, a leading '-' only for signed types; the whole value must be consumed.
  template <typename T>
  T number(std::string_view key, std::string_view value) const {
    T out{};
    const char* end = value.data() + value.size();
    const auto [ptr, ec] = std::from_chars(value.data(), end, out);
    if (value.empty() || ec != std::errc() || ptr != end) failValue(key, value);
    return out;
  }

  std::string_view text_;
  std::string_view rest_;
  std::string_view type_;
  std::array<std::string_view, 6> keys_{};
  size_t keyCount_ = 0;
  size_t field_ = 0;
};

// A PIM/IPMROUTE mask is an IpAddress in the OID: its octets are the uint32's bytes in memory,
// since the value is kept in network byte order.
void appendMask(Oid& oid, uint32_t mask) {
  std::array<uint8_t, 4> octets;
  std::memcpy(octets.data(), &mask, octets.size());
  oid.insert(oid.end(), octets.begin(), octets.end());
}

bool readMask(OidSpan& in, uint32_t& out) {
  Lanet::IpGenAddr addr;
  if (!::Snmp::readIpAddress(in, addr)) return false;
  std::memcpy(&out, addr.bytes().data(), sizeof(out));
  return true;
}

// Consumes one next-hop index from the front of `in`.
bool readNextHop(OidSpan& in, IpMcastRouteNextHopEntryIndex& v) {
  return ::Snmp::readTypedInetAddress(in, v.groupAddr) &&
         ::Snmp::readUnsigned32(in, v.groupLength) &&
         ::Snmp::readTypedInetAddress(in, v.sourceAddr) &&
         ::Snmp::readUnsigned32(in, v.sourceLength) && ::Snmp::readInt32(in, v.ifIndex) &&
         ::Snmp::readTypedInetAddress(in, v.addr);
}

uint64_t hashOf(const Lanet::IpGenAddr& addr) {
  return addr.hash();
}
uint64_t hashOf(const InetAddress& addr) {
  return addr.hash();
}
uint64_t hashOf(uint32_t value) {
  return value;
}
uint64_t hashOf(int32_t value) {
  return static_cast<uint32_t>(value);
}
uint64_t hashOf(InetVersion value) {
  return static_cast<uint32_t>(value);
}

// Mixes the fields into a running hash in the order given.
template <typename... Fields>
size_t mixFields(size_t seed, const Fields&... fields) {
  size_t h = seed;
  ((h = Lanet::hashCombine(h, hashOf(fields))), ...);
  return h;
}

}  // namespace

uint32_t prefixLength(const Lanet::IpGenAddr& addr) {
  if (addr.isUnspecified()) return 0;
  return Lanet::addressBits(addr.af());
}

uint32_t maskFromLength(uint32_t len) {
  if (len == 0 || len > 32) return 0;
  const uint32_t hostOrder = len == 32 ? 0xFFFFFFFFu : ~(0xFFFFFFFFu >> len);
  const std::array<uint8_t, 4> octets = Lanet::IpAddr(hostOrder).bytes();
  uint32_t mask;
  std::memcpy(&mask, octets.data(), sizeof(mask));
  return mask;
}

// ---- PimIpMrouteEntryIndex

PimIpMrouteEntryIndex::PimIpMrouteEntryIndex(std::string_view text) {
  TextReader in(text, "PimIpMrouteEntryIndex", {"group", "source", "sMask"});
  group = in.ipGenAddr();
  source = in.ipGenAddr();
  sMask = in.u32();
}

size_t PimIpMrouteEntryIndex::hash(size_t seed) const {
  return mixFields(seed, group, source, sMask);
}

void PimIpMrouteEntryIndex::toOid(Oid& oid) const {
  ::Snmp::appendIpAddress(oid, group);
  ::Snmp::appendIpAddress(oid, source);
  appendMask(oid, sMask);
}

bool PimIpMrouteEntryIndex::fromOid(OidSpan oid, PimIpMrouteEntryIndex& out) {
  PimIpMrouteEntryIndex v;
  if (!::Snmp::readIpAddress(oid, v.group) || !::Snmp::readIpAddress(oid, v.source) ||
      !readMask(oid, v.sMask) || !oid.empty()) {
    return false;
  }
  out = v;
  return true;
}

std::string valueToStrep(const PimIpMrouteEntryIndex& i) {
  return fmt::format(
      "Value('Routing::Pim::Snmp::PimIpMrouteEntryIndex', ** {{'group': {}, 'source': {}, "
      "'sMask': {}}})",
      i.group, i.source, i.sMask);
}

PimIpMrouteEntryIndex pimIpMrouteEntryIndexFromRouteKey(const RouteKey& key) {
  const bool knownFamily =
      key.af() == Lanet::AddressFamily::ipv4 || key.af() == Lanet::AddressFamily::ipv6;
  const uint32_t sMask = knownFamily && !key.source.isUnspecified() ? 0xFFFFFFFFu : 0;
  return PimIpMrouteEntryIndex(key.group, key.source, sMask);
}

// ---- PimIpMrouteNextHopEntryIndex

PimIpMrouteNextHopEntryIndex::PimIpMrouteNextHopEntryIndex(std::string_view text) {
  TextReader in(text, "PimIpMrouteNextHopEntryIndex",
                {"group", "source", "sMask", "ifIndex", "address"});
  group = in.ipGenAddr();
  source = in.ipGenAddr();
  sMask = in.u32();
  ifIndex = in.s32();
  address = in.ipGenAddr();
}

size_t PimIpMrouteNextHopEntryIndex::hash(size_t seed) const {
  return mixFields(seed, group, source, sMask, ifIndex, address);
}

void PimIpMrouteNextHopEntryIndex::toOid(Oid& oid) const {
  ::Snmp::appendIpAddress(oid, group);
  ::Snmp::appendIpAddress(oid, source);
  appendMask(oid, sMask);
  ::Snmp::appendInt32(oid, ifIndex);
  ::Snmp::appendIpAddress(oid, address);
}

bool PimIpMrouteNextHopEntryIndex::fromOid(OidSpan oid, PimIpMrouteNextHopEntryIndex& out) {
  PimIpMrouteNextHopEntryIndex v;
  if (!::Snmp::readIpAddress(oid, v.group) || !::Snmp::readIpAddress(oid, v.source) ||
      !readMask(oid, v.sMask) || !::Snmp::readInt32(oid, v.ifIndex) ||
      !::Snmp::readIpAddress(oid, v.address) || !oid.empty()) {
    return false;
  }
  out = v;
  return true;
}

std::string valueToStrep(const PimIpMrouteNextHopEntryIndex& i) {
  return fmt::format(
      "Value('Routing::Pim::Snmp::PimIpMrouteNextHopEntryIndex', ** {{'group': {}, 'source': {}, "
      "'sMask': {}, 'ifIndex': {}, 'address': {}}})",
      i.group, i.source, i.sMask, i.ifIndex, i.address);
}

PimIpMrouteNextHopEntryIndex pimIpMrouteNextHopEntryIndexFromRouteKey(const RouteKey& key,
                                                                      int32_t ifIndex) {
  const PimIpMrouteEntryIndex route = pimIpMrouteEntryIndexFromRouteKey(key);
  return PimIpMrouteNextHopEntryIndex(route.group, route.source, route.sMask, ifIndex, key.group);
}

// ---- IpMcastRouteEntryIndex

IpMcastRouteEntryIndex::IpMcastRouteEntryIndex(std::string_view text) {
  TextReader in(text, "IpMcastRouteEntryIndex",
                {"groupAddr", "groupLength", "sourceAddr", "sourceLength"});
  groupAddr = in.inetAddress();
  groupLength = in.u32();
  sourceAddr = in.inetAddress();
  sourceLength = in.u32();
}

IpMcastRouteEntryIndex IpMcastRouteEntryIndex::fromRouteKey(const RouteKey& key) {
  return IpMcastRouteEntryIndex(InetAddress::fromIpGenAddr(key.group), prefixLength(key.group),
                                InetAddress::fromIpGenAddr(key.source), prefixLength(key.source));
}

size_t IpMcastRouteEntryIndex::hash(size_t seed) const {
  return mixFields(seed, groupAddr, groupLength, sourceAddr, sourceLength);
}

void IpMcastRouteEntryIndex::toOid(Oid& oid) const {
  ::Snmp::appendTypedInetAddress(oid, groupAddr);
  ::Snmp::appendUnsigned32(oid, groupLength);
  ::Snmp::appendTypedInetAddress(oid, sourceAddr);
  ::Snmp::appendUnsigned32(oid, sourceLength);
}

bool IpMcastRouteEntryIndex::fromOid(OidSpan oid, IpMcastRouteEntryIndex& out) {
  IpMcastRouteEntryIndex v;
  if (!::Snmp::readTypedInetAddress(oid, v.groupAddr) ||
      !::Snmp::readUnsigned32(oid, v.groupLength) ||
      !::Snmp::readTypedInetAddress(oid, v.sourceAddr) ||
      !::Snmp::readUnsigned32(oid, v.sourceLength) || !oid.empty()) {
    return false;
  }
  out = v;
  return true;
}

std::string valueToStrep(const IpMcastRouteEntryIndex& i) {
  return fmt::format(
      "Value('Routing::Pim::Snmp::IpMcastRouteEntryIndex', ** {{'groupAddr': {}, "
      "'groupLength': {}, 'sourceAddr': {}, 'sourceLength': {}}})",
      i.groupAddr, i.groupLength, i.sourceAddr, i.sourceLength);
}

// ---- IpMcastRouteNextHopEntryIndex

IpMcastRouteNextHopEntryIndex::IpMcastRouteNextHopEntryIndex(std::string_view text) {
  TextReader in(text, "IpMcastRouteNextHopEntryIndex",
                {"groupAddr", "groupLength", "sourceAddr", "sourceLength", "ifIndex", "addr"});
  groupAddr = in.inetAddress();
  groupLength = in.u32();
  sourceAddr = in.inetAddress();
  sourceLength = in.u32();
  ifIndex = in.s32();
  addr = in.inetAddress();
}

IpMcastRouteNextHopEntryIndex IpMcastRouteNextHopEntryIndex::fromRouteKeyAndIfIndex(
    const RouteKey& key, int ifIndex) {
  const IpMcastRouteEntryIndex route = IpMcastRouteEntryIndex::fromRouteKey(key);
  return IpMcastRouteNextHopEntryIndex(route.groupAddr, route.groupLength, route.sourceAddr,
                                       route.sourceLength, ifIndex, route.groupAddr);
}

size_t IpMcastRouteNextHopEntryIndex::hash(size_t seed) const {
  return mixFields(seed, groupAddr, groupLength, sourceAddr, sourceLength, ifIndex, addr);
}

void IpMcastRouteNextHopEntryIndex::toOid(Oid& oid) const {
  ::Snmp::appendTypedInetAddress(oid, groupAddr);
  ::Snmp::appendUnsigned32(oid, groupLength);
  ::Snmp::appendTypedInetAddress(oid, sourceAddr);
  ::Snmp::appendUnsigned32(oid, sourceLength);
  ::Snmp::appendInt32(oid, ifIndex);
  ::Snmp::appendTypedInetAddress(oid, addr);
}

bool IpMcastRouteNextHopEntryIndex::fromOid(OidSpan oid, IpMcastRouteNextHopEntryIndex& out) {
  IpMcastRouteNextHopEntryIndex v;
  if (!readNextHop(oid, v) || !oid.empty()) return false;
  out = v;
  return true;
}

std::string valueToStrep(const IpMcastRouteNextHopEntryIndex& i) {
  return fmt::format(
      "Value('Routing::Pim::Snmp::IpMcastRouteNextHopEntryIndex', ** {{'groupAddr': {}, "
      "'groupLength': {}, 'sourceAddr': {}, 'sourceLength': {}, 'ifIndex': {}, 'addr': {}}})",
      i.groupAddr, i.groupLength, i.sourceAddr, i.sourceLength, i.ifIndex, i.addr);
}

// ---- NextHopEntryIndexWithIntfId

NextHopEntryIndexWithIntfId::NextHopEntryIndexWithIntfId(std::string_view text) {
  TextReader in(text, "NextHopEntryIndexWithIntfId", {"mibIndex", "intfId"});
  mibIndex = in.nestedNextHop();
  intfId = in.intfId();
}

size_t NextHopEntryIndexWithIntfId::hash(size_t seed) const {
  return Lanet::hashCombine(Lanet::hashCombine(seed, mibIndex.hash(0)), intfId.hash());
}

void NextHopEntryIndexWithIntfId::toOid(Oid& oid) const {
  mibIndex.toOid(oid);
  // IMPLIED octets: a name that is a prefix of another sorts first, as in std::string.
  for (const char c : intfId.name()) oid.push_back(static_cast<unsigned char>(c));
}

bool NextHopEntryIndexWithIntfId::fromOid(OidSpan oid, NextHopEntryIndexWithIntfId& out) {
  // The next-hop index is self-delimiting; what follows it is the interface name.
  IpMcastRouteNextHopEntryIndex mib;
  if (!readNextHop(oid, mib)) return false;
  std::string name;
  name.reserve(oid.size());
  for (const uint64_t sub : oid) {
    if (sub > 255) return false;
    name.push_back(static_cast<char>(static_cast<unsigned char>(sub)));
  }
  out = NextHopEntryIndexWithIntfId(mib, Lanet::IntfId(std::move(name)));
  return true;
}

std::string valueToStrep(const NextHopEntryIndexWithIntfId& i) {
  return fmt::format(
      "Value('Routing::Pim::Snmp::NextHopEntryIndexWithIntfId', ** {{'mibIndex': {}, "
      "'intfId': {}}})",
      i.mibIndex, i.intfId);
}

// ---- PimRPSetEntryIndex

PimRPSetEntryIndex::PimRPSetEntryIndex(std::string_view text) {
  TextReader in(text, "PimRPSetEntryIndex", {"pimComponentId", "group", "gMask", "rpAddr"});
  pimComponentId = in.u32();
  group = in.ipGenAddr();
  gMask = in.u32();
  rpAddr = in.ipGenAddr();
}

size_t PimRPSetEntryIndex::hash(size_t seed) const {
  return mixFields(seed, pimComponentId, group, gMask, rpAddr);
}

void PimRPSetEntryIndex::toOid(Oid& oid) const {
  ::Snmp::appendUnsigned32(oid, pimComponentId);
  ::Snmp::appendIpAddress(oid, group);
  appendMask(oid, gMask);
  ::Snmp::appendIpAddress(oid, rpAddr);
}

bool PimRPSetEntryIndex::fromOid(OidSpan oid, PimRPSetEntryIndex& out) {
  PimRPSetEntryIndex v;
  if (!::Snmp::readUnsigned32(oid, v.pimComponentId) || !::Snmp::readIpAddress(oid, v.group) ||
      !readMask(oid, v.gMask) || !::Snmp::readIpAddress(oid, v.rpAddr) || !oid.empty()) {
    return false;
  }
  out = v;
  return true;
}

std::string valueToStrep(const PimRPSetEntryIndex& i) {
  return fmt::format(
      "Value('Routing::Pim::Snmp::PimRPSetEntryIndex', ** {{'pimComponentId': {}, 'group': {}, "
      "'gMask': {}, 'rpAddr': {}}})",
      i.pimComponentId, i.group, i.gMask, i.rpAddr);
}

// ---- PimCandidateRPEntryIndex

PimCandidateRPEntryIndex::PimCandidateRPEntryIndex(std::string_view text) {
  TextReader in(text, "PimCandidateRPEntryIndex", {"group", "gMask"});
  group = in.ipGenAddr();
  gMask = in.u32();
}

size_t PimCandidateRPEntryIndex::hash(size_t seed) const {
  return mixFields(seed, group, gMask);
}

void PimCandidateRPEntryIndex::toOid(Oid& oid) const {
  ::Snmp::appendIpAddress(oid, group);
  appendMask(oid, gMask);
}

bool PimCandidateRPEntryIndex::fromOid(OidSpan oid, PimCandidateRPEntryIndex& out) {
  PimCandidateRPEntryIndex v;
  if (!::Snmp::readIpAddress(oid, v.group) || !readMask(oid, v.gMask) || !oid.empty()) {
    return false;
  }
  out = v;
  return true;
}

std::string valueToStrep(const PimCandidateRPEntryIndex& i) {
  return fmt::format(
      "Value('Routing::Pim::Snmp::PimCandidateRPEntryIndex', ** {{'group': {}, 'gMask': {}}})",
      i.group, i.gMask);
}

// ---- IpMcastInterfaceEntryIndex

IpMcastInterfaceEntryIndex::IpMcastInterfaceEntryIndex(std::string_view text) {
  TextReader in(text, "IpMcastInterfaceEntryIndex", {"ipVersion", "ifIndex"});
  ipVersion = in.inetVersion();
  ifIndex = in.s32();
}

size_t IpMcastInterfaceEntryIndex::hash(size_t seed) const {
  return mixFields(seed, ipVersion, ifIndex);
}

void IpMcastInterfaceEntryIndex::toOid(Oid& oid) const {
  ::Snmp::appendUnsigned32(oid, static_cast<uint32_t>(ipVersion));
  ::Snmp::appendInt32(oid, ifIndex);
}

bool IpMcastInterfaceEntryIndex::fromOid(OidSpan oid, IpMcastInterfaceEntryIndex& out) {
  uint32_t version = 0;
  int32_t ifIndex = 0;
  if (!::Snmp::readUnsigned32(oid, version) || !::Snmp::isValidInetVersion(version) ||
      !::Snmp::readInt32(oid, ifIndex) || !oid.empty()) {
    return false;
  }
  out = IpMcastInterfaceEntryIndex(static_cast<InetVersion>(version), ifIndex);
  return true;
}

std::string valueToStrep(const IpMcastInterfaceEntryIndex& i) {
  return fmt::format(
      "Value('Routing::Pim::Snmp::IpMcastInterfaceEntryIndex', ** {{'ipVersion': {}, "
      "'ifIndex': {}}})",
      i.ipVersion, i.ifIndex);
}

// ---- stream output

std::ostream& operator<<(std::ostream& os, const PimIpMrouteEntryIndex& i) {
  return os << valueToStrep(i);
}
std::ostream& operator<<(std::ostream& os, const PimIpMrouteNextHopEntryIndex& i) {
  return os << valueToStrep(i);
}
std::ostream& operator<<(std::ostream& os, const IpMcastRouteEntryIndex& i) {
  return os << valueToStrep(i);
}
std::ostream& operator<<(std::ostream& os, const IpMcastRouteNextHopEntryIndex& i) {
  return os << valueToStrep(i);
}
std::ostream& operator<<(std::ostream& os, const NextHopEntryIndexWithIntfId& i) {
  return os << valueToStrep(i);
}
std::ostream& operator<<(std::ostream& os, const PimRPSetEntryIndex& i) {
  return os << valueToStrep(i);
}
std::ostream& operator<<(std::ostream& os, const PimCandidateRPEntryIndex& i) {
  return os << valueToStrep(i);
}
std::ostream& operator<<(std::ostream& os, const IpMcastInterfaceEntryIndex& i) {
  return os << valueToStrep(i);
}

}  // namespace Routing::Pim::Snmp
