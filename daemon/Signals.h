#pragma once

// SIGTERM, SIGINT and SIGHUP as events of the daemon's loop (signalfd), so that their
// handling runs between two state-machine runs like everything else. SIGPIPE is ignored: a
// feed client that goes away is noticed by the failed write.

#include <functional>

#include "daemon/Poller.h"

namespace PimSnmpd {

class Signals {
 public:
  using Callback = std::function<void(int signo)>;

  // Blocks the signals (for the calling thread; call before starting any thread) and watches
  // them. ok() is false when that failed.
  Signals(Poller& poller, Callback callback);
  // Restores the previous mask.
  ~Signals();
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  bool ok() const { return fd_ >= 0; }

 private:
  void onReadable();

  Poller& poller_;
  Callback callback_;
  int fd_ = -1;
  bool restoreMask_ = false;
  unsigned char oldMask_[128];  // sigset_t, kept opaque here
};

}  // namespace PimSnmpd
