// jemalloc's start-up options, read from this symbol when pimsnmpd is linked against it
// (MALLOC_CONF in the environment still overrides them).
//
// thp:always asks the kernel for transparent huge pages behind jemalloc's arenas. A large state
// is hundreds of megabytes touched for the first time as it loads, and on a virtual machine each
// 4 KiB page fault costs several microseconds: at a million routes the faults were a fifth of
// the load's CPU, and the feed's kernel time was mostly faults. With 2 MiB pages there are 512
// times fewer. The price is a few MiB more for an empty daemon. Hosts whose kernel has THP
// "never" are unaffected; MALLOC_CONF=thp:default turns it off.
extern "C" {
extern const char* malloc_conf;
const char* malloc_conf = "thp:always,metadata_thp:auto";
}
