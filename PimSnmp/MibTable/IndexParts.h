#pragma once

// A table descriptor's index parts, derived from its index type's field list (Index.h): an
// indexPart overload per kind of index object, and one index object per field (two for an
// InetAddress field: its type and its octets). The table names the objects, in order
// (indexParts). A builder's `Member` names the component inside the table's index type (a pointer
// to data member), or is nullptr for a table whose whole index is the component (an int32_t
// ifIndex, an IpGenAddr). `column` is the index object as the module file declares it
// (Mib::kImported when another table defines it).

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <span>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "PimSnmp/MibTable/TableDef.h"
#include "PimSnmp/PimSnmp/Index.h"
#include "platform/Lanet/IpGenAddr.h"
#include "platform/Snmp/Converters.h"
#include "platform/Snmp/HintReaders.h"
#include "platform/Snmp/InetAddress.h"
#include "platform/Snmp/InetVersion.h"

namespace Routing::Pim::Snmp {

namespace detail {

template <auto Member, class Index>
auto& field(Index& index) {
  if constexpr (std::is_null_pointer_v<decltype(Member)>) {
    return index;
  } else {
    return index.*Member;
  }
}

template <auto Member, class Index>
const auto& field(const Index& index) {
  if constexpr (std::is_null_pointer_v<decltype(Member)>) {
    return index;
  } else {
    return index.*Member;
  }
}

// net-snmp's build_oid (which the iterator uses to turn a row's index varbinds into the OID
// it compares and returns) reads an IpAddress index value as a host-order integer, while its
// index parser hands hints over as network-order octets. So hints are read as octets, and
// rows are written as the host-order integer that build_oid turns back into those octets.
inline int ipAddressIndexValue(uint32_t hostOrder, uint8_t* buf, size_t capacity) {
  if (!buf || capacity < sizeof(hostOrder)) return ::Snmp::kConvertFailed;
  std::memcpy(buf, &hostOrder, sizeof(hostOrder));
  return sizeof(hostOrder);
}

// The two index objects an InetAddress field travels as.
struct InetAddressTypePart {};
struct InetAddressOctetsPart {};

// The parts a field of kind `Kind` travels as.
template <class Kind>
struct PartsOf {
  using type = std::tuple<Kind>;
};
template <>
struct PartsOf<IndexKind::InetAddress> {
  using type = std::tuple<InetAddressTypePart, InetAddressOctetsPart>;
};

inline std::string dotted(const uint8_t* b) {
  return fmt::format("{}.{}.{}.{}", b[0], b[1], b[2], b[3]);
}

}  // namespace detail

// INTEGER index held as int32_t.
template <class Index, auto Member>
IndexPart<Index> indexPart(IndexKind::Int32, const char* name, const char* traceName,
                           Mib::IndexColumn column) {
  return {name,
          traceName,
          ASN_INTEGER,
          [](const netsnmp_variable_list& v, Index& i) {
            return ::Snmp::AsnIntegerToS32(v, detail::field<Member>(i));
          },
          [](const Index& i, uint8_t* buf, size_t capacity) {
            return ::Snmp::S32ToAsnInteger(detail::field<Member>(i), buf, capacity);
          },
          [](const Index& i) { return std::to_string(detail::field<Member>(i)); },
          std::move(column)};
}

// INTEGER index held as uint32_t (pimRPSetComponent): 0..2^31-1 on the wire.
template <class Index, auto Member>
IndexPart<Index> indexPart(IndexKind::NonNegativeInteger, const char* name, const char* traceName,
                           Mib::IndexColumn column) {
  return {name,
          traceName,
          ASN_INTEGER,
          [](const netsnmp_variable_list& v, Index& i) {
            int32_t value = 0;
            if (!::Snmp::AsnIntegerToS32(v, value) || value < 0) return false;
            detail::field<Member>(i) = static_cast<uint32_t>(value);
            return true;
          },
          [](const Index& i, uint8_t* buf, size_t capacity) {
            const uint32_t value = detail::field<Member>(i);
            if (value > static_cast<uint32_t>(std::numeric_limits<int32_t>::max())) {
              return ::Snmp::kConvertFailed;
            }
            return ::Snmp::S32ToAsnInteger(static_cast<int32_t>(value), buf, capacity);
          },
          [](const Index& i) { return std::to_string(detail::field<Member>(i)); },
          std::move(column)};
}

// Unsigned32 index (prefix lengths).
template <class Index, auto Member>
IndexPart<Index> indexPart(IndexKind::Unsigned32, const char* name, const char* traceName,
                           Mib::IndexColumn column) {
  return {name,
          traceName,
          ASN_UNSIGNED,
          [](const netsnmp_variable_list& v, Index& i) {
            return ::Snmp::AsnUnsignedToU32(v, detail::field<Member>(i));
          },
          [](const Index& i, uint8_t* buf, size_t capacity) {
            return ::Snmp::U32ToAsnUnsigned(detail::field<Member>(i), buf, capacity);
          },
          [](const Index& i) { return std::to_string(detail::field<Member>(i)); },
          std::move(column)};
}

// IpAddress index held as a Lanet::IpAddr, or as a Lanet::IpGenAddr of IPv4 rows.
template <class Index, auto Member>
IndexPart<Index> indexPart(IndexKind::IpAddress, const char* name, const char* traceName,
                           Mib::IndexColumn column) {
  using Field = std::remove_cvref_t<decltype(detail::field<Member>(std::declval<Index&>()))>;
  return {name,
          traceName,
          ASN_IPADDRESS,
          [](const netsnmp_variable_list& v, Index& i) {
            if constexpr (std::is_same_v<Field, Lanet::IpAddr>) {
              Lanet::IpGenAddr a;
              if (!::Snmp::AsnIpAddressToLanetIpGenAddr(v, a)) return false;
              detail::field<Member>(i) = a.v4();
              return true;
            } else {
              return ::Snmp::AsnIpAddressToLanetIpGenAddr(v, detail::field<Member>(i));
            }
          },
          [](const Index& i, uint8_t* buf, size_t capacity) {
            const Field& a = detail::field<Member>(i);
            if constexpr (std::is_same_v<Field, Lanet::IpAddr>) {
              return detail::ipAddressIndexValue(a.value(), buf, capacity);
            } else {
              if (!a.isV4()) return ::Snmp::kConvertFailed;
              return detail::ipAddressIndexValue(a.v4().value(), buf, capacity);
            }
          },
          [](const Index& i) { return detail::field<Member>(i).toString(); },
          std::move(column)};
}

// IpAddress index held as a mask in network byte order (its octets are its bytes in memory).
template <class Index, auto Member>
IndexPart<Index> indexPart(IndexKind::Mask, const char* name, const char* traceName,
                           Mib::IndexColumn column) {
  return {name,
          traceName,
          ASN_IPADDRESS,
          [](const netsnmp_variable_list& v, Index& i) {
            Lanet::IpGenAddr octets;
            if (!::Snmp::AsnIpAddressToLanetIpGenAddr(v, octets)) return false;
            std::memcpy(&detail::field<Member>(i), octets.bytes().data(), sizeof(uint32_t));
            return true;
          },
          [](const Index& i, uint8_t* buf, size_t capacity) {
            return detail::ipAddressIndexValue(ntohl(detail::field<Member>(i)), buf, capacity);
          },
          [](const Index& i) {
            uint8_t b[4];
            std::memcpy(b, &detail::field<Member>(i), sizeof b);
            return detail::dotted(b);
          },
          std::move(column)};
}

// InetVersion index (ipMcastInterfaceIPVersion).
template <class Index, auto Member>
IndexPart<Index> indexPart(IndexKind::InetVersion, const char* name, const char* traceName,
                           Mib::IndexColumn column) {
  return {name,
          traceName,
          ASN_INTEGER,
          [](const netsnmp_variable_list& v, Index& i) {
            return ::Snmp::AsnIntegerToIpVersion(v, detail::field<Member>(i));
          },
          [](const Index& i, uint8_t* buf, size_t capacity) {
            return ::Snmp::S32ToAsnInteger(static_cast<int32_t>(detail::field<Member>(i)), buf,
                                           capacity);
          },
          [](const Index& i) { return std::string(::Snmp::toString(detail::field<Member>(i))); },
          std::move(column)};
}

// The InetAddressType half of an InetAddress index pair; `Member` is the InetAddress. The
// type is kept in the address until its octets arrive with the next component.
template <class Index, auto Member>
IndexPart<Index> indexPart(detail::InetAddressTypePart, const char* name, const char* traceName,
                           Mib::IndexColumn column) {
  return {
      name,
      traceName,
      ASN_INTEGER,
      [](const netsnmp_variable_list& v, Index& i) {
        ::Snmp::InetAddressType type{};
        if (!::Snmp::AsnIntegerToInetAddressType(v, type)) return false;
        detail::field<Member>(i) = ::Snmp::InetAddress(type, {});
        return true;
      },
      [](const Index& i, uint8_t* buf, size_t capacity) {
        return ::Snmp::S32ToAsnInteger(static_cast<int32_t>(detail::field<Member>(i).type()), buf,
                                       capacity);
      },
      [](const Index& i) { return std::string(::Snmp::toString(detail::field<Member>(i).type())); },
      std::move(column)};
}

// The InetAddress half: its octets, under the type read just before. The InetAddress
// constructor throws for more octets than any address type has.
template <class Index, auto Member>
IndexPart<Index> indexPart(detail::InetAddressOctetsPart, const char* name, const char* traceName,
                           Mib::IndexColumn column) {
  return {name,
          traceName,
          ASN_OCTET_STR,
          [](const netsnmp_variable_list& v, Index& i) {
            std::span<const uint8_t> octets;
            if (!::Snmp::AsnOctetStringToSpan(v, octets)) return false;
            auto& addr = detail::field<Member>(i);
            addr = ::Snmp::InetAddress(addr.type(), octets);
            return true;
          },
          [](const Index& i, uint8_t* buf, size_t capacity) {
            return ::Snmp::BytesToAsnOctetString(detail::field<Member>(i).octets(), buf, capacity);
          },
          [](const Index& i) { return detail::field<Member>(i).toString(); },
          std::move(column)};
}

// ---- From the field list

// The names of one index object of a table: as traced, its iteration-trace label and its
// declaration in the module file.
struct IndexObject {
  const char* name;
  const char* traceName;
  Mib::IndexColumn column;
};

namespace detail {

template <class Index>
using PartBuilder = IndexPart<Index> (*)(const char*, const char*, Mib::IndexColumn);

// One builder per part of the field at `M`.
template <class Index, auto M, class... Parts>
constexpr std::array<PartBuilder<Index>, sizeof...(Parts)> partBuilders(std::tuple<Parts...>) {
  return {[](const char* name, const char* traceName, Mib::IndexColumn column) {
    return indexPart<Index, M>(Parts{}, name, traceName, std::move(column));
  }...};
}

template <class T, size_t... N>
constexpr std::array<T, (N + ... + 0)> concat(const std::array<T, N>&... parts) {
  std::array<T, (N + ... + 0)> out{};
  size_t i = 0;
  ((std::copy(parts.begin(), parts.end(), out.begin() + i), i += N), ...);
  return out;
}

}  // namespace detail

// The field list of a table's index: the index type's own, or one field that is the whole
// index.
template <class Index>
constexpr auto indexFieldsOf() {
  if constexpr (IndexType<Index>) {
    return Index::fields;
  } else {
    return std::tuple{IndexField<nullptr, typename DefaultIndexKind<Index>::type>{""}};
  }
}

// The index parts of a table indexed by `Index`, one per object named in `objects`.
template <class Index, size_t N>
std::vector<IndexPart<Index>> indexParts(const IndexObject (&objects)[N]) {
  constexpr auto builders = std::apply(
      [](auto... f) {
        return detail::concat(detail::partBuilders<Index, decltype(f)::member>(
            typename detail::PartsOf<typename decltype(f)::Kind>::type{})...);
      },
      indexFieldsOf<Index>());
  static_assert(builders.size() == N, "one index object per index part of the type");
  std::vector<IndexPart<Index>> parts;
  parts.reserve(N);
  for (size_t i = 0; i < N; ++i) {
    parts.push_back(builders[i](objects[i].name, objects[i].traceName, objects[i].column));
  }
  return parts;
}

}  // namespace Routing::Pim::Snmp
