#include "daemon/SdNotify.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <fmt/format.h>

#include <cstddef>
#include <cstring>

namespace PimSnmpd {

namespace {

uint64_t monotonicMicros() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<uint64_t>(ts.tv_sec) * 1000000u + static_cast<uint64_t>(ts.tv_nsec) / 1000u;
}

}  // namespace

SdNotify::SdNotify(const char* socketName) {
  if (!socketName) return;
  const std::string_view name(socketName);
  struct sockaddr_un sun;
  // An abstract name ("@...") may not be longer either; the trailing NUL is not needed.
  if (name.size() < 2 || name.size() >= sizeof sun.sun_path ||
      (name.front() != '/' && name.front() != '@')) {
    return;
  }
  std::memset(&sun, 0, sizeof sun);
  sun.sun_family = AF_UNIX;
  std::memcpy(sun.sun_path, name.data(), name.size());
  if (name.front() == '@') sun.sun_path[0] = '\0';
  const size_t length = offsetof(struct sockaddr_un, sun_path) + name.size();
  address_.assign(reinterpret_cast<const char*>(&sun), length);
  fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
}

SdNotify::~SdNotify() {
  if (fd_ >= 0) close(fd_);
}

bool SdNotify::send(std::string_view state) {
  if (fd_ < 0) return false;
  const ssize_t n =
      sendto(fd_, state.data(), state.size(), MSG_NOSIGNAL,
             reinterpret_cast<const struct sockaddr*>(address_.data()), address_.size());
  return n == static_cast<ssize_t>(state.size());
}

bool SdNotify::ready(std::string_view status) {
  return send(fmt::format("READY=1\nSTATUS={}", status));
}

bool SdNotify::reloading(std::string_view status) {
  // Type=notify-reload units want the time the reload started.
  return send(fmt::format("RELOADING=1\nMONOTONIC_USEC={}\nSTATUS={}", monotonicMicros(), status));
}

bool SdNotify::stopping(std::string_view status) {
  return send(fmt::format("STOPPING=1\nSTATUS={}", status));
}

}  // namespace PimSnmpd
