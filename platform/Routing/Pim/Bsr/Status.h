#pragma once

#include <string_view>
#include <utility>

#include "platform/Ent/Coll.h"
#include "platform/Ent/Entity.h"
#include "platform/L3/VrfName.h"
#include "platform/Lanet/IpGenAddr.h"
#include "platform/Lanet/IpGenPrefix.h"
#include "platform/Routing/Pim/Bsr/CandidateBsr.h"
#include "platform/Routing/Pim/Bsr/CandidateRp.h"
#include "platform/Routing/Pim/Bsr/ElectedBsr.h"

namespace Routing::Pim::Bsr {

// The BSR state of one VRF: candidate-BSR and elected-BSR records per group range, and the
// candidate-RP addresses this router advertises.
class Status : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId {
    attrCbsr = 1,
    attrElectedBsr = 2,
    attrCrp = 3,
  };
  using CbsrColl = Ent::OrderedColl<Lanet::IpGenPrefix, CandidateBsr>;
  using ElectedBsrColl = Ent::OrderedColl<Lanet::IpGenPrefix, ElectedBsr>;
  using CrpColl = Ent::OrderedColl<Lanet::IpGenAddr, CandidateRp>;

  explicit Status(const L3::VrfName& vrfName)
      : Ent::Entity(vrfName.str()),
        vrfName_(vrfName),
        cbsr_(this, attrCbsr),
        electedBsr_(this, attrElectedBsr),
        crp_(this, attrCrp) {}
  std::string_view typeName() const override { return "Routing::Pim::Bsr::Status"; }

  const L3::VrfName& vrfName() const { return vrfName_; }
  const L3::VrfName& key() const { return vrfName_; }

  const CbsrColl& cbsr() const { return cbsr_; }
  Ent::Ptr<const CandidateBsr> cbsr(const Lanet::IpGenPrefix& p) const { return cbsr_.find(p); }
  Ent::Ptr<CandidateBsr> cbsrIs(const Lanet::IpGenPrefix& p) {
    return cbsr_.findOrInsert(p, [&] { return Ent::make<CandidateBsr>(p); }).first;
  }
  Ent::Ptr<CandidateBsr> cbsrDel(const Lanet::IpGenPrefix& p) { return cbsr_.erase(p); }
  void cbsrDelAll() { cbsr_.clear(); }

  const ElectedBsrColl& electedBsr() const { return electedBsr_; }
  Ent::Ptr<const ElectedBsr> electedBsr(const Lanet::IpGenPrefix& p) const {
    return electedBsr_.find(p);
  }
  Ent::Ptr<ElectedBsr> electedBsrIs(const Lanet::IpGenPrefix& p) {
    return electedBsr_.findOrInsert(p, [&] { return Ent::make<ElectedBsr>(p); }).first;
  }
  Ent::Ptr<ElectedBsr> electedBsrDel(const Lanet::IpGenPrefix& p) { return electedBsr_.erase(p); }
  void electedBsrDelAll() { electedBsr_.clear(); }

  const CrpColl& crp() const { return crp_; }
  Ent::Ptr<const CandidateRp> crp(const Lanet::IpGenAddr& rp) const { return crp_.find(rp); }
  Ent::Ptr<CandidateRp> crpIs(const Lanet::IpGenAddr& rp) {
    return crp_.findOrInsert(rp, [&] { return Ent::make<CandidateRp>(rp); }).first;
  }
  Ent::Ptr<CandidateRp> crpDel(const Lanet::IpGenAddr& rp) { return crp_.erase(rp); }
  void crpDelAll() { crp_.clear(); }

 private:
  const L3::VrfName vrfName_;
  CbsrColl cbsr_;
  ElectedBsrColl electedBsr_;
  CrpColl crp_;
};

}  // namespace Routing::Pim::Bsr
