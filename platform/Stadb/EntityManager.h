#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Ent/Dir.h"
#include "platform/Ent/Entity.h"
#include "platform/Ent/Error.h"

namespace Stadb {

enum class MountMode : uint8_t { reader, writer };

// A mount that cannot be made: wrong type at the path, no factory for the type, bad path.
class MountError : public Ent::Error {
 public:
  using Ent::Error::Error;
};

class MountGroup;

// Mounts the tables that writers publish in the state directory (an Ent::Dir root), for readers
// and writers alike. mount(path, typeName, mode) returns the entity at `path`:
//
// - If an entity is there it must be of `typeName` (Entity::typeName()) and is returned.
// - If nothing is there yet, the manager creates an empty entity of that type with the type's
//   factory and publishes it at `path` (directories made as needed). A reader that comes first
//   thus holds the very entity the writer fills later: writers must mount too (or look the
//   entity up), never publish a new one over it, or readers keep the old one.
//
// Mounts are counted per path and mode; unmount() undoes one. When the last mount of an entity
// that the manager created goes, the manager removes it from the directory again (an entity
// published by someone else stays). Mounting again what is mounted costs one map lookup.
class EntityManager : public Ent::Entity {
 public:
  // Builds an empty entity for the (normalised) path; its name must be the path's last
  // component. Returns null when the path does not fit the type.
  using Factory = std::function<Ent::Ptr<Ent::Entity>(std::string_view path)>;

  explicit EntityManager(Ent::Ptr<Ent::Dir> root, std::string name = "entityManager");
  std::string_view typeName() const override { return "Stadb::EntityManager"; }

  const Ent::Ptr<Ent::Dir>& root() const { return root_; }

  // Throws MountError (see above).
  Ent::Ptr<Ent::Entity> mount(std::string_view path, std::string_view typeName, MountMode mode);
  template <class T>
  Ent::Ptr<T> mountAs(std::string_view path, std::string_view typeName, MountMode mode) {
    return Ent::ptrCast<T>(mount(path, typeName, mode));
  }
  // False when `path` has no mount of `mode`.
  bool unmount(std::string_view path, MountMode mode);
  size_t mountCount(std::string_view path, MountMode mode) const;

  // Factories by type name, shared by all managers. The platform's shared-memory tables
  // ("Shtab::Multicast::Fib::Status", "Routing::Pim::SparseMode::Shtab::Status") and "Ent::Dir"
  // are known from the start; typeFactoryIs adds or replaces one.
  static void typeFactoryIs(std::string typeName, Factory factory);
  static bool hasTypeFactory(std::string_view typeName);

  // "a//b/" -> "a/b".
  static std::string normalizedPath(std::string_view path);

 private:
  struct Mount {
    Ent::Ptr<Ent::Entity> entity;
    bool created = false;
    uint32_t readers = 0;
    uint32_t writers = 0;
  };

  Ent::Ptr<Ent::Dir> root_;
  std::map<std::string, Mount, std::less<>> mounts_;
};

// The mounts made on behalf of one user, undone together (latest first) by unmountAll() or the
// group's destruction. Pass one to the mountInDependencyOrder helpers, or null for none.
class MountGroup {
 public:
  MountGroup() = default;
  ~MountGroup() { unmountAll(); }
  MountGroup(const MountGroup&) = delete;
  MountGroup& operator=(const MountGroup&) = delete;

  // Records a mount already made through `manager`.
  void mounted(Ent::Ptr<EntityManager> manager, std::string path, MountMode mode) {
    mounts_.push_back({std::move(manager), std::move(path), mode});
  }
  void unmountAll();
  size_t size() const { return mounts_.size(); }

 private:
  struct Entry {
    Ent::Ptr<EntityManager> manager;
    std::string path;
    MountMode mode;
  };
  std::vector<Entry> mounts_;
};

}  // namespace Stadb
