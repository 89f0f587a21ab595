// The Linux implementation of Kernel::Source: one rtnetlink socket for MFC dumps, another
// subscribed to multicast route, link and IPv4 address notifications, and the /proc and /sys
// files.

#include <fmt/format.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "pimsnmp-frr/kernel/Kernel.h"
#include "pimsnmp-frr/kernel/MfcNetlink.h"
#include "pimsnmp-frr/kernel/ProcFiles.h"

namespace PimSnmpFrr::Kernel {

namespace {

class Fd {
 public:
  Fd() = default;
  explicit Fd(int fd) : fd_(fd) {}
  Fd(Fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Fd& operator=(Fd&& other) noexcept {
    if (this != &other) {
      reset();
      fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
  }
  ~Fd() { reset(); }
  void reset() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }
  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }

 private:
  int fd_ = -1;
};

// Large enough for any dump datagram: the kernel sizes them to at most 32 KiB.
constexpr size_t kReceiveBuffer = 64 * 1024;
// A dump that has not finished after this long is given up (the next poll asks again).
constexpr int kDumpTimeoutMs = 2000;
// Dumps flagged inconsistent by the kernel are asked again this many times.
constexpr int kDumpAttempts = 3;
// Datagrams read per drainEvents() call; the rest wait for the next call (it reports a change
// either way).
constexpr int kDrainLimit = 4096;

Fd openNetlink(uint32_t groups, int flags, std::string& reason) {
  Fd fd(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | flags, NETLINK_ROUTE));
  if (!fd) {
    reason = fmt::format("netlink socket: {}", std::strerror(errno));
    return fd;
  }
  sockaddr_nl local{};
  local.nl_family = AF_NETLINK;
  local.nl_groups = groups;
  if (::bind(fd.get(), reinterpret_cast<sockaddr*>(&local), sizeof(local)) != 0) {
    reason = fmt::format("netlink bind (groups {:#x}): {}", groups, std::strerror(errno));
    return Fd();
  }
  return fd;
}

class LinuxSource final : public Source {
 public:
  explicit LinuxSource(LinuxSourceOptions options)
      : options_(std::move(options)),
        files_(options_.procRoot, options_.sysRoot),
        buffer_(kReceiveBuffer) {
    if (options_.events) openEvents();
  }

  std::optional<std::vector<MfcEntry>> dumpMfc() override {
    std::string reason;
    for (int attempt = 1; attempt <= kDumpAttempts; ++attempt) {
      auto reader = dumpOnce(reason);
      if (!reader) break;
      if (!reader->interrupted()) return std::move(reader->entries());
      reason = "the kernel flagged every dump as interrupted (tables changing)";
    }
    // Leftover datagrams of a failed dump must not reach the next one.
    dumpFd_.reset();
    log(fmt::format("kernel MFC dump failed: {}", reason));
    return std::nullopt;
  }

  std::vector<Vif> vifs() override { return files_.vifs(); }
  std::string operState(const std::string& ifName) override { return files_.operState(ifName); }
  std::optional<int> ifIndex(const std::string& ifName) override { return files_.ifIndex(ifName); }
  bool mcForwarding() override { return files_.mcForwarding(); }
  int eventFd() override { return eventFd_.get(); }

  bool drainEvents() override {
    if (!eventFd_) return false;
    bool changed = false;
    for (int i = 0; i < kDrainLimit; ++i) {
      const ssize_t n = ::recv(eventFd_.get(), buffer_.data(), buffer_.size(), MSG_DONTWAIT);
      if (n > 0) {
        changed = true;
      } else if (n < 0 && errno == EINTR) {
        continue;
      } else if (n < 0 && errno == ENOBUFS) {
        // Notifications were lost: only a full re-read tells what changed.
        ++overruns_;
        changed = true;
      } else {
        break;
      }
    }
    return changed;
  }

 private:
  void log(const std::string& message) {
    if (options_.log) {
      options_.log(message);
    } else {
      std::fprintf(stderr, "%s\n", message.c_str());
    }
  }

  void openEvents() {
    std::string reason;
    eventFd_ =
        openNetlink(RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV4_MROUTE, SOCK_NONBLOCK, reason);
    if (!eventFd_) {
      log(fmt::format("kernel notifications unavailable: {}", reason));
      return;
    }
    const int size = options_.receiveBufferBytes;
    if (::setsockopt(eventFd_.get(), SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof(size)) != 0 &&
        ::setsockopt(eventFd_.get(), SOL_SOCKET, SO_RCVBUF, &size, sizeof(size)) != 0) {
      log(fmt::format("kernel notifications: receive buffer of {} bytes refused: {}", size,
                      std::strerror(errno)));
    }
  }

  bool openDump(std::string& reason) {
    if (dumpFd_) return true;
    dumpFd_ = openNetlink(0, 0, reason);
    if (!dumpFd_) return false;
    const timeval timeout{kDumpTimeoutMs / 1000, (kDumpTimeoutMs % 1000) * 1000};
    ::setsockopt(dumpFd_.get(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout));
    return true;
  }

  // One request and its answer; nullopt with `reason` when it failed.
  std::optional<MfcDumpReader> dumpOnce(std::string& reason) {
    if (!openDump(reason)) return std::nullopt;
    const uint32_t seq = ++seq_;
    const auto request = mfcDumpRequest(seq);
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    if (::sendto(dumpFd_.get(), request.data(), request.size(), 0,
                 reinterpret_cast<sockaddr*>(&kernel), sizeof(kernel)) < 0) {
      reason = fmt::format("sending the dump request: {}", std::strerror(errno));
      return std::nullopt;
    }
    MfcDumpReader reader(seq);
    while (reader.status() == MfcDumpReader::Status::more) {
      iovec iov{buffer_.data(), buffer_.size()};
      msghdr msg{};
      msg.msg_iov = &iov;
      msg.msg_iovlen = 1;
      const ssize_t n = ::recvmsg(dumpFd_.get(), &msg, 0);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
        reason = errno == EAGAIN ? fmt::format("no answer within {} ms", kDumpTimeoutMs)
                                 : fmt::format("receiving the dump: {}", std::strerror(errno));
        return std::nullopt;
      }
      if (msg.msg_flags & MSG_TRUNC) {
        reason = fmt::format("a dump datagram exceeded {} bytes", buffer_.size());
        return std::nullopt;
      }
      reader.feed({buffer_.data(), static_cast<size_t>(n)});
    }
    if (reader.status() == MfcDumpReader::Status::refused) {
      reason = reader.reason();
      return std::nullopt;
    }
    return reader;
  }

  LinuxSourceOptions options_;
  ProcFiles files_;
  std::vector<uint8_t> buffer_;
  Fd dumpFd_;
  Fd eventFd_;
  uint32_t seq_ = 0;
  uint64_t overruns_ = 0;
};

}  // namespace

std::unique_ptr<Source> makeLinuxSource(LinuxSourceOptions options) {
  return std::make_unique<LinuxSource>(std::move(options));
}

}  // namespace PimSnmpFrr::Kernel
