#pragma once

#include <string>
#include <string_view>

#include "PimSnmp/PimSnmpAgent/AfRoot.h"
#include "PimSnmp/RegistrationHelper/RegistrationHelper.h"
#include "platform/Ent/Coll.h"
#include "platform/Ent/Dir.h"
#include "platform/Ent/Entity.h"
#include "platform/Lanet/AddressFamily.h"

namespace Routing::Pim::SnmpAgent {

// The agent's root, made once by the hosting SNMP agent: the MIB registration bookkeeping and
// one AfRoot per address family.
//
// Bring-up: rootFactory(name), mibRegistrationHelperIs(), afRootIs(...) per family, then on each
// AfRoot its own bring-up (see AfRoot). Tear-down: afRootDel (or afRootDelAll), then
// mibRegistrationHelperDel(); the destructor does both.
class Root : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId { attrMibRegistrationHelper = 1, attrAfRoot = 2 };
  using AfRootColl = Ent::HashColl<Lanet::AddressFamily, AfRoot>;
  // Where the MIB modules look for the per-VRF stores, under the SNMP entity root.
  static constexpr std::string_view kPimMibRootPath = "snmp/pim/snmpPimMIB";

  // `pimMibRoot` null: the directory at kPimMibRootPath under SnmpUtil::entityRoot().
  explicit Root(std::string name, Ent::Ptr<Ent::Dir> pimMibRoot = nullptr);
  ~Root() override;
  std::string_view typeName() const override { return "Routing::Pim::SnmpAgent::Root"; }

  const Ent::Ptr<Ent::Dir>& pimMibRoot() const { return pimMibRoot_; }

  const Ent::Ptr<Snmp::RegistrationHelper>& mibRegistrationHelper() const {
    return mibRegistrationHelper_;
  }
  // The helper, created over pimMibRoot when there is none.
  Ent::Ptr<Snmp::RegistrationHelper> mibRegistrationHelperIs();
  void mibRegistrationHelperDel();

  const AfRootColl& afRoot() const { return afRoot_; }
  Ent::Ptr<AfRoot> afRoot(Lanet::AddressFamily af) const { return afRoot_.find(af); }
  // The root of `af`, created with these inputs; an existing one with other inputs is refused
  // with Ent::Error.
  Ent::Ptr<AfRoot> afRootIs(Lanet::AddressFamily af, const Inputs& inputs);
  // Removes the family's root and tears it down.
  void afRootDel(Lanet::AddressFamily af);
  void afRootDelAll();

 private:
  const Ent::Ptr<Ent::Dir> pimMibRoot_;
  Ent::Ptr<Snmp::RegistrationHelper> mibRegistrationHelper_;
  AfRootColl afRoot_;
};

// A new Root with notification on.
Ent::Ptr<Root> rootFactory(const std::string& name, Ent::Ptr<Ent::Dir> pimMibRoot = nullptr);
Ent::Ptr<Root> RootIs(const std::string& name, Ent::Ptr<Ent::Dir> pimMibRoot = nullptr);

}  // namespace Routing::Pim::SnmpAgent
