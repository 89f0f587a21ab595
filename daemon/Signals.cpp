#include "daemon/Signals.h"

#include <signal.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cstring>

namespace PimSnmpd {

static_assert(sizeof(sigset_t) <= 128, "Signals::oldMask_ too small");

Signals::Signals(Poller& poller, Callback callback)
    : poller_(poller), callback_(std::move(callback)) {
  ::signal(SIGPIPE, SIG_IGN);
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGHUP);
  sigset_t old;
  if (sigprocmask(SIG_BLOCK, &set, &old) != 0) return;
  std::memcpy(oldMask_, &old, sizeof old);
  restoreMask_ = true;
  fd_ = signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
  if (fd_ < 0) return;
  if (!poller_.add(fd_, EPOLLIN, [this](uint32_t) { onReadable(); })) {
    ::close(fd_);
    fd_ = -1;
  }
}

Signals::~Signals() {
  if (fd_ >= 0) {
    poller_.remove(fd_);
    ::close(fd_);
  }
  if (restoreMask_) {
    sigset_t old;
    std::memcpy(&old, oldMask_, sizeof old);
    sigprocmask(SIG_SETMASK, &old, nullptr);
  }
}

void Signals::onReadable() {
  signalfd_siginfo info;
  while (::read(fd_, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
    callback_(static_cast<int>(info.ssi_signo));
  }
}

}  // namespace PimSnmpd
