#pragma once

#include <map>
#include <string>
#include <string_view>

#include "platform/Ent/Entity.h"

namespace Ent {

// Percent-encodes every byte outside [A-Za-z0-9-_.~], so that any name can be
// one component of a '/'-separated path ("'default'" -> "%27default%27").
std::string urlQuote(std::string_view s);
// Inverse of urlQuote; a malformed escape is kept literally.
std::string urlUnquote(std::string_view s);
// "<dir>/<urlQuote(name)>": the one way a name that may hold any byte (a VRF's, a context's)
// becomes a component of a state-directory path. Distinct names give distinct paths.
std::string childPath(std::string_view dir, std::string_view name);

// A directory of named entities: the state directory in which the platform
// publishes its records and the agent keeps its per-VRF stores.
class Dir : public Entity {
 public:
  enum Attr : AttrId { attrEntity = 1 };

  explicit Dir(std::string name) : Entity(std::move(name)) {}
  std::string_view typeName() const override { return "Ent::Dir"; }

  Ptr<Entity> entity(std::string_view name) const;
  // Adds `e` under its own name, replacing an entity of that name.
  void entityIs(Ptr<Entity> e);
  Ptr<Entity> entityDel(std::string_view name);
  void entityDelAll();
  size_t size() const { return children_.size(); }

  // The sub-directory `name`, created when absent (an entity of another type
  // under that name is an error).
  Ptr<Dir> mkdir(std::string_view name);
  // mkdir of every component of a '/'-separated path; returns the last one.
  Ptr<Dir> mkdirs(std::string_view path);

  // Resolves a '/'-separated path of URL-quoted names. A component "name.attr"
  // that is not itself a name steps into collection `attr` of entity `name`,
  // and the next component is the key (Entity::childEntity).
  Ptr<Entity> lookup(std::string_view path) const;
  template <class T>
  Ptr<T> lookupAs(std::string_view path) const {
    return ptrCast<T>(lookup(path));
  }

  auto begin() const { return children_.begin(); }
  auto end() const { return children_.end(); }

 private:
  std::map<std::string, Ptr<Entity>, std::less<>> children_;
};

}  // namespace Ent
