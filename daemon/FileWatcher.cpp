#include "daemon/FileWatcher.h"

#include <sys/epoll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace PimSnmpd {

FileWatcher::FileWatcher(Poller& poller, Callback callback)
    : poller_(poller), callback_(std::move(callback)) {}

FileWatcher::~FileWatcher() {
  stop();
}

bool FileWatcher::watch(const std::string& path, std::string& error) {
  stop();
  const std::filesystem::path p = std::filesystem::absolute(path);
  std::string dir = p.parent_path().string();
  name_ = p.filename().string();
  fd_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (fd_ < 0) {
    error = fmt::format("inotify: {}", std::strerror(errno));
    return false;
  }
  // IN_CLOSE_WRITE rather than IN_MODIFY: a writer's half-written file is not read.
  wd_ = inotify_add_watch(fd_, dir.c_str(),
                          IN_CLOSE_WRITE | IN_MOVED_TO | IN_CREATE | IN_DELETE | IN_MOVED_FROM);
  if (wd_ < 0) {
    error = fmt::format("inotify watch of {}: {}", dir, std::strerror(errno));
    stop();
    return false;
  }
  if (!poller_.add(fd_, EPOLLIN, [this](uint32_t) { onReadable(); })) {
    error = "cannot watch the inotify descriptor";
    stop();
    return false;
  }
  return true;
}

void FileWatcher::stop() {
  if (fd_ < 0) return;
  poller_.remove(fd_);
  ::close(fd_);
  fd_ = -1;
  wd_ = -1;
}

void FileWatcher::onReadable() {
  alignas(inotify_event) char buf[16384];
  bool changed = false;
  bool removed = false;
  for (;;) {
    const ssize_t n = ::read(fd_, buf, sizeof buf);
    if (n <= 0) break;
    for (ssize_t off = 0; off < n;) {
      const auto* ev = reinterpret_cast<const inotify_event*>(buf + off);
      off += static_cast<ssize_t>(sizeof(inotify_event) + ev->len);
      if (ev->len == 0 || name_ != ev->name) continue;
      if (ev->mask & (IN_CLOSE_WRITE | IN_MOVED_TO)) {
        changed = true;
        removed = false;
      } else if (ev->mask & IN_CREATE) {
        // Created empty: the content comes with the IN_CLOSE_WRITE that follows.
      } else if (ev->mask & (IN_DELETE | IN_MOVED_FROM)) {
        removed = true;
        changed = false;
      }
    }
  }
  // One report per batch: an editor's save is often several events.
  if (changed) callback_(Event::changed);
  if (removed) callback_(Event::removed);
}

}  // namespace PimSnmpd
