#!/usr/bin/env bash
# Where a table walk's time goes: runs pimsnmp-testagent under callgrind with ROWS generated
# routes and the reference table, bulk-walks ipMcastRouteTable and then the reference
# (snmpbulkwalk -v2c -Cr50), dumping the counts after each walk, and prints instructions per
# varbind for each walk and for the handlers of the request path (bench/callgrind_summary.py).
#
#   bench/profile_walk.sh [BUILD_DIR] [ROWS]        (default build-bench, 2000)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build-bench}
rows=${2:-2000}
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

valgrind --tool=callgrind --callgrind-out-file="$dir/cg.out" "$agent" --port "$port" \
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
ref=$(walk 1.3.6.1.4.1.99999.1)
callgrind_control -d reference "$pid" > /dev/null

report() {
  callgrind_annotate --inclusive=yes --auto=no "$1" 2>/dev/null |
    python3 bench/callgrind_summary.py "$2" "$3"
}
report "$dir/cg.out.1" "$ours" "ipMcastRouteTable"
report "$dir/cg.out.2" "$ref" "reference"
