#pragma once

#include <string>
#include <string_view>

#include "platform/Lanet/AddressFamily.h"
#include "platform/Routing/Pim/Status.h"
#include "platform/Routing/Pim/VrfStatusColl.h"

namespace Routing::Pim {

// The PIM agent's published status of one family: every VRF, whatever its mode.
class GlobalStatus : public VrfStatusColl<Status> {
 public:
  explicit GlobalStatus(Lanet::AddressFamily af)
      : VrfStatusColl(std::string(Lanet::toString(af))), af_(af) {}
  std::string_view typeName() const override { return "Routing::Pim::GlobalStatus"; }

  Lanet::AddressFamily af() const { return af_; }

 private:
  const Lanet::AddressFamily af_;
};

}  // namespace Routing::Pim
