// mergePatchDiff: the patch between two documents, which applied to the first gives the second.

#include <gtest/gtest.h>

#include "daemon/state/MergePatch.h"
#include "tests/unit/frr/FrrTestUtil.h"

namespace {

using PimSnmpd::Json;
using PimSnmpd::mergePatch;
using PimSnmpd::mergePatchDiff;

struct Case {
  const char* from;
  const char* to;
  const char* patch;
};

constexpr Case kCases[] = {
    {R"({"a":1})", R"({"a":1})", R"({})"},
    {R"({"a":1})", R"({"a":2})", R"({"a":2})"},
    {R"({"a":1,"b":2})", R"({"b":2})", R"({"a":null})"},
    {R"({"a":{"x":1,"y":2}})", R"({"a":{"x":1,"y":3}})", R"({"a":{"y":3}})"},
    // Arrays are values: replaced whole.
    {R"({"a":["x","y"]})", R"({"a":["y"]})", R"({"a":["y"]})"},
    // An object emptied member by member, and an object replacing a number.
    {R"({"a":{"x":1}})", R"({"a":{}})", R"({"a":{"x":null}})"},
    {R"({"a":5})", R"({"a":{}})", R"({"a":{}})"},
    {R"({"a":{"x":1}})", R"({"a":"s"})", R"({"a":"s"})"},
    {R"({})", R"({"a":{"b":{"c":1}}})", R"({"a":{"b":{"c":1}}})"},
};

TEST(MergePatchDiffTest, SmallestPatchThatRoundTrips) {
  for (const auto& c : kCases) {
    const Json from = Json::parse(c.from), to = Json::parse(c.to);
    const Json patch = mergePatchDiff(from, to);
    EXPECT_EQ(patch, Json::parse(c.patch)) << c.from << " -> " << c.to;
    EXPECT_EQ(mergePatch(from, patch), to) << c.from << " -> " << c.to;
  }
}

TEST(MergePatchDiffTest, RoundTripsBetweenRouterDocuments) {
  // Whole lab documents: every router's into every other's.
  const char* routers[] = {"r1", "r2", "r3", "r4"};
  for (const char* a : routers) {
    for (const char* b : routers) {
      const Json from = FrrTest::captureSnapshot(a, FrrTest::FakeClock::start);
      const Json to = FrrTest::captureSnapshot(b, FrrTest::FakeClock::start + 7);
      EXPECT_EQ(mergePatch(from, mergePatchDiff(from, to)), to) << a << " -> " << b;
    }
  }
}

}  // namespace
