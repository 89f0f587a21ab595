#pragma once

#include <cstdint>
#include <string_view>
#include <utility>

#include "platform/Ent/Coll.h"
#include "platform/Ent/Entity.h"
#include "platform/Lanet/IntfId.h"
#include "platform/Lanet/IpGenAddr.h"
#include "platform/Routing/Pim/Mode.h"
#include "platform/Routing/Pim/Neighbor.h"

namespace Routing::Pim {

// A PIM-enabled interface of one VRF with its active neighbors.
class Intf : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId {
    attrAddress = 1,
    attrMode = 2,
    attrDrAddr = 3,
    attrHelloInterval = 4,
    attrJpInterval = 5,
    attrActiveNeighbor = 6,
  };
  using NeighborColl = Ent::OrderedColl<Lanet::IpGenAddr, Neighbor>;

  explicit Intf(const Lanet::IntfId& intfId)
      : Ent::Entity(intfId.name()), intfId_(intfId), activeNeighbor_(this, attrActiveNeighbor) {}
  std::string_view typeName() const override { return "Routing::Pim::Intf"; }

  const Lanet::IntfId& intfId() const { return intfId_; }
  const Lanet::IntfId& key() const { return intfId_; }

  // The interface's primary address and its mask length. The length is kept as published,
  // even when it exceeds the family's width.
  const Lanet::IpGenAddr& address() const { return address_; }
  uint8_t maskLen() const { return maskLen_; }
  void addressIs(const Lanet::IpGenAddr& address, uint8_t maskLen) {
    if (address == address_ && maskLen == maskLen_) return;
    address_ = address;
    maskLen_ = maskLen;
    notify(attrAddress);
  }

  Mode mode() const { return mode_; }
  void modeIs(Mode m) {
    if (m == mode_) return;
    mode_ = m;
    notify(attrMode);
  }

  const Lanet::IpGenAddr& drAddr() const { return drAddr_; }
  void drAddrIs(const Lanet::IpGenAddr& a) {
    if (a == drAddr_) return;
    drAddr_ = a;
    notify(attrDrAddr);
  }

  // Seconds.
  uint16_t helloInterval() const { return helloInterval_; }
  void helloIntervalIs(uint16_t s) {
    if (s == helloInterval_) return;
    helloInterval_ = s;
    notify(attrHelloInterval);
  }
  uint16_t jpInterval() const { return jpInterval_; }
  void jpIntervalIs(uint16_t s) {
    if (s == jpInterval_) return;
    jpInterval_ = s;
    notify(attrJpInterval);
  }

  const NeighborColl& activeNeighbor() const { return activeNeighbor_; }
  Ent::Ptr<const Neighbor> activeNeighbor(const Lanet::IpGenAddr& a) const {
    return activeNeighbor_.find(a);
  }
  // The neighbor of `a`, created when absent.
  Ent::Ptr<Neighbor> activeNeighborIs(const Lanet::IpGenAddr& a) {
    return activeNeighbor_.findOrInsert(a, [&] { return Ent::make<Neighbor>(a); }).first;
  }
  // Inserts a fully built neighbor, replacing another record under its address.
  void activeNeighborIs(Ent::Ptr<Neighbor> n) {
    if (!n) throw Ent::NullArgument("Intf::activeNeighborIs: null neighbor");
    const Neighbor* cur = activeNeighbor_.find(n->key());
    if (cur == n.get()) return;
    if (cur) activeNeighbor_.erase(n->key());
    activeNeighbor_.insert(std::move(n));
  }
  Ent::Ptr<Neighbor> activeNeighborDel(const Lanet::IpGenAddr& a) {
    return activeNeighbor_.erase(a);
  }
  void activeNeighborDelAll() { activeNeighbor_.clear(); }

 private:
  const Lanet::IntfId intfId_;
  Lanet::IpGenAddr address_;
  uint8_t maskLen_ = 0;
  Mode mode_ = modeNone;
  Lanet::IpGenAddr drAddr_;
  uint16_t helloInterval_ = 0;
  uint16_t jpInterval_ = 0;
  NeighborColl activeNeighbor_;
};

}  // namespace Routing::Pim
