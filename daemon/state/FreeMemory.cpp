#include "daemon/state/FreeMemory.h"

#include <malloc.h>

#include <cstddef>

// jemalloc's control interface, when the daemon is linked against it; null otherwise (tests,
// sanitizer builds, hosts without jemalloc).
extern "C" int mallctl(const char* name, void* oldp, size_t* oldlenp, void* newp, size_t newlen)
    __attribute__((weak));

namespace PimSnmpd {

void releaseFreeMemory() {
  if (mallctl != nullptr) {
    // "arena.<MALLCTL_ARENAS_ALL>.purge": every arena, without jemalloc's header.
    mallctl("arena.4096.purge", nullptr, nullptr, nullptr, 0);
  } else {
    malloc_trim(0);
  }
}

}  // namespace PimSnmpd
