#pragma once

// pimsnmpctl: the companion CLI of pimsnmpd. It talks to the daemon's feed socket: one request
// line, one JSON reply line.

#include <optional>
#include <string>
#include <string_view>

namespace PimSnmpd::Ctl {

// Exit codes.
inline constexpr int kOk = 0;
inline constexpr int kRefused = 1;  // the daemon answered with an error
inline constexpr int kUsage = 2;
inline constexpr int kUnreachable = 3;  // no daemon, or no answer in time

// A connection to the daemon's socket.
class Client {
 public:
  ~Client();
  // Connects; on failure returns false with `error` set.
  bool connect(const std::string& path, std::string& error);
  // Sends one line (a newline is added) and waits up to `timeoutSeconds` for the reply line.
  std::optional<std::string> request(std::string_view line, double timeoutSeconds,
                                     std::string& error);

 private:
  int fd_ = -1;
  std::string pending_;  // received bytes after the last reply line
};

// Appends compact JSON text (no whitespace outside strings, as the daemon writes it) indented
// by two spaces as nlohmann's dump(2) lays it out, without parsing it: a dump of a million
// routes is a few hundred megabytes of text and would be several times that as a tree.
void indentJson(std::string_view compact, std::string& out);

// The socket the CLI uses when none is given: $PIMSNMP_SOCKET, else the packaged default.
std::string defaultSocket();

// Entry point of both `pimsnmpctl` and `pimsnmpd ctl`; `program` names it in messages.
int main(int argc, char** argv, const char* program);

}  // namespace PimSnmpd::Ctl
