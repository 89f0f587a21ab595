#pragma once

// Value converters for varbinds: each writes its value into `buf` in the layout that net-snmp's
// snmp_set_var_typed_value(var, type, buf, n) expects for the ASN type named in the converter,
// and returns n, the length to pass along; or kConvertFailed when `capacity` is below n (or
// `buf` is null while n > 0). Callers pass n straight through:
//
//   uint8_t buf[1024];
//   const int n = Snmp::S32ToAsnInteger(value, buf, sizeof(buf));
//   if (n < 0) { /* genErr */ }
//   snmp_set_var_typed_value(request->requestvb, ASN_INTEGER, buf, static_cast<size_t>(n));
//
// Integer-like types (INTEGER, Integer32, Unsigned32, Gauge32, Counter32, TimeTicks) are
// written as a native long / u_long (8 bytes here), the width net-snmp keeps them in; it reads
// any 32-bit value, negative ones included, back unchanged. A uint32 served as IpAddress or
// OCTET STRING goes through U32ToAsnOctets instead, whose length is the 4 the varbind needs.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "platform/Lanet/IpGenAddr.h"

namespace Snmp {

constexpr int kConvertFailed = -1;

// INTEGER, Integer32; also Gauge32 for a non-negative count. Writes a long.
int S32ToAsnInteger(int32_t value, uint8_t* buf, size_t capacity);
// Unsigned32, Gauge32 (or INTEGER up to 2^31-1). Writes a u_long.
int U32ToAsnUnsigned(uint32_t value, uint8_t* buf, size_t capacity);
// The 4 bytes of `value` as laid out in memory, for a uint32 column served as IpAddress or
// OCTET STRING: a mask kept in network byte order comes out as its octets in order.
int U32ToAsnOctets(uint32_t value, uint8_t* buf, size_t capacity);

// TimeTicks (hundredths of a second) from whole seconds, saturating at 0xFFFFFFFF.
int U32ToTimeTicks(uint32_t seconds, uint8_t* buf, size_t capacity);
// TimeTicks from a duration: seconds * 100 rounded to nearest; negative or NaN gives 0, and
// anything at or past 0xFFFFFFFF ticks saturates there.
int SecondsToTimeTicks(double seconds, uint8_t* buf, size_t capacity);
// TimeTicks of the agent's up-time at `time` (seconds on the platform clock): time minus
// agentStartTime(), as SecondsToTimeTicks; 0 for a time before the start.
int NowSecondsToUptimeTimeTicks(double time, uint8_t* buf, size_t capacity);

// Counter32: the low 32 bits (a Counter32 wraps). Writes a u_long.
int U64ToCounter32(uint64_t value, uint8_t* buf, size_t capacity);
// Counter64: net-snmp's struct counter64 {u_long high, low}, 16 bytes.
int U64ToCounter64(uint64_t value, uint8_t* buf, size_t capacity);

// TruthValue: true(1), false(2), as a long for an INTEGER varbind.
int BoolToAsnInteger(bool value, uint8_t* buf, size_t capacity);

// OCTET STRING: the bytes unchanged; n may be 0.
int BytesToAsnOctetString(std::span<const uint8_t> bytes, uint8_t* buf, size_t capacity);
int BytesToAsnOctetString(std::string_view bytes, uint8_t* buf, size_t capacity);
// The address's octets in network order: 4 for IPv4 (an IpAddress varbind), 16 for IPv6, none
// for an af-unknown address (the empty InetAddress).
int LanetIpGenAddrToAsnOctetString(const Lanet::IpGenAddr& addr, uint8_t* buf, size_t capacity);

// The agent's start time on the platform clock, the zero of NowSecondsToUptimeTimeTicks.
// Defaults to Plat::now() when the program loaded.
double agentStartTime();
void agentStartTimeIs(double seconds);

}  // namespace Snmp
