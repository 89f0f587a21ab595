#!/usr/bin/env bash
# Per-table request cost against the table size: walks and 20-varbind random GETs of each of
# the thirteen tables with 1k and 100k rows (bench/table_bench.py), written to the "Table size"
# sections of BENCHMARKS.md.
#
#   bench/run_table_bench.sh [BUILD_DIR] [RUNS] [SIZES]        agent CPU time per varbind
#   PIMSNMP_CALLGRIND=1 bench/run_table_bench.sh [BUILD_DIR] [RUNS] [SIZES]   instructions
#
# BUILD_DIR (default build-bench) is configured as a RelWithDebInfo build when it has no cache
# yet; only pimsnmp-testagent is built. RUNS defaults to 3 (1 under callgrind), SIZES to
# 1000,100000.
set -euo pipefail
cd "$(dirname "$0")/.."

build=${1:-build-bench}
callgrind=${PIMSNMP_CALLGRIND:-0}
if [ "$callgrind" = 1 ]; then runs=${2:-1}; else runs=${2:-3}; fi
sizes=${3:-1000,100000}

if [ ! -f "$build/CMakeCache.txt" ]; then
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
cmake --build "$build" -j 2 --target pimsnmp-testagent

args=(--agent "$build/tools/testagent/pimsnmp-testagent" --runs "$runs" --sizes "$sizes"
      --benchmarks BENCHMARKS.md)
if [ "$callgrind" = 1 ]; then
  args+=(--callgrind --command "PIMSNMP_CALLGRIND=1 bench/run_table_bench.sh $build $runs $sizes")
else
  args+=(--command "bench/run_table_bench.sh $build $runs $sizes")
fi
python3 bench/table_bench.py "${args[@]}"
