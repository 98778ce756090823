#!/usr/bin/env bash
# Installs the Debian packages that building and testing pvx need, if missing.
# Usage: scripts/deps.sh [demo|test]
set -euo pipefail

packages=(cmake g++ make binutils)
# Any python3 will do (it may not come from Debian).
command -v python3 >/dev/null || packages+=(python3)
if [ "${1:-test}" = test ]; then
  packages+=(libgtest-dev googletest gcc-multilib g++-multilib libbenchmark-dev)
fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "installing: ${missing[*]}"
if [ "$(id -u)" -ne 0 ]; then
  sudo=sudo
else
  sudo=
fi
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}"
