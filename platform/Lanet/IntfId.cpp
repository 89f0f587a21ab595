#include "platform/Lanet/IntfId.h"

#include <ostream>

#include "platform/Lanet/Hash.h"

namespace Lanet {

size_t IntfId::hash(size_t seed) const {
  return hashCombine(seed, std::hash<std::string_view>()(name_));
}

std::ostream& operator<<(std::ostream& os, const IntfId& intf) {
  return os << intf.name();
}

}  // namespace Lanet
