#pragma once

#include <string>

namespace Routing::Pim::Snmp {

// The MIB modules' entry points, as the registration bookkeeping calls them. A seam: the
// process default calls the modules (init_PimMIB and friends); tests install a recorder so
// that registration can be observed without a running net-snmp agent.
class MibRegistrar {
 public:
  virtual ~MibRegistrar() = default;

  virtual void initPimMib(const std::string& context) = 0;
  virtual void initIpMRouteStdMib(const std::string& context) = 0;
  virtual void initIpMcastMib(const std::string& context) = 0;
  virtual void unregisterPimMib(const std::string& context) = 0;
  virtual void unregisterIpMRouteStdMib(const std::string& context) = 0;
  virtual void unregisterIpMcastMib(const std::string& context) = 0;
};

// The registrar in use: the one installed by mibRegistrarIs, else the module entry points.
MibRegistrar& mibRegistrar();
// Installs `registrar` (not owned; null restores the module entry points).
void mibRegistrarIs(MibRegistrar* registrar);
// The registrar that calls the MIB modules' init_... and unregister_... functions.
MibRegistrar& moduleMibRegistrar();

// Installs a registrar for the lifetime of a scope.
class ScopedMibRegistrar {
 public:
  explicit ScopedMibRegistrar(MibRegistrar& registrar);
  ~ScopedMibRegistrar();
  ScopedMibRegistrar(const ScopedMibRegistrar&) = delete;
  ScopedMibRegistrar& operator=(const ScopedMibRegistrar&) = delete;

 private:
  MibRegistrar* previous_;
};

}  // namespace Routing::Pim::Snmp
