#include "daemon/Poller.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <cerrno>

namespace PimSnmpd {

Poller::Poller() : epfd_(epoll_create1(EPOLL_CLOEXEC)) {}

Poller::~Poller() {
  if (epfd_ >= 0) ::close(epfd_);
}

bool Poller::add(int fd, uint32_t events, Callback callback) {
  if (epfd_ < 0 || fd < 0 || byFd_.contains(fd)) return false;
  const uint64_t serial = nextSerial_++;
  epoll_event ev{};
  ev.events = events;
  ev.data.u64 = serial;
  if (epoll_ctl(epfd_, EPOLL_CTL_ADD, fd, &ev) != 0) return false;
  entries_.emplace(serial, Entry{fd, std::move(callback)});
  byFd_.emplace(fd, serial);
  return true;
}

bool Poller::modify(int fd, uint32_t events) {
  auto it = byFd_.find(fd);
  if (it == byFd_.end()) return false;
  epoll_event ev{};
  ev.events = events;
  ev.data.u64 = it->second;
  return epoll_ctl(epfd_, EPOLL_CTL_MOD, fd, &ev) == 0;
}

void Poller::remove(int fd) {
  auto it = byFd_.find(fd);
  if (it == byFd_.end()) return;
  epoll_ctl(epfd_, EPOLL_CTL_DEL, fd, nullptr);
  entries_.erase(it->second);
  byFd_.erase(it);
}

int Poller::dispatch(int timeoutMs) {
  if (epfd_ < 0) return -1;
  epoll_event events[64];
  const int n = epoll_wait(epfd_, events, 64, timeoutMs);
  if (n < 0) return errno == EINTR ? 0 : -1;
  int ran = 0;
  for (int i = 0; i < n; ++i) {
    auto it = entries_.find(events[i].data.u64);
    if (it == entries_.end()) continue;
    // A copy: the callback may remove its own entry.
    Callback callback = it->second.callback;
    callback(events[i].events);
    ++ran;
  }
  return ran;
}

}  // namespace PimSnmpd
