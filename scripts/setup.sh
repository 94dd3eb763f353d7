#!/usr/bin/env bash
# Installs every Debian package the build, the tests, the tools, the fuzzers
# and the benchmarks need. Idempotent: safe to run again on a set-up machine.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config git
  qtbase5-dev qtbase5-dev-tools libqt5serialport5-dev
  liblog4cxx-dev libboost-dev
  libbenchmark-dev
  clang-14 libclang-rt-14-dev llvm-14
  clang-format-14
  python3 binutils procps
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done

if [ "${#missing[@]}" -gt 0 ]; then
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update
  $SUDO apt-get install -y --no-install-recommends "${missing[@]}"
fi
