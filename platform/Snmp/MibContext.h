#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Ent/Coll.h"
#include "platform/Ent/Entity.h"
#include "platform/Ent/Ptr.h"

namespace Snmp {

// Which MIB modules ("PimMIB", "ipMRouteStdMIB", "ipMcastMIB") serve which SNMP contexts.
// An entity, so the daemon can follow contexts coming and going (attribute `context`, keyed by
// the context string) and report them in its status.
class MibContexts : public Ent::Entity {
 public:
  enum Attr : Ent::AttrId { attrContext = 1 };
  using Modules = std::set<std::string, std::less<>>;

  MibContexts() : Ent::Entity("mibContexts") {}
  std::string_view typeName() const override { return "Snmp::MibContexts"; }

  // Both return false when nothing changed (already registered / not registered).
  bool moduleIs(std::string_view module, std::string_view context);
  bool moduleDel(std::string_view module, std::string_view context);

  // The modules serving `context` (empty when none).
  Modules modules(std::string_view context) const { return contexts_.get(std::string(context)); }
  bool served(std::string_view module, std::string_view context) const;
  // Every context served by at least one module, in order.
  std::vector<std::string> contexts() const;
  void clear() { contexts_.clear(); }

 private:
  Ent::ValueMap<std::string, Modules> contexts_{this, attrContext};
};

// The process's registry, created on first use.
Ent::Ptr<MibContexts> mibContexts();

// Called by a module's init_/unregister_ entry points for each context.
void registerMibContext(std::string_view module, std::string_view context);
void unregisterMibContext(std::string_view module, std::string_view context);

}  // namespace Snmp
