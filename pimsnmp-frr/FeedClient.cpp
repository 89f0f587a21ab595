#include "pimsnmp-frr/FeedClient.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "pimsnmp-frr/Log.h"

namespace PimSnmpFrr {
namespace {

int msLeft(std::chrono::steady_clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
      deadline - std::chrono::steady_clock::now());
  return left.count() < 0 ? 0 : static_cast<int>(left.count());
}

}  // namespace

std::optional<std::string> feedSocketPath(std::string_view spec) {
  if (spec.starts_with("unix:")) spec.remove_prefix(5);
  if (spec.empty() || spec.find(':') != std::string_view::npos) return std::nullopt;
  return std::string(spec);
}

FeedClient::FeedClient(std::string socketPath, std::chrono::milliseconds timeout)
    : path_(std::move(socketPath)), timeout_(timeout) {}

FeedClient::~FeedClient() {
  close();
}

void FeedClient::close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  pending_.clear();
}

bool FeedClient::connect() {
  if (fd_ >= 0) return true;
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (path_.size() >= sizeof addr.sun_path) return false;
  std::memcpy(addr.sun_path, path_.c_str(), path_.size() + 1);
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) return false;
  if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    ::close(fd);
    return false;
  }
  fd_ = fd;
  return true;
}

bool FeedClient::alive() {
  if (fd_ < 0) return false;
  pollfd p{fd_, POLLIN, 0};
  if (::poll(&p, 1, 0) <= 0) return true;
  char c;
  // Nothing is unsolicited on the feed: readable means closed (or an error).
  if ((p.revents & (POLLHUP | POLLERR)) || ::recv(fd_, &c, 1, MSG_PEEK) <= 0) {
    fail("pimsnmpd closed the connection");
    return false;
  }
  return true;
}

std::optional<PimSnmpd::Json> FeedClient::fail(const std::string& why) {
  logLine("feed " + path_ + ": " + why + "; disconnected");
  close();
  return std::nullopt;
}

std::optional<PimSnmpd::Json> FeedClient::request(std::string_view line) {
  if (!connect()) return std::nullopt;
  const auto deadline = std::chrono::steady_clock::now() + timeout_;
  std::string out(line);
  out.push_back('\n');
  size_t sent = 0;
  while (sent < out.size()) {
    const ssize_t n = ::send(fd_, out.data() + sent, out.size() - sent, MSG_NOSIGNAL);
    if (n > 0) {
      sent += static_cast<size_t>(n);
      continue;
    }
    if (n < 0 && errno != EAGAIN && errno != EINTR) return fail(std::strerror(errno));
    pollfd p{fd_, POLLOUT, 0};
    if (::poll(&p, 1, msLeft(deadline)) == 0) return fail("no room to write in time");
  }
  char buf[1 << 16];
  for (;;) {
    const size_t nl = pending_.find('\n');
    if (nl != std::string::npos) {
      const std::string reply = pending_.substr(0, nl);
      pending_.erase(0, nl + 1);
      auto j = PimSnmpd::Json::parse(reply, nullptr, /*allow_exceptions=*/false);
      if (j.is_discarded() || !j.is_object()) return fail("unreadable reply");
      return j;
    }
    const ssize_t n = ::recv(fd_, buf, sizeof buf, 0);
    if (n > 0) {
      pending_.append(buf, static_cast<size_t>(n));
      continue;
    }
    if (n == 0) return fail("pimsnmpd closed the connection");
    if (errno != EAGAIN && errno != EINTR) return fail(std::strerror(errno));
    pollfd p{fd_, POLLIN, 0};
    if (::poll(&p, 1, msLeft(deadline)) == 0) return fail("no reply in time");
  }
}

}  // namespace PimSnmpFrr
