#pragma once

// pimsnmpctl: the companion CLI of pimsnmpd. It talks to the daemon's feed socket: one request
// line, one JSON reply line.

#include <cstddef>
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

// Lays out compact JSON text (no whitespace outside strings, as the daemon writes it) indented
// by two spaces as nlohmann's dump(2) does, without parsing it and in pieces of any size: a
// dump of a million routes is a few hundred megabytes of text and would be several times that
// as a tree.
class JsonIndenter {
 public:
  // Appends the layout of the next piece of the text to `out`.
  void feed(std::string_view piece, std::string& out);
  // Appends what the end of the text completes.
  void finish(std::string& out);

 private:
  void newline(std::string& out) const;

  size_t depth_ = 0;
  bool inString_ = false;
  bool escaped_ = false;
  // A '{' or '[' just read, written once the next byte tells whether it is empty.
  char opened_ = 0;
};

// The layout of a whole text, appended to `out`.
void indentJson(std::string_view compact, std::string& out);

// The socket the CLI uses when none is given: $PIMSNMP_SOCKET, else the packaged default.
std::string defaultSocket();

// Entry point of both `pimsnmpctl` and `pimsnmpd ctl`; `program` names it in messages.
int main(int argc, char** argv, const char* program);

}  // namespace PimSnmpd::Ctl
