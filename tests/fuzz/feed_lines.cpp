// Bytes -> what the feed server does with a connection's input: the framing into lines (in
// chunks as reads deliver them, the first byte choosing their size), then per line the
// dispatch to an update (a merge patch, through the daemon's StateKeeper) or a command, and the
// reply. The lines must not depend on the chunking; every reply is one line of valid JSON; a
// refused update leaves the document as it was.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "daemon/Excerpt.h"
#include "daemon/FeedLine.h"
#include "daemon/LineFramer.h"
#include "daemon/StateKeeper.h"
#include "platform/Trace/Trace.h"
#include "tests/fuzz/FuzzSupport.h"

namespace {

using PimSnmpd::Json;
using PimSnmpd::LineFramer;

// Small enough that inputs reach the over-long line handling.
constexpr size_t kMaxLine = 512;
constexpr std::string_view kOversize = "<oversize>";

std::vector<std::string> frame(std::string_view bytes, size_t chunk) {
  LineFramer framer(kMaxLine);
  std::vector<std::string> out;
  const LineFramer::Handler collect = [&](std::string_view line, bool oversize) {
    if (oversize) {
      Fuzz::check(line.empty(), "an oversize event carries a line");
      out.emplace_back(kOversize);
      return true;
    }
    Fuzz::check(!line.empty() && line.size() <= kMaxLine, "line length", line);
    Fuzz::check(line.find('\n') == std::string_view::npos, "a line holds a newline");
    Fuzz::check(line.find_first_not_of(" \t\r") != std::string_view::npos, "a blank line");
    out.emplace_back(line);
    return true;
  };
  for (size_t at = 0; at < bytes.size(); at += chunk) {
    framer.push(bytes.substr(at, chunk), collect);
    Fuzz::check(framer.buffered() <= kMaxLine + chunk, "the framer holds more than a line");
  }
  framer.finish(collect);
  Fuzz::check(framer.buffered() == 0, "the framer holds bytes after the end");
  return out;
}

std::string command(const PimSnmpd::FeedRequest& r) {
  Fuzz::check(r.word.find_first_of(" \t") == std::string_view::npos, "a word holds a space");
  Fuzz::check(r.args.empty() || (r.args.front() != ' ' && r.args.front() != '\t' &&
                                 r.args.back() != ' ' && r.args.back() != '\t'),
              "untrimmed arguments");
  if (r.word == "trace") {
    // Any setting a client sends is either taken or refused, and `off` undoes it.
    Trace::enable(r.args);
    Trace::disableAll();
    return PimSnmpd::replyLine({{"ok", true}, {"trace", Trace::setting()}});
  }
  return PimSnmpd::replyLine(
      {{"ok", false},
       {"errors",
        Json::array(
            {{{"path", ""}, {"reason", "unknown command '" + PimSnmpd::excerpt(r.word) + "'"}}})}});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const size_t chunk = 1 + data[0] % 97;
  const std::string_view bytes = Fuzz::text(data + 1, size - 1);
  const std::vector<std::string> lines = frame(bytes, chunk);
  Fuzz::check(frame(bytes, bytes.size() + 1) == lines, "the lines depend on the chunking");

  Fuzz::Platform platform(false);
  PimSnmpd::StateKeeper keeper(platform.state());
  for (const std::string& line : lines) {
    if (line == kOversize) continue;
    const PimSnmpd::FeedRequest request = PimSnmpd::parseFeedLine(line);
    std::string reply;
    if (request.update) {
      const std::string before = keeper.document().dump();
      const PimSnmpd::ApplyResult r = keeper.applyPatchText(line, "feed client 1");
      if (!r.ok) {
        Fuzz::check(keeper.document().dump() == before, "a refused line changed the document");
      }
      reply = PimSnmpd::replyLine(
          r.ok ? Json{{"ok", true}, {"update", keeper.applied()}}
               : Json{{"ok", false}, {"errors", PimSnmpd::errorsToJson(r.errors)}});
    } else {
      reply = command(request);
    }
    Fuzz::check(reply.find('\n') == std::string::npos, "a reply spans lines", reply);
    Fuzz::check(Json::accept(reply), "a reply is not JSON", reply);
  }
  return 0;
}
