#include "platform/Snmp/HintReaders.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <limits>

namespace Snmp {

namespace {

// The integer of an integer-like varbind; net-snmp keeps it in a long.
bool integerValue(const netsnmp_variable_list& v, long& out) {
  if (!v.val.integer || v.val_len < sizeof(long)) return false;
  out = *v.val.integer;
  return true;
}

bool inRange(long value, long long lo, long long hi) {
  return value >= lo && value <= hi;
}

}  // namespace

bool AsnIntegerToS32(const netsnmp_variable_list& v, int32_t& out) {
  long value = 0;
  if (v.type != ASN_INTEGER || !integerValue(v, value)) return false;
  if (!inRange(value, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max())) {
    return false;
  }
  out = static_cast<int32_t>(value);
  return true;
}

bool AsnUnsignedToU32(const netsnmp_variable_list& v, uint32_t& out) {
  long value = 0;
  const bool unsignedType =
      v.type == ASN_UNSIGNED || v.type == ASN_COUNTER || v.type == ASN_TIMETICKS;
  if (!unsignedType || !integerValue(v, value)) return false;
  if (!inRange(value, 0, std::numeric_limits<uint32_t>::max())) return false;
  out = static_cast<uint32_t>(value);
  return true;
}

bool AsnIpAddressToLanetIpGenAddr(const netsnmp_variable_list& v, Lanet::IpGenAddr& out) {
  if (v.type != ASN_IPADDRESS || v.val_len != 4 || !v.val.string) return false;
  auto addr = Lanet::IpGenAddr::fromBytes(Lanet::AddressFamily::ipv4, {v.val.string, 4});
  if (!addr) return false;
  out = *addr;
  return true;
}

bool AsnIntegerToIpVersion(const netsnmp_variable_list& v, InetVersion& out) {
  long value = 0;
  if (v.type != ASN_INTEGER || !integerValue(v, value)) return false;
  if (value < 0 || !isValidInetVersion(static_cast<uint64_t>(value))) return false;
  out = static_cast<InetVersion>(value);
  return true;
}

bool AsnIntegerToInetAddressType(const netsnmp_variable_list& v, InetAddressType& out) {
  long value = 0;
  if (v.type != ASN_INTEGER || !integerValue(v, value)) return false;
  if (!inRange(value, 0, std::numeric_limits<uint32_t>::max()) ||
      !isValidInetAddressType(static_cast<uint32_t>(value))) {
    return false;
  }
  out = static_cast<InetAddressType>(value);
  return true;
}

bool AsnOctetStringToSpan(const netsnmp_variable_list& v, std::span<const uint8_t>& out) {
  if (v.type != ASN_OCTET_STR || v.val_len > kMaxOctetStringHint) return false;
  if (v.val_len > 0 && !v.val.string) return false;
  out = v.val_len > 0 ? std::span<const uint8_t>(v.val.string, v.val_len)
                      : std::span<const uint8_t>();
  return true;
}

bool AsnOctetStringToSnmpBytes(const netsnmp_variable_list& v, Bytes& out) {
  std::span<const uint8_t> octets;
  if (!AsnOctetStringToSpan(v, octets)) return false;
  out.assign(octets.begin(), octets.end());
  return true;
}

}  // namespace Snmp
