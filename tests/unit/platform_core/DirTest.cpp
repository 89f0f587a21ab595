#include <gtest/gtest.h>

#include <map>
#include <string>

#include "platform/Ent/Dir.h"
#include "platform/Ent/Error.h"

namespace {

using Ent::Dir;
using Ent::Ptr;

class Leaf : public Ent::Entity {
 public:
  using Entity::Entity;
  std::string_view typeName() const override { return "Test::Leaf"; }
};

// Publishes its "vrfConfig" collection to path lookups.
class Config : public Leaf {
 public:
  using Leaf::Leaf;
  Ptr<Ent::Entity> childEntity(std::string_view attr, std::string_view key) const override {
    if (attr != "vrfConfig") return nullptr;
    auto it = vrfs.find(key);
    return it == vrfs.end() ? nullptr : it->second;
  }
  std::map<std::string, Ptr<Ent::Entity>, std::less<>> vrfs;
};

TEST(UrlQuoteTest, QuotesEverythingButUnreservedBytes) {
  const std::pair<std::string, std::string> cases[] = {
      {"", ""},
      {"'default'", "%27default%27"},
      {"a/b", "a%2Fb"},
      {"50%", "50%25"},
      {"Az09-_.~", "Az09-_.~"},
      {"vrf red", "vrf%20red"},
      {"\xC3\xA9", "%C3%A9"},
      {std::string("a\0b", 3), "a%00b"},
  };
  for (const auto& [plain, quoted] : cases) {
    EXPECT_EQ(Ent::urlQuote(plain), quoted);
    EXPECT_EQ(Ent::urlUnquote(quoted), plain);
  }
  std::string all;
  for (int c = 0; c < 256; ++c) all.push_back(static_cast<char>(c));
  EXPECT_EQ(Ent::urlUnquote(Ent::urlQuote(all)), all);
  EXPECT_EQ(Ent::urlUnquote("%2f%2F"), "//");
}

TEST(UrlQuoteTest, MalformedEscapesAreKeptLiterally) {
  for (const char* s : {"%", "%4", "a%", "%zz", "%4g", "%g4", "100%", "%%"}) {
    EXPECT_EQ(Ent::urlUnquote(s), s);
  }
  EXPECT_EQ(Ent::urlUnquote("%%41"), "%A");
  EXPECT_EQ(Ent::urlUnquote("x%41"), "xA");
}

struct DirTest : ::testing::Test {
  Ptr<Dir> root = Ent::make<Dir>("root");
};

TEST_F(DirTest, MkdirsAndLookupOfNestedPaths) {
  Ptr<Dir> c = root->mkdirs("a/b/c");
  EXPECT_EQ(c->name(), "c");
  EXPECT_EQ(root->mkdirs("/a//b/c/"), c);
  EXPECT_EQ(root->lookup("a/b/c"), c);
  EXPECT_EQ(root->lookupAs<Dir>("/a//b/c/"), c);
  EXPECT_EQ(root->lookup(""), root);
  EXPECT_EQ(root->mkdirs(""), root);
  EXPECT_EQ(root->lookup("a/x"), nullptr);
  EXPECT_EQ(root->lookup("a/b/c/d"), nullptr);
  EXPECT_EQ(root->lookupAs<Leaf>("a/b"), nullptr);

  Ptr<Dir> red = root->mkdirs("vrf/%27red%27");
  EXPECT_EQ(red->name(), "'red'");
  EXPECT_EQ(root->lookup("vrf/'red'"), red);
  Ptr<Dir> slash = root->mkdirs("vrf/a%2Fb");
  EXPECT_EQ(slash->name(), "a/b");
  EXPECT_EQ(root->lookup("vrf/a%2Fb"), slash);
  EXPECT_EQ(root->lookup("vrf/a/b"), nullptr);
}

TEST_F(DirTest, EntriesAreReplacedAndRemovedByName) {
  Ptr<Ent::Entity> leaf = Ent::make<Leaf>("x");
  root->entityIs(Ent::make<Leaf>("x"));
  root->entityIs(leaf);
  EXPECT_EQ(root->entity("x"), leaf);
  EXPECT_THROW(root->mkdir("x"), Ent::Error);
  EXPECT_EQ(root->lookup("x/y"), nullptr);  // a leaf has no children
  EXPECT_EQ(root->entityDel("x"), leaf);
  EXPECT_EQ(root->entityDel("x"), nullptr);
  EXPECT_EQ(root->size(), 0u);
}

TEST_F(DirTest, AttrKeyStepsIntoCollections) {
  auto config = Ent::make<Config>("config");
  auto red = Ent::make<Leaf>("'red'");
  config->vrfs.emplace("'red'", red);
  root->mkdir("agent")->entityIs(config);
  auto dotted = Ent::make<Config>("my.config");
  dotted->vrfs.emplace("a/b", red);
  root->entityIs(dotted);

  EXPECT_EQ(root->lookup("agent/config.vrfConfig/%27red%27"), red);
  EXPECT_EQ(root->lookup("agent/config"), config);
  EXPECT_EQ(root->lookup("my.config.vrfConfig/a%2Fb"), red);
  EXPECT_EQ(root->lookup("agent/config.vrfConfig/%27blue%27"), nullptr);
  EXPECT_EQ(root->lookup("agent/config.other/%27red%27"), nullptr);
  EXPECT_EQ(root->lookup("agent/config.vrfConfig/"), nullptr);
  EXPECT_EQ(root->lookup("agent/nobody.vrfConfig/%27red%27"), nullptr);
  EXPECT_EQ(root->lookup("agent/config.vrfConfig/%27red%27/more"), nullptr);
}

}  // namespace
