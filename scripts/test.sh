#!/usr/bin/env bash
# Sets up, builds and runs the whole test suite twice: a normal build and an
# AddressSanitizer + UndefinedBehaviorSanitizer build; then a short run of each fuzz target.
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/bootstrap.sh
jobs=$(nproc)

run_config() {
  local dir=$1; shift
  cmake -S . -B "$dir" -G Ninja "$@" >/dev/null
  cmake --build "$dir" -j "$jobs"
  echo "-- $dir built at ${SECONDS}s"
  (cd "$dir" && ctest --output-on-failure -j "$jobs" --timeout 300)
  echo "-- $dir tested at ${SECONDS}s"
}

echo "== normal build"
# Line tables only (-g1): enough for a backtrace, and much less to compile and link.
run_config build -DCMAKE_BUILD_TYPE=RelWithDebInfo "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O2 -g1 -DNDEBUG"
echo "== sanitizer build (ASan + UBSan)"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  run_config build-asan -DCMAKE_BUILD_TYPE=Debug -DPIMSNMP_SANITIZE=ON
echo "== fuzzing (libFuzzer, ${FUZZ_SECONDS:-20} s per target)"
FUZZ_SECONDS=${FUZZ_SECONDS:-20} ./scripts/fuzz.sh
echo "-- done at ${SECONDS}s"
