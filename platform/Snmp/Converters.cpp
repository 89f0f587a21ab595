#include "platform/Snmp/Converters.h"

#include <climits>
#include <cmath>
#include <cstring>

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/types.h>

#include "platform/Clock/Clock.h"

namespace Snmp {

namespace {

constexpr uint32_t kMaxTicks = 0xFFFFFFFFu;

// Copies `size` bytes from `from`, or fails without writing.
int put(const void* from, size_t size, uint8_t* buf, size_t capacity) {
  if (size > static_cast<size_t>(INT_MAX) || size > capacity || (buf == nullptr && size > 0)) {
    return kConvertFailed;
  }
  if (size > 0) std::memcpy(buf, from, size);
  return static_cast<int>(size);
}

// Integer-like varbinds take a native long / u_long: net-snmp's own width for them, read back
// unchanged for any 32-bit value, signed or not.
int putLong(long value, uint8_t* buf, size_t capacity) {
  return put(&value, sizeof(value), buf, capacity);
}

int putULong(u_long value, uint8_t* buf, size_t capacity) {
  return put(&value, sizeof(value), buf, capacity);
}

double& startSlot() {
  static double start = Plat::now();
  return start;
}

// Read once while the program loads, so the default start is the process start rather than
// the first up-time request.
[[maybe_unused]] const double kLoadTime = startSlot();

}  // namespace

int S32ToAsnInteger(int32_t value, uint8_t* buf, size_t capacity) {
  return putLong(value, buf, capacity);
}

int U32ToAsnUnsigned(uint32_t value, uint8_t* buf, size_t capacity) {
  return putULong(value, buf, capacity);
}

int U32ToAsnOctets(uint32_t value, uint8_t* buf, size_t capacity) {
  return put(&value, sizeof(value), buf, capacity);
}

int U32ToTimeTicks(uint32_t seconds, uint8_t* buf, size_t capacity) {
  const uint64_t ticks = uint64_t{seconds} * 100;
  return putULong(ticks > kMaxTicks ? kMaxTicks : static_cast<uint32_t>(ticks), buf, capacity);
}

int SecondsToTimeTicks(double seconds, uint8_t* buf, size_t capacity) {
  uint32_t ticks = 0;
  // The negated test also sends NaN to 0.
  if (seconds > 0) {
    const double rounded = std::round(seconds * 100.0);
    ticks = rounded >= static_cast<double>(kMaxTicks) ? kMaxTicks : static_cast<uint32_t>(rounded);
  }
  return putULong(ticks, buf, capacity);
}

int NowSecondsToUptimeTimeTicks(double time, uint8_t* buf, size_t capacity) {
  return SecondsToTimeTicks(time - agentStartTime(), buf, capacity);
}

int U64ToCounter32(uint64_t value, uint8_t* buf, size_t capacity) {
  return putULong(static_cast<uint32_t>(value), buf, capacity);
}

int U64ToCounter64(uint64_t value, uint8_t* buf, size_t capacity) {
  struct counter64 c64 {};
  c64.high = static_cast<u_long>(value >> 32);
  c64.low = static_cast<u_long>(value & 0xFFFFFFFFu);
  return put(&c64, sizeof(c64), buf, capacity);
}

int BoolToAsnInteger(bool value, uint8_t* buf, size_t capacity) {
  return putLong(value ? 1 : 2, buf, capacity);
}

int BytesToAsnOctetString(std::span<const uint8_t> bytes, uint8_t* buf, size_t capacity) {
  return put(bytes.data(), bytes.size(), buf, capacity);
}

int BytesToAsnOctetString(std::string_view bytes, uint8_t* buf, size_t capacity) {
  return put(bytes.data(), bytes.size(), buf, capacity);
}

int LanetIpGenAddrToAsnOctetString(const Lanet::IpGenAddr& addr, uint8_t* buf, size_t capacity) {
  const auto octets = addr.bytes();
  return put(octets.data(), octets.size(), buf, capacity);
}

double agentStartTime() {
  return startSlot();
}

void agentStartTimeIs(double seconds) {
  startSlot() = seconds;
}

}  // namespace Snmp
