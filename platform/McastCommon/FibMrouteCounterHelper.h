#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <utility>

#include "platform/Ent/Ptr.h"
#include "platform/L3/VrfName.h"
#include "platform/McastCommon/MrouteCounterHelper.h"
#include "platform/Routing/Multicast/Fib/IpGenRouteKey.h"
#include "platform/Shtab/Multicast/Fib/Status.h"

namespace McastCommonMrouteCounterHelper {

// Reads the counters from the multicast FIB tables of the VRFs registered with it.
class FibMrouteCounterHelper : public MrouteCounterHelper {
 public:
  explicit FibMrouteCounterHelper(std::string name = "fibMrouteCounterHelper")
      : MrouteCounterHelper(std::move(name)) {}
  std::string_view typeName() const override {
    return "McastCommonMrouteCounterHelper::FibMrouteCounterHelper";
  }

  Counters counters(const L3::VrfName& vrf,
                    const Routing::Multicast::Fib::IpGenRouteKey& key) const override {
    auto it = status_.find(vrf);
    if (it == status_.end()) return {};
    auto route = it->second->route().find(key);
    if (route == it->second->route().end()) return {};
    return {route->second.packets(), route->second.bytes()};
  }

  // The FIB table serving `vrf`; null unregisters it.
  void statusIs(const L3::VrfName& vrf, Ent::Ptr<const Shtab::Multicast::Fib::Status> s) {
    if (s) {
      status_[vrf] = std::move(s);
    } else {
      status_.erase(vrf);
    }
  }
  void statusDel(const L3::VrfName& vrf) { status_.erase(vrf); }
  size_t statusCount() const { return status_.size(); }

 private:
  std::map<L3::VrfName, Ent::Ptr<const Shtab::Multicast::Fib::Status>> status_;
};

}  // namespace McastCommonMrouteCounterHelper
