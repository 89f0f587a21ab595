#pragma once

#include <string_view>
#include <utility>

#include "platform/Ent/Coll.h"
#include "platform/Ent/Entity.h"
#include "platform/Lanet/IpGenAddr.h"
#include "platform/Lanet/IpGenPrefix.h"
#include "platform/Routing/Pim/RpCandidate.h"

namespace Routing::Pim {

// The RPs of one group range, ordered by RP address.
class RpCandidateSet : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId { attrRpCandidate = 1 };
  using Coll = Ent::OrderedColl<Lanet::IpGenAddr, RpCandidate>;

  explicit RpCandidateSet(const Lanet::IpGenPrefix& group)
      : Ent::Entity(group.toString()), group_(group), rpCandidate_(this, attrRpCandidate) {}
  std::string_view typeName() const override { return "Routing::Pim::RpCandidateSet"; }

  const Lanet::IpGenPrefix& group() const { return group_; }
  const Lanet::IpGenPrefix& key() const { return group_; }

  const Coll& rpCandidate() const { return rpCandidate_; }
  Ent::Ptr<const RpCandidate> rpCandidate(const Lanet::IpGenAddr& rp) const {
    return rpCandidate_.find(rp);
  }
  // The record of `rp`, created when absent.
  Ent::Ptr<RpCandidate> rpCandidateIs(const Lanet::IpGenAddr& rp) {
    return rpCandidate_.findOrInsert(rp, [&] { return Ent::make<RpCandidate>(rp); }).first;
  }
  // Stores a fully built record, replacing another one of its address.
  void rpCandidateIs(Ent::Ptr<RpCandidate> rp) {
    if (!rp) throw Ent::NullArgument("RpCandidateSet::rpCandidateIs: null candidate");
    const RpCandidate* cur = rpCandidate_.find(rp->key());
    if (cur == rp.get()) return;
    if (cur) rpCandidate_.erase(rp->key());
    rpCandidate_.insert(std::move(rp));
  }
  Ent::Ptr<RpCandidate> rpCandidateDel(const Lanet::IpGenAddr& rp) {
    return rpCandidate_.erase(rp);
  }
  void rpCandidateDelAll() { rpCandidate_.clear(); }

 private:
  const Lanet::IpGenPrefix group_;
  Coll rpCandidate_;
};

}  // namespace Routing::Pim
