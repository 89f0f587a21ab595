#pragma once

#include <string_view>
#include <utility>

#include "platform/Ent/Coll.h"
#include "platform/Ent/Entity.h"
#include "platform/L3/VrfName.h"
#include "platform/Lanet/IpGenPrefix.h"
#include "platform/Routing/Pim/RpCandidateSet.h"
#include "platform/Routing/Pim/RpType.h"

namespace Routing::Pim {

// The RPs of one VRF learnt one way (rpType): one RpCandidateSet per group range.
class RpCandidateStatus : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId {
    attrRpType = 1,
    attrCrpSet = 2,
  };
  using Coll = Ent::HashColl<Lanet::IpGenPrefix, RpCandidateSet>;

  explicit RpCandidateStatus(const L3::VrfName& vrfName, RpType rpType = rpTypeNone)
      : Ent::Entity(vrfName.str()), vrfName_(vrfName), rpType_(rpType), crpSet_(this, attrCrpSet) {}
  std::string_view typeName() const override { return "Routing::Pim::RpCandidateStatus"; }

  const L3::VrfName& vrfName() const { return vrfName_; }
  const L3::VrfName& key() const { return vrfName_; }

  RpType rpType() const { return rpType_; }
  void rpTypeIs(RpType t) {
    if (t == rpType_) return;
    rpType_ = t;
    notify(attrRpType);
  }

  const Coll& crpSet() const { return crpSet_; }
  Ent::Ptr<const RpCandidateSet> crpSet(const Lanet::IpGenPrefix& group) const {
    return crpSet_.find(group);
  }
  // The set of `group`, created when absent.
  Ent::Ptr<RpCandidateSet> crpSetIs(const Lanet::IpGenPrefix& group) {
    return crpSet_.findOrInsert(group, [&] { return Ent::make<RpCandidateSet>(group); }).first;
  }
  // Stores a fully built set, replacing another one of its group range.
  void crpSetIs(Ent::Ptr<RpCandidateSet> set) {
    if (!set) throw Ent::NullArgument("RpCandidateStatus::crpSetIs: null set");
    const Lanet::IpGenPrefix group = set->group();
    crpSet_.set(group, std::move(set));
  }
  Ent::Ptr<RpCandidateSet> crpSetDel(const Lanet::IpGenPrefix& group) {
    return crpSet_.erase(group);
  }
  void crpSetDelAll() { crpSet_.clear(); }

 private:
  const L3::VrfName vrfName_;
  RpType rpType_;
  Coll crpSet_;
};

}  // namespace Routing::Pim
