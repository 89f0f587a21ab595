#include "PimSnmp/PimSnmpHelpers/PimSnmpHelpers.h"

namespace Routing::Pim::Snmp {

namespace {

Ent::Ptr<PimSnmpHelpers>& instance() {
  // Never destroyed: rows may read counters from static destructors.
  static auto* helpers = new Ent::Ptr<PimSnmpHelpers>();
  return *helpers;
}

}  // namespace

Ent::Ptr<PimSnmpHelpers> pimSnmpHelpersFactory(const std::string& name) {
  Ent::Ptr<PimSnmpHelpers> helpers = Ent::make<PimSnmpHelpers>(name);
  helpers->hasNotificationActiveIs(true);
  return helpers;
}

Ent::Ptr<PimSnmpHelpers> PimSnmpHelpersIs(const std::string& name) {
  Ent::Ptr<PimSnmpHelpers>& helpers = instance();
  if (!helpers) helpers = pimSnmpHelpersFactory(name);
  return helpers;
}

Ent::Ptr<PimSnmpHelpers> pimSnmpHelpers() {
  return PimSnmpHelpersIs(std::string(PimSnmpHelpers::kDefaultName));
}

void pimSnmpHelpersDel() {
  instance().reset();
}

}  // namespace Routing::Pim::Snmp
