#include "PimSnmp/PimMIB/PimMIB.h"
#include "PimSnmp/RegistrationHelper/MibRegistrar.h"
#include "PimSnmp/ipMRouteStdMIB/ipMRouteStdMIB.h"
#include "PimSnmp/ipMcastMIB/ipMcastMIB.h"

namespace Routing::Pim::Snmp {

namespace {

class ModuleMibRegistrar : public MibRegistrar {
 public:
  void initPimMib(const std::string& context) override { init_PimMIB(context); }
  void initIpMRouteStdMib(const std::string& context) override { init_ipMRouteStdMIB(context); }
  void initIpMcastMib(const std::string& context) override { init_ipMcastMIB(context); }
  void unregisterPimMib(const std::string& context) override { unregister_PimMIB(context); }
  void unregisterIpMRouteStdMib(const std::string& context) override {
    unregister_ipMRouteStdMIB(context);
  }
  void unregisterIpMcastMib(const std::string& context) override { unregister_ipMcastMIB(context); }
};

}  // namespace

MibRegistrar& moduleMibRegistrar() {
  static ModuleMibRegistrar registrar;
  return registrar;
}

}  // namespace Routing::Pim::Snmp
