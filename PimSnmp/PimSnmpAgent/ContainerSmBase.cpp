#include "PimSnmp/PimSnmpAgent/ContainerSmBase.h"

#include <cstdint>
#include <limits>
#include <utility>

#include "platform/Ent/Error.h"
#include "platform/Plat/ActivityManager.h"
#include "platform/Snmp/InetAddress.h"
#include "platform/Snmp/InetVersion.h"
#include "platform/Trace/Trace.h"

DEFAULT_TRACE_HANDLE("PimSnmpAgent")

namespace Routing::Pim::SnmpAgent {

namespace {

// Erases the entries of `table` from the first key not below `first` while `inRange` holds:
// one family's rows of a table ordered by address type first.
template <class Table, class InRange, class Erase>
void eraseRange(const Table& table, const typename Table::key_type& first, InRange inRange,
                Erase erase) {
  for (auto it = table.lowerBound(first); it != table.end() && inRange((*it)->key());
       it = table.lowerBound(first)) {
    erase(it);
  }
}

}  // namespace

ContainerSmBase::ContainerSmBase(const VrfInputs& inputs)
    : Ent::Entity(inputs.vrfName.str()),
      vrfName_(inputs.vrfName),
      af_(inputs.af),
      pimMib_(inputs.pimMib),
      ifMib_(inputs.ifMib),
      pimStatus_(inputs.pimStatus),
      mfibShtabStatus_(inputs.mfibShtabStatus),
      routeShtabStatus_(inputs.routeShtabStatus) {
  if (!pimMib_) throw Ent::NullArgument("ContainerSmBase: null pimMib");
  handleBaseInitialized();
}

ContainerSmBase::~ContainerSmBase() {
  baseTeardown();
}

void ContainerSmBase::handleBaseInitialized() {
  TRACE8("af {}, vrf {}", af_, vrfName_);
  Ent::Ptr<SparseMode::Status> routeStatus = routeStatusIs(vrfName_);
  routeStatus->pimStatusIs(pimStatus_);
  routeShtabReaderSmIs(routeStatus, routeShtabStatus_);
  routeShtabRestartSmIs(routeStatus, routeShtabStatus_, kRouteTableType,
                        Plat::ActivityManager::clock());
  // Route mirroring starts last, once its source is filled.
  mrouteSmIs(af_, pimMib_, ifMib_, routeStatus, mfibShtabStatus_);
  baseInitialized_ = true;
  notify(attrBaseInitialized);
}

Ent::Ptr<SparseMode::Status> ContainerSmBase::routeStatusIs(const L3::VrfName& vrfName) {
  if (routeStatus_ && routeStatus_->vrfName() == vrfName) return routeStatus_;
  routeStatus_ = Ent::make<SparseMode::Status>(vrfName);
  notify(attrRouteStatus);
  return routeStatus_;
}

void ContainerSmBase::routeStatusDel() {
  if (!routeStatus_) return;
  routeStatus_.reset();
  notify(attrRouteStatus);
}

Ent::Ptr<ContainerSmBase::RouteShtabReaderSm> ContainerSmBase::routeShtabReaderSmIs(
    Ent::Ptr<SparseMode::Status> routeStatus, Ent::Ptr<const RouteShtabStatus> routeShtabStatus) {
  if (routeShtabReaderSm_ && routeShtabReaderSm_->routeStatus() == routeStatus &&
      routeShtabReaderSm_->routeShtabStatus() == routeShtabStatus) {
    return routeShtabReaderSm_;
  }
  routeShtabReaderSm_.reset();
  auto sm = Ent::make<RouteShtabReaderSm>(std::move(routeStatus), std::move(routeShtabStatus));
  sm->hasNotificationActiveIs(true);
  routeShtabReaderSm_ = sm;
  notify(attrRouteShtabReaderSm);
  return sm;
}

void ContainerSmBase::routeShtabReaderSmDel() {
  if (!routeShtabReaderSm_) return;
  routeShtabReaderSm_.reset();
  notify(attrRouteShtabReaderSm);
}

Ent::Ptr<ContainerSmBase::RouteShtabRestartSm> ContainerSmBase::routeShtabRestartSmIs(
    Ent::Ptr<SparseMode::Status> routeStatus, Ent::Ptr<const RouteShtabStatus> routeShtabStatus,
    int tableType, Ent::Ptr<Plat::Clock> clock) {
  if (routeShtabRestartSm_ && routeShtabRestartSm_->routeStatus() == routeStatus &&
      routeShtabRestartSm_->routeShtabStatus() == routeShtabStatus &&
      routeShtabRestartSm_->tableType() == tableType && routeShtabRestartSm_->clock() == clock) {
    return routeShtabRestartSm_;
  }
  routeShtabRestartSm_.reset();
  auto sm = Ent::make<RouteShtabRestartSm>(std::move(routeStatus), std::move(routeShtabStatus),
                                           tableType, std::move(clock));
  sm->hasNotificationActiveIs(true);
  routeShtabRestartSm_ = sm;
  notify(attrRouteShtabRestartSm);
  return sm;
}

void ContainerSmBase::routeShtabRestartSmDel() {
  if (!routeShtabRestartSm_) return;
  routeShtabRestartSm_.reset();
  notify(attrRouteShtabRestartSm);
}

Ent::Ptr<MrouteSm> ContainerSmBase::mrouteSmIs(Lanet::AddressFamily af,
                                               Ent::Ptr<Snmp::PimMib> pimMib,
                                               Ent::Ptr<const IntfSnmp::IfMib> ifMib,
                                               Ent::Ptr<const SparseMode::Status> routeStatus,
                                               Ent::Ptr<const FibStatus> mfibShtabStatus) {
  if (mrouteSm_ && mrouteSm_->af() == af && mrouteSm_->pimMib() == pimMib &&
      mrouteSm_->ifMib() == ifMib && mrouteSm_->routeStatus() == routeStatus.get() &&
      mrouteSm_->mfibShtabStatus() == mfibShtabStatus.get()) {
    return mrouteSm_;
  }
  mrouteSm_.reset();
  auto sm = MrouteSmIs(af, std::move(pimMib), std::move(ifMib), std::move(routeStatus),
                       std::move(mfibShtabStatus));
  mrouteSm_ = sm;
  notify(attrMrouteSm);
  sm->handleInitialized();
  return sm;
}

void ContainerSmBase::mrouteSmDel() {
  if (!mrouteSm_) return;
  mrouteSm_.reset();
  notify(attrMrouteSm);
}

void ContainerSmBase::hasNotificationActiveIs(bool on) {
  Ent::Entity::hasNotificationActiveIs(on);
  if (routeShtabReaderSm_) routeShtabReaderSm_->hasNotificationActiveIs(on);
  if (routeShtabRestartSm_) routeShtabRestartSm_->hasNotificationActiveIs(on);
  if (mrouteSm_) mrouteSm_->hasNotificationActiveIs(on);
}

void ContainerSmBase::doTeardown() {
  baseTeardown();
}

void ContainerSmBase::baseTeardown() {
  if (baseTornDown_) return;
  baseTornDown_ = true;
  isDeletingIs(true);
  mrouteSmDel();
  routeShtabRestartSmDel();
  routeShtabReaderSmDel();
  routeStatusDel();
  routeRowsDel();
}

void ContainerSmBase::routeRowsDel() {
  Snmp::PimMib& mib = *pimMib_;
  const bool v4 = af_ == Lanet::AddressFamily::ipv4;
  const auto type = v4 ? ::Snmp::InetAddressType::ipv4 : ::Snmp::InetAddressType::ipv6;
  const auto version = v4 ? ::Snmp::InetVersion::ipv4 : ::Snmp::InetVersion::ipv6;
  const ::Snmp::InetAddress typeFirst(type, {});
  eraseRange(
      mib.ipMcastRouteNextHopTable(),
      Snmp::IpMcastRouteNextHopEntryIndex(typeFirst, 0, {}, 0, 0, {}),
      [&](const auto& k) { return k.groupAddr.type() == type; },
      [&](auto it) { mib.ipMcastRouteNextHopTableDel(it); });
  eraseRange(
      mib.ipMcastRouteTable(), Snmp::IpMcastRouteEntryIndex(typeFirst, 0, {}, 0),
      [&](const auto& k) { return k.groupAddr.type() == type; },
      [&](auto it) { mib.ipMcastRouteTableDel(it); });
  eraseRange(
      mib.ipMcastInterfaceTable(),
      Snmp::IpMcastInterfaceEntryIndex(version, std::numeric_limits<int32_t>::min()),
      [&](const auto& k) { return k.ipVersion == version; },
      [&](auto it) { mib.ipMcastInterfaceTableDel(it); });
  if (v4) {
    // IPv4-only tables: this container is their only writer.
    mib.pimIpMrouteNextHopTableDelAll();
    mib.pimIpMrouteTableDelAll();
    mib.ipMRouteNextHopTableDelAll();
    mib.ipMRouteTableDelAll();
    mib.ipMRouteInterfaceTableDelAll();
  }
}

}  // namespace Routing::Pim::SnmpAgent
