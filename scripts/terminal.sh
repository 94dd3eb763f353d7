#!/usr/bin/env bash
# The terminal build: the plug-in for the POS terminal's Qt 4.8 and Log4Qt on i386, its tests
# and the terminal archive. Qt 4.8.6 and Log4Qt come from scripts/qt4.sh (built once into
# /var/cache/cpibcr/qt4-i386); the tests run inside the i386 root that scripts/i386.sh made,
# against the i386 cpibcr-sim of build-i386 and beside its Qt 5 tool and plug-in (the same
# session logged by both builds), so run after i386.sh. Fails when the plug-in, in the build
# or in the archive, carries a run path.
#
#   terminal.sh [CTEST ARGS...]
#
# Without the Qt 4 and Log4Qt archives (neither ../shared/thirdparty nor CPIBCR_QT4_SOURCES)
# it says so in one line and stops with success: a user's clone can still run every other test.
# Where ../shared exists the archives must be there.
set -euo pipefail
cd "$(dirname "$0")/.."
src=$PWD
source scripts/debroot.sh

status=0
bash scripts/qt4.sh --check || status=$?
if [ "$status" -eq 3 ]; then
  if [ -z "${CPIBCR_QT4_SOURCES:-}" ] && [ ! -d "$src/../shared" ]; then
    echo "== terminal build skipped: no Qt 4.8.6 and Log4Qt archives (../shared/thirdparty or CPIBCR_QT4_SOURCES)"
    exit 0
  fi
  echo "Qt 4.8.6 and Log4Qt archives missing in ${CPIBCR_QT4_SOURCES:-$src/../shared/thirdparty}" >&2
  exit 1
fi
[ "$status" -eq 0 ] || exit "$status"

[ "$(id -u)" -eq 0 ] || { echo "terminal.sh needs root (chroot, mounts)" >&2; exit 1; }
root=${CPIBCR_I386_ROOT:-$cpibcr_cache/i386-root}
build=$src/build-terminal
simulator=$src/build-i386/sim/cpibcr-sim
[ -f "$root/.cpibcr-root" ] || { echo "no i386 root at $root: run scripts/i386.sh first" >&2; exit 1; }
[ -x "$simulator" ] || { echo "no i386 cpibcr-sim at $simulator: run scripts/i386.sh first" >&2; exit 1; }

started=$SECONDS
prefix=$(bash scripts/qt4.sh | tail -n 1)
echo "== Qt 4.8.6 and Log4Qt ready in $((SECONDS - started)) s"

echo "== terminal build"
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake -S . -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$src/cmake/i386-linux-gnu.cmake" \
  -DCPIBCR_I386_ROOT="$root" -DCPIBCR_QT=4 -DCPIBCR_QT4_PREFIX="$prefix" -DCPIBCR_SIM="$simulator" \
  -DCPIBCR_QT5_BUILD="$src/build-i386" \
  -DCPIBCR_WERROR=ON -DBUILD_TESTING=ON "${launcher[@]}"
CCACHE_BASEDIR=$src CCACHE_NOHASHDIR=true cmake --build "$build" -j"$(nproc)"

plugin=$build/plugins/libcpibcr.so
file "$plugin" | grep -q 'ELF 32-bit LSB .* Intel 80386' || { echo "not an i386 plug-in" >&2; exit 1; }
needed=$(readelf -d "$plugin" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | sort | tr '\n' ' ')
echo "== plug-in needs: $needed"
for lib in $needed; do
  case $lib in
    libQtCore.so.4 | liblog4qt.so.1 | libc.so.6 | libm.so.6 | libstdc++.so.6 | libgcc_s.so.1) ;;
    *) echo "the terminal plug-in needs $lib" >&2; exit 1 ;;
  esac
done
# A run path would let folders of this machine, or the host's working directory for an empty
# entry, supply QtCore or Log4Qt on a terminal.
archive=$(ls "$build"/cpibcr-terminal-*.tar.gz)
shipped=$(mktemp)
tar -xzOf "$archive" --wildcards '*/plugins/libcpibcr.so' >"$shipped"
for elf in "$plugin" "$shipped"; do
  runpath=$(readelf -d "$elf" | grep -E '\((RPATH|RUNPATH)\)' || true)
  if [ -n "$runpath" ]; then
    rm -f "$shipped"
    echo "the terminal plug-in carries a run path: $runpath" >&2
    exit 1
  fi
done
rm -f "$shipped"
echo "== plug-in run path: none"
versions=$(objdump -T "$plugin" | grep -o '\(GLIBC\|GLIBCXX\|CXXABI\|GCC\)_[0-9.]*' | sort -u -V)
for family in GLIBC GLIBCXX CXXABI GCC; do
  echo "== highest $family version: $(grep "^${family}_" <<<"$versions" | tail -n 1)"
done
echo "== terminal archive: $archive"

echo "== terminal tests (in the i386 root)"
trap 'unmount_root "$root"' EXIT
enable_i386
mount_root "$root"
bind_into_root "$root" "$src"
bind_into_root "$root" "$prefix"
# The test that compares both builds' log lines freezes the wall clock with faketime.
if ! in_root "$root" dpkg-query -W -f='${Status}' faketime 2>/dev/null | grep -q 'install ok installed'; then
  in_root "$root" apt-get update -qq || echo "warning: apt-get update failed in the i386 root" >&2
  in_root "$root" apt-get install -y -qq --no-install-recommends faketime
fi
in_root "$root" ctest --test-dir "$build" --output-on-failure "$@"
