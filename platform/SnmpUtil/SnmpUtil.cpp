#include "platform/SnmpUtil/SnmpUtil.h"

namespace SnmpUtil {

namespace {

// Function-local statics: usable from other units' static initialisation.
Ent::Ptr<Ent::Dir>& rootSlot() {
  static Ent::Ptr<Ent::Dir> root;
  return root;
}
Ent::Ptr<Snmp::Config>& configSlot() {
  static Ent::Ptr<Snmp::Config> config;
  return config;
}
Ent::Ptr<Snmp::Status>& statusSlot() {
  static Ent::Ptr<Snmp::Status> status;
  return status;
}

}  // namespace

Ent::Ptr<Ent::Dir> entityRoot() {
  auto& root = rootSlot();
  if (!root) root = Ent::make<Ent::Dir>("root");
  return root;
}

void entityRootIs(Ent::Ptr<Ent::Dir> root) {
  rootSlot() = std::move(root);
}

Ent::Ptr<Ent::Entity> getEntityRelative(std::string_view path) {
  return entityRoot()->lookup(path);
}

Ent::Ptr<Snmp::Config> getSnmpConfig() {
  auto& config = configSlot();
  if (!config) config = Ent::make<Snmp::Config>();
  return config;
}

void snmpConfigIs(Ent::Ptr<Snmp::Config> config) {
  configSlot() = std::move(config);
}

Ent::Ptr<Snmp::Status> getSnmpStatus() {
  auto& status = statusSlot();
  if (!status) status = Ent::make<Snmp::Status>();
  return status;
}

void snmpStatusIs(Ent::Ptr<Snmp::Status> status) {
  statusSlot() = std::move(status);
}

}  // namespace SnmpUtil
