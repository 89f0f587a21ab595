#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "platform/Ent/Coll.h"
#include "platform/Ent/Entity.h"
#include "platform/L3/VrfName.h"
#include "platform/Routing/Pim/VrfKey.h"

namespace Routing::Pim {

// Base of the per-VRF configuration collections: `vrfConfig`, ordered by VRF name, of records of
// type V (constructible from an L3::VrfName, keyed by `key()`).
template <class V>
class VrfConfigColl : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId { attrVrfConfig = 1 };
  using Coll = Ent::OrderedColl<L3::VrfName, V>;

  explicit VrfConfigColl(std::string name)
      : Ent::Entity(std::move(name)), vrfConfig_(this, attrVrfConfig) {}

  const Coll& vrfConfig() const { return vrfConfig_; }
  Ent::Ptr<const V> vrfConfig(const L3::VrfName& vrf) const { return vrfConfig_.find(vrf); }
  // The record of `vrf`, created when absent.
  Ent::Ptr<V> vrfConfigIs(const L3::VrfName& vrf) {
    return vrfConfig_.findOrInsert(vrf, [&] { return Ent::make<V>(vrf); }).first;
  }
  // Stores a fully built record, replacing another one of its VRF.
  void vrfConfigIs(Ent::Ptr<V> v) {
    if (!v) throw Ent::NullArgument("vrfConfigIs: null config");
    const V* cur = vrfConfig_.find(v->key());
    if (cur == v.get()) return;
    if (cur) vrfConfig_.erase(v->key());
    vrfConfig_.insert(std::move(v));
  }
  Ent::Ptr<V> vrfConfigDel(const L3::VrfName& vrf) { return vrfConfig_.erase(vrf); }
  void vrfConfigDelAll() { vrfConfig_.clear(); }

  // "<name>.vrfConfig/'<vrf>'".
  Ent::Ptr<Ent::Entity> childEntity(std::string_view attr, std::string_view key) const override {
    if (attr != "vrfConfig") return nullptr;
    auto vrf = vrfNameFromPathKey(key);
    return vrf ? Ent::Ptr<Ent::Entity>(vrfConfig_.find(*vrf)) : nullptr;
  }

 private:
  Coll vrfConfig_;
};

}  // namespace Routing::Pim
