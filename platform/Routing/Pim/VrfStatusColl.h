#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "platform/Ent/Coll.h"
#include "platform/Ent/Entity.h"
#include "platform/L3/VrfName.h"
#include "platform/Routing/Pim/VrfKey.h"

namespace Routing::Pim {

// Base of the per-VRF status collections: `vrfStatus`, ordered by VRF name, of records of
// type V (constructible from an L3::VrfName, keyed by `key()`).
template <class V>
class VrfStatusColl : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId { attrVrfStatus = 1 };
  using Coll = Ent::OrderedColl<L3::VrfName, V>;

  explicit VrfStatusColl(std::string name)
      : Ent::Entity(std::move(name)), vrfStatus_(this, attrVrfStatus) {}

  const Coll& vrfStatus() const { return vrfStatus_; }
  Ent::Ptr<const V> vrfStatus(const L3::VrfName& vrf) const { return vrfStatus_.find(vrf); }
  // The record of `vrf`, created when absent.
  Ent::Ptr<V> vrfStatusIs(const L3::VrfName& vrf) {
    return vrfStatus_.findOrInsert(vrf, [&] { return Ent::make<V>(vrf); }).first;
  }
  // Stores a fully built record, replacing another one of its VRF.
  void vrfStatusIs(Ent::Ptr<V> v) {
    if (!v) throw Ent::NullArgument("vrfStatusIs: null status");
    const V* cur = vrfStatus_.find(v->key());
    if (cur == v.get()) return;
    if (cur) vrfStatus_.erase(v->key());
    vrfStatus_.insert(std::move(v));
  }
  Ent::Ptr<V> vrfStatusDel(const L3::VrfName& vrf) { return vrfStatus_.erase(vrf); }
  void vrfStatusDelAll() { vrfStatus_.clear(); }

  // "<name>.vrfStatus/'<vrf>'".
  Ent::Ptr<Ent::Entity> childEntity(std::string_view attr, std::string_view key) const override {
    if (attr != "vrfStatus") return nullptr;
    auto vrf = vrfNameFromPathKey(key);
    return vrf ? Ent::Ptr<Ent::Entity>(vrfStatus_.find(*vrf)) : nullptr;
  }

 private:
  Coll vrfStatus_;
};

}  // namespace Routing::Pim
