#include "PimSnmp/PimSnmpAgent/PimCrpSm.h"

#include <utility>
#include <vector>

#include "PimSnmp/PimSnmp/Index.h"
#include "platform/Ent/Error.h"
#include "platform/Trace/Trace.h"

DEFAULT_TRACE_HANDLE("PimSnmpAgent")

namespace Routing::Pim::SnmpAgent {

namespace {

constexpr uint32_t kComponentId = 1;

Snmp::PimRPSetEntryIndex rpSetIndex(const Lanet::IpGenPrefix& group, const Lanet::IpGenAddr& rp) {
  return {kComponentId, group.address(), Snmp::maskFromLength(group.maskLen()), rp};
}

Snmp::PimCandidateRPEntryIndex candidateIndex(const Lanet::IpGenPrefix& group) {
  return {group.address(), Snmp::maskFromLength(group.maskLen())};
}

}  // namespace

PimCrpSm::RxRp::RxRp(RxCrpSet* crpSet, Ent::Ptr<const RpCandidate> rp)
    : ReactorOf(rp), crpSet_(crpSet), address_(rp ? rp->address() : Lanet::IpGenAddr()) {}

void PimCrpSm::RxRp::handleNew() {
  const PimCrpSm& o = *crpSet_->owner();
  const Lanet::IpGenPrefix& group = crpSet_->group();
  if (!group.address().isV4()) return;
  const Snmp::PimRPSetEntryIndex index = rpSetIndex(group, address_);
  const Snmp::PimCandidateRPEntryIndex candIndex = candidateIndex(group);
  Snmp::PimMib& mib = *o.pimMib_;

  const RpCandidateStatus* status = o.crpStatus();
  Ent::Ptr<const RpCandidateSet> set = status ? status->crpSet(group) : nullptr;
  Ent::Ptr<const RpCandidate> candidate = set ? set->rpCandidate(address_) : nullptr;
  if (candidate && !mib.pimRPSetTable(index)) {
    TRACE8("{} adding an entry to pimRPSetTable for group: {}and rp: {}", fmt::ptr(&o),
           group.address(), address_);
    mib.pimRPSetTableIs(index, status->rpType(), candidate);
  }
  if (o.bsrStatus_ && o.bsrStatus_->crp(address_) && !mib.pimCandidateRPTable(candIndex)) {
    TRACE8("{} adding an entry to pimCandidateRPTable for group: {}", fmt::ptr(&o),
           group.address());
    mib.pimCandidateRPTableIs(candIndex, candidate);
  }
}

void PimCrpSm::RxRp::handleDel() {
  const PimCrpSm& o = *crpSet_->owner();
  const Lanet::IpGenPrefix& group = crpSet_->group();
  if (!group.address().isV4()) return;
  Snmp::PimMib& mib = *o.pimMib_;
  // The candidate row is keyed by its group alone, so any RP of the group takes it along.
  const Snmp::PimCandidateRPEntryIndex candIndex = candidateIndex(group);
  if (mib.pimCandidateRPTable(candIndex)) {
    TRACE8("{} removing an entry from pimCandidateRpTable for group: {}", fmt::ptr(&o), group);
    mib.pimCandidateRPTableDel(candIndex);
  }
  const Snmp::PimRPSetEntryIndex index = rpSetIndex(group, address_);
  if (mib.pimRPSetTable(index)) {
    TRACE8("{} removing an entry from pimRPSetTable for group: {}and rp: {}", fmt::ptr(&o), group,
           address_);
    mib.pimRPSetTableDel(index);
  }
}

PimCrpSm::RxCrpSet::RxCrpSet(PimCrpSm* owner, Ent::Ptr<const RpCandidateSet> set)
    : ReactorOf(set), owner_(owner), group_(set ? set->group() : Lanet::IpGenPrefix()) {}

void PimCrpSm::RxCrpSet::onChange(const Ent::Change& change) {
  if (!owner_ || owner_->isDeleting()) return;
  if (change.attr != RpCandidateSet::attrRpCandidate || !change.key) return;
  const Lanet::IpGenAddr address = change.keyAs<Lanet::IpGenAddr>();
  if (Ent::Ptr<const RpCandidate> candidate = notifier()->rpCandidate(address)) {
    rpIs(std::move(candidate));
  } else {
    rpDel(address);
  }
}

Ent::Ptr<PimCrpSm::RxRp> PimCrpSm::RxCrpSet::rpIs(Ent::Ptr<const RpCandidate> candidate) {
  if (!candidate) throw Ent::NullArgument("RxCrpSet::rpIs: null candidate");
  const Lanet::IpGenAddr address = candidate->address();
  auto [rx, inserted] = rp_.findOrInsert(address, [&] { return Ent::make<RxRp>(this, candidate); });
  Ent::Ptr<RxRp> keep(rx);
  if (!inserted) {
    if (rx->notifier() == candidate.get()) return keep;
    // Rows keep the record they were made with: a new record needs new rows.
    rx->handleDel();
    rx->notifierIs(candidate);
  }
  rx->handleNew();
  return keep;
}

void PimCrpSm::RxCrpSet::rpDel(const Lanet::IpGenAddr& address) {
  Ent::Ptr<RxRp> rx = rp_.erase(address);
  if (!rx) return;
  rx->handleDel();
  rx->notifierIs(nullptr);
}

void PimCrpSm::RxCrpSet::rpDelAll() {
  while (!rp_.empty()) rpDel(Lanet::IpGenAddr(rp_.begin()->first));
}

void PimCrpSm::RxCrpSet::detach() {
  notifierIs(nullptr);
  owner_ = nullptr;
}

void PimCrpSm::RxCrpStatus::onChange(const Ent::Change& change) {
  if (owner_->isDeleting()) return;
  if (change.attr != RpCandidateStatus::attrCrpSet || !change.key) return;
  const Lanet::IpGenPrefix group = change.keyAs<Lanet::IpGenPrefix>();
  if (Ent::Ptr<const RpCandidateSet> set = notifier()->crpSet(group)) {
    owner_->crpSetIs(std::move(set));
  } else {
    owner_->crpSetDel(group);
  }
}

PimCrpSm::PimCrpSm(Lanet::AddressFamily af, Ent::Ptr<Snmp::PimMib> pimMib,
                   Ent::Ptr<const Bsr::Status> bsrStatus,
                   Ent::Ptr<const RpCandidateStatus> crpStatus)
    : Ent::Entity("pimCrpSm"),
      af_(af),
      pimMib_(std::move(pimMib)),
      bsrStatus_(std::move(bsrStatus)),
      rxCrpStatus_(this, std::move(crpStatus)),
      crpSet_(this, attrCrpSet) {
  if (!pimMib_) throw Ent::NullArgument("PimCrpSm: null pimMib");
}

PimCrpSm::~PimCrpSm() {
  doTeardown();
}

void PimCrpSm::initializedIs(bool on) {
  if (on == initialized_) return;
  initialized_ = on;
  notify(attrInitialized);
}

void PimCrpSm::handleInitialized() {
  TRACE8("af {}, pimCrpSm {}", af_, fmt::ptr(this));
  if (const RpCandidateStatus* status = crpStatus()) {
    for (const auto& [group, set] : status->crpSet()) crpSetIs(set);
  }
  initializedIs(true);
}

Ent::Ptr<PimCrpSm::RxCrpSet> PimCrpSm::crpSetIs(Ent::Ptr<const RpCandidateSet> set) {
  if (!set) throw Ent::NullArgument("PimCrpSm::crpSetIs: null set");
  const Lanet::IpGenPrefix group = set->group();
  auto [rx, inserted] = crpSet_.findOrInsert(group, [&] { return Ent::make<RxCrpSet>(this, set); });
  Ent::Ptr<RxCrpSet> keep(rx);
  if (!inserted) {
    if (rx->notifier() == set.get()) return keep;
    rx->rpDelAll();
    rx->notifierIs(set);
  }
  for (const auto& candidate : set->rpCandidate()) rx->rpIs(candidate);
  return keep;
}

void PimCrpSm::crpSetDel(const Lanet::IpGenPrefix& group) {
  Ent::Ptr<RxCrpSet> rx = crpSet_.erase(group);
  if (!rx) return;
  rx->rpDelAll();
  rx->detach();
}

void PimCrpSm::crpSetDelAll() {
  while (!crpSet_.empty()) crpSetDel(Lanet::IpGenPrefix(crpSet_.begin()->first));
}

void PimCrpSm::doTeardown() {
  if (tornDown_) return;
  tornDown_ = true;
  isDeletingIs(true);
  rxCrpStatus_.notifierIs(nullptr);
  crpSetDelAll();
}

Ent::Ptr<PimCrpSm> PimCrpSmIs(Lanet::AddressFamily af, Ent::Ptr<Snmp::PimMib> pimMib,
                              Ent::Ptr<const Bsr::Status> bsrStatus,
                              Ent::Ptr<const RpCandidateStatus> crpStatus) {
  auto sm = Ent::make<PimCrpSm>(af, std::move(pimMib), std::move(bsrStatus), std::move(crpStatus));
  sm->hasNotificationActiveIs(true);
  return sm;
}

}  // namespace Routing::Pim::SnmpAgent
