#include "platform/Ent/Dir.h"

#include "platform/Ent/Error.h"

namespace Ent {

namespace {

bool unreserved(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '_' || c == '.' || c == '~';
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Splits off the first component of a path; skips empty components.
std::string_view nextComponent(std::string_view& path) {
  while (!path.empty() && path.front() == '/') path.remove_prefix(1);
  size_t slash = path.find('/');
  std::string_view head = path.substr(0, slash);
  path = slash == std::string_view::npos ? std::string_view{} : path.substr(slash + 1);
  return head;
}

}  // namespace

std::string urlQuote(std::string_view s) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(s.size());
  for (unsigned char c : s) {
    if (unreserved(c)) {
      out.push_back(static_cast<char>(c));
    } else {
      out.push_back('%');
      out.push_back(kHex[c >> 4]);
      out.push_back(kHex[c & 0xF]);
    }
  }
  return out;
}

std::string urlUnquote(std::string_view s) {
  std::string out;
  out.reserve(s.size());
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '%' && i + 2 < s.size()) {
      int hi = hexValue(s[i + 1]), lo = hexValue(s[i + 2]);
      if (hi >= 0 && lo >= 0) {
        out.push_back(static_cast<char>(hi * 16 + lo));
        i += 2;
        continue;
      }
    }
    out.push_back(s[i]);
  }
  return out;
}

std::string childPath(std::string_view dir, std::string_view name) {
  std::string out(dir);
  out += '/';
  out += urlQuote(name);
  return out;
}

Ptr<Entity> Dir::entity(std::string_view name) const {
  auto it = children_.find(name);
  return it == children_.end() ? nullptr : it->second;
}

void Dir::entityIs(Ptr<Entity> e) {
  if (!e) throw NullArgument("Dir::entityIs: null entity");
  auto [it, inserted] = children_.try_emplace(e->name(), e);
  if (!inserted) {
    if (it->second == e) return;
    it->second = std::move(e);
  }
  notify(attrEntity, &it->first);
}

Ptr<Entity> Dir::entityDel(std::string_view name) {
  auto it = children_.find(name);
  if (it == children_.end()) return nullptr;
  Ptr<Entity> e = std::move(it->second);
  const std::string key = it->first;
  children_.erase(it);
  notify(attrEntity, &key);
  return e;
}

void Dir::entityDelAll() {
  while (!children_.empty()) entityDel(std::string(children_.begin()->first));
}

Ptr<Dir> Dir::mkdir(std::string_view name) {
  if (Ptr<Entity> e = entity(name)) {
    Ptr<Dir> d = ptrCast<Dir>(e);
    if (!d) throw Error("Dir::mkdir: '" + std::string(name) + "' is not a directory");
    return d;
  }
  Ptr<Dir> d = make<Dir>(std::string(name));
  entityIs(d);
  return d;
}

Ptr<Dir> Dir::mkdirs(std::string_view path) {
  Ptr<Dir> d(const_cast<Dir*>(this));
  while (!path.empty()) {
    std::string_view c = nextComponent(path);
    if (!c.empty()) d = d->mkdir(urlUnquote(c));
  }
  return d;
}

Ptr<Entity> Dir::lookup(std::string_view path) const {
  Ptr<Entity> cur(const_cast<Dir*>(this));
  while (cur) {
    std::string_view c = nextComponent(path);
    if (c.empty()) return cur;
    const Dir* dir = dynamic_cast<const Dir*>(cur.get());
    if (!dir) return nullptr;
    std::string name = urlUnquote(c);
    if (Ptr<Entity> child = dir->entity(name)) {
      cur = child;
      continue;
    }
    // "entity.attr/key": step through a keyed collection of `entity`.
    size_t dot = c.rfind('.');
    if (dot == std::string_view::npos) return nullptr;
    Ptr<Entity> owner = dir->entity(urlUnquote(c.substr(0, dot)));
    std::string_view key = nextComponent(path);
    if (!owner || key.empty()) return nullptr;
    cur = owner->childEntity(c.substr(dot + 1), urlUnquote(key));
  }
  return nullptr;
}

}  // namespace Ent
