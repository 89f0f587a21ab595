#pragma once

#include "platform/Ent/Coll.h"
#include "platform/Ent/Ptr.h"

namespace Routing::Pim::Snmp {

// Base of every row of the MIB store: counted, and linked into its table's tree itself (no
// separate tree node per row).
class StoreRow : public Ent::RefCounted, public Ent::OrderedHook {};

}  // namespace Routing::Pim::Snmp
