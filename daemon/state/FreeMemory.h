#pragma once

// Hands the allocator's free pages back to the system. Worth its cost only after freeing a
// lot at once (a whole document's tree, say): neither allocator does it promptly by itself.
// glibc keeps the top of its heap; jemalloc purges unused pages only as later allocations
// pass by, and an idle daemon makes none.

namespace PimSnmpd {

void releaseFreeMemory();

}  // namespace PimSnmpd
