#include "PimSnmp/RegistrationHelper/RegistrationHelper.h"

#include <utility>

#include "PimSnmp/RegistrationHelper/MibRegistrar.h"
#include "platform/Ent/Error.h"
#include "platform/Trace/Trace.h"

DEFAULT_TRACE_HANDLE("PimSnmpAgent")

namespace Routing::Pim::Snmp {

std::string vrfContext(const L3::VrfName& vrf) {
  return vrf.isDefault() ? std::string() : vrf.str();
}

RegistrationHelper::RegistrationHelper(Ent::Ptr<Ent::Dir> pimMibRoot)
    : Ent::Entity("mibRegistrationHelper"),
      pimMibRoot_(std::move(pimMibRoot)),
      vrfRegistrationState_(this, attrVrfRegistrationState) {
  if (!pimMibRoot_) throw Ent::NullArgument("RegistrationHelper: null pimMibRoot");
}

Ent::Ptr<PimMib> RegistrationHelper::pimMib(const L3::VrfName& vrf) const {
  return Ent::ptrCast<PimMib>(pimMibRoot_->entity(vrf.str()));
}

Ent::Ptr<PimMib> RegistrationHelper::registerMibs(const L3::VrfName& vrf, Lanet::AddressFamily af) {
  TRACE8("vrf {}, af {}", vrf, af);
  RegistrationState state = vrfRegistrationState(vrf);
  TRACE8("regState for vrf {} is {}", vrf, state);
  Ent::Ptr<PimMib> mib = pimMib(vrf);
  const bool v4 = af == Lanet::AddressFamily::ipv4;
  if (v4 ? state.v4Registered() : state.v6Registered()) return mib;

  if (!mib) {
    TRACE8("Creating pimMib for VRF {}", vrf);
    mib = pimMibFactory(vrf.str());
    pimMibRoot_->entityIs(mib);
  }
  TRACE8("pimMib for VRF {} in pimMibRoot is {}", vrf, fmt::ptr(mib.get()));

  const std::string context = vrfContext(vrf);
  MibRegistrar& registrar = mibRegistrar();
  if (!state.v4Registered() && !state.v6Registered()) registrar.initIpMcastMib(context);
  if (v4) {
    TRACE8("Registering PIM-MIB in context '{}'", context);
    registrar.initPimMib(context);
    TRACE8("Registering IPMROUTE-STD-MIB in context '{}'", context);
    registrar.initIpMRouteStdMib(context);
    state.v4RegisteredIs(true);
  } else {
    // IPv6 and any other family: PIM-MIB and IPMROUTE-STD-MIB are IPv4-only.
    state.v6RegisteredIs(true);
  }
  vrfRegistrationStateIs(vrf, state);
  return mib;
}

void RegistrationHelper::deregisterMibs(const L3::VrfName& vrf, Lanet::AddressFamily af) {
  TRACE8("vrf {}, af {}", vrf, af);
  RegistrationState state = vrfRegistrationState(vrf);
  TRACE8("regState for vrf {} is {}", vrf, state);
  const bool v4 = af == Lanet::AddressFamily::ipv4;
  if (!(v4 ? state.v4Registered() : state.v6Registered())) return;

  const std::string context = vrfContext(vrf);
  MibRegistrar& registrar = mibRegistrar();
  if (v4) {
    TRACE8("Unregistering PIM-MIB in context '{}'", context);
    registrar.unregisterPimMib(context);
    TRACE8("Unregistering IPMROUTE-STD-MIB in context '{}'", context);
    registrar.unregisterIpMRouteStdMib(context);
    state.v4RegisteredIs(false);
  } else {
    state.v6RegisteredIs(false);
  }
  if (state.value() == 0) {
    registrar.unregisterIpMcastMib(context);
    pimMibRoot_->entityDel(vrf.str());
  }
  vrfRegistrationStateIs(vrf, state);
}

}  // namespace Routing::Pim::Snmp
