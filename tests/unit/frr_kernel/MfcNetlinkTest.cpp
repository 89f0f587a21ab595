// The MFC dump reader over recorded kernel answers (checked against /proc/net/ip_mr_cache read
// around the same dump) and over crafted messages the kernel should never send.

#include <errno.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <random>

#include "KernelTestData.h"
#include "pimsnmp-frr/kernel/MfcNetlink.h"
#include "pimsnmp-frr/kernel/ProcFiles.h"

namespace PimSnmpFrr::Kernel {
namespace {

using Testing::Bytes;
using Testing::MessageBuilder;

constexpr uint32_t kRecordedSeq = 4242;   // record_kernel.py's request
constexpr uint32_t kGroup = 0xEF010101;   // 239.1.1.1
constexpr uint32_t kSource = 0x0A63010A;  // 10.99.1.10

MfcDumpReader readAll(const std::vector<Bytes>& datagrams, uint32_t seq = kRecordedSeq) {
  MfcDumpReader reader(seq);
  for (const auto& d : datagrams) reader.feed(d);
  return reader;
}

// ---- recorded dumps -------------------------------------------------------------------------

class RecordedDump : public testing::TestWithParam<std::string> {};

// Every entry of the dump matches the /proc view: same (S,G) set, the VIFs' interfaces as
// ifindexes in VIF order, counters between the reads before and after the dump.
TEST_P(RecordedDump, MatchesProcView) {
  const std::string name = GetParam();
  const auto datagrams = Testing::readDatagrams(Testing::dataPath(name + ".mfc"));
  auto reader = readAll(datagrams);
  ASSERT_EQ(reader.status(), MfcDumpReader::Status::done) << reader.reason();
  EXPECT_FALSE(reader.interrupted());

  const auto before =
      Testing::parseCache(Testing::readText(Testing::dataPath(name + ".cache-before")));
  const auto after =
      Testing::parseCache(Testing::readText(Testing::dataPath(name + ".cache-after")));
  std::map<std::string, int> ifindexOf;
  {
    std::istringstream in(Testing::readText(Testing::dataPath(name + ".ifindex")));
    std::string ifName;
    int index;
    while (in >> ifName >> index) ifindexOf[ifName] = index;
  }
  std::map<int, int> vifIfindex;
  for (const auto& vif : parseVifTable(Testing::readText(Testing::dataPath(name + ".vif")))) {
    ASSERT_TRUE(ifindexOf.contains(vif.name)) << vif.name;
    vifIfindex[vif.vif] = ifindexOf[vif.name];
  }

  ASSERT_EQ(reader.entries().size(), before.size());
  for (const auto& e : reader.entries()) {
    SCOPED_TRACE(testing::Message() << std::hex << e.source << "," << e.group);
    EXPECT_EQ(e.table, 253u);
    const auto b = before.find({e.source, e.group});
    const auto a = after.find({e.source, e.group});
    ASSERT_NE(b, before.end());
    ASSERT_NE(a, after.end());
    // /proc shows an unresolved entry (traffic nobody asked for yet) with VIF -1; the dump
    // has no incoming interface for it.
    EXPECT_EQ(e.iifIndex, b->second.iifVif < 0 ? 0 : vifIfindex.at(b->second.iifVif));
    std::vector<int> oifs;
    for (int vif : b->second.oifVifs) oifs.push_back(vifIfindex.at(vif));
    EXPECT_EQ(e.oifIndexes, oifs);
    EXPECT_GE(e.packets, b->second.packets);
    EXPECT_LE(e.packets, a->second.packets);
    EXPECT_GE(e.bytes, b->second.bytes);
    EXPECT_LE(e.bytes, a->second.bytes);
    EXPECT_GE(e.wrongIf, b->second.wrongIf);
    EXPECT_LE(e.wrongIf, a->second.wrongIf);
  }
}

INSTANTIATE_TEST_SUITE_P(Lab, RecordedDump,
                         testing::Values("lab-r1", "lab-r2", "lab-r3", "lab-r4", "scaled-r1",
                                         "scaled-r4", "unresolved-r4"));

TEST(RecordedDumpShape, ScaledDumpSpansDatagramsAndGrowsOnlyWithEach) {
  const auto datagrams = Testing::readDatagrams(Testing::dataPath("scaled-r4.mfc"));
  ASSERT_GE(datagrams.size(), 3u);  // entries in two or more parts, then NLMSG_DONE
  MfcDumpReader reader(kRecordedSeq);
  size_t seen = 0;
  for (size_t i = 0; i + 1 < datagrams.size(); ++i) {
    EXPECT_EQ(reader.feed(datagrams[i]), MfcDumpReader::Status::more);
    EXPECT_GT(reader.entries().size(), seen);
    seen = reader.entries().size();
  }
  EXPECT_EQ(reader.feed(datagrams.back()), MfcDumpReader::Status::done);
  EXPECT_GE(reader.entries().size(), 200u);
}

TEST(RecordedDumpShape, AnswersOfAnotherRequestArePassedOver) {
  auto stale = Testing::readDatagrams(Testing::dataPath("lab-r2.mfc"));
  const auto current = Testing::readDatagrams(Testing::dataPath("lab-r4.mfc"));
  // Leftovers of an abandoned dump (its NLMSG_DONE included) come first on the socket.
  std::vector<Bytes> all = stale;
  all.insert(all.end(), current.begin(), current.end());
  auto reader = readAll(all, kRecordedSeq);
  ASSERT_EQ(reader.status(), MfcDumpReader::Status::done);  // both recordings share one seq
  MfcDumpReader fresh(kRecordedSeq + 1);
  for (const auto& d : stale) fresh.feed(d);
  EXPECT_EQ(fresh.status(), MfcDumpReader::Status::more);
  EXPECT_TRUE(fresh.entries().empty());
  EXPECT_GT(fresh.skipped(), 0u);
}

// A datagram cut anywhere inside a message is refused, and a refusal keeps no entries.
TEST(RecordedDumpShape, EveryTruncationInsideAMessageIsRefused) {
  const auto datagrams = Testing::readDatagrams(Testing::dataPath("lab-r1.mfc"));
  const Bytes& first = datagrams.front();
  std::vector<size_t> boundaries{0};
  for (size_t off = 0; off < first.size();) {
    uint32_t len;
    std::memcpy(&len, first.data() + off, 4);
    off += (len + 3) & ~3u;
    boundaries.push_back(off);
  }
  for (size_t cut = 1; cut < first.size(); ++cut) {
    MfcDumpReader reader(kRecordedSeq);
    const auto status = reader.feed({first.data(), cut});
    if (std::find(boundaries.begin(), boundaries.end(), cut) != boundaries.end()) {
      EXPECT_EQ(status, MfcDumpReader::Status::more) << cut;
    } else {
      EXPECT_EQ(status, MfcDumpReader::Status::refused) << cut;
      EXPECT_TRUE(reader.entries().empty());
      EXPECT_FALSE(reader.reason().empty());
    }
  }
}

// Random damage never crashes the reader; whatever it accepts is a complete dump.
TEST(RecordedDumpShape, DamagedBytesAreReadOrRefusedNeverOverrun) {
  const auto datagrams = Testing::readDatagrams(Testing::dataPath("scaled-r1.mfc"));
  std::mt19937 rng(7);
  int refused = 0;
  for (int round = 0; round < 300; ++round) {
    auto copy = datagrams;
    auto& d = copy[rng() % copy.size()];
    for (int flips = 0; flips < 4; ++flips)
      d[rng() % d.size()] ^= static_cast<uint8_t>(1 + rng() % 255);
    auto reader = readAll(copy);
    if (reader.status() == MfcDumpReader::Status::refused) {
      ++refused;
      EXPECT_TRUE(reader.entries().empty());
    }
  }
  EXPECT_GT(refused, 0);
}

// ---- crafted messages -----------------------------------------------------------------------

Bytes oneRoute(std::function<void(MessageBuilder&)> attrs, uint8_t family = 128) {
  MessageBuilder b;
  b.header(RTM_NEWROUTE, 1).route(family);
  attrs(b);
  return b.finish().datagram();
}

MfcDumpReader readCrafted(const Bytes& datagram) {
  MfcDumpReader reader(1);
  reader.feed(datagram);
  reader.feed(Testing::doneMessage(1));
  return reader;
}

TEST(CraftedRoute, FullEntryIsRead) {
  const auto d = oneRoute([](MessageBuilder& b) {
    b.u32Attr(RTA_TABLE, 1000)
        .addrAttr(RTA_SRC, kSource)
        .addrAttr(RTA_DST, kGroup)
        .u32Attr(RTA_IIF, 7)
        .multipath({3, 9, 4})
        .stats(uint64_t{1} << 40, uint64_t{5} << 40, 3);
    const uint64_t expires = 12;
    b.attr(RTA_EXPIRES, &expires, sizeof(expires));
  });
  auto reader = readCrafted(d);
  ASSERT_EQ(reader.status(), MfcDumpReader::Status::done) << reader.reason();
  ASSERT_EQ(reader.entries().size(), 1u);
  const MfcEntry expected{1000, kSource, kGroup, 7, {3, 9, 4}, uint64_t{1} << 40, uint64_t{5} << 40,
                          3};
  EXPECT_EQ(reader.entries()[0], expected);
}

TEST(CraftedRoute, UnresolvedEntryHasNoInterfacesAndTheHeaderTable) {
  // The kernel sends unresolved entries with only table, source and group.
  auto reader = readCrafted(oneRoute([](MessageBuilder& b) { b.addrAttr(RTA_DST, kGroup); }));
  ASSERT_EQ(reader.status(), MfcDumpReader::Status::done) << reader.reason();
  ASSERT_EQ(reader.entries().size(), 1u);
  const MfcEntry expected{RT_TABLE_DEFAULT, 0, kGroup, 0, {}, 0, 0, 0};
  EXPECT_EQ(reader.entries()[0], expected);
}

TEST(CraftedRoute, NestedFlagAndUnknownAttributesAreAccepted) {
  const auto d = oneRoute([](MessageBuilder& b) {
    b.addrAttr(RTA_DST, kGroup);
    rtnexthop nh{sizeof(rtnexthop), 0, 1, 5};
    b.attr(RTA_MULTIPATH | NLA_F_NESTED, &nh, sizeof(nh));
    const char future[3] = {1, 2, 3};
    b.attr(200, future, sizeof(future));  // odd length: padding follows
  });
  auto reader = readCrafted(d);
  ASSERT_EQ(reader.status(), MfcDumpReader::Status::done) << reader.reason();
  EXPECT_EQ(reader.entries()[0].oifIndexes, std::vector<int>{5});
}

TEST(CraftedRoute, OtherFamiliesAndTypesArePassedOver) {
  MfcDumpReader reader(1);
  reader.feed(oneRoute([](MessageBuilder& b) { b.addrAttr(RTA_DST, kGroup); }, AF_INET));
  reader.feed(MessageBuilder().header(RTM_NEWLINK, 1).route().finish().datagram());
  reader.feed(MessageBuilder().header(NLMSG_NOOP, 1).finish().datagram());
  const int ack = 0;
  reader.feed(MessageBuilder().header(NLMSG_ERROR, 1).raw(&ack, 4).finish().datagram());
  EXPECT_EQ(reader.feed(Testing::doneMessage(1)), MfcDumpReader::Status::done);
  EXPECT_TRUE(reader.entries().empty());
  EXPECT_EQ(reader.skipped(), 3u);
}

TEST(CraftedRoute, InterruptedDumpIsFlagged) {
  MfcDumpReader reader(1);
  MessageBuilder b;
  b.header(RTM_NEWROUTE, 1, NLM_F_MULTI | NLM_F_DUMP_INTR).route().addrAttr(RTA_DST, kGroup);
  reader.feed(b.finish().datagram());
  reader.feed(Testing::doneMessage(1));
  EXPECT_EQ(reader.status(), MfcDumpReader::Status::done);
  EXPECT_TRUE(reader.interrupted());
}

struct Refusal {
  const char* name;
  std::function<Bytes()> datagram;
  const char* reasonHas;
};

void PrintTo(const Refusal& r, std::ostream* os) {
  *os << r.name;
}

class CraftedRefusal : public testing::TestWithParam<Refusal> {};

TEST_P(CraftedRefusal, RefusesWithReasonAndKeepsNothing) {
  MfcDumpReader reader(1);
  // A good entry first: a refusal later in the dump must drop it too.
  reader.feed(oneRoute([](MessageBuilder& b) { b.addrAttr(RTA_DST, kGroup); }));
  ASSERT_EQ(reader.entries().size(), 1u);
  EXPECT_EQ(reader.feed(GetParam().datagram()), MfcDumpReader::Status::refused);
  EXPECT_TRUE(reader.entries().empty());
  EXPECT_NE(reader.reason().find(GetParam().reasonHas), std::string::npos) << reader.reason();
  // Nothing after a refusal is read.
  EXPECT_EQ(reader.feed(Testing::doneMessage(1)), MfcDumpReader::Status::refused);
}

Bytes withLength(Bytes d, uint32_t len) {
  std::memcpy(d.data(), &len, 4);
  return d;
}

const Refusal kRefusals[] = {
    {"ShortHeader", [] { return Bytes(10, 0); }, "netlink message truncated"},
    {"LengthBeyondDatagram",
     [] {
       return withLength(oneRoute([](MessageBuilder& b) { b.addrAttr(RTA_DST, kGroup); }), 400);
     },
     "outside"},
    {"LengthBelowHeader",
     [] { return withLength(oneRoute([](MessageBuilder& b) { b.addrAttr(RTA_DST, kGroup); }), 8); },
     "outside"},
    {"ShortRtmsg",
     [] { return MessageBuilder().header(RTM_NEWROUTE, 1).raw("\x80\0\0", 4).finish().datagram(); },
     "rtmsg needs"},
    {"AttributeBeyondMessage",
     [] {
       MessageBuilder b;
       b.header(RTM_NEWROUTE, 1).route();
       const uint16_t attr[2] = {64, RTA_DST};
       return b.raw(attr, 4).raw("\xef\x01\x01\x01", 4).finish().datagram();
     },
     "route attribute length 64"},
    {"AttributeShorterThanHeader",
     [] {
       MessageBuilder b;
       b.header(RTM_NEWROUTE, 1).route();
       const uint16_t attr[2] = {2, RTA_DST};
       return b.raw(attr, 4).finish().datagram();
     },
     "route attribute length 2"},
    {"Ipv6SizedGroup",
     [] {
       return oneRoute([](MessageBuilder& b) {
         const uint8_t v6[16] = {0xff, 0x0e};
         b.attr(RTA_DST, v6, sizeof(v6));
       });
     },
     "RTA_DST of 16 bytes"},
    {"ShortIif",
     [] {
       return oneRoute(
           [](MessageBuilder& b) { b.addrAttr(RTA_DST, kGroup).attr(RTA_IIF, "\1\0", 2); });
     },
     "RTA_IIF of 2 bytes"},
    {"ShortStats",
     [] {
       return oneRoute([](MessageBuilder& b) {
         const uint64_t two[2] = {1, 2};
         b.addrAttr(RTA_DST, kGroup).attr(RTA_MFC_STATS, two, sizeof(two));
       });
     },
     "RTA_MFC_STATS of 16 bytes"},
    {"NexthopShorterThanItsHeader",
     [] {
       return oneRoute([](MessageBuilder& b) {
         rtnexthop nh{4, 0, 1, 5};
         b.addrAttr(RTA_DST, kGroup).attr(RTA_MULTIPATH, &nh, sizeof(nh));
       });
     },
     "rtnexthop length 4"},
    {"NexthopCutShort",
     [] {
       return oneRoute([](MessageBuilder& b) {
         rtnexthop nh[2] = {{8, 0, 1, 5}, {8, 0, 1, 6}};
         b.addrAttr(RTA_DST, kGroup).attr(RTA_MULTIPATH, nh, 12);
       });
     },
     "rtnexthop truncated"},
    {"NoGroup", [] { return oneRoute([](MessageBuilder& b) { b.addrAttr(RTA_SRC, kSource); }); },
     "without a group"},
    {"KernelError",
     [] {
       const int error = -EPERM;
       return MessageBuilder().header(NLMSG_ERROR, 1).raw(&error, 4).finish().datagram();
     },
     "Operation not permitted"},
    {"ErrorWithoutCode",
     [] { return MessageBuilder().header(NLMSG_ERROR, 1).raw("\0", 2).finish().datagram(); },
     "without an error code"},
    {"NonsenseErrorCode",
     [] {
       const int error = INT32_MIN;
       return MessageBuilder().header(NLMSG_ERROR, 1).raw(&error, 4).finish().datagram();
     },
     "error code -2147483648"},
    {"DoneWithError", [] { return Testing::doneMessage(1, -EMSGSIZE); }, "dump ended with error"},
};

INSTANTIATE_TEST_SUITE_P(Malformed, CraftedRefusal, testing::ValuesIn(kRefusals),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(DumpRequest, AsksForEveryIpmrTable) {
  const auto request = mfcDumpRequest(77);
  ASSERT_EQ(request.size(), NLMSG_LENGTH(sizeof(rtmsg)));
  nlmsghdr h;
  rtmsg r;
  std::memcpy(&h, request.data(), sizeof(h));
  std::memcpy(&r, request.data() + NLMSG_HDRLEN, sizeof(r));
  EXPECT_EQ(h.nlmsg_len, request.size());
  EXPECT_EQ(h.nlmsg_type, RTM_GETROUTE);
  EXPECT_EQ(h.nlmsg_flags, NLM_F_REQUEST | NLM_F_DUMP);
  EXPECT_EQ(h.nlmsg_seq, 77u);
  EXPECT_EQ(r.rtm_family, kFamilyIpmr);
  EXPECT_EQ(r.rtm_table, 0);  // 0: every table
}

}  // namespace
}  // namespace PimSnmpFrr::Kernel
