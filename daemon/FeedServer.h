#pragma once

// The feed socket: a Unix stream socket that accepts any number of clients, frames what each
// sends into lines and answers every line with exactly one reply line, in order. What a line
// means is the handler's business (daemon/Daemon.cpp: a merge patch or a control command).
// Memory per client is bounded: its input by the longest line, its output by a limit on the
// replies it leaves unread, past which it is disconnected.

#include <sys/epoll.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "daemon/LineFramer.h"
#include "daemon/Options.h"
#include "daemon/Poller.h"

namespace PimSnmpd {

class FeedServer {
 public:
  // Gets one line (without its "\n" or "\r\n", never empty or blank) and returns the reply,
  // without a newline. `client` identifies the connection in messages ("feed client 3").
  using Handler = std::function<std::string(uint64_t client, std::string_view line)>;
  // The reply to a line longer than the limit (the line is discarded).
  using OversizeReply = std::function<std::string(uint64_t client, size_t limit)>;

  struct Stats {
    uint64_t accepted = 0;
    uint64_t lines = 0;
    uint64_t oversize = 0;
    uint64_t unreadDisconnects = 0;  // clients dropped for leaving replies unread
  };

  FeedServer(Poller& poller, Handler handler, size_t maxLine = kDefaultMaxLine);
  ~FeedServer();
  FeedServer(const FeedServer&) = delete;
  FeedServer& operator=(const FeedServer&) = delete;

  void oversizeReplyIs(OversizeReply reply) { oversizeReply_ = std::move(reply); }
  void unsentLimitIs(size_t bytes) { unsentLimit_ = bytes; }
  size_t unsentLimit() const { return unsentLimit_; }

  // Binds and listens at `path` with permissions `mode`. A stale socket left by a dead process
  // is replaced; a live one (another daemon answers) or a non-socket file is an error.
  bool listen(const std::string& path, unsigned mode, std::string& error);
  // Closes the listener (removing its file) and every client.
  void close();

  const std::string& path() const { return path_; }
  bool listening() const { return listenFd_ >= 0; }
  size_t clientCount() const { return clients_.size(); }
  const Stats& stats() const { return stats_; }

  // Input read per readiness callback and client, so that one busy client cannot hold the
  // loop for long; level-triggered epoll calls again for the rest.
  static constexpr size_t kReadBudget = size_t{4} << 20;
  // A client's reply buffer keeps up to this much capacity once everything in it is sent.
  static constexpr size_t kKeptOutputBuffer = size_t{1} << 20;
  // A client is disconnected once its unsent replies exceed this beyond the largest single
  // reply among them (a `dump` may be far larger and is fine to read slowly). A client that
  // reads its replies never comes near it; one that only writes would otherwise grow the
  // daemon without end (a 5-byte `dump` line asks for the whole document).
  static constexpr size_t kMaxUnsentReplies = size_t{64} << 20;

 private:
  struct Client {
    explicit Client(size_t maxLine) : framer(maxLine) {}
    uint64_t id = 0;
    int fd = -1;
    LineFramer framer;
    bool eof = false;  // the peer will send nothing more
    std::string out;
    size_t outOffset = 0;
    size_t largestReply = 0;                   // among those in `out`
    uint32_t interest = EPOLLIN | EPOLLRDHUP;  // what the poller watches for
  };

  void onAccept();
  void onClient(uint64_t id, uint32_t events);
  // Frames and handles `bytes` (at EOF, a final unterminated line too). False when the client
  // must be dropped.
  bool processInput(Client& c, std::string_view bytes);
  bool queueReply(Client& c, std::string reply);
  // Writes what it can; returns false when the connection failed.
  bool flush(Client& c);
  void updateInterest(Client& c);
  void drop(uint64_t id);

  Poller& poller_;
  Handler handler_;
  OversizeReply oversizeReply_;
  size_t maxLine_;
  size_t unsentLimit_ = kMaxUnsentReplies;
  int listenFd_ = -1;
  std::string path_;
  uint64_t nextClient_ = 1;
  std::map<uint64_t, std::unique_ptr<Client>> clients_;
  Stats stats_;
};

}  // namespace PimSnmpd
