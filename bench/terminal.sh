#!/usr/bin/env bash
# Figures of the terminal build for BENCHMARKS.md, inside the i386 root (under qemu-user where
# the kernel cannot run i386 itself), against the i386 cpibcr-sim with its default timings:
# - the Qt 4 host's resident memory after connecting;
# - host turnaround, the Qt 4 host (examples/qt4host) against the Qt 5 tool (cpibcr) in one
#   run, taking turns: process start, plug-in loaded, connected, the state checked, exit.
#
#   sudo bash bench/terminal.sh [ROUNDS]      after scripts/i386.sh and scripts/terminal.sh
set -euo pipefail
cd "$(dirname "$0")/.."
src=$PWD
rounds=${1:-10}

if [ "${CPIBCR_BENCH_INSIDE:-}" != yes ]; then
  source scripts/debroot.sh
  root=${CPIBCR_I386_ROOT:-$cpibcr_cache/i386-root}
  prefix=${CPIBCR_QT4_PREFIX:-$cpibcr_cache/qt4-i386}
  trap 'unmount_root "$root"' EXIT
  enable_i386
  mount_root "$root"
  bind_into_root "$root" "$src"
  bind_into_root "$root" "$prefix"
  in_root "$root" env CPIBCR_BENCH_INSIDE=yes bash "$src/bench/terminal.sh" "$rounds"
  exit 0
fi

qt4host=$src/build-terminal/examples/qt4host/qt4host
plugin4=$src/build-terminal/plugins/libcpibcr.so
tool=$src/build-i386/tools/cpibcr
simulator=$src/build-i386/sim/cpibcr-sim
# shellcheck source=../tests/support/simctl.sh
. "$src/tests/support/simctl.sh"
log4qt_properties WARN
start_simulator

now() { date +%s%N; }
median() { sort -n | awk '{ a[NR] = $1 } END { print a[int((NR + 1) / 2)] }'; }

memory=$(printf 'memory\n' | "$qt4host" --plugin "$plugin4" --port "$work/tty" --log-config "$work/log4qt.properties" |
  sed -n 's/^memory //p')
echo "Qt 4 host after connecting: $memory"

: >"$work/qt4" && : >"$work/qt5"
for ((i = 0; i < rounds; i++)); do
  t0=$(now)
  out=$(printf 'state\n' | "$qt4host" --plugin "$plugin4" --port "$work/tty" --log-config "$work/log4qt.properties")
  t1=$(now)
  grep -qx 'state ok' <<<"$out" || { echo "Qt 4 host: $out" >&2; exit 1; }
  out=$("$tool" --port "$work/tty" status)
  t2=$(now)
  grep -q '^state *ok$' <<<"$out" || { echo "Qt 5 tool: $out" >&2; exit 1; }
  echo $(((t1 - t0) / 1000000)) >>"$work/qt4"
  echo $(((t2 - t1) / 1000000)) >>"$work/qt5"
done
echo "turnaround over $rounds rounds, median: Qt 4 host $(median <"$work/qt4") ms, Qt 5 tool $(median <"$work/qt5") ms"
echo "Qt 4 host, each: $(tr '\n' ' ' <"$work/qt4")"
echo "Qt 5 tool, each: $(tr '\n' ' ' <"$work/qt5")"
stop_simulator
