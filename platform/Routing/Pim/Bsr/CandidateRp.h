#pragma once

#include <string_view>

#include "platform/Ent/Entity.h"
#include "platform/Lanet/IpGenAddr.h"

namespace Routing::Pim::Bsr {

// An address this router advertises as candidate RP. Only its presence is read.
class CandidateRp : public Ent::Entity {
 public:
  explicit CandidateRp(const Lanet::IpGenAddr& rp) : Ent::Entity(rp.toString()), rp_(rp) {}
  std::string_view typeName() const override { return "Routing::Pim::Bsr::CandidateRp"; }

  const Lanet::IpGenAddr& rp() const { return rp_; }
  const Lanet::IpGenAddr& key() const { return rp_; }

 private:
  const Lanet::IpGenAddr rp_;
};

}  // namespace Routing::Pim::Bsr
