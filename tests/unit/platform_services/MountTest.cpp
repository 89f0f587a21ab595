#include <gtest/gtest.h>

#include "platform/Ent/Dir.h"
#include "platform/Routing/Pim/SparseMode/Shtab/Status.h"
#include "platform/Shtab/Multicast/Fib/Status.h"
#include "platform/Stadb/EntityManager.h"
#include "tests/unit/platform_services/ServicesTestUtil.h"

namespace {

using Stadb::MountMode;
using FibStatus = Shtab::Multicast::Fib::Status;
using RouteTable = Routing::Pim::SparseMode::Shtab::Status;
constexpr auto v4 = Lanet::AddressFamily::ipv4;
constexpr auto v6 = Lanet::AddressFamily::ipv6;

struct MountTest : ::testing::Test {
  Ent::Ptr<Ent::Dir> root = Ent::make<Ent::Dir>("root");
  Ent::Ptr<Stadb::EntityManager> em = Ent::make<Stadb::EntityManager>(root);
};

TEST_F(MountTest, ReaderGetsTheEntityTheWriterPublished) {
  const L3::VrfName red("red");
  const std::string path = FibStatus::mountPath(v4, red, "sparsemode");
  auto published = Ent::make<FibStatus>(v4, red, "sparsemode");
  root->mkdirs("shtab/multicast/fib/ipv4/red")->entityIs(published);
  EXPECT_EQ(em->mount(path, "Shtab::Multicast::Fib::Status", MountMode::reader), published);
  EXPECT_EQ(em->mount("/" + path + "/", "Shtab::Multicast::Fib::Status", MountMode::reader),
            published);  // same path, written differently
  EXPECT_EQ(em->mountCount(path, MountMode::reader), 2u);
  EXPECT_THROW(em->mount(path, std::string(RouteTable::kTypeName), MountMode::reader),
               Stadb::MountError);
  // Not created by the manager: stays published when the last mount goes.
  EXPECT_TRUE(em->unmount(path, MountMode::reader));
  EXPECT_TRUE(em->unmount(path, MountMode::reader));
  EXPECT_FALSE(em->unmount(path, MountMode::reader));
  EXPECT_EQ(root->lookup(path), published);
}

TEST_F(MountTest, EarlyReaderGetsAnEmptyTableThatTheWriterThenFills) {
  const L3::VrfName vrf("blue/green");  // quoted in the path
  const std::string path = RouteTable::mountPath(v6, vrf);
  EXPECT_EQ(path, "shtab/routing/pim/sparsemode/ipv6/blue%2Fgreen");
  Ent::Ptr<const RouteTable> reader =
      RouteTable::mountInDependencyOrder(em, path, MountMode::reader, nullptr);
  ASSERT_TRUE(reader);
  EXPECT_EQ(reader->af(), v6);
  EXPECT_EQ(reader->vrfName(), vrf);
  EXPECT_TRUE(reader->route().empty());
  EXPECT_EQ(root->lookup(path).get(), reader.get());

  Ent::Ptr<RouteTable> writer =
      em->mountAs<RouteTable>(path, RouteTable::kTypeName, MountMode::writer);
  EXPECT_EQ(writer.get(), reader.get());
  writer->routeIs(PlatformServicesTest::routeKey(1));
  EXPECT_EQ(reader->route().size(), 1u);

  // Created by the manager: removed with its last mount, reader or writer.
  EXPECT_TRUE(em->unmount(path, MountMode::reader));
  EXPECT_EQ(root->lookup(path).get(), reader.get());
  EXPECT_TRUE(em->unmount(path, MountMode::writer));
  EXPECT_EQ(root->lookup(path), nullptr);
}

TEST_F(MountTest, FibPlaceholderTakesFamilyVrfAndRoleFromThePath) {
  const std::string path = FibStatus::mountPath(v4, L3::VrfName("default"), "sparsemode");
  auto fib = em->mountAs<FibStatus>(path, "Shtab::Multicast::Fib::Status", MountMode::reader);
  ASSERT_TRUE(fib);
  EXPECT_EQ(fib->af(), v4);
  EXPECT_EQ(fib->vrfName(), L3::VrfName("default"));
  EXPECT_EQ(fib->name(), "sparsemode");
}

TEST_F(MountTest, MountsThatCannotBeMadeThrowAndLeaveNothingBehind) {
  // No factory for the type and nothing published.
  EXPECT_THROW(em->mount("a/b", "No::Such::Type", MountMode::reader), Stadb::MountError);
  // A path that does not name a table of that type.
  EXPECT_THROW(
      em->mount("shtab/routing/pim/sparsemode/ipv9/red", RouteTable::kTypeName, MountMode::reader),
      Stadb::MountError);
  EXPECT_THROW(em->mount(FibStatus::mountPath(v4, L3::VrfName("red"), "x"), RouteTable::kTypeName,
                         MountMode::reader),
               Stadb::MountError);
  EXPECT_THROW(em->mount("//", RouteTable::kTypeName, MountMode::reader), Stadb::MountError);
  EXPECT_EQ(root->lookup("shtab/routing/pim/sparsemode/ipv9/red"), nullptr);
  EXPECT_EQ(em->mountCount("a/b", MountMode::reader), 0u);
}

TEST_F(MountTest, GroupUnmountsWhatWasMountedThroughIt) {
  const std::string red = RouteTable::mountPath(v4, L3::VrfName("red"));
  const std::string blue = RouteTable::mountPath(v4, L3::VrfName("blue"));
  auto keep = RouteTable::mountInDependencyOrder(*em, red, MountMode::reader);
  {
    Stadb::MountGroup group;
    RouteTable::mountInDependencyOrder(em, red, MountMode::reader, &group);
    RouteTable::mountInDependencyOrder(em, blue, MountMode::reader, &group);
    EXPECT_EQ(group.size(), 2u);
    EXPECT_EQ(em->mountCount(red, MountMode::reader), 2u);
  }
  EXPECT_EQ(em->mountCount(red, MountMode::reader), 1u);
  EXPECT_EQ(root->lookup(blue), nullptr);
  EXPECT_EQ(root->lookup(red).get(), keep.get());
}

}  // namespace
