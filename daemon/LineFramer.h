#pragma once

// Frames the bytes of one feed connection into lines, apart from the socket that delivers
// them (so that the framing can be tested and fuzzed on its own). "\n" or "\r\n" ends a line;
// blank lines (spaces, tabs, carriage returns) are skipped; a line longer than the limit is
// reported once and dropped as it arrives, so the buffer never holds more than the limit plus one
// read; at the end of input an unterminated last line counts too.

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace PimSnmpd {

class LineFramer {
 public:
  // Gets one line (without its terminator, never blank) or, with `oversize` set and an empty
  // `line`, the news that a line passed the limit. Returning false stops the framing: the
  // connection is to be dropped.
  using Handler = std::function<bool(std::string_view line, bool oversize)>;

  explicit LineFramer(size_t maxLine) : maxLine_(maxLine) {}

  // Takes more bytes and hands out every line they complete.
  bool push(std::string_view bytes, const Handler& handler);
  // The end of input: hands out an unterminated last line.
  bool finish(const Handler& handler);

  size_t maxLine() const { return maxLine_; }
  // Bytes held of an unfinished line.
  size_t buffered() const { return in_.size(); }

 private:
  bool frame(const Handler& handler);
  static bool deliver(std::string_view line, const Handler& handler);

  size_t maxLine_;
  std::string in_;
  size_t scanned_ = 0;       // bytes of `in_` known to hold no newline
  bool discarding_ = false;  // inside an over-long line
};

}  // namespace PimSnmpd
