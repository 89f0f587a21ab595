#include "PimSnmp/PimSnmpAgent/IntfSm.h"

#include <utility>
#include <vector>

#include "PimSnmp/PimSnmpAgent/NeighborLossNotifier.h"
#include "PimSnmp/RegistrationHelper/RegistrationHelper.h"
#include "platform/Ent/Error.h"
#include "platform/Snmp/TrapManager.h"
#include "platform/Trace/Trace.h"

DEFAULT_TRACE_HANDLE("PimSnmpAgent")

namespace Routing::Pim::SnmpAgent {

namespace {
constexpr int32_t kComponentIndex = 1;
}  // namespace

IntfSm::PimIntfSm::PimIntfSm(IntfSm* owner, Ent::Ptr<const Pim::Intf> intf)
    : ReactorOf(std::move(intf)), owner_(owner) {}

Lanet::IntfId IntfSm::PimIntfSm::intfId() const {
  return notifier() ? notifier()->intfId() : Lanet::IntfId();
}

void IntfSm::PimIntfSm::detach() {
  notifierIs(nullptr);
  owner_ = nullptr;
}

void IntfSm::PimIntfSm::onChange(const Ent::Change& change) {
  if (!owner_ || owner_->isDeleting()) return;
  if (change.attr == Pim::Intf::attrActiveNeighbor && change.key) {
    handleNeighbor(change.keyAs<Lanet::IpGenAddr>());
  }
}

void IntfSm::PimIntfSm::handleIntf() {
  if (!owner_) return;
  const IntfSm& o = *owner_;
  const Lanet::IntfId id = intfId();
  const Pim::Status* status = o.pimStatus();
  Ent::Ptr<const Pim::Intf> record = status ? status->pimIntf(id) : nullptr;
  const int32_t ifIndex = o.ifIndexOf(id);
  if (ifIndex == 0) {
    TRACE8("{} skipping processing of {} because of invalid index.", fmt::ptr(this), id);
    return;
  }
  Snmp::PimMib& mib = *o.pimMib_;
  if (!record) {
    mib.pimInterfaceTableDel(ifIndex);
    if ((!status || status->pimIntf().empty()) && mib.pimComponentTable(kComponentIndex)) {
      TRACE8("{} Removing an entry from PimComponentTable with index:{}", fmt::ptr(this),
             kComponentIndex);
      mib.pimComponentTableDel(kComponentIndex);
    }
    return;
  }
  // A row's inputs are immutable: a new record of the interface needs a new row.
  if (auto row = mib.pimInterfaceTable(ifIndex); row && row->intf() != record) {
    mib.pimInterfaceTableDel(ifIndex);
  }
  mib.pimInterfaceTableIs(ifIndex, record, o.bsrStatus_);
  if (!mib.pimComponentTable(kComponentIndex)) {
    TRACE8("{} adding an entry to PimComponent Table with index:{}", fmt::ptr(this),
           kComponentIndex);
    mib.pimComponentTableIs(kComponentIndex, o.bsrStatus_, o.bsrConfig_);
  }
  for (const auto& neighbor : record->activeNeighbor()) handleNeighbor(neighbor->key());
}

void IntfSm::PimIntfSm::handleNeighbor(const Lanet::IpGenAddr& address) {
  if (!owner_) return;
  IntfSm& o = *owner_;
  const Pim::Intf* record = notifier();
  Ent::Ptr<const Pim::Neighbor> neighbor = record ? record->activeNeighbor(address) : nullptr;
  Snmp::PimMib& mib = *o.pimMib_;
  if (neighbor) {
    const Lanet::IntfId id = intfId();
    const int32_t ifIndex = o.ifIndexOf(id);
    if (ifIndex == 0) {
      TRACE8("{} skipping processing of {} because of invalid index.", fmt::ptr(this), id);
      return;
    }
    // An existing row is kept as it is, with its upTime.
    if (mib.pimNeighborTable(address)) return;
    TRACE8("{} adding an entry to pimNeighborTable with address:{}", fmt::ptr(this), address);
    auto row = mib.pimNeighborTableIs(address, neighbor);
    row->interfaceIndexIs(ifIndex);
    row->modeIs(record->mode());
    return;
  }

  Ent::Ptr<Snmp::PimNeighborEntry> row = mib.pimNeighborTable(address);
  if (!row) return;
  bool notify = false;
  if (o.neighborTrapEnabled_) {
    Ent::Ptr<PimIntfSm> sm = o.rxPimIntf(intfId());
    if (!sm || !sm->notifier()) {
      notify = true;
    } else {
      // Only the lowest-addressed of the interface's neighbors reports a loss. The remaining
      // neighbors are compared with the lost neighbor's own address (not the router's).
      const auto& remaining = sm->notifier()->activeNeighbor();
      notify = remaining.empty() || !((*remaining.begin())->key() < address);
    }
  }
  if (notify) o.raiseNeighborTrap(*row, address);
  TRACE8("{} removing an entry from pimNeighborTable with address:{}", fmt::ptr(this), address);
  mib.pimNeighborTableDel(address);
}

void IntfSm::RxAllIntfStatusDir::onChange(const Ent::Change& change) {
  if (owner_->isDeleting()) return;
  if (change.attr == Interface::AllIntfStatusDir::attrIntfStatus && change.key) {
    owner_->handleIntfStatus(change.keyAs<Lanet::IntfId>());
  }
}

void IntfSm::RxPimStatus::onChange(const Ent::Change& change) {
  if (owner_->isDeleting()) return;
  if (change.attr != Pim::Status::attrPimIntf || !change.key) return;
  const Lanet::IntfId id = change.keyAs<Lanet::IntfId>();
  if (Ent::Ptr<const Pim::Intf> intf = notifier()->pimIntf(id)) {
    owner_->pimIntfIs(std::move(intf));
  } else {
    owner_->pimIntfDel(id);
  }
}

IntfSm::IntfSm(Ent::Ptr<Snmp::PimMib> pimMib, Ent::Ptr<const IntfSnmp::IfMib> ifMib,
               Ent::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir,
               Ent::Ptr<const Pim::Status> pimStatus, Ent::Ptr<const Bsr::Status> bsrStatus,
               Ent::Ptr<const Bsr::Config> bsrConfig)
    : Ent::Entity("intfSm"),
      pimMib_(std::move(pimMib)),
      ifMib_(std::move(ifMib)),
      rxAllIntfStatusDir_(this, std::move(allIntfStatusDir)),
      rxPimStatus_(this, std::move(pimStatus)),
      bsrStatus_(std::move(bsrStatus)),
      bsrConfig_(std::move(bsrConfig)),
      rxPimIntf_(this, attrRxPimIntf) {
  if (!pimMib_) throw Ent::NullArgument("IntfSm: null pimMib");
}

IntfSm::~IntfSm() {
  doTeardown();
}

void IntfSm::neighborTrapEnabledIs(bool on) {
  if (on == neighborTrapEnabled_) return;
  neighborTrapEnabled_ = on;
  notify(attrNeighborTrapEnabled);
}

int32_t IntfSm::ifIndexOf(const Lanet::IntfId& intfId) const {
  return ifMib_ ? static_cast<int32_t>(ifMib_->ifIndexByIntfId(intfId)) : 0;
}

void IntfSm::handleInitialized() {
  TRACE8("intfSm {}, pimIntf count {}", fmt::ptr(this),
         pimStatus() ? pimStatus()->pimIntf().size() : 0);
  if (const Pim::Status* status = pimStatus()) {
    for (const auto& [id, intf] : status->pimIntf()) handlePimIntf(id);
  }
  if (!initialized_) {
    initialized_ = true;
    notify(attrInitialized);
  }
}

void IntfSm::handlePimIntf(const Lanet::IntfId& intfId) {
  if (Ent::Ptr<PimIntfSm> sm = rxPimIntf(intfId)) {
    sm->handleIntf();
    return;
  }
  // An interface that was there before this machine has no follower yet.
  if (const Pim::Status* status = pimStatus()) {
    if (Ent::Ptr<const Pim::Intf> intf = status->pimIntf(intfId)) pimIntfIs(std::move(intf));
  }
}

void IntfSm::handleIntfStatus(const Lanet::IntfId& intfId) {
  if (Ent::Ptr<PimIntfSm> sm = rxPimIntf(intfId)) sm->handleIntf();
}

Ent::Ptr<IntfSm::PimIntfSm> IntfSm::pimIntfIs(Ent::Ptr<const Pim::Intf> intf) {
  if (!intf) throw Ent::NullArgument("IntfSm::pimIntfIs: null interface");
  const Lanet::IntfId id = intf->intfId();
  auto [sm, inserted] =
      rxPimIntf_.findOrInsert(id, [&] { return Ent::make<PimIntfSm>(this, intf); });
  Ent::Ptr<PimIntfSm> keep(sm);
  if (!inserted && sm->notifier() != intf.get()) {
    Ent::Ptr<const Pim::Intf> old(sm->notifier());
    sm->notifierIs(intf);
    // Neighbors that only the replaced record had are gone with it.
    if (old) {
      for (const auto& n : old->activeNeighbor()) {
        if (!intf->activeNeighbor(n->key())) sm->handleNeighbor(n->key());
      }
    }
  }
  sm->handleIntf();
  return keep;
}

void IntfSm::pimIntfDel(const Lanet::IntfId& intfId) {
  Ent::Ptr<PimIntfSm> sm = rxPimIntf_.erase(intfId);
  if (!sm) return;
  sm->handleIntf();
  sm->detach();
}

void IntfSm::pimIntfDelAll() {
  std::vector<Lanet::IntfId> ids;
  ids.reserve(rxPimIntf_.size());
  for (const auto& [id, sm] : rxPimIntf_) ids.push_back(id);
  for (const auto& id : ids) pimIntfDel(id);
}

void IntfSm::raiseNeighborTrap(const Snmp::PimNeighborEntry& entry,
                               const Lanet::IpGenAddr& address) {
  TRACE8("Raising an SNMP Trap for neighbor with index: {}and address: {}", entry.interfaceIndex(),
         address);
  // The notification goes to the default context, whatever the VRF; its origin names the VRF
  // for receivers that tell VRFs apart by community.
  ::Snmp::TrapManager::OriginScope origin(Snmp::vrfContext(L3::VrfName(pimMib_->name())));
  neighborLossNotifier().pimNeighborLossNotify(entry.interfaceIndex(), address.v4(), "");
}

void IntfSm::doTeardown() {
  if (tornDown_) return;
  tornDown_ = true;
  isDeletingIs(true);
  rxAllIntfStatusDir_.notifierIs(nullptr);
  rxPimStatus_.notifierIs(nullptr);
  while (!rxPimIntf_.empty()) {
    Ent::Ptr<PimIntfSm> sm = rxPimIntf_.erase(Lanet::IntfId(rxPimIntf_.begin()->first));
    sm->detach();
  }
  // Rows may outlive their interface's follower (neighbor rows of an interface that left PIM
  // stay until then), and this machine is their only writer: clear the three tables.
  pimMib_->pimNeighborTableDelAll();
  pimMib_->pimInterfaceTableDelAll();
  pimMib_->pimComponentTableDel(kComponentIndex);
}

Ent::Ptr<IntfSm> IntfSmIs(Ent::Ptr<Snmp::PimMib> pimMib, Ent::Ptr<const IntfSnmp::IfMib> ifMib,
                          Ent::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir,
                          Ent::Ptr<const Pim::Status> pimStatus,
                          Ent::Ptr<const Bsr::Status> bsrStatus,
                          Ent::Ptr<const Bsr::Config> bsrConfig) {
  auto sm = Ent::make<IntfSm>(std::move(pimMib), std::move(ifMib), std::move(allIntfStatusDir),
                              std::move(pimStatus), std::move(bsrStatus), std::move(bsrConfig));
  sm->hasNotificationActiveIs(true);
  return sm;
}

}  // namespace Routing::Pim::SnmpAgent
