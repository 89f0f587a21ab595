#include "daemon/FeedLine.h"

#include <cctype>
#include <tuple>

namespace PimSnmpd {

namespace {

bool isSpace(char ch) {
  return ch == ' ' || ch == '\t';
}

}  // namespace

FeedRequest parseFeedLine(std::string_view line) {
  size_t first = 0;
  while (first < line.size() && std::isspace(static_cast<unsigned char>(line[first]))) ++first;
  FeedRequest r;
  if (first < line.size() &&
      std::string_view("{[\"-0123456789").find(line[first]) != std::string_view::npos) {
    r.update = true;
    return r;
  }
  std::tie(r.word, r.args) = splitWord(line.substr(first));
  return r;
}

std::pair<std::string_view, std::string_view> splitWord(std::string_view s) {
  while (!s.empty() && isSpace(s.front())) s.remove_prefix(1);
  size_t end = 0;
  while (end < s.size() && !isSpace(s[end])) ++end;
  std::string_view word = s.substr(0, end);
  std::string_view rest = s.substr(end);
  while (!rest.empty() && isSpace(rest.front())) rest.remove_prefix(1);
  while (!rest.empty() && isSpace(rest.back())) rest.remove_suffix(1);
  return {word, rest};
}

std::string replyLine(const Json& reply) {
  return reply.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace PimSnmpd
