#include "PimSnmp/RegistrationHelper/MibRegistrar.h"

namespace Routing::Pim::Snmp {

namespace {

MibRegistrar*& installed() {
  static MibRegistrar* registrar = nullptr;
  return registrar;
}

}  // namespace

MibRegistrar& mibRegistrar() {
  MibRegistrar* r = installed();
  return r ? *r : moduleMibRegistrar();
}

void mibRegistrarIs(MibRegistrar* registrar) {
  installed() = registrar;
}

ScopedMibRegistrar::ScopedMibRegistrar(MibRegistrar& registrar) : previous_(installed()) {
  installed() = &registrar;
}

ScopedMibRegistrar::~ScopedMibRegistrar() {
  installed() = previous_;
}

}  // namespace Routing::Pim::Snmp
