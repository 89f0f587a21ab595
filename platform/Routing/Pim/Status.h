#pragma once

#include <string_view>
#include <utility>

#include "platform/Ent/Coll.h"
#include "platform/Ent/Entity.h"
#include "platform/L3/VrfName.h"
#include "platform/Lanet/IntfId.h"
#include "platform/Routing/Pim/Intf.h"
#include "platform/Routing/Pim/Mode.h"

namespace Routing::Pim {

// The PIM state of one VRF and family: its mode and its PIM interfaces.
class Status : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId {
    attrMode = 1,
    attrPimIntf = 2,
  };
  using IntfColl = Ent::HashColl<Lanet::IntfId, Intf>;

  explicit Status(const L3::VrfName& vrfName)
      : Ent::Entity(vrfName.str()), vrfName_(vrfName), pimIntf_(this, attrPimIntf) {}
  std::string_view typeName() const override { return "Routing::Pim::Status"; }

  const L3::VrfName& vrfName() const { return vrfName_; }
  const L3::VrfName& key() const { return vrfName_; }

  Mode mode() const { return mode_; }
  void modeIs(Mode m) {
    if (m == mode_) return;
    mode_ = m;
    notify(attrMode);
  }

  const IntfColl& pimIntf() const { return pimIntf_; }
  Ent::Ptr<const Intf> pimIntf(const Lanet::IntfId& id) const { return pimIntf_.find(id); }
  // The interface record of `id`, created when absent.
  Ent::Ptr<Intf> pimIntfIs(const Lanet::IntfId& id) {
    return pimIntf_.findOrInsert(id, [&] { return Ent::make<Intf>(id); }).first;
  }
  // Stores a fully built record under its id, replacing another one.
  void pimIntfIs(Ent::Ptr<Intf> intf) {
    if (!intf) throw Ent::NullArgument("Status::pimIntfIs: null interface");
    const Lanet::IntfId id = intf->intfId();
    pimIntf_.set(id, std::move(intf));
  }
  Ent::Ptr<Intf> pimIntfDel(const Lanet::IntfId& id) { return pimIntf_.erase(id); }
  void pimIntfDelAll() { pimIntf_.clear(); }

 private:
  const L3::VrfName vrfName_;
  Mode mode_ = modeNone;
  IntfColl pimIntf_;
};

}  // namespace Routing::Pim
