#pragma once

#include <cstddef>

#include "platform/Lanet/IpGenAddr.h"
#include "platform/Snmp/Oid.h"

namespace Snmp {

// Appends an address to the OID in name[0..length) as one sub-identifier per octet in network
// order (4 for IPv4: an IpAddress instance suffix; 16 for IPv6). `capacity` is the size of the
// `name` array. Returns the new length, or -1 with `name` unchanged when the address has no
// family or does not fit. Snmp::SubId is net-snmp's `oid`.
int AppendToOid(SubId* name, size_t length, size_t capacity, const Lanet::IpGenAddr& address);

}  // namespace Snmp
