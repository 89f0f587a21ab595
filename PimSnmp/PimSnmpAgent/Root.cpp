#include "PimSnmp/PimSnmpAgent/Root.h"

#include <utility>

#include "platform/Ent/Error.h"
#include "platform/SnmpUtil/SnmpUtil.h"
#include "platform/Trace/Trace.h"

DEFAULT_TRACE_HANDLE("PimSnmpAgent")

namespace Routing::Pim::SnmpAgent {

Root::Root(std::string name, Ent::Ptr<Ent::Dir> pimMibRoot)
    : Ent::Entity(std::move(name)),
      pimMibRoot_(pimMibRoot ? std::move(pimMibRoot)
                             : SnmpUtil::entityRoot()->mkdirs(kPimMibRootPath)),
      afRoot_(this, attrAfRoot) {}

Root::~Root() {
  afRootDelAll();
  mibRegistrationHelperDel();
}

Ent::Ptr<Snmp::RegistrationHelper> Root::mibRegistrationHelperIs() {
  if (!mibRegistrationHelper_) {
    auto helper = Ent::make<Snmp::RegistrationHelper>(pimMibRoot_);
    helper->hasNotificationActiveIs(true);
    mibRegistrationHelper_ = helper;
    notify(attrMibRegistrationHelper);
  }
  return mibRegistrationHelper_;
}

void Root::mibRegistrationHelperDel() {
  if (!mibRegistrationHelper_) return;
  mibRegistrationHelper_.reset();
  notify(attrMibRegistrationHelper);
}

Ent::Ptr<AfRoot> Root::afRootIs(Lanet::AddressFamily af, const Inputs& inputs) {
  TRACE8("af {}", af);
  if (Ent::Ptr<AfRoot> existing = afRoot_.find(af)) {
    if (existing->inputs() != inputs) {
      throw Ent::Error(fmt::format("Root::afRootIs: afRoot {} exists with other inputs", af));
    }
    return existing;
  }
  auto afRoot = Ent::make<AfRoot>(af, inputs);
  afRoot->hasNotificationActiveIs(true);
  afRoot_.set(af, afRoot);
  return afRoot;
}

void Root::afRootDel(Lanet::AddressFamily af) {
  if (Ent::Ptr<AfRoot> afRoot = afRoot_.erase(af)) afRoot->doTeardown();
}

void Root::afRootDelAll() {
  while (!afRoot_.empty()) afRootDel(afRoot_.begin()->first);
}

Ent::Ptr<Root> rootFactory(const std::string& name, Ent::Ptr<Ent::Dir> pimMibRoot) {
  auto root = Ent::make<Root>(name, std::move(pimMibRoot));
  root->hasNotificationActiveIs(true);
  return root;
}

Ent::Ptr<Root> RootIs(const std::string& name, Ent::Ptr<Ent::Dir> pimMibRoot) {
  return rootFactory(name, std::move(pimMibRoot));
}

}  // namespace Routing::Pim::SnmpAgent
