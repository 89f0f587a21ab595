#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/Lanet/IpAddr.h"
#include "platform/Lanet/IpGenAddr.h"
#include "platform/Snmp/InetAddress.h"

// Index encodings for table OIDs, kept free of net-snmp headers. SubId is net-snmp's `oid`
// (unsigned long, 64-bit on our targets), so an Oid's data() can be handed to net-snmp.
//
// These give the on-the-wire form. Do not build index OIDs with net-snmp's build_oid*: it
// sign-extends a negative INTEGER to 64 bits and reads an IpAddress value as a host-order
// integer (octets reversed on little-endian). Its parse_oid_indexes does read this form.
//
// Decoders consume from the front of `in` and return true, or return false and leave both
// `in` and `out` untouched when the input is short or a sub-identifier is out of range.
namespace Snmp {

using SubId = uint64_t;
using Oid = std::vector<SubId>;

// IpAddress: four sub-identifiers, one per octet. Throws std::invalid_argument for an address
// that is not IPv4.
void appendIpAddress(Oid& oid, const Lanet::IpGenAddr& addr);
bool readIpAddress(std::span<const SubId>& in, Lanet::IpGenAddr& out);

// INTEGER / Integer32: the value's 32-bit two's complement, as net-snmp encodes it. Negative
// values therefore sort after every positive one in OID order (-1 is 4294967295); tables with
// signed indexes must order rows by the encoded value, not the integer.
void appendInt32(Oid& oid, int32_t value);
bool readInt32(std::span<const SubId>& in, int32_t& out);

// Unsigned32 / Gauge32 / InterfaceIndex.
void appendUnsigned32(Oid& oid, uint32_t value);
bool readUnsigned32(std::span<const SubId>& in, uint32_t& out);

// InetAddressType: one sub-identifier. Reading rejects values that are not a named type.
void appendInetAddressType(Oid& oid, InetAddressType type);
bool readInetAddressType(std::span<const SubId>& in, InetAddressType& out);

// InetAddress (not IMPLIED): the octet count, then one sub-identifier per octet. The type
// comes from the preceding InetAddressType index, so reading takes it as a parameter.
// Reading rejects counts above InetAddress::kMaxOctets.
void appendInetAddress(Oid& oid, const InetAddress& addr);
bool readInetAddress(std::span<const SubId>& in, InetAddressType type, InetAddress& out);

// The common InetAddressType + InetAddress index pair.
void appendTypedInetAddress(Oid& oid, const InetAddress& addr);
bool readTypedInetAddress(std::span<const SubId>& in, InetAddress& out);

// Lexicographic, a proper prefix first; <0, 0, >0 like net-snmp's snmp_oid_compare.
int compareOid(std::span<const SubId> a, std::span<const SubId> b);

// Dotted decimal, "1.3.6.1"; empty for an empty OID.
std::string oidToString(std::span<const SubId> oid);

}  // namespace Snmp
