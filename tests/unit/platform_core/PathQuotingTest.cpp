// Names become path components through Ent::childPath only: any byte string is one component,
// two names never share a path, and every published path of a VRF leads back to that VRF.

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>
#include <vector>

#include "platform/Ent/Dir.h"
#include "platform/Routing/Multicast/Fib/VrfConfig.h"
#include "platform/Routing/Pim/SparseMode/Shtab/Status.h"

namespace {

using Ent::Dir;

class Leaf : public Ent::Entity {
 public:
  using Entity::Entity;
  std::string_view typeName() const override { return "Test::Leaf"; }
};

// Names whose naive spellings collide or step elsewhere: a slash, the quoted spelling of
// another name, dots (the "entity.attr" step), percent signs, bytes above 0x7f.
std::vector<std::string> trickyNames() {
  std::vector<std::string> names = {"a/b",      "a%2Fb", "a%2fb",    "a%252Fb", "%",       "%%",
                                    "%2",       "%zz",   ".",        "..",      "a.b",     "config",
                                    "x.config", "a%41",  "aA",       "A",       "/",       "//",
                                    "a b",      "a+b",   "\xc3\xa9", "%C3%A9",  "default", "'red'"};
  for (int c = 1; c < 256; ++c) names.emplace_back(1, static_cast<char>(c));
  return names;
}

// Random byte strings drawn mostly from the characters that matter to paths.
std::vector<std::string> randomNames(size_t count) {
  static constexpr char kAlphabet[] = "aA0/%.2F~_- \x7f\xc3\xa9";
  std::mt19937 rng(20261123);
  std::uniform_int_distribution<size_t> length(1, 8);
  std::uniform_int_distribution<size_t> pick(0, sizeof(kAlphabet) - 2);
  std::vector<std::string> out;
  for (size_t i = 0; i < count; ++i) {
    std::string s;
    for (size_t n = length(rng); n > 0; --n) s.push_back(kAlphabet[pick(rng)]);
    out.push_back(std::move(s));
  }
  return out;
}

TEST(PathQuotingTest, DistinctNamesHaveDistinctPathsThatLeadBackToThem) {
  std::vector<std::string> names = trickyNames();
  for (std::string& s : randomNames(3000)) names.push_back(std::move(s));
  const std::set<std::string> unique(names.begin(), names.end());

  auto root = Ent::make<Dir>("root");
  auto dir = root->mkdirs("snmp/pim/snmpPimMIB");
  for (const std::string& name : unique) dir->entityIs(Ent::make<Leaf>(name));

  std::set<std::string> paths;
  for (const std::string& name : unique) {
    const std::string path = Ent::childPath("snmp/pim/snmpPimMIB", name);
    // One component: nothing after the directory's slash is a separator.
    EXPECT_EQ(path.find('/', sizeof("snmp/pim/snmpPimMIB")), std::string::npos) << path;
    EXPECT_EQ(Ent::urlUnquote(path.substr(sizeof("snmp/pim/snmpPimMIB"))), name);
    paths.insert(path);
    const auto found = root->lookup(path);
    ASSERT_TRUE(found) << "no entity at " << path;
    EXPECT_EQ(found->name(), name);
  }
  EXPECT_EQ(paths.size(), unique.size());
}

TEST(PathQuotingTest, KeyedCollectionsAndMountPathsLeadBackToTheVrf) {
  auto root = Ent::make<Dir>("root");
  auto configs = Ent::make<Routing::Multicast::Fib::VrfConfig>();
  root->mkdirs("Stadb/routing/multicast/vrf")->entityIs(configs);
  for (const std::string& name : trickyNames()) {
    if (name.size() > L3::VrfName::kMaxLen) continue;
    configs->configIs(name);
  }
  for (const std::string& name : trickyNames()) {
    const auto found =
        root->lookup(Ent::childPath("Stadb/routing/multicast/vrf/config.config", name));
    ASSERT_TRUE(found) << name;
    EXPECT_EQ(found.get(), configs->config(name).get()) << name;

    const L3::VrfName vrf(name);
    const auto table = Routing::Pim::SparseMode::Shtab::Status::fromMountPath(
        Routing::Pim::SparseMode::Shtab::Status::mountPath(Lanet::AddressFamily::ipv6, vrf));
    ASSERT_TRUE(table) << name;
    EXPECT_EQ(table->vrfName(), vrf);
  }
}

}  // namespace
