#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <string>

#include "daemon/state/StateDocument.h"
#include "tests/unit/state_doc/StateDocTestUtil.h"

namespace {

using PimSnmpd::Json;
using PimSnmpd::parseJson;

// Numbers read from their text: integers that fit as uint64, or int64 when negative, and the
// correctly rounded double otherwise, down to the sign of a zero and across the subnormal and
// underflow edges; glibc's strtod (through nlohmann) is the reference.
TEST(JsonNumberTest, ReadsEveryNumberExactly) {
  for (const char* text : {"0e40",
                           "-0e-40",
                           "0E+40",
                           "0.0e-99999999999999999999",
                           "-0",
                           "-0.0",
                           "1e308",
                           "1.7976931348623157e308",
                           "18446744073709551615",
                           "18446744073709551616",
                           "-9223372036854775808",
                           "-9223372036854775809",
                           "123456789012345678901234567890",
                           "0.1",
                           "5.0",
                           "2.4703282292062328e-324",
                           "2.4703282292062327e-324",
                           "1e-400",
                           "-1e-400",
                           "0.00000000000000000000001e-310",
                           "100000000000000000000000e-330"}) {
    // Inside an object too, where the token ends at a brace rather than a bracket.
    for (const std::string& doc :
         {std::string(text), "[" + std::string(text) + "]", "{\"n\": " + std::string(text) + "}"}) {
      const auto r = parseJson(doc);
      ASSERT_TRUE(r.value) << doc << ": " << StateDocTest::describe(r.errors);
      const Json& got = r.value->is_primitive() ? *r.value : *r.value->begin();
      const Json expected = Json::parse(text);
      ASSERT_EQ(got.type(), expected.type()) << doc;
      if (expected.is_number_float()) {
        EXPECT_EQ(std::bit_cast<uint64_t>(got.get<double>()),
                  std::bit_cast<uint64_t>(expected.get<double>()))
            << doc << ": " << got.get<double>();
      } else {
        EXPECT_EQ(got, expected) << doc;
      }
    }
  }
}

// A magnitude past a double's is refused at the number, whether the reader's scan or the
// conversion finds it, and nothing is built.
TEST(JsonNumberTest, RefusesNumbersPastADouble) {
  for (const char* text : {"1e309", "1e400", "-1e99999999999999999999", "10e308", "-10e308",
                           "1.7976931348623159e308", "0.0001e313"}) {
    const auto r = parseJson("{\n  \"a\": [1, " + std::string(text) + "]}");
    EXPECT_FALSE(r.value) << text;
    ASSERT_EQ(r.errors.size(), 1u) << text;
    EXPECT_EQ(r.errors[0].path, "");
    EXPECT_EQ(r.errors[0].reason,
              "invalid JSON: parse error at line 2, column 12: Number too big to be stored in "
              "double.")
        << text;
  }
}

}  // namespace
