#include "platform/Ent/Entity.h"

#include <algorithm>

namespace Ent {

const std::string Entity::kNoName;

Entity::~Entity() = default;

void Entity::notify(AttrId attr, const void* key) const {
  if (!notificationActive_ || reactors_.empty()) return;
  const Change change{attr, key};
  // A reactor may drop the last reference to this entity (by detaching or by
  // being destroyed): keep it alive until the loop is done with it.
  const Ptr<const Entity> self(this);
  // Reactors may detach (themselves or others) or attach new ones while we
  // iterate: detached slots are nulled and compacted once the outermost call ends.
  ++notifyDepth_;
  const size_t n = reactors_.size();
  for (size_t i = 0; i < n; ++i) {
    if (Reactor* r = reactors_[i]) r->onChange(change);
  }
  if (--notifyDepth_ == 0 && needsCompact_) {
    reactors_.erase(std::remove(reactors_.begin(), reactors_.end(), nullptr), reactors_.end());
    needsCompact_ = false;
  }
}

size_t Entity::reactorCount() const {
  return static_cast<size_t>(
      std::count_if(reactors_.begin(), reactors_.end(), [](Reactor* r) { return r != nullptr; }));
}

Ptr<Entity> Entity::childEntity(std::string_view, std::string_view) const {
  return nullptr;
}

void Entity::attach(Reactor* r) const {
  reactors_.push_back(r);
}

void Entity::detach(Reactor* r) const {
  auto it = std::find(reactors_.begin(), reactors_.end(), r);
  if (it == reactors_.end()) return;
  if (notifyDepth_ > 0) {
    *it = nullptr;
    needsCompact_ = true;
  } else {
    reactors_.erase(it);
  }
}

Reactor::~Reactor() {
  if (notifier_) notifier_->detach(this);
}

void Reactor::notifierIs(Ptr<const Entity> notifier) {
  if (notifier == notifier_) return;
  if (notifier_) notifier_->detach(this);
  notifier_ = std::move(notifier);
  if (notifier_) notifier_->attach(this);
}

}  // namespace Ent
