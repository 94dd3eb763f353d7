#!/usr/bin/env bash
# Installs the packages cpibcr and cpibcr-dev in a fresh Debian 12 root, builds
# examples/poshost there with nothing but the installed development package, and
# runs it against the installed cpibcr-sim (poshost_check.sh). Needs root and the
# machine's apt mirror; the pristine root and downloaded packages are kept in the
# cache of scripts/debroot.sh.
#   poshost_debroot.sh DEB_DIR SOURCE_DIR
set -euo pipefail
debs=$(realpath "$1")
source_dir=$(realpath "$2")
# shellcheck source=../../scripts/debroot.sh
. "$source_dir/scripts/debroot.sh"

runtime_deb=$(find "$debs" -maxdepth 1 -name 'cpibcr_*.deb' | sort | tail -n 1)
dev_deb=$(find "$debs" -maxdepth 1 -name 'cpibcr-dev_*.deb' | sort | tail -n 1)
if [ -z "$runtime_deb" ] || [ -z "$dev_deb" ]; then
  echo "no cpibcr_*.deb and cpibcr-dev_*.deb in $debs (cpack in the build folder makes them)" >&2
  exit 1
fi

arch=$(dpkg --print-architecture)
# A fixed place in the cache: a run killed before its trap leaves mounts there, and the next
# run's fresh_root takes them down before it copies the root again.
root=$cpibcr_cache/$arch-poshost
trap 'remove_root "$root"' EXIT
fresh_root "$arch" "$root"
mount_root "$root"
# Downloaded packages are kept between runs; the root itself is thrown away.
mkdir -p "$cpibcr_cache/apt-archives/partial"
mount --bind "$cpibcr_cache/apt-archives" "$root/var/cache/apt/archives"

test_dir=/tmp/poshost-test
mkdir -p "$root$test_dir/examples" "$root$test_dir/support"
cp "$runtime_deb" "$dev_deb" "$root$test_dir/"
cp "$source_dir/tests/examples/poshost_check.sh" "$root$test_dir/examples/"
cp "$source_dir/tests/support/simctl.sh" "$root$test_dir/support/"

update_root "$root" >"$root$test_dir/apt.log"
# The packages' own dependencies come with them; the host's build needs a compiler and CMake.
in_root "$root" apt-get install -y -q --no-install-recommends \
  "$test_dir/$(basename "$runtime_deb")" "$test_dir/$(basename "$dev_deb")" \
  g++ cmake ninja-build >>"$root$test_dir/apt.log"
# The packages install under the prefix the tree was configured with (/usr unless chosen).
prefix=$(in_root "$root" dpkg -L cpibcr | sed -n 's#/bin/cpibcr-sim$##p')
[ -n "$prefix" ] || { echo "cpibcr-sim is not in the installed package cpibcr" >&2; exit 1; }
# The example as the package installs it: nothing of the source tree is used.
in_root "$root" cmake -S "$prefix/share/doc/cpibcr-dev/examples/poshost" -B "$test_dir/build" -G Ninja \
  -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS="-Wall -Wextra -Wshadow -Werror" >"$root$test_dir/configure.log"
in_root "$root" cmake --build "$test_dir/build" >"$root$test_dir/build.log"
in_root "$root" bash "$test_dir/examples/poshost_check.sh" "$test_dir/build/poshost" "$prefix/bin/cpibcr-sim"
