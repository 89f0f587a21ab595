#pragma once

#include <cstdint>

namespace Routing::Pim {

// How an RP was learnt, one byte. Only rpTypeBsr carries meaningful hold and expiry times
// (they come from candidate-RP advertisements). Values are the platform's wire values.
enum RpType : uint8_t {
  rpTypeNone = 0,
  rpTypeStatic = 1,
  rpTypeBsr = 2,
  rpTypeAutoRp = 3,
};

}  // namespace Routing::Pim
