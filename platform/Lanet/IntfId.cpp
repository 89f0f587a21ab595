#include "platform/Lanet/IntfId.h"

#include <ostream>
#include <unordered_map>

#include "platform/Lanet/Hash.h"

namespace Lanet {

namespace {

// Keyed by a view of the record's own name. Never destroyed: ids in static objects may be
// dropped after this translation unit's statics are gone.
std::unordered_map<std::string_view, void*>& table() {
  static auto* t = new std::unordered_map<std::string_view, void*>();
  return *t;
}

}  // namespace

IntfId::Rec* IntfId::intern(std::string_view name) {
  if (name.empty()) return nullptr;
  auto& t = table();
  if (auto it = t.find(name); it != t.end()) {
    Rec* rec = static_cast<Rec*>(it->second);
    ++rec->refs;
    return rec;
  }
  Rec* rec = new Rec{std::string(name), std::hash<std::string_view>()(name), 1};
  t.emplace(rec->name, rec);
  return rec;
}

void IntfId::release(Rec* rec) {
  table().erase(rec->name);
  delete rec;
}

const std::string& IntfId::emptyName() {
  static const std::string* empty = new std::string();
  return *empty;
}

size_t IntfId::internedCount() {
  return table().size();
}

size_t IntfId::hash(size_t seed) const {
  static const size_t kEmptyHash = std::hash<std::string_view>()(std::string_view());
  return hashCombine(seed, rec_ ? rec_->nameHash : kEmptyHash);
}

std::ostream& operator<<(std::ostream& os, const IntfId& intf) {
  return os << intf.name();
}

}  // namespace Lanet
