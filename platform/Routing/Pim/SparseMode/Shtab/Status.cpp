#include "platform/Routing/Pim/SparseMode/Shtab/Status.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "platform/Ent/Dir.h"
#include "platform/Stadb/MountPath.h"

namespace Routing::Pim::SparseMode::Shtab {

namespace {
const std::vector<std::string> kPrefix = {"shtab", "routing", "pim", "sparsemode"};
}

std::string Status::mountPath(Lanet::AddressFamily af, const L3::VrfName& vrf) {
  return Ent::childPath(fmt::format("shtab/routing/pim/sparsemode/{}", Lanet::toString(af)),
                        vrf.str());
}

Ent::Ptr<Status> Status::fromMountPath(std::string_view path) {
  const std::vector<std::string> c = Stadb::pathComponents(path);
  if (c.size() != kPrefix.size() + 2 || !std::equal(kPrefix.begin(), kPrefix.end(), c.begin())) {
    return nullptr;
  }
  const auto af = Stadb::addressFamilyFromString(c[kPrefix.size()]);
  if (!af) return nullptr;
  try {
    return Ent::make<Status>(*af, L3::VrfName(c.back()));
  } catch (const std::range_error&) {
    return nullptr;
  }
}

Ent::Ptr<Status> Status::mountInDependencyOrder(const Ent::Ptr<Stadb::EntityManager>& manager,
                                                std::string_view path, Stadb::MountMode mode,
                                                Stadb::MountGroup* group) {
  if (!manager) throw Ent::NullArgument("mountInDependencyOrder: null entity manager");
  Ent::Ptr<Status> status = manager->mountAs<Status>(path, kTypeName, mode);
  if (group) group->mounted(manager, std::string(path), mode);
  return status;
}

}  // namespace Routing::Pim::SparseMode::Shtab
