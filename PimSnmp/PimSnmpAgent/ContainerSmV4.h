#pragma once

#include <string_view>

#include "PimSnmp/PimSnmpAgent/ContainerSmBase.h"
#include "PimSnmp/PimSnmpAgent/IntfSm.h"
#include "PimSnmp/PimSnmpAgent/PimCrpSm.h"
#include "platform/Interface/AllIntfStatusDir.h"
#include "platform/Routing/Pim/Bsr/Config.h"
#include "platform/Routing/Pim/Bsr/Status.h"
#include "platform/Routing/Pim/RpCandidateStatus.h"

namespace Routing::Pim::SnmpAgent {

// The IPv4 container: the base's route mirroring plus the interface and RP mirroring that feed
// the PIM-MIB's IPv4-only tables. Construction runs the base set-up, then handleV4Initialized.
class ContainerSmV4 : public ContainerSmBase {
 public:
  enum Attr : Ent::AttrId {
    attrPimCrpSm = 16,
    attrPimStaticRpSm = 17,
    attrIntfSm = 18,
    attrV4Initialized = 19,
  };

  explicit ContainerSmV4(const VrfInputs& inputs);
  ~ContainerSmV4() override;
  std::string_view typeName() const override { return "Routing::Pim::SnmpAgent::ContainerSmV4"; }

  const Ent::Ptr<const Interface::AllIntfStatusDir>& allIntfStatusDir() const {
    return allIntfStatusDir_;
  }
  const Ent::Ptr<const Bsr::Status>& bsrStatus() const { return bsrStatus_; }
  const Ent::Ptr<const RpCandidateStatus>& crpStatus() const { return crpStatus_; }
  const Ent::Ptr<const RpCandidateStatus>& staticRpStatus() const { return staticRpStatus_; }
  const Ent::Ptr<const Bsr::Config>& bsrConfig() const { return bsrConfig_; }

  // Each ...Is returns the machine it holds when its inputs match, else replaces it with a new
  // one, started at once (handleInitialized).
  const Ent::Ptr<PimCrpSm>& pimCrpSm() const { return pimCrpSm_; }
  Ent::Ptr<PimCrpSm> pimCrpSmIs(Lanet::AddressFamily af, Ent::Ptr<Snmp::PimMib> pimMib,
                                Ent::Ptr<const Bsr::Status> bsrStatus,
                                Ent::Ptr<const RpCandidateStatus> crpStatus);
  void pimCrpSmDel();

  const Ent::Ptr<PimCrpSm>& pimStaticRpSm() const { return pimStaticRpSm_; }
  Ent::Ptr<PimCrpSm> pimStaticRpSmIs(Lanet::AddressFamily af, Ent::Ptr<Snmp::PimMib> pimMib,
                                     Ent::Ptr<const Bsr::Status> bsrStatus,
                                     Ent::Ptr<const RpCandidateStatus> staticRpStatus);
  void pimStaticRpSmDel();

  const Ent::Ptr<IntfSm>& intfSm() const { return intfSm_; }
  Ent::Ptr<IntfSm> intfSmIs(Ent::Ptr<Snmp::PimMib> pimMib, Ent::Ptr<const IntfSnmp::IfMib> ifMib,
                            Ent::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir,
                            Ent::Ptr<const Pim::Status> pimStatus,
                            Ent::Ptr<const Bsr::Status> bsrStatus,
                            Ent::Ptr<const Bsr::Config> bsrConfig);
  void intfSmDel();

  bool v4Initialized() const { return v4Initialized_; }

  void hasNotificationActiveIs(bool on) override;
  void doTeardown() override;

 protected:
  void handleV4Initialized();

 private:
  // Replaces `slot` by a new PimCrpSm unless the one it holds has these inputs.
  Ent::Ptr<PimCrpSm> crpSmIs(Ent::Ptr<PimCrpSm>& slot, Ent::AttrId attr, Lanet::AddressFamily af,
                             Ent::Ptr<Snmp::PimMib> pimMib, Ent::Ptr<const Bsr::Status> bsrStatus,
                             Ent::Ptr<const RpCandidateStatus> status);
  void crpSmDel(Ent::Ptr<PimCrpSm>& slot, Ent::AttrId attr);
  void v4Teardown();

  const Ent::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir_;
  const Ent::Ptr<const Bsr::Status> bsrStatus_;
  const Ent::Ptr<const RpCandidateStatus> crpStatus_;
  const Ent::Ptr<const RpCandidateStatus> staticRpStatus_;
  const Ent::Ptr<const Bsr::Config> bsrConfig_;

  Ent::Ptr<PimCrpSm> pimCrpSm_;
  Ent::Ptr<PimCrpSm> pimStaticRpSm_;
  Ent::Ptr<IntfSm> intfSm_;
  bool v4Initialized_ = false;
  bool v4TornDown_ = false;
};

}  // namespace Routing::Pim::SnmpAgent
