#pragma once

#include <string_view>

#include "platform/Ent/Entity.h"
#include "platform/Lanet/IpGenAddr.h"
#include "platform/Lanet/IpGenPrefix.h"

namespace Routing::Pim::Bsr {

// The BSR elected for one group range.
class ElectedBsr : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId { attrBsrAddress = 1 };

  explicit ElectedBsr(const Lanet::IpGenPrefix& prefix)
      : Ent::Entity(prefix.toString()), prefix_(prefix) {}
  std::string_view typeName() const override { return "Routing::Pim::Bsr::ElectedBsr"; }

  const Lanet::IpGenPrefix& prefix() const { return prefix_; }
  const Lanet::IpGenPrefix& key() const { return prefix_; }

  const Lanet::IpGenAddr& bsrAddress() const { return bsrAddress_; }
  void bsrAddressIs(const Lanet::IpGenAddr& a) {
    if (a == bsrAddress_) return;
    bsrAddress_ = a;
    notify(attrBsrAddress);
  }

 private:
  const Lanet::IpGenPrefix prefix_;
  Lanet::IpGenAddr bsrAddress_;
};

}  // namespace Routing::Pim::Bsr
