#pragma once

// What one feed line asks for, and how a reply goes back: the part of the feed protocol that
// needs neither the socket nor the agent (the daemon runs the commands).

#include <string>
#include <string_view>
#include <utility>

#include "daemon/state/Json.h"

namespace PimSnmpd {

struct FeedRequest {
  // An update: the line is a merge patch. Anything that starts like a JSON value is one (the
  // applier says what is wrong with one that is not an object); commands are words.
  bool update = false;
  std::string_view word;  // a command's name
  std::string_view args;  // and the rest of its line, trimmed
};

FeedRequest parseFeedLine(std::string_view line);

// Splits "word rest of line" at the first run of spaces or tabs; both parts trimmed.
std::pair<std::string_view, std::string_view> splitWord(std::string_view s);

// A reply as one line of JSON. Invalid UTF-8 from a client's text is replaced, not thrown on.
std::string replyLine(const Json& reply);

}  // namespace PimSnmpd
