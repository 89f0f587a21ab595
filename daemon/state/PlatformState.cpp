#include "daemon/state/PlatformState.h"

#include <stdexcept>
#include <string>

namespace PimSnmpd {

using Lanet::AddressFamily;

PlatformState::Family PlatformState::makeFamily(AddressFamily af) {
  const std::string suffix(Lanet::toString(af));
  Family f;
  f.pimGlobalStatus = Ent::make<Routing::Pim::GlobalStatus>(af);
  f.pimConfigColl = Ent::make<Routing::Pim::ConfigColl>();
  f.bsrStatusColl = Ent::make<Routing::Pim::Bsr::StatusColl>();
  f.bsrConfigColl = Ent::make<Routing::Pim::Bsr::ConfigColl>();
  f.crpStatusColl = Ent::make<Routing::Pim::RpCandidateStatusColl>("crpStatus");
  f.staticRpStatusColl = Ent::make<Routing::Pim::RpCandidateStatusColl>("staticRpStatus");
  f.mfibVrfConfig = Ent::make<Routing::Multicast::Fib::VrfConfig>();
  f.fibCounterHelper = Ent::make<CounterHelper>("fibMrouteCounterHelper-" + suffix);
  return f;
}

PlatformState::PlatformState(Ent::Ptr<Ent::Dir> stateRoot)
    : stateRoot_(std::move(stateRoot)),
      entityManager_(Ent::make<Stadb::EntityManager>(stateRoot_)),
      ifMib_(Ent::make<IntfSnmp::IfMib>()),
      allIntfStatusDir_(Ent::make<Interface::AllIntfStatusDir>()),
      v4_(makeFamily(AddressFamily::ipv4)),
      v6_(makeFamily(AddressFamily::ipv6)) {
  publish(kPimConfigDir, v4_.pimConfigColl);
  publish(kMfibConfigDir, v4_.mfibVrfConfig);
  publish(std::string(kPimConfigDir) + "/ipv6", v6_.pimConfigColl);
  publish(std::string(kMfibConfigDir) + "/ipv6", v6_.mfibVrfConfig);
}

PlatformState::~PlatformState() {
  for (const auto& [key, table] : routeTables_) {
    entityManager_->unmount(RouteTable::mountPath(key.first, key.second), Stadb::MountMode::writer);
  }
  for (const auto& [key, table] : fibTables_) {
    family(key.first).fibCounterHelper->statusDel(key.second);
    entityManager_->unmount(FibTable::mountPath(key.first, key.second, kFibRole),
                            Stadb::MountMode::writer);
  }
  unpublish(kPimConfigDir, v4_.pimConfigColl);
  unpublish(kMfibConfigDir, v4_.mfibVrfConfig);
  unpublish(std::string(kPimConfigDir) + "/ipv6", v6_.pimConfigColl);
  unpublish(std::string(kMfibConfigDir) + "/ipv6", v6_.mfibVrfConfig);
}

const PlatformState::Family& PlatformState::family(AddressFamily af) const {
  switch (af) {
    case AddressFamily::ipv4:
      return v4_;
    case AddressFamily::ipv6:
      return v6_;
    default:
      throw std::invalid_argument("PlatformState: no inputs for address family " +
                                  std::to_string(static_cast<int>(af)));
  }
}

void PlatformState::publish(std::string_view dir, Ent::Ptr<Ent::Entity> e) {
  stateRoot_->mkdirs(dir)->entityIs(std::move(e));
}

void PlatformState::unpublish(std::string_view dir, const Ent::Ptr<Ent::Entity>& e) {
  // Only what is still ours: a later PlatformState may have replaced it.
  Ent::Ptr<Ent::Dir> d = stateRoot_->lookupAs<Ent::Dir>(dir);
  if (d && d->entity(e->name()) == e) d->entityDel(e->name());
}

Ent::Ptr<PlatformState::RouteTable> PlatformState::routeTable(AddressFamily af,
                                                              const L3::VrfName& vrf) const {
  auto it = routeTables_.find({af, vrf});
  return it == routeTables_.end() ? nullptr : it->second;
}

Ent::Ptr<PlatformState::RouteTable> PlatformState::routeTableIs(AddressFamily af,
                                                                const L3::VrfName& vrf) {
  family(af);
  auto it = routeTables_.find({af, vrf});
  if (it != routeTables_.end()) return it->second;
  Ent::Ptr<RouteTable> table = RouteTable::mountInDependencyOrder(
      entityManager_, RouteTable::mountPath(af, vrf), Stadb::MountMode::writer);
  routeTables_.emplace(TableKey{af, vrf}, table);
  return table;
}

void PlatformState::routeTableDel(AddressFamily af, const L3::VrfName& vrf) {
  auto it = routeTables_.find({af, vrf});
  if (it == routeTables_.end()) return;
  const Ent::Ptr<RouteTable> table = it->second;
  routeTables_.erase(it);
  table->routeDelAll();
  entityManager_->unmount(RouteTable::mountPath(af, vrf), Stadb::MountMode::writer);
}

Ent::Ptr<PlatformState::FibTable> PlatformState::fibTable(AddressFamily af,
                                                          const L3::VrfName& vrf) const {
  auto it = fibTables_.find({af, vrf});
  return it == fibTables_.end() ? nullptr : it->second;
}

Ent::Ptr<PlatformState::FibTable> PlatformState::fibTableIs(AddressFamily af,
                                                            const L3::VrfName& vrf) {
  const Family& f = family(af);
  auto it = fibTables_.find({af, vrf});
  if (it != fibTables_.end()) return it->second;
  Ent::Ptr<FibTable> table = entityManager_->mountAs<FibTable>(
      FibTable::mountPath(af, vrf, kFibRole), kFibTypeName, Stadb::MountMode::writer);
  fibTables_.emplace(TableKey{af, vrf}, table);
  f.fibCounterHelper->statusIs(vrf, table);
  return table;
}

void PlatformState::fibTableDel(AddressFamily af, const L3::VrfName& vrf) {
  auto it = fibTables_.find({af, vrf});
  if (it == fibTables_.end()) return;
  const Ent::Ptr<FibTable> table = it->second;
  fibTables_.erase(it);
  family(af).fibCounterHelper->statusDel(vrf);
  table->routeDelAll();
  table->oifIndexIntfDelAll();
  entityManager_->unmount(FibTable::mountPath(af, vrf, kFibRole), Stadb::MountMode::writer);
}

}  // namespace PimSnmpd
