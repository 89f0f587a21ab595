#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/Trace/Trace.h"

namespace Trace {

// Test helper: while alive, enables `setting` and collects every emitted line
// (message text only); restores the previous setting and sink when destroyed.
class Capture {
 public:
  explicit Capture(std::string_view setting = "*/0-9");
  ~Capture();
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

  struct Line {
    std::string facility;
    int level;
    std::string message;
  };
  const std::vector<Line>& lines() const { return lines_; }
  // True when some line contains `text`.
  bool contains(std::string_view text) const;
  size_t count(std::string_view text) const;
  void clear() { lines_.clear(); }

 private:
  std::string previous_;
  Sink previousSink_;
  std::vector<Line> lines_;
};

}  // namespace Trace
