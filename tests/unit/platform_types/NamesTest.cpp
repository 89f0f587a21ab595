#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <string>

#include "platform/L3/VrfName.h"
#include "platform/Lanet/IntfId.h"

namespace {

using L3::VrfName;
using Lanet::IntfId;

TEST(IntfIdTest, OrderIsBytewiseByNameAndHashFollowsEquality) {
  EXPECT_LT(IntfId(), IntfId("Ethernet1"));
  EXPECT_LT(IntfId("Ethernet10"), IntfId("Ethernet2"));
  EXPECT_LT(IntfId("Ethernet1"), IntfId("ethernet1"));
  EXPECT_EQ(std::hash<IntfId>()(IntfId("Vlan100")),
            std::hash<IntfId>()(IntfId(std::string("Vlan100"))));
  EXPECT_NE(IntfId("Vlan100").hash(), IntfId("Vlan101").hash());
}

TEST(IntfIdTest, NamesAreSharedAndGoWithTheirLastId) {
  const size_t before = IntfId::internedCount();
  {
    const IntfId a("Ethernet77");
    IntfId b{std::string("Ethernet77")};
    EXPECT_EQ(&a.name(), &b.name()) << "one record per name";
    EXPECT_EQ(IntfId::internedCount(), before + 1);
    IntfId moved(std::move(b));
    EXPECT_TRUE(b.empty());  // NOLINT(bugprone-use-after-move): a moved-from id is empty
    IntfId assigned;
    assigned = moved;
    const IntfId& self = assigned;
    assigned = self;  // self-assignment keeps the count
    moved = IntfId("Ethernet78");
    EXPECT_EQ(IntfId::internedCount(), before + 2);
    EXPECT_EQ(assigned, a);
    EXPECT_EQ(moved.name(), "Ethernet78");
  }
  EXPECT_EQ(IntfId::internedCount(), before) << "records leave with their last id";
  // A name that comes back gets a fresh record with the same identity by value.
  EXPECT_EQ(IntfId("Ethernet77").name(), "Ethernet77");
  // Names with NUL and high bytes are names like any other.
  const std::string odd("a\0\xff", 3);
  EXPECT_EQ(IntfId(odd).name(), odd);
  EXPECT_NE(IntfId(odd), IntfId("a"));
}

TEST(VrfNameTest, LengthLimitIsHundredBytes) {
  const std::string ok(VrfName::kMaxLen, 'v');
  EXPECT_EQ(VrfName(ok).str(), ok);
  EXPECT_EQ(VrfName(std::string_view(ok)).str(), ok);
  EXPECT_EQ(VrfName(ok.c_str()).str(), ok);

  const std::string tooLong(101, 'v');
  EXPECT_THROW(VrfName{tooLong}, std::range_error);
  EXPECT_THROW(VrfName{std::string_view(tooLong)}, std::range_error);
  EXPECT_THROW(VrfName{tooLong.c_str()}, std::range_error);
  try {
    VrfName v(tooLong);
    FAIL() << "no exception";
  } catch (const std::range_error& e) {
    EXPECT_NE(std::string(e.what()).find("longer than 100 bytes"), std::string::npos) << e.what();
  }
  // Bytes, not characters: 50 two-byte UTF-8 characters fit, 51 do not.
  std::string utf8;
  for (int i = 0; i < 50; ++i) utf8 += "\xc3\xa9";
  EXPECT_NO_THROW(VrfName{utf8});
  EXPECT_THROW(VrfName{utf8 + "\xc3\xa9"}, std::range_error);
}

TEST(VrfNameTest, DefaultIsNamedAndOrdersByText) {
  EXPECT_TRUE(VrfName().isDefault());
  EXPECT_EQ(VrfName(), VrfName("default"));
  EXPECT_FALSE(VrfName("Default").isDefault());
  std::map<VrfName, int> byName{{VrfName("red"), 1}, {VrfName("blue"), 2}, {VrfName(), 3}};
  std::string order;
  for (const auto& [name, _] : byName) order += name.str() + " ";
  EXPECT_EQ(order, "blue default red ");
}

}  // namespace
