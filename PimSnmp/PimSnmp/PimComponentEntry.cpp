#include "PimSnmp/PimSnmp/PimComponentEntry.h"

#include "platform/Lanet/IpGenPrefix.h"

namespace Routing::Pim::Snmp {

Lanet::IpGenAddr PimComponentEntry::bsrAddr() const {
  static const Lanet::IpGenPrefix kAllGroups(Lanet::IpGenAddr::v4(0xE0000000), 4);
  if (bsrStatus_) {
    if (auto elected = bsrStatus_->electedBsr(kAllGroups)) return elected->bsrAddress();
  }
  return Lanet::IpGenAddr::v4(0);
}

}  // namespace Routing::Pim::Snmp
