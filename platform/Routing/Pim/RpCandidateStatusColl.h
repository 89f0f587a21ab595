#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "platform/Routing/Pim/RpCandidateStatus.h"
#include "platform/Routing/Pim/VrfStatusColl.h"

namespace Routing::Pim {

// The RP status of every VRF for one way of learning RPs (candidate or static); the writer
// sets each record's rpType.
class RpCandidateStatusColl : public VrfStatusColl<RpCandidateStatus> {
 public:
  explicit RpCandidateStatusColl(std::string name = "rpCandidateStatus")
      : VrfStatusColl(std::move(name)) {}
  std::string_view typeName() const override { return "Routing::Pim::RpCandidateStatusColl"; }
};

}  // namespace Routing::Pim
