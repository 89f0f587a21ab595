#include <gtest/gtest.h>

#include <fmt/format.h>
#include <sys/stat.h>

#include <thread>

#include "daemon/Excerpt.h"
#include "daemon/StateKeeper.h"
#include "platform/SnmpUtil/SnmpUtil.h"
#include "tests/unit/daemon/DaemonTestUtil.h"

namespace PimSnmpd {
namespace {

class StateKeeperTest : public ::testing::Test {
 protected:
  SnmpUtil::ScopedEntityRoot root_{Ent::make<Ent::Dir>("root")};
  PlatformState platform_{SnmpUtil::entityRoot()};
  StateKeeper keeper_{platform_};
};

TEST_F(StateKeeperTest, RefusesAnInvalidPatchWithoutChangingAnything) {
  ASSERT_TRUE(keeper_.applyDocumentText(DaemonTest::testDocument(), "demo").ok);
  const Json before = keeper_.document().json();
  const size_t fibRoutes =
      platform_.fibTable(Lanet::AddressFamily::ipv4, L3::VrfName("red"))->route().size();

  // Removing an interface that routes still use, together with a valid change.
  const ApplyResult r = keeper_.applyPatchText(
      R"({"interfaces":{"Vlan101":null},"vrfs":{"red":{"ipv4":{"fib":{"routes":{"172.16.0.50,239.9.9.9":null}}}}}})",
      "feed client 7");
  EXPECT_FALSE(r.ok);
  ASSERT_FALSE(r.errors.empty());
  EXPECT_EQ(keeper_.document().json(), before);
  EXPECT_EQ(platform_.fibTable(Lanet::AddressFamily::ipv4, L3::VrfName("red"))->route().size(),
            fibRoutes);
  ASSERT_EQ(keeper_.refusals().size(), 1u);
  EXPECT_EQ(keeper_.refusals().back().source, "feed client 7");
  EXPECT_EQ(keeper_.refusals().back().errors, r.errors);
  EXPECT_EQ(errorsToJson(r.errors)[0]["path"], r.errors[0].path) << "as replies and status show it";
}

TEST_F(StateKeeperTest, KeepsOnlyTheLatestRefusals) {
  for (size_t i = 0; i < StateKeeper::kKeptRefusals + 5; ++i) {
    keeper_.applyPatchText("[" + std::to_string(i) + "]", "client " + std::to_string(i));
  }
  EXPECT_EQ(keeper_.refused(), StateKeeper::kKeptRefusals + 5);
  ASSERT_EQ(keeper_.refusals().size(), StateKeeper::kKeptRefusals);
  EXPECT_EQ(keeper_.refusals().front().source, "client 5");
  EXPECT_EQ(keeper_.refusals().back().source,
            "client " + std::to_string(StateKeeper::kKeptRefusals + 4));
}

// A patch adding routes to VRF red whose keys are `count` malformed keys of `size` bytes.
std::string badRoutes(size_t count, size_t size) {
  Json routes = Json::object();
  for (size_t i = 0; i < count; ++i) {
    routes[std::to_string(i) + std::string(size, 'k') + ",239.1.1.1"] = Json::object();
  }
  return Json{{"vrfs", {{"red", {{"ipv4", {{"routes", routes}}}}}}}}.dump();
}

bool bounded(const ValidationErrors& errors) {
  for (const ValidationError& e : errors) {
    if (e.path.size() > kMaxExcerpt + 32 || e.reason.size() > kMaxExcerpt + 32) return false;
  }
  return true;
}

TEST_F(StateKeeperTest, QuotesOnlyAnExcerptOfAHugeMemberInReplyStatusAndLog) {
  ASSERT_TRUE(keeper_.applyDocumentText(DaemonTest::testDocument(), "demo").ok);
  testing::internal::CaptureStderr();
  const ApplyResult r = keeper_.applyPatchText(badRoutes(1, 1 << 20), "feed client 9");
  const std::string log = testing::internal::GetCapturedStderr();
  ASSERT_FALSE(r.ok);
  ASSERT_EQ(r.errors.size(), 1u);
  EXPECT_TRUE(bounded(r.errors));
  // The path and the reason each still say where and why.
  EXPECT_TRUE(r.errors[0].path.starts_with("/vrfs/red/ipv4/routes/0kkk")) << r.errors[0].path;
  EXPECT_NE(r.errors[0].path.find("bytes left out"), std::string::npos);
  EXPECT_TRUE(r.errors[0].reason.ends_with("' is not an IP address")) << r.errors[0].reason;
  EXPECT_EQ(keeper_.refusals().back().errors, r.errors);
  EXPECT_LT(log.size(), 1024u) << log.substr(0, 2048);
  EXPECT_NE(log.find("feed client 9"), std::string::npos) << log;
  EXPECT_NE(log.find("bytes left out"), std::string::npos) << log;
}

TEST_F(StateKeeperTest, LogsTheFirstErrorsAndCountsTheRest) {
  ASSERT_TRUE(keeper_.applyDocumentText(DaemonTest::testDocument(), "demo").ok);
  testing::internal::CaptureStderr();
  const ApplyResult r = keeper_.applyPatchText(badRoutes(40, 8), "t");
  const std::string log = testing::internal::GetCapturedStderr();
  ASSERT_EQ(r.errors.size(), 40u);
  EXPECT_NE(log.find(fmt::format("and {} more", 40 - StateKeeper::kLoggedErrors)),
            std::string::npos)
      << log;
  size_t named = 0;
  for (size_t at = log.find("is not an IP address"); at != std::string::npos;
       at = log.find("is not an IP address", at + 1)) {
    ++named;
  }
  EXPECT_EQ(named, StateKeeper::kLoggedErrors);
}

TEST_F(StateKeeperTest, BoundsTheKeptRefusalsInBytes) {
  ASSERT_TRUE(keeper_.applyDocumentText(DaemonTest::testDocument(), "demo").ok);
  // Each refusal carries the most errors validation reports, each quoting a long key.
  const std::string patch = badRoutes(kMaxReportedErrors + 20, 4000);
  for (size_t i = 0; i < StateKeeper::kKeptRefusals; ++i) {
    testing::internal::CaptureStderr();
    const ApplyResult r = keeper_.applyPatchText(patch, "client " + std::to_string(i));
    testing::internal::GetCapturedStderr();
    ASSERT_FALSE(r.ok);
    // The reply itself has every reported error, excerpted.
    EXPECT_GE(r.errors.size(), kMaxReportedErrors);
    EXPECT_TRUE(bounded(r.errors));
  }
  EXPECT_EQ(keeper_.refused(), StateKeeper::kKeptRefusals);
  // The byte budget, not the count, decided what stays; the newest always does.
  EXPECT_LT(keeper_.refusals().size(), StateKeeper::kKeptRefusals);
  EXPECT_GE(keeper_.refusals().size(), 2u);
  EXPECT_EQ(keeper_.refusals().back().source,
            "client " + std::to_string(StateKeeper::kKeptRefusals - 1));
  size_t bytes = 0;
  Json all = Json::array();
  for (const StateKeeper::Refusal& k : keeper_.refusals()) {
    bytes += k.bytes;
    EXPECT_TRUE(k.errors.back().reason.ends_with("more error(s) not kept"))
        << k.errors.back().reason;
    all.push_back({{"time", k.time}, {"source", k.source}, {"errors", errorsToJson(k.errors)}});
  }
  EXPECT_EQ(bytes, keeper_.refusalBytes());
  EXPECT_LE(keeper_.refusalBytes(), StateKeeper::kKeptRefusalBytes);
  // What the status report shows of them.
  EXPECT_LE(all.dump().size(), StateKeeper::kKeptRefusalBytes + StateKeeper::kKeptRefusals * 64);
}

TEST_F(StateKeeperTest, LoadsAFileAndRefusesAMissingOne) {
  DaemonTest::TempDir dir;
  const std::string path = dir.file("state.json");
  DaemonTest::writeFile(path, DaemonTest::testDocument());
  EXPECT_TRUE(keeper_.loadFile(path).ok);
  EXPECT_TRUE(keeper_.document().json()["vrfs"].contains("blue6"));

  // Read whole past many read chunks, and from a FIFO, whose size is not known beforehand.
  // Leading padding: the document's end is in the last, partial chunk.
  const std::string padded = std::string(300'001, ' ') + DaemonTest::testDocument();
  DaemonTest::writeFile(path, padded);
  EXPECT_TRUE(keeper_.loadFile(path).ok);
  const std::string fifo = dir.file("state.fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  std::thread writer([&] { DaemonTest::writeFile(fifo, padded); });
  const ApplyResult fromFifo = keeper_.loadFile(fifo);
  writer.join();
  EXPECT_TRUE(fromFifo.ok) << (fromFifo.errors.empty() ? "" : fromFifo.errors[0].reason);

  const ApplyResult r = keeper_.loadFile(dir.file("missing.json"));
  EXPECT_FALSE(r.ok);
  EXPECT_TRUE(keeper_.document().json()["vrfs"].contains("blue6"));
  EXPECT_EQ(keeper_.refusals().back().source, "state file " + dir.file("missing.json"));
}

TEST_F(StateKeeperTest, AWholeDocumentReplacesPatchedState) {
  ASSERT_TRUE(keeper_.applyDocumentText(DaemonTest::testDocument(), "demo").ok);
  ASSERT_TRUE(keeper_.applyPatchText(R"({"vrfs":{"red":null}})", "t").ok);
  EXPECT_FALSE(platform_.fibTable(Lanet::AddressFamily::ipv4, L3::VrfName("red")));
  ASSERT_TRUE(keeper_.applyDocumentText(DaemonTest::testDocument(), "demo").ok);
  EXPECT_TRUE(platform_.fibTable(Lanet::AddressFamily::ipv4, L3::VrfName("red")));
  EXPECT_EQ(keeper_.applied(), 3u);
  EXPECT_EQ(keeper_.refused(), 0u);
}

}  // namespace
}  // namespace PimSnmpd
