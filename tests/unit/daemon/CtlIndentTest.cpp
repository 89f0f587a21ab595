// pimsnmpctl lays out a dump's text without parsing it; the layout must be the one a parse and
// dump(2) would give, strings left exactly as they are.

#include <string>

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
    std::string out;
    PimSnmpd::Ctl::indentJson(compact, out);
    EXPECT_EQ(out, nlohmann::json::parse(text).dump(2));
  }
}

}  // namespace
