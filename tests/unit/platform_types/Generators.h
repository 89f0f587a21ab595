#pragma once

// The value types' shared checks (text forms, total order) and random values for
// order-property tests, biased toward the edges where encodings break (all-zero and all-ones
// octets, empty and maximal lengths, every family and type).

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <random>
#include <sstream>
#include <string_view>
#include <vector>

#include <fmt/format.h>

#include "platform/Lanet/IpGenAddr.h"
#include "platform/Lanet/IpGenPrefix.h"
#include "platform/Snmp/InetAddress.h"
#include "platform/Snmp/Oid.h"

namespace PlatformTypesTest {

inline Lanet::IpGenAddr addr(std::string_view text) {
  auto a = Lanet::IpGenAddr::parse(text);
  EXPECT_TRUE(a.has_value()) << text;
  return a.value_or(Lanet::IpGenAddr());
}

inline Lanet::IpGenPrefix prefix(std::string_view text) {
  auto p = Lanet::IpGenPrefix::parse(text);
  EXPECT_TRUE(p.has_value()) << text;
  return p.value_or(Lanet::IpGenPrefix());
}

// toString, fmt and operator<< all give `text`.
template <typename T>
void expectText(const T& value, std::string_view text) {
  EXPECT_EQ(value.toString(), text);
  EXPECT_EQ(fmt::format("{}", value), text);
  std::ostringstream os;
  os << value;
  EXPECT_EQ(os.str(), text);
}

// `sorted` is strictly ascending under `less`, and no two of its values are equal.
template <typename T, typename Less = std::less<T>>
void expectStrictOrder(const std::vector<T>& sorted, Less less = {}) {
  for (size_t i = 0; i < sorted.size(); ++i) {
    for (size_t j = 0; j < sorted.size(); ++j) {
      EXPECT_EQ(less(sorted[i], sorted[j]), i < j) << sorted[i] << " vs " << sorted[j];
      EXPECT_EQ(sorted[i] == sorted[j], i == j) << sorted[i] << " vs " << sorted[j];
    }
  }
}

// Over every pair of `values`, the index encoding `encode` orders (by compareOid) as the
// values' own order does: a sorted map walk is a GETNEXT walk.
template <typename T, typename Encode>
void expectEncodingKeepsOrder(const std::vector<T>& values, Encode encode) {
  for (const auto& a : values) {
    for (const auto& b : values) {
      const int c = Snmp::compareOid(encode(a), encode(b));
      ASSERT_EQ(a < b, c < 0) << a << " vs " << b;
      ASSERT_EQ(a == b, c == 0) << a << " vs " << b;
    }
  }
}

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
