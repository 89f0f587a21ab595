#!/usr/bin/env bash
# Table-walk benchmark: bulk-walks ipMcastRouteTable with 1k and 100k IPv4 routes and two stock
# net-snmp tables with the same rows, the iterator floor and the container reference
# (bench/walk_bench.py), and writes the figures to the "Table walk" section of BENCHMARKS.md.
#
#   bench/run_walk_bench.sh [BUILD_DIR] [RUNS] [SIZES]
#
# BUILD_DIR (default build-bench) is configured as a Release build when it has no cache yet;
# only pimsnmp-testagent is built. RUNS defaults to 5, SIZES to 1000,100000.
set -euo pipefail
cd "$(dirname "$0")/.."

build=${1:-build-bench}
runs=${2:-5}
sizes=${3:-1000,100000}

if [ ! -f "$build/CMakeCache.txt" ]; then
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
fi
cmake --build "$build" -j 2 --target pimsnmp-testagent
build_type=$(sed -n 's/^CMAKE_BUILD_TYPE:[A-Z]*=//p' "$build/CMakeCache.txt")

python3 bench/walk_bench.py --agent "$build/tools/testagent/pimsnmp-testagent" --runs "$runs" \
  --sizes "$sizes" --benchmarks BENCHMARKS.md \
  --command "bench/run_walk_bench.sh $build $runs $sizes" --build-type "${build_type:-default}"
