#include "PimSnmp/PimSnmp/PimInterfaceEntry.h"

#include "PimSnmp/PimSnmp/Index.h"

namespace Routing::Pim::Snmp {

namespace {
const Lanet::IntfId kNoIntfId;
// PIM-MIB is IPv4-only: a missing record reads as 0.0.0.0, which still encodes as an IpAddress.
const Lanet::IpGenAddr kNoAddr = Lanet::IpGenAddr::v4(0);
// An IpAddress column always carries four octets: an address the record lacks (no DR elected
// yet) or of another family reads as 0.0.0.0 rather than an empty, unencodable value.
const Lanet::IpGenAddr& v4OrZero(const Lanet::IpGenAddr& a) { return a.isV4() ? a : kNoAddr; }
}  // namespace

uint32_t PimInterfaceEntry::interfaceNetMask() const {
  if (!intf_ || !intf_->address().isV4()) return 0;
  return maskFromLength(intf_->maskLen());
}

const Lanet::IntfId& PimInterfaceEntry::intfId() const {
  return intf_ ? intf_->intfId() : kNoIntfId;
}

const Lanet::IpGenAddr& PimInterfaceEntry::address() const {
  return intf_ ? v4OrZero(intf_->address()) : kNoAddr;
}

const Lanet::IpGenAddr& PimInterfaceEntry::drAddr() const {
  return intf_ ? v4OrZero(intf_->drAddr()) : kNoAddr;
}

int32_t PimInterfaceEntry::csbrPreference() const {
  if (!bsrStatus_) return -1;
  const Lanet::IntfId& id = intfId();
  for (const auto& cbsr : bsrStatus_->cbsr()) {
    if (cbsr->intfId() == id) return cbsr->priority();
  }
  return -1;
}

}  // namespace Routing::Pim::Snmp
