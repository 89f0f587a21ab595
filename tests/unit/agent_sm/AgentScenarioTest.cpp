// The agent end to end: a host brings Root up over platform records, the VRF trackers serve
// VRFs as their inputs come and go, and tear-down leaves nothing behind. Registration and
// neighbor-loss notification are observed through their seams.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "PimSnmp/PimSnmp/PimMib.h"
#include "PimSnmp/PimSnmpAgent/Root.h"
#include "platform/Clock/Clock.h"
#include "platform/Ent/Error.h"
#include "platform/Routing/Pim/SparseMode/Shtab/Status.h"
#include "platform/Shtab/Multicast/Fib/Status.h"
#include "platform/SnmpUtil/SnmpUtil.h"
#include "platform/Trace/Capture.h"
#include "tests/unit/agent_sm/AgentTestUtil.h"

namespace {

using namespace AgentSmTest;
using Lanet::AddressFamily;
using Lanet::IntfId;
using Routing::Pim::Snmp::PimMib;
using Routing::Pim::SnmpAgent::AfRoot;
using Routing::Pim::SnmpAgent::Root;
using Strings = std::vector<std::string>;

// The platform inputs of one family.
struct FamilyInputs {
  explicit FamilyInputs(AddressFamily af)
      : globalStatus(Ent::make<Routing::Pim::GlobalStatus>(af)),
        pimConfig(Ent::make<Routing::Pim::ConfigColl>()),
        bsrStatus(Ent::make<Routing::Pim::Bsr::StatusColl>()),
        bsrConfig(Ent::make<Routing::Pim::Bsr::ConfigColl>()),
        crpStatus(Ent::make<Routing::Pim::RpCandidateStatusColl>("crpStatus")),
        staticRpStatus(Ent::make<Routing::Pim::RpCandidateStatusColl>("staticRpStatus")),
        mfibConfig(Ent::make<Routing::Multicast::Fib::VrfConfig>()) {}

  Ent::Ptr<Routing::Pim::GlobalStatus> globalStatus;
  Ent::Ptr<Routing::Pim::ConfigColl> pimConfig;
  Ent::Ptr<Routing::Pim::Bsr::StatusColl> bsrStatus;
  Ent::Ptr<Routing::Pim::Bsr::ConfigColl> bsrConfig;
  Ent::Ptr<Routing::Pim::RpCandidateStatusColl> crpStatus;
  Ent::Ptr<Routing::Pim::RpCandidateStatusColl> staticRpStatus;
  Ent::Ptr<Routing::Multicast::Fib::VrfConfig> mfibConfig;
};

// The seven per-VRF inputs, in the order the tracker checks them.
enum Input { pimConfig, pimStatus, bsrStatus, crpStatus, staticRpStatus, bsrConfig, mfibConfig };
constexpr const char* kInputNames[] = {"pimConfigColl", "pimStatusColl",      "bsrStatusColl",
                                       "crpStatusColl", "staticRpStatusColl", "bsrConfigColl",
                                       "mfibVrfConfig"};

class AgentScenarioTest : public ::testing::Test {
 protected:
  AgentScenarioTest()
      : clock_(Ent::make<Plat::ManualClock>(1000.0)),
        scopedClock_(clock_),
        scopedRoot_(Ent::make<Ent::Dir>("agent")),
        scopedRegistrar_(registrar_),
        scopedNotifier_(notifier_),
        stateRoot_(Ent::make<Ent::Dir>("state")),
        entityManager_(Ent::make<Stadb::EntityManager>(stateRoot_)),
        snmpStatus_(Ent::make<Snmp::Status>()),
        ifMib_(Ent::make<IntfSnmp::IfMib>()),
        intfStatus_(Ent::make<Interface::AllIntfStatusDir>()),
        v4_(AddressFamily::ipv4),
        v6_(AddressFamily::ipv6) {}

  ~AgentScenarioTest() override { tearDownAgent(); }

  FamilyInputs& inputs(AddressFamily af) { return af == AddressFamily::ipv4 ? v4_ : v6_; }
  // What the host hands the family's root.
  Routing::Pim::SnmpAgent::Inputs agentInputs(AddressFamily af) {
    const FamilyInputs& f = inputs(af);
    return {root_->pimMibRoot(), root_->mibRegistrationHelper(),
            entityManager_,      ifMib_,
            snmpStatus_,         intfStatus_,
            f.globalStatus,      f.pimConfig,
            f.bsrStatus,         f.bsrConfig,
            f.crpStatus,         f.staticRpStatus,
            f.mfibConfig};
  }

  // The host's bring-up, in its documented order.
  void bringUp(bool initialized = true) {
    snmpStatus_->initializedIs(initialized);
    root_ = Routing::Pim::SnmpAgent::rootFactory("pimSnmp");
    root_->mibRegistrationHelperIs();
    for (AddressFamily af : {AddressFamily::ipv4, AddressFamily::ipv6}) {
      auto afRoot = root_->afRootIs(af, agentInputs(af));
      afRoot->pimAllStatusCollIs();
      afRoot->pimStatusCollIs();
      afRoot->pimGlobalStatusReaderSmIs(clock_, entityManager_);
      afRoot->pimGlobalStatusModeFilterSmIs();
      afRoot->rootSmIs();
    }
  }

  // The host's tear-down, the reverse of bringUp.
  void tearDownAgent() {
    if (!root_) return;
    for (AddressFamily af : {AddressFamily::ipv4, AddressFamily::ipv6}) {
      if (Ent::Ptr<AfRoot> afRoot = root_->afRoot(af)) {
        afRoot->rootSmDel();
        afRoot->pimGlobalStatusModeFilterSmDel();
        afRoot->pimGlobalStatusReaderSmDel();
        afRoot->pimStatusCollDel();
        afRoot->pimAllStatusCollDel();
        root_->afRootDel(af);
      }
    }
    root_->mibRegistrationHelperDel();
    root_.reset();
  }

  // Publishes the VRF's inputs of `af`, all but `skip`.
  void addVrf(AddressFamily af, const char* name, int skip = -1) {
    for (int i = 0; i < 7; ++i) {
      if (i != skip) addInput(af, name, static_cast<Input>(i));
    }
  }
  void addInput(AddressFamily af, const char* name, Input input) {
    FamilyInputs& f = inputs(af);
    const L3::VrfName vrf(name);
    switch (input) {
      case pimConfig:
        f.pimConfig->vrfConfigIs(vrf);
        break;
      case pimStatus:
        f.globalStatus->vrfStatusIs(vrf)->modeIs(Routing::Pim::modeVrfSparse);
        break;
      case bsrStatus:
        f.bsrStatus->vrfStatusIs(vrf);
        break;
      case crpStatus:
        f.crpStatus->vrfStatusIs(vrf)->rpTypeIs(Routing::Pim::rpTypeBsr);
        break;
      case staticRpStatus:
        f.staticRpStatus->vrfStatusIs(vrf)->rpTypeIs(Routing::Pim::rpTypeStatic);
        break;
      case bsrConfig:
        f.bsrConfig->vrfConfigIs(vrf);
        break;
      case mfibConfig:
        f.mfibConfig->configIs(name)->routingIs(true);
        break;
    }
  }

  // The store the MIB modules would find for a VRF.
  static Ent::Ptr<PimMib> store(const std::string& vrf) {
    return SnmpUtil::entityRoot()->lookupAs<PimMib>("snmp/pim/snmpPimMIB/" + Ent::urlQuote(vrf));
  }
  Ent::Ptr<Routing::Pim::SparseMode::Shtab::Status> routeTable(AddressFamily af, const char* vrf) {
    return stateRoot_->lookupAs<Routing::Pim::SparseMode::Shtab::Status>(
        Routing::Pim::SparseMode::Shtab::Status::mountPath(af, L3::VrfName(vrf)));
  }
  Ent::Ptr<Routing::Pim::SnmpAgent::RootSm> rootSm(AddressFamily af) {
    return root_->afRoot(af)->rootSm();
  }

  Ent::Ptr<Plat::ManualClock> clock_;
  Plat::ScopedClock scopedClock_;
  SnmpUtil::ScopedEntityRoot scopedRoot_;
  RecordingRegistrar registrar_;
  Routing::Pim::Snmp::ScopedMibRegistrar scopedRegistrar_;
  RecordingNotifier notifier_;
  Routing::Pim::SnmpAgent::ScopedNeighborLossNotifier scopedNotifier_;
  Ent::Ptr<Ent::Dir> stateRoot_;
  Ent::Ptr<Stadb::EntityManager> entityManager_;
  Ent::Ptr<Snmp::Status> snmpStatus_;
  Ent::Ptr<IntfSnmp::IfMib> ifMib_;
  Ent::Ptr<Interface::AllIntfStatusDir> intfStatus_;
  FamilyInputs v4_;
  FamilyInputs v6_;
  Ent::Ptr<Root> root_;
};

TEST_F(AgentScenarioTest, RegistrationFollowsTheFamiliesOfAVrf) {
  Trace::Capture trace("PimSnmpAgent/8");
  bringUp();
  addVrf(AddressFamily::ipv6, "red");
  EXPECT_EQ(registrar_.take(), Strings{"init_ipMcastMIB(red)"}) << "IPv6 alone: IP-MCAST-MIB";
  auto mib = store("red");
  ASSERT_NE(mib, nullptr);
  EXPECT_TRUE(trace.contains("instantiating ContainerSmBase"));
  EXPECT_NE(mib->mfibConfig(AddressFamily::ipv6), nullptr);

  addVrf(AddressFamily::ipv4, "red");
  EXPECT_EQ(registrar_.take(), (Strings{"init_PimMIB(red)", "init_ipMRouteStdMIB(red)"}))
      << "IPv4 adds its two MIBs, not IP-MCAST-MIB again";
  EXPECT_EQ(store("red"), mib) << "one store for both families";
  EXPECT_TRUE(trace.contains("instantiating ContainerSmV4"));
  EXPECT_TRUE(trace.contains("Registering PIM-MIB in context 'red'"));
  EXPECT_TRUE(trace.contains("Registering IPMROUTE-STD-MIB in context 'red'"));
  EXPECT_NE(mib->mfibConfig(AddressFamily::ipv4), nullptr);
  EXPECT_EQ(root_->mibRegistrationHelper()->vrfRegistrationState(L3::VrfName("red")).value(), 3);

  // A second announcement of a served VRF changes nothing.
  v4_.pimConfig->vrfConfigIs(L3::VrfName("red"))->joinPruneIntervalIs(30);
  v4_.bsrStatus->vrfStatusIs(L3::VrfName("red"));
  EXPECT_TRUE(registrar_.take().empty());

  v4_.mfibConfig->configDel("red");
  EXPECT_EQ(registrar_.take(),
            (Strings{"unregister_PimMIB(red)", "unregister_ipMRouteStdMIB(red)"}));
  EXPECT_EQ(store("red"), mib) << "IPv6 still serves the VRF";
  EXPECT_EQ(mib->mfibConfig(AddressFamily::ipv4), nullptr);
  EXPECT_FALSE(rootSm(AddressFamily::ipv4)->containerSmHas(L3::VrfName("red")));
  EXPECT_TRUE(rootSm(AddressFamily::ipv6)->containerSmHas(L3::VrfName("red")));

  v6_.globalStatus->vrfStatusDel(L3::VrfName("red"));
  EXPECT_EQ(registrar_.take(), Strings{"unregister_ipMcastMIB(red)"});
  EXPECT_EQ(store("red"), nullptr) << "the store goes with the VRF's last family";
  EXPECT_TRUE(trace.contains("af ipv6, vrf red missing in pimStatusColl"));
  EXPECT_EQ(root_->mibRegistrationHelper()->vrfRegistrationState(L3::VrfName("red")).value(), 0);
  EXPECT_TRUE(root_->mibRegistrationHelper()->vrfRegistrationState().contains(L3::VrfName("red")))
      << "a zero entry stays";
}

TEST_F(AgentScenarioTest, AFamilyRootIsKeptForItsOwnInputsOnly) {
  bringUp();
  const Ent::Ptr<AfRoot> v4 = root_->afRoot(AddressFamily::ipv4);
  EXPECT_EQ(root_->afRootIs(AddressFamily::ipv4, agentInputs(AddressFamily::ipv4)), v4);
  // Any one input differing is a conflict, the last one too.
  auto other = agentInputs(AddressFamily::ipv4);
  other.mfibVrfConfig = v6_.mfibConfig;
  EXPECT_THROW(root_->afRootIs(AddressFamily::ipv4, other), Ent::Error);
  other = agentInputs(AddressFamily::ipv4);
  other.pimMibRoot = nullptr;
  EXPECT_THROW(root_->afRootIs(AddressFamily::ipv4, other), Ent::Error);
  EXPECT_EQ(root_->afRoot(AddressFamily::ipv4), v4);
}

TEST_F(AgentScenarioTest, DefaultVrfRegistersInTheEmptyContext) {
  bringUp();
  addVrf(AddressFamily::ipv4, "default");
  EXPECT_EQ(registrar_.take(),
            (Strings{"init_ipMcastMIB()", "init_PimMIB()", "init_ipMRouteStdMIB()"}));
  EXPECT_NE(store("default"), nullptr);
  addVrf(AddressFamily::ipv4, "blue vrf");
  EXPECT_EQ(registrar_.take(), (Strings{"init_ipMcastMIB(blue vrf)", "init_PimMIB(blue vrf)",
                                        "init_ipMRouteStdMIB(blue vrf)"}));
  EXPECT_NE(store("blue vrf"), nullptr) << "found under the URL-quoted context";
}

TEST_F(AgentScenarioTest, AVrfMissingAnInputIsNotServedUntilItArrives) {
  bringUp();
  for (int missing = 0; missing < 7; ++missing) {
    SCOPED_TRACE(kInputNames[missing]);
    const std::string vrf = "vrf" + std::to_string(missing);
    Trace::Capture trace("PimSnmpAgent/8");
    addVrf(AddressFamily::ipv4, vrf.c_str(), missing);
    EXPECT_TRUE(registrar_.take().empty());
    EXPECT_EQ(store(vrf), nullptr);
    EXPECT_TRUE(trace.contains("af ipv4, vrf " + vrf + " missing in " + kInputNames[missing]));
    EXPECT_FALSE(rootSm(AddressFamily::ipv4)->containerSmHas(L3::VrfName(vrf)));

    // Each input is followed: the last one to arrive brings the VRF up.
    addInput(AddressFamily::ipv4, vrf.c_str(), static_cast<Input>(missing));
    EXPECT_EQ(registrar_.take().size(), 3u);
    EXPECT_NE(store(vrf), nullptr);
    EXPECT_TRUE(rootSm(AddressFamily::ipv4)->containerSmV4Has(L3::VrfName(vrf)));
  }
}

TEST_F(AgentScenarioTest, NothingIsServedBeforeTheAgentIsInitialized) {
  Trace::Capture trace("PimSnmpAgent/8");
  bringUp(false);
  addVrf(AddressFamily::ipv4, "red");
  addVrf(AddressFamily::ipv6, "red");
  EXPECT_TRUE(trace.contains("Snmp agent not initialized, return"));
  EXPECT_TRUE(registrar_.take().empty());
  EXPECT_EQ(store("red"), nullptr);
  EXPECT_FALSE(rootSm(AddressFamily::ipv4)->snmpInitialized());

  snmpStatus_->initializedIs(true);
  EXPECT_TRUE(trace.contains("af ipv4, snmpInitialized: true"));
  EXPECT_TRUE(rootSm(AddressFamily::ipv4)->snmpInitialized());
  EXPECT_TRUE(rootSm(AddressFamily::ipv6)->snmpInitialized());
  EXPECT_EQ(registrar_.take().size(), 3u) << "the scan serves the VRF once per family";
  EXPECT_NE(store("red"), nullptr);

  // Going down again removes nothing by itself.
  snmpStatus_->initializedIs(false);
  EXPECT_NE(store("red"), nullptr);
  EXPECT_TRUE(registrar_.take().empty());
}

TEST_F(AgentScenarioTest, VrfsPresentWhenAnInitializedAgentComesUpAreServed) {
  addVrf(AddressFamily::ipv4, "red");
  bringUp(true);
  EXPECT_EQ(registrar_.take().size(), 3u);
  EXPECT_TRUE(rootSm(AddressFamily::ipv4)->snmpInitialized());
  EXPECT_TRUE(rootSm(AddressFamily::ipv4)->containerSmV4Has(L3::VrfName("red")));
  EXPECT_FALSE(rootSm(AddressFamily::ipv6)->containerSmHas(L3::VrfName("red")));
}

TEST_F(AgentScenarioTest, AnOverlongMulticastConfigNameIsRefused) {
  Trace::Capture trace("PimSnmpAgent/8");
  bringUp();
  const std::string longName(101, 'x');
  v4_.mfibConfig->configIs(longName);
  EXPECT_TRUE(trace.contains("mfibVrfConfig name rejected"));
  EXPECT_TRUE(registrar_.take().empty());
}

TEST_F(AgentScenarioTest, AVrfThatCannotBeServedLeavesNoRegistrationBehind) {
  Trace::Capture trace("PimSnmpAgent/8");
  bringUp();
  // Something else occupies the VRF's FIB mount point: the mount is refused.
  stateRoot_->mkdirs("shtab/multicast/fib/ipv4/red")->entityIs(Ent::make<Ent::Dir>("sparsemode"));
  addVrf(AddressFamily::ipv4, "red");
  EXPECT_TRUE(trace.contains("af ipv4, vrf red mount failed"));
  EXPECT_EQ(registrar_.take(),
            (Strings{"init_ipMcastMIB(red)", "init_PimMIB(red)", "init_ipMRouteStdMIB(red)",
                     "unregister_PimMIB(red)", "unregister_ipMRouteStdMIB(red)",
                     "unregister_ipMcastMIB(red)"}));
  EXPECT_EQ(store("red"), nullptr);
  EXPECT_FALSE(rootSm(AddressFamily::ipv4)->containerSmHas(L3::VrfName("red")));
  EXPECT_EQ(routeTable(AddressFamily::ipv4, "red"), nullptr) << "no mount is left";

  // A tracker of an unknown family serves nothing.
  auto unknown =
      Routing::Pim::SnmpAgent::RootSmIs(AddressFamily::unknown, agentInputs(AddressFamily::ipv4),
                                        root_->afRoot(AddressFamily::ipv4)->pimStatusColl());
  addVrf(AddressFamily::ipv4, "blue");
  EXPECT_EQ(registrar_.take().size(), 3u) << "IPv4 serves blue; the unknown family adds nothing";
  unknown->handleVrfCreation(L3::VrfName("green"));
  EXPECT_TRUE(trace.contains("unknown af"));
  EXPECT_TRUE(registrar_.take().empty());
  EXPECT_TRUE(unknown->containerSm().empty());
  EXPECT_THROW(unknown->containerSmIs(nullptr), Ent::NullArgument);
}

TEST_F(AgentScenarioTest, InterfacesNeighborsAndRpsReachTheVrfsStore) {
  bringUp();
  addVrf(AddressFamily::ipv4, "red");
  const L3::VrfName red("red");
  auto mib = store("red");
  ASSERT_NE(mib, nullptr);

  // The PIM agent's records of the VRF, through the global status.
  auto status = v4_.globalStatus->vrfStatusIs(red);
  ifMib_->ifIndexByIntfIdIs(IntfId("Ethernet1"), 7);
  auto e1 = status->pimIntfIs(IntfId("Ethernet1"));
  e1->activeNeighborIs(addr("10.0.0.2"));
  EXPECT_NE(mib->pimInterfaceTable(7), nullptr);
  EXPECT_NE(mib->pimComponentTable(1), nullptr);
  ASSERT_NE(mib->pimNeighborTable(addr("10.0.0.2")), nullptr);

  e1->activeNeighborDel(addr("10.0.0.2"));
  ASSERT_EQ(notifier_.losses.size(), 1u);
  EXPECT_EQ(notifier_.losses[0], (NeighborLoss{7, *Lanet::IpAddr::parse("10.0.0.2"), "", "red"}))
      << "raised in the empty context whatever the VRF, with the VRF as its origin";

  v4_.crpStatus->vrfStatusIs(red)->crpSetIs(prefix("224.0.0.0/4"))->rpCandidateIs(addr("1.1.1.1"));
  v4_.staticRpStatus->vrfStatusIs(red)
      ->crpSetIs(prefix("239.0.0.0/8"))
      ->rpCandidateIs(addr("2.2.2.2"));
  ASSERT_EQ(mib->pimRPSetTable().size(), 2u);
  std::vector<Routing::Pim::RpType> types;
  for (const auto& row : mib->pimRPSetTable()) types.push_back(row->rpType());
  EXPECT_EQ(types, (std::vector<Routing::Pim::RpType>{Routing::Pim::rpTypeBsr,
                                                      Routing::Pim::rpTypeStatic}));
}

TEST_F(AgentScenarioTest, RemovingOneFamilyRemovesOnlyItsRows) {
  bringUp();
  addVrf(AddressFamily::ipv4, "red");
  addVrf(AddressFamily::ipv6, "red");
  auto mib = store("red");
  ASSERT_NE(mib, nullptr);
  ifMib_->ifIndexByIntfIdIs(IntfId("Ethernet1"), 7);
  v4_.globalStatus->vrfStatusIs(L3::VrfName("red"))->pimIntfIs(IntfId("Ethernet1"));
  routeTable(AddressFamily::ipv4, "red")->routeIs({addr("10.1.1.1"), addr("239.1.1.1")});
  routeTable(AddressFamily::ipv6, "red")->routeIs({addr("2001:db8::1"), addr("ff0e::1")});
  clock_->advance(1.0);  // the route machines' first review
  ASSERT_EQ(mib->ipMcastRouteTable().size(), 2u);
  ASSERT_EQ(mib->ipMRouteTable().size(), 1u);
  ASSERT_EQ(mib->pimInterfaceTable().size(), 1u);

  v4_.bsrConfig->vrfConfigDel(L3::VrfName("red"));
  EXPECT_TRUE(mib->pimInterfaceTable().empty());
  EXPECT_TRUE(mib->pimComponentTable().empty());
  EXPECT_TRUE(mib->ipMRouteTable().empty());
  EXPECT_TRUE(mib->pimIpMrouteTable().empty());
  ASSERT_EQ(mib->ipMcastRouteTable().size(), 1u) << "the IPv6 route stays";
  EXPECT_EQ((*mib->ipMcastRouteTable().begin())->key().groupAddr.type(),
            Snmp::InetAddressType::ipv6);
  EXPECT_EQ(routeTable(AddressFamily::ipv4, "red"), nullptr) << "the IPv4 tables are unmounted";
  EXPECT_NE(routeTable(AddressFamily::ipv6, "red"), nullptr);
}

TEST_F(AgentScenarioTest, TearDownLeavesNothingBehind) {
  bringUp();
  std::vector<Ent::Ptr<PimMib>> stores;
  for (const char* name : {"default", "red"}) {
    addVrf(AddressFamily::ipv4, name);
    addVrf(AddressFamily::ipv6, name);
    const L3::VrfName vrf(name);
    ifMib_->ifIndexByIntfIdIs(IntfId(std::string("Ethernet-") + name), 7);
    auto intf =
        v4_.globalStatus->vrfStatusIs(vrf)->pimIntfIs(IntfId(std::string("Ethernet-") + name));
    intf->activeNeighborIs(addr("10.0.0.2"));
    v4_.crpStatus->vrfStatusIs(vrf)
        ->crpSetIs(prefix("224.0.0.0/4"))
        ->rpCandidateIs(addr("1.1.1.1"));
    v4_.bsrStatus->vrfStatusIs(vrf)->crpIs(addr("1.1.1.1"));
    routeTable(AddressFamily::ipv4, name)->routeIs({addr("10.1.1.1"), addr("239.1.1.1")});
    routeTable(AddressFamily::ipv6, name)->routeIs({addr("2001:db8::1"), addr("ff0e::1")});
    stores.push_back(store(name));
    ASSERT_NE(stores.back(), nullptr);
  }
  clock_->advance(1.0);
  for (const auto& mib : stores) {
    EXPECT_EQ(mib->ipMcastRouteTable().size(), 2u);
    EXPECT_EQ(mib->pimNeighborTable().size(), 1u);
    EXPECT_EQ(mib->pimRPSetTable().size(), 1u);
  }
  registrar_.take();

  tearDownAgent();
  Strings calls = registrar_.take();
  std::sort(calls.begin(), calls.end());
  EXPECT_EQ(calls, (Strings{"unregister_PimMIB()", "unregister_PimMIB(red)",
                            "unregister_ipMRouteStdMIB()", "unregister_ipMRouteStdMIB(red)",
                            "unregister_ipMcastMIB()", "unregister_ipMcastMIB(red)"}));
  EXPECT_EQ(store("default"), nullptr);
  EXPECT_EQ(store("red"), nullptr);
  for (const auto& mib : stores) {
    EXPECT_TRUE(mib->pimInterfaceTable().empty());
    EXPECT_TRUE(mib->pimNeighborTable().empty());
    EXPECT_TRUE(mib->pimIpMrouteTable().empty());
    EXPECT_TRUE(mib->pimIpMrouteNextHopTable().empty());
    EXPECT_TRUE(mib->pimRPSetTable().empty());
    EXPECT_TRUE(mib->pimCandidateRPTable().empty());
    EXPECT_TRUE(mib->pimComponentTable().empty());
    EXPECT_TRUE(mib->ipMRouteTable().empty());
    EXPECT_TRUE(mib->ipMRouteNextHopTable().empty());
    EXPECT_TRUE(mib->ipMRouteInterfaceTable().empty());
    EXPECT_TRUE(mib->ipMcastRouteTable().empty());
    EXPECT_TRUE(mib->ipMcastRouteNextHopTable().empty());
    EXPECT_TRUE(mib->ipMcastInterfaceTable().empty());
    EXPECT_TRUE(mib->mfibConfig().empty());
    EXPECT_EQ(mib->refCount(), 1u) << "only this test holds the store";
  }
  EXPECT_TRUE(notifier_.losses.empty()) << "tear-down is no neighbor loss";
  // Nothing follows the platform's records any more, and the mounts are gone.
  for (FamilyInputs* f : {&v4_, &v6_}) {
    EXPECT_EQ(f->globalStatus->reactorCount(), 0u);
    EXPECT_EQ(f->pimConfig->reactorCount(), 0u);
    EXPECT_EQ(f->bsrStatus->reactorCount(), 0u);
    EXPECT_EQ(f->crpStatus->reactorCount(), 0u);
    EXPECT_EQ(f->mfibConfig->reactorCount(), 0u);
  }
  EXPECT_EQ(snmpStatus_->reactorCount(), 0u);
  EXPECT_EQ(intfStatus_->reactorCount(), 0u);
  EXPECT_EQ(routeTable(AddressFamily::ipv4, "red"), nullptr);
  EXPECT_EQ(stateRoot_->lookup(Shtab::Multicast::Fib::Status::mountPath(
                AddressFamily::ipv6, L3::VrfName("red"), "sparsemode")),
            nullptr);
}

}  // namespace
