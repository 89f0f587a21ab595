#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "daemon/LineFramer.h"

namespace PimSnmpd {
namespace {

// What a framer handed out: lines as themselves, over-long lines as "<oversize>".
struct Framed {
  std::vector<std::string> events;
  // Stop after this many events (the connection is dropped).
  size_t stopAfter = SIZE_MAX;

  LineFramer::Handler handler() {
    return [this](std::string_view line, bool oversize) {
      events.push_back(oversize ? "<oversize>" : std::string(line));
      return events.size() < stopAfter;
    };
  }
};

std::vector<std::string> frameInChunks(std::string_view bytes, size_t chunk, size_t maxLine) {
  LineFramer f(maxLine);
  Framed out;
  for (size_t i = 0; i < bytes.size(); i += chunk) {
    EXPECT_TRUE(f.push(bytes.substr(i, chunk), out.handler()));
    EXPECT_LE(f.buffered(), maxLine + chunk);
  }
  EXPECT_TRUE(f.finish(out.handler()));
  EXPECT_EQ(f.buffered(), 0u);
  return out.events;
}

TEST(LineFramerTest, EndsLinesAtNewlinesAndSkipsBlankOnes) {
  const std::vector<std::string> expected = {"one", "two", " three ", "four"};
  const std::string input = "one\ntwo\r\n\n \t\r\n\r\n three \nfour";
  // The same lines whatever the chunking, down to a byte at a time.
  for (size_t chunk : {size_t{1}, size_t{2}, size_t{5}, input.size()}) {
    EXPECT_EQ(frameInChunks(input, chunk, 64), expected) << "chunk " << chunk;
  }
}

TEST(LineFramerTest, OnlyOneCarriageReturnBelongsToTheTerminator) {
  EXPECT_EQ(frameInChunks("a\r\r\nb\rc\n", 3, 64), (std::vector<std::string>{"a\r", "b\rc"}));
}

TEST(LineFramerTest, LimitIsInclusiveAndLongerLinesAreReportedOnce) {
  const std::string atLimit(8, 'x');
  const std::string input = atLimit + "\n" + std::string(30, 'y') + "\nafter\n" + atLimit + "z";
  for (size_t chunk : {size_t{1}, size_t{4}, input.size()}) {
    EXPECT_EQ(frameInChunks(input, chunk, 8),
              (std::vector<std::string>{atLimit, "<oversize>", "after", "<oversize>"}))
        << "chunk " << chunk;
  }
}

TEST(LineFramerTest, OversizeIsReportedBeforeTheLineEnds) {
  LineFramer f(4);
  Framed out;
  ASSERT_TRUE(f.push("abcdefgh", out.handler()));
  EXPECT_EQ(out.events, std::vector<std::string>{"<oversize>"});
  EXPECT_EQ(f.buffered(), 0u);
  // The rest of the line is dropped as it comes, then framing resumes.
  ASSERT_TRUE(f.push(std::string(100, 'i'), out.handler()));
  EXPECT_EQ(f.buffered(), 0u);
  ASSERT_TRUE(f.push("tail\nok\n", out.handler()));
  EXPECT_EQ(out.events, (std::vector<std::string>{"<oversize>", "ok"}));
}

TEST(LineFramerTest, AnUnterminatedLastLineCountsOnlyAtTheEnd) {
  LineFramer f(64);
  Framed out;
  ASSERT_TRUE(f.push("ping\nsta", out.handler()));
  EXPECT_EQ(out.events, std::vector<std::string>{"ping"});
  EXPECT_EQ(f.buffered(), 3u);
  ASSERT_TRUE(f.push("tus", out.handler()));
  ASSERT_TRUE(f.finish(out.handler()));
  EXPECT_EQ(out.events, (std::vector<std::string>{"ping", "status"}));
  EXPECT_EQ(frameInChunks("  \r", 1, 64), std::vector<std::string>{});
}

TEST(LineFramerTest, AHandlerThatRefusesStopsTheFraming) {
  LineFramer f(64);
  Framed out;
  out.stopAfter = 2;
  EXPECT_FALSE(f.push("a\nb\nc\nd\n", out.handler()));
  EXPECT_EQ(out.events, (std::vector<std::string>{"a", "b"}));
}

}  // namespace
}  // namespace PimSnmpd
