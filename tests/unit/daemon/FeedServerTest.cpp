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

TEST_F(FeedServerTest, CreatesTheSocketWithTheGivenMode) {
  struct stat st {};
  ASSERT_EQ(lstat(path_.c_str(), &st), 0);
  EXPECT_TRUE(S_ISSOCK(st.st_mode));
  EXPECT_EQ(st.st_mode & 0777, 0600u);
}

TEST_F(FeedServerTest, ClosingRemovesTheSocketFileAndDropsClients) {
  LineClient c(path_);
  c.send("x\n");
  EXPECT_EQ(c.readLine(pump()), "1:x");
  server_->close();
  EXPECT_FALSE(std::filesystem::exists(path_));
  EXPECT_EQ(server_->clientCount(), 0u);
  EXPECT_EQ(poller_.size(), 0u);
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
