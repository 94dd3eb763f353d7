#!/usr/bin/env bash
# Builds the project for 32-bit x86 Linux and runs its tests and the package test there.
#
# The build uses this machine's compiler (g++ -m32) against a Debian 12 i386 root that holds
# the i386 libraries and headers; the tests run inside that root (chroot, with /dev and /proc
# and the clone bound at the same path), so paths look as on a terminal. A kernel without
# 32-bit execution runs the i386 programs through qemu-user (binfmt_misc), registered here
# only when needed. The root is kept in /var/cache/cpibcr between runs; the first run takes
# about 15 minutes, later ones a few.
#
#   i386.sh [CTEST ARGS...]
set -euo pipefail
cd "$(dirname "$0")/.."
src=$PWD
source scripts/debroot.sh

[ "$(id -u)" -eq 0 ] || { echo "i386.sh needs root (debootstrap, chroot, mounts)" >&2; exit 1; }
root=${CPIBCR_I386_ROOT:-$cpibcr_cache/i386-root}
build=$src/build-i386
jobs=$(nproc)

bash scripts/setup.sh --dev
enable_i386
emulated=yes
arch-test -n i386 >/dev/null 2>&1 && emulated=no
if [ "$emulated" = no ]; then
  echo "== i386 programs run natively"
else
  echo "== i386 programs run through qemu-user"
fi

echo "== i386 root $root"
if [ ! -f "$root/.cpibcr-root" ]; then
  fresh_root i386 "$root"
  touch "$root/.cpibcr-root"
fi
trap 'unmount_root "$root"' EXIT
mount_root "$root"
# The project's own installer makes the root a build machine; cheap once done.
cp scripts/setup.sh "$root/tmp/cpibcr-setup.sh"
in_root "$root" bash /tmp/cpibcr-setup.sh

echo "== i386 build"
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake -S . -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$src/cmake/i386-linux-gnu.cmake" \
  -DCPIBCR_I386_ROOT="$root" -DCPIBCR_WERROR=ON -DBUILD_TESTING=ON -DCPIBCR_BENCH=OFF "${launcher[@]}"
CCACHE_BASEDIR=$src CCACHE_NOHASHDIR=true cmake --build "$build" -j"$jobs"
file "$build/tools/cpibcr" | grep -q 'ELF 32-bit LSB .* Intel 80386' || { echo "not an i386 build" >&2; exit 1; }

echo "== i386 tests"
bind_into_root "$root" "$src"
if [ "$emulated" = no ]; then
  in_root "$root" ctest --test-dir "$build" --output-on-failure -j"$jobs" "$@"
else
  # Under qemu-user, QProcess reports every child as crashed, /bin/echo too, and the same
  # holds for amd64 programs under qemu-x86_64: the tests labelled "process" cannot pass
  # there. They run wherever the kernel runs i386 itself; here the programs they start are
  # run directly instead.
  in_root "$root" ctest --test-dir "$build" --output-on-failure -j"$jobs" -LE process "$@"
  echo "== i386 programs run directly (the tests labelled process are left out under emulation)"
  version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
  [ "$(in_root "$root" "$build/tools/cpibcr" --version)" = "cpibcr $version" ]
  [ "$(in_root "$root" "$build/sim/cpibcr-sim" --version)" = "cpibcr-sim $version" ]
  in_root "$root" "$build/tools/cpibcr" ports
  out=$(in_root "$root" "$build/tools/cpibcr" status)
  echo "$out"
  grep -q '^state *ok$' <<<"$out"
  out=$(in_root "$root" "$build/tools/cpibcr" --json pay 17)
  echo "$out"
  grep -q '"sum": 1700' <<<"$out"
fi

echo "== i386 package"
# Inside the root, dpkg-shlibdeps sees the i386 libraries the package depends on.
rm -f "$build"/cpibcr_*.deb
in_root "$root" sh -c "cd '$build' && cpack -G DEB"
unmount_root "$root"
trap - EXIT
bash scripts/packagetest.sh "$build"/cpibcr_*_i386.deb
