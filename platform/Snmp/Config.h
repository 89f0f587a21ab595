#pragma once

#include <map>
#include <string>
#include <string_view>

#include "platform/Ent/Coll.h"
#include "platform/Ent/Entity.h"

namespace Snmp {

// Whether a notification may be sent now, and why (or why not) in words.
struct NotificationStatus {
  bool send = false;
  std::string reason;
};

// One registered notification of a group.
struct NotificationSetting {
  bool enabled = true;
  // Shown instead of the standard text while disabled (for example who disabled it).
  std::string disabledReason;

  bool operator==(const NotificationSetting&) const = default;
};

// The notifications of one group ("pim"): which are registered, whether each is enabled,
// and how long each is held back before it is sent.
class NotificationConfig : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId { attrNotification = 1, attrDelay = 2 };
  using DelayMap = Ent::ValueMap<std::string, double>;

  explicit NotificationConfig(std::string group) : Ent::Entity(std::move(group)) {}
  std::string_view typeName() const override { return "Snmp::NotificationConfig"; }

  // The registered notification `name`, or null.
  const NotificationSetting* notification(std::string_view name) const {
    return notifications_.find(std::string(name));
  }
  // Registers (or updates) a notification.
  void notificationIs(std::string_view name, bool enabled = true, std::string disabledReason = {}) {
    notifications_.set(std::string(name), NotificationSetting{enabled, std::move(disabledReason)});
  }
  void notificationDel(std::string_view name) { notifications_.erase(std::string(name)); }
  const Ent::ValueMap<std::string, NotificationSetting>& notifications() const {
    return notifications_;
  }

  // Seconds to hold `name` back; 0 when none is configured.
  double delay(std::string_view name) const { return delay_.get(std::string(name)); }
  const DelayMap& delayMap() const { return delay_; }
  void delayIs(std::string_view name, double seconds) { delay_.set(std::string(name), seconds); }
  void delayDel(std::string_view name) { delay_.erase(std::string(name)); }

 private:
  Ent::ValueMap<std::string, NotificationSetting> notifications_{this, attrNotification};
  DelayMap delay_{this, attrDelay};
};

// The agent's SNMP configuration: the notification groups, and a switch for all of them.
class Config : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId { attrNotificationConfig = 1, attrNotificationsEnabled = 2 };

  explicit Config(std::string name = "config") : Ent::Entity(std::move(name)) {}
  std::string_view typeName() const override { return "Snmp::Config"; }

  // The group `group`, or null.
  Ent::Ptr<NotificationConfig> notificationConfig(std::string_view group) const {
    return groups_[std::string(group)];
  }
  // The group `group`, created when absent.
  Ent::Ptr<NotificationConfig> notificationConfigIs(std::string_view group);
  void notificationConfigDel(std::string_view group) { groups_.erase(std::string(group)); }
  const auto& notificationConfigs() const { return groups_; }

  bool notificationsEnabled() const { return notificationsEnabled_; }
  void notificationsEnabledIs(bool on);

  // Combines the global switch, the group and the notification's own setting.
  NotificationStatus notificationStatus(std::string_view group, std::string_view name) const;

  // "notificationConfig/<group>" steps of state-directory paths.
  Ent::Ptr<Ent::Entity> childEntity(std::string_view attr, std::string_view key) const override;

 private:
  Ent::OrderedColl<std::string, NotificationConfig, &Ent::Entity::name> groups_{
      this, attrNotificationConfig};
  bool notificationsEnabled_ = true;
};

}  // namespace Snmp
