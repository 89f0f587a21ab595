#pragma once

#include <cstdint>
#include <tuple>
#include <utility>

#include "PimSnmp/PimSnmp/StoreRow.h"
#include "platform/Ent/Ptr.h"
#include "platform/Lanet/IntfId.h"
#include "platform/Lanet/IpGenAddr.h"
#include "platform/Routing/Pim/Bsr/Status.h"
#include "platform/Routing/Pim/Intf.h"

namespace Routing::Pim::Snmp {

// pimInterfaceTable row. Every column but the key reads the live interface record; a missing
// record reads as zeros (addresses as 0.0.0.0, the id as the empty id).
class PimInterfaceEntry final : public StoreRow<PimInterfaceEntry> {
 public:
  static constexpr int32_t kRowStatusActive = 1;

  PimInterfaceEntry(int32_t ifIndex, Ent::Ptr<const Pim::Intf> intf,
                    Ent::Ptr<const Bsr::Status> bsrStatus)
      : ifIndex_(ifIndex), intf_(std::move(intf)), bsrStatus_(std::move(bsrStatus)) {}

  int32_t ifIndex() const { return ifIndex_; }
  const int32_t& key() const { return ifIndex_; }
  const Ent::Ptr<const Pim::Intf>& intf() const { return intf_; }
  const Ent::Ptr<const Bsr::Status>& bsrStatus() const { return bsrStatus_; }
  auto inputs() const { return std::tie(intf_, bsrStatus_); }

  // The mask of the interface address's length in network byte order; 0 for IPv6, for
  // length 0 and for a length above 32.
  uint32_t interfaceNetMask() const;
  const Lanet::IntfId& intfId() const;
  const Lanet::IpGenAddr& address() const;
  uint8_t mode() const { return intf_ ? intf_->mode() : 0; }
  const Lanet::IpGenAddr& drAddr() const;
  uint16_t helloInterval() const { return intf_ ? intf_->helloInterval() : 0; }
  uint16_t jpInterval() const { return intf_ ? intf_->jpInterval() : 0; }
  // The priority of this router's candidate-BSR record on this interface; -1 when there is
  // none.
  int32_t csbrPreference() const;
  int32_t rowStatus() const { return kRowStatusActive; }

 private:
  const int32_t ifIndex_;
  const Ent::Ptr<const Pim::Intf> intf_;
  const Ent::Ptr<const Bsr::Status> bsrStatus_;
};

}  // namespace Routing::Pim::Snmp
