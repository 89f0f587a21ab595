#pragma once

// Random index values for the order-property tests. Each field is drawn half the time from a
// small pool of edge values, so that many pairs tie on leading fields and the later fields get
// compared too.

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "PimSnmp/PimSnmp/Index.h"
#include "tests/unit/platform_types/Generators.h"

namespace PimSnmpIndexTest {

using namespace Routing::Pim::Snmp;
using Rng = std::mt19937_64;

template <typename T, typename Random>
T edgeOr(Rng& rng, const std::vector<T>& pool, Random random) {
  if (rng() % 2) return pool[rng() % pool.size()];
  return random();
}

inline Lanet::IpGenAddr v4(Rng& rng) {
  static const std::vector<Lanet::IpGenAddr> pool = {
      Lanet::IpGenAddr::v4(0), Lanet::IpGenAddr::v4(0xFFFFFFFF), Lanet::IpGenAddr::v4(0xE0000001),
      Lanet::IpGenAddr::v4(0x0A000001)};
  return edgeOr(rng, pool, [&] { return PlatformTypesTest::randomV4(rng); });
}

// Only contiguous masks: the ones the agent builds from prefix lengths.
inline uint32_t mask(Rng& rng) {
  static const std::vector<uint32_t> pool = {0, 0xFFFFFFFF, maskFromLength(24)};
  return edgeOr(rng, pool, [&] { return maskFromLength(static_cast<uint32_t>(rng() % 33)); });
}

// Real ifIndex values are 1..2^31-1 (and 0 for "none"); a negative one would encode as a
// sub-identifier above 2^31 and break the order property, see docs/decisions.md.
inline int32_t ifIndex(Rng& rng) {
  static const std::vector<int32_t> pool = {0, 1, INT32_MAX};
  return edgeOr(rng, pool, [&] { return static_cast<int32_t>(rng() % (uint64_t{1} << 31)); });
}

inline uint32_t u32(Rng& rng) {
  static const std::vector<uint32_t> pool = {0, 1, 32, 128, 0xFFFFFFFF};
  return edgeOr(rng, pool, [&] { return static_cast<uint32_t>(rng()); });
}

inline Snmp::InetAddress inetAddress(Rng& rng) {
  static const std::vector<Snmp::InetAddress> pool = {
      Snmp::InetAddress(), Snmp::InetAddress::parse("ipv4:0.0.0.0"),
      Snmp::InetAddress::parse("ipv4:239.1.1.1"), Snmp::InetAddress::parse("ipv6:ff02::1")};
  return edgeOr(rng, pool, [&] { return PlatformTypesTest::randomInetAddress(rng); });
}

// Names with high bytes and prefixes of each other: both must order as the OID does.
inline Lanet::IntfId intfId(Rng& rng) {
  static const std::vector<Lanet::IntfId> pool = {Lanet::IntfId(), Lanet::IntfId("Ethernet1"),
                                                  Lanet::IntfId("Ethernet10"),
                                                  Lanet::IntfId("Ethernet2")};
  return edgeOr(rng, pool, [&] {
    static constexpr char kChars[] = {'\0', 'a', 'b', '\x7f', '\x80', '\xff'};
    std::string name(rng() % 5, ' ');
    for (char& c : name) c = kChars[rng() % sizeof(kChars)];
    return Lanet::IntfId(name);
  });
}

inline PimIpMrouteEntryIndex pimIpMroute(Rng& rng) {
  return PimIpMrouteEntryIndex(v4(rng), v4(rng), mask(rng));
}

inline PimIpMrouteNextHopEntryIndex pimIpMrouteNextHop(Rng& rng) {
  return PimIpMrouteNextHopEntryIndex(v4(rng), v4(rng), mask(rng), ifIndex(rng), v4(rng));
}

inline IpMcastRouteEntryIndex ipMcastRoute(Rng& rng) {
  return IpMcastRouteEntryIndex(inetAddress(rng), u32(rng), inetAddress(rng), u32(rng));
}

inline IpMcastRouteNextHopEntryIndex ipMcastRouteNextHop(Rng& rng) {
  return IpMcastRouteNextHopEntryIndex(inetAddress(rng), u32(rng), inetAddress(rng), u32(rng),
                                       ifIndex(rng), inetAddress(rng));
}

inline NextHopEntryIndexWithIntfId withIntfId(Rng& rng) {
  return NextHopEntryIndexWithIntfId(ipMcastRouteNextHop(rng), intfId(rng));
}

inline PimRPSetEntryIndex rpSet(Rng& rng) {
  return PimRPSetEntryIndex(u32(rng), v4(rng), mask(rng), v4(rng));
}

inline PimCandidateRPEntryIndex candidateRp(Rng& rng) {
  return PimCandidateRPEntryIndex(v4(rng), mask(rng));
}

inline IpMcastInterfaceEntryIndex ipMcastInterface(Rng& rng) {
  return IpMcastInterfaceEntryIndex(static_cast<Snmp::InetVersion>(rng() % 3), ifIndex(rng));
}

}  // namespace PimSnmpIndexTest
