#pragma once

// Random values for order-property tests, biased toward the edges where encodings break
// (all-zero and all-ones octets, empty and maximal lengths, every family and type).

#include <array>
#include <cstdint>
#include <random>
#include <vector>

#include "platform/Lanet/IpGenAddr.h"
#include "platform/Snmp/InetAddress.h"

namespace PlatformTypesTest {

inline uint8_t edgyOctet(std::mt19937_64& rng) {
  switch (rng() % 4) {
    case 0:
      return 0;
    case 1:
      return 255;
    default:
      return static_cast<uint8_t>(rng());
  }
}

inline Lanet::IpGenAddr randomV4(std::mt19937_64& rng) {
  std::array<uint8_t, 4> b;
  for (auto& o : b) o = edgyOctet(rng);
  return Lanet::IpAddr::fromBytes(b);
}

inline Lanet::IpGenAddr randomV6(std::mt19937_64& rng) {
  std::array<uint8_t, 16> b;
  for (auto& o : b) o = edgyOctet(rng);
  return Lanet::IpGenAddr::v6(b);
}

inline Lanet::IpGenAddr randomGenAddr(std::mt19937_64& rng) {
  switch (rng() % 5) {
    case 0:
      return Lanet::IpGenAddr();
    case 1:
    case 2:
      return randomV4(rng);
    default:
      return randomV6(rng);
  }
}

inline Snmp::InetAddress randomInetAddress(std::mt19937_64& rng) {
  static constexpr Snmp::InetAddressType kTypes[] = {
      Snmp::InetAddressType::unknown, Snmp::InetAddressType::ipv4,  Snmp::InetAddressType::ipv6,
      Snmp::InetAddressType::ipv4z,   Snmp::InetAddressType::ipv6z, Snmp::InetAddressType::dns,
  };
  static constexpr size_t kEdgeLengths[] = {0, 1, 4, 8, 16, 19, 20};
  const auto type = kTypes[rng() % std::size(kTypes)];
  const size_t len = rng() % 2 ? kEdgeLengths[rng() % std::size(kEdgeLengths)]
                               : rng() % (Snmp::InetAddress::kMaxOctets + 1);
  std::vector<uint8_t> octets(len);
  for (auto& o : octets) o = edgyOctet(rng);
  return Snmp::InetAddress(type, octets);
}

}  // namespace PlatformTypesTest
