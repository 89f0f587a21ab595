#include <gtest/gtest.h>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <algorithm>
#include <array>
#include <climits>
#include <memory>
#include <span>
#include <vector>

#include "platform/Snmp/AppendToOid.h"
#include "platform/Snmp/HintReaders.h"

namespace {

struct VarbindFree {
  void operator()(netsnmp_variable_list* v) const { snmp_free_varbind(v); }
};
using Varbind = std::unique_ptr<netsnmp_variable_list, VarbindFree>;

// A varbind of `type`; integer-like ones hold exactly `value` in net-snmp's long.
Varbind vb(u_char type, long value) {
  netsnmp_variable_list* v = nullptr;
  const int zero = 0;
  snmp_varlist_add_variable(&v, nullptr, 0, type, &zero, sizeof zero);
  *v->val.integer = value;
  return Varbind(v);
}
Varbind vb(u_char type, const std::vector<uint8_t>& bytes) {
  netsnmp_variable_list* v = nullptr;
  snmp_varlist_add_variable(&v, nullptr, 0, type, bytes.data(), bytes.size());
  return Varbind(v);
}

// Reads `v` with `reader` into a field that starts at `init`: the value on success, `init`
// (untouched) on failure.
template <class T, class Reader>
std::pair<bool, T> read(Reader reader, const Varbind& v, T init) {
  T out = init;
  const bool ok = reader(*v, out);
  return {ok, out};
}

TEST(HintReadersTest, IntegersAreRangeAndTypeChecked) {
  using R = std::pair<bool, int32_t>;
  EXPECT_EQ(read(Snmp::AsnIntegerToS32, vb(ASN_INTEGER, INT32_MIN), 7), (R{true, INT32_MIN}));
  EXPECT_EQ(read(Snmp::AsnIntegerToS32, vb(ASN_INTEGER, INT32_MAX), 7), (R{true, INT32_MAX}));
  // Index sub-identifiers above 2^31-1 arrive as such longs: out of range, field untouched.
  EXPECT_EQ(read(Snmp::AsnIntegerToS32, vb(ASN_INTEGER, 4294967295L), 7), (R{false, 7}));
  EXPECT_EQ(read(Snmp::AsnIntegerToS32, vb(ASN_INTEGER, long{INT32_MIN} - 1), 7), (R{false, 7}));
  EXPECT_EQ(read(Snmp::AsnIntegerToS32, vb(ASN_UNSIGNED, 5), 7), (R{false, 7}));

  using U = std::pair<bool, uint32_t>;
  EXPECT_EQ(read(Snmp::AsnUnsignedToU32, vb(ASN_UNSIGNED, 4294967295L), 7u), (U{true, UINT32_MAX}));
  EXPECT_EQ(read(Snmp::AsnUnsignedToU32, vb(ASN_TIMETICKS, 0), 7u), (U{true, 0}));
  EXPECT_EQ(read(Snmp::AsnUnsignedToU32, vb(ASN_UNSIGNED, -1), 7u), (U{false, 7}));
  EXPECT_EQ(read(Snmp::AsnUnsignedToU32, vb(ASN_UNSIGNED, 4294967296L), 7u), (U{false, 7}));
  EXPECT_EQ(read(Snmp::AsnUnsignedToU32, vb(ASN_INTEGER, 5), 7u), (U{false, 7}));
}

TEST(HintReadersTest, EnumerationsAcceptOnlyNamedValues) {
  for (long v = -1; v <= 17; ++v) {
    const bool named = v == 0 || v == 1 || v == 2 || v == 3 || v == 4 || v == 16;
    auto type =
        read(Snmp::AsnIntegerToInetAddressType, vb(ASN_INTEGER, v), Snmp::InetAddressType::ipv6z);
    EXPECT_EQ(type.first, named) << v;
    EXPECT_EQ(static_cast<long>(type.second), named ? v : 4) << v;
    auto version = read(Snmp::AsnIntegerToIpVersion, vb(ASN_INTEGER, v), Snmp::InetVersion::ipv6);
    EXPECT_EQ(version.first, v >= 0 && v <= 2) << v;
  }
  // Large values must not wrap into a named one (2^32 + 1 would read as ipv4).
  EXPECT_FALSE(read(Snmp::AsnIntegerToInetAddressType, vb(ASN_INTEGER, 4294967297L),
                    Snmp::InetAddressType::unknown)
                   .first);
  EXPECT_FALSE(
      read(Snmp::AsnIntegerToIpVersion, vb(ASN_GAUGE, 1), Snmp::InetVersion::unknown).first);
}

TEST(HintReadersTest, OctetTypesCheckTheirLength) {
  Lanet::IpGenAddr addr;
  ASSERT_TRUE(Snmp::AsnIpAddressToLanetIpGenAddr(*vb(ASN_IPADDRESS, {10, 0, 0, 2}), addr));
  EXPECT_EQ(addr.toString(), "10.0.0.2");
  EXPECT_FALSE(Snmp::AsnIpAddressToLanetIpGenAddr(*vb(ASN_IPADDRESS, {10, 0, 0}), addr));
  EXPECT_FALSE(Snmp::AsnIpAddressToLanetIpGenAddr(*vb(ASN_IPADDRESS, {1, 2, 3, 4, 5}), addr));
  EXPECT_FALSE(Snmp::AsnIpAddressToLanetIpGenAddr(*vb(ASN_OCTET_STR, {1, 2, 3, 4}), addr));
  EXPECT_EQ(addr.toString(), "10.0.0.2");

  Snmp::Bytes bytes{9};
  ASSERT_TRUE(Snmp::AsnOctetStringToSnmpBytes(*vb(ASN_OCTET_STR, std::vector<uint8_t>{}), bytes));
  EXPECT_TRUE(bytes.empty());
  const std::vector<uint8_t> max(255, 0xab);
  ASSERT_TRUE(Snmp::AsnOctetStringToSnmpBytes(*vb(ASN_OCTET_STR, max), bytes));
  EXPECT_EQ(bytes, max);
  EXPECT_FALSE(
      Snmp::AsnOctetStringToSnmpBytes(*vb(ASN_OCTET_STR, std::vector<uint8_t>(256)), bytes));
  EXPECT_FALSE(Snmp::AsnOctetStringToSnmpBytes(*vb(ASN_IPADDRESS, {1, 2, 3, 4}), bytes));
  EXPECT_EQ(bytes, max);

  // The same checks without a copy: the view points into the varbind, and a failed read leaves
  // it as it was.
  const Varbind held = vb(ASN_OCTET_STR, max);
  std::span<const uint8_t> view;
  ASSERT_TRUE(Snmp::AsnOctetStringToSpan(*held, view));
  EXPECT_EQ(view.data(), held->val.string);
  EXPECT_TRUE(std::equal(view.begin(), view.end(), max.begin(), max.end()));
  EXPECT_FALSE(Snmp::AsnOctetStringToSpan(*vb(ASN_OCTET_STR, std::vector<uint8_t>(256)), view));
  EXPECT_FALSE(Snmp::AsnOctetStringToSpan(*vb(ASN_IPADDRESS, {1, 2, 3, 4}), view));
  EXPECT_EQ(view.data(), held->val.string);
  ASSERT_TRUE(Snmp::AsnOctetStringToSpan(*vb(ASN_OCTET_STR, std::vector<uint8_t>{}), view));
  EXPECT_TRUE(view.empty());
}

TEST(AppendToOidTest, AppendsOctetsWithinCapacity) {
  const Lanet::IpGenAddr v4 = Lanet::IpAddr::fromBytes(std::array<uint8_t, 4>{10, 0, 0, 2});
  std::vector<oid> name = {1, 3, 6, 1, 3, 61, 1, 1, 3, 1, 2, 77, 77, 77, 77, 77};
  ASSERT_EQ(Snmp::AppendToOid(name.data(), 11, 15, v4), 15);  // exactly full
  EXPECT_EQ(name, (std::vector<oid>{1, 3, 6, 1, 3, 61, 1, 1, 3, 1, 2, 10, 0, 0, 2, 77}));

  std::vector<oid> shortBuf(14, 77);
  EXPECT_EQ(Snmp::AppendToOid(shortBuf.data(), 11, 14, v4), -1);
  EXPECT_EQ(shortBuf, std::vector<oid>(14, 77));  // nothing written

  std::vector<oid> six(20, 0);
  ASSERT_EQ(
      Snmp::AppendToOid(six.data(), 2, six.size(), Lanet::IpGenAddr::parse("ff02::d").value()), 18);
  EXPECT_EQ(six[2], 0xffu);
  EXPECT_EQ(six[17], 0x0du);
  EXPECT_EQ(Snmp::AppendToOid(six.data(), 2, six.size(), Lanet::IpGenAddr()), -1);
  EXPECT_EQ(Snmp::AppendToOid(six.data(), 21, six.size(), v4), -1);
}

}  // namespace
