#pragma once

// What the agent reads: the platform inputs of one address family, handed to Root::afRootIs by
// the host, and the records of one VRF that its container mirrors.

#include "PimSnmp/PimSnmp/PimMib.h"
#include "PimSnmp/RegistrationHelper/RegistrationHelper.h"
#include "platform/Ent/Dir.h"
#include "platform/Interface/AllIntfStatusDir.h"
#include "platform/IntfSnmp/IfMib.h"
#include "platform/L3/VrfName.h"
#include "platform/Lanet/AddressFamily.h"
#include "platform/Routing/Multicast/Fib/VrfConfig.h"
#include "platform/Routing/Pim/Bsr/Config.h"
#include "platform/Routing/Pim/Bsr/ConfigColl.h"
#include "platform/Routing/Pim/Bsr/Status.h"
#include "platform/Routing/Pim/Bsr/StatusColl.h"
#include "platform/Routing/Pim/ConfigColl.h"
#include "platform/Routing/Pim/GlobalStatus.h"
#include "platform/Routing/Pim/RpCandidateStatus.h"
#include "platform/Routing/Pim/RpCandidateStatusColl.h"
#include "platform/Routing/Pim/SparseMode/Shtab/Status.h"
#include "platform/Routing/Pim/Status.h"
#include "platform/Shtab/Multicast/Fib/Status.h"
#include "platform/Snmp/Status.h"
#include "platform/Stadb/EntityManager.h"

namespace Routing::Pim::SnmpAgent {

// The thirteen platform inputs of one family. An AfRoot keeps them for its lifetime.
struct Inputs {
  Ent::Ptr<Ent::Dir> pimMibRoot;
  Ent::Ptr<Snmp::RegistrationHelper> mibRegistrationHelper;
  Ent::Ptr<Stadb::EntityManager> entityManager;
  Ent::Ptr<const IntfSnmp::IfMib> ifMib;
  Ent::Ptr<const ::Snmp::Status> snmpStatus;
  Ent::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir;
  Ent::Ptr<const GlobalStatus> pimGlobalStatus;
  Ent::Ptr<const ConfigColl> pimConfigColl;
  Ent::Ptr<const Bsr::StatusColl> bsrStatusColl;
  Ent::Ptr<const Bsr::ConfigColl> bsrConfigColl;
  Ent::Ptr<const RpCandidateStatusColl> crpStatusColl;
  Ent::Ptr<const RpCandidateStatusColl> staticRpStatusColl;
  Ent::Ptr<const Multicast::Fib::VrfConfig> mfibVrfConfig;

  bool operator==(const Inputs&) const = default;
};

// One served VRF's records, picked from the family's inputs and mounts by RootSm. The IPv6
// container reads the first seven; the IPv4 one all of them.
struct VrfInputs {
  L3::VrfName vrfName;
  Lanet::AddressFamily af = Lanet::AddressFamily::unknown;
  Ent::Ptr<Snmp::PimMib> pimMib;
  Ent::Ptr<const IntfSnmp::IfMib> ifMib;
  Ent::Ptr<const Pim::Status> pimStatus;
  Ent::Ptr<const ::Shtab::Multicast::Fib::Status> mfibShtabStatus;
  Ent::Ptr<const SparseMode::Shtab::Status> routeShtabStatus;
  Ent::Ptr<const Interface::AllIntfStatusDir> allIntfStatusDir;
  Ent::Ptr<const Bsr::Status> bsrStatus;
  Ent::Ptr<const RpCandidateStatus> crpStatus;
  Ent::Ptr<const RpCandidateStatus> staticRpStatus;
  Ent::Ptr<const Bsr::Config> bsrConfig;
};

}  // namespace Routing::Pim::SnmpAgent
