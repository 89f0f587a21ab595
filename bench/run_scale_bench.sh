#!/usr/bin/env bash
# Many-VRF benchmark: a grid of VRF counts x routes per VRF; load time, RSS, per-varbind cost of
# a bulk walk and of 20-varbind GETs in one VRF through --community-prefix, hand-written com2sec
# lines, rocommunity lines and v3, against the one-VRF case; VRF churn RSS (bench/scale_bench.py).
# Writes the "Scale" section of BENCHMARKS.md.
#
#   bench/run_scale_bench.sh [BUILD_DIR] [GRID] [--callgrind] [extra scale_bench.py options]
#
# GRID defaults to 1x1000,1000x1000 (a million routes: about 4 GiB and minutes to load; on a
# small machine use 1x100,1000x100,1x1000,100x1000). --callgrind counts instructions instead of
# CPU time (up to about 100k routes per point: valgrind loads them some 10x slower); load time
# and RSS are then measured by an extra run without valgrind.
set -euo pipefail
cd "$(dirname "$0")/.."

build=${1:-build-bench}
grid=${2:-1x1000,1000x1000}
shift $(($# < 2 ? $# : 2))

if [ ! -f "$build/CMakeCache.txt" ]; then
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
fi
cmake --build "$build" -j 2 --target pimsnmpd

python3 bench/scale_bench.py --pimsnmpd "$build/daemon/pimsnmpd" --grid "$grid" "$@" \
  --benchmarks BENCHMARKS.md --command "bench/run_scale_bench.sh $build $grid $*"
