#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "platform/Routing/Pim/Bsr/Status.h"
#include "platform/Routing/Pim/VrfStatusColl.h"

namespace Routing::Pim::Bsr {

// The BSR status of every VRF.
class StatusColl : public VrfStatusColl<Status> {
 public:
  explicit StatusColl(std::string name = "bsrStatus") : VrfStatusColl(std::move(name)) {}
  std::string_view typeName() const override { return "Routing::Pim::Bsr::StatusColl"; }
};

}  // namespace Routing::Pim::Bsr
