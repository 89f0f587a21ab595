// The startup review: walks the routes present at start in time-bounded slices.

#include <fmt/format.h>

#include "PimSnmp/PimSnmpAgent/MrouteSm.h"
#include "platform/Trace/Trace.h"

DEFAULT_TRACE_HANDLE("PimSnmpAgent")

namespace Routing::Pim::SnmpAgent {

void MrouteSm::RxClock::onChange(const Ent::Change& change) {
  if (owner_->isDeleting() || change.attr != Plat::Timer::attrFired) return;
  owner_->doMrouteReview();
}

double MrouteSm::now() const {
  return clockSource_ ? clockSource_->now() : Plat::now();
}

void MrouteSm::reviewTimerIs(Ent::Ptr<Plat::Timer> notifiee, float fillInterval,
                             unsigned maxCredits, float minDelay, float maxDelay) {
  reviewTimer_ = Ent::make<Plat::ReviewTimer>(std::move(notifiee), fillInterval, maxCredits,
                                              minDelay, maxDelay);
}

void MrouteSm::handleInitialized() {
  TRACE8("af {}, vrf {}", af_, routeStatus()->vrfName());
  if (reviewTimer_) return;  // started already
  clockSource_ = Plat::currentClockPtr();
  timer_ = Ent::make<Plat::Timer>(clockSource_, "mrouteReview");
  clock_ = std::make_unique<RxClock>(this, timer_);
  reviewTimerIs(timer_, 1.0f, 2, 0.1f, 3.0f);
  reviewTimer_->doUpdateNextReview();
}

void MrouteSm::doMrouteReview() {
  TRACE8("af {}, vrf {}", af_, routeStatus()->vrfName());
  if (reviewCompleted_ || !reviewTimer_) return;
  const double start = now();
  const RouteKey none{Lanet::IpGenAddr::unspecified(af_), Lanet::IpGenAddr::unspecified(af_)};
  RouteMap::const_iterator it;
  if (reviewBookmark_ != none) {
    TRACE8("{}: Resuming review at: {}", fmt::ptr(this), reviewBookmark_);
    it = route_.lower_bound(reviewBookmark_);
  } else {
    TRACE8("{}: Starting new review", fmt::ptr(this));
    it = route_.begin();
  }
  while (it != route_.end()) {
    // handleMroute never removes a route reactor, so the iterator stays valid.
    const RouteKey key = it->key();
    if (!it->reviewed_) {
      TRACE8("Reviewing route {}", key);
      reviewedIs(const_cast<RxRoute&>(*it), true);
      handleMroute(key);
    }
    ++it;
    if (now() >= start + reviewQuantum_) {
      if (it == route_.end()) break;
      reviewBookmark_ = it->key();
      TRACE8("{}: Suspending review at: {}", fmt::ptr(this), reviewBookmark_);
      reviewTimer_->doUpdateNextReviewImmediately();
      return;
    }
  }
  reviewBookmark_ = none;
  if (reviewedRoutes_ == routeStatus()->route().size()) {
    TRACE8("{}: Finished review", fmt::ptr(this));
    reviewCompleted_ = true;
    notify(attrReviewCompleted);
  } else {
    TRACE8("{}: Do another review", fmt::ptr(this));
    reviewTimer_->lastReviewIs(now());
    reviewTimer_->doUpdateNextReview();
  }
}

}  // namespace Routing::Pim::SnmpAgent
