#pragma once

// Process-wide access to the platform's per-route multicast counters, by address family.

#include <string>
#include <string_view>
#include <utility>

#include "platform/Ent/Coll.h"
#include "platform/Ent/Entity.h"
#include "platform/Lanet/AddressFamily.h"
#include "platform/McastCommon/MrouteCounterHelper.h"

namespace Routing::Pim::Snmp {

class PimSnmpHelpers : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId { attrMrouteCounterHelper = 1 };
  using CounterHelper = McastCommonMrouteCounterHelper::MrouteCounterHelper;
  using CounterHelperColl = Ent::HashColl<Lanet::AddressFamily, const CounterHelper>;

  static constexpr std::string_view kDefaultName = "pimSnmpHelpers";

  explicit PimSnmpHelpers(std::string name)
      : Ent::Entity(std::move(name)), mrouteCounterHelper_(this, attrMrouteCounterHelper) {}
  std::string_view typeName() const override { return "Routing::Pim::Snmp::PimSnmpHelpers"; }

  const CounterHelperColl& mrouteCounterHelper() const { return mrouteCounterHelper_; }
  Ent::Ptr<const CounterHelper> mrouteCounterHelper(Lanet::AddressFamily af) const {
    return mrouteCounterHelper_.find(af);
  }
  // Stores the helper of `af`: the same helper again changes nothing, null removes it.
  void mrouteCounterHelperIs(Lanet::AddressFamily af, Ent::Ptr<const CounterHelper> helper) {
    mrouteCounterHelper_.set(af, std::move(helper));
  }
  void mrouteCounterHelperDel(Lanet::AddressFamily af) { mrouteCounterHelper_.erase(af); }
  void mrouteCounterHelperDelAll() { mrouteCounterHelper_.clear(); }

 private:
  CounterHelperColl mrouteCounterHelper_;
};

// A new, unshared PimSnmpHelpers with notification on.
Ent::Ptr<PimSnmpHelpers> pimSnmpHelpersFactory(const std::string& name);
// The process's PimSnmpHelpers, created under `name` when there is none yet.
Ent::Ptr<PimSnmpHelpers> PimSnmpHelpersIs(const std::string& name);
// The process's PimSnmpHelpers, created on first use.
Ent::Ptr<PimSnmpHelpers> pimSnmpHelpers();
// Drops the process's PimSnmpHelpers (tests, shutdown); the next use creates a new one.
void pimSnmpHelpersDel();

}  // namespace Routing::Pim::Snmp
