// The vty client against a fake daemon: framing, status, timeouts and the forbidden commands.

#include <gtest/gtest.h>

#include "pimsnmp-frr/Vty.h"
#include "tests/unit/frr/FrrTestUtil.h"

namespace {

using namespace std::chrono_literals;
using PimSnmpFrr::isForbiddenCommand;
using PimSnmpFrr::VtyClient;

const std::string kTrailer("\0\0\0\0", 4);

TEST(VtyTest, ForbiddenCommandsInEveryVrfForm) {
  EXPECT_TRUE(isForbiddenCommand("show ip pim interface detail json"));
  EXPECT_TRUE(isForbiddenCommand("show ip pim vrf all interface detail json"));
  EXPECT_TRUE(isForbiddenCommand("show  ip pim vrf red   interface detail"));
  EXPECT_TRUE(isForbiddenCommand("show ip pim bsm-database json"));
  EXPECT_TRUE(isForbiddenCommand("show ip pim vrf default bsm-database"));
  EXPECT_FALSE(isForbiddenCommand("show ip pim interface r1-r2 json"));
  EXPECT_FALSE(isForbiddenCommand("show ip pim interface detailed-thing json"));
  EXPECT_FALSE(isForbiddenCommand("show ip pim vrf all interface json"));
}

TEST(VtyTest, ForbiddenCommandsNeverReachTheDaemon) {
  const std::string path = FrrTest::tempSocket("pimd.vty");
  FrrTest::UnixServer server(path, '\0', [](const std::string&) { return "{}" + kTrailer; });
  VtyClient vty(path, 2000ms);
  for (const auto f : PimSnmpFrr::kForbiddenCommands) {
    EXPECT_FALSE(vty.run(std::string(f) + " json"));
  }
  EXPECT_TRUE(vty.run("show ip pim neighbor json"));
  EXPECT_EQ(server.requests(), std::vector<std::string>{"show ip pim neighbor json"});
}

TEST(VtyTest, OneSessionManyCommandsWithStatus) {
  const std::string path = FrrTest::tempSocket("pimd.vty");
  FrrTest::UnixServer server(path, '\0', [](const std::string& c) {
    if (c == "big") return std::string(3 << 20, 'x') + kTrailer;  // more than one read
    if (c == "bad") return "% Unknown command\n" + std::string("\0\0\0\2", 4);
    return "answer to " + c + kTrailer;
  });
  VtyClient vty(path, 2000ms);
  const auto a = vty.run("one");
  ASSERT_TRUE(a);
  EXPECT_EQ(a->text, "answer to one");
  EXPECT_EQ(a->status, 0);
  const auto big = vty.run("big");
  ASSERT_TRUE(big);
  EXPECT_EQ(big->text.size(), 3u << 20);
  const auto bad = vty.run("bad");
  ASSERT_TRUE(bad);
  EXPECT_EQ(bad->status, 2);
  EXPECT_TRUE(vty.connected());  // a failed command keeps the session
  EXPECT_EQ(vty.run("two")->text, "answer to two");
}

TEST(VtyTest, SilentDaemonTimesOutAndClosesTheSession) {
  const std::string path = FrrTest::tempSocket("pimd.vty");
  // The answer never ends with the trailer.
  FrrTest::UnixServer server(path, '\0', [](const std::string&) { return std::string("partial"); });
  VtyClient vty(path, 200ms);
  const auto t0 = std::chrono::steady_clock::now();
  EXPECT_FALSE(vty.run("show ip pim neighbor json"));
  EXPECT_LT(std::chrono::steady_clock::now() - t0, 2s);
  EXPECT_FALSE(vty.connected());
}

TEST(VtyTest, NoDaemonNoSession) {
  VtyClient vty(FrrTest::tempSocket("absent.vty"), 200ms);
  EXPECT_FALSE(vty.connect());
  EXPECT_FALSE(vty.run("show ip pim neighbor json"));
}

TEST(VtyTest, DaemonGoingAwayClosesTheSession) {
  const std::string path = FrrTest::tempSocket("pimd.vty");
  auto server = std::make_unique<FrrTest::UnixServer>(
      path, '\0', [](const std::string&) { return "ok" + kTrailer; });
  VtyClient vty(path, 500ms);
  EXPECT_TRUE(vty.run("a"));
  server.reset();
  EXPECT_FALSE(vty.run("b"));
  EXPECT_FALSE(vty.connected());
}

}  // namespace
