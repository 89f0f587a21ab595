#include "daemon/LineFramer.h"

#include <algorithm>

namespace PimSnmpd {

bool LineFramer::push(std::string_view bytes, const Handler& handler) {
  in_.append(bytes);
  return frame(handler);
}

bool LineFramer::finish(const Handler& handler) {
  if (discarding_ || in_.empty()) {
    in_.clear();
    scanned_ = 0;
    discarding_ = false;
    return true;
  }
  const std::string last = std::move(in_);
  in_.clear();
  scanned_ = 0;
  return deliver(last, handler);
}

bool LineFramer::frame(const Handler& handler) {
  size_t start = 0;
  for (;;) {
    const size_t nl = in_.find('\n', std::max(start, scanned_));
    if (nl == std::string::npos) break;
    const std::string_view line(in_.data() + start, nl - start);
    bool keep = true;
    if (discarding_) {
      discarding_ = false;
    } else if (line.size() > maxLine_) {
      keep = handler({}, true);
    } else {
      keep = deliver(line, handler);
    }
    start = nl + 1;
    scanned_ = start;
    if (!keep) {
      in_.erase(0, start);
      scanned_ = 0;
      return false;
    }
  }
  in_.erase(0, start);
  scanned_ = in_.size();
  if (!discarding_ && in_.size() > maxLine_) {
    // Answer now and drop the rest of the line as it arrives, instead of buffering it.
    discarding_ = true;
    in_.clear();
    scanned_ = 0;
    return handler({}, true);
  }
  if (discarding_) {
    in_.clear();
    scanned_ = 0;
  }
  return true;
}

bool LineFramer::deliver(std::string_view line, const Handler& handler) {
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  const bool blank = std::all_of(line.begin(), line.end(),
                                 [](char ch) { return ch == ' ' || ch == '\t' || ch == '\r'; });
  return blank || handler(line, false);
}

}  // namespace PimSnmpd
