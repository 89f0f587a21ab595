#include "pimsnmp-frr/FeedClient.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "pimsnmp-frr/Log.h"
#include "pimsnmp-frr/UnixStream.h"

namespace PimSnmpFrr {

std::optional<std::string> feedSocketPath(std::string_view spec) {
  if (spec.starts_with("unix:")) spec.remove_prefix(5);
  if (spec.empty() || spec.find(':') != std::string_view::npos) return std::nullopt;
  return std::string(spec);
}

FeedClient::FeedClient(std::string socketPath, std::chrono::milliseconds timeout)
    : path_(std::move(socketPath)), timeout_(timeout) {}

FeedClient::~FeedClient() {
  close();
}

void FeedClient::close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  pending_.clear();
}

bool FeedClient::connect() {
  if (fd_ < 0) fd_ = connectUnix(path_);
  return fd_ >= 0;
}

bool FeedClient::alive() {
  if (fd_ < 0) return false;
  pollfd p{fd_, POLLIN, 0};
  if (::poll(&p, 1, 0) <= 0) return true;
  char c;
  // Nothing is unsolicited on the feed: readable means closed (or an error).
  if ((p.revents & (POLLHUP | POLLERR)) || ::recv(fd_, &c, 1, MSG_PEEK) <= 0) {
    fail("pimsnmpd closed the connection");
    return false;
  }
  return true;
}

std::optional<PimSnmpd::Json> FeedClient::fail(const std::string& why) {
  logLine("feed " + path_ + ": " + why + "; disconnected");
  close();
  return std::nullopt;
}

std::optional<PimSnmpd::Json> FeedClient::request(std::string_view line) {
  if (!connect()) return std::nullopt;
  const Deadline deadline = std::chrono::steady_clock::now() + timeout_;
  std::string out(line);
  out.push_back('\n');
  if (const char* why = sendAll(fd_, out, deadline)) return fail(why);
  size_t nl;
  while ((nl = pending_.find('\n')) == std::string::npos) {
    if (const char* why = receiveSome(fd_, pending_, deadline)) return fail(why);
  }
  const std::string reply = pending_.substr(0, nl);
  pending_.erase(0, nl + 1);
  auto j = PimSnmpd::Json::parse(reply, nullptr, /*allow_exceptions=*/false);
  if (j.is_discarded() || !j.is_object()) return fail("unreadable reply");
  return j;
}

}  // namespace PimSnmpFrr
