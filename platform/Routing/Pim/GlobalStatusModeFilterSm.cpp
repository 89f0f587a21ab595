#include "platform/Routing/Pim/GlobalStatusModeFilterSm.h"

#include <utility>
#include <vector>

#include "platform/Ent/Error.h"
#include "platform/Trace/Trace.h"

DEFAULT_TRACE_HANDLE("PimShtab")

namespace Routing::Pim {

GlobalStatusModeFilterSm::GlobalStatusModeFilterSm(Ent::Ptr<const AllStatusColl> allStatusColl,
                                                   Ent::Ptr<StatusColl> statusColl, Mode mode)
    : Ent::Entity("globalStatusModeFilterSm"),
      allStatusColl_(std::move(allStatusColl)),
      statusColl_(std::move(statusColl)),
      mode_(mode),
      rxAllStatusColl_(this, allStatusColl_) {
  if (!allStatusColl_ || !statusColl_) {
    throw Ent::NullArgument("GlobalStatusModeFilterSm: null status collection");
  }
  for (const auto& s : allStatusColl_->vrfStatus()) handleVrfStatus(s->key());
  // What statusColl held before and allStatusColl lacks.
  std::vector<L3::VrfName> stale;
  for (const auto& s : statusColl_->vrfStatus()) {
    if (!allStatusColl_->vrfStatus().contains(s->key())) stale.push_back(s->key());
  }
  for (const L3::VrfName& vrf : stale) statusColl_->vrfStatusDel(vrf);
}

GlobalStatusModeFilterSm::~GlobalStatusModeFilterSm() {
  isDeletingIs(true);
}

void GlobalStatusModeFilterSm::handleVrfStatus(const L3::VrfName& vrf) {
  TRACE8("vrf {}", vrf);
  const Status* s = allStatusColl_->vrfStatus().find(vrf);
  auto it = rxStatus_.find(vrf);
  if (!s) {
    if (it != rxStatus_.end()) rxStatus_.erase(it);
  } else if (it == rxStatus_.end()) {
    rxStatus_.emplace(vrf, std::make_unique<RxStatus>(this, Ent::Ptr<const Status>(s)));
  } else if (it->second->notifier() != s) {
    it->second->notifierIs(Ent::Ptr<const Status>(s));
  }
  evaluate(vrf);
}

void GlobalStatusModeFilterSm::handleMode(const L3::VrfName& vrf) {
  TRACE8("vrf {}", vrf);
  evaluate(vrf);
}

void GlobalStatusModeFilterSm::evaluate(const L3::VrfName& vrf) {
  Status* s = allStatusColl_->vrfStatus().find(vrf);
  if (s && s->mode() == mode_) {
    statusColl_->vrfStatusIs(Ent::Ptr<Status>(s));
  } else {
    statusColl_->vrfStatusDel(vrf);
  }
}

void GlobalStatusModeFilterSm::RxAllStatusColl::onChange(const Ent::Change& change) {
  if (owner_->isDeleting() || change.attr != AllStatusColl::attrVrfStatus) return;
  const L3::VrfName vrf = change.keyAs<L3::VrfName>();
  owner_->handleVrfStatus(vrf);
}

void GlobalStatusModeFilterSm::RxStatus::onChange(const Ent::Change& change) {
  if (owner_->isDeleting() || change.attr != Status::attrMode) return;
  owner_->handleMode(notifier()->key());
}

}  // namespace Routing::Pim
