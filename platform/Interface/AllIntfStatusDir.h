#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "platform/Ent/Coll.h"
#include "platform/Ent/Entity.h"
#include "platform/Interface/IntfStatus.h"
#include "platform/Lanet/IntfId.h"

namespace Interface {

// The status of every interface of the switch. The agent follows only its change
// notifications (an interface appearing, leaving or changing status).
class AllIntfStatusDir : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId { attrIntfStatus = 1 };
  using Coll = Ent::OrderedColl<Lanet::IntfId, IntfStatus>;

  explicit AllIntfStatusDir(std::string name = "allIntfStatus")
      : Ent::Entity(std::move(name)), intfStatus_(this, attrIntfStatus) {}
  std::string_view typeName() const override { return "Interface::AllIntfStatusDir"; }

  const Coll& intfStatus() const { return intfStatus_; }
  Ent::Ptr<const IntfStatus> intfStatus(const Lanet::IntfId& id) const {
    return intfStatus_.find(id);
  }
  // The record of `id`, created when absent.
  Ent::Ptr<IntfStatus> intfStatusIs(const Lanet::IntfId& id) {
    return intfStatus_.findOrInsert(id, [&] { return Ent::make<IntfStatus>(id); }).first;
  }
  // Sets the status of `id` and announces it here too, so that followers of the directory
  // see status changes of existing interfaces, keyed by interface id.
  void intfOperStatusIs(const Lanet::IntfId& id, OperStatus s) {
    Ent::Ptr<IntfStatus> st = intfStatusIs(id);
    if (st->operStatus() == s) return;
    st->operStatusIs(s);
    notify(attrIntfStatus, &st->key());
  }
  Ent::Ptr<IntfStatus> intfStatusDel(const Lanet::IntfId& id) { return intfStatus_.erase(id); }
  void intfStatusDelAll() { intfStatus_.clear(); }

 private:
  Coll intfStatus_;
};

}  // namespace Interface
