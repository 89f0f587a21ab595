#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "platform/Ent/Coll.h"
#include "platform/Ent/Entity.h"
#include "platform/Routing/Multicast/Fib/Config.h"

namespace Routing::Multicast::Fib {

// Multicast-routing configuration of every VRF, by VRF name. Published as "config", so one
// VRF's record is reachable by the path "config.config/<vrf>" (URL-quoted).
class VrfConfig : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId { attrConfig = 1 };
  using Coll = Ent::OrderedColl<std::string, Config>;

  explicit VrfConfig(std::string name = "config")
      : Ent::Entity(std::move(name)), config_(this, attrConfig) {}
  std::string_view typeName() const override { return "Routing::Multicast::Fib::VrfConfig"; }

  const Coll& config() const { return config_; }
  Ent::Ptr<const Config> config(const std::string& vrf) const { return config_.find(vrf); }
  // The record of `vrf`, created when absent.
  Ent::Ptr<Config> configIs(const std::string& vrf) {
    return config_.findOrInsert(vrf, [&] { return Ent::make<Config>(vrf); }).first;
  }
  Ent::Ptr<Config> configDel(const std::string& vrf) { return config_.erase(vrf); }
  void configDelAll() { config_.clear(); }

  Ent::Ptr<Ent::Entity> childEntity(std::string_view attr, std::string_view key) const override {
    if (attr != "config") return nullptr;
    return Ent::Ptr<Ent::Entity>(config_.find(std::string(key)));
  }

 private:
  Coll config_;
};

}  // namespace Routing::Multicast::Fib
