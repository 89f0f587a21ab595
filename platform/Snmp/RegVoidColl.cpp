#include "platform/Snmp/RegVoidColl.h"

namespace Snmp {

RegVoidCollByContext& RegVoidCollByContext::instance() {
  static RegVoidCollByContext coll;
  return coll;
}

void* RegVoidCollByContext::addRegVoid(std::string_view context, std::string_view name,
                                       Ent::Ptr<Ent::Entity> entity) {
  auto it = records_.find(View(context, name));
  if (it == records_.end()) {
    auto record = std::make_unique<RegVoid>(RegVoid{std::string(context), std::string(name), {}});
    it = records_.emplace(Key(record->context, record->name), std::move(record)).first;
  }
  it->second->entity = std::move(entity);
  return it->second.get();
}

bool RegVoidCollByContext::delRegVoid(std::string_view context, std::string_view name) {
  auto it = records_.find(View(context, name));
  if (it == records_.end()) return false;
  records_.erase(it);
  return true;
}

size_t RegVoidCollByContext::delContext(std::string_view context) {
  // The names of a context are contiguous: from (context, "") up to the next context.
  auto first = records_.lower_bound(View(context, std::string_view()));
  auto last = first;
  size_t n = 0;
  while (last != records_.end() && last->first.first == context) {
    ++last;
    ++n;
  }
  records_.erase(first, last);
  return n;
}

const RegVoid* RegVoidCollByContext::regVoid(std::string_view context,
                                             std::string_view name) const {
  auto it = records_.find(View(context, name));
  return it == records_.end() ? nullptr : it->second.get();
}

size_t RegVoidCollByContext::count(std::string_view context) const {
  size_t n = 0;
  for (auto it = records_.lower_bound(View(context, std::string_view()));
       it != records_.end() && it->first.first == context; ++it) {
    ++n;
  }
  return n;
}

}  // namespace Snmp
