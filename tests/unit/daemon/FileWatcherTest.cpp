#include <gtest/gtest.h>

#include <cstdio>
#include <vector>

#include "daemon/FileWatcher.h"
#include "daemon/Poller.h"
#include "tests/unit/daemon/DaemonTestUtil.h"

namespace PimSnmpd {
namespace {

using DaemonTest::TempDir;

class FileWatcherTest : public ::testing::Test {
 protected:
  void SetUp() override {
    DaemonTest::writeFile(path_, "v1");
    std::string error;
    ASSERT_TRUE(watcher_.watch(path_, error)) << error;
  }
  // Events seen within `ms` milliseconds.
  std::vector<FileWatcher::Event> settle(int ms = 200) {
    for (int waited = 0; waited < ms; waited += 20) poller_.dispatch(20);
    std::vector<FileWatcher::Event> out;
    out.swap(events_);
    return out;
  }

  TempDir dir_;
  std::string path_ = dir_.file("state.json");
  Poller poller_;
  std::vector<FileWatcher::Event> events_;
  FileWatcher watcher_{poller_, [this](FileWatcher::Event e) { events_.push_back(e); }};
  using E = FileWatcher::Event;
};

TEST_F(FileWatcherTest, SeesAWriteInPlace) {
  DaemonTest::writeFile(path_, "v2");
  EXPECT_EQ(settle(), std::vector<E>{E::changed});
}

TEST_F(FileWatcherTest, SeesARenameOverTheFile) {
  const std::string tmp = dir_.file(".state.json.tmp");
  DaemonTest::writeFile(tmp, "v2");
  // Writing the temporary is not a change of the followed file.
  EXPECT_TRUE(settle(100).empty());
  ASSERT_EQ(std::rename(tmp.c_str(), path_.c_str()), 0);
  EXPECT_EQ(settle(), std::vector<E>{E::changed});
}

TEST_F(FileWatcherTest, ReportsRemovalAndRecreation) {
  ASSERT_EQ(std::remove(path_.c_str()), 0);
  EXPECT_EQ(settle(), std::vector<E>{E::removed});
  DaemonTest::writeFile(path_, "v3");
  EXPECT_EQ(settle(), std::vector<E>{E::changed});
}

TEST_F(FileWatcherTest, IgnoresOtherFilesOfTheDirectory) {
  DaemonTest::writeFile(dir_.file("other.json"), "x");
  EXPECT_TRUE(settle(100).empty());
}

TEST_F(FileWatcherTest, StopsReporting) {
  watcher_.stop();
  EXPECT_EQ(poller_.size(), 0u);
  DaemonTest::writeFile(path_, "v2");
  EXPECT_TRUE(settle(100).empty());
}

TEST(FileWatcherWatch, FailsForAMissingDirectory) {
  Poller poller;
  FileWatcher w(poller, [](FileWatcher::Event) {});
  std::string error;
  EXPECT_FALSE(w.watch("/nonexistent-pimsnmp-dir/state.json", error));
  EXPECT_FALSE(error.empty());
  EXPECT_FALSE(w.watching());
}

}  // namespace
}  // namespace PimSnmpd
