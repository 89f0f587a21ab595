#!/usr/bin/env bash
# Live FRR lab (run as root): four FRR routers in network namespaces with multicast traffic and
# a BSR (tests/lab/frrlab.sh), and pimsnmpd fed by pimsnmp-frr in router r4's namespace. Prints
# the commands that watch r4's live PIM state over SNMP; Ctrl-C (or PIMSNMP_LAB_SECONDS,
# default 3600) ends it and removes the namespaces and every process it started.
#
# Environment: PIMSNMP_BUILD_DIR (default build), PIMSNMPD and PIMSNMP_FRR (binaries, default
# from the build directory), PIMSNMP_LAB_NS (namespace prefix, default pslab).
set -euo pipefail
cd "$(dirname "$0")/.."
repo=$PWD

if [ "$(id -u)" -ne 0 ]; then
  echo "lab.sh: needs root for network namespaces: sudo $0" >&2
  exit 1
fi
build=${PIMSNMP_BUILD_DIR:-build}
pimsnmpd=${PIMSNMPD:-$build/daemon/pimsnmpd}
feeder=${PIMSNMP_FRR:-$build/pimsnmp-frr/pimsnmp-frr}
if [ ! -x "$pimsnmpd" ] || [ ! -x "$feeder" ]; then
  ./scripts/bootstrap.sh
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  cmake --build "$build" -j "$(nproc)" --target pimsnmpd pimsnmp-frr
fi
pimsnmpd=$(realpath "$pimsnmpd")
feeder=$(realpath "$feeder")

export LAB_NS=${PIMSNMP_LAB_NS:-pslab}
export LAB_SECONDS=${PIMSNMP_LAB_SECONDS:-3600}
if ip netns list | grep -q "^$LAB_NS-"; then
  echo "lab.sh: namespaces $LAB_NS-* exist already (another lab?); remove them with" >&2
  echo "  LAB_NS=$LAB_NS $repo/tests/lab/frrlab.sh down" >&2
  exit 1
fi
LAB_DIR=$(mktemp -d "${TMPDIR:-/tmp}/pimsnmp-lab.XXXXXX")
export LAB_DIR
chmod 711 "$LAB_DIR"  # FRR's daemons (user frr) reach their directories below it
lab=tests/lab/frrlab.sh
cleanup() {
  echo "lab.sh: stopping the lab"
  "$lab" down
  rm -rf "$LAB_DIR"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

echo "lab.sh: starting FRR in namespaces $LAB_NS-{r1,r2,r3,r4,h1,h2,h3,bsr}"
if ! "$lab" up 2>"$LAB_DIR/up.log"; then
  cat "$LAB_DIR/up.log" >&2
  echo "lab.sh: the lab did not come up" >&2
  exit 1
fi
"$lab" traffic
r4=$LAB_NS-r4
printf 'rocommunity public 127.0.0.1\ntrap2sink 127.0.0.1:162 public\n' >"$LAB_DIR/pimsnmpd.conf"
printf 'disableAuthorization yes\n' >"$LAB_DIR/snmptrapd.conf"
ip netns exec "$r4" snmptrapd -f -Lf "$LAB_DIR/traps.log" -n -C -c "$LAB_DIR/snmptrapd.conf" \
  udp:127.0.0.1:162 </dev/null >/dev/null 2>&1 &
ip netns exec "$r4" "$pimsnmpd" --listen udp:127.0.0.1:161 --feed "unix:$LAB_DIR/feed.sock" \
  --config "$LAB_DIR/pimsnmpd.conf" --persistent-dir "$LAB_DIR/persist" \
  </dev/null >"$LAB_DIR/pimsnmpd.log" 2>&1 &
for _ in $(seq 50); do [ -S "$LAB_DIR/feed.sock" ] && break; sleep 0.1; done
ip netns exec "$r4" "$feeder" --vty-dir "$LAB_DIR/r4" --feed "unix:$LAB_DIR/feed.sock" \
  </dev/null >"$LAB_DIR/pimsnmp-frr.log" 2>&1 &

in4="sudo ip netns exec $r4"
mibs=""
if MIBS= snmptranslate -M "+$repo/packaging/mibs" -m ALL pimNeighborTable >/dev/null 2>&1; then
  mibs="-M +$repo/packaging/mibs -m ALL"
fi
cat <<EOT

Live FRR lab: pimsnmpd and pimsnmp-frr run in r4's namespace ($r4), agent on 127.0.0.1:161
there. r4's neighbors are r2 (10.99.50.2) and r3 (10.99.50.3) on r4-lan; h1 sends to 239.1.1.1
from 10.99.1.10 and .11, h3 behind r4 receives; static RP 10.99.1.1, BSR RPs for 239/8 and
238/8. In another shell:

  # PIM-MIB, IPMROUTE-STD-MIB, IP-MCAST-MIB
  $in4 snmpwalk -v2c -c public 127.0.0.1 1.3.6.1.3.61
  $in4 snmpwalk -v2c -c public 127.0.0.1 1.3.6.1.2.1.83
  $in4 snmpbulkwalk -v2c -c public 127.0.0.1 1.3.6.1.2.1.168
EOT
if [ -n "$mibs" ]; then
  cat <<EOT
  $in4 snmptable -v2c -c public $mibs -Ci 127.0.0.1 pimNeighborTable
  $in4 snmptable -v2c -c public $mibs -Ci 127.0.0.1 pimRPSetTable
  $in4 snmptable -v2c -c public $mibs -Ci 127.0.0.1 ipMRouteTable
  $in4 snmptable -v2c -c public $mibs -Ci -Cw 200 127.0.0.1 ipMcastRouteTable
EOT
fi
cat <<EOT

  # Watch the counters grow (ipMRoutePkts of both flows)
  watch -n1 "$in4 snmpwalk -v2c -c public 127.0.0.1 1.3.6.1.2.1.83.1.1.2.1.8"

  # pimNeighborLoss: stop r2's pimd, then read the trap log
  sudo kill \$(cat $LAB_DIR/r2/pimd.pid)
  tail -f $LAB_DIR/traps.log

  # The receiver behind r4 leaves: its route rows go
  sudo kill \$(cat $LAB_DIR/recv-h3.app.pid)

  # FRR's own view of r4, and the logs
  sudo LAB_NS=$LAB_NS LAB_DIR=$LAB_DIR $repo/$lab vtysh r4 -c 'show ip pim neighbor'
  less $LAB_DIR/pimsnmp-frr.log $LAB_DIR/pimsnmpd.log

Ctrl-C stops the lab (it ends by itself after $LAB_SECONDS s).
EOT
sleep "$LAB_SECONDS" &
wait $!
