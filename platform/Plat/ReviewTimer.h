#pragma once

#include <cstdint>
#include <string_view>

#include "platform/Ent/Entity.h"
#include "platform/Plat/Timer.h"

namespace Plat {

// Paces a recurring background review (a walk over many records in slices) by arming the
// review's timer, the notifiee, whose firing runs one review. It is a token bucket:
//
// - Credits: the bucket starts full with `maxCredits` credits and earns one credit per
//   `fillInterval` seconds, continuously (fractions count toward the next credit), never
//   holding more than `maxCredits`.
// - Every firing of the notifiee is one review and spends one credit (never below zero). It is
//   accounted lazily, by the notifiee's fire count, at the next call into this object, so the
//   review's own handler may run before or after that without changing the result.
// - The last review is the time of the last firing, or what lastReviewIs() stamped since.
//   Stamping moves only that reference point; it spends nothing. Before any review there is no
//   last review, and the delay bounds below do not apply.
// - doUpdateNextReview(): the next review is when a whole credit is available, but no sooner
//   than lastReview + minDelay and no later than lastReview + maxDelay (the latter wins over a
//   missing credit: the review then runs on an empty bucket). Never before now.
// - doUpdateNextReviewImmediately(): lastReview + minDelay, or now if that is past; credits are
//   not waited for (it continues a review that was suspended after a slice).
//
// Each call re-arms the notifiee, replacing the deadline it had. Times are read from the
// notifiee's clock. With (1.0, 2, 0.1, 3.0): two reviews may follow each other 0.1 s apart,
// after which full reviews run about once a second.
class ReviewTimer : public Ent::Entity {
 public:
  // Throws Ent::NullArgument for a null notifiee and std::invalid_argument unless
  // fillInterval > 0, maxCredits >= 1 and 0 <= minDelay <= maxDelay.
  ReviewTimer(Ent::Ptr<Timer> notifiee, float fillInterval, unsigned maxCredits, float minDelay,
              float maxDelay);
  std::string_view typeName() const override { return "Plat::ReviewTimer"; }

  const Ent::Ptr<Timer>& notifiee() const { return notifiee_; }
  double fillInterval() const { return fillInterval_; }
  unsigned maxCredits() const { return maxCredits_; }
  double minDelay() const { return minDelay_; }
  double maxDelay() const { return maxDelay_; }

  void doUpdateNextReview();
  void doUpdateNextReviewImmediately();
  // When the notifiee fires next (kNever when it is not armed).
  double nextReview() const { return notifiee_->deadline(); }

  // -inf until the first review.
  double lastReview() const;
  void lastReviewIs(double t);
  // Credits available now, fractions included: 0 .. maxCredits.
  double credits() const;

 private:
  double now() const { return notifiee_->clock()->now(); }
  // The bucket level at `t` (>= the last accounting time).
  double levelAt(double t) const;
  // Spends the credit of each firing not yet accounted.
  void account() const;

  const Ent::Ptr<Timer> notifiee_;
  const double fillInterval_;
  const unsigned maxCredits_;
  const double minDelay_;
  const double maxDelay_;

  // Accounting state; mutable because readers account pending firings first.
  mutable double level_;       // credits at levelTime_
  mutable double levelTime_;   // -inf: the bucket was full at the start
  mutable double lastReview_;  // -inf: none yet
  mutable uint64_t firesAccounted_;
};

}  // namespace Plat
