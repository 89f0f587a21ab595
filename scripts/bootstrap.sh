#!/usr/bin/env bash
# Installs the Debian packages PimSnmp needs to build, test and run. Idempotent:
# packages already present are not reinstalled, and apt is only updated when needed.
set -euo pipefail

PACKAGES=(
  build-essential cmake ninja-build pkg-config clang-format
  libsnmp-dev snmp snmpd snmptrapd
  libfmt-dev nlohmann-json3-dev rapidjson-dev libjemalloc-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  python3 procps psmisc
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
echo "bootstrap: dependencies present"
