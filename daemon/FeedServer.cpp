#include "daemon/FeedServer.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "daemon/Log.h"

namespace PimSnmpd {

namespace {

bool fillAddress(const std::string& path, sockaddr_un& addr, std::string& error) {
  addr = {};
  addr.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof(addr.sun_path)) {
    error = fmt::format("socket path '{}' is empty or longer than {} bytes", path,
                        sizeof(addr.sun_path) - 1);
    return false;
  }
  std::memcpy(addr.sun_path, path.data(), path.size());
  return true;
}

}  // namespace

FeedServer::FeedServer(Poller& poller, Handler handler, size_t maxLine)
    : poller_(poller), handler_(std::move(handler)), maxLine_(maxLine) {
  oversizeReply_ = [](uint64_t, size_t limit) {
    return fmt::format(R"({{"ok":false,"error":"line longer than {} bytes"}})", limit);
  };
}

FeedServer::~FeedServer() {
  close();
}

bool FeedServer::listen(const std::string& path, unsigned mode, std::string& error) {
  close();
  sockaddr_un addr;
  if (!fillAddress(path, addr, error)) return false;

  struct stat st {};
  if (lstat(path.c_str(), &st) == 0) {
    if (!S_ISSOCK(st.st_mode)) {
      error = fmt::format("{} exists and is not a socket", path);
      return false;
    }
    // A socket file outlives its process; only a live listener makes it ours to keep away from.
    const int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool live =
        probe >= 0 && connect(probe, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0;
    if (probe >= 0) ::close(probe);
    if (live) {
      error = fmt::format("{} is in use by another process", path);
      return false;
    }
    unlink(path.c_str());
  }

  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    error = fmt::format("socket: {}", std::strerror(errno));
    return false;
  }
  // The socket file is created with the umask; narrow it before anyone can connect.
  const mode_t oldMask = umask(0177);
  const int bound = bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr));
  const int bindErrno = errno;
  umask(oldMask);
  if (bound != 0) {
    error = fmt::format("bind {}: {}", path, std::strerror(bindErrno));
    ::close(fd);
    return false;
  }
  if (chmod(path.c_str(), mode) != 0 || ::listen(fd, 64) != 0) {
    error = fmt::format("listen {}: {}", path, std::strerror(errno));
    ::close(fd);
    unlink(path.c_str());
    return false;
  }
  if (!poller_.add(fd, EPOLLIN, [this](uint32_t) { onAccept(); })) {
    error = "cannot watch the feed socket";
    ::close(fd);
    unlink(path.c_str());
    return false;
  }
  listenFd_ = fd;
  path_ = path;
  return true;
}

void FeedServer::close() {
  while (!clients_.empty()) drop(clients_.begin()->first);
  if (listenFd_ >= 0) {
    poller_.remove(listenFd_);
    ::close(listenFd_);
    listenFd_ = -1;
    unlink(path_.c_str());
  }
}

void FeedServer::onAccept() {
  // Several may be waiting; accept until none is.
  for (;;) {
    const int fd = accept4(listenFd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) return;
    const uint64_t id = nextClient_++;
    auto client = std::make_unique<Client>(maxLine_);
    client->id = id;
    client->fd = fd;
    if (!poller_.add(fd, client->interest, [this, id](uint32_t events) { onClient(id, events); })) {
      ::close(fd);
      continue;
    }
    clients_.emplace(id, std::move(client));
    ++stats_.accepted;
  }
}

void FeedServer::onClient(uint64_t id, uint32_t events) {
  auto it = clients_.find(id);
  if (it == clients_.end()) return;
  Client& c = *it->second;

  if (events & EPOLLOUT) {
    if (!flush(c)) {
      drop(id);
      return;
    }
  }
  if ((events & (EPOLLIN | EPOLLHUP | EPOLLRDHUP | EPOLLERR)) && !c.eof) {
    size_t budget = kReadBudget;
    char buf[65536];
    while (budget > 0) {
      const size_t want = std::min(sizeof buf, budget);
      const ssize_t n = ::read(c.fd, buf, want);
      if (n > 0) {
        if (!processInput(c, std::string_view(buf, static_cast<size_t>(n)))) {
          drop(id);
          return;
        }
        budget -= static_cast<size_t>(n);
        // A short read took everything there was: a producer that waits for each reply sends
        // nothing more until it has one, so asking again would only return EAGAIN. Whatever
        // arrives later (or the peer's EOF) wakes the poller again.
        if (static_cast<size_t>(n) < want) break;
        continue;
      }
      if (n == 0) {
        c.eof = true;
      } else if (errno == EINTR) {
        continue;
      } else if (errno != EAGAIN && errno != EWOULDBLOCK) {
        drop(id);
        return;
      }
      break;
    }
    if ((c.eof && !processInput(c, {})) || !flush(c)) {
      drop(id);
      return;
    }
  }
  // Done once the peer has finished sending and has every reply.
  if (c.eof && c.out.size() == c.outOffset) {
    drop(id);
    return;
  }
  updateInterest(c);
}

bool FeedServer::processInput(Client& c, std::string_view bytes) {
  const LineFramer::Handler handle = [&](std::string_view line, bool oversize) {
    if (oversize) {
      ++stats_.oversize;
      return queueReply(c, oversizeReply_(c.id, maxLine_));
    }
    ++stats_.lines;
    return queueReply(c, handler_(c.id, line));
  };
  return c.eof ? c.framer.finish(handle) : c.framer.push(bytes, handle);
}

bool FeedServer::queueReply(Client& c, std::string reply) {
  reply += '\n';
  c.largestReply = std::max(c.largestReply, reply.size());
  c.out += reply;
  const auto over = [&] { return c.out.size() - c.outOffset > unsentLimit_ + c.largestReply; };
  if (!over()) return true;
  // Lines are handled a read's worth at a time; give a client that reads the chance to.
  if (!flush(c)) return false;
  if (!over()) return true;
  ++stats_.unreadDisconnects;
  Log::warning(
      "feed client {}: {} bytes of replies unread, more than {} beyond its largest; "
      "disconnecting",
      c.id, c.out.size() - c.outOffset, unsentLimit_);
  return false;
}

bool FeedServer::flush(Client& c) {
  while (c.outOffset < c.out.size()) {
    const ssize_t n =
        ::send(c.fd, c.out.data() + c.outOffset, c.out.size() - c.outOffset, MSG_NOSIGNAL);
    if (n > 0) {
      c.outOffset += static_cast<size_t>(n);
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
    return false;
  }
  if (c.outOffset == c.out.size()) {
    // A dump's reply is as large as the state: do not keep its buffer for replies of a line.
    if (c.out.capacity() > kKeptOutputBuffer) {
      std::string().swap(c.out);
    } else {
      c.out.clear();
    }
    c.outOffset = 0;
    c.largestReply = 0;
  } else if (c.outOffset > (size_t{1} << 20)) {
    c.out.erase(0, c.outOffset);
    c.outOffset = 0;
  }
  return true;
}

void FeedServer::updateInterest(Client& c) {
  uint32_t events = 0;
  if (!c.eof) events |= EPOLLIN | EPOLLRDHUP;
  if (c.out.size() > c.outOffset) events |= EPOLLOUT;
  // Nearly always unchanged (reading, every reply sent): skip the system call then.
  if (events == c.interest) return;
  if (poller_.modify(c.fd, events)) c.interest = events;
}

void FeedServer::drop(uint64_t id) {
  auto it = clients_.find(id);
  if (it == clients_.end()) return;
  poller_.remove(it->second->fd);
  ::close(it->second->fd);
  clients_.erase(it);
}

}  // namespace PimSnmpd
