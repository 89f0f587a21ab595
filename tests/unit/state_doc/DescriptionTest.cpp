// The description of the document drives the schema, the validator and the reference index;
// these tests hold the checked-in schema and the reference page to it, and check one member of
// every value type through it.

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "daemon/state/Description.h"
#include "daemon/state/MergePatch.h"
#include "daemon/state/SchemaGen.h"
#include "daemon/state/StateDocument.h"
#include "tests/unit/state_doc/StateDocTestUtil.h"

namespace {

namespace D = PimSnmpd::Description;
using PimSnmpd::Json;
using StateDocTest::baseJson;
using StateDocTest::describe;
using StateDocTest::patchAt;
using StateDocTest::readFile;
using StateDocTest::red4;

TEST(DescriptionTest, CheckedInSchemaIsTheGeneratedOne) {
  const std::string generated = PimSnmpd::stateSchemaText();
  if (std::getenv("PIMSNMP_WRITE_SCHEMA") != nullptr) {
    std::ofstream(std::string(PIMSNMP_SOURCE_DIR) + "/docs/state.schema.json") << generated;
  }
  EXPECT_EQ(readFile("docs/state.schema.json"), generated)
      << "docs/state.schema.json is generated from daemon/state/Description.h: run "
         "PIMSNMP_WRITE_SCHEMA=1 test_state_doc --gtest_filter=DescriptionTest.*";
}

// Every member the description declares is documented on the reference page.
TEST(DescriptionTest, EveryMemberIsDocumented) {
  const std::string page = readFile("docs/state-document.md");
  std::set<const D::Object*> seen;
  std::vector<const D::Object*> todo = {&D::kDocument};
  auto visitValue = [&](const D::Value* v) {
    while (v != nullptr && v->type == D::Type::map) v = v->item;
    if (v != nullptr && v->object != nullptr) todo.push_back(v->object);
  };
  size_t members = 0;
  while (!todo.empty()) {
    const D::Object* o = todo.back();
    todo.pop_back();
    if (!seen.insert(o).second) continue;
    for (const D::Member& m : o->members) {
      ++members;
      if (m.name != "$schema") {
        const std::string name(m.name);
        EXPECT_TRUE(page.find("`" + name + "`") != std::string::npos ||
                    page.find("\"" + name + "\":") != std::string::npos)
            << o->name << "." << m.name;
      }
      visitValue(&m.value);
    }
  }
  EXPECT_GT(members, 40u);
}

// One member of each value type: where it is, a value the description accepts and one it
// refuses with the reason's gist. Each case must name a member of that type.
struct TypeCase {
  D::Type type;
  std::vector<std::string> descriptionPath;  // member names from the document down
  std::string pointer;
  Json good;
  Json bad;
  std::string reason;
};

const D::Member* describedAt(const std::vector<std::string>& path) {
  const D::Object* o = &D::kDocument;
  const D::Member* m = nullptr;
  for (const std::string& name : path) {
    if (o == nullptr) return nullptr;
    m = o->find(name);
    if (m == nullptr) return nullptr;
    const D::Value* v = &m->value;
    while (v->type == D::Type::map) v = v->item;
    o = v->object;
  }
  return m;
}

TEST(DescriptionTest, EachValueTypeIsValidatedAndKeptAsWritten) {
  const std::string pimIntf = red4("/pimStatus/interfaces/Ethernet2");
  const std::vector<TypeCase> cases = {
      {D::Type::text, {"$schema"}, "/$schema", "x", 1, "expected a string"},
      {D::Type::integer,
       {"vrfs", "ipv4", "pimStatus", "interfaces", "helloInterval"},
       pimIntf + "/helloInterval",
       0,
       65536,
       "out of range 0..65535"},
      {D::Type::time,
       {"vrfs", "ipv4", "routes", "created"},
       red4("/routes/*,239.1.1.1/created"),
       0.5,
       -1,
       "negative"},
      {D::Type::boolean,
       {"vrfs", "ipv4", "mfibConfig", "routing"},
       red4("/mfibConfig/routing"),
       false,
       0,
       "expected true or false"},
      {D::Type::enumeration,
       {"interfaces", "operStatus"},
       "/interfaces/Ethernet1/operStatus",
       "lowerLayerDown",
       "Down",
       "is not one of 'up', 'down'"},
      {D::Type::address,
       {"vrfs", "ipv4", "pimStatus", "interfaces", "dr"},
       pimIntf + "/dr",
       "0.0.0.0",
       "239.1.1.1",
       "is a multicast address"},
      {D::Type::interfaceAddress,
       {"vrfs", "ipv4", "pimStatus", "interfaces", "address"},
       pimIntf + "/address",
       "10.0.2.1/31",
       "0.0.0.0/8",
       "not a unicast interface address"},
      {D::Type::interfaceRef,
       {"vrfs", "ipv4", "bsrStatus", "candidateBsrs", "interface"},
       red4("/bsrStatus/candidateBsrs/224.0.0.0~14/interface"),
       "Ethernet3",
       "Ethernet4",
       "unknown interface 'Ethernet4'"},
      {D::Type::flags,
       {"vrfs", "ipv4", "routes", "flags"},
       red4("/routes/*,239.1.1.1/flags"),
       Json::array(),
       {"rpt", "sgrpt"},
       "'sgrpt' is not one of"},
      {D::Type::oifs,
       {"vrfs", "ipv4", "fib", "routes", "oifs"},
       red4("/fib/routes/*,239.1.1.1/oifs"),
       {"Ethernet1", "Ethernet2"},
       {"Ethernet3"},
       "has no OIF index"},
      {D::Type::object,
       {"vrfs", "ipv4", "routes", "upstream"},
       red4("/routes/10.0.2.5,239.1.1.1/upstream"),
       {{"interface", "Ethernet3"}},
       {"Ethernet3"},
       "expected an object"},
      {D::Type::map,
       {"vrfs", "ipv4", "fib", "oifIndexes"},
       red4("/fib/oifIndexes"),
       {{"Ethernet1", 3}, {"Ethernet2", 2}},
       {{"Ethernet1", 3}, {"Ethernet2", 3}},
       "OIF index 3 is also the index of 'Ethernet1'"},
  };
  std::set<D::Type> covered;
  for (const TypeCase& c : cases) {
    SCOPED_TRACE(c.pointer);
    const D::Member* m = describedAt(c.descriptionPath);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->value.type, c.type);
    covered.insert(c.type);

    // Accepted through a patch, and dumped as written.
    auto parsed = PimSnmpd::Document::fromJson(baseJson());
    ASSERT_TRUE(parsed.ok());
    PimSnmpd::Document doc = std::move(*parsed.document);
    EXPECT_TRUE(doc.mergePatch(patchAt(c.pointer, c.good)).empty());
    EXPECT_EQ(Json::parse(doc.dump())[Json::json_pointer(c.pointer)], c.good);

    // Refused, whole document and patch alike, and the document stays.
    const auto errors =
        PimSnmpd::validate(PimSnmpd::mergePatch(baseJson(), patchAt(c.pointer, c.bad)));
    ASSERT_FALSE(errors.empty());
    EXPECT_NE(errors[0].reason.find(c.reason), std::string::npos) << describe(errors);
    const std::string before = doc.dump();
    EXPECT_FALSE(doc.mergePatch(patchAt(c.pointer, c.bad)).empty());
    EXPECT_EQ(doc.dump(), before);
  }
  // section is the one type no member value can be given alone (it is a whole family).
  EXPECT_EQ(covered.size(), static_cast<size_t>(D::Type::map)) << "a value type has no case";
}

}  // namespace
