#include "pimsnmp-frr/Vty.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <sstream>
#include <vector>

#include "pimsnmp-frr/Log.h"

namespace PimSnmpFrr {
namespace {

std::string withoutVrf(std::string_view command) {
  std::istringstream in{std::string(command)};
  std::string word, out;
  while (in >> word) {
    if (word == "vrf") {
      in >> word;  // the VRF's name
      continue;
    }
    if (!out.empty()) out += ' ';
    out += word;
  }
  return out;
}

int msLeft(std::chrono::steady_clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
      deadline - std::chrono::steady_clock::now());
  return left.count() < 0 ? 0 : static_cast<int>(left.count());
}

}  // namespace

bool isForbiddenCommand(std::string_view command) {
  const std::string plain = withoutVrf(command);
  for (std::string_view f : kForbiddenCommands) {
    if (plain.compare(0, f.size(), f) == 0 &&
        (plain.size() == f.size() || plain[f.size()] == ' ')) {
      return true;
    }
  }
  return false;
}

VtyClient::VtyClient(std::string socketPath, std::chrono::milliseconds timeout)
    : path_(std::move(socketPath)), timeout_(timeout) {}

VtyClient::~VtyClient() {
  close();
}

void VtyClient::close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

bool VtyClient::connect() {
  if (fd_ >= 0) return true;
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (path_.size() >= sizeof addr.sun_path) return false;
  std::memcpy(addr.sun_path, path_.c_str(), path_.size() + 1);
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) return false;
  // A Unix stream connect completes or fails at once (EAGAIN: backlog full, retried later).
  if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    ::close(fd);
    return false;
  }
  fd_ = fd;
  return true;
}

std::optional<VtyReply> VtyClient::run(std::string_view command) {
  if (isForbiddenCommand(command)) {
    logLine("refusing to send '" + std::string(command) + "' to " + path_);
    return std::nullopt;
  }
  if (!connect()) return std::nullopt;
  const auto deadline = std::chrono::steady_clock::now() + timeout_;
  auto fail = [&](const char* why) -> std::optional<VtyReply> {
    logLine(std::string(why) + " on " + path_ + " ('" + std::string(command) +
            "'): session closed");
    close();
    return std::nullopt;
  };

  std::string out(command);
  out.push_back('\0');
  size_t sent = 0;
  while (sent < out.size()) {
    const ssize_t n = ::send(fd_, out.data() + sent, out.size() - sent, MSG_NOSIGNAL);
    if (n > 0) {
      sent += static_cast<size_t>(n);
      continue;
    }
    if (n < 0 && errno != EAGAIN && errno != EINTR) return fail("write failed");
    pollfd p{fd_, POLLOUT, 0};
    if (::poll(&p, 1, msLeft(deadline)) == 0) return fail("no answer in time");
  }

  std::string in;
  std::vector<char> buf(1 << 16);
  for (;;) {
    const ssize_t n = ::recv(fd_, buf.data(), buf.size(), 0);
    if (n > 0) {
      in.append(buf.data(), static_cast<size_t>(n));
      if (in.size() >= 4 && in.compare(in.size() - 4, 3, std::string_view("\0\0\0", 3)) == 0) {
        VtyReply reply;
        reply.status = static_cast<unsigned char>(in.back());
        in.resize(in.size() - 4);
        reply.text = std::move(in);
        return reply;
      }
      continue;
    }
    if (n == 0) return fail("daemon closed the vty");
    if (errno != EAGAIN && errno != EINTR) return fail("read failed");
    pollfd p{fd_, POLLIN, 0};
    if (::poll(&p, 1, msLeft(deadline)) == 0) return fail("no answer in time");
  }
}

}  // namespace PimSnmpFrr
