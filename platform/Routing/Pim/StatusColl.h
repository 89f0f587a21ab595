#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "platform/Routing/Pim/Status.h"
#include "platform/Routing/Pim/VrfStatusColl.h"

namespace Routing::Pim {

// The PIM status of every VRF of one family that runs the served mode (filtered from
// AllStatusColl).
class StatusColl : public VrfStatusColl<Status> {
 public:
  explicit StatusColl(std::string name = "status") : VrfStatusColl(std::move(name)) {}
  std::string_view typeName() const override { return "Routing::Pim::StatusColl"; }
};

}  // namespace Routing::Pim
