#pragma once

// Index types of the route, RP and multicast-interface tables.
//
// Each is a plain value that lists its fields once, in `fields`: name, member and kind (how the
// field travels in an OID). The OID encoding and parsing, the text form and the hash (IndexOps)
// and the table descriptors' index parts (MibTable/IndexParts.h) are derived from that list.
//
// operator< is the members' defaulted order, which is the table's SNMP walk order: comparing two
// indexes gives the same answer as comparing their OID encodings (toOid), with two documented
// limits (docs/decisions.md): a negative ifIndex orders by its signed value, and a PIM/IPMROUTE
// mask orders by its uint32 value, which agrees with the OID only for contiguous masks.
//
// The text form "Value('<type>', ** {'<field>': <value>, ...})" is what operator<<,
// valueToStrep and fmt print; the string_view constructor parses exactly that form and throws
// std::invalid_argument on any deviation.
//
// Inside this namespace `Snmp` names Routing::Pim::Snmp; the platform's is `::Snmp`.

#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <tuple>

#include <fmt/format.h>

#include "platform/Lanet/IntfId.h"
#include "platform/Lanet/IpAddr.h"
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

// How an index field travels in an OID, and which index objects it is in a table.
namespace IndexKind {
struct IpAddress {};           // Lanet::IpAddr (or an IPv4 Lanet::IpGenAddr) as an IpAddress
struct Mask {};                // uint32_t mask in network byte order, as an IpAddress
struct Int32 {};               // INTEGER held as int32_t
struct Unsigned32 {};          // Unsigned32
struct NonNegativeInteger {};  // INTEGER held as uint32_t: 0..2^31-1 on the wire
struct InetAddress {};         // an InetAddressType, InetAddress pair
struct InetVersion {};         // InetVersion
struct ImpliedName {};         // Lanet::IntfId as IMPLIED octets: the last field only
struct Nested {};              // another index type's fields, self-delimiting
}  // namespace IndexKind

// The kind a field of type V travels as unless its declaration names another.
template <class V>
struct DefaultIndexKind {
  using type = IndexKind::Nested;
};
template <>
struct DefaultIndexKind<Lanet::IpGenAddr> {
  using type = IndexKind::IpAddress;
};
template <>
struct DefaultIndexKind<Lanet::IpAddr> {
  using type = IndexKind::IpAddress;
};
template <>
struct DefaultIndexKind<int32_t> {
  using type = IndexKind::Int32;
};
template <>
struct DefaultIndexKind<uint32_t> {
  using type = IndexKind::Unsigned32;
};
template <>
struct DefaultIndexKind<::Snmp::InetAddress> {
  using type = IndexKind::InetAddress;
};
template <>
struct DefaultIndexKind<::Snmp::InetVersion> {
  using type = IndexKind::InetVersion;
};
template <>
struct DefaultIndexKind<Lanet::IntfId> {
  using type = IndexKind::ImpliedName;
};

// One field of an index type: `Member` is a pointer to data member, or nullptr for a table
// whose whole index is one value (an int32_t ifIndex, an IpGenAddr).
template <auto Member, class KindT>
struct IndexField {
  using Kind = KindT;
  static constexpr auto member = Member;
  std::string_view name;
};

template <class M>
struct MemberValue;
template <class C, class V>
struct MemberValue<V C::*> {
  using type = V;
};

template <auto Member, class Kind = typename DefaultIndexKind<
                           typename MemberValue<decltype(Member)>::type>::type>
constexpr IndexField<Member, Kind> indexField(std::string_view name) {
  return {name};
}

// What every index type derives from its `fields` and `kTypeName` (defined in Index.cpp for
// the types instantiated there).
template <class T>
struct IndexOps {
  size_t hash(size_t seed = 0) const;
  // Appends the fields in order. Throws std::invalid_argument for an IpAddress field that is
  // not IPv4.
  void toOid(::Snmp::Oid& oid) const;
  // The whole of `oid` must be one index; false (and `out` untouched) otherwise.
  static bool fromOid(std::span<const uint64_t> oid, T& out);
  // The text form, and its parser (std::invalid_argument on any deviation).
  std::string text() const;
  static T parse(std::string_view text);

  bool operator==(const IndexOps&) const = default;
  std::strong_ordering operator<=>(const IndexOps&) const = default;
};

template <class T>
concept IndexType = std::derived_from<T, IndexOps<T>>;

// The IPv4 address of an index of the IPv4-only tables. Throws std::invalid_argument for an
// address of another family: no row of those tables can hold one.
Lanet::IpAddr ipv4IndexAddress(const Lanet::IpGenAddr& addr);

// ipMRouteTable and pimIpMRouteTable. IPv4 rows only: the OID encodes addresses and the mask
// as IpAddress. Addresses are held as 4 bytes: a router has one of these per route and two per
// forwarding interface.
struct PimIpMrouteEntryIndex : IndexOps<PimIpMrouteEntryIndex> {
  using Self = PimIpMrouteEntryIndex;
  Lanet::IpAddr group;
  Lanet::IpAddr source;
  uint32_t sMask = 0;  // network byte order, like maskFromLength

  static constexpr std::string_view kTypeName = "PimIpMrouteEntryIndex";
  static constexpr std::tuple fields{indexField<&Self::group>("group"),
                                     indexField<&Self::source>("source"),
                                     indexField<&Self::sMask, IndexKind::Mask>("sMask")};

  PimIpMrouteEntryIndex() = default;
  PimIpMrouteEntryIndex(Lanet::IpAddr group, Lanet::IpAddr source, uint32_t sMask)
      : group(group), source(source), sMask(sMask) {}
  PimIpMrouteEntryIndex(const Lanet::IpGenAddr& group, const Lanet::IpGenAddr& source,
                        uint32_t sMask)
      : Self(ipv4IndexAddress(group), ipv4IndexAddress(source), sMask) {}
  explicit PimIpMrouteEntryIndex(std::string_view text) : Self(parse(text)) {}

  bool operator==(const Self&) const = default;
  std::strong_ordering operator<=>(const Self&) const = default;
};

// sMask 0 for (*,G), else all ones. Precondition: an IPv4 key (std::invalid_argument).
PimIpMrouteEntryIndex pimIpMrouteEntryIndexFromRouteKey(const RouteKey& key);

// ipMRouteNextHopTable and pimIpMRouteNextHopTable. IPv4 rows only.
struct PimIpMrouteNextHopEntryIndex : IndexOps<PimIpMrouteNextHopEntryIndex> {
  using Self = PimIpMrouteNextHopEntryIndex;
  Lanet::IpAddr group;
  Lanet::IpAddr source;
  uint32_t sMask = 0;
  int32_t ifIndex = 0;
  Lanet::IpAddr address;

  static constexpr std::string_view kTypeName = "PimIpMrouteNextHopEntryIndex";
  static constexpr std::tuple fields{
      indexField<&Self::group>("group"), indexField<&Self::source>("source"),
      indexField<&Self::sMask, IndexKind::Mask>("sMask"), indexField<&Self::ifIndex>("ifIndex"),
      indexField<&Self::address>("address")};

  PimIpMrouteNextHopEntryIndex() = default;
  PimIpMrouteNextHopEntryIndex(Lanet::IpAddr group, Lanet::IpAddr source, uint32_t sMask,
                               int32_t ifIndex, Lanet::IpAddr address)
      : group(group), source(source), sMask(sMask), ifIndex(ifIndex), address(address) {}
  PimIpMrouteNextHopEntryIndex(const Lanet::IpGenAddr& group, const Lanet::IpGenAddr& source,
                               uint32_t sMask, int32_t ifIndex, const Lanet::IpGenAddr& address)
      : Self(ipv4IndexAddress(group), ipv4IndexAddress(source), sMask, ifIndex,
             ipv4IndexAddress(address)) {}
  explicit PimIpMrouteNextHopEntryIndex(std::string_view text) : Self(parse(text)) {}

  bool operator==(const Self&) const = default;
  std::strong_ordering operator<=>(const Self&) const = default;
};

// The route's index plus `ifIndex`, with the group as the next-hop address.
PimIpMrouteNextHopEntryIndex pimIpMrouteNextHopEntryIndexFromRouteKey(const RouteKey& key,
                                                                      int32_t ifIndex);

// ipMcastRouteTable.
struct IpMcastRouteEntryIndex : IndexOps<IpMcastRouteEntryIndex> {
  using Self = IpMcastRouteEntryIndex;
  ::Snmp::InetAddress groupAddr;
  uint32_t groupLength = 0;
  ::Snmp::InetAddress sourceAddr;
  uint32_t sourceLength = 0;

  static constexpr std::string_view kTypeName = "IpMcastRouteEntryIndex";
  static constexpr std::tuple fields{
      indexField<&Self::groupAddr>("groupAddr"), indexField<&Self::groupLength>("groupLength"),
      indexField<&Self::sourceAddr>("sourceAddr"), indexField<&Self::sourceLength>("sourceLength")};

  IpMcastRouteEntryIndex() = default;
  IpMcastRouteEntryIndex(const ::Snmp::InetAddress& groupAddr, uint32_t groupLength,
                         const ::Snmp::InetAddress& sourceAddr, uint32_t sourceLength)
      : groupAddr(groupAddr),
        groupLength(groupLength),
        sourceAddr(sourceAddr),
        sourceLength(sourceLength) {}
  explicit IpMcastRouteEntryIndex(std::string_view text) : Self(parse(text)) {}

  // Lengths from prefixLength, so (*,G) has sourceLength 0.
  static IpMcastRouteEntryIndex fromRouteKey(const RouteKey& key);

  bool operator==(const Self&) const = default;
  std::strong_ordering operator<=>(const Self&) const = default;
  // False exactly for the default value.
  explicit operator bool() const { return *this != Self(); }
};

// ipMcastRouteNextHopTable.
struct IpMcastRouteNextHopEntryIndex : IndexOps<IpMcastRouteNextHopEntryIndex> {
  using Self = IpMcastRouteNextHopEntryIndex;
  ::Snmp::InetAddress groupAddr;
  uint32_t groupLength = 0;
  ::Snmp::InetAddress sourceAddr;
  uint32_t sourceLength = 0;
  int32_t ifIndex = 0;
  ::Snmp::InetAddress addr;

  static constexpr std::string_view kTypeName = "IpMcastRouteNextHopEntryIndex";
  static constexpr std::tuple fields{
      indexField<&Self::groupAddr>("groupAddr"),   indexField<&Self::groupLength>("groupLength"),
      indexField<&Self::sourceAddr>("sourceAddr"), indexField<&Self::sourceLength>("sourceLength"),
      indexField<&Self::ifIndex>("ifIndex"),       indexField<&Self::addr>("addr")};

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
  explicit IpMcastRouteNextHopEntryIndex(std::string_view text) : Self(parse(text)) {}

  // The next-hop address is the group itself, by design.
  static IpMcastRouteNextHopEntryIndex fromRouteKeyAndIfIndex(const RouteKey& key, int ifIndex);

  bool operator==(const Self&) const = default;
  std::strong_ordering operator<=>(const Self&) const = default;
  explicit operator bool() const { return *this != Self(); }
};

// A member of an ipMcastRouteTable row's next-hop set. No SNMP table uses it; toOid appends the
// interface name as IMPLIED octets, which keeps the OID order equal to operator<.
struct NextHopEntryIndexWithIntfId : IndexOps<NextHopEntryIndexWithIntfId> {
  using Self = NextHopEntryIndexWithIntfId;
  IpMcastRouteNextHopEntryIndex mibIndex;
  Lanet::IntfId intfId;

  static constexpr std::string_view kTypeName = "NextHopEntryIndexWithIntfId";
  static constexpr std::tuple fields{indexField<&Self::mibIndex>("mibIndex"),
                                     indexField<&Self::intfId>("intfId")};

  NextHopEntryIndexWithIntfId() = default;
  NextHopEntryIndexWithIntfId(const IpMcastRouteNextHopEntryIndex& mibIndex,
                              const Lanet::IntfId& intfId)
      : mibIndex(mibIndex), intfId(intfId) {}
  explicit NextHopEntryIndexWithIntfId(std::string_view text) : Self(parse(text)) {}

  bool operator==(const Self&) const = default;
  std::strong_ordering operator<=>(const Self&) const = default;
  explicit operator bool() const { return static_cast<bool>(mibIndex) || !intfId.empty(); }
};

// pimRPSetTable. IPv4 rows only.
struct PimRPSetEntryIndex : IndexOps<PimRPSetEntryIndex> {
  using Self = PimRPSetEntryIndex;
  uint32_t pimComponentId = 0;
  Lanet::IpGenAddr group;
  uint32_t gMask = 0;  // network byte order, from maskFromLength
  Lanet::IpGenAddr rpAddr;

  static constexpr std::string_view kTypeName = "PimRPSetEntryIndex";
  static constexpr std::tuple fields{
      indexField<&Self::pimComponentId, IndexKind::NonNegativeInteger>("pimComponentId"),
      indexField<&Self::group>("group"), indexField<&Self::gMask, IndexKind::Mask>("gMask"),
      indexField<&Self::rpAddr>("rpAddr")};

  PimRPSetEntryIndex() = default;
  PimRPSetEntryIndex(uint32_t pimComponentId, const Lanet::IpGenAddr& group, uint32_t gMask,
                     const Lanet::IpGenAddr& rpAddr)
      : pimComponentId(pimComponentId), group(group), gMask(gMask), rpAddr(rpAddr) {}
  explicit PimRPSetEntryIndex(std::string_view text) : Self(parse(text)) {}

  bool operator==(const Self&) const = default;
  std::strong_ordering operator<=>(const Self&) const = default;
};

// pimCandidateRPTable. IPv4 rows only.
struct PimCandidateRPEntryIndex : IndexOps<PimCandidateRPEntryIndex> {
  using Self = PimCandidateRPEntryIndex;
  Lanet::IpGenAddr group;
  uint32_t gMask = 0;

  static constexpr std::string_view kTypeName = "PimCandidateRPEntryIndex";
  static constexpr std::tuple fields{indexField<&Self::group>("group"),
                                     indexField<&Self::gMask, IndexKind::Mask>("gMask")};

  PimCandidateRPEntryIndex() = default;
  PimCandidateRPEntryIndex(const Lanet::IpGenAddr& group, uint32_t gMask)
      : group(group), gMask(gMask) {}
  explicit PimCandidateRPEntryIndex(std::string_view text) : Self(parse(text)) {}

  bool operator==(const Self&) const = default;
  std::strong_ordering operator<=>(const Self&) const = default;
};

// ipMcastInterfaceTable. fromOid rejects an ipVersion other than unknown, ipv4, ipv6.
struct IpMcastInterfaceEntryIndex : IndexOps<IpMcastInterfaceEntryIndex> {
  using Self = IpMcastInterfaceEntryIndex;
  ::Snmp::InetVersion ipVersion = ::Snmp::InetVersion::unknown;
  int32_t ifIndex = 0;

  static constexpr std::string_view kTypeName = "IpMcastInterfaceEntryIndex";
  static constexpr std::tuple fields{indexField<&Self::ipVersion>("ipVersion"),
                                     indexField<&Self::ifIndex>("ifIndex")};

  IpMcastInterfaceEntryIndex() = default;
  IpMcastInterfaceEntryIndex(::Snmp::InetVersion ipVersion, int32_t ifIndex)
      : ipVersion(ipVersion), ifIndex(ifIndex) {}
  explicit IpMcastInterfaceEntryIndex(std::string_view text) : Self(parse(text)) {}

  bool operator==(const Self&) const = default;
  std::strong_ordering operator<=>(const Self&) const = default;
};

// The text form.
template <IndexType T>
std::string valueToStrep(const T& index) {
  return index.text();
}
template <IndexType T>
std::ostream& operator<<(std::ostream& os, const T& index) {
  return os << index.text();
}

}  // namespace Routing::Pim::Snmp

template <Routing::Pim::Snmp::IndexType T>
struct fmt::formatter<T> : fmt::formatter<std::string_view> {
  template <typename FormatContext>
  auto format(const T& index, FormatContext& ctx) const {
    return fmt::formatter<std::string_view>::format(index.text(), ctx);
  }
};

template <Routing::Pim::Snmp::IndexType T>
struct std::hash<T> {
  size_t operator()(const T& index) const noexcept { return index.hash(); }
};
