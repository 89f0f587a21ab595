#pragma once

// Every platform input the agent follows, owned in one place and written only by the applier
// (daemon/state/Applier.h): per address family the PIM, BSR, RP and multicast-FIB collections,
// plus the interface records, the FIB counter helpers and the shared-memory route tables,
// which are published in the state directory at the paths the agent mounts.

#include <cstddef>
#include <map>
#include <string_view>
#include <utility>

#include "platform/Ent/Dir.h"
#include "platform/Ent/Ptr.h"
#include "platform/Interface/AllIntfStatusDir.h"
#include "platform/IntfSnmp/IfMib.h"
#include "platform/L3/VrfName.h"
#include "platform/Lanet/AddressFamily.h"
#include "platform/McastCommon/FibMrouteCounterHelper.h"
#include "platform/Routing/Multicast/Fib/VrfConfig.h"
#include "platform/Routing/Pim/Bsr/ConfigColl.h"
#include "platform/Routing/Pim/Bsr/StatusColl.h"
#include "platform/Routing/Pim/ConfigColl.h"
#include "platform/Routing/Pim/GlobalStatus.h"
#include "platform/Routing/Pim/RpCandidateStatusColl.h"
#include "platform/Routing/Pim/SparseMode/Shtab/Status.h"
#include "platform/Routing/Pim/SparseMode/UpstreamInfoPool.h"
#include "platform/Shtab/Multicast/Fib/Status.h"
#include "platform/Stadb/EntityManager.h"

namespace PimSnmpd {

class PlatformState {
 public:
  using RouteTable = Routing::Pim::SparseMode::Shtab::Status;
  using FibTable = Shtab::Multicast::Fib::Status;
  using CounterHelper = McastCommonMrouteCounterHelper::FibMrouteCounterHelper;

  // The FIB role the agent mounts.
  static constexpr std::string_view kFibRole = "sparsemode";
  static constexpr std::string_view kFibTypeName = "Shtab::Multicast::Fib::Status";
  // Directories of the IPv4 configuration collections, which the PIM-MIB and IPMROUTE-STD-MIB
  // scalars read by path ("Stadb/routing/pim/config.vrfConfig/'<vrf>'",
  // "Stadb/routing/multicast/vrf/config.config/<vrf>"). The IPv6 ones go to "<dir>/ipv6".
  static constexpr std::string_view kPimConfigDir = "Stadb/routing/pim";
  static constexpr std::string_view kMfibConfigDir = "Stadb/routing/multicast/vrf";

  // Publishes the configuration collections under `stateRoot` and mounts the shared-memory
  // tables there through its own entity manager, which the agent must share (entityManager()).
  explicit PlatformState(Ent::Ptr<Ent::Dir> stateRoot);
  // Withdraws this object's mounts and publications; tables the agent still mounts stay.
  ~PlatformState();
  PlatformState(const PlatformState&) = delete;
  PlatformState& operator=(const PlatformState&) = delete;

  const Ent::Ptr<Ent::Dir>& stateRoot() const { return stateRoot_; }
  const Ent::Ptr<Stadb::EntityManager>& entityManager() const { return entityManager_; }
  const Ent::Ptr<IntfSnmp::IfMib>& ifMib() const { return ifMib_; }
  const Ent::Ptr<Interface::AllIntfStatusDir>& allIntfStatusDir() const {
    return allIntfStatusDir_;
  }

  // The inputs of one family (IPv4 or IPv6; any other family throws std::invalid_argument).
  const Ent::Ptr<Routing::Pim::GlobalStatus>& pimGlobalStatus(Lanet::AddressFamily af) const {
    return family(af).pimGlobalStatus;
  }
  const Ent::Ptr<Routing::Pim::ConfigColl>& pimConfigColl(Lanet::AddressFamily af) const {
    return family(af).pimConfigColl;
  }
  const Ent::Ptr<Routing::Pim::Bsr::StatusColl>& bsrStatusColl(Lanet::AddressFamily af) const {
    return family(af).bsrStatusColl;
  }
  const Ent::Ptr<Routing::Pim::Bsr::ConfigColl>& bsrConfigColl(Lanet::AddressFamily af) const {
    return family(af).bsrConfigColl;
  }
  const Ent::Ptr<Routing::Pim::RpCandidateStatusColl>& crpStatusColl(
      Lanet::AddressFamily af) const {
    return family(af).crpStatusColl;
  }
  const Ent::Ptr<Routing::Pim::RpCandidateStatusColl>& staticRpStatusColl(
      Lanet::AddressFamily af) const {
    return family(af).staticRpStatusColl;
  }
  const Ent::Ptr<Routing::Multicast::Fib::VrfConfig>& mfibVrfConfig(Lanet::AddressFamily af) const {
    return family(af).mfibVrfConfig;
  }
  // Reads the packet and byte counters of the family's published FIB tables; hand it to
  // PimSnmpHelpers::mrouteCounterHelperIs(af, ...).
  const Ent::Ptr<CounterHelper>& fibCounterHelper(Lanet::AddressFamily af) const {
    return family(af).fibCounterHelper;
  }

  // The sparse-mode route table of a VRF, published at RouteTable::mountPath(af, vrf); null
  // when not published.
  Ent::Ptr<RouteTable> routeTable(Lanet::AddressFamily af, const L3::VrfName& vrf) const;
  // Publishes it (mounted as writer: an empty table the agent mounted first is adopted).
  Ent::Ptr<RouteTable> routeTableIs(Lanet::AddressFamily af, const L3::VrfName& vrf);
  // Empties it (the agent sees every route go) and withdraws this object's mount.
  void routeTableDel(Lanet::AddressFamily af, const L3::VrfName& vrf);

  // The same for the multicast FIB of role "sparsemode", which is also registered with the
  // family's counter helper while published.
  Ent::Ptr<FibTable> fibTable(Lanet::AddressFamily af, const L3::VrfName& vrf) const;
  Ent::Ptr<FibTable> fibTableIs(Lanet::AddressFamily af, const L3::VrfName& vrf);
  void fibTableDel(Lanet::AddressFamily af, const L3::VrfName& vrf);

  // The upstream records routes share, across every table.
  Routing::Pim::SparseMode::UpstreamInfoPool& upstreamInfoPool() { return upstreamInfoPool_; }

  size_t routeTables() const { return routeTables_.size(); }
  size_t fibTables() const { return fibTables_.size(); }

  using TableKey = std::pair<Lanet::AddressFamily, L3::VrfName>;
  // Every published table, by family and VRF.
  const std::map<TableKey, Ent::Ptr<RouteTable>>& routeTablesByVrf() const { return routeTables_; }
  const std::map<TableKey, Ent::Ptr<FibTable>>& fibTablesByVrf() const { return fibTables_; }

 private:
  struct Family {
    Ent::Ptr<Routing::Pim::GlobalStatus> pimGlobalStatus;
    Ent::Ptr<Routing::Pim::ConfigColl> pimConfigColl;
    Ent::Ptr<Routing::Pim::Bsr::StatusColl> bsrStatusColl;
    Ent::Ptr<Routing::Pim::Bsr::ConfigColl> bsrConfigColl;
    Ent::Ptr<Routing::Pim::RpCandidateStatusColl> crpStatusColl;
    Ent::Ptr<Routing::Pim::RpCandidateStatusColl> staticRpStatusColl;
    Ent::Ptr<Routing::Multicast::Fib::VrfConfig> mfibVrfConfig;
    Ent::Ptr<CounterHelper> fibCounterHelper;
  };
  static Family makeFamily(Lanet::AddressFamily af);
  const Family& family(Lanet::AddressFamily af) const;
  void publish(std::string_view dir, Ent::Ptr<Ent::Entity> e);
  void unpublish(std::string_view dir, const Ent::Ptr<Ent::Entity>& e);

  Ent::Ptr<Ent::Dir> stateRoot_;
  Ent::Ptr<Stadb::EntityManager> entityManager_;
  Ent::Ptr<IntfSnmp::IfMib> ifMib_;
  Ent::Ptr<Interface::AllIntfStatusDir> allIntfStatusDir_;
  Family v4_;
  Family v6_;
  std::map<TableKey, Ent::Ptr<RouteTable>> routeTables_;
  std::map<TableKey, Ent::Ptr<FibTable>> fibTables_;
  Routing::Pim::SparseMode::UpstreamInfoPool upstreamInfoPool_;
};

}  // namespace PimSnmpd
