#include "platform/Stadb/EntityManager.h"

#include <stdexcept>

#include "platform/L3/VrfName.h"
#include "platform/Routing/Pim/SparseMode/Shtab/Status.h"
#include "platform/Shtab/Multicast/Fib/Status.h"
#include "platform/Stadb/MountPath.h"

namespace Stadb {

namespace {

// "shtab/multicast/fib/<af>/<vrf>/<role>", as Shtab::Multicast::Fib::Status::mountPath makes it.
Ent::Ptr<Ent::Entity> makeFibStatus(std::string_view path) {
  const std::vector<std::string> c = pathComponents(path);
  if (c.size() != 6 || c[0] != "shtab" || c[1] != "multicast" || c[2] != "fib") return nullptr;
  const auto af = addressFamilyFromString(c[3]);
  if (!af) return nullptr;
  try {
    return Ent::make<Shtab::Multicast::Fib::Status>(*af, L3::VrfName(c[4]), c[5]);
  } catch (const std::range_error&) {
    return nullptr;
  }
}

std::map<std::string, EntityManager::Factory, std::less<>>& factories() {
  static std::map<std::string, EntityManager::Factory, std::less<>> f = {
      {"Ent::Dir",
       [](std::string_view path) -> Ent::Ptr<Ent::Entity> {
         const std::vector<std::string> c = pathComponents(path);
         return c.empty() ? nullptr : Ent::make<Ent::Dir>(c.back());
       }},
      {"Shtab::Multicast::Fib::Status", makeFibStatus},
      {std::string(Routing::Pim::SparseMode::Shtab::Status::kTypeName),
       [](std::string_view path) -> Ent::Ptr<Ent::Entity> {
         return Routing::Pim::SparseMode::Shtab::Status::fromMountPath(path);
       }},
  };
  return f;
}

std::string describe(std::string_view path, std::string_view typeName) {
  return "mount of " + std::string(typeName) + " at '" + std::string(path) + "'";
}

}  // namespace

EntityManager::EntityManager(Ent::Ptr<Ent::Dir> root, std::string name)
    : Ent::Entity(std::move(name)), root_(std::move(root)) {
  if (!root_) throw Ent::NullArgument("Stadb::EntityManager: null root");
}

std::string EntityManager::normalizedPath(std::string_view path) {
  std::string out;
  while (!path.empty()) {
    const size_t slash = path.find('/');
    const std::string_view c = path.substr(0, slash);
    if (!c.empty()) {
      if (!out.empty()) out.push_back('/');
      out.append(c);
    }
    if (slash == std::string_view::npos) break;
    path.remove_prefix(slash + 1);
  }
  return out;
}

Ent::Ptr<Ent::Entity> EntityManager::mount(std::string_view rawPath, std::string_view typeName,
                                           MountMode mode) {
  const std::string path = normalizedPath(rawPath);
  if (path.empty()) throw MountError(describe(rawPath, typeName) + ": empty path");
  auto it = mounts_.find(path);
  if (it == mounts_.end()) {
    Mount m;
    m.entity = root_->lookup(path);
    if (m.entity && m.entity->typeName() != typeName) {
      throw MountError(describe(path, typeName) + ": a " + std::string(m.entity->typeName()) +
                       " is there");
    }
    if (!m.entity) {
      auto f = factories().find(typeName);
      if (f == factories().end()) {
        throw MountError(describe(path, typeName) + ": nothing published and no factory");
      }
      m.entity = f->second(path);
      const size_t slash = path.rfind('/');
      const std::string leaf =
          Ent::urlUnquote(slash == std::string::npos ? path : path.substr(slash + 1));
      if (!m.entity || m.entity->typeName() != typeName || m.entity->name() != leaf) {
        throw MountError(describe(path, typeName) + ": the path does not name such a table");
      }
      Ent::Ptr<Ent::Dir> parent = slash == std::string::npos
                                      ? root_
                                      : root_->mkdirs(std::string_view(path).substr(0, slash));
      parent->entityIs(m.entity);
      m.created = true;
    }
    it = mounts_.emplace(path, std::move(m)).first;
  }
  Mount& m = it->second;
  if (m.entity->typeName() != typeName) {
    throw MountError(describe(path, typeName) + ": a " + std::string(m.entity->typeName()) +
                     " is there");
  }
  ++(mode == MountMode::reader ? m.readers : m.writers);
  return m.entity;
}

bool EntityManager::unmount(std::string_view rawPath, MountMode mode) {
  auto it = mounts_.find(normalizedPath(rawPath));
  if (it == mounts_.end()) return false;
  Mount& m = it->second;
  uint32_t& count = mode == MountMode::reader ? m.readers : m.writers;
  if (count == 0) return false;
  --count;
  if (m.readers + m.writers > 0) return true;
  if (m.created) {
    // Only if the directory still holds what the manager put there.
    const size_t slash = it->first.rfind('/');
    Ent::Ptr<Ent::Dir> parent =
        slash == std::string::npos ? root_ : root_->lookupAs<Ent::Dir>(it->first.substr(0, slash));
    if (parent && parent->entity(m.entity->name()) == m.entity) parent->entityDel(m.entity->name());
  }
  mounts_.erase(it);
  return true;
}

size_t EntityManager::mountCount(std::string_view path, MountMode mode) const {
  auto it = mounts_.find(normalizedPath(path));
  if (it == mounts_.end()) return 0;
  return mode == MountMode::reader ? it->second.readers : it->second.writers;
}

void EntityManager::typeFactoryIs(std::string typeName, Factory factory) {
  if (!factory) {
    factories().erase(typeName);
    return;
  }
  factories()[std::move(typeName)] = std::move(factory);
}

bool EntityManager::hasTypeFactory(std::string_view typeName) {
  return factories().find(typeName) != factories().end();
}

void MountGroup::unmountAll() {
  while (!mounts_.empty()) {
    Entry e = std::move(mounts_.back());
    mounts_.pop_back();
    e.manager->unmount(e.path, e.mode);
  }
}

}  // namespace Stadb
