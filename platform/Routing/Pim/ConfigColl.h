#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "platform/Routing/Pim/Config.h"
#include "platform/Routing/Pim/VrfConfigColl.h"

namespace Routing::Pim {

// PIM configuration of every VRF. Published as "config", so one VRF's record is reachable by
// the path "config.vrfConfig/'<vrf>'" (URL-quoted in a state-directory path).
class ConfigColl : public VrfConfigColl<Config> {
 public:
  explicit ConfigColl(std::string name = "config") : VrfConfigColl(std::move(name)) {}
  std::string_view typeName() const override { return "Routing::Pim::ConfigColl"; }
};

}  // namespace Routing::Pim
