#pragma once

#include <cstdint>
#include <string_view>

#include "platform/Ent/Entity.h"
#include "platform/Lanet/IntfId.h"
#include "platform/Lanet/IpGenPrefix.h"

namespace Routing::Pim::Bsr {

// This router as candidate BSR for one group range, on one interface.
class CandidateBsr : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId {
    attrIntfId = 1,
    attrPriority = 2,
  };

  explicit CandidateBsr(const Lanet::IpGenPrefix& prefix)
      : Ent::Entity(prefix.toString()), prefix_(prefix) {}
  std::string_view typeName() const override { return "Routing::Pim::Bsr::CandidateBsr"; }

  const Lanet::IpGenPrefix& prefix() const { return prefix_; }
  const Lanet::IpGenPrefix& key() const { return prefix_; }

  const Lanet::IntfId& intfId() const { return intfId_; }
  void intfIdIs(const Lanet::IntfId& id) {
    if (id == intfId_) return;
    intfId_ = id;
    notify(attrIntfId);
  }
  uint16_t priority() const { return priority_; }
  void priorityIs(uint16_t p) {
    if (p == priority_) return;
    priority_ = p;
    notify(attrPriority);
  }

 private:
  const Lanet::IpGenPrefix prefix_;
  Lanet::IntfId intfId_;
  uint16_t priority_ = 0;
};

}  // namespace Routing::Pim::Bsr
