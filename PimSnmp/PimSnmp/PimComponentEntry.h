#pragma once

#include <cstdint>
#include <tuple>
#include <utility>

#include "PimSnmp/PimSnmp/StoreRow.h"
#include "platform/Ent/Ptr.h"
#include "platform/Lanet/IpGenAddr.h"
#include "platform/Routing/Pim/Bsr/Config.h"
#include "platform/Routing/Pim/Bsr/Status.h"

namespace Routing::Pim::Snmp {

// pimComponentTable row (the agent makes only component 1).
class PimComponentEntry final : public StoreRow<PimComponentEntry> {
 public:
  static constexpr int32_t kRowStatusActive = 1;
  // Advertised whenever a candidate RP is configured, whatever the configured interval.
  static constexpr uint32_t kCrpHoldTime = 180;

  PimComponentEntry(int32_t index, Ent::Ptr<const Bsr::Status> bsrStatus,
                    Ent::Ptr<const Bsr::Config> bsrConfig)
      : index_(index), bsrStatus_(std::move(bsrStatus)), bsrConfig_(std::move(bsrConfig)) {}

  int32_t index() const { return index_; }
  const int32_t& key() const { return index_; }
  const Ent::Ptr<const Bsr::Status>& bsrStatus() const { return bsrStatus_; }
  const Ent::Ptr<const Bsr::Config>& bsrConfig() const { return bsrConfig_; }
  auto inputs() const { return std::tie(bsrStatus_, bsrConfig_); }

  // The BSR elected for 224.0.0.0/4; 0.0.0.0 when there is none.
  Lanet::IpGenAddr bsrAddr() const;
  // Seconds; 0 without a config.
  uint32_t bsTimeout() const { return bsrConfig_ ? bsrConfig_->bootstrapTimeout() : 0; }
  // kCrpHoldTime when at least one candidate RP is configured, else 0.
  uint32_t crpHoldTime() const {
    return bsrConfig_ && bsrConfig_->candidateRpConfigCount() > 0 ? kCrpHoldTime : 0;
  }
  int32_t rowStatus() const { return kRowStatusActive; }

 private:
  const int32_t index_;
  const Ent::Ptr<const Bsr::Status> bsrStatus_;
  const Ent::Ptr<const Bsr::Config> bsrConfig_;
};

}  // namespace Routing::Pim::Snmp
