#!/usr/bin/env bash
# Feed benchmark: 100k routes with two OIFs each sent to pimsnmpd as merge patches of 1000,
# 100 and 1 routes (bench/feed_bench.py); writes the figures to the "Feed" section of
# BENCHMARKS.md.
#
#   bench/run_feed_bench.sh [BUILD_DIR] [RUNS] [ROUTES] [BATCH] [CALLGRIND_ROUTES]
#
# BUILD_DIR (default build-feed-bench) is configured as a Release build (-O3, as deployed) when
# it has no cache yet; only pimsnmpd is built. RUNS (per batch size) defaults to 3, ROUTES to
# 100000, BATCH (routes per patch, comma-separated) to 1000,100,1. With valgrind installed,
# one more run of CALLGRIND_ROUTES routes in patches of the first BATCH
# (default 20000; 0 skips it) counts the daemon's instructions per route, a figure that does
# not move with the machine's load as the timings do. bench/feed_document_bench counts the heap
# the daemon's copy of the document holds for the same routes, and bench/feed_floor what a line
# costs a server that does no work at all, the floor under the one-route-per-line figure.
set -euo pipefail
cd "$(dirname "$0")/.."

build=${1:-build-feed-bench}
runs=${2:-3}
routes=${3:-100000}
batch=${4:-1000,100,1}
cg_routes=${5:-20000}
command -v valgrind >/dev/null || cg_routes=0

if [ ! -f "$build/CMakeCache.txt" ]; then
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
fi
cmake --build "$build" -j 2 --target pimsnmpd feed_document_bench feed_floor
# The document's own heap per route, counted by allocation (not by RSS).
document=$("$build/bench/feed_document_bench" "$routes")
echo "$document"

python3 bench/feed_bench.py --daemon "$build/daemon/pimsnmpd" --runs "$runs" --routes "$routes" \
  --batch "$batch" --build "$(sed -n 's/^CMAKE_BUILD_TYPE:STRING=//p' "$build/CMakeCache.txt")" \
  --callgrind "$cg_routes" --benchmarks BENCHMARKS.md --document "$document" \
  --floor "$build/bench/feed_floor" \
  --command "bench/run_feed_bench.sh $build $runs $routes $batch $cg_routes"
