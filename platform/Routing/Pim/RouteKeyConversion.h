#pragma once

#include "platform/Lanet/IpGenAddr.h"
#include "platform/Lanet/IpGenPrefix.h"
#include "platform/Routing/Multicast/Fib/IpGenRouteKey.h"
#include "platform/Routing/Pim/RouteKey.h"

namespace Routing::Pim {

// (*,G) becomes a /0 source of the key's family; (S,G) becomes S/32 (S/128). The group
// becomes a host prefix. A default key maps to two af-unknown /0 prefixes.
inline Multicast::Fib::IpGenRouteKey pimRouteKeyToMfibKey(const RouteKey& key) {
  const Lanet::IpGenPrefix group = Lanet::IpGenPrefix::host(key.group);
  if (key.isStarG()) {
    return {Lanet::IpGenPrefix(Lanet::IpGenAddr::unspecified(key.af()), 0), group};
  }
  return {Lanet::IpGenPrefix::host(key.source), group};
}

// The inverse of pimRouteKeyToMfibKey for valid keys. A /0 source becomes the unspecified
// address of the source prefix's family (the group's, if that is unknown); any other source
// prefix contributes its address as is.
inline RouteKey mfibKeyToPimRouteKey(const Multicast::Fib::IpGenRouteKey& key) {
  const Lanet::IpGenAddr& group = key.group.address();
  if (key.source.maskLen() == 0) {
    const Lanet::AddressFamily af =
        key.source.af() != Lanet::AddressFamily::unknown ? key.source.af() : group.af();
    return {Lanet::IpGenAddr::unspecified(af), group};
  }
  return {key.source.address(), group};
}

}  // namespace Routing::Pim
