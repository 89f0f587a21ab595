#include "platform/Snmp/AppendToOid.h"

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <climits>
#include <type_traits>

static_assert(std::is_same_v<oid, Snmp::SubId>, "Snmp::SubId must be net-snmp's oid");

namespace Snmp {

int AppendToOid(SubId* name, size_t length, size_t capacity, const Lanet::IpGenAddr& address) {
  const auto octets = address.bytes();
  if (!name || octets.empty() || length > capacity || capacity - length < octets.size() ||
      length + octets.size() > static_cast<size_t>(INT_MAX)) {
    return -1;
  }
  for (uint8_t octet : octets) name[length++] = octet;
  return static_cast<int>(length);
}

}  // namespace Snmp
