#include <gtest/gtest.h>

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

TEST_F(StateKeeperTest, AppliesAValidPatch) {
  const ApplyResult r =
      keeper_.applyPatchText(R"({"interfaces":{"Ethernet1":{"ifIndex":1}}})", "test");
  EXPECT_TRUE(r.ok);
  EXPECT_EQ(keeper_.document().json()["interfaces"]["Ethernet1"]["ifIndex"], 1);
  EXPECT_EQ(keeper_.applied(), 1u);
  EXPECT_EQ(keeper_.refused(), 0u);
}

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
}

TEST_F(StateKeeperTest, NamesTheJsonPathOfABadValue) {
  ASSERT_TRUE(keeper_.applyDocumentText(DaemonTest::testDocument(), "demo").ok);
  const ApplyResult r = keeper_.applyPatchText(
      R"({"vrfs":{"red":{"ipv4":{"pimConfig":{"joinPruneInterval":70000}}}}})", "t");
  ASSERT_FALSE(r.ok);
  ASSERT_EQ(r.errors.size(), 1u);
  EXPECT_EQ(r.errors[0].path, "/vrfs/red/ipv4/pimConfig/joinPruneInterval");
  EXPECT_NE(r.errors[0].reason.find("out of range"), std::string::npos) << r.errors[0].reason;

  const Json j = errorsToJson(r.errors);
  ASSERT_TRUE(j.is_array());
  EXPECT_EQ(j[0]["path"], "/vrfs/red/ipv4/pimConfig/joinPruneInterval");
}

TEST_F(StateKeeperTest, RefusesTextThatIsNotJson) {
  const ApplyResult r = keeper_.applyPatchText("{\"interfaces\": ", "t");
  EXPECT_FALSE(r.ok);
  ASSERT_FALSE(r.errors.empty());
  EXPECT_EQ(r.errors[0].path, "");
  EXPECT_EQ(keeper_.document().json(), Json::object());
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

TEST_F(StateKeeperTest, LoadsAFileAndRefusesAMissingOne) {
  DaemonTest::TempDir dir;
  const std::string path = dir.file("state.json");
  DaemonTest::writeFile(path, DaemonTest::testDocument());
  EXPECT_TRUE(keeper_.loadFile(path).ok);
  EXPECT_TRUE(keeper_.document().json()["vrfs"].contains("blue6"));

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
}

}  // namespace
}  // namespace PimSnmpd
