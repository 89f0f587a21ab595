#include <iterator>
#include <vector>

#include <gtest/gtest.h>

#include "daemon/state/MergePatch.h"

namespace {

using PimSnmpd::Json;

struct Example {
  const char* target;
  const char* patch;
  const char* result;
};

// RFC 7396, appendix A.
constexpr Example kRfcExamples[] = {
    {R"({"a":"b"})", R"({"a":"c"})", R"({"a":"c"})"},
    {R"({"a":"b"})", R"({"b":"c"})", R"({"a":"b","b":"c"})"},
    {R"({"a":"b"})", R"({"a":null})", R"({})"},
    {R"({"a":"b","b":"c"})", R"({"a":null})", R"({"b":"c"})"},
    {R"({"a":["b"]})", R"({"a":"c"})", R"({"a":"c"})"},
    {R"({"a":"c"})", R"({"a":["b"]})", R"({"a":["b"]})"},
    {R"({"a":{"b":"c"}})", R"({"a":{"b":"d","c":null}})", R"({"a":{"b":"d"}})"},
    {R"({"a":[{"b":"c"}]})", R"({"a":[1]})", R"({"a":[1]})"},
    {R"(["a","b"])", R"(["c","d"])", R"(["c","d"])"},
    {R"({"a":"b"})", R"(["c"])", R"(["c"])"},
    {R"({"a":"foo"})", R"(null)", R"(null)"},
    {R"({"a":"foo"})", R"("bar")", R"("bar")"},
    {R"({"e":null})", R"({"a":1})", R"({"e":null,"a":1})"},
    {R"([1,2])", R"({"a":"b","c":null})", R"({"a":"b"})"},
    {R"({})", R"({"a":{"bb":{"ccc":null}}})", R"({"a":{"bb":{}}})"},
};

TEST(MergePatchTest, RfcExamples) {
  for (const Example& e : kRfcExamples) {
    SCOPED_TRACE(std::string(e.target) + " + " + e.patch);
    EXPECT_EQ(PimSnmpd::mergePatch(Json::parse(e.target), Json::parse(e.patch)),
              Json::parse(e.result));
    Json inPlace = Json::parse(e.target);
    PimSnmpd::mergePatchInPlace(inPlace, Json::parse(e.patch));
    EXPECT_EQ(inPlace, Json::parse(e.result));
  }
}

TEST(MergePatchTest, UndoHoldsOnlyWhatThePatchReplaced) {
  Json doc = Json::parse(R"({"keep": {"big": [1, 2, 3]}, "m": {"a": 1, "b": {"c": 2}, "d": 4}})");
  const Json original = doc;
  const Json undo = PimSnmpd::mergePatchInPlaceWithUndo(
      doc, Json::parse(R"({"m": {"a": 9, "b": {"x": 1}, "d": null, "n": {"y": null}}})"));
  EXPECT_EQ(doc, Json::parse(R"({"keep": {"big": [1, 2, 3]},
                                  "m": {"a": 9, "b": {"c": 2, "x": 1}, "n": {}}})"));
  // Old values at the leaves, null where nothing was, objects projected where both were.
  EXPECT_EQ(undo, Json::parse(R"({"m": {"a": 1, "b": {"x": null}, "d": 4, "n": null}})"));
  PimSnmpd::mergePatchInPlace(doc, undo);
  EXPECT_EQ(doc, original);
}

// Copying or taking the patch's values gives the same document and an undo that restores the
// target (one without nulls, as documents are), including nulls nested in a new subtree
// (dropped, not taken along); taking leaves every name the hint walks by.
TEST(MergePatchTest, TakingMatchesCopying) {
  std::vector<Example> cases(std::begin(kRfcExamples), std::end(kRfcExamples));
  cases.push_back({R"({"m": {"a": 1}})",
                   R"({"m": {"new": {"x": {"y": 1}, "z": [1]}, "a": {"deep": {"n": null}}}})",
                   R"({"m": {"new": {"x": {"y": 1}, "z": [1]}, "a": {"deep": {}}}})"});
  cases.push_back({R"({"r": {"k1": {"i": {"e1": {}}}}})",
                   R"({"r": {"k1": null, "k2": {"i": {"e2": {}, "e3": {}}}}})",
                   R"({"r": {"k2": {"i": {"e2": {}, "e3": {}}}}})"});
  for (const Example& e : cases) {
    const Json target = Json::parse(e.target);
    if (target.dump().find("null") != std::string::npos) continue;
    SCOPED_TRACE(std::string(e.target) + " + " + e.patch);
    const Json patch = Json::parse(e.patch);
    Json copied = target;
    const Json copiedUndo = PimSnmpd::mergePatchInPlaceWithUndo(copied, patch);
    Json taken = target;
    Json hint = patch;
    const Json takenUndo = PimSnmpd::mergePatchInPlaceWithUndoTaking(taken, hint);
    EXPECT_EQ(copied, Json::parse(e.result));
    EXPECT_EQ(taken, Json::parse(e.result));
    EXPECT_EQ(takenUndo, copiedUndo);
    if (patch.is_object()) {
      ASSERT_TRUE(hint.is_object());
      for (const auto& [name, value] : patch.items()) EXPECT_TRUE(hint.contains(name)) << name;
    }
    PimSnmpd::mergePatchInPlace(taken, takenUndo);
    EXPECT_EQ(taken, target);
  }
}

}  // namespace
