#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "platform/Routing/Pim/Status.h"
#include "platform/Routing/Pim/VrfStatusColl.h"

namespace Routing::Pim {

// The PIM status of every VRF of one family, whatever its mode.
class AllStatusColl : public VrfStatusColl<Status> {
 public:
  explicit AllStatusColl(std::string name = "allStatus") : VrfStatusColl(std::move(name)) {}
  std::string_view typeName() const override { return "Routing::Pim::AllStatusColl"; }
};

}  // namespace Routing::Pim
