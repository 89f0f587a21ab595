#pragma once

// systemd's readiness protocol: state lines ("READY=1", "STATUS=...") sent as one datagram to
// the socket named by $NOTIFY_SOCKET (a path, or "@name" for an abstract socket). Without
// the variable nothing is sent.

#include <string>
#include <string_view>

namespace PimSnmpd {

class SdNotify {
 public:
  // `socketName`: the value of NOTIFY_SOCKET, or null/empty for none.
  explicit SdNotify(const char* socketName);
  ~SdNotify();
  SdNotify(const SdNotify&) = delete;
  SdNotify& operator=(const SdNotify&) = delete;

  bool enabled() const { return fd_ >= 0; }
  // Sends `state` (newline-separated assignments). False when it could not be sent (or there
  // is no socket).
  bool send(std::string_view state);

  // What the daemon says at each step of its life.
  bool ready(std::string_view status);
  bool reloading(std::string_view status);
  bool stopping(std::string_view status);

 private:
  int fd_ = -1;
  std::string address_;  // sockaddr_un bytes
};

}  // namespace PimSnmpd
