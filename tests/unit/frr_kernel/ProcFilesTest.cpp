// /proc and /sys readers over a fake tree, and the VIF table over recorded text.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "KernelTestData.h"
#include "pimsnmp-frr/kernel/Kernel.h"
#include "pimsnmp-frr/kernel/ProcFiles.h"

namespace PimSnmpFrr::Kernel {
namespace {

namespace fs = std::filesystem;

class FakeTree : public testing::Test {
 protected:
  void SetUp() override {
    root_ =
        fs::temp_directory_path() / ("frr-kernel-" + std::to_string(::getpid()) + "-" +
                                     testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(root_);
  }
  void TearDown() override { fs::remove_all(root_); }

  void write(const std::string& relative, const std::string& text) {
    const auto path = root_ / relative;
    fs::create_directories(path.parent_path());
    std::ofstream(path) << text;
  }
  void netInterface(const std::string& name, const std::string& ifindex, const std::string& state) {
    write("sys/class/net/" + name + "/ifindex", ifindex);
    write("sys/class/net/" + name + "/operstate", state);
  }
  std::unique_ptr<Source> source() {
    LinuxSourceOptions options;
    options.procRoot = (root_ / "proc").string();
    options.sysRoot = (root_ / "sys").string();
    options.events = false;
    return makeLinuxSource(options);
  }

  fs::path root_;
};

TEST_F(FakeTree, VifsCarryTheirInterfacesCurrentIfindex) {
  write("proc/net/ip_mr_vif", Testing::readText(Testing::dataPath("lab-r1.vif")));
  netInterface("pimreg", "6\n", "unknown\n");
  netInterface("r1-h1", "2\n", "up\n");
  netInterface("r1-r2", "4\n", "up\n");
  netInterface("r1-bsr", "3\n", "up\n");
  // r1-r3 has gone: its VIF is still listed, without an ifindex.
  auto vifs = source()->vifs();
  const std::vector<Vif> expected{
      {0, "pimreg", 6}, {1, "r1-h1", 2}, {2, "r1-r2", 4}, {3, "r1-r3", 0}, {4, "r1-bsr", 3}};
  EXPECT_EQ(vifs, expected);
}

TEST_F(FakeTree, MissingFilesReadAsNothing) {
  auto s = source();
  EXPECT_TRUE(s->vifs().empty());
  EXPECT_EQ(s->operState("eth0"), "");
  EXPECT_EQ(s->ifIndex("eth0"), std::nullopt);
  EXPECT_FALSE(s->mcForwarding());
}

TEST_F(FakeTree, InterfaceFacts) {
  netInterface("eth0", "12\n", "lowerlayerdown\n");
  netInterface("eth1", "0\n", "up");
  netInterface("eth2", "12abc\n", "up");
  auto s = source();
  EXPECT_EQ(s->operState("eth0"), "lowerlayerdown");
  EXPECT_EQ(s->ifIndex("eth0"), 12);
  EXPECT_EQ(s->operState("eth1"), "up");  // no newline at the end
  EXPECT_EQ(s->ifIndex("eth1"), std::nullopt) << "ifindex 0 is no interface";
  EXPECT_EQ(s->ifIndex("eth2"), std::nullopt) << "trailing garbage";
}

TEST_F(FakeTree, NamesThatLeaveTheDirectoryAreNotRead) {
  write("sys/class/operstate", "up\n");
  write("sys/ifindex", "5\n");
  auto s = source();
  EXPECT_EQ(s->operState(".."), "");
  EXPECT_EQ(s->ifIndex("../.."), std::nullopt);
  EXPECT_EQ(s->ifIndex(""), std::nullopt);
}

TEST_F(FakeTree, McForwarding) {
  write("proc/sys/net/ipv4/conf/all/mc_forwarding", "1\n");
  EXPECT_TRUE(source()->mcForwarding());
  write("proc/sys/net/ipv4/conf/all/mc_forwarding", "0\n");
  EXPECT_FALSE(source()->mcForwarding());
  write("proc/sys/net/ipv4/conf/all/mc_forwarding", "yes\n");
  EXPECT_FALSE(source()->mcForwarding());
}

TEST(VifTable, DamagedLinesAreSkipped) {
  const auto vifs = parseVifTable(
      "Interface      BytesIn  PktsIn  BytesOut PktsOut Flags Local    Remote\n"
      " 0 pimreg            0       0         0       0 00004 00000000 00000000\n"
      " x eth9 0\n"
      "-1 eth8 0\n"
      " 3\n"
      " 4 a/b 0\n"
      "\n"
      "31 averyveryverylongname 0\n"
      " 7 r2-lan  240896    1882    287104    2243 00008 00000003 00000000");
  const std::vector<Vif> expected{{0, "pimreg", 0}, {7, "r2-lan", 0}};
  EXPECT_EQ(vifs, expected);
}

TEST(IfName, LinuxRules) {
  EXPECT_TRUE(validIfName("eth0"));
  EXPECT_TRUE(validIfName("r2-lan.100"));
  EXPECT_TRUE(validIfName("fifteen-chars-x"));
  EXPECT_FALSE(validIfName("sixteen-chars-xx"));
  EXPECT_FALSE(validIfName("."));
  EXPECT_FALSE(validIfName("a/b"));
  EXPECT_FALSE(validIfName("eth0:1"));
  EXPECT_FALSE(validIfName("a b"));
  EXPECT_FALSE(validIfName(std::string_view("a\0b", 3)));
}

}  // namespace
}  // namespace PimSnmpFrr::Kernel
