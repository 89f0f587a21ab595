#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <boost/container/small_vector.hpp>

#include "platform/Ent/Ptr.h"

namespace Ent {

// Identifies an attribute of an entity type in change notifications. Each
// entity type numbers its attributes in an `enum Attr : Ent::AttrId`.
using AttrId = uint16_t;

// One change of one attribute. For a collection attribute `key` points at the
// element's key (valid for the duration of the callback); for a singleton it is null.
struct Change {
  AttrId attr = 0;
  const void* key = nullptr;

  template <class K>
  const K& keyAs() const {
    return *static_cast<const K*>(key);
  }
};

class Reactor;

// A named, reference-counted object with attributes whose changes are
// announced to the reactors that follow it. Kept small: platform records are
// entities (millions of them, mostly unnamed and followed by one reactor).
class Entity : public RefCounted {
 public:
  explicit Entity(std::string name = {})
      : name_(name.empty() ? nullptr : std::make_unique<const std::string>(std::move(name))) {}
  ~Entity() override;

  const std::string& name() const { return name_ ? *name_ : kNoName; }
  // Qualified type name, as used in messages ("Routing::Pim::Snmp::PimMib").
  virtual std::string_view typeName() const = 0;

  bool hasNotificationActive() const { return notificationActive_; }
  virtual void hasNotificationActiveIs(bool on) { notificationActive_ = on; }

  // Set while the owner tears the entity down; reactors of a deleting owner skip work.
  bool isDeleting() const { return deleting_; }
  void isDeletingIs(bool d) { deleting_ = d; }

  // Announces a change to every attached reactor (when notification is on).
  void notify(AttrId attr, const void* key = nullptr) const;
  size_t reactorCount() const;

  // Resolves one "attr/key" step of a state-directory path ("config.vrfConfig/%27red%27").
  // Collections that can be reached by path override this.
  virtual Ptr<Entity> childEntity(std::string_view attr, std::string_view key) const;

 private:
  friend class Reactor;
  void attach(Reactor* r) const;
  void detach(Reactor* r) const;

  static const std::string kNoName;

  // Flags first: they fit in the tail padding of RefCounted.
  mutable uint16_t notifyDepth_ = 0;
  bool notificationActive_ : 1 = true;
  bool deleting_ : 1 = false;
  mutable bool needsCompact_ : 1 = false;
  std::unique_ptr<const std::string> name_;  // null when unnamed
  // One reactor is kept inline: most entities have a single follower.
  mutable boost::container::small_vector<Reactor*, 1> reactors_;
};

// Follows one entity. A reactor holds a counted reference to its notifier, so
// the notifier lives at least as long as it is followed.
class Reactor {
 public:
  Reactor() = default;
  explicit Reactor(Ptr<const Entity> notifier) { notifierIs(std::move(notifier)); }
  Reactor(const Reactor&) = delete;
  Reactor& operator=(const Reactor&) = delete;
  virtual ~Reactor();

  // Rebinds to another notifier (or none).
  void notifierIs(Ptr<const Entity> notifier);
  const Entity* notifierEntity() const { return notifier_.get(); }

  virtual void onChange(const Change& change) = 0;

 private:
  Ptr<const Entity> notifier_;
};

// A reactor that knows its notifier's type: the base of every `Rx...` class. The typed
// notifier is a cast of the untyped one, not a second pointer: there is a reactor per route
// interface, and 8 bytes decide its allocation size.
template <class T>
class ReactorOf : public Reactor {
 public:
  ReactorOf() = default;
  explicit ReactorOf(Ptr<const T> n) : Reactor(Ptr<const Entity>(n.get())) {}

  const T* notifier() const { return static_cast<const T*>(notifierEntity()); }
  void notifierIs(Ptr<const T> n) { Reactor::notifierIs(Ptr<const Entity>(n.get())); }
};

}  // namespace Ent
