#pragma once

// Live heap bytes of the process, as glibc's allocator takes them (8-byte header, 16-byte
// granules, 32-byte minimum): modelled so that a figure does not depend on the allocator build.
// Linking CountingHeap.cpp replaces the global operator new/delete.

namespace Bench {

long long heapBytes();

}  // namespace Bench
