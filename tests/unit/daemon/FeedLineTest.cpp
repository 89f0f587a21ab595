#include <gtest/gtest.h>

#include <string>

#include "daemon/FeedLine.h"

namespace PimSnmpd {
namespace {

TEST(FeedLineTest, LinesThatStartLikeJsonAreUpdates) {
  for (const char* line : {"{}", "  {\"a\":1}", "[1]", "\"x\"", "-1", "0", "9", "\t\v{"}) {
    EXPECT_TRUE(parseFeedLine(line).update) << line;
  }
  // Literals other than numbers are words: a client mistyping `null` hears of an unknown
  // command, not of a patch that replaces the document.
  for (const char* line : {"null", "true", "ping", "", "   ", "+1", ".5", "}"}) {
    EXPECT_FALSE(parseFeedLine(line).update) << line;
  }
}

TEST(FeedLineTest, CommandsSplitIntoAWordAndTrimmedArguments) {
  const FeedRequest r = parseFeedLine(" \t notify  pimNeighborLoss off  maintenance window \t");
  EXPECT_FALSE(r.update);
  EXPECT_EQ(r.word, "notify");
  EXPECT_EQ(r.args, "pimNeighborLoss off  maintenance window");

  const auto [word, rest] = splitWord(r.args);
  EXPECT_EQ(word, "pimNeighborLoss");
  EXPECT_EQ(rest, "off  maintenance window");

  EXPECT_EQ(splitWord("status"), std::make_pair(std::string_view("status"), std::string_view()));
  EXPECT_EQ(splitWord(" \t "), std::make_pair(std::string_view(), std::string_view()));
}

TEST(FeedLineTest, RepliesAreOneLineOfValidJsonWhateverTheInput) {
  // A reason quoting a client's bytes: a newline, and UTF-8 cut in the middle of a character.
  const std::string quoted = std::string("bad\nname \xc3") + "\xff";
  const std::string reply = replyLine({{"ok", false}, {"errors", {{{"reason", quoted}}}}});
  EXPECT_EQ(reply.find('\n'), std::string::npos);
  const Json back = Json::parse(reply);
  EXPECT_EQ(back["errors"][0]["reason"], "bad\nname \xef\xbf\xbd\xef\xbf\xbd");
}

}  // namespace
}  // namespace PimSnmpd
