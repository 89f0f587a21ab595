#include "PimSnmp/MibTable/MibTable.h"

#include <fmt/format.h>

namespace Routing::Pim::Snmp {

std::string hintValueText(const netsnmp_variable_list& v) {
  switch (v.type) {
    case ASN_INTEGER:
      return std::to_string(*v.val.integer);
    case ASN_UNSIGNED:
    case ASN_COUNTER:
    case ASN_TIMETICKS:
      return std::to_string(static_cast<unsigned long>(*v.val.integer));
    case ASN_IPADDRESS:
      if (v.val_len == 4) {
        return fmt::format("{}.{}.{}.{}", v.val.string[0], v.val.string[1], v.val.string[2],
                           v.val.string[3]);
      }
      break;
    default:
      break;
  }
  std::string out;
  for (size_t i = 0; i < v.val_len && v.val.string; ++i) {
    out += fmt::format("{}{:02x}", i ? ":" : "", v.val.string[i]);
  }
  return out;
}

std::string entityText(const Ent::Entity& entity) {
  return fmt::format("{} {}", entity.typeName(), entity.name());
}

}  // namespace Routing::Pim::Snmp
