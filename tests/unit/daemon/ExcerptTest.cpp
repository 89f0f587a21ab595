#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <string>

#include "daemon/Excerpt.h"

namespace PimSnmpd {
namespace {

// The number in "…[N bytes left out]…".
size_t leftOut(const std::string& e) {
  const size_t at = e.find("…[");
  if (at == std::string::npos) return 0;
  return std::stoul(e.substr(at + std::string("…[").size()));
}

// The bytes of the original text in `e`: before and after the marker.
size_t quoted(const std::string& e) {
  const std::string close = "]…";
  return e.find("…[") + (e.size() - (e.rfind(close) + close.size()));
}

TEST(Excerpt, KeepsTextUpToTheLimitWhole) {
  EXPECT_EQ(excerpt(""), "");
  const std::string fits(kMaxExcerpt, 'a');
  EXPECT_EQ(excerpt(fits), fits);
  EXPECT_NE(excerpt(fits + "b"), fits + "b");
}

TEST(Excerpt, QuotesHeadAndTailOfLongTextAndCountsTheRest) {
  for (const size_t size : {kMaxExcerpt + 1, size_t{5000}, size_t{3} << 20}) {
    std::string text = "HEAD" + std::string(size - 8, 'x') + "TAIL";
    const std::string e = excerpt(text);
    EXPECT_LE(e.size(), kMaxExcerpt + 32) << size;
    EXPECT_TRUE(e.starts_with("HEAD")) << e;
    EXPECT_TRUE(e.ends_with("TAIL")) << e;
    // What is quoted plus what is counted is the whole text.
    EXPECT_EQ(quoted(e) + leftOut(e), text.size()) << e;
  }
}

TEST(Excerpt, NeverSplitsAUtf8Character) {
  // Two-, three- and four-byte characters at every alignment against the cut points.
  for (const std::string ch : {"é", "€", "𝄞"}) {
    for (size_t pad = 0; pad < 4; ++pad) {
      std::string text(pad, 'p');
      while (text.size() < 4 * kMaxExcerpt) text += ch;
      const std::string e = excerpt(text);
      EXPECT_NO_THROW((void)nlohmann::json(e).dump()) << ch << " pad " << pad;
      EXPECT_EQ(quoted(e) + leftOut(e), text.size());
    }
  }
}

TEST(Excerpt, BoundsEveryPathAndReasonOfErrors) {
  const std::string big(1 << 20, 'n');
  ValidationErrors errors{{"/interfaces/" + big, "'" + big + "' is not an interface name"},
                          {"/vrfs/red", "short"}};
  excerptErrors(errors);
  EXPECT_LE(errors[0].path.size(), kMaxExcerpt + 32);
  EXPECT_TRUE(errors[0].path.starts_with("/interfaces/nnn"));
  EXPECT_LE(errors[0].reason.size(), kMaxExcerpt + 32);
  EXPECT_TRUE(errors[0].reason.ends_with("' is not an interface name")) << errors[0].reason;
  EXPECT_EQ(errors[1], (ValidationError{"/vrfs/red", "short"}));
}

}  // namespace
}  // namespace PimSnmpd
