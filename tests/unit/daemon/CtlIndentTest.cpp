// pimsnmpctl lays out a dump's text without parsing it; the layout must be the one a parse and
// dump(2) would give, strings left exactly as they are.

#include <string>
#include <string_view>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "daemon/ctl/Ctl.h"

namespace {

TEST(CtlIndentTest, LaysOutCompactTextAsDumpTwoDoes) {
  const char* const samples[] = {
      R"({})",
      R"([])",
      R"({"a":{},"b":[],"c":[1,[2,{}],{"d":null}],"e":true,"f":-1.5e3})",
      // Punctuation and escapes inside strings and keys are text, not structure.
      R"({"k,:{}[]":"v\"},[:\\","\\":"\\\\","u":"caf\u00e9 \u2028 \ud83d\ude00","n":"a\nb"})",
      R"({"vrfs":{"red":{"ipv4":{"routes":{"*,239.1.1.1":{"flags":["wildcard","rpt"]}}}}}})",
  };
  for (const char* text : samples) {
    SCOPED_TRACE(text);
    // The daemon's own compact writing of the value (escapes as nlohmann writes them).
    const std::string compact = nlohmann::json::parse(text).dump();
    const std::string expected = nlohmann::json::parse(text).dump(2);
    std::string out;
    PimSnmpd::Ctl::indentJson(compact, out);
    EXPECT_EQ(out, expected);
    // Fed in pieces, which may split a string, an escape or an empty container.
    for (size_t piece = 1; piece < compact.size(); ++piece) {
      PimSnmpd::Ctl::JsonIndenter indenter;
      std::string pieces;
      for (size_t at = 0; at < compact.size(); at += piece) {
        indenter.feed(std::string_view(compact).substr(at, piece), pieces);
      }
      indenter.finish(pieces);
      ASSERT_EQ(pieces, expected) << "pieces of " << piece;
    }
  }
}

}  // namespace
