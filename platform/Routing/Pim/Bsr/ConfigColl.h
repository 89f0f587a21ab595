#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "platform/Routing/Pim/Bsr/Config.h"
#include "platform/Routing/Pim/VrfConfigColl.h"

namespace Routing::Pim::Bsr {

// The BSR configuration of every VRF.
class ConfigColl : public VrfConfigColl<Config> {
 public:
  explicit ConfigColl(std::string name = "bsrConfig") : VrfConfigColl(std::move(name)) {}
  std::string_view typeName() const override { return "Routing::Pim::Bsr::ConfigColl"; }
};

}  // namespace Routing::Pim::Bsr
