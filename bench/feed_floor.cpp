// The floor under pimsnmpd's feed: a server that answers every line of a unix-socket stream
// with a fixed reply and does nothing else. Its CPU time per line is what a line costs on this
// machine before any work (bench/feed_bench.py --floor).
//
//   feed_floor PATH MODE
//
// MODE "plain": blocking read, then send: two system calls a line, the fewest a server that
// waits for its producer can make. MODE "daemon": pimsnmpd's waits: select on an epoll set,
// epoll_wait for its events, a non-blocking read, send: four a line.

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string_view>

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: feed_floor PATH plain|daemon\n");
    return 2;
  }
  const bool daemonWaits = std::string_view(argv[2]) == "daemon";
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (std::strlen(argv[1]) >= sizeof(addr.sun_path)) return 2;
  std::strcpy(addr.sun_path, argv[1]);
  const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
  if (listener < 0 || bind(listener, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 ||
      listen(listener, 1) != 0) {
    std::perror("feed_floor: listen");
    return 1;
  }
  const int fd = accept(listener, nullptr, nullptr);
  if (fd < 0) return 1;
  const int ep = epoll_create1(0);
  if (daemonWaits) {
    fcntl(fd, F_SETFL, O_NONBLOCK);
    epoll_event ev{};
    ev.events = EPOLLIN | EPOLLRDHUP;
    epoll_ctl(ep, EPOLL_CTL_ADD, fd, &ev);
  }
  static char buf[1 << 16];
  constexpr std::string_view kReply = "{\"ok\":true}\n";
  for (;;) {
    if (daemonWaits) {
      fd_set readable;
      FD_ZERO(&readable);
      FD_SET(ep, &readable);
      timespec second{1, 0};
      if (pselect(ep + 1, &readable, nullptr, nullptr, &second, nullptr) <= 0) continue;
      epoll_event events[8];
      epoll_wait(ep, events, 8, 0);
    }
    const ssize_t n = read(fd, buf, sizeof buf);
    if (n == 0) break;
    if (n < 0) continue;
    // One reply per line the read completed.
    for (ssize_t i = 0; i < n; ++i) {
      if (buf[i] == '\n') send(fd, kReply.data(), kReply.size(), MSG_NOSIGNAL);
    }
  }
  return 0;
}
