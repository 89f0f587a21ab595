#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <optional>
#include <string>

#include "daemon/SdNotify.h"
#include "tests/unit/daemon/DaemonTestUtil.h"

namespace PimSnmpd {
namespace {

// A datagram socket standing in for systemd's: bound to a path, or an abstract name ("@x").
class FakeNotifySocket {
 public:
  explicit FakeNotifySocket(const std::string& name) {
    fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un sun{};
    sun.sun_family = AF_UNIX;
    std::memcpy(sun.sun_path, name.data(), name.size());
    if (name[0] == '@') sun.sun_path[0] = '\0';
    bound_ = bind(fd_, reinterpret_cast<sockaddr*>(&sun),
                  static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size())) == 0;
  }
  ~FakeNotifySocket() { close(fd_); }
  bool bound() const { return bound_; }

  std::optional<std::string> next(int timeoutMs = 1000) {
    pollfd p{fd_, POLLIN, 0};
    if (poll(&p, 1, timeoutMs) <= 0) return std::nullopt;
    char buf[4096];
    const ssize_t n = recv(fd_, buf, sizeof buf, 0);
    if (n < 0) return std::nullopt;
    return std::string(buf, static_cast<size_t>(n));
  }

 private:
  int fd_ = -1;
  bool bound_ = false;
};

// Each state is one datagram, in order, to a path socket and to an abstract one.
TEST(SdNotify, SendsEachStateAsOneDatagramInOrder) {
  DaemonTest::TempDir dir;
  for (const std::string& name :
       {dir.file("notify"), "@pimsnmpd-test-" + std::to_string(getpid())}) {
    SCOPED_TRACE(name);
    FakeNotifySocket fake(name);
    ASSERT_TRUE(fake.bound());
    SdNotify notify(name.c_str());
    ASSERT_TRUE(notify.enabled());
    EXPECT_TRUE(notify.ready("master agent, serving 2 context(s)"));
    EXPECT_TRUE(notify.reloading("re-reading"));
    EXPECT_TRUE(notify.ready("again"));
    EXPECT_TRUE(notify.stopping("bye"));
    EXPECT_EQ(fake.next(), "READY=1\nSTATUS=master agent, serving 2 context(s)");
    const auto reloading = fake.next();
    ASSERT_TRUE(reloading);
    EXPECT_TRUE(reloading->starts_with("RELOADING=1\nMONOTONIC_USEC=")) << *reloading;
    EXPECT_TRUE(reloading->ends_with("\nSTATUS=re-reading")) << *reloading;
    EXPECT_EQ(fake.next(), "READY=1\nSTATUS=again");
    EXPECT_EQ(fake.next(), "STOPPING=1\nSTATUS=bye");
    EXPECT_EQ(fake.next(50), std::nullopt);
  }
}

TEST(SdNotify, NothingWithoutAUsableSocketName) {
  for (const char* name : {static_cast<const char*>(nullptr), "", "@", "relative/path", "x"}) {
    SdNotify notify(name);
    EXPECT_FALSE(notify.enabled()) << (name ? name : "(null)");
    EXPECT_FALSE(notify.ready("up"));
  }
  const std::string tooLong = "/" + std::string(sizeof(sockaddr_un::sun_path), 'a');
  EXPECT_FALSE(SdNotify(tooLong.c_str()).enabled());
  // A socket nobody listens on: the daemon carries on.
  DaemonTest::TempDir dir;
  SdNotify gone(dir.file("nobody").c_str());
  EXPECT_FALSE(gone.ready("up"));
}

}  // namespace
}  // namespace PimSnmpd
