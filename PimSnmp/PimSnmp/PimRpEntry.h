#pragma once

// Rows of pimRPSetTable and pimCandidateRPTable.

#include <cstdint>
#include <tuple>
#include <utility>

#include "PimSnmp/PimSnmp/Index.h"
#include "PimSnmp/PimSnmp/StoreRow.h"
#include "platform/Ent/Ptr.h"
#include "platform/Lanet/IpGenAddr.h"
#include "platform/Routing/Pim/RpCandidate.h"
#include "platform/Routing/Pim/RpType.h"

namespace Routing::Pim::Snmp {

// pimRPSetTable row. Hold and expiry times are shown only for RPs learnt from the BSR.
class PimRPSetEntry final : public StoreRow<PimRPSetEntry> {
 public:
  PimRPSetEntry(const PimRPSetEntryIndex& index, RpType rpType, Ent::Ptr<const RpCandidate> rp)
      : index_(index), rpType_(rpType), rp_(std::move(rp)) {}

  const PimRPSetEntryIndex& index() const { return index_; }
  const PimRPSetEntryIndex& key() const { return index_; }
  RpType rpType() const { return rpType_; }
  const Ent::Ptr<const RpCandidate>& rp() const { return rp_; }
  auto inputs() const { return std::tie(rpType_, rp_); }

  // Seconds; 0 unless the RP type is rpTypeBsr.
  uint32_t holdTime() const;
  // Seconds until the RP expires, rounded; negative when the RP is overdue. 0 unless the RP
  // type is rpTypeBsr.
  double expiryTime() const;

 private:
  const PimRPSetEntryIndex index_;
  const RpType rpType_;
  const Ent::Ptr<const RpCandidate> rp_;
};

// pimCandidateRPTable row.
class PimCandidateRPEntry final : public StoreRow<PimCandidateRPEntry> {
 public:
  static constexpr int32_t kRowStatusActive = 1;

  PimCandidateRPEntry(const PimCandidateRPEntryIndex& index, Ent::Ptr<const RpCandidate> rp)
      : index_(index), rp_(std::move(rp)) {}

  const PimCandidateRPEntryIndex& index() const { return index_; }
  const PimCandidateRPEntryIndex& key() const { return index_; }
  const Ent::Ptr<const RpCandidate>& rp() const { return rp_; }
  auto inputs() const { return std::tie(rp_); }
  // The RP's address; 0.0.0.0 without a record.
  Lanet::IpGenAddr rpAddress() const { return rp_ ? rp_->address() : Lanet::IpGenAddr::v4(0); }
  int32_t rowStatus() const { return kRowStatusActive; }

 private:
  const PimCandidateRPEntryIndex index_;
  const Ent::Ptr<const RpCandidate> rp_;
};

}  // namespace Routing::Pim::Snmp
