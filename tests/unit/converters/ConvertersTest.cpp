// Each converter's output is handed to net-snmp's snmp_set_var_typed_value exactly as a handler
// does, and the value net-snmp would send is read back from the varbind.

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <vector>

#include <gtest/gtest.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include "PimSnmp/Converters/Converters.h"
#include "PimSnmp/PimSnmp/Index.h"
#include "platform/Clock/Clock.h"
#include "platform/Snmp/Converters.h"

namespace ConvertersTest {
namespace {

using Converter = std::function<int(uint8_t*, size_t)>;

// A varbind set from a converter's output, as the MIB handlers set theirs.
class Varbind {
 public:
  Varbind(u_char type, const Converter& convert) {
    uint8_t buf[1024];
    const int n = convert(buf, sizeof(buf));
    EXPECT_GE(n, 0);
    ok_ = n >= 0 && snmp_set_var_typed_value(&var_, type, buf, static_cast<size_t>(n)) == 0;
    EXPECT_TRUE(ok_);
  }
  ~Varbind() { snmp_free_var_internals(&var_); }
  Varbind(const Varbind&) = delete;
  Varbind& operator=(const Varbind&) = delete;

  long integer() const { return ok_ ? *var_.val.integer : -12345; }
  std::vector<uint8_t> octets() const {
    return ok_ ? std::vector<uint8_t>(var_.val.string, var_.val.string + var_.val_len)
               : std::vector<uint8_t>{};
  }

 private:
  netsnmp_variable_list var_{};
  bool ok_ = false;
};

template <typename T, typename Fn>
Converter conv(Fn fn, T value) {
  return [fn, value](uint8_t* buf, size_t cap) { return fn(value, buf, cap); };
}

long ticksOf(double seconds) {
  return Varbind(ASN_TIMETICKS, conv(Snmp::SecondsToTimeTicks, seconds)).integer();
}

TEST(Converters, IntegersKeepSignAndWidth) {
  for (int32_t v :
       {0, 60, -1, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()}) {
    EXPECT_EQ(Varbind(ASN_INTEGER, conv(Snmp::S32ToAsnInteger, v)).integer(), v);
  }
  EXPECT_EQ(Varbind(ASN_GAUGE, conv(Snmp::S32ToAsnInteger, 7)).integer(), 7);
  EXPECT_EQ(Varbind(ASN_UNSIGNED, conv(Snmp::U32ToAsnUnsigned, 0xFFFFFFFFu)).integer(),
            0xFFFFFFFFL);
  EXPECT_EQ(Varbind(ASN_INTEGER, conv(Snmp::BoolToAsnInteger, true)).integer(), 1);
  EXPECT_EQ(Varbind(ASN_INTEGER, conv(Snmp::BoolToAsnInteger, false)).integer(), 2);
}

TEST(Converters, TimeTicks) {
  EXPECT_EQ(Varbind(ASN_TIMETICKS, conv(Snmp::U32ToTimeTicks, 5u)).integer(), 500);
  EXPECT_EQ(Varbind(ASN_TIMETICKS, conv(Snmp::U32ToTimeTicks, 42949672u)).integer(), 4294967200);
  EXPECT_EQ(Varbind(ASN_TIMETICKS, conv(Snmp::U32ToTimeTicks, 42949673u)).integer(), 0xFFFFFFFFL);

  EXPECT_EQ(ticksOf(2.0), 200);
  EXPECT_EQ(ticksOf(0.004), 0);
  EXPECT_EQ(ticksOf(0.125), 13);  // half rounds away from zero
  EXPECT_EQ(ticksOf(0.375), 38);
  EXPECT_EQ(ticksOf(-3.0), 0);
  EXPECT_EQ(ticksOf(std::nan("")), 0);
  EXPECT_EQ(ticksOf(1e12), 0xFFFFFFFFL);
}

class Uptime : public ::testing::Test {
 protected:
  void TearDown() override { Snmp::agentStartTimeIs(saved_); }
  double saved_ = Snmp::agentStartTime();
};

TEST_F(Uptime, CountsFromTheAgentStart) {
  // The default start is the program's load on the platform clock.
  EXPECT_LE(saved_, Plat::now());
  EXPECT_GT(saved_, Plat::now() - 3600);

  Snmp::agentStartTimeIs(1000.0);
  auto uptime = [](double t) {
    return Varbind(ASN_TIMETICKS, conv(Snmp::NowSecondsToUptimeTimeTicks, t)).integer();
  };
  EXPECT_EQ(uptime(1012.5), 1250);
  EXPECT_EQ(uptime(1000.0), 0);
  EXPECT_EQ(uptime(999.0), 0);
}

TEST(Converters, OctetStringsAndAddresses) {
  const std::vector<uint8_t> bytes = {0, 1, 0xFF};
  EXPECT_EQ(
      Varbind(ASN_OCTET_STR, conv(static_cast<int (*)(std::span<const uint8_t>, uint8_t*, size_t)>(
                                      Snmp::BytesToAsnOctetString),
                                  std::span<const uint8_t>(bytes)))
          .octets(),
      bytes);
  auto addrOctets = [](std::string_view text) {
    return Varbind(ASN_OCTET_STR,
                   conv(Snmp::LanetIpGenAddrToAsnOctetString, *Lanet::IpGenAddr::parse(text)))
        .octets();
  };
  EXPECT_EQ(addrOctets("10.1.2.3"), (std::vector<uint8_t>{10, 1, 2, 3}));
  const auto v6 = addrOctets("ff02::1");
  ASSERT_EQ(v6.size(), 16u);
  EXPECT_EQ(v6.front(), 0xFF);
  EXPECT_EQ(v6.back(), 0x01);

  uint8_t buf[4];
  EXPECT_EQ(Snmp::LanetIpGenAddrToAsnOctetString(Lanet::IpGenAddr(), buf, sizeof(buf)), 0);
  EXPECT_EQ(Snmp::BytesToAsnOctetString(std::string_view(), nullptr, 0), 0);
}

TEST(Converters, TooSmallBufferFailsWithoutWriting) {
  const Converter all[] = {
      conv(Snmp::S32ToAsnInteger, -1),
      conv(Snmp::U32ToAsnUnsigned, 1u),
      conv(Snmp::U32ToAsnOctets, 1u),
      conv(Snmp::U32ToTimeTicks, 1u),
      conv(Snmp::SecondsToTimeTicks, 1.0),
      conv(Snmp::NowSecondsToUptimeTimeTicks, 1.0),
      conv(Snmp::U64ToCounter32, uint64_t{1}),
      conv(Snmp::U64ToCounter64, uint64_t{1}),
      conv(Snmp::BoolToAsnInteger, true),
      conv(static_cast<int (*)(std::string_view, uint8_t*, size_t)>(Snmp::BytesToAsnOctetString),
           std::string_view("abc")),
      conv(Snmp::LanetIpGenAddrToAsnOctetString, Lanet::IpGenAddr::v4(1)),
      conv(Routing::Pim::Snmp::ModeToAsnInteger, uint8_t{1}),
      conv(Routing::Pim::Snmp::NextHopStateToAsnInteger, Routing::Pim::Snmp::nhStatePruned),
  };
  for (size_t i = 0; i < std::size(all); ++i) {
    uint8_t buf[32];
    const int n = all[i](buf, sizeof(buf));
    ASSERT_GT(n, 0) << i;
    std::memset(buf, 0xAA, sizeof(buf));
    EXPECT_LT(all[i](buf, static_cast<size_t>(n - 1)), 0) << i;
    EXPECT_EQ(buf[0], 0xAA) << i;
    EXPECT_LT(all[i](nullptr, sizeof(buf)), 0) << i;
  }
}

TEST(Converters, ModeAndNextHopStateMappings) {
  using namespace Routing::Pim::Snmp;
  auto mode = [](uint8_t m) { return Varbind(ASN_INTEGER, conv(ModeToAsnInteger, m)).integer(); };
  EXPECT_EQ(mode(1), 2);
  EXPECT_EQ(mode(0), 1);
  EXPECT_EQ(mode(2), 1);
  EXPECT_EQ(mode(255), 1);

  auto state = [](NextHopState s) {
    return Varbind(ASN_INTEGER, conv(NextHopStateToAsnInteger, s)).integer();
  };
  EXPECT_EQ(state(nhStatePruned), 1);
  EXPECT_EQ(state(nhStateForwarding), 2);
  EXPECT_EQ(state(static_cast<NextHopState>(7)), 1);
}

}  // namespace
}  // namespace ConvertersTest
