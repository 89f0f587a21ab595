#pragma once

// Random index values of any index type from its field list (draw it as IndexKind::Nested).
// Each field is drawn half the time from a small pool of edge values of its kind, so that many
// pairs tie on leading fields and the later fields get compared too.

#include <cstdint>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "PimSnmp/PimSnmp/Index.h"
#include "tests/unit/platform_types/Generators.h"

namespace PimSnmpIndexTest {

using namespace Routing::Pim::Snmp;
using Rng = std::mt19937_64;

template <typename T, typename Random>
void edgeOr(Rng& rng, const std::vector<T>& pool, Random random, T& out) {
  out = rng() % 2 ? pool[rng() % pool.size()] : T(random());
}

inline void draw(Rng& rng, IndexKind::IpAddress, Lanet::IpGenAddr& v) {
  static const std::vector<Lanet::IpGenAddr> pool = {
      Lanet::IpGenAddr::v4(0), Lanet::IpGenAddr::v4(0xFFFFFFFF), Lanet::IpGenAddr::v4(0xE0000001),
      Lanet::IpGenAddr::v4(0x0A000001)};
  edgeOr(
      rng, pool, [&] { return PlatformTypesTest::randomV4(rng); }, v);
}

inline void draw(Rng& rng, IndexKind::IpAddress, Lanet::IpAddr& v) {
  Lanet::IpGenAddr a;
  draw(rng, IndexKind::IpAddress{}, a);
  v = a.v4();
}

// Only contiguous masks: the ones the agent builds from prefix lengths.
inline void draw(Rng& rng, IndexKind::Mask, uint32_t& v) {
  static const std::vector<uint32_t> pool = {0, 0xFFFFFFFF, maskFromLength(24)};
  edgeOr(
      rng, pool, [&] { return maskFromLength(static_cast<uint32_t>(rng() % 33)); }, v);
}

// Real ifIndex values are 1..2^31-1 (and 0 for "none"); a negative one would encode as a
// sub-identifier above 2^31 and break the order property, see docs/decisions.md.
inline void draw(Rng& rng, IndexKind::Int32, int32_t& v) {
  static const std::vector<int32_t> pool = {0, 1, INT32_MAX};
  edgeOr(
      rng, pool, [&] { return static_cast<int32_t>(rng() % (uint64_t{1} << 31)); }, v);
}

// Unsigned32 and NonNegativeInteger: the store holds any uint32_t.
template <class Kind>
requires std::same_as<Kind, IndexKind::Unsigned32> ||
    std::same_as<Kind, IndexKind::NonNegativeInteger>
void draw(Rng& rng, Kind, uint32_t& v) {
  static const std::vector<uint32_t> pool = {0, 1, 32, 128, 0xFFFFFFFF};
  edgeOr(
      rng, pool, [&] { return static_cast<uint32_t>(rng()); }, v);
}

inline void draw(Rng& rng, IndexKind::InetAddress, Snmp::InetAddress& v) {
  static const std::vector<Snmp::InetAddress> pool = {
      Snmp::InetAddress(), Snmp::InetAddress::parse("ipv4:0.0.0.0"),
      Snmp::InetAddress::parse("ipv4:239.1.1.1"), Snmp::InetAddress::parse("ipv6:ff02::1")};
  edgeOr(
      rng, pool, [&] { return PlatformTypesTest::randomInetAddress(rng); }, v);
}

inline void draw(Rng& rng, IndexKind::InetVersion, Snmp::InetVersion& v) {
  v = static_cast<Snmp::InetVersion>(rng() % 3);
}

// Names with high bytes and prefixes of each other: both must order as the OID does.
inline void draw(Rng& rng, IndexKind::ImpliedName, Lanet::IntfId& v) {
  static const std::vector<Lanet::IntfId> pool = {Lanet::IntfId(), Lanet::IntfId("Ethernet1"),
                                                  Lanet::IntfId("Ethernet10"),
                                                  Lanet::IntfId("Ethernet2")};
  edgeOr(
      rng, pool,
      [&] {
        static constexpr char kChars[] = {'\0', 'a', 'b', '\x7f', '\x80', '\xff'};
        std::string name(rng() % 5, ' ');
        for (char& c : name) c = kChars[rng() % sizeof(kChars)];
        return Lanet::IntfId(name);
      },
      v);
}

template <IndexType T>
void draw(Rng& rng, IndexKind::Nested, T& v) {
  std::apply(
      [&](auto... f) { (draw(rng, typename decltype(f)::Kind{}, v.*decltype(f)::member), ...); },
      T::fields);
}

}  // namespace PimSnmpIndexTest
