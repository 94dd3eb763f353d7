#!/usr/bin/env bash
# Installs the Debian packages the project needs. Idempotent: safe to run again
# on a set-up machine; apt runs only when a package is missing.
#
#   setup.sh         what building the plug-in and the tools and running the demo need
#   setup.sh --dev   also what the tests, the i386 run, the package test, the fuzz
#                    targets and the benchmarks need
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config file
  qtbase5-dev qtbase5-dev-tools libqt5serialport5-dev
  liblog4cxx-dev
)

case "${1:-}" in
  "") ;;
  --dev)
    packages+=(
      git ccache dpkg-dev fakeroot lintian
      libbenchmark-dev
      clang-14 libclang-rt-14-dev llvm-14
      clang-format-14
      python3 binutils procps
      debootstrap arch-test qemu-user-static g++-multilib
    )
    ;;
  *)
    echo "usage: setup.sh [--dev]" >&2
    exit 2
    ;;
esac

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done

if [ "${#missing[@]}" -gt 0 ]; then
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  export DEBIAN_FRONTEND=noninteractive
  # A mirror caught mid-sync fails one index; the next try usually gets it, and the lists
  # that did arrive are enough when it does not.
  for try in 1 2 3; do
    $SUDO apt-get update && break
    [ "$try" -lt 3 ] || echo "warning: apt-get update failed three times; using the lists it has" >&2
    sleep $((try * 5))
  done
  $SUDO apt-get install -y --no-install-recommends "${missing[@]}"
fi
