#include "pimsnmp-frr/UnixStream.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace PimSnmpFrr {
namespace {

// Waits until `fd` is ready for `events` or the deadline passes.
bool waitFor(int fd, short events, Deadline deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
      deadline - std::chrono::steady_clock::now());
  pollfd p{fd, events, 0};
  return ::poll(&p, 1, left.count() < 0 ? 0 : static_cast<int>(left.count())) > 0;
}

}  // namespace

int connectUnix(const std::string& path) {
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (path.size() >= sizeof addr.sun_path) return -1;
  std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) return -1;
  // A Unix stream connect completes or fails at once (EAGAIN: backlog full, retried later).
  if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    ::close(fd);
    return -1;
  }
  return fd;
}

const char* sendAll(int fd, std::string_view data, Deadline deadline) {
  size_t sent = 0;
  while (sent < data.size()) {
    const ssize_t n = ::send(fd, data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
    if (n > 0) {
      sent += static_cast<size_t>(n);
      continue;
    }
    if (n < 0 && errno != EAGAIN && errno != EINTR) return std::strerror(errno);
    if (!waitFor(fd, POLLOUT, deadline)) return "no room to write in time";
  }
  return nullptr;
}

const char* receiveSome(int fd, std::string& into, Deadline deadline) {
  char buf[1 << 16];
  for (;;) {
    const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
    if (n > 0) {
      into.append(buf, static_cast<size_t>(n));
      return nullptr;
    }
    if (n == 0) return "closed by the peer";
    if (errno != EAGAIN && errno != EINTR) return std::strerror(errno);
    if (!waitFor(fd, POLLIN, deadline)) return "no answer in time";
  }
}

}  // namespace PimSnmpFrr
