#include <gtest/gtest.h>

#include <string>

#include "daemon/ConfigFile.h"
#include "daemon/VrfTrapSinks.h"
#include "tests/unit/daemon/DaemonTestUtil.h"

namespace PimSnmpd {
namespace {

TEST(ConfigFile, SaysWhyAFileCannotBeRead) {
  DaemonTest::TempDir dir;
  const std::string conf = dir.file("pimsnmpd.conf");
  EXPECT_EQ(configUnreadable(conf), "does not exist");
  DaemonTest::writeFile(conf, "rocommunity public 127.0.0.1\n");
  EXPECT_EQ(configUnreadable(conf), std::nullopt);
  // An empty file is a valid (empty) configuration.
  DaemonTest::writeFile(dir.file("empty.conf"), "");
  EXPECT_EQ(configUnreadable(dir.file("empty.conf")), std::nullopt);
  EXPECT_EQ(configUnreadable(dir.path()), "is a directory");
  const auto under = configUnreadable(conf + "/x");
  ASSERT_TRUE(under);
  EXPECT_TRUE(under->starts_with("cannot be read: ")) << *under;
}

TEST(VrfTrapSinks, LineTakesAnAddressAndACommunityPrefix) {
  std::string error;
  const auto sink = VrfTrapSinks::parse("  127.0.0.1:1162\tpublic  ", error);
  ASSERT_TRUE(sink) << error;
  EXPECT_EQ(sink->address, "127.0.0.1:1162");
  EXPECT_EQ(sink->prefix, "public");
  const auto v6 = VrfTrapSinks::parse("udp6:[::1]:162 traps", error);
  ASSERT_TRUE(v6) << error;
  EXPECT_EQ(v6->address, "udp6:[::1]:162");
  for (const char* wrong : {"", "   ", "127.0.0.1", "127.0.0.1 public extra"}) {
    error.clear();
    EXPECT_FALSE(VrfTrapSinks::parse(wrong, error)) << wrong;
    EXPECT_FALSE(error.empty()) << wrong;
  }
}

}  // namespace
}  // namespace PimSnmpd
