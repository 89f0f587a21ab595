#!/usr/bin/env bash
# Sets up (scripts/bootstrap.sh), builds, and runs pimsnmpd in the foreground on the bundled
# demo state (examples/demo-state.json) with --simulate: a master agent on 127.0.0.1:1161
# (PIMSNMP_DEMO_PORT overrides), VRFs default and red (IPv4) and blue (IPv6). Counters grow,
# a neighbor flaps (pimNeighborLoss to 127.0.0.1:1162) and routes come and go. Ctrl-C stops it.
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/bootstrap.sh
build=${PIMSNMP_BUILD_DIR:-build}
port=${PIMSNMP_DEMO_PORT:-1161}
trap_port=${PIMSNMP_DEMO_TRAP_PORT:-1162}

cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j "$(nproc)" --target pimsnmpd pimsnmpctl

# Everything the demo writes stays in one private directory, removed on exit.
run=$(mktemp -d "${TMPDIR:-/tmp}/pimsnmp-demo.XXXXXX")
trap 'rm -rf "$run"' EXIT
# The shipped configuration with the demo's passphrases in place of the CHANGE-ME ones
# (loopback only; never use these on a real agent), and a trap sink for the demo receiver.
demo_auth=pimsnmp-demo-auth
demo_priv=pimsnmp-demo-priv
{
  sed -e "s/CHANGE-ME-auth-passphrase/$demo_auth/" -e "s/CHANGE-ME-priv-passphrase/$demo_priv/" \
    packaging/pimsnmpd.conf
  echo "trap2sink 127.0.0.1:$trap_port public"
} >"$run/pimsnmpd.conf"
grep -q "createUser pimsnmp SHA \"$demo_auth\" AES \"$demo_priv\"" "$run/pimsnmpd.conf" || {
  echo "demo.sh: packaging/pimsnmpd.conf no longer has the CHANGE-ME passphrases" >&2
  exit 1
}
printf 'disableAuthorization yes\n' >"$run/snmptrapd.conf"

mibs="-M +$PWD/packaging/mibs -m PIMSNMP-PIM-MIB:PIMSNMP-IPMROUTE-MIB:PIMSNMP-IPMCAST-MIB"
a="127.0.0.1:$port"
cat <<EOT

pimsnmpd demo: master agent on udp/tcp $a, state examples/demo-state.json (simulated).
Contexts: "" (VRF default), red, blue (IPv6 only). Try, in another shell:

  # PIM-MIB (1.3.6.1.3.61), IPMROUTE-STD-MIB (1.3.6.1.2.1.83), IP-MCAST-MIB (1.3.6.1.2.1.168)
  snmpwalk     -v2c -c public     $a 1.3.6.1.3.61          # VRF default
  snmpwalk     -v2c -c public-red $a 1.3.6.1.3.61          # VRF red (v2c community per VRF)
  snmpwalk     -v3 -u pimsnmp -l authPriv -a SHA -A $demo_auth -x AES -X $demo_priv -n red $a 1.3.6.1.2.1.83
  snmpbulkwalk -v2c -c public-blue $a 1.3.6.1.2.1.168     # VRF blue: IP-MCAST-MIB only
  snmptable    -v2c -c public $mibs -Ci $a pimNeighborTable
  snmptable    -v2c -c public-red $mibs -Ci $a ipMRouteTable
  snmptable    -v2c -c public-blue $mibs -Ci -Cw 200 $a ipMcastRouteTable

  # pimNeighborLoss notifications (a neighbor of VRF default flaps every 12 s):
  snmptrapd -f -Lo -n -C -c $run/snmptrapd.conf udp:127.0.0.1:$trap_port

  # The daemon: status, the document, a patch, trace levels
  $build/daemon/pimsnmpctl -s $run/feed.sock status
  $build/daemon/pimsnmpctl -s $run/feed.sock patch examples/patch-remove-neighbor.json
  $build/daemon/pimsnmpctl -s $run/feed.sock trace 'PimSnmpAgent/8'

Ctrl-C stops the daemon.

EOT

"$build/daemon/pimsnmpd" \
  --state examples/demo-state.json \
  --simulate \
  --listen "udp:$a,tcp:$a" \
  --config "$run/pimsnmpd.conf" \
  --community-prefix public \
  --feed "unix:$run/feed.sock" \
  --persistent-dir "$run/persist"
