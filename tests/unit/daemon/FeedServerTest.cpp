#include <gtest/gtest.h>

#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <string>
#include <vector>

#include "daemon/FeedServer.h"
#include "daemon/Poller.h"
#include "tests/unit/daemon/DaemonTestUtil.h"

namespace PimSnmpd {
namespace {

using DaemonTest::LineClient;
using DaemonTest::TempDir;

// A server that answers "<client>:<line>" and records what it was given.
class FeedServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    server_ = std::make_unique<FeedServer>(
        poller_,
        [this](uint64_t client, std::string_view line) {
          seen_.emplace_back(line);
          return std::to_string(client) + ":" + std::string(line);
        },
        1024);
    std::string error;
    ASSERT_TRUE(server_->listen(path_, 0600, error)) << error;
  }

  std::function<void()> pump() {
    return [this] { poller_.dispatch(0); };
  }

  TempDir dir_;
  std::string path_ = dir_.file("feed.sock");
  Poller poller_;
  std::unique_ptr<FeedServer> server_;
  std::vector<std::string> seen_;
};

TEST_F(FeedServerTest, AnswersEveryLineInOrderWhateverTheChunking) {
  LineClient c(path_);
  ASSERT_TRUE(c.connected());
  // Pipelined lines, one split across writes, CRLF, and blank lines that get no reply.
  c.send("one\ntw");
  EXPECT_EQ(c.readLine(pump()), "1:one");
  c.send("o\r\n\n   \nthree\n");
  EXPECT_EQ(c.readLine(pump()), "1:two");
  EXPECT_EQ(c.readLine(pump()), "1:three");
  EXPECT_EQ(seen_, (std::vector<std::string>{"one", "two", "three"}));
  EXPECT_EQ(server_->stats().lines, 3u);
}

TEST_F(FeedServerTest, KeepsClientsApart) {
  LineClient a(path_);
  LineClient b(path_);
  a.send("from a, part 1 ");
  b.send("from b\n");
  EXPECT_EQ(b.readLine(pump()), "2:from b");
  a.send("and 2\n");
  EXPECT_EQ(a.readLine(pump()), "1:from a, part 1 and 2");
  EXPECT_EQ(server_->clientCount(), 2u);
}

TEST_F(FeedServerTest, AnswersAnOverlongLineOnceAndCarriesOn) {
  LineClient c(path_);
  std::string big(3000, 'x');
  // Sent in pieces: the refusal must not wait for the end of the line.
  c.send(big.substr(0, 1500));
  c.send(big.substr(1500) + "\nnext\n");
  const auto reply = c.readLine(pump());
  ASSERT_TRUE(reply);
  EXPECT_NE(reply->find("line longer than 1024 bytes"), std::string::npos) << *reply;
  EXPECT_EQ(c.readLine(pump()), "1:next");
  EXPECT_EQ(seen_, std::vector<std::string>{"next"});
  EXPECT_EQ(server_->stats().oversize, 1u);
}

TEST_F(FeedServerTest, TakesALastLineWithoutNewlineAtEndOfInput) {
  LineClient c(path_);
  c.send("first\nlast");
  c.shutdownWrite();
  EXPECT_EQ(c.readLine(pump()), "1:first");
  EXPECT_EQ(c.readLine(pump()), "1:last");
  // Once every reply is out, the server closes its side.
  EXPECT_TRUE(c.closedByServer(pump()));
  EXPECT_EQ(server_->clientCount(), 0u);
}

TEST_F(FeedServerTest, ForgetsAClientThatGoesAway) {
  {
    LineClient c(path_);
    c.send("x\n");
    EXPECT_EQ(c.readLine(pump()), "1:x");
  }
  for (int i = 0; i < 50 && server_->clientCount() > 0; ++i) poller_.dispatch(10);
  EXPECT_EQ(server_->clientCount(), 0u);
}

TEST_F(FeedServerTest, TheSocketFileHasTheGivenModeUntilClosingRemovesItAndTheClients) {
  struct stat st {};
  ASSERT_EQ(lstat(path_.c_str(), &st), 0);
  EXPECT_TRUE(S_ISSOCK(st.st_mode));
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  LineClient c(path_);
  c.send("x\n");
  EXPECT_EQ(c.readLine(pump()), "1:x");
  server_->close();
  EXPECT_FALSE(std::filesystem::exists(path_));
  EXPECT_EQ(server_->clientCount(), 0u);
  EXPECT_EQ(poller_.size(), 0u);
}

// A server whose `big` lines get a reply of `bigReply` bytes and every other line a 1 KiB one,
// with a small unsent limit.
class FeedServerUnreadTest : public ::testing::Test {
 protected:
  static constexpr size_t kLimit = size_t{64} << 10;

  void SetUp() override {
    server_ = std::make_unique<FeedServer>(poller_, [this](uint64_t, std::string_view line) {
      ++handled_;
      return std::string(line == "big" ? bigReply_ : 1024, 'r');
    });
    server_->unsentLimitIs(kLimit);
    std::string error;
    ASSERT_TRUE(server_->listen(path_, 0600, error)) << error;
  }

  // Runs the server until it has accepted the client and dropped it, or `rounds` rounds pass.
  void pumpUntilDropped(int rounds = 200) {
    for (int i = 0; i < rounds && server_->stats().accepted == 0; ++i) poller_.dispatch(10);
    for (int i = 0; i < rounds && server_->clientCount() > 0; ++i) poller_.dispatch(10);
  }
  std::function<void()> pump() {
    return [this] { poller_.dispatch(0); };
  }
  static std::string lines(size_t n, const std::string& line) {
    std::string out;
    for (size_t i = 0; i < n; ++i) out += line + "\n";
    return out;
  }

  TempDir dir_;
  std::string path_ = dir_.file("feed.sock");
  Poller poller_;
  std::unique_ptr<FeedServer> server_;
  size_t bigReply_ = size_t{4} << 20;
  size_t handled_ = 0;
};

TEST_F(FeedServerUnreadTest, DisconnectsAClientThatDoesNotReadItsRepliesAndLogsIt) {
  LineClient c(path_);
  // 4 MiB of replies asked for in 8 KiB; the client never reads.
  c.send(lines(4096, "x"));
  testing::internal::CaptureStderr();
  pumpUntilDropped();
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_EQ(server_->clientCount(), 0u);
  EXPECT_EQ(server_->stats().unreadDisconnects, 1u);
  // It stopped handling the client's lines once over the limit.
  EXPECT_LT(handled_, 1024u);
  EXPECT_NE(log.find("feed client 1:"), std::string::npos) << log;
  EXPECT_NE(log.find("disconnecting"), std::string::npos) << log;
}

TEST_F(FeedServerUnreadTest, DisconnectsOnTwoLargeRepliesLeftUnread) {
  // One large reply may wait; a second one behind it is over the limit.
  LineClient c(path_);
  c.send("big\nbig\n");
  testing::internal::CaptureStderr();
  pumpUntilDropped();
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(server_->clientCount(), 0u);
  EXPECT_EQ(server_->stats().unreadDisconnects, 1u);
}

TEST_F(FeedServerUnreadTest, KeepsAClientThatReadsALargeReplySlowly) {
  LineClient c(path_);
  // The large reply and small ones behind it, all pending while the client is slow.
  c.send("big\n" + lines(16, "x"));
  for (int i = 0; i < 20; ++i) poller_.dispatch(10);
  EXPECT_EQ(server_->clientCount(), 1u);
  const auto big = c.readLine(pump());
  ASSERT_TRUE(big);
  EXPECT_EQ(big->size(), bigReply_);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(c.readLine(pump()), std::string(1024, 'r'));
  EXPECT_EQ(server_->stats().unreadDisconnects, 0u);
  EXPECT_EQ(server_->clientCount(), 1u);
}

TEST_F(FeedServerUnreadTest, KeepsAClientThatReadsAsItGoes) {
  LineClient c(path_);
  // Far more replies in all than the limit, read in step with the lines sent.
  for (int round = 0; round < 64; ++round) {
    c.send(lines(32, "x"));
    for (int i = 0; i < 32; ++i) ASSERT_EQ(c.readLine(pump()), std::string(1024, 'r'));
  }
  EXPECT_EQ(handled_, 64u * 32u);
  EXPECT_EQ(server_->clientCount(), 1u);
  EXPECT_EQ(server_->stats().unreadDisconnects, 0u);
}

TEST(FeedServerListen, ReplacesAStaleSocketButNotALiveOneOrAFile) {
  TempDir dir;
  Poller poller;
  auto echo = [](uint64_t, std::string_view l) { return std::string(l); };
  std::string error;

  // A socket file whose listener is gone.
  const std::string stale = dir.file("stale.sock");
  {
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, stale.c_str(), sizeof(addr.sun_path) - 1);
    ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
    ::close(fd);
  }
  FeedServer a(poller, echo);
  EXPECT_TRUE(a.listen(stale, 0600, error)) << error;

  // The same path while `a` listens.
  FeedServer b(poller, echo);
  EXPECT_FALSE(b.listen(stale, 0600, error));
  EXPECT_NE(error.find("in use"), std::string::npos) << error;
  EXPECT_TRUE(std::filesystem::exists(stale));

  const std::string plain = dir.file("plain");
  DaemonTest::writeFile(plain, "keep me");
  EXPECT_FALSE(b.listen(plain, 0600, error));
  EXPECT_NE(error.find("not a socket"), std::string::npos) << error;
  EXPECT_EQ(DaemonTest::readFile(plain), "keep me");

  EXPECT_FALSE(b.listen(dir.file(std::string(200, 'p')), 0600, error));
}

TEST(Poller, DropsEventsOfADescriptorRemovedInTheSameRound) {
  Poller poller;
  int a[2];
  int b[2];
  ASSERT_EQ(pipe(a), 0);
  ASSERT_EQ(pipe(b), 0);
  ASSERT_EQ(::write(a[1], "x", 1), 1);
  ASSERT_EQ(::write(b[1], "x", 1), 1);
  int calls = 0;
  // Whichever runs first removes the other; the other's queued event must not run.
  poller.add(a[0], EPOLLIN, [&](uint32_t) {
    ++calls;
    poller.remove(b[0]);
    poller.remove(a[0]);
  });
  poller.add(b[0], EPOLLIN, [&](uint32_t) {
    ++calls;
    poller.remove(a[0]);
    poller.remove(b[0]);
  });
  EXPECT_EQ(poller.dispatch(100), 1);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(poller.size(), 0u);
  for (int fd : {a[0], a[1], b[0], b[1]}) ::close(fd);
}

}  // namespace
}  // namespace PimSnmpd
