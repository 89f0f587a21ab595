#include "platform/Plat/ReviewTimer.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <stdexcept>
#include <utility>

#include "platform/Ent/Error.h"

namespace Plat {

namespace {

constexpr double kMinusInf = -std::numeric_limits<double>::infinity();

// The double nearest to the float's shortest decimal form (0.1f -> 0.1, not 0.10000000149),
// so that deadlines come out as the decimal sums the caller expects.
double widen(float f) {
  char buf[32];
  auto [end, ec] = std::to_chars(buf, buf + sizeof(buf), f);
  double d = f;
  if (ec == std::errc()) std::from_chars(buf, end, d);
  return d;
}

}  // namespace

ReviewTimer::ReviewTimer(Ent::Ptr<Timer> notifiee, float fillInterval, unsigned maxCredits,
                         float minDelay, float maxDelay)
    : Ent::Entity("reviewTimer"),
      notifiee_(std::move(notifiee)),
      fillInterval_(widen(fillInterval)),
      maxCredits_(maxCredits),
      minDelay_(widen(minDelay)),
      maxDelay_(widen(maxDelay)),
      level_(maxCredits),
      levelTime_(kMinusInf),
      lastReview_(kMinusInf),
      firesAccounted_(0) {
  if (!notifiee_) throw Ent::NullArgument("Plat::ReviewTimer: null notifiee");
  if (!(fillInterval_ > 0) || maxCredits_ == 0 || !(minDelay_ >= 0) || !(minDelay_ <= maxDelay_)) {
    throw std::invalid_argument(
        "Plat::ReviewTimer: needs fillInterval > 0, maxCredits >= 1 and "
        "0 <= minDelay <= maxDelay");
  }
  // Firings before this object existed were not reviews it scheduled.
  firesAccounted_ = notifiee_->fireCount();
}

double ReviewTimer::levelAt(double t) const {
  if (levelTime_ == kMinusInf || t <= levelTime_) return level_;
  return std::min<double>(maxCredits_, level_ + (t - levelTime_) / fillInterval_);
}

void ReviewTimer::account() const {
  const uint64_t fires = notifiee_->fireCount();
  if (fires == firesAccounted_) return;
  // Only this object arms the notifiee, so at most one firing is new; should someone else
  // have fired it more often, the latest firing is the one that counts.
  firesAccounted_ = fires;
  const double at = notifiee_->lastFired();
  level_ = std::max(0.0, levelAt(at) - 1.0);
  levelTime_ = std::max(at, levelTime_);
  lastReview_ = at;
}

double ReviewTimer::lastReview() const {
  account();
  return lastReview_;
}

void ReviewTimer::lastReviewIs(double t) {
  account();
  lastReview_ = t;
}

double ReviewTimer::credits() const {
  account();
  return levelAt(now());
}

void ReviewTimer::doUpdateNextReview() {
  account();
  const double t = now();
  const double level = levelAt(t);
  const double creditReady = level >= 1.0 ? t : t + (1.0 - level) * fillInterval_;
  double next = creditReady;
  if (lastReview_ != kMinusInf) {
    next = std::clamp(next, lastReview_ + minDelay_, lastReview_ + maxDelay_);
  }
  notifiee_->deadlineIs(std::max(next, t));
}

void ReviewTimer::doUpdateNextReviewImmediately() {
  account();
  const double t = now();
  const double earliest = lastReview_ == kMinusInf ? t : lastReview_ + minDelay_;
  notifiee_->deadlineIs(std::max(earliest, t));
}

}  // namespace Plat
