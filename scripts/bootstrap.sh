#!/usr/bin/env bash
# Installs the Debian packages PimSnmp needs to build, test and run. Idempotent:
# packages already present are not reinstalled, and apt is only updated when needed.
set -euo pipefail

PACKAGES=(
  build-essential cmake ninja-build pkg-config clang-format
  libsnmp-dev snmp snmpd snmptrapd
  libfmt-dev nlohmann-json3-dev rapidjson-dev libjemalloc-dev libboost-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  python3 python3-jsonschema procps psmisc
  frr iproute2
  dpkg-dev man-db groff-base mandoc systemd
  clang libclang-rt-dev  # libFuzzer and the sanitizers' runtimes (scripts/fuzz.sh)
)

missing=()
for p in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

if ((${#missing[@]})); then
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  echo "bootstrap: installing ${missing[*]}"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
# The distribution's snmpd/snmptrapd services are never used: tests start their own on loopback.
# Nor is its frr service: the network-namespace lab starts its own FRR daemons per namespace.
SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
if [ -d /run/systemd/system ] && systemctl is-enabled --quiet frr.service 2>/dev/null; then
  $SUDO systemctl disable --now frr.service >/dev/null 2>&1 || true
elif [ -x /etc/init.d/frr ] && pidof -q watchfrr; then
  $SUDO /etc/init.d/frr stop >/dev/null 2>&1 || true
fi
echo "bootstrap: dependencies present"
