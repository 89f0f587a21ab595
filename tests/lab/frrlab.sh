#!/bin/bash
# A four-router FRR PIM-SM lab in network namespaces, shared by the lab test, scripts/lab.sh and
# the FRR benchmark.
#
#   frrlab.sh up | traffic | down | vtysh ROUTER ARGS... | restart-pimd ROUTER | pids
#
# Environment: LAB_NS (namespace prefix, default "pslab"), LAB_DIR (runtime directory, default
# ${TMPDIR:-/tmp}/$LAB_NS), LAB_SECONDS (how long traffic, receivers and the BSR run, default
# 120), LAB_PPS (sender rate, default 20), LAB_BSM_PERIOD (default 5), LAB_ROOTLESS=1 inside an
# unprivileged user namespace (daemons run as the namespace's root).
#
#   h1 (sources 10.99.1.10,.11)               bsr (fake BSR, lo 10.99.100.1, bsr-r1 10.99.9.10)
#        | h1-r1 / r1-h1 10.99.1.0/24            | bsr-r1 / r1-bsr 10.99.9.0/24
#       r1  (first-hop router, static RP 10.99.1.1, also the RP the BSR elects)
#      r1-r2 |10.99.12.0/24      \ r1-r3 10.99.13.0/24
#       r2                        r3 (DR on the LAN, IGMP for h2)
#        r2-lan .2                 r3-lan .3
#        ===== LAN 10.99.50.0/24 (bridge "lan" in h2; h2 = 10.99.50.10 receiver) =====
#                      r4-lan .4
#                       r4  (RPF via r2; receiver h3 behind it) -> r2 and r3 both forward
#                        | r4-h3 10.99.4.0/24                       onto the LAN -> asserts
#                       h3 10.99.4.10 (receiver)
#
# Traffic: h1's 10.99.1.10 and .11 send to 239.1.1.1, 10.99.1.10 also to 239.1.1.3 (no
# receivers); h2 and h3 join 239.1.1.1-2 (239.1.1.2 has no source: (*,G) only). The fake BSR
# announces 239.0.0.0/8 -> 10.99.1.1 (priority 10), 10.99.13.1 (20) and 238.0.0.0/8 -> 10.99.1.1.
# Every address and packet stays inside these namespaces; every process stops on its own
# after LAB_SECONDS, and `down` removes the namespaces and whatever still runs in them.
set -u
NSP=${LAB_NS:-pslab}
LAB=${LAB_DIR:-${TMPDIR:-/tmp}/$NSP}
HERE=$(cd "$(dirname "$0")" && pwd)
FRR=/usr/lib/frr
ROUTERS="r1 r2 r3 r4"
HOSTS="h1 h2 h3 bsr"
SECONDS_=${LAB_SECONDS:-120}

ns() { echo "$NSP-$1"; }
in_ns() { local n; n=$(ns "$1"); shift; ip netns exec "$n" "$@"; }
vtysh_() {
  local r=$1; shift
  local cfg=()
  [ "${LAB_ROOTLESS:-0}" = 1 ] && cfg=(--config_dir "$LAB")
  in_ns "$r" vtysh "${cfg[@]}" --vty_socket "$LAB/$r" "$@"
}
# Polls a command until it succeeds, at most $1 tenths of a second.
until_() {
  local n=$1; shift
  for _ in $(seq "$n"); do "$@" >/dev/null 2>&1 && return 0; sleep 0.1; done
  echo "frrlab: timed out waiting for: $*" >&2
  return 1
}

topology() {
  for n in $ROUTERS $HOSTS; do ip netns add "$(ns $n)" && ip -n "$(ns $n)" link set lo up || return 1; done
  veth() { ip link add "$2" netns "$(ns $1)" type veth peer name "$4" netns "$(ns $3)"; }
  veth h1 h1-r1 r1 r1-h1 && veth bsr bsr-r1 r1 r1-bsr && veth r1 r1-r2 r2 r2-r1 &&
    veth r1 r1-r3 r3 r3-r1 && veth r2 r2-lan h2 lan-r2 && veth r3 r3-lan h2 lan-r3 &&
    veth r4 r4-lan h2 lan-r4 && veth r4 r4-h3 h3 h3-r4 || return 1
  ip -n "$(ns h2)" link add lan type bridge mcast_snooping 0
  for p in lan-r2 lan-r3 lan-r4; do
    ip -n "$(ns h2)" link set $p master lan && ip -n "$(ns h2)" link set $p up
  done
  ip -n "$(ns h2)" link set lan up
  A() { ip -n "$(ns $1)" addr add "$3" dev "$2" && ip -n "$(ns $1)" link set "$2" up; }
  A h1 h1-r1 10.99.1.10/24 && ip -n "$(ns h1)" addr add 10.99.1.11/24 dev h1-r1 &&
    A r1 r1-h1 10.99.1.1/24 && A r1 r1-bsr 10.99.9.1/24 &&
    A bsr bsr-r1 10.99.9.10/24 && ip -n "$(ns bsr)" addr add 10.99.100.1/32 dev lo &&
    A r1 r1-r2 10.99.12.1/24 && A r2 r2-r1 10.99.12.2/24 &&
    A r1 r1-r3 10.99.13.1/24 && A r3 r3-r1 10.99.13.3/24 &&
    A r2 r2-lan 10.99.50.2/24 && A r3 r3-lan 10.99.50.3/24 && A r4 r4-lan 10.99.50.4/24 &&
    A h2 lan 10.99.50.10/24 && A r4 r4-h3 10.99.4.1/24 && A h3 h3-r4 10.99.4.10/24 || return 1
  ip -n "$(ns h1)" route add default via 10.99.1.1
  ip -n "$(ns bsr)" route add default via 10.99.9.1
  ip -n "$(ns h2)" route add default via 10.99.50.3
  ip -n "$(ns h3)" route add default via 10.99.4.1
  # Receivers may join more groups than the default 20 (the benchmark's scaled traffic).
  for h in h2 h3; do in_ns $h sysctl -qw net.ipv4.igmp_max_memberships=4096; done
  for r in $ROUTERS; do
    in_ns $r sysctl -qw net.ipv4.ip_forward=1 net.ipv4.conf.all.rp_filter=0 \
      net.ipv4.conf.default.rp_filter=0 || return 1
  done
}

configs() {
  cat >"$LAB/r1/frr.conf" <<'C'
frr defaults traditional
hostname r1
ip route 10.99.50.0/24 10.99.12.2
ip route 10.99.4.0/24 10.99.12.2
ip route 10.99.100.1/32 10.99.9.10
interface r1-h1
 ip pim
 ip igmp
interface r1-r2
 ip pim
interface r1-r3
 ip pim
interface r1-bsr
 ip pim
C
  cat >"$LAB/r2/frr.conf" <<'C'
frr defaults traditional
hostname r2
ip route 10.99.1.0/24 10.99.12.1
ip route 10.99.100.1/32 10.99.12.1
ip route 10.99.4.0/24 10.99.50.4
interface r2-r1
 ip pim
interface r2-lan
 ip pim
 ip pim hello 10 35
C
  cat >"$LAB/r3/frr.conf" <<'C'
frr defaults traditional
hostname r3
ip route 10.99.1.0/24 10.99.13.1
ip route 10.99.100.1/32 10.99.13.1
ip route 10.99.4.0/24 10.99.50.4
interface r3-r1
 ip pim
interface r3-lan
 ip pim
 ip pim drpriority 10
 ip igmp
C
  cat >"$LAB/r4/frr.conf" <<'C'
frr defaults traditional
hostname r4
ip route 10.99.1.0/24 10.99.50.2
ip route 10.99.100.1/32 10.99.50.2
interface r4-lan
 ip pim
interface r4-h3
 ip pim
 ip igmp
C
}

# Starts one FRR daemon of router $1 ($2: zebra, staticd or pimd).
daemon() {
  local r=$1 dm=$2 d=$LAB/$1 user=()
  [ "${LAB_ROOTLESS:-0}" = 1 ] && user=(-u root -g root)
  local extra=()
  [ "$dm" = zebra ] && extra=(-s 90000000)
  in_ns "$r" "$FRR/$dm" -d "${user[@]}" -i "$d/$dm.pid" -z "$d/zserv.api" --vty_socket "$d" -P 0 \
    --log "file:$d/$dm.log" "${extra[@]}" -f /dev/null
}

# Router $1: its daemons, its configuration, then the static RP (which pimd takes only once it
# can resolve it). Routers come up in parallel: none waits for another here.
router_up() {
  local r=$1
  daemon "$r" zebra || return 1
  until_ 50 test -S "$LAB/$r/zserv.api" || return 1
  daemon "$r" staticd && daemon "$r" pimd || return 1
  until_ 50 test -S "$LAB/$r/pimd.vty" -a -S "$LAB/$r/staticd.vty" || return 1
  vtysh_ "$r" -f "$LAB/$r/frr.conf" >/dev/null || return 1
  until_ 100 rp_resolvable "$r" || return 1
  vtysh_ "$r" -c 'configure terminal' -c 'ip pim rp 10.99.1.1 224.0.0.0/4'
}

up() {
  mkdir -p "$LAB" || return 1
  for r in $ROUTERS; do
    rm -rf "${LAB:?}/$r" && mkdir -p "$LAB/$r" || return 1
    if [ "${LAB_ROOTLESS:-0}" != 1 ]; then chown frr:frrvty "$LAB/$r" && chmod 775 "$LAB/$r"; fi
  done
  topology || { echo "frrlab: topology failed" >&2; return 1; }
  configs
  local pids=() failed=0
  for r in $ROUTERS; do
    router_up "$r" &
    pids+=($!)
  done
  for p in "${pids[@]}"; do wait "$p" || failed=1; done
  [ "$failed" = 0 ] || { echo "frrlab: a router did not come up" >&2; return 1; }
  until_ 300 neighbor_seen r4 10.99.50.3
}
rp_resolvable() { vtysh_ "$1" -c 'show ip route 10.99.1.1 json' | grep -q '"installed":true'; }
neighbor_seen() { vtysh_ "$1" -c 'show ip pim neighbor json' | grep -q "\"$2\""; }

# Stops router $1's pimd and starts it again with its configuration.
restart_pimd() {
  local r=$1 pid
  pid=$(cat "$LAB/$r/pimd.pid") || return 1
  kill "$pid" 2>/dev/null
  until_ 50 eval "! kill -0 $pid" || kill -9 "$pid" 2>/dev/null
  rm -f "$LAB/$r/pimd.vty"
  daemon "$r" pimd || return 1
  until_ 50 test -S "$LAB/$r/pimd.vty" || return 1
  vtysh_ "$r" -f "$LAB/$r/frr.conf" >/dev/null
  vtysh_ "$r" -c 'configure terminal' -c 'ip pim rp 10.99.1.1 224.0.0.0/4'
}

# Runs a bounded program in namespace $1 in the background; its pid goes to $LAB/$2.app.pid.
app() {
  local n=$1 name=$2; shift 2
  # The program writes its own pid (ip netns exec may stay in between as its parent).
  in_ns "$n" sh -c 'echo $$ >"$0"; exec "$@"' "$LAB/$name.app.pid" "$@" >"$LAB/$name.log" 2>&1 </dev/null &
}

traffic() {
  cp "$HERE/mcast.py" "$HERE/fakebsr.py" "$LAB/"
  # The interpreter itself, not a wrapper script that would run it as a child.
  local python3
  python3=$(python3 -c 'import sys; print(sys.executable)') || return 1
  app bsr fakebsr "$python3" "$LAB/fakebsr.py" 10.99.9.10 10.99.100.1 \
    "239.0.0.0/8=10.99.1.1:10:150,10.99.13.1:20:150;238.0.0.0/8=10.99.1.1:0:150" \
    "${LAB_BSM_PERIOD:-5}" "$SECONDS_"
  app h2 recv-h2 "$python3" "$LAB/mcast.py" recv 10.99.50.10 239.1.1.1 2 5000 "$SECONDS_"
  app h3 recv-h3 "$python3" "$LAB/mcast.py" recv 10.99.4.10 239.1.1.1 2 5000 "$SECONDS_"
  sleep 1
  app h1 send-a "$python3" "$LAB/mcast.py" send 10.99.1.10,10.99.1.11 239.1.1.1 1 5000 \
    "${LAB_PPS:-20}" "$SECONDS_"
  app h1 send-b "$python3" "$LAB/mcast.py" send 10.99.1.10 239.1.1.3 1 5000 5 "$SECONDS_"
}

# Every process still running in the lab's namespaces (the lab started them all).
pids() {
  for n in $ROUTERS $HOSTS; do ip netns pids "$(ns $n)" 2>/dev/null; done
}

down() {
  local left
  left=$(pids)
  [ -n "$left" ] && kill $left 2>/dev/null
  for _ in $(seq 20); do
    left=$(pids)
    [ -z "$left" ] && break
    sleep 0.1
  done
  [ -n "$left" ] && kill -9 $left 2>/dev/null
  for n in $ROUTERS $HOSTS; do ip netns del "$(ns $n)" 2>/dev/null; done
  rm -f "$LAB"/*.app.pid
  true
}

case "${1:-}" in
  up) up ;;
  traffic) traffic ;;
  down) down ;;
  vtysh) shift; vtysh_ "$@" ;;
  restart-pimd) restart_pimd "$2" ;;
  pids) pids ;;
  *) echo "usage: $0 up|traffic|down|vtysh ROUTER ARGS...|restart-pimd ROUTER|pids" >&2; exit 2 ;;
esac
