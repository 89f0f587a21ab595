#include "platform/Snmp/Config.h"

#include <fmt/format.h>

namespace Snmp {

Ent::Ptr<NotificationConfig> Config::notificationConfigIs(std::string_view group) {
  const std::string key(group);
  return groups_.findOrInsert(key, [&] { return Ent::make<NotificationConfig>(key); }).first;
}

void Config::notificationsEnabledIs(bool on) {
  if (on == notificationsEnabled_) return;
  notificationsEnabled_ = on;
  notify(attrNotificationsEnabled);
}

NotificationStatus Config::notificationStatus(std::string_view group, std::string_view name) const {
  const NotificationConfig* nc = groups_.find(std::string(group));
  if (!nc) return {false, fmt::format("notification group {} is not configured", group)};
  const NotificationSetting* setting = nc->notification(name);
  if (!setting) {
    return {false, fmt::format("notification {} is not registered in group {}", name, group)};
  }
  if (!notificationsEnabled_) return {false, "notifications disabled by configuration"};
  if (!setting->enabled) {
    if (!setting->disabledReason.empty()) return {false, setting->disabledReason};
    return {false, fmt::format("notification {} disabled by configuration", name)};
  }
  return {true, "enabled"};
}

Ent::Ptr<Ent::Entity> Config::childEntity(std::string_view attr, std::string_view key) const {
  if (attr == "notificationConfig") return notificationConfig(key);
  return Ent::Entity::childEntity(attr, key);
}

}  // namespace Snmp
