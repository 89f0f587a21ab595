// Checks compareOid and our encodings against net-snmp itself. Kept in its own file because
// net-snmp's headers define many macros.
#include <gtest/gtest.h>

#include <random>
#include <type_traits>
#include <vector>

#include "platform/Lanet/IpGenAddr.h"
#include "platform/Snmp/InetAddress.h"
#include "platform/Snmp/Oid.h"
#include "tests/unit/platform_types/Generators.h"

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

namespace {

using Snmp::Oid;
using Snmp::SubId;

static_assert(std::is_same_v<SubId, oid>, "an Oid's data() must be passable to net-snmp");

int sign(int v) {
  return (v > 0) - (v < 0);
}

int netSnmpCompare(const Oid& a, const Oid& b) {
  return sign(snmp_oid_compare(a.data(), a.size(), b.data(), b.size()));
}

Oid randomOid(std::mt19937_64& rng) {
  Oid oid(rng() % 6);
  for (auto& s : oid) {
    switch (rng() % 4) {
      case 0:
        s = rng() % 3;
        break;
      case 1:
        s = rng();  // Full 64-bit range.
        break;
      default:
        s = rng() % 256;
    }
  }
  return oid;
}

TEST(NetSnmpCrossCheckTest, CompareOidAgreesWithSnmpOidCompare) {
  std::mt19937_64 rng(21);
  // Proper prefixes, and sub-identifiers past 32 bits: they are unsigned 64-bit.
  std::vector<Oid> oids = {{},          {0},    {1},         {1, 3},          {1, 3, 0},
                           {1, 3, 6},   {1, 4}, {~SubId{0}}, {0xffffffffULL}, {0x100000000ULL},
                           {1ULL << 63}};
  for (int i = 0; i < 300; ++i) {
    Oid a = randomOid(rng);
    oids.push_back(a);
    if (!a.empty()) {
      oids.emplace_back(a.begin(), a.end() - 1);  // Proper prefix.
      a.back() += 1;
      oids.push_back(a);
    }
  }
  for (const auto& a : oids) {
    for (const auto& b : oids) {
      ASSERT_EQ(sign(Snmp::compareOid(a, b)), netSnmpCompare(a, b))
          << Snmp::oidToString(a) << " vs " << Snmp::oidToString(b);
    }
  }
}

// net-snmp's build_oid agrees where its encoding is the wire form: non-negative INTEGER and
// length-prefixed OCTET STRING.
TEST(NetSnmpCrossCheckTest, EncodingsMatchBuildOid) {
  const auto inet = Snmp::InetAddress::fromIpGenAddr(Lanet::IpGenAddr::parse("ff02::1:2").value());
  const long ifIndex = 2147483647;
  const long inetType = static_cast<long>(inet.type());
  const auto octets = inet.octets();

  netsnmp_variable_list* vars = nullptr;
  snmp_varlist_add_variable(&vars, nullptr, 0, ASN_INTEGER, &ifIndex, sizeof(ifIndex));
  snmp_varlist_add_variable(&vars, nullptr, 0, ASN_INTEGER, &inetType, sizeof(inetType));
  snmp_varlist_add_variable(&vars, nullptr, 0, ASN_OCTET_STR, octets.data(), octets.size());
  ASSERT_NE(vars, nullptr);
  oid buf[MAX_OID_LEN];
  size_t len = 0;
  ASSERT_EQ(build_oid_noalloc(buf, MAX_OID_LEN, &len, nullptr, 0, vars), SNMPERR_SUCCESS);
  snmp_free_varbind(vars);

  Oid ours;
  Snmp::appendInt32(ours, static_cast<int32_t>(ifIndex));
  Snmp::appendTypedInetAddress(ours, inet);
  EXPECT_EQ(Oid(buf, buf + len), ours);
}

// net-snmp's index parser, which reads incoming request OIDs, must read back what we encode,
// including a negative INTEGER and an IpAddress.
TEST(NetSnmpCrossCheckTest, ParseOidIndexesReadsOurEncodings) {
  const auto ip = Lanet::IpGenAddr::parse("192.0.2.200").value();
  const auto inet = Snmp::InetAddress::parse("ipv4z:c000020100000007");
  Oid ours;
  Snmp::appendInt32(ours, -3);
  Snmp::appendIpAddress(ours, ip);
  Snmp::appendTypedInetAddress(ours, inet);

  netsnmp_variable_list* vars = nullptr;
  for (u_char type : {ASN_INTEGER, ASN_IPADDRESS, ASN_INTEGER, ASN_OCTET_STR}) {
    snmp_varlist_add_variable(&vars, nullptr, 0, type, nullptr, 0);
  }
  ASSERT_EQ(parse_oid_indexes(ours.data(), ours.size(), vars), SNMPERR_SUCCESS);
  const netsnmp_variable_list* v = vars;
  EXPECT_EQ(static_cast<int32_t>(*v->val.integer), -3);
  v = v->next_variable;
  ASSERT_EQ(v->val_len, 4u);
  EXPECT_EQ(std::vector<uint8_t>(v->val.string, v->val.string + 4),
            std::vector<uint8_t>(ip.bytes().begin(), ip.bytes().end()));
  v = v->next_variable;
  EXPECT_EQ(*v->val.integer, static_cast<long>(Snmp::InetAddressType::ipv4z));
  v = v->next_variable;
  EXPECT_EQ(std::vector<uint8_t>(v->val.string, v->val.string + v->val_len),
            std::vector<uint8_t>(inet.octets().begin(), inet.octets().end()));
  snmp_free_varbind(vars);
}

}  // namespace
