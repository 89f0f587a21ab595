#!/usr/bin/env bash
# Where a table walk's time goes: runs pimsnmp-testagent under callgrind with ROWS generated
# routes and the two stock yardstick tables (--reference), bulk-walks ipMcastRouteTable, the
# iterator floor and the container reference in turn (snmpbulkwalk -v2c -Cr50), dumping the
# counts after each walk, and prints instructions per varbind for each walk and for the
# handlers of the request path (bench/callgrind_summary.py).
#
#   bench/profile_walk.sh [BUILD_DIR] [ROWS] [KEEP_DIR]     (default build-bench, 2000)
#
# With KEEP_DIR the three callgrind dumps are kept there (cg.out.1 ours, .2 floor, .3
# reference) for callgrind_annotate --tree=calling. With PIMSNMP_PROFILE_CACHE=1 callgrind also
# simulates the caches, and each walk's simulated instruction-cache misses per varbind are shown.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build-bench}
rows=${2:-2000}
keep=${3:-}
cache=${PIMSNMP_PROFILE_CACHE:-0}
callgrind=(valgrind --tool=callgrind)
if [ "$cache" = 1 ]; then callgrind+=(--cache-sim=yes); fi
agent="$build/tools/testagent/pimsnmp-testagent"
[ -x "$agent" ] || { echo "no $agent: run bench/run_walk_bench.sh $build first" >&2; exit 1; }

dir=$(mktemp -d /tmp/pimsnmp-profile-XXXXXX)
pid=""
cleanup() {
  if [ -n "$pid" ]; then kill "$pid" 2>/dev/null || true; wait "$pid" 2>/dev/null || true; fi
  rm -rf "$dir"
}
trap cleanup EXIT
export MIBS= SNMP_PERSISTENT_DIR="$dir/p" SNMPCONFPATH="$dir"
echo "rocommunity public 127.0.0.1" > "$dir/agent.conf"
port=$(python3 -c 'import socket; s=socket.socket(socket.AF_INET, socket.SOCK_DGRAM); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')

"${callgrind[@]}" --callgrind-out-file="$dir/cg.out" "$agent" --port "$port" \
  --config "$dir/agent.conf" --persistent-dir "$dir/ap" --bare --routes "$rows" --reference \
  > "$dir/agent.out" 2> "$dir/agent.err" &
pid=$!
for _ in $(seq 1 300); do grep -q ready "$dir/agent.out" 2>/dev/null && break; sleep 1; done
grep -q ready "$dir/agent.out" || { echo "the agent did not start" >&2; exit 1; }

walk() {
  snmpbulkwalk -v2c -c public -Cr50 -Oqn -t 60 -r 0 "udp:127.0.0.1:$port" "$1" |
    grep -c "^\.$1\.[^ ]* [^N]" || true
}
callgrind_control -z "$pid" > /dev/null
ours=$(walk 1.3.6.1.2.1.168.1.5)
callgrind_control -d ours "$pid" > /dev/null
floor=$(walk 1.3.6.1.4.1.99999.2)
callgrind_control -d floor "$pid" > /dev/null
ref=$(walk 1.3.6.1.4.1.99999.1)
callgrind_control -d reference "$pid" > /dev/null

report() {
  callgrind_annotate --inclusive=yes --threshold=100 --show=Ir --auto=no "$1" 2>/dev/null |
    python3 bench/callgrind_summary.py "$2" "$3"
  if [ "$cache" = 1 ]; then
    callgrind_annotate --show=I1mr --auto=no "$1" 2>/dev/null | awk -v v="$2" \
      '/PROGRAM TOTALS/ {gsub(",", "", $1); printf "  %-44s %8.0f\n", "instruction-cache misses (simulated)", $1 / v}'
  fi
}
report "$dir/cg.out.1" "$ours" "ipMcastRouteTable"
report "$dir/cg.out.2" "$floor" "iterator floor"
report "$dir/cg.out.3" "$ref" "reference"
if [ -n "$keep" ]; then
  mkdir -p "$keep"
  cp "$dir"/cg.out.1 "$dir"/cg.out.2 "$dir"/cg.out.3 "$keep"/
fi
