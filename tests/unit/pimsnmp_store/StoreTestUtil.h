#pragma once

// Shared builders for the store tests: platform records with the fields the rows read, a
// reactor that records changes, and a counter helper that records its queries.

#include <string>
#include <utility>
#include <vector>

#include "platform/Ent/Entity.h"
#include "platform/L3/VrfName.h"
#include "platform/Lanet/IpGenAddr.h"
#include "platform/McastCommon/MrouteCounterHelper.h"
#include "platform/Routing/Multicast/Fib/IpGenRouteKey.h"
#include "platform/Routing/Pim/RouteKey.h"
#include "platform/Routing/Pim/SparseMode/Route.h"

namespace PimSnmpStoreTest {

inline Lanet::IpGenAddr v4(const char* text) {
  return *Lanet::IpGenAddr::parse(text);
}

inline Routing::Pim::RouteKey sg(const char* source, const char* group) {
  return {v4(source), v4(group)};
}

inline Ent::Ptr<Routing::Pim::SparseMode::Route> route(const Routing::Pim::RouteKey& key,
                                                       double creationTime = 0) {
  auto r = Ent::make<Routing::Pim::SparseMode::Route>(key);
  r->creationTimeIs(creationTime);
  return r;
}

// Records the changes of one entity: all of them counted, those of `attr` counted and, for a
// collection attribute, their keys copied as K.
template <class K>
class ChangeLog : public Ent::Reactor {
 public:
  ChangeLog(Ent::Ptr<const Ent::Entity> e, Ent::AttrId attr)
      : Ent::Reactor(std::move(e)), attr_(attr) {}
  void onChange(const Ent::Change& c) override {
    ++all;
    if (c.attr != attr_) return;
    ++matched;
    if (c.key) keys.push_back(c.keyAs<K>());
  }
  std::vector<K> keys;
  int all = 0;
  int matched = 0;

 private:
  Ent::AttrId attr_;
};

// Answers fixed counters and remembers what it was asked.
class FakeCounterHelper : public McastCommonMrouteCounterHelper::MrouteCounterHelper {
 public:
  FakeCounterHelper(uint64_t packets, uint64_t bytes)
      : MrouteCounterHelper("fake"), counters_{packets, bytes} {}
  std::string_view typeName() const override { return "PimSnmpStoreTest::FakeCounterHelper"; }
  Counters counters(const L3::VrfName& vrf,
                    const Routing::Multicast::Fib::IpGenRouteKey& key) const override {
    queries.emplace_back(vrf, key);
    return counters_;
  }
  mutable std::vector<std::pair<L3::VrfName, Routing::Multicast::Fib::IpGenRouteKey>> queries;

 private:
  Counters counters_;
};

}  // namespace PimSnmpStoreTest
