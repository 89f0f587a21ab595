#pragma once

#include <cstdint>

#include "platform/Ent/Coll.h"

namespace Routing::Pim::Snmp {

// Base of every row of the MIB store: counted, and linked into its table's tree itself (no
// separate tree node per row). The last count deletes the row as its own type `Row`, so rows
// need no virtual destructor: a row without virtual members carries no vtable pointer, which
// is 8 bytes of every row and, for the small next-hop rows, a smaller allocation.
template <class Row>
class StoreRow : public Ent::OrderedHook {
 public:
  StoreRow() = default;
  StoreRow(const StoreRow&) = delete;
  StoreRow& operator=(const StoreRow&) = delete;

  void ref() const noexcept { ++refs_; }
  void unref() const noexcept {
    if (--refs_ == 0) delete static_cast<const Row*>(this);
  }
  uint32_t refCount() const noexcept { return refs_; }

 protected:
  ~StoreRow() = default;

 private:
  mutable uint32_t refs_ = 0;
};

}  // namespace Routing::Pim::Snmp
