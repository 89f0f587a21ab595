#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "platform/Lanet/IpGenAddr.h"
#include "platform/Snmp/InetAddress.h"
#include "platform/Snmp/InetVersion.h"

// net-snmp's varbind, declared the way its own headers do so this header stays free of them.
struct variable_list;
typedef struct variable_list netsnmp_variable_list;

// Readers of index values that arrive as varbinds (table hints). Each checks the varbind's
// ASN type and that the value fits the field; on success it writes `out` and returns true,
// otherwise it returns false and leaves `out` unchanged.
namespace Snmp {

// An OCTET STRING value.
using Bytes = std::vector<uint8_t>;

// INTEGER within Integer32.
bool AsnIntegerToS32(const netsnmp_variable_list& v, int32_t& out);
// Unsigned32 / Gauge32 (also Counter32, TimeTicks) within 0..2^32-1.
bool AsnUnsignedToU32(const netsnmp_variable_list& v, uint32_t& out);
// IpAddress of exactly 4 octets, to an IPv4 address.
bool AsnIpAddressToLanetIpGenAddr(const netsnmp_variable_list& v, Lanet::IpGenAddr& out);
// INTEGER that is an InetVersion: unknown(0), ipv4(1) or ipv6(2).
bool AsnIntegerToIpVersion(const netsnmp_variable_list& v, InetVersion& out);
// INTEGER that is a named InetAddressType: 0, 1, 2, 3, 4 or 16.
bool AsnIntegerToInetAddressType(const netsnmp_variable_list& v, InetAddressType& out);
// OCTET STRING of at most kMaxOctetStringHint octets (an InetAddress index is at most 255;
// InetAddress itself then rejects more than its 20).
constexpr size_t kMaxOctetStringHint = 255;
bool AsnOctetStringToSnmpBytes(const netsnmp_variable_list& v, Bytes& out);
// The same check, without a copy: `out` views the varbind's octets while the varbind lives.
bool AsnOctetStringToSpan(const netsnmp_variable_list& v, std::span<const uint8_t>& out);

}  // namespace Snmp
