#pragma once

// One epoll set for all of the daemon's own descriptors (feed listener and clients, inotify,
// signals). The agent's event loop only watches the epoll descriptor itself, which is readable
// whenever one of them is ready; net-snmp's table of external descriptors holds 32 entries,
// fewer than the feed clients the daemon accepts.

#include <cstdint>
#include <functional>
#include <map>

namespace PimSnmpd {

class Poller {
 public:
  // Called with the ready epoll events (EPOLLIN, EPOLLOUT, EPOLLHUP, ...).
  using Callback = std::function<void(uint32_t events)>;

  Poller();
  ~Poller();
  Poller(const Poller&) = delete;
  Poller& operator=(const Poller&) = delete;

  bool ok() const { return epfd_ >= 0; }
  int fd() const { return epfd_; }

  // Watches `fd` for `events` (level-triggered); returns false when epoll refuses it.
  bool add(int fd, uint32_t events, Callback callback);
  bool modify(int fd, uint32_t events);
  // Stops watching `fd`; safe from inside any callback (a pending event for it is dropped).
  void remove(int fd);
  bool watching(int fd) const { return byFd_.contains(fd); }
  size_t size() const { return byFd_.size(); }

  // Runs the callbacks of ready descriptors, waiting at most `timeoutMs` (0: not at all).
  // Returns how many callbacks ran, or -1 on an epoll error other than EINTR.
  int dispatch(int timeoutMs = 0);

 private:
  struct Entry {
    int fd;
    Callback callback;
  };
  int epfd_ = -1;
  // Keyed by a serial number, not the descriptor: an event queued for a descriptor that was
  // removed (and maybe reused) in the same round must not reach the new owner.
  std::map<uint64_t, Entry> entries_;
  std::map<int, uint64_t> byFd_;
  uint64_t nextSerial_ = 1;
};

}  // namespace PimSnmpd
