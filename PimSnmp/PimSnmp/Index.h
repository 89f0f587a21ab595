#pragma once

// Index types of the route, RP and multicast-interface tables.
//
// Each is a plain value whose operator< is the table's SNMP walk order: comparing two indexes
// gives the same answer as comparing their OID encodings (toOid), with two documented limits
// (docs/decisions.md): a negative ifIndex orders by its signed value, and a PIM/IPMROUTE mask
// orders by its uint32 value, which agrees with the OID only for contiguous masks.
//
// The text form "Value('<type>', ** {'<field>': <value>, ...})" is what operator<<,
// valueToStrep and fmt print; the string_view constructor parses exactly that form and throws
// std::invalid_argument on any deviation.
//
// Inside this namespace `Snmp` names Routing::Pim::Snmp; the platform's is `::Snmp`.

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <ostream>
#include <span>
#include <string>
#include <string_view>

#include <fmt/format.h>

#include "platform/Lanet/IntfId.h"
#include "platform/Lanet/IpGenAddr.h"
#include "platform/Routing/Pim/RouteKey.h"
#include "platform/Snmp/InetAddress.h"
#include "platform/Snmp/InetVersion.h"
#include "platform/Snmp/Oid.h"

namespace Routing::Pim::Snmp {

// 0 for the unspecified address of either family and for an af-unknown address; else 32 for
// IPv4 and 128 for IPv6 (the length of a host route's source or group).
uint32_t prefixLength(const Lanet::IpGenAddr& addr);

// `len` leading one bits in network byte order: the bytes in memory are the mask's octets
// (24 gives FF FF FF 00 in memory). 0 for len 0 and for any len above 32.
uint32_t maskFromLength(uint32_t len);

// ipMRouteTable and pimIpMRouteTable. IPv4 rows only: the OID encodes addresses and the mask
// as IpAddress.
struct PimIpMrouteEntryIndex {
  Lanet::IpGenAddr group;
  Lanet::IpGenAddr source;
  uint32_t sMask = 0;  // network byte order, like maskFromLength

  PimIpMrouteEntryIndex() = default;
  PimIpMrouteEntryIndex(const Lanet::IpGenAddr& group, const Lanet::IpGenAddr& source,
                        uint32_t sMask)
      : group(group), source(source), sMask(sMask) {}
  explicit PimIpMrouteEntryIndex(std::string_view text);

  bool operator==(const PimIpMrouteEntryIndex&) const = default;
  std::strong_ordering operator<=>(const PimIpMrouteEntryIndex&) const = default;

  size_t hash(size_t seed = 0) const;
  // Appends group, source, sMask as three IpAddress values. Throws std::invalid_argument when
  // an address is not IPv4.
  void toOid(::Snmp::Oid& oid) const;
  // The whole of `oid` must be one index; false (and `out` untouched) otherwise.
  static bool fromOid(std::span<const uint64_t> oid, PimIpMrouteEntryIndex& out);
};

// sMask 0 for (*,G) and for a key of unknown family, else all ones (IPv6 too).
PimIpMrouteEntryIndex pimIpMrouteEntryIndexFromRouteKey(const RouteKey& key);

// ipMRouteNextHopTable and pimIpMRouteNextHopTable. IPv4 rows only.
struct PimIpMrouteNextHopEntryIndex {
  Lanet::IpGenAddr group;
  Lanet::IpGenAddr source;
  uint32_t sMask = 0;
  int32_t ifIndex = 0;
  Lanet::IpGenAddr address;

  PimIpMrouteNextHopEntryIndex() = default;
  PimIpMrouteNextHopEntryIndex(const Lanet::IpGenAddr& group, const Lanet::IpGenAddr& source,
                               uint32_t sMask, int32_t ifIndex, const Lanet::IpGenAddr& address)
      : group(group), source(source), sMask(sMask), ifIndex(ifIndex), address(address) {}
  explicit PimIpMrouteNextHopEntryIndex(std::string_view text);

  bool operator==(const PimIpMrouteNextHopEntryIndex&) const = default;
  std::strong_ordering operator<=>(const PimIpMrouteNextHopEntryIndex&) const = default;

  size_t hash(size_t seed = 0) const;
  void toOid(::Snmp::Oid& oid) const;
  static bool fromOid(std::span<const uint64_t> oid, PimIpMrouteNextHopEntryIndex& out);
};

// The route's index plus `ifIndex`, with the group as the next-hop address.
PimIpMrouteNextHopEntryIndex pimIpMrouteNextHopEntryIndexFromRouteKey(const RouteKey& key,
                                                                      int32_t ifIndex);

// ipMcastRouteTable.
struct IpMcastRouteEntryIndex {
  ::Snmp::InetAddress groupAddr;
  uint32_t groupLength = 0;
  ::Snmp::InetAddress sourceAddr;
  uint32_t sourceLength = 0;

  IpMcastRouteEntryIndex() = default;
  IpMcastRouteEntryIndex(const ::Snmp::InetAddress& groupAddr, uint32_t groupLength,
                         const ::Snmp::InetAddress& sourceAddr, uint32_t sourceLength)
      : groupAddr(groupAddr),
        groupLength(groupLength),
        sourceAddr(sourceAddr),
        sourceLength(sourceLength) {}
  explicit IpMcastRouteEntryIndex(std::string_view text);

  // Lengths from prefixLength, so (*,G) has sourceLength 0.
  static IpMcastRouteEntryIndex fromRouteKey(const RouteKey& key);

  bool operator==(const IpMcastRouteEntryIndex&) const = default;
  std::strong_ordering operator<=>(const IpMcastRouteEntryIndex&) const = default;
  // False exactly for the default value.
  explicit operator bool() const { return *this != IpMcastRouteEntryIndex(); }

  size_t hash(size_t seed = 0) const;
  void toOid(::Snmp::Oid& oid) const;
  static bool fromOid(std::span<const uint64_t> oid, IpMcastRouteEntryIndex& out);
};

// ipMcastRouteNextHopTable.
struct IpMcastRouteNextHopEntryIndex {
  ::Snmp::InetAddress groupAddr;
  uint32_t groupLength = 0;
  ::Snmp::InetAddress sourceAddr;
  uint32_t sourceLength = 0;
  int32_t ifIndex = 0;
  ::Snmp::InetAddress addr;

  IpMcastRouteNextHopEntryIndex() = default;
  IpMcastRouteNextHopEntryIndex(const ::Snmp::InetAddress& groupAddr, uint32_t groupLength,
                                const ::Snmp::InetAddress& sourceAddr, uint32_t sourceLength,
                                int32_t ifIndex, const ::Snmp::InetAddress& addr)
      : groupAddr(groupAddr),
        groupLength(groupLength),
        sourceAddr(sourceAddr),
        sourceLength(sourceLength),
        ifIndex(ifIndex),
        addr(addr) {}
  explicit IpMcastRouteNextHopEntryIndex(std::string_view text);

  // The next-hop address is the group itself, by design.
  static IpMcastRouteNextHopEntryIndex fromRouteKeyAndIfIndex(const RouteKey& key, int ifIndex);

  bool operator==(const IpMcastRouteNextHopEntryIndex&) const = default;
  std::strong_ordering operator<=>(const IpMcastRouteNextHopEntryIndex&) const = default;
  explicit operator bool() const { return *this != IpMcastRouteNextHopEntryIndex(); }

  size_t hash(size_t seed = 0) const;
  void toOid(::Snmp::Oid& oid) const;
  static bool fromOid(std::span<const uint64_t> oid, IpMcastRouteNextHopEntryIndex& out);
};

// A member of an ipMcastRouteTable row's next-hop set. No SNMP table uses it; toOid appends the
// interface name as IMPLIED octets, which keeps the OID order equal to operator<.
struct NextHopEntryIndexWithIntfId {
  IpMcastRouteNextHopEntryIndex mibIndex;
  Lanet::IntfId intfId;

  NextHopEntryIndexWithIntfId() = default;
  NextHopEntryIndexWithIntfId(const IpMcastRouteNextHopEntryIndex& mibIndex,
                              const Lanet::IntfId& intfId)
      : mibIndex(mibIndex), intfId(intfId) {}
  explicit NextHopEntryIndexWithIntfId(std::string_view text);

  bool operator==(const NextHopEntryIndexWithIntfId&) const = default;
  std::strong_ordering operator<=>(const NextHopEntryIndexWithIntfId&) const = default;
  explicit operator bool() const { return static_cast<bool>(mibIndex) || !intfId.empty(); }

  size_t hash(size_t seed = 0) const;
  void toOid(::Snmp::Oid& oid) const;
  static bool fromOid(std::span<const uint64_t> oid, NextHopEntryIndexWithIntfId& out);
};

// pimRPSetTable. IPv4 rows only.
struct PimRPSetEntryIndex {
  uint32_t pimComponentId = 0;
  Lanet::IpGenAddr group;
  uint32_t gMask = 0;  // network byte order, from maskFromLength
  Lanet::IpGenAddr rpAddr;

  PimRPSetEntryIndex() = default;
  PimRPSetEntryIndex(uint32_t pimComponentId, const Lanet::IpGenAddr& group, uint32_t gMask,
                     const Lanet::IpGenAddr& rpAddr)
      : pimComponentId(pimComponentId), group(group), gMask(gMask), rpAddr(rpAddr) {}
  explicit PimRPSetEntryIndex(std::string_view text);

  bool operator==(const PimRPSetEntryIndex&) const = default;
  std::strong_ordering operator<=>(const PimRPSetEntryIndex&) const = default;

  size_t hash(size_t seed = 0) const;
  void toOid(::Snmp::Oid& oid) const;
  static bool fromOid(std::span<const uint64_t> oid, PimRPSetEntryIndex& out);
};

// pimCandidateRPTable. IPv4 rows only.
struct PimCandidateRPEntryIndex {
  Lanet::IpGenAddr group;
  uint32_t gMask = 0;

  PimCandidateRPEntryIndex() = default;
  PimCandidateRPEntryIndex(const Lanet::IpGenAddr& group, uint32_t gMask)
      : group(group), gMask(gMask) {}
  explicit PimCandidateRPEntryIndex(std::string_view text);

  bool operator==(const PimCandidateRPEntryIndex&) const = default;
  std::strong_ordering operator<=>(const PimCandidateRPEntryIndex&) const = default;

  size_t hash(size_t seed = 0) const;
  void toOid(::Snmp::Oid& oid) const;
  static bool fromOid(std::span<const uint64_t> oid, PimCandidateRPEntryIndex& out);
};

// ipMcastInterfaceTable.
struct IpMcastInterfaceEntryIndex {
  ::Snmp::InetVersion ipVersion = ::Snmp::InetVersion::unknown;
  int32_t ifIndex = 0;

  IpMcastInterfaceEntryIndex() = default;
  IpMcastInterfaceEntryIndex(::Snmp::InetVersion ipVersion, int32_t ifIndex)
      : ipVersion(ipVersion), ifIndex(ifIndex) {}
  explicit IpMcastInterfaceEntryIndex(std::string_view text);

  bool operator==(const IpMcastInterfaceEntryIndex&) const = default;
  std::strong_ordering operator<=>(const IpMcastInterfaceEntryIndex&) const = default;

  size_t hash(size_t seed = 0) const;
  void toOid(::Snmp::Oid& oid) const;
  // Rejects an ipVersion other than unknown, ipv4, ipv6.
  static bool fromOid(std::span<const uint64_t> oid, IpMcastInterfaceEntryIndex& out);
};

std::string valueToStrep(const PimIpMrouteEntryIndex& index);
std::string valueToStrep(const PimIpMrouteNextHopEntryIndex& index);
std::string valueToStrep(const IpMcastRouteEntryIndex& index);
std::string valueToStrep(const IpMcastRouteNextHopEntryIndex& index);
std::string valueToStrep(const NextHopEntryIndexWithIntfId& index);
std::string valueToStrep(const PimRPSetEntryIndex& index);
std::string valueToStrep(const PimCandidateRPEntryIndex& index);
std::string valueToStrep(const IpMcastInterfaceEntryIndex& index);

// The text form.
std::ostream& operator<<(std::ostream& os, const PimIpMrouteEntryIndex& index);
std::ostream& operator<<(std::ostream& os, const PimIpMrouteNextHopEntryIndex& index);
std::ostream& operator<<(std::ostream& os, const IpMcastRouteEntryIndex& index);
std::ostream& operator<<(std::ostream& os, const IpMcastRouteNextHopEntryIndex& index);
std::ostream& operator<<(std::ostream& os, const NextHopEntryIndexWithIntfId& index);
std::ostream& operator<<(std::ostream& os, const PimRPSetEntryIndex& index);
std::ostream& operator<<(std::ostream& os, const PimCandidateRPEntryIndex& index);
std::ostream& operator<<(std::ostream& os, const IpMcastInterfaceEntryIndex& index);

namespace detail {
template <typename Index>
struct StrepFormatter : fmt::formatter<std::string_view> {
  template <typename FormatContext>
  auto format(const Index& index, FormatContext& ctx) const {
    return fmt::formatter<std::string_view>::format(valueToStrep(index), ctx);
  }
};
template <typename Index>
struct IndexHash {
  size_t operator()(const Index& index) const noexcept { return index.hash(); }
};
}  // namespace detail

}  // namespace Routing::Pim::Snmp

#define PIMSNMP_INDEX_TRAITS(T)                                               \
  template <>                                                                 \
  struct fmt::formatter<Routing::Pim::Snmp::T>                                \
      : Routing::Pim::Snmp::detail::StrepFormatter<Routing::Pim::Snmp::T> {}; \
  template <>                                                                 \
  struct std::hash<Routing::Pim::Snmp::T>                                     \
      : Routing::Pim::Snmp::detail::IndexHash<Routing::Pim::Snmp::T> {};

PIMSNMP_INDEX_TRAITS(PimIpMrouteEntryIndex)
PIMSNMP_INDEX_TRAITS(PimIpMrouteNextHopEntryIndex)
PIMSNMP_INDEX_TRAITS(IpMcastRouteEntryIndex)
PIMSNMP_INDEX_TRAITS(IpMcastRouteNextHopEntryIndex)
PIMSNMP_INDEX_TRAITS(NextHopEntryIndexWithIntfId)
PIMSNMP_INDEX_TRAITS(PimRPSetEntryIndex)
PIMSNMP_INDEX_TRAITS(PimCandidateRPEntryIndex)
PIMSNMP_INDEX_TRAITS(IpMcastInterfaceEntryIndex)

#undef PIMSNMP_INDEX_TRAITS
