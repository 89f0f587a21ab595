#pragma once

#include <optional>
#include <stdexcept>
#include <string_view>

#include "platform/L3/VrfName.h"

namespace Routing::Pim {

// The VRF named by a state-directory key step of a per-VRF collection: the name in single
// quotes ("'default'"). Anything else, or a name too long for a VRF, names no VRF.
inline std::optional<L3::VrfName> vrfNameFromPathKey(std::string_view key) {
  if (key.size() < 2 || key.front() != '\'' || key.back() != '\'') return std::nullopt;
  try {
    return L3::VrfName(key.substr(1, key.size() - 2));
  } catch (const std::range_error&) {
    return std::nullopt;
  }
}

}  // namespace Routing::Pim
