#pragma once

#include <string_view>

#include "PimSnmp/PimSnmp/PimMib.h"
#include "platform/Ent/Coll.h"
#include "platform/Ent/Entity.h"
#include "platform/Lanet/AddressFamily.h"
#include "platform/Lanet/IpGenAddr.h"
#include "platform/Lanet/IpGenPrefix.h"
#include "platform/Routing/Pim/Bsr/Status.h"
#include "platform/Routing/Pim/RpCandidate.h"
#include "platform/Routing/Pim/RpCandidateSet.h"
#include "platform/Routing/Pim/RpCandidateStatus.h"

namespace Routing::Pim::SnmpAgent {

// Keeps a VRF's pimRPSetTable and pimCandidateRPTable rows in step with one RP-candidate
// status. A VRF has two, over its candidate-RP and its static-RP status, writing into the
// same store; the rpType of each status tells their pimRPSetTable rows apart.
class PimCrpSm : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId { attrInitialized = 1, attrCrpSet = 2 };

  class RxCrpSet;

  // Follows one RP of a group range.
  class RxRp : public Ent::RefCounted, public Ent::ReactorOf<RpCandidate> {
   public:
    RxRp(RxCrpSet* crpSet, Ent::Ptr<const RpCandidate> rp);
    const Lanet::IpGenAddr& key() const { return address_; }
    const Lanet::IpGenAddr& address() const { return address_; }

    // Adds the RP's rows (those that are missing).
    void handleNew();
    // Removes the RP's pimRPSetTable row and its group's pimCandidateRPTable row.
    void handleDel();

    // The rows read the record on each request: nothing to do on its changes.
    void onChange(const Ent::Change&) override {}

   private:
    RxCrpSet* crpSet_;
    const Lanet::IpGenAddr address_;
  };

  // Follows the RPs of one group range.
  class RxCrpSet : public Ent::RefCounted, public Ent::ReactorOf<RpCandidateSet> {
   public:
    using RpColl = Ent::HashColl<Lanet::IpGenAddr, RxRp>;

    RxCrpSet(PimCrpSm* owner, Ent::Ptr<const RpCandidateSet> set);
    const Lanet::IpGenPrefix& group() const { return group_; }
    PimCrpSm* owner() const { return owner_; }

    const RpColl& rp() const { return rp_; }
    Ent::Ptr<RxRp> rp(const Lanet::IpGenAddr& address) const { return rp_.find(address); }
    // Follows `candidate` and adds its rows; a new record of a followed RP replaces its rows.
    Ent::Ptr<RxRp> rpIs(Ent::Ptr<const RpCandidate> candidate);
    // Stops following the RP and removes its rows.
    void rpDel(const Lanet::IpGenAddr& address);
    void rpDelAll();

    void onChange(const Ent::Change& change) override;

   private:
    friend class PimCrpSm;
    void detach();

    PimCrpSm* owner_;
    const Lanet::IpGenPrefix group_;
    RpColl rp_;
  };
  using CrpSetColl = Ent::HashColl<Lanet::IpGenPrefix, RxCrpSet>;

  PimCrpSm(Lanet::AddressFamily af, Ent::Ptr<Snmp::PimMib> pimMib,
           Ent::Ptr<const Bsr::Status> bsrStatus, Ent::Ptr<const RpCandidateStatus> crpStatus);
  ~PimCrpSm() override;
  std::string_view typeName() const override { return "Routing::Pim::SnmpAgent::PimCrpSm"; }

  Lanet::AddressFamily af() const { return af_; }
  const Ent::Ptr<Snmp::PimMib>& pimMib() const { return pimMib_; }
  const Ent::Ptr<const Bsr::Status>& bsrStatus() const { return bsrStatus_; }
  const RpCandidateStatus* crpStatus() const { return rxCrpStatus_.notifier(); }

  bool initialized() const { return initialized_; }
  void initializedIs(bool on);
  // Mirrors every RP present now.
  void handleInitialized();

  const CrpSetColl& crpSet() const { return crpSet_; }
  Ent::Ptr<RxCrpSet> crpSet(const Lanet::IpGenPrefix& group) const { return crpSet_.find(group); }
  Ent::Ptr<RxCrpSet> crpSetIs(Ent::Ptr<const RpCandidateSet> set);
  void crpSetDel(const Lanet::IpGenPrefix& group);
  void crpSetDelAll();

  // Stops following the status and removes the rows of every RP followed. Idempotent; also run
  // by the destructor.
  void doTeardown();

 private:
  class RxCrpStatus : public Ent::ReactorOf<RpCandidateStatus> {
   public:
    RxCrpStatus(PimCrpSm* owner, Ent::Ptr<const RpCandidateStatus> status)
        : ReactorOf(std::move(status)), owner_(owner) {}
    void onChange(const Ent::Change& change) override;

   private:
    PimCrpSm* owner_;
  };

  const Lanet::AddressFamily af_;
  const Ent::Ptr<Snmp::PimMib> pimMib_;
  const Ent::Ptr<const Bsr::Status> bsrStatus_;
  RxCrpStatus rxCrpStatus_;
  bool initialized_ = false;
  CrpSetColl crpSet_;
  bool tornDown_ = false;
};

// A new PimCrpSm with notification on.
Ent::Ptr<PimCrpSm> PimCrpSmIs(Lanet::AddressFamily af, Ent::Ptr<Snmp::PimMib> pimMib,
                              Ent::Ptr<const Bsr::Status> bsrStatus,
                              Ent::Ptr<const RpCandidateStatus> crpStatus);

}  // namespace Routing::Pim::SnmpAgent
