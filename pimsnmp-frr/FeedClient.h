#pragma once

// A client of pimsnmpd's feed socket: one JSON line per request, one reply line each.

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "daemon/state/Json.h"

namespace PimSnmpFrr {

class FeedClient {
 public:
  FeedClient(std::string socketPath, std::chrono::milliseconds timeout);
  ~FeedClient();
  FeedClient(const FeedClient&) = delete;
  FeedClient& operator=(const FeedClient&) = delete;

  const std::string& path() const { return path_; }
  bool connected() const { return fd_ >= 0; }
  bool connect();
  void close();
  // Whether the connection is still open: pimsnmpd closing it (a restart) is noticed without
  // waiting for the next update. Closes it when not.
  bool alive();

  // Sends `line` (a newline is added) and returns the reply, or nullopt when pimsnmpd did not
  // answer in time or went away (the connection is then closed).
  std::optional<PimSnmpd::Json> request(std::string_view line);

 private:
  std::optional<PimSnmpd::Json> fail(const std::string& why);

  std::string path_;
  std::chrono::milliseconds timeout_;
  int fd_ = -1;
  std::string pending_;  // read beyond the last reply
};

// "unix:PATH" (or a bare path) -> PATH; nullopt for other transports.
std::optional<std::string> feedSocketPath(std::string_view spec);

}  // namespace PimSnmpFrr
